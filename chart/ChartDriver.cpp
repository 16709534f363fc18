// The chart calibration driver: intake of the chart image pairs, the view
// collection, the optional corner undistortion, the mono and the stereo
// stage, and the summary for the caller.
#include "chart/ChartDriver.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <utility>
#include <string>

#include <opencv2/calib3d.hpp>

#include "chart/CornerQuality.h"
#include "chart/ViewOutliers.h"
#include "engine/dualCalibration.h"

namespace {

bool IsGrey(const cv::Mat& image) { return !image.empty() && image.type() == CV_8UC1; }

// Empty when every image is 8-bit grey and all main and all second images
// share their sizes; otherwise why not.
std::string CheckPairs(const std::vector<std::pair<cv::Mat, cv::Mat>>& pairs) {
  if (pairs.empty()) return "no chart image pair";
  for (size_t k = 0; k < pairs.size(); ++k) {
    if (!IsGrey(pairs[k].first) || !IsGrey(pairs[k].second)) {
      return "chart pair " + std::to_string(k) + " is not two 8-bit grey images";
    }
    if (pairs[k].first.size() != pairs[0].first.size() || pairs[k].second.size() != pairs[0].second.size()) {
      return "chart pair " + std::to_string(k) + " differs in size from pair 0";
    }
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

// Removes the corners at the given grid indices (ascending) from the last view.
void LeaveOutCorners(dualCalibration& engine, const std::vector<int32_t>& gridIndices) {
  for (auto k = gridIndices.rbegin(); k != gridIndices.rend(); ++k) {
    engine.mObjectPoints.back().erase(engine.mObjectPoints.back().begin() + *k);
    engine.mImagePoints1.back().erase(engine.mImagePoints1.back().begin() + *k);
    engine.mImagePoints2.back().erase(engine.mImagePoints2.back().begin() + *k);
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
  LeaveOutCorners(engine, quality.leftOut);
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
// one search per pair.
void CollectViews(dualCalibration& engine, const std::vector<std::pair<cv::Mat, cv::Mat>>& pairs,
                  const ChartRunOptions& options, ChartSummary& summary) {
  const cv::Mat& mainImage = pairs[0].first;
  const cv::Mat& secondImage = pairs[0].second;
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
  for (size_t k = 0; k < pairs.size(); ++k) {
    const ChartPairResult result =
        CollectView(engine, pairs[k], options.quickCheck, options.mainTablePath != nullptr, summary);
    summary.viewsFound.push_back(result == ChartPairResult::kView);
    summary.quickRejected.push_back(result == ChartPairResult::kNoBoardQuickCheck);
    summary.orderUndecided.push_back(result == ChartPairResult::kOrderUndecided);
    summary.cornersUnlocated.push_back(result == ChartPairResult::kCornersUnlocated);
    summary.viewCount += result == ChartPairResult::kView;
    if (options.onPair) options.onPair(k, result);
  }
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

// Each view's pose under the given intrinsics, then the per-view errors.
std::vector<float> ViewErrors(const dualCalibration& engine, const std::vector<std::vector<cv::Point2f>>& imagePoints,
                              const cv::Mat& cameraMatrix, const cv::Mat& distCoeffs) {
  std::vector<cv::Mat> rvecs(imagePoints.size()), tvecs(imagePoints.size());
  for (size_t k = 0; k < imagePoints.size(); ++k) {
    cv::solvePnP(engine.mObjectPoints[k], imagePoints[k], cameraMatrix, distCoeffs, rvecs[k], tvecs[k]);
  }
  std::vector<float> errors;
  engine.computeReprojectionErrors(engine.mObjectPoints, imagePoints, rvecs, tvecs, cameraMatrix, distCoeffs, &errors);
  return errors;
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
        summary.viewErrors1 = ViewErrors(engine, engine.mImagePoints1, engine.K1, engine.D1);
        summary.viewErrors2 = ViewErrors(engine, engine.mImagePoints2, engine.K2, engine.D2);
        summary.mono1 = MonoIntrinsicsOf(engine.K1, engine.D1, engine.mMonoStdDev1);
        summary.mono2 = MonoIntrinsicsOf(engine.K2, engine.D2, engine.mMonoStdDev2);
      })) {
    return summary;
  }
  summary.outlierViews = OutlierViewsOfEitherCamera(summary.viewErrors1, summary.viewErrors2);
  if (!RunStage(summary, "stereoCalibration", [&] { engine.stereoCalibration(); })) return summary;
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

ChartSummary RunChart(dualCalibration& engine, const std::vector<std::pair<cv::Mat, cv::Mat>>& pairs,
                      const ChartRunOptions& options) {
  ChartSummary summary;
  const std::string problem = CheckPairs(pairs);
  if (!problem.empty()) return Fail(summary, kChartBadImages, "chart intake", problem);
  const bool withTables = options.mainTablePath != nullptr;
  if (withTables != (options.secondTablePath != nullptr)) {
    return Fail(summary, kChartBadTables, "chart intake", "both distortion tables or none are needed");
  }
  if (!RunStage(summary, "findImagePoints", [&] { CollectViews(engine, pairs, options, summary); })) return summary;
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

}  // namespace

ChartSummary dualCalibration::runChartCalibration(const std::vector<std::pair<cv::Mat, cv::Mat>>& pairs,
                                                  const ChartRunOptions& options) {
  try {
    return RunChart(*this, pairs, options);
  } catch (...) {
    // Only the summary's own bookkeeping can get here (out of memory); the
    // stages' errors are caught where they run.
    return ChartSummary();
  }
}

ChartSummary dualCalibration::recalibrateChartWithoutViews(const ChartSummary& first,
                                                           const std::vector<int32_t>& views) {
  try {
    std::vector<int32_t> removed;
    for (const int32_t view : views) {
      if (view >= 0 && view < first.viewCount && view < static_cast<int32_t>(mImagePoints1.size())) {
        removed.push_back(view);
      }
    }
    std::sort(removed.begin(), removed.end());
    removed.erase(std::unique(removed.begin(), removed.end()), removed.end());
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
    RemoveViews(*this, removed, summary);
    return CalibrateViews(*this, summary);
  } catch (...) {
    return ChartSummary();
  }
}
