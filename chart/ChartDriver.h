// What the chart calibration driver (dualCalibration::runChartCalibration)
// hands back: a status code, the stage that failed with its message, and
// the figures of every stage that ran.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

#include "chart/CornerCorrespondence.h"
#include "chart/ViewOutliers.h"

// Status codes of the chart driver.
enum ChartStatus : int32_t {
  kChartOk = 1,
  kChartBadImages = -1,     // no pair, an empty or non-grey image, or sizes that differ between pairs
  kChartTooFewViews = -2,   // fewer than kChartMinViews pairs had the board in both images
  kChartBadTables = -3,     // only one table path given, or the distortion tables did not load
  kChartUndistortFailed = -4,  // a second-camera corner left the distortion band
  kChartStageFailed = -5,   // an OpenCV or memory error in a stage; message holds its text
};

// What became of one chart pair.
enum class ChartPairResult : int32_t {
  kView,               // the board was found in both images
  kNoBoard,            // the search did not find the board in both
  kNoBoardQuickCheck,  // the main image failed the quick board check; the second not searched
  kOrderUndecided,     // found in both, but the grid pairing could not tell the board's order
  kCornersUnlocated,   // found in both, but more than half the corners unlocated, or any with distortion tables
};

// Told after each pair's chessboard search: the pair's index and its result.
using ChartPairProgress = std::function<void(size_t pairIndex, ChartPairResult result)>;
// Hands the driver pair k (main, second) when its search comes, so that a
// long run holds one pair at a time; an empty image stops the run.
using ChartPairSource = std::function<std::pair<cv::Mat, cv::Mat>(size_t pairIndex)>;

struct ChartRunOptions {
  const char* mainTablePath = nullptr;  // distortion tables: both or neither
  const char* secondTablePath = nullptr;
  CornerPairing pairing = CornerPairing::kNearest;
  CornerSearch search = CornerSearch::kEngine;
  // Turns away a pair whose main image fails the quick board check before
  // the search of its second image, which takes seconds on a pair without a
  // board. The check is the main image's own search, so it loses no view.
  // The any-scale search needs none: it searches the second image only
  // after finding the board in the main image.
  bool quickCheck = true;
  ChartPairProgress onPair;
};

// How well the any-scale search located one view's corners: each grid
// corner's neighbour residual (px, chart/CornerQuality.h) in either image,
// and the grid indices of the corners left out of the view, unlocated in
// either image.
struct ViewCornerQuality {
  std::vector<float> residuals1, residuals2;
  std::vector<int32_t> leftOut;
};

// Views the stereo stage needs: its residue fit reads views 0 to 3.
constexpr int kChartMinViews = 4;

// Outcome of every limit check. A check is true when its value is within
// its limit. The translation checks compare |mT[i]| with nMaxTransition
// whatever the error; the stereo stage reports them only when the stereo
// reprojection check failed.
struct ChartLimitChecks {
  bool monoReprojection = true;
  bool rotationX = true;
  bool rotationY = true;
  bool rotationZ = true;
  bool stereoReprojection = true;
  bool translationX = true;
  bool translationY = true;
  bool translationZ = true;
};

// One camera as the mono stage left it: the intrinsics the per-view errors
// are measured with, and the standard deviations of fx, fy, cx, cy (pixels),
// k1, k2, k3, p1, p2 in that order.
inline constexpr const char* kMonoIntrinsicNames[9] = {"fx", "fy", "cx", "cy", "k1", "k2", "k3", "p1", "p2"};

struct MonoIntrinsics {
  cv::Mat K;  // 3x3
  cv::Mat D;  // 1x8: k1, k2, p1, p2, k3, k4, k5, k6
  std::array<double, 9> stdDev{};
};

struct ChartSummary {
  int32_t status = kChartStageFailed;
  std::string failedStage;  // empty when status is kChartOk
  std::string message;      // why the driver stopped; empty when status is kChartOk
  std::vector<int32_t> viewsFound;  // per pair: 1 when it became a view, 0 otherwise
  std::vector<int32_t> quickRejected;  // per pair: 1 when the quick board check turned it away
  std::vector<int32_t> orderUndecided;  // per pair: 1 when the grid pairing left the board's order open
  std::vector<int32_t> cornersUnlocated;  // per pair: 1 when it was dropped for its unlocated corners
  int32_t viewCount = 0;
  CornerPairing pairing = CornerPairing::kNearest;
  CornerSearch search = CornerSearch::kEngine;
  std::vector<GridPairing> gridPairings;     // per view, with the grid pairing
  std::vector<ViewCornerQuality> cornerQuality;  // per view, with the any-scale search
  std::vector<int32_t> repeatedCornerViews;  // views whose second list holds one corner twice
  int32_t viewsWithoutTables = 0;  // views the distortion tables left uncorrected (beyond the first four)
  double monoRms1 = 0.0;  // main camera, pixels
  double monoRms2 = 0.0;  // second camera, pixels
  std::vector<float> viewErrors1;  // per view, main camera, mono calibration, pixels
  std::vector<float> viewErrors2;  // per view, second camera
  std::vector<std::vector<float>> cornerErrors1, cornerErrors2;  // per view and corner, as the view errors
  MonoIntrinsics mono1, mono2;     // main and second camera after the mono stage
  float stereoRms = 0.0f;
  cv::Vec3d T;                     // translation, unit of nSquareSize
  float r_x = 0.0f, r_y = 0.0f, r_z = 0.0f;  // angles of R, radians
  ChartLimitChecks checks;
  std::string resultFileText;      // what the stereo stage wrote to calibrationResult.txt
  // Views whose mono error in either camera is more than three times that
  // camera's median view error (OutlierViewsOfEitherCamera).
  std::vector<int32_t> outlierViews;
  // Views and corners that are outliers by corner (chart/ViewOutliers.h).
  CornerOutliers outlierCorners;
  // In a run again without outliers: the views of the first run it left out,
  // and per view of the first run the grid indices of the corners it left out.
  CornerOutliers dropped;
};

// What the pair searches of a run left: both image sizes, the view lists as
// the stages take them (after the distortion tables, when given) and the
// summary's facts about every pair and view, so that the stages can run
// again without the images and reach the same result.
struct ChartViews {
  cv::Size mainSize, secondSize;
  std::vector<std::vector<cv::Point3f>> objectPoints;
  std::vector<std::vector<cv::Point2f>> imagePoints1, imagePoints2;
  // viewsFound, quickRejected, orderUndecided, cornersUnlocated, viewCount,
  // pairing, search, gridPairings, cornerQuality, repeatedCornerViews and
  // viewsWithoutTables; the rest as a fresh summary has it.
  ChartSummary intake;
};

// The intake facts of summary (as ChartViews::intake lists them) in a fresh summary.
ChartSummary IntakeOf(const ChartSummary& summary);
// What became of pair k of the run that summary describes.
ChartPairResult PairResultOf(const ChartSummary& summary, size_t k);

// Each view's pair, counted from 1 in the order the pairs were given: the one
// numbering the summary, its JSON and the report share.
std::vector<int32_t> PairNumbersOfViews(const ChartSummary& summary);
