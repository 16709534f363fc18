// The chart calibration driver: intake of the chart image pairs, the view
// collection, the optional corner undistortion, the mono and the stereo
// stage, and the summary for the caller.
#include "chart/ChartDriver.h"

#include <algorithm>
#include <cstdio>
#include <cstddef>
#include <exception>
#include <numeric>
#include <utility>
#include <string>

#include <opencv2/calib3d.hpp>

#include "chart/CornerQuality.h"
#include "chart/ViewOutliers.h"
#include "engine/dualCalibration.h"

namespace {

bool IsGrey(const cv::Mat& image) { return !image.empty() && image.type() == CV_8UC1; }

// Empty when pair k is two 8-bit grey images of pair 0's sizes; otherwise why not.
std::string CheckPair(size_t k, const std::pair<cv::Mat, cv::Mat>& pair, const std::pair<cv::Mat, cv::Mat>& first) {
  if (!IsGrey(pair.first) || !IsGrey(pair.second)) {
    return "chart pair " + std::to_string(k) + " is not two 8-bit grey images";
  }
  if (pair.first.size() != first.first.size() || pair.second.size() != first.second.size()) {
    return "chart pair " + std::to_string(k) + " differs in size from pair 0";
  }
  return {};
}

// Empty when every image is 8-bit grey and all main and all second images
// share their sizes; otherwise why not.
std::string CheckPairs(const std::vector<std::pair<cv::Mat, cv::Mat>>& pairs) {
  if (pairs.empty()) return "no chart image pair";
  for (size_t k = 0; k < pairs.size(); ++k) {
    const std::string problem = CheckPair(k, pairs[k], pairs[0]);
    if (!problem.empty()) return problem;
  }
  return {};
}

ChartSummary& Fail(ChartSummary& summary, ChartStatus status, const char* stage, std::string message) {
  while (!message.empty() && message.back() == '\n') message.pop_back();
  summary.status = status;
  summary.failedStage = stage;
  summary.message = message;
  std::printf("ERROR: %s failed: %s\n", stage, summary.message.c_str());
  return summary;
}

// Runs one stage; an OpenCV, memory or other error becomes a failed summary.
template <typename Stage>
bool RunStage(ChartSummary& summary, const char* name, Stage stage) {
  try {
    stage();
    return true;
  } catch (const cv::Exception& error) {
    Fail(summary, kChartStageFailed, name, error.what());
  } catch (const std::exception& error) {
    Fail(summary, kChartStageFailed, name, error.what());
  } catch (...) {
    Fail(summary, kChartStageFailed, name, "unknown error");
  }
  return false;
}

// True when points holds one point twice: the nearest pairing took a corner
// of the second list for two corners of the main list.
bool HasRepeatedPoint(std::vector<cv::Point2f> points) {
  std::sort(points.begin(), points.end(),
            [](const cv::Point2f& a, const cv::Point2f& b) { return a.x < b.x || (a.x == b.x && a.y < b.y); });
  return std::adjacent_find(points.begin(), points.end()) != points.end();
}

// Removes the corners at the given positions (ascending, within the view's
// lists) from view v's board and image lists.
void EraseCorners(dualCalibration& engine, size_t v, const std::vector<int32_t>& positions) {
  for (auto k = positions.rbegin(); k != positions.rend(); ++k) {
    engine.mObjectPoints[v].erase(engine.mObjectPoints[v].begin() + *k);
    engine.mImagePoints1[v].erase(engine.mImagePoints1[v].begin() + *k);
    engine.mImagePoints2[v].erase(engine.mImagePoints2[v].begin() + *k);
  }
}

void DropLastView(dualCalibration& engine) {
  engine.mObjectPoints.pop_back();
  engine.mImagePoints1.pop_back();
  engine.mImagePoints2.pop_back();
}

// Judges the corners of the view just found: its unlocated corners leave the
// view, or the view goes when more than half are unlocated or distortion
// tables will correct the views (they need whole views). False when it went.
bool JudgeCorners(dualCalibration& engine, bool withTables, ChartSummary& summary) {
  const cv::Size patternSize(engine.m_nBoardWidth, engine.m_nBoardHeight);
  const std::vector<cv::Point2f>& corners1 = engine.mImagePoints1.back();
  const std::vector<cv::Point2f>& corners2 = engine.mImagePoints2.back();
  ViewCornerQuality quality{CornerNeighbourResiduals(corners1, patternSize),
                            CornerNeighbourResiduals(corners2, patternSize), UnlocatedCorners(corners1, patternSize)};
  for (const int32_t k : UnlocatedCorners(corners2, patternSize)) quality.leftOut.push_back(k);
  std::sort(quality.leftOut.begin(), quality.leftOut.end());
  quality.leftOut.erase(std::unique(quality.leftOut.begin(), quality.leftOut.end()), quality.leftOut.end());
  if (!quality.leftOut.empty() && (withTables || 2 * quality.leftOut.size() > corners1.size())) {
    DropLastView(engine);
    return false;
  }
  EraseCorners(engine, engine.mObjectPoints.size() - 1, quality.leftOut);
  summary.cornerQuality.push_back(std::move(quality));
  return true;
}

// One pair's search and what it added to the summary.
ChartPairResult CollectView(dualCalibration& engine, const std::pair<cv::Mat, cv::Mat>& pair, bool quickCheck,
                            bool withTables, ChartSummary& summary) {
  const cv::Size patternSize(engine.m_nBoardWidth, engine.m_nBoardHeight);
  // The any-scale search looks at the second image only when the main image shows the board.
  const bool quickChecked = quickCheck && engine.mCornerSearch == CornerSearch::kEngine;
  if (quickChecked && !engine.passesQuickBoardCheck(pair.first, patternSize)) {
    return ChartPairResult::kNoBoardQuickCheck;
  }
  const int viewIndex = static_cast<int>(engine.mImagePoints1.size());
  if (engine.findImagePoints(pair.first, pair.second, viewIndex) != 1) {
    return engine.mLastGridPairing.undecided ? ChartPairResult::kOrderUndecided : ChartPairResult::kNoBoard;
  }
  if (engine.mCornerSearch == CornerSearch::kAnyScale && !JudgeCorners(engine, withTables, summary)) {
    return ChartPairResult::kCornersUnlocated;
  }
  if (engine.mCornerPairing == CornerPairing::kGrid) {
    summary.gridPairings.push_back(engine.mLastGridPairing);
  } else if (HasRepeatedPoint(engine.mImagePoints2.back())) {
    summary.repeatedCornerViews.push_back(viewIndex);
  }
  return ChartPairResult::kView;
}

// The intake: chart sizes and images from pair 0, fresh view lists, then
// one search per pair, each pair taken from the source only for its search.
// Empty, or why a pair cannot be searched.
std::string CollectViews(dualCalibration& engine, size_t pairCount, const ChartPairSource& source,
                         const ChartRunOptions& options, ChartSummary& summary) {
  if (pairCount == 0) return "no chart image pair";
  const std::pair<cv::Mat, cv::Mat> first = source(0);
  std::string problem = CheckPair(0, first, first);
  if (!problem.empty()) return problem;
  const cv::Mat& mainImage = first.first;
  const cv::Mat& secondImage = first.second;
  engine.chartImageSizes[0] = mainImage.cols;
  engine.chartImageSizes[1] = mainImage.rows;
  engine.chartImageSizes[2] = secondImage.cols;
  engine.chartImageSizes[3] = secondImage.rows;
  engine.mChartImages = {mainImage.clone(), secondImage.clone()};
  engine.mObjectPoints.clear();
  engine.mImagePoints1.clear();
  engine.mImagePoints2.clear();
  engine.mCornerPairing = options.pairing;
  engine.mCornerSearch = options.search;
  summary.pairing = options.pairing;
  summary.search = options.search;
  for (size_t k = 0; k < pairCount; ++k) {
    const std::pair<cv::Mat, cv::Mat> pair = k == 0 ? first : source(k);
    problem = CheckPair(k, pair, first);
    if (!problem.empty()) return problem;
    const ChartPairResult result =
        CollectView(engine, pair, options.quickCheck, options.mainTablePath != nullptr, summary);
    summary.viewsFound.push_back(result == ChartPairResult::kView);
    summary.quickRejected.push_back(result == ChartPairResult::kNoBoardQuickCheck);
    summary.orderUndecided.push_back(result == ChartPairResult::kOrderUndecided);
    summary.cornersUnlocated.push_back(result == ChartPairResult::kCornersUnlocated);
    summary.viewCount += result == ChartPairResult::kView;
    if (options.onPair) options.onPair(k, result);
  }
  return {};
}

bool UndistortViews(dualCalibration& engine, ChartSummary& summary, const char* mainTablePath,
                    const char* secondTablePath) {
  int loaded = 0;
  if (!RunStage(summary, "LoadDistortionTables",
                [&] { loaded = engine.LoadDistortionTables(mainTablePath, secondTablePath); })) {
    return false;
  }
  if (loaded != 1) {
    Fail(summary, kChartBadTables, "LoadDistortionTables", "tables not loaded, code " + std::to_string(loaded));
    return false;
  }
  int undistorted = 0;
  if (!RunStage(summary, "undistortChartCorners", [&] {
        undistorted = engine.undistortChartCorners(engine.mChartImages[0], engine.mChartImages[1]);
      })) {
    return false;
  }
  if (undistorted != 1) {
    Fail(summary, kChartUndistortFailed, "undistortChartCorners", "a second-camera corner left the distortion band");
    return false;
  }
  return true;
}

// Each view's pose under the given intrinsics, then the per-view errors and
// each corner's.
struct MonoErrors {
  std::vector<float> views;
  std::vector<std::vector<float>> corners;
};

MonoErrors ErrorsOf(const dualCalibration& engine, const std::vector<std::vector<cv::Point2f>>& imagePoints,
                    const cv::Mat& cameraMatrix, const cv::Mat& distCoeffs) {
  std::vector<cv::Mat> rvecs(imagePoints.size()), tvecs(imagePoints.size());
  MonoErrors errors;
  std::vector<cv::Point2f> projected;
  for (size_t k = 0; k < imagePoints.size(); ++k) {
    cv::solvePnP(engine.mObjectPoints[k], imagePoints[k], cameraMatrix, distCoeffs, rvecs[k], tvecs[k]);
    cv::projectPoints(engine.mObjectPoints[k], rvecs[k], tvecs[k], cameraMatrix, distCoeffs, projected);
    std::vector<float> corners;
    for (size_t i = 0; i < projected.size(); ++i) {
      corners.push_back(static_cast<float>(cv::norm(projected[i] - imagePoints[k][i])));
    }
    errors.corners.push_back(std::move(corners));
  }
  engine.computeReprojectionErrors(engine.mObjectPoints, imagePoints, rvecs, tvecs, cameraMatrix, distCoeffs,
                                   &errors.views);
  return errors;
}

// Positions (ascending) of one view's outlier corners in one camera: the
// worst corner over the limit leaves and the pose is fitted again without
// it, until none is over or more than half have left.
std::vector<int32_t> PeelOutlierCorners(const std::vector<cv::Point3f>& board,
                                        const std::vector<cv::Point2f>& image, const cv::Mat& cameraMatrix,
                                        const cv::Mat& distCoeffs, double limit) {
  std::vector<int32_t> kept(board.size()), peeled;
  std::iota(kept.begin(), kept.end(), 0);
  while (2 * peeled.size() <= board.size() && kept.size() >= 4) {
    std::vector<cv::Point3f> keptBoard;
    std::vector<cv::Point2f> keptImage, projected;
    for (const int32_t k : kept) keptBoard.push_back(board[k]), keptImage.push_back(image[k]);
    cv::Mat rvec, tvec;
    cv::solvePnP(keptBoard, keptImage, cameraMatrix, distCoeffs, rvec, tvec);
    cv::projectPoints(keptBoard, rvec, tvec, cameraMatrix, distCoeffs, projected);
    size_t worst = 0;
    for (size_t i = 1; i < kept.size(); ++i) {
      if (cv::norm(projected[i] - keptImage[i]) > cv::norm(projected[worst] - keptImage[worst])) worst = i;
    }
    if (cv::norm(projected[worst] - keptImage[worst]) <= limit) break;
    peeled.push_back(kept[worst]);
    kept.erase(kept.begin() + static_cast<std::ptrdiff_t>(worst));
  }
  std::sort(peeled.begin(), peeled.end());
  return peeled;
}

// The outliers by corner of both cameras after the mono stage.
CornerOutliers FindOutlierCorners(const dualCalibration& engine, const ChartSummary& summary) {
  const double limit1 = CornerOutlierLimit(summary.cornerErrors1), limit2 = CornerOutlierLimit(summary.cornerErrors2);
  std::vector<std::vector<int32_t>> corners;
  std::vector<size_t> counts;
  for (size_t v = 0; v < engine.mObjectPoints.size(); ++v) {
    std::vector<int32_t> view =
        PeelOutlierCorners(engine.mObjectPoints[v], engine.mImagePoints1[v], engine.K1, engine.D1, limit1);
    const std::vector<int32_t> second =
        PeelOutlierCorners(engine.mObjectPoints[v], engine.mImagePoints2[v], engine.K2, engine.D2, limit2);
    view.insert(view.end(), second.begin(), second.end());
    std::sort(view.begin(), view.end());
    view.erase(std::unique(view.begin(), view.end()), view.end());
    corners.push_back(std::move(view));
    counts.push_back(engine.mObjectPoints[v].size());
  }
  return WholeViewsOf(std::move(corners), counts, kChartMinViews);
}

// The mono stage's intrinsics with their deviations reordered from OpenCV's
// (fx, fy, cx, cy, k1, k2, p1, p2, k3, ...) to fx, fy, cx, cy, k1, k2, k3, p1, p2.
MonoIntrinsics MonoIntrinsicsOf(const cv::Mat& K, const cv::Mat& D, const cv::Mat& stdDev) {
  constexpr int kOpenCvIndex[9] = {0, 1, 2, 3, 4, 5, 8, 6, 7};
  MonoIntrinsics mono{K.clone(), D.clone(), {}};
  for (int i = 0; i < 9; ++i) mono.stdDev[i] = stdDev.at<double>(kOpenCvIndex[i]);
  return mono;
}

ChartResultSet DeepCopy(const ChartResultSet& set) {
  ChartResultSet copy = set;
  copy.K1 = set.K1.clone(), copy.K2 = set.K2.clone(), copy.D1 = set.D1.clone(), copy.D2 = set.D2.clone();
  copy.P1 = set.P1.clone(), copy.P2 = set.P2.clone();
  return copy;
}

// The mono and the stereo stage on the view lists, with the summary's figures.
ChartSummary& CalibrateViews(dualCalibration& engine, ChartSummary& summary) {
  if (summary.viewCount < kChartMinViews) {
    return Fail(summary, kChartTooFewViews, "findImagePoints",
                std::to_string(summary.viewCount) + " views found, " + std::to_string(kChartMinViews) + " needed");
  }
  if (!RunStage(summary, "monoCalibration", [&] { engine.monoCalibration(); })) return summary;
  summary.monoRms1 = engine.mMonoRMS1;
  summary.monoRms2 = engine.mMonoRMS2;
  if (!RunStage(summary, "mono view errors", [&] {
        MonoErrors errors1 = ErrorsOf(engine, engine.mImagePoints1, engine.K1, engine.D1);
        MonoErrors errors2 = ErrorsOf(engine, engine.mImagePoints2, engine.K2, engine.D2);
        summary.viewErrors1 = std::move(errors1.views), summary.viewErrors2 = std::move(errors2.views);
        summary.cornerErrors1 = std::move(errors1.corners), summary.cornerErrors2 = std::move(errors2.corners);
        summary.mono1 = MonoIntrinsicsOf(engine.K1, engine.D1, engine.mMonoStdDev1);
        summary.mono2 = MonoIntrinsicsOf(engine.K2, engine.D2, engine.mMonoStdDev2);
      })) {
    return summary;
  }
  summary.outlierViews = OutlierViewsOfEitherCamera(summary.viewErrors1, summary.viewErrors2);
  if (!RunStage(summary, "outlier corners", [&] { summary.outlierCorners = FindOutlierCorners(engine, summary); })) {
    return summary;
  }
  if (!RunStage(summary, "stereoCalibration", [&] { engine.stereoCalibration(); })) return summary;
  summary.resultFileText = engine.calibrationResultText();
  // The platform result file and the preview read the second set and mSecondRotation.
  engine.mSecondResult = DeepCopy(engine.firstResultSet());
  engine.mSecondRotation = engine.R.clone();
  summary.stereoRms = engine.mRMS;
  summary.T = engine.mT;
  summary.r_x = engine.r_x, summary.r_y = engine.r_y, summary.r_z = engine.r_z;
  summary.checks = engine.evaluateChartLimits();
  summary.status = kChartOk;
  return summary;
}

ChartSummary RunChart(dualCalibration& engine, size_t pairCount, const ChartPairSource& source,
                      const ChartRunOptions& options) {
  ChartSummary summary;
  const bool withTables = options.mainTablePath != nullptr;
  if (withTables != (options.secondTablePath != nullptr)) {
    return Fail(summary, kChartBadTables, "chart intake", "both distortion tables or none are needed");
  }
  std::string problem;
  if (!RunStage(summary, "findImagePoints", [&] { problem = CollectViews(engine, pairCount, source, options, summary); })) {
    return summary;
  }
  if (!problem.empty()) return Fail(summary, kChartBadImages, "chart intake", problem);
  if (withTables && summary.viewCount >= kChartMinViews) {
    if (!UndistortViews(engine, summary, options.mainTablePath, options.secondTablePath)) return summary;
    summary.viewsWithoutTables = summary.viewCount - kChartMinViews;
  }
  return CalibrateViews(engine, summary);
}

// Removes the given views (ascending, distinct, in range) from the view
// lists and from the summary's per-view facts.
void RemoveViews(dualCalibration& engine, const std::vector<int32_t>& views, ChartSummary& summary) {
  std::vector<int32_t> pairOfView;
  for (size_t k = 0; k < summary.viewsFound.size(); ++k) {
    if (summary.viewsFound[k] == 1) pairOfView.push_back(static_cast<int32_t>(k));
  }
  std::vector<int32_t> repeated;
  for (const int32_t view : summary.repeatedCornerViews) {
    if (std::binary_search(views.begin(), views.end(), view)) continue;
    repeated.push_back(view - static_cast<int32_t>(std::lower_bound(views.begin(), views.end(), view) - views.begin()));
  }
  summary.repeatedCornerViews = repeated;
  int32_t uncorrectedRemoved = 0;
  for (auto view = views.rbegin(); view != views.rend(); ++view) {
    engine.mObjectPoints.erase(engine.mObjectPoints.begin() + *view);
    engine.mImagePoints1.erase(engine.mImagePoints1.begin() + *view);
    engine.mImagePoints2.erase(engine.mImagePoints2.begin() + *view);
    if (*view < static_cast<int32_t>(summary.gridPairings.size())) {
      summary.gridPairings.erase(summary.gridPairings.begin() + *view);
    }
    if (*view < static_cast<int32_t>(summary.cornerQuality.size())) {
      summary.cornerQuality.erase(summary.cornerQuality.begin() + *view);
    }
    summary.viewsFound[pairOfView[*view]] = 0;
    uncorrectedRemoved += *view >= kChartMinViews;
  }
  summary.viewCount -= static_cast<int32_t>(views.size());
  if (summary.viewsWithoutTables > 0) summary.viewsWithoutTables -= uncorrectedRemoved;
}

// Grid index of a board point: its row and column from the square size.
int32_t GridIndexOf(const cv::Point3f& point, float squareSize, int32_t boardWidth) {
  return cvRound(point.y / squareSize) * boardWidth + cvRound(point.x / squareSize);
}

// Removes the given corners (positions within each view's lists,
// ascending) from the views not in removedViews; returns the grid indices
// of what it removed, per view.
std::vector<std::vector<int32_t>> RemoveCorners(dualCalibration& engine,
                                                const std::vector<std::vector<int32_t>>& corners,
                                                const std::vector<int32_t>& removedViews) {
  std::vector<std::vector<int32_t>> gridIndices(corners.size());
  const float squareSize = static_cast<float>(std::max(engine.m_nSquareSize, 1));
  for (size_t v = 0; v < corners.size() && v < engine.mObjectPoints.size(); ++v) {
    if (std::binary_search(removedViews.begin(), removedViews.end(), static_cast<int32_t>(v))) continue;
    std::vector<int32_t> positions;
    for (const int32_t k : corners[v]) {
      if (k < 0 || static_cast<size_t>(k) >= engine.mObjectPoints[v].size()) continue;
      positions.push_back(k);
      gridIndices[v].push_back(GridIndexOf(engine.mObjectPoints[v][k], squareSize, engine.m_nBoardWidth));
    }
    EraseCorners(engine, v, positions);
  }
  return gridIndices;
}

}  // namespace

ChartSummary IntakeOf(const ChartSummary& first) {
  ChartSummary summary;
  summary.viewsFound = first.viewsFound;
  summary.quickRejected = first.quickRejected;
  summary.orderUndecided = first.orderUndecided;
  summary.cornersUnlocated = first.cornersUnlocated;
  summary.cornerQuality = first.cornerQuality;
  summary.viewCount = first.viewCount;
  summary.pairing = first.pairing;
  summary.search = first.search;
  summary.gridPairings = first.gridPairings;
  summary.repeatedCornerViews = first.repeatedCornerViews;
  summary.viewsWithoutTables = first.viewsWithoutTables;
  return summary;
}

ChartPairResult PairResultOf(const ChartSummary& summary, size_t k) {
  const auto flagged = [&](const std::vector<int32_t>& flags) { return k < flags.size() && flags[k] == 1; };
  if (flagged(summary.viewsFound)) return ChartPairResult::kView;
  if (flagged(summary.quickRejected)) return ChartPairResult::kNoBoardQuickCheck;
  if (flagged(summary.orderUndecided)) return ChartPairResult::kOrderUndecided;
  if (flagged(summary.cornersUnlocated)) return ChartPairResult::kCornersUnlocated;
  return ChartPairResult::kNoBoard;
}

ChartSummary dualCalibration::runChartCalibration(const std::vector<std::pair<cv::Mat, cv::Mat>>& pairs,
                                                  const ChartRunOptions& options) {
  ChartSummary summary;
  const std::string problem = CheckPairs(pairs);
  if (!problem.empty()) return Fail(summary, kChartBadImages, "chart intake", problem);
  return runChartCalibration(pairs.size(), [&](size_t k) { return pairs[k]; }, options);
}

ChartSummary dualCalibration::runChartCalibration(size_t pairCount, const ChartPairSource& source,
                                                  const ChartRunOptions& options) {
  try {
    return RunChart(*this, pairCount, source, options);
  } catch (...) {
    // Only the summary's own bookkeeping can get here (out of memory); the
    // stages' errors are caught where they run.
    return ChartSummary();
  }
}

ChartViews dualCalibration::chartViews(const ChartSummary& first) const {
  return {{chartImageSizes[0], chartImageSizes[1]}, {chartImageSizes[2], chartImageSizes[3]}, mObjectPoints,
          mImagePoints1, mImagePoints2, IntakeOf(first)};
}

ChartSummary dualCalibration::runChartCalibration(const ChartViews& views) {
  try {
    ChartSummary summary = IntakeOf(views.intake);
    chartImageSizes[0] = views.mainSize.width, chartImageSizes[1] = views.mainSize.height;
    chartImageSizes[2] = views.secondSize.width, chartImageSizes[3] = views.secondSize.height;
    mChartImages = {cv::Mat::zeros(views.mainSize, CV_8UC1), cv::Mat::zeros(views.secondSize, CV_8UC1)};
    mObjectPoints = views.objectPoints;
    mImagePoints1 = views.imagePoints1;
    mImagePoints2 = views.imagePoints2;
    mCornerPairing = summary.pairing;
    mCornerSearch = summary.search;
    return CalibrateViews(*this, summary);
  } catch (...) {
    return ChartSummary();
  }
}

ChartSummary dualCalibration::recalibrateChartWithoutViews(const ChartSummary& first,
                                                           const std::vector<int32_t>& views) {
  CornerOutliers outliers;
  outliers.views = views;
  return recalibrateChartWithout(first, outliers);
}

ChartSummary dualCalibration::recalibrateChartWithout(const ChartSummary& first, const CornerOutliers& outliers) {
  try {
    std::vector<int32_t> removed;
    for (const int32_t view : outliers.views) {
      if (view >= 0 && view < first.viewCount && view < static_cast<int32_t>(mImagePoints1.size())) {
        removed.push_back(view);
      }
    }
    std::sort(removed.begin(), removed.end());
    removed.erase(std::unique(removed.begin(), removed.end()), removed.end());
    ChartSummary summary = IntakeOf(first);
    summary.dropped.views = removed;
    summary.dropped.corners = RemoveCorners(*this, outliers.corners, removed);
    RemoveViews(*this, removed, summary);
    return CalibrateViews(*this, summary);
  } catch (...) {
    return ChartSummary();
  }
}

std::vector<int32_t> PairNumbersOfViews(const ChartSummary& summary) {
  std::vector<int32_t> pairs;
  for (size_t k = 0; k < summary.viewsFound.size(); ++k) {
    if (summary.viewsFound[k] == 1) pairs.push_back(static_cast<int32_t>(k + 1));
  }
  return pairs;
}
