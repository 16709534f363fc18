// A chart calibration as a station runs it: the pairs that the command line,
// a folder or a list file name, read and checked one at a time as their
// searches come (station/PairIntake.h); the engine's chessboard stereo
// calibration over them; with dropOutliers a second run without the outlier
// corners; and the run's files (summary JSON, rectified preview, picture
// report, Android metadata, the library's calibrationResult.txt), each
// registered with the run's outputs (station/RunOutputs.h) for one commit.
// Problems with the inputs throw StationError naming the file or pair.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include "chart/ChartDriver.h"
#include "station/HealthVerdict.h"
#include "station/LensModelCheck.h"
#include "station/StereoCalibration.h"
#include "station/StereoUncertainty.h"
#include "station/StereoVerification.h"

class dualCalibration;

struct ChartOptions {
  std::string params;
  std::vector<std::string> tables;
  std::string json, saveRectified;
  std::vector<std::string> images;  // main1 second1 main2 second2 ...
  // The images themselves, in the order of images, which then only name
  // them (station/PairIntake.h); empty: images are files.
  std::vector<cv::Mat> pixels;
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
  HealthLimits health;
  // Folders for the calibration as OpenCV's stereo sample files
  // (intrinsics.yml, extrinsics.yml) and as ROS camera_info files
  // (main.yaml, second.yaml).
  std::string openCvDir, rosDir;
  // The detected corners of every view written to saveCorners
  // (station/CornersFile.h); fromCorners solves from such a file instead of
  // the images.
  std::string saveCorners, fromCorners;
  // Groups of views the final run is solved again without, for the
  // standard deviations of what it delivers (0: none).
  size_t uncertaintyFolds = 10;
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
  // The rectified row and epipolar errors of the final run's own views
  // under the calibration it delivered; nullptr when it did not calibrate.
  const StereoVerification* RowErrors() const { return mRowErrors.rowError.count > 0 ? &mRowErrors : nullptr; }
  // The final run's lens models (main, second) checked out to the image
  // corners; both valid when it did not calibrate.
  const std::array<LensModelCheck, 2>& LensModels() const { return mLensModels; }
  // The jackknife of the final run's stereo stage (station/StereoUncertainty.h);
  // nullptr without a calibration, folds or at least 5 views, and after a
  // first run that RecalibrateWithoutOutliers is still to replace.
  const StereoUncertainty* Uncertainty() const { return mUncertainty.groups > 0 ? &mUncertainty : nullptr; }
  // What to capture again (station/RecaptureAdvice.h); empty without a calibration.
  std::string Recapture() const;
  // Millimetres per unit of T: --square-mm over nSquareSize, else 1.
  double MillimetresPerUnit() const;
  // The final run succeeded, passed every limit check (AllChartChecksPassed)
  // and delivered lens models that hold out to the image corners.
  bool ChecksPassed() const;
  // The summary JSON: the first run's ChartSummaryJson, with the second run
  // under "without_outliers", then strict_translation, checks_passed and,
  // for a calibration, the final run's row_error, epipolar_error and health.
  nlohmann::json Json() const;
  // When the final run succeeded, registers calibrationResult.txt and the
  // files the options ask for (the interchange files as StationError when
  // the calibration cannot be expressed in them); --json is written
  // whatever the outcome.
  void WriteOutputs() const;

 private:
  dualCalibration& mEngine;
  const ChartOptions mOptions;
  std::vector<std::string> mImages;
  ChartOutcome mOutcome;
  StereoVerification mRowErrors;
  std::array<LensModelCheck, 2> mLensModels;
  StereoUncertainty mUncertainty;
  std::unique_ptr<ChartViews> mStoredViews;  // from --from-corners
  ChartViews mSearchedViews;                 // for --save-corners

  // Row errors, lens model checks and uncertainty of the final run's calibration.
  void MeasureDelivered();
  // With dropOutliers: the first run succeeded with outlier corners and was not run again yet.
  bool RecalibrationDue() const;
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

// The calibration the engine holds after a successful run: K1 D1 K2 D2 R T,
// with the main image's size.
StereoCalibration DeliveredCalibration(const dualCalibration& engine);
// The calibration a chart run's JSON holds (the run without outliers when
// there is one). StationError naming path when the file is not such a JSON,
// its run did not calibrate, or a matrix is missing, misshapen or not finite.
StereoCalibration ChartJsonCalibration(const std::string& path);
