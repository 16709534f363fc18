#include "station/StereoUncertainty.h"

#include <algorithm>
#include <cmath>
#include <string>

#include <opencv2/calib3d.hpp>

#include "api/Globals.h"
#include "station/CameraModel.h"

namespace {

constexpr size_t kMinUncertaintyViews = 5;
constexpr size_t kMinGroups = 2;
// A homography, and so a view's starting pose, needs four points.
constexpr size_t kMinViewPoints = 4;
const char* const kSolvePrefix = "stereo solve: ";
const char* const kUncertaintyPrefix = "stereo uncertainty: ";

// The 14 parameters in one vector, in the order T, anglesDeg, camera1, camera2.
constexpr int kParameterCount = 14;
constexpr int kFirstAngle = 3, kLastAngle = 5;
using ParameterVector = cv::Vec<double, kParameterCount>;

ParameterVector Flatten(const StereoParameters& parameters) {
  ParameterVector flat;
  for (int i = 0; i < 3; ++i) flat[i] = parameters.T[i], flat[3 + i] = parameters.anglesDeg[i];
  for (int i = 0; i < 4; ++i) flat[6 + i] = parameters.camera1[i], flat[10 + i] = parameters.camera2[i];
  return flat;
}

StereoParameters Unflatten(const ParameterVector& flat) {
  StereoParameters parameters;
  for (int i = 0; i < 3; ++i) parameters.T[i] = flat[i], parameters.anglesDeg[i] = flat[3 + i];
  for (int i = 0; i < 4; ++i) parameters.camera1[i] = flat[6 + i], parameters.camera2[i] = flat[10 + i];
  return parameters;
}

bool IsFinite(const cv::Point2f& point) { return std::isfinite(point.x) && std::isfinite(point.y); }
bool IsFinite(const cv::Point3f& point) {
  return std::isfinite(point.x) && std::isfinite(point.y) && std::isfinite(point.z);
}

template <class Point>
void CheckFinite(const std::vector<Point>& points, const std::string& where, const char* name) {
  for (size_t i = 0; i < points.size(); ++i)
    if (!IsFinite(points[i])) throw StationError(where + name + " " + std::to_string(i + 1) + " is not finite");
}

void CheckView(const StereoSolveInput& input, size_t view, const std::string& prefix) {
  const std::string where = prefix + "view " + std::to_string(view + 1) + ": ";
  const size_t points = input.objectPoints[view].size();
  if (input.imagePoints1[view].size() != points || input.imagePoints2[view].size() != points)
    throw StationError(where + std::to_string(points) + " board points, " +
                       std::to_string(input.imagePoints1[view].size()) + " main corners, " +
                       std::to_string(input.imagePoints2[view].size()) + " second corners");
  if (points < kMinViewPoints)
    throw StationError(where + std::to_string(points) + " points, at least " + std::to_string(kMinViewPoints) +
                       " needed");
  CheckFinite(input.objectPoints[view], where, "board point");
  CheckFinite(input.imagePoints1[view], where, "main corner");
  CheckFinite(input.imagePoints2[view], where, "second corner");
}

void CheckInput(const StereoSolveInput& input, size_t minViews, const std::string& prefix) {
  const size_t views = input.objectPoints.size();
  if (input.imagePoints1.size() != views || input.imagePoints2.size() != views)
    throw StationError(prefix + std::to_string(views) + " board views, " + std::to_string(input.imagePoints1.size()) +
                       " main views, " + std::to_string(input.imagePoints2.size()) + " second views");
  if (views < minViews)
    throw StationError(prefix + std::to_string(views) + " views, at least " + std::to_string(minViews) + " needed");
  for (size_t view = 0; view < views; ++view) CheckView(input, view, prefix);
  if (input.imageSize.width <= 0 || input.imageSize.height <= 0)
    throw StationError(prefix + "image size " + std::to_string(input.imageSize.width) + "x" +
                       std::to_string(input.imageSize.height) + " is not positive");
  CheckedCameraMatrix(input.K1, prefix + "K1");
  CheckedCameraMatrix(input.K2, prefix + "K2");
}

cv::Vec4d Intrinsics(const cv::Mat& K) {
  return {K.at<double>(0, 0), K.at<double>(1, 1), K.at<double>(0, 2), K.at<double>(1, 2)};
}

cv::Vec3d AnglesDeg(const cv::Mat& R) {
  float x = 0, y = 0, z = 0;
  // The engine's own convention; the call reads no engine state.
  static_cast<const dualCalibration&>(g_dualCalib).rotationToEulerAngles(R, x, y, z);
  return cv::Vec3d(x, y, z) * (180 / CV_PI);
}

// The stage's solve on the given views of an input CheckInput accepted;
// `solve` names it in the message of a failure.
StereoParameters SolveViews(const StereoSolveInput& input, const std::vector<size_t>& views,
                            const std::string& solve) {
  std::vector<std::vector<cv::Point3f>> objectPoints;
  std::vector<std::vector<cv::Point2f>> imagePoints1, imagePoints2;
  for (size_t view : views) {
    objectPoints.push_back(input.objectPoints[view]);
    imagePoints1.push_back(input.imagePoints1[view]);
    imagePoints2.push_back(input.imagePoints2[view]);
  }
  cv::Mat K1, K2;
  input.K1.convertTo(K1, CV_64F);
  input.K2.convertTo(K2, CV_64F);
  cv::Mat D1 = cv::Mat::zeros(1, 8, CV_64F), D2 = cv::Mat::zeros(1, 8, CV_64F), R, E, F;
  StereoParameters solved;
  try {
    cv::stereoCalibrate(objectPoints, imagePoints1, imagePoints2, K1, D1, K2, D2, input.imageSize, R, solved.T, E, F,
                        input.flags, cv::TermCriteria(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 100, 1e-5));
  } catch (const cv::Exception& error) {
    throw StationError(solve + " failed: " + error.err);
  }
  solved.anglesDeg = AnglesDeg(R);
  solved.camera1 = Intrinsics(K1);
  solved.camera2 = Intrinsics(K2);
  if (!cv::checkRange(Flatten(solved))) throw StationError(solve + " gave a result that is not finite");
  return solved;
}

std::vector<size_t> AllViews(size_t views) {
  std::vector<size_t> all(views);
  for (size_t view = 0; view < views; ++view) all[view] = view;
  return all;
}

std::vector<size_t> ViewsOfGroup(size_t views, size_t groups, size_t group, bool inGroup) {
  std::vector<size_t> selected;
  for (size_t view = 0; view < views; ++view)
    if ((view % groups == group) == inGroup) selected.push_back(view);
  return selected;
}

std::string FoldName(const std::vector<size_t>& leftOut) {
  std::string name = std::string(kUncertaintyPrefix) + "the solve without view" + (leftOut.size() > 1 ? "s " : " ");
  for (size_t i = 0; i < leftOut.size(); ++i) name += (i > 0 ? ", " : "") + std::to_string(leftOut[i] + 1);
  return name;
}

// fold - full, the angles taken to the nearest turn.
ParameterVector Shift(const StereoParameters& fold, const ParameterVector& full) {
  ParameterVector shift = Flatten(fold) - full;
  for (int i = kFirstAngle; i <= kLastAngle; ++i) shift[i] = std::remainder(shift[i], 360.0);
  return shift;
}

// The jackknife standard deviations and the largest shifts of the folds' shifts from the full solve.
void SummariseShifts(const std::vector<ParameterVector>& shifts, StereoUncertainty& uncertainty) {
  const double groups = static_cast<double>(shifts.size());
  ParameterVector mean, sumSquares, largest, stdDev;
  for (const ParameterVector& shift : shifts) mean += shift * (1.0 / groups);
  for (const ParameterVector& shift : shifts) {
    sumSquares += (shift - mean).mul(shift - mean);
    for (int i = 0; i < kParameterCount; ++i) largest[i] = std::max(largest[i], std::abs(shift[i]));
  }
  for (int i = 0; i < kParameterCount; ++i) stdDev[i] = std::sqrt((groups - 1) / groups * sumSquares[i]);
  uncertainty.stdDev = Unflatten(stdDev);
  uncertainty.largestShift = Unflatten(largest);
}

}  // namespace

StereoParameters SolveStereo(const StereoSolveInput& input) {
  CheckInput(input, 1, kSolvePrefix);
  return SolveViews(input, AllViews(input.objectPoints.size()), "stereo solve");
}

StereoUncertainty EstimateStereoUncertainty(const StereoSolveInput& input, size_t maxGroups) {
  CheckInput(input, kMinUncertaintyViews, kUncertaintyPrefix);
  if (maxGroups < kMinGroups)
    throw StationError(std::string(kUncertaintyPrefix) + "maxGroups " + std::to_string(maxGroups) + ", at least " +
                       std::to_string(kMinGroups) + " needed");
  const size_t views = input.objectPoints.size();
  const ParameterVector full =
      Flatten(SolveViews(input, AllViews(views), std::string(kUncertaintyPrefix) + "the full solve"));
  StereoUncertainty uncertainty;
  uncertainty.groups = std::min(views, maxGroups);
  const size_t groups = uncertainty.groups;
  std::vector<ParameterVector> shifts;
  for (size_t group = 0; group < groups; ++group) {
    const std::string name = FoldName(ViewsOfGroup(views, groups, group, true));
    uncertainty.folds.push_back(SolveViews(input, ViewsOfGroup(views, groups, group, false), name));
    shifts.push_back(Shift(uncertainty.folds.back(), full));
  }
  SummariseShifts(shifts, uncertainty);
  return uncertainty;
}
