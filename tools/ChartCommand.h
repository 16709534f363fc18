// qlm-calib chart: the chessboard stereo calibration of the engine over
// image pairs, with a summary table, JSON and a rectified preview.
#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "chart/ChartDriver.h"

class dualCalibration;

struct ChartOptions {
  std::string params;
  std::vector<std::string> tables;
  std::string json, saveRectified;
  std::vector<std::string> images;  // main1 second1 main2 second2 ...
  std::string pairsDir, pairsFile;  // the other two sources of pairs (tools/PairList.h)
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

void AddChartOptions(CLI::App& command, ChartOptions& options);
// Runs the chart driver on the global engine, prints the summary and writes
// the requested files.
ChartOutcome CalibrateChart(const ChartOptions& options);
// CalibrateChart answered with the exit status of its final run: 0 when every limit check passed, 3 when
// the calibration ran but failed or a check did not pass.
int RunChart(const ChartOptions& options);

// The library's verdict: every check passed, the translation counting only
// when the stereo RMS is over its limit (so never on its own), or always
// with strictTranslation.
bool AllChartChecksPassed(const ChartLimitChecks& checks, bool strictTranslation);

// The summary's JSON form (keys views_found, views_total, rms, T,
// angles_deg, K1, K2, D1, D2, per_view_errors, mono_rms, intrinsic_std_dev,
// status, checks, pairing, grid_pairing or repeated_corner_pairs, view_pairs,
// outlier_pairs, quick_rejected, views_without_tables; views by their pair numbers).
nlohmann::json ChartSummaryJson(const ChartSummary& summary, const dualCalibration& engine);
