// Mono calibration of each camera, reprojection error and point offsets.
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdio>

#include <opencv2/calib3d.hpp>

#include "engine/dualCalibration.h"

namespace {

// fx = fy = the shorter side, principal point at the integer half sizes.
void SeedCameraMatrix(cv::Mat& cameraMatrix, int32_t width, int32_t height) {
  cameraMatrix.at<double>(0, 0) = std::min(width, height);
  cameraMatrix.at<double>(1, 1) = std::min(width, height);
  cameraMatrix.at<double>(0, 2) = width / 2;
  cameraMatrix.at<double>(1, 2) = height / 2;
  cameraMatrix.at<double>(0, 1) = 0.0;
}

void OffsetPoints(std::vector<cv::Point2f>& points, int mode, float dx, float dy) {
  for (cv::Point2f& point : points) {
    if (mode == 1 || mode == 3) point.x += dx;
    if (mode == 2 || mode == 3) point.y += dy;
  }
}

}  // namespace

int dualCalibration::monoCalibration() {
  std::printf("\nStarting mono calibration ...\n");
  SeedCameraMatrix(K1, chartImageSizes[0], chartImageSizes[1]);
  SeedCameraMatrix(K2, chartImageSizes[2], chartImageSizes[3]);
  const int flags = monoCalibrationFlags();
  const cv::TermCriteria criteria(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 30, DBL_EPSILON);
  std::vector<cv::Mat> rvecs, tvecs;
  // The overload with deviations leaves K, D and the RMS bit for bit as the plain one gives them.
  mMonoRMS1 = cv::calibrateCamera(mObjectPoints, mImagePoints1, cv::Size(chartImageSizes[0], chartImageSizes[1]), K1,
                                  D1, rvecs, tvecs, mMonoStdDev1, cv::noArray(), cv::noArray(), flags, criteria);
  mMonoRMS2 = cv::calibrateCamera(mObjectPoints, mImagePoints2, cv::Size(chartImageSizes[2], chartImageSizes[3]), K2,
                                  D2, rvecs, tvecs, mMonoStdDev2, cv::noArray(), cv::noArray(), flags, criteria);
  // A warning only: the results stay and the caller is not told. Intended.
  if (monoReprojectionExceeds(mMonoRMS1) || monoReprojectionExceeds(mMonoRMS2)) {
    std::printf("ERROR: reproject error is too big ! \n");
  }
  std::printf("Mono calibration done.\n \n");
  return 1;
}

bool dualCalibration::monoReprojectionExceeds(double rms) const {
  const float limit = static_cast<float>(m_nMaxReprojectionERROR) / 100.0f;
  return rms > static_cast<double>(limit);
}

double dualCalibration::computeReprojectionErrors(const std::vector<std::vector<cv::Point3f>>& objectPoints,
                                                  const std::vector<std::vector<cv::Point2f>>& imagePoints,
                                                  const std::vector<cv::Mat>& rvecs, const std::vector<cv::Mat>& tvecs,
                                                  const cv::Mat& cameraMatrix, const cv::Mat& distCoeffs,
                                                  std::vector<float>* perViewErrors) const {
  const size_t views = std::min({objectPoints.size(), imagePoints.size(), rvecs.size(), tvecs.size()});
  double sumOfSquares = 0.0;
  double pointCount = 0.0;
  std::vector<cv::Point2f> projected;
  for (size_t i = 0; i < views; ++i) {
    cv::projectPoints(objectPoints[i], rvecs[i], tvecs[i], cameraMatrix, distCoeffs, projected, cv::noArray(), 0.0);
    const double error = cv::norm(imagePoints[i], projected, cv::NORM_L2);
    const double count = static_cast<double>(objectPoints[i].size());
    sumOfSquares += error * error;
    pointCount += count;
    if (perViewErrors != nullptr) perViewErrors->push_back(static_cast<float>(std::sqrt(error * error / count)));
  }
  // Without views this is sqrt(0 / 0), not a number.
  return std::sqrt(sumOfSquares / pointCount);
}

void dualCalibration::offsetMainPoints(std::vector<cv::Point2f>& points, int& mode) {
  OffsetPoints(points, mode, static_cast<float>(chartImageSizes[0] - mainReferenceSize[0]),
               static_cast<float>(chartImageSizes[1] - mainReferenceSize[1]));
}

void dualCalibration::offsetSecondPoints(std::vector<cv::Point2f>& points, int& mode) {
  OffsetPoints(points, mode, static_cast<float>(chartImageSizes[2] - secondReferenceSize[0]),
               static_cast<float>(chartImageSizes[3] - secondReferenceSize[1]));
}
