#include "station/VerifyRun.h"

#include <algorithm>

#include "chart/CornerQuality.h"
#include "engine/dualCalibration.h"
#include "station/CalibrationFiles.h"
#include "station/ChartRun.h"
#include "station/InputFiles.h"
#include "station/PairIntake.h"
#include "station/PairList.h"
#include "station/ParameterText.h"
#include "station/RunOutputs.h"

namespace {

// Leaves out of both lists the corners unlocated in either image.
void DropUnlocated(cv::Size patternSize, std::vector<cv::Point2f>& corners1, std::vector<cv::Point2f>& corners2) {
  std::vector<int32_t> unlocated = UnlocatedCorners(corners1, patternSize);
  for (const int32_t k : UnlocatedCorners(corners2, patternSize)) unlocated.push_back(k);
  std::sort(unlocated.begin(), unlocated.end(), std::greater<int32_t>());
  unlocated.erase(std::unique(unlocated.begin(), unlocated.end()), unlocated.end());
  for (const int32_t k : unlocated) {
    corners1.erase(corners1.begin() + k);
    corners2.erase(corners2.begin() + k);
  }
}

}  // namespace

nlohmann::json ErrorFiguresJson(const ErrorFigures& figures) {
  return {{"rms", figures.rms}, {"p95", figures.p95}, {"max", figures.max}, {"count", figures.count}};
}

VerifyRun::VerifyRun(dualCalibration& engine, VerifyOptions options)
    : mEngine(engine), mOptions(std::move(options)) {
  mImages = ChartImagePaths(mOptions.images, mOptions.pairsDir, mOptions.pairsFile);
  const bool fromFiles = mOptions.pixels.empty();
  RunFiles files{fromFiles ? mImages : std::vector<std::string>(), {mOptions.pairsDir}, {mOptions.json, mOptions.map}, {}};
  files.inputs.insert(files.inputs.end(), {mOptions.params, mOptions.pairsFile, mOptions.calibration});
  files.inputs.insert(files.inputs.end(), mOptions.openCvFiles.begin(), mOptions.openCvFiles.end());
  CheckRunFiles(files);
  RequireImagePairs(mImages, "verify");
  if (mOptions.calibration.empty() == (mOptions.openCvFiles.size() != 2)) {
    throw StationError("verify: expected one calibration: a chart JSON or intrinsics.yml and extrinsics.yml");
  }
  RequirePixelsNamed(mOptions.pixels, mImages, "verify");
  for (size_t i = 0; i < mImages.size() && fromFiles; ++i) RequireReadableFile(mImages[i], kMaxImageFileBytes);
  LoadParameterFile(mEngine, mOptions.params);
  mOutcome.calibration = mOptions.calibration.empty()
                             ? ReadOpenCvCalibration(mOptions.openCvFiles[0], mOptions.openCvFiles[1])
                             : ChartJsonCalibration(mOptions.calibration);
}

const VerifyOutcome& VerifyRun::Verify(const VerifyPairProgress& onPair) {
  const cv::Size patternSize(mEngine.m_nBoardWidth, mEngine.m_nBoardHeight);
  mEngine.mCornerSearch = CornerSearch::kAnyScale;
  mEngine.mCornerPairing = CornerPairing::kGrid;
  PairIntake intake(mImages, mOptions.pixels);
  for (size_t k = 0; k < mImages.size() / 2; ++k) {
    const std::pair<cv::Mat, cv::Mat> pair = intake.Read(k);
    if (k == 0 && mOutcome.calibration.imageSize.area() == 0) mOutcome.calibration.imageSize = pair.first.size();
    RequireSameSize(pair.first, mImages[2 * k], mOutcome.calibration.imageSize, "the calibration");
    std::vector<cv::Point2f> corners1, corners2;
    const bool view = mEngine.detectChessboardCorners(pair.first, pair.second, static_cast<int>(k + 1), patternSize,
                                                      corners1, corners2);
    if (view) DropUnlocated(patternSize, corners1, corners2);
    if (view && !corners1.empty()) {
      mOutcome.viewPairs.push_back(static_cast<int32_t>(k + 1));
      mOutcome.mainCorners.push_back(std::move(corners1));
      mOutcome.secondCorners.push_back(std::move(corners2));
    } else {
      mOutcome.noBoardPairs.push_back(static_cast<int32_t>(k + 1));
    }
    if (onPair) onPair(k, view);
  }
  if (mOutcome.mainCorners.empty()) throw StationError("verify: no pair shows the board in both images");
  mOutcome.figures = VerifyStereo(mOutcome.calibration, mOutcome.mainCorners, mOutcome.secondCorners);
  return mOutcome;
}

bool VerifyRun::Passed() const {
  return mOptions.maxRowErrorPx <= 0.0 || mOutcome.figures.rowError.p95 <= mOptions.maxRowErrorPx;
}

HealthBand VerifyRun::Health() const { return HealthOf(mOutcome.figures.rowError.p95, mOptions.health); }

nlohmann::json VerifyRun::Json() const {
  nlohmann::json views = nlohmann::json::array();
  for (size_t v = 0; v < mOutcome.viewPairs.size(); ++v) {
    views.push_back({{"pair", mOutcome.viewPairs[v]}, {"row_error", ErrorFiguresJson(mOutcome.figures.viewRowErrors[v])},
                     {"row_errors_px", mOutcome.figures.rowErrors[v]}});
  }
  nlohmann::json json = {{"row_error", ErrorFiguresJson(mOutcome.figures.rowError)},
                         {"epipolar_error", ErrorFiguresJson(mOutcome.figures.epipolarError)},
                         {"health", HealthName(Health())},
                         {"health_limits_px", {{"good", mOptions.health.goodPx}, {"improvable", mOptions.health.improvablePx}}},
                         {"views", views},
                         {"no_board_pairs", mOutcome.noBoardPairs},
                         {"image_size", {mOutcome.calibration.imageSize.width, mOutcome.calibration.imageSize.height}}};
  if (mOptions.maxRowErrorPx > 0.0) {
    json["max_row_error_px"] = mOptions.maxRowErrorPx;
    json["passed"] = Passed();
  }
  return json;
}

void VerifyRun::WriteOutputs() const {
  if (!mOptions.json.empty()) WriteJsonAtomically(mOptions.json, Json());
  if (!mOptions.map.empty()) {
    WriteImageAtomically(mOptions.map, RowErrorMap(mOutcome.calibration, mOutcome.mainCorners, mOutcome.figures));
  }
}
