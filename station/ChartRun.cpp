#include "station/ChartRun.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include "engine/dualCalibration.h"
#include "station/AndroidMetadata.h"
#include "station/CalibrationFiles.h"
#include "station/ChartReport.h"
#include "station/CornersFile.h"
#include "station/InputFiles.h"
#include "station/PairIntake.h"
#include "station/PairList.h"
#include "station/ParameterText.h"
#include "station/RecaptureAdvice.h"
#include "station/RunOutputs.h"
#include "station/VerifyRun.h"

namespace {

constexpr double kDegreesPerRadian = 180.0 / 3.14159265358979323846;
constexpr int kGuideLineSpacingPx = 64;

nlohmann::json DroppedJson(const CornerOutliers& dropped, const std::vector<int32_t>& pairNumbers) {
  nlohmann::json corners = nlohmann::json::array();
  for (size_t v = 0; v < dropped.corners.size() && v < pairNumbers.size(); ++v) {
    if (dropped.corners[v].empty()) continue;
    corners.push_back({{"pair", pairNumbers[v]}, {"corners", OneBased(dropped.corners[v])}});
  }
  return {{"pairs", PairsOf(dropped.views, pairNumbers)}, {"corners", corners}};
}

nlohmann::json DeviationsJson(const MonoIntrinsics& mono) {
  nlohmann::json json;
  for (int i = 0; i < 9; ++i) json[kMonoIntrinsicNames[i]] = mono.stdDev[i];
  return json;
}

// The first pair undistorted and rectified side by side, with horizontal
// guide lines: matching points of a good calibration lie on one line.
cv::Mat RectifiedSideBySide(const dualCalibration& engine, const std::pair<cv::Mat, cv::Mat>& pair) {
  const cv::Size size = pair.first.size();
  cv::Mat R1, R2, P1, P2, Q;
  cv::stereoRectify(engine.K1, engine.D1, engine.K2, engine.D2, size, engine.R, engine.mT, R1, R2, P1, P2, Q,
                    cv::CALIB_ZERO_DISPARITY, 0.0);
  cv::Mat canvas(size.height, 2 * size.width, CV_8UC3);
  const cv::Mat* images[2] = {&pair.first, &pair.second};
  const cv::Mat* cameras[2] = {&engine.K1, &engine.K2};
  const cv::Mat* distortions[2] = {&engine.D1, &engine.D2};
  const cv::Mat* rotations[2] = {&R1, &R2};
  const cv::Mat* projections[2] = {&P1, &P2};
  for (int i = 0; i < 2; ++i) {
    cv::Mat mapX, mapY, rectified;
    cv::initUndistortRectifyMap(*cameras[i], *distortions[i], *rotations[i], *projections[i], size, CV_32FC1,
                                mapX, mapY);
    cv::remap(*images[i], rectified, mapX, mapY, cv::INTER_LINEAR, cv::BORDER_CONSTANT, 0);
    cv::cvtColor(rectified, canvas(cv::Rect(i * size.width, 0, size.width, size.height)), cv::COLOR_GRAY2BGR);
  }
  for (int y = 0; y < canvas.rows; y += kGuideLineSpacingPx) {
    cv::line(canvas, {0, y}, {canvas.cols - 1, y}, cv::Scalar(0, 255, 0), 1);
  }
  return canvas;
}


// A matrix of rows rows, each an array of one of columns numbers (a single
// row may also stand as a plain array), finite; empty otherwise.
cv::Mat JsonMatrix(const nlohmann::json& values, int rows, const std::vector<int>& columns) {
  const bool plainRow = rows == 1 && values.is_array() && !values.empty() && !values[0].is_array();
  const nlohmann::json lines = plainRow ? nlohmann::json::array({values}) : values;
  if (!lines.is_array() || static_cast<int>(lines.size()) != rows) return {};
  cv::Mat matrix;
  for (const nlohmann::json& line : lines) {
    if (!line.is_array() || std::find(columns.begin(), columns.end(), static_cast<int>(line.size())) == columns.end() ||
        (!matrix.empty() && matrix.cols != static_cast<int>(line.size()))) {
      return {};
    }
    cv::Mat row(1, static_cast<int>(line.size()), CV_64F);
    for (int c = 0; c < row.cols; ++c) row.at<double>(c) = line[c].is_number() ? line[c].get<double>() : NAN;
    matrix.push_back(row);
  }
  return cv::checkRange(matrix) ? matrix : cv::Mat();
}

// T (and T_mm), angles_deg, and fx, fy, cx, cy of main and second.
nlohmann::json StereoParametersJson(const StereoParameters& p, double millimetresPerUnit) {
  const auto camera = [](const cv::Vec4d& c) { return nlohmann::json{{"fx", c[0]}, {"fy", c[1]}, {"cx", c[2]}, {"cy", c[3]}}; };
  return {{"T", {p.T[0], p.T[1], p.T[2]}},
          {"T_mm", {p.T[0] * millimetresPerUnit, p.T[1] * millimetresPerUnit, p.T[2] * millimetresPerUnit}},
          {"angles_deg", {p.anglesDeg[0], p.anglesDeg[1], p.anglesDeg[2]}},
          {"main", camera(p.camera1)},
          {"second", camera(p.camera2)}};
}

// "9 x 6 corners, squares of 25".
std::string BoardText(const CornersBoard& board) {
  return std::to_string(board.width) + " x " + std::to_string(board.height) + " corners, squares of " +
         std::to_string(board.squareSize);
}

}  // namespace

const char* PairingName(CornerPairing pairing) { return pairing == CornerPairing::kGrid ? "grid" : "nearest"; }
const char* SearchName(CornerSearch search) { return search == CornerSearch::kAnyScale ? "any-scale" : "engine"; }

std::vector<int32_t> OneBased(std::vector<int32_t> indices) {
  for (int32_t& index : indices) ++index;
  return indices;
}

std::vector<int32_t> PairsOf(const std::vector<int32_t>& views, const std::vector<int32_t>& pairNumbers) {
  std::vector<int32_t> pairs;
  for (const int32_t view : views) {
    if (view >= 0 && static_cast<size_t>(view) < pairNumbers.size()) pairs.push_back(pairNumbers[view]);
  }
  return pairs;
}



bool AllChartChecksPassed(const ChartLimitChecks& c, bool strictTranslation) {
  const bool translationWithin = c.translationX && c.translationY && c.translationZ;
  return c.monoReprojection && c.rotationX && c.rotationY && c.rotationZ && c.stereoReprojection &&
         (translationWithin || !strictTranslation);
}

nlohmann::json ChartSummaryJson(const ChartSummary& summary, const dualCalibration& engine) {
  const ChartLimitChecks& c = summary.checks;
  const std::vector<int32_t> pairs = PairNumbersOfViews(summary);
  nlohmann::json json = {
      {"status", summary.status},
      {"views_found", summary.viewsFound},
      {"views_total", summary.viewCount},
      {"mono_rms", {summary.monoRms1, summary.monoRms2}},
      {"per_view_errors", {{"main", summary.viewErrors1}, {"second", summary.viewErrors2}}},
      {"rms", summary.stereoRms},
      {"T", {summary.T[0], summary.T[1], summary.T[2]}},
      {"angles_deg",
       {summary.r_x * kDegreesPerRadian, summary.r_y * kDegreesPerRadian, summary.r_z * kDegreesPerRadian}},
      {"checks",
       {{"mono_reprojection", c.monoReprojection}, {"rotation_x", c.rotationX}, {"rotation_y", c.rotationY},
        {"rotation_z", c.rotationZ}, {"stereo_reprojection", c.stereoReprojection},
        {"translation_x", c.translationX}, {"translation_y", c.translationY}, {"translation_z", c.translationZ}}},
      {"pairing", PairingName(summary.pairing)},
      {"corner_search", SearchName(summary.search)},
      {"quick_rejected", summary.quickRejected},
      {"order_undecided", summary.orderUndecided},
      {"view_pairs", pairs},
      {"outlier_pairs", PairsOf(summary.outlierViews, pairs)},
      {"views_without_tables", summary.viewsWithoutTables},
  };
  if (summary.pairing == CornerPairing::kGrid) {
    nlohmann::json orders = nlohmann::json::array();
    for (const GridPairing& pairing : summary.gridPairings) {
      orders.push_back({{"order", pairing.order < 0 ? "none" : kGridOrders[pairing.order].name},
                        {"residual_px", pairing.residualPx}});
    }
    json["grid_pairing"] = orders;
  } else {
    json["repeated_corner_pairs"] = PairsOf(summary.repeatedCornerViews, pairs);
  }
  if (summary.search == CornerSearch::kAnyScale) {
    nlohmann::json qualities = nlohmann::json::array();
    for (const ViewCornerQuality& quality : summary.cornerQuality) {
      qualities.push_back({{"neighbour_residual_px", {{"main", quality.residuals1}, {"second", quality.residuals2}}},
                           {"left_out", quality.leftOut}});
    }
    json["corner_quality"] = qualities;
    json["corners_unlocated"] = summary.cornersUnlocated;
  }
  if (summary.status == kChartOk) {
    json["image_size"] = {engine.chartImageSizes[0], engine.chartImageSizes[1]};
    json["K1"] = MatrixJson(engine.K1), json["K2"] = MatrixJson(engine.K2);
    json["D1"] = MatrixJson(engine.D1), json["D2"] = MatrixJson(engine.D2);
    json["R"] = MatrixJson(engine.R);
    json["intrinsic_std_dev"] = {{"main", DeviationsJson(summary.mono1)}, {"second", DeviationsJson(summary.mono2)}};
  } else {
    json["failed_stage"] = summary.failedStage;
    json["message"] = summary.message;
  }
  return json;
}

ChartRun::ChartRun(dualCalibration& engine, ChartOptions options)
    : mEngine(engine), mOptions(std::move(options)) {
  for (const std::string& table : mOptions.tables) RequireReadableFile(table, kMaxTextFileBytes);
  const bool fromCorners = !mOptions.fromCorners.empty();
  if (fromCorners && !(mOptions.images.empty() && mOptions.pairsDir.empty() && mOptions.pairsFile.empty())) {
    throw StationError("chart: --from-corners takes the pairs from its file, not from IMAGES, --pairs-dir or --pairs");
  }
  if (fromCorners && !mOptions.saveRectified.empty()) {
    throw StationError("--save-rectified: draws the images, which --from-corners does not read");
  }
  if (fromCorners && !mOptions.tables.empty()) {
    throw StationError("--tables: the corners file holds its corners after the tables already");
  }
  CornersFile corners;
  if (fromCorners) {
    corners = ReadCornersFile(mOptions.fromCorners);
    mImages = corners.images;
  } else {
    mImages = ChartImagePaths(mOptions.images, mOptions.pairsDir, mOptions.pairsFile);
  }
  const bool fromFiles = !fromCorners && mOptions.pixels.empty();
  RunFiles files{fromFiles ? mImages : std::vector<std::string>(), {mOptions.pairsDir},
                 {mOptions.json, mOptions.saveRectified, mOptions.androidMetadata, mOptions.saveCorners},
                 {mOptions.reportDir, mOptions.openCvDir, mOptions.rosDir}};
  files.inputs.insert(files.inputs.end(), {mOptions.params, mOptions.pairsFile, mOptions.fromCorners});
  files.inputs.insert(files.inputs.end(), mOptions.tables.begin(), mOptions.tables.end());
  CheckRunFiles(files);
  RequireImagePairs(mImages, "chart");
  RequirePixelsNamed(mOptions.pixels, mImages, "chart");
  if (fromFiles) {
    for (const std::string& image : mImages) RequireReadableFile(image, kMaxImageFileBytes);
  }
  LoadParameterFile(mEngine, mOptions.params);
  if (fromCorners) {
    const CornersBoard board{mEngine.m_nBoardWidth, mEngine.m_nBoardHeight, mEngine.m_nSquareSize};
    if (!(corners.board == board)) {
      throw StationError(mOptions.fromCorners + ": a board of " + BoardText(corners.board) + ", the parameters give " +
                         BoardText(board));
    }
    mStoredViews = std::make_unique<ChartViews>(std::move(corners.views));
  }
}

const ChartSummary& ChartRun::Calibrate(const ChartPairProgress& onPair) {
  const bool withTables = mOptions.tables.size() == 2;
  ChartRunOptions run;
  run.mainTablePath = withTables ? mOptions.tables[0].c_str() : nullptr;
  run.secondTablePath = withTables ? mOptions.tables[1].c_str() : nullptr;
  run.pairing = mOptions.pairing;
  run.quickCheck = mOptions.quickCheck;
  run.search = mOptions.search;
  run.onPair = onPair;
  // The stereo stage appends its limits to the log.
  AppendedLibraryFile("calib_log.txt");
  // Pairs are read as their searches come; the first bad one stops the run.
  PairIntake intake(mImages, mOptions.pixels);
  std::unique_ptr<StationError> badPair;
  mOutcome = ChartOutcome();
  if (mStoredViews) {
    for (size_t k = 0; k < mImages.size() / 2 && onPair; ++k) onPair(k, PairResultOf(mStoredViews->intake, k));
    mOutcome.summary = mEngine.runChartCalibration(*mStoredViews);
    MeasureDelivered();
    return mOutcome.summary;
  }
  mOutcome.summary = mEngine.runChartCalibration(mImages.size() / 2, [&](size_t k) {
    try {
      return intake.Read(k);
    } catch (const StationError& error) {
      badPair = std::make_unique<StationError>(error);
      return std::pair<cv::Mat, cv::Mat>();
    }
  }, run);
  if (badPair) throw *badPair;
  const ChartSummary& summary = mOutcome.summary;
  if (summary.status == kChartBadImages || summary.status == kChartBadTables) {
    throw StationError(summary.failedStage + ": " + summary.message);
  }
  mSearchedViews = mEngine.chartViews(summary);
  MeasureDelivered();
  return summary;
}

void ChartRun::MeasureDelivered() {
  mRowErrors = StereoVerification();
  mLensModels = {};
  if (mOutcome.Final().status != kChartOk) return;
  const StereoCalibration calibration = DeliveredCalibration(mEngine);
  mRowErrors = VerifyStereo(calibration, mEngine.mImagePoints1, mEngine.mImagePoints2);
  mLensModels = {CheckLensModel(calibration.K1, calibration.D1, calibration.imageSize),
                 CheckLensModel(calibration.K2, calibration.D2, {mEngine.chartImageSizes[2], mEngine.chartImageSizes[3]})};
  mUncertainty = StereoUncertainty();
  // Its folds are solves of their own: spent only on the run that is delivered.
  if (mOptions.uncertaintyFolds < 2 || mEngine.mObjectPoints.size() < 5 || RecalibrationDue()) return;
  const ChartSummary& final = mOutcome.Final();
  mUncertainty = EstimateStereoUncertainty({mEngine.mObjectPoints, mEngine.mImagePoints1, mEngine.mImagePoints2,
                                            calibration.imageSize, final.mono1.K, final.mono2.K,
                                            mEngine.stereoCalibrationFlags()},
                                           mOptions.uncertaintyFolds);
}

std::string ChartRun::Recapture() const {
  if (!RowErrors()) return "";
  const ChartSummary& final = mOutcome.Final();
  RecaptureInput input{{{mEngine.chartImageSizes[0], mEngine.chartImageSizes[1]},
                        {mEngine.chartImageSizes[2], mEngine.chartImageSizes[3]}},
                       {mEngine.mImagePoints1, mEngine.mImagePoints2},
                       PairsOf(final.outlierViews, PairNumbersOfViews(final)),
                       0.0};
  if (const StereoUncertainty* uncertainty = Uncertainty()) {
    input.baselineStdDevFraction = cv::norm(uncertainty->stdDev.T) / std::max(cv::norm(final.T), 1e-12);
  }
  return RecaptureAdvice(input);
}

double ChartRun::MillimetresPerUnit() const {
  return mOptions.squareMm > 0.0 ? mOptions.squareMm / std::max(mEngine.m_nSquareSize, 1) : 1.0;
}

bool ChartRun::RecalibrationDue() const {
  const ChartSummary& summary = mOutcome.summary;
  return mOptions.dropOutliers && !mOutcome.recalibrated && summary.status == kChartOk &&
         !summary.outlierCorners.empty();
}

const ChartSummary* ChartRun::RecalibrateWithoutOutliers() {
  const ChartSummary& summary = mOutcome.summary;
  if (!RecalibrationDue()) return nullptr;
  mOutcome.recalibrated = true;
  mOutcome.withoutOutliers = mEngine.recalibrateChartWithout(summary, summary.outlierCorners);
  MeasureDelivered();
  return &mOutcome.withoutOutliers;
}

bool ChartRun::ChecksPassed() const {
  const ChartSummary& final = mOutcome.Final();
  return final.status == kChartOk && AllChartChecksPassed(final.checks, mOptions.strictTranslation) &&
         mLensModels[0].valid && mLensModels[1].valid;
}

nlohmann::json ChartRun::Json() const {
  nlohmann::json json = ChartSummaryJson(mOutcome.summary, mEngine);
  if (mOutcome.recalibrated) {
    json["without_outliers"] = ChartSummaryJson(mOutcome.withoutOutliers, mEngine);
    json["without_outliers"]["dropped"] =
        DroppedJson(mOutcome.withoutOutliers.dropped, PairNumbersOfViews(mOutcome.summary));
  }
  json["strict_translation"] = mOptions.strictTranslation;
  json["checks_passed"] = ChecksPassed();
  if (const StereoVerification* rows = RowErrors()) {
    json["row_error"] = ErrorFiguresJson(rows->rowError);
    json["epipolar_error"] = ErrorFiguresJson(rows->epipolarError);
    json["health"] = HealthName(HealthOf(rows->rowError.p95, mOptions.health));
    json["recapture"] = Recapture();
    const char* cameras[2] = {"main", "second"};
    if (const StereoUncertainty* uncertainty = Uncertainty()) {
      json["stereo_std_dev"] = StereoParametersJson(uncertainty->stdDev, MillimetresPerUnit());
      json["stereo_std_dev"]["folds"] = uncertainty->groups;
      json["cross_validation_largest_shift"] = StereoParametersJson(uncertainty->largestShift, MillimetresPerUnit());
    }
    for (int i = 0; i < 2; ++i) {
      const LensModelCheck& lens = mLensModels[i];
      json["lens_model"][cameras[i]] = {{"valid", lens.valid}, {"problem", lens.problem},
                                        {"fold_radius_px", lens.foldRadiusPx}, {"reach_px", lens.reachPx},
                                        {"undistort_residual_px", lens.worstUndistortResidualPx}};
    }
  }
  return json;
}

void ChartRun::WriteOutputs() const {
  const ChartSummary& final = mOutcome.Final();
  if (final.status == kChartOk) LibraryFile("calibrationResult.txt", final.resultFileText);
  if (!mOptions.json.empty()) WriteJsonAtomically(mOptions.json, Json());
  if (!mOptions.saveCorners.empty()) {
    const CornersBoard board{mEngine.m_nBoardWidth, mEngine.m_nBoardHeight, mEngine.m_nSquareSize};
    WriteJsonAtomically(mOptions.saveCorners, CornersJson(mStoredViews ? *mStoredViews : mSearchedViews, mImages, board));
  }
  if (final.status != kChartOk) return;
  if (!mOptions.saveRectified.empty()) {
    WriteImageAtomically(mOptions.saveRectified,
                         RectifiedSideBySide(mEngine, {mEngine.mChartImages[0], mEngine.mChartImages[1]}));
  }
  if (!mOptions.reportDir.empty()) {
    ReportInput report = ChartReportInput(mEngine, final, mOutcome.summary, mImages);
    for (size_t v = 0; v < report.viewPairs.size() && !mOptions.pixels.empty(); ++v) {
      const size_t k = static_cast<size_t>(report.viewPairs[v] - 1);
      report.viewPixels.push_back({mOptions.pixels.at(2 * k), mOptions.pixels.at(2 * k + 1)});
    }
    if (const StereoVerification* rows = RowErrors()) report.rowErrors = rows->rowErrors;
    report.recapture = Recapture();
    WriteChartReport(mOptions.reportDir, report);
  }
  if (!mOptions.androidMetadata.empty()) {
    WriteJsonAtomically(mOptions.androidMetadata,
                        AndroidMetadataJson(mEngine, mOptions.squareMm, mOptions.sensorOrientationDeg));
  }
  const StereoCalibration calibration = DeliveredCalibration(mEngine);
  if (!mOptions.openCvDir.empty()) {
    const OpenCvCalibrationText text = OpenCvCalibrationYaml(calibration);
    CreateOutputFolder(mOptions.openCvDir);
    WriteStringAtomically(mOptions.openCvDir + "/intrinsics.yml", text.intrinsics);
    WriteStringAtomically(mOptions.openCvDir + "/extrinsics.yml", text.extrinsics);
  }
  if (!mOptions.rosDir.empty()) {
    CreateOutputFolder(mOptions.rosDir);
    WriteStringAtomically(mOptions.rosDir + "/main.yaml", RosCameraInfoYaml(calibration, 0, "main"));
    WriteStringAtomically(mOptions.rosDir + "/second.yaml", RosCameraInfoYaml(calibration, 1, "second"));
  }
}

StereoCalibration DeliveredCalibration(const dualCalibration& engine) {
  StereoCalibration calibration;
  calibration.imageSize = {engine.chartImageSizes[0], engine.chartImageSizes[1]};
  engine.K1.convertTo(calibration.K1, CV_64F);
  engine.K2.convertTo(calibration.K2, CV_64F);
  engine.D1.convertTo(calibration.D1, CV_64F);
  engine.D2.convertTo(calibration.D2, CV_64F);
  engine.R.convertTo(calibration.R, CV_64F);
  calibration.T = engine.mT;
  return calibration;
}

StereoCalibration ChartJsonCalibration(const std::string& path) {
  const std::vector<unsigned char> bytes = ReadBinaryFile(path, kMaxTextFileBytes);
  const nlohmann::json file = nlohmann::json::parse(bytes.begin(), bytes.end(), nullptr, false);
  if (file.is_discarded() || !file.is_object()) throw StationError(path + ": not a JSON object");
  const nlohmann::json& run = file.contains("without_outliers") ? file["without_outliers"] : file;
  if (run.value("status", 0) != kChartOk) throw StationError(path + ": the run it holds did not calibrate");
  const auto matrix = [&](const char* key, int rows, const std::vector<int>& columns) {
    const nlohmann::json* values = run.contains(key) ? &run[key] : file.contains(key) ? &file[key] : nullptr;
    const cv::Mat result = values != nullptr ? JsonMatrix(*values, rows, columns) : cv::Mat();
    if (result.empty()) throw StationError(path + ": no finite " + std::to_string(rows) + "-row matrix " + key);
    return result;
  };
  StereoCalibration calibration;
  calibration.K1 = matrix("K1", 3, {3});
  calibration.K2 = matrix("K2", 3, {3});
  calibration.D1 = matrix("D1", 1, {4, 5, 8, 12, 14});
  calibration.D2 = matrix("D2", 1, {4, 5, 8, 12, 14});
  calibration.R = matrix("R", 3, {3});
  const cv::Mat T = matrix("T", 1, {3});
  calibration.T = {T.at<double>(0), T.at<double>(1), T.at<double>(2)};
  const cv::Mat size = matrix("image_size", 1, {2});
  calibration.imageSize = {static_cast<int>(size.at<double>(0)), static_cast<int>(size.at<double>(1))};
  return calibration;
}
