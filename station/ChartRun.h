// A chart calibration as a station runs it: the pairs that the command line,
// a folder or a list file name, read and checked one at a time as their
// searches come (station/PairIntake.h); the engine's chessboard stereo
// calibration over them; with dropOutliers a second run without the outlier
// corners; and the run's files (summary JSON, rectified preview, picture
// report, Android metadata, the library's calibrationResult.txt), each
// registered with the run's outputs (station/RunOutputs.h) for one commit.
// Problems with the inputs throw StationError naming the file or pair.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include "chart/ChartDriver.h"

class dualCalibration;

struct ChartOptions {
  std::string params;
  std::vector<std::string> tables;
  std::string json, saveRectified;
  std::vector<std::string> images;  // main1 second1 main2 second2 ...
  std::string pairsDir, pairsFile;  // the other two sources of pairs (station/PairList.h)
  std::string reportDir, androidMetadata;
  double squareMm = 0.0;             // 0: nSquareSize counts as millimetres
  int sensorOrientationDeg = 90;     // of the main camera, for its pose rotation
  CornerPairing pairing = CornerPairing::kGrid;
  CornerSearch search = CornerSearch::kAnyScale;
  bool quickCheck = true;
  bool dropOutliers = false;
  // The library checks the translation only when the stereo RMS is over its
  // limit; with this set the tool fails any translation over its limit.
  bool strictTranslation = false;
};

// What a chart run hands back: the summary of the run, and with
// --drop-outliers and outlier views the summary of the run without them.
struct ChartOutcome {
  ChartSummary summary;
  bool recalibrated = false;
  ChartSummary withoutOutliers;

  const ChartSummary& Final() const { return recalibrated ? withoutOutliers : summary; }
};

class ChartRun {
 public:
  // Resolves the pairs, checks the run's files (station/RunOutputs.h) and
  // loads the parameter file into engine, which the run then uses.
  ChartRun(dualCalibration& engine, ChartOptions options);

  // main1 second1 main2 second2 ...
  const std::vector<std::string>& Images() const { return mImages; }
  // The first run; onPair is told each pair's result as its search ends.
  // The first pair that cannot be read or is refused throws StationError.
  const ChartSummary& Calibrate(const ChartPairProgress& onPair);
  // With dropOutliers, after a first run that succeeded and found outlier
  // corners: the run again without them. nullptr when there is none.
  const ChartSummary* RecalibrateWithoutOutliers();
  const ChartOutcome& Outcome() const { return mOutcome; }
  // The final run succeeded and passed every limit check (AllChartChecksPassed).
  bool ChecksPassed() const;
  // The summary JSON: the first run's ChartSummaryJson, with the second run
  // under "without_outliers", then strict_translation and checks_passed.
  nlohmann::json Json() const;
  // When the final run succeeded, registers calibrationResult.txt and the
  // files the options ask for; --json is written whatever the outcome.
  void WriteOutputs() const;

 private:
  dualCalibration& mEngine;
  const ChartOptions mOptions;
  std::vector<std::string> mImages;
  ChartOutcome mOutcome;
};

// The library's verdict: every check passed, the translation counting only
// when the stereo RMS is over its limit (so never on its own), or always
// with strictTranslation.
bool AllChartChecksPassed(const ChartLimitChecks& checks, bool strictTranslation);

// The summary's JSON form (keys views_found, views_total, rms, T,
// angles_deg, K1, K2, D1, D2, per_view_errors, mono_rms, intrinsic_std_dev,
// status, checks, pairing, grid_pairing or repeated_corner_pairs, view_pairs,
// outlier_pairs, quick_rejected, views_without_tables; views by their pair numbers).
nlohmann::json ChartSummaryJson(const ChartSummary& summary, const dualCalibration& engine);

const char* PairingName(CornerPairing pairing);
const char* SearchName(CornerSearch search);
// Indices counted from 1, as the summary and the JSON give corners.
std::vector<int32_t> OneBased(std::vector<int32_t> indices);
// The pair numbers of the given views (0-based), as PairNumbersOfViews counts.
std::vector<int32_t> PairsOf(const std::vector<int32_t>& views, const std::vector<int32_t>& pairNumbers);
