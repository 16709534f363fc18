// Stereo calibration, rectification, residue fit and the total rectify matrix.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>

#include <opencv2/calib3d.hpp>

#include "chart/StereoLimits.h"
#include "distortion/CDistortionFilter.h"
#include "engine/dualCalibration.h"

namespace {

constexpr int kResidueViews = 4;

// Corners of the first four views of both lists as interleaved x, y floats,
// n per view with n the size of the main list's view 0. Views or points
// that one list lacks are left out of both.
void GatherResiduePoints(const std::vector<std::vector<cv::Point2f>>& mainViews,
                         const std::vector<std::vector<cv::Point2f>>& secondViews, std::vector<float>& mainPoints,
                         std::vector<float>& secondPoints) {
  const size_t perView = mainViews.empty() ? 0 : mainViews[0].size();
  const size_t views = std::min({mainViews.size(), secondViews.size(), static_cast<size_t>(kResidueViews)});
  for (size_t k = 0; k < views; ++k) {
    const size_t count = std::min({perView, mainViews[k].size(), secondViews[k].size()});
    for (size_t i = 0; i < count; ++i) {
      mainPoints.insert(mainPoints.end(), {mainViews[k][i].x, mainViews[k][i].y});
      secondPoints.insert(secondPoints.end(), {secondViews[k][i].x, secondViews[k][i].y});
    }
  }
}

void ToFloat9(const cv::Mat& matrix, float (&out)[9]) {
  CV_Assert(matrix.rows == 3 && matrix.cols == 3 && matrix.channels() == 1);
  cv::Mat single;
  matrix.convertTo(single, CV_32F);
  for (int i = 0; i < 9; ++i) out[i] = single.at<float>(i / 3, i % 3);
}

void Centre(std::vector<float>& points, const cv::Point2f& centre) {
  for (size_t i = 0; i + 1 < points.size(); i += 2) {
    points[i] -= centre.x;
    points[i + 1] -= centre.y;
  }
}

// Least-squares fit of y1 = s * y2 + o, sums in single precision; (s, o) as a 2x1 float matrix.
cv::Mat FitVerticalResidue(const std::vector<float>& mainPoints, const std::vector<float>& secondPoints) {
  float sumY2 = 0.0f, sumY1 = 0.0f, sumY2Y2 = 0.0f, sumY1Y2 = 0.0f;
  const size_t count = mainPoints.size() / 2;
  for (size_t i = 0; i < count; ++i) {
    const float y1 = mainPoints[2 * i + 1];
    const float y2 = secondPoints[2 * i + 1];
    sumY2 += y2;
    sumY1 += y1;
    sumY2Y2 += y2 * y2;
    sumY1Y2 += y1 * y2;
  }
  const cv::Mat normal = (cv::Mat_<float>(2, 2) << sumY2Y2, sumY2, sumY2, static_cast<float>(count));
  const cv::Mat right = (cv::Mat_<float>(2, 1) << sumY1Y2, sumY1);
  cv::Mat solution;
  cv::solve(normal, right, solution, cv::DECOMP_LU);
  return solution;
}

// The scale acts about the image centre: C+ * M * C-.
cv::Mat CentredScale(float scale, float offsetY, const cv::Point2f& centre) {
  const cv::Mat toCentre = (cv::Mat_<float>(3, 3) << 1, 0, -centre.x, 0, 1, -centre.y, 0, 0, 1);
  const cv::Mat residue = (cv::Mat_<float>(3, 3) << scale, 0, 0, 0, scale, offsetY, 0, 0, 1);
  const cv::Mat fromCentre = (cv::Mat_<float>(3, 3) << 1, 0, centre.x, 0, 1, centre.y, 0, 0, 1);
  return fromCentre * residue * toCentre;
}

void Rectify(dualCalibration& engine, const cv::Size& mainSize) {
  std::printf("Starting rectification ... \n");
  cv::stereoRectify(engine.K1, engine.D1, engine.K2, engine.D2, mainSize, engine.R, engine.mT, engine.R1, engine.R2,
                    engine.P1, engine.P2, engine.mQ, cv::CALIB_ZERO_DISPARITY, -1, cv::Size(0, 0));
  std::printf("Rectification done \n");
  engine.rotationToEulerAngles(engine.R1, engine.r_x_1, engine.r_y_1, engine.r_z_1);
  engine.rotationToEulerAngles(engine.R2, engine.r_x_2, engine.r_y_2, engine.r_z_2);
}

}  // namespace

int dualCalibration::stereoCalibration() {
  std::printf("Starting stereo calibration ... \n");
  const int flags = stereoCalibrationFlags();
  // The mono distortion is discarded on purpose: the corners are taken as
  // free of lens distortion from here on; K1 and K2 are the starting values.
  D1 = cv::Mat::zeros(1, 8, CV_64F);
  D2 = cv::Mat::zeros(1, 8, CV_64F);
  const cv::Size mainSize(chartImageSizes[0], chartImageSizes[1]);
  mRMS = static_cast<float>(cv::stereoCalibrate(
      mObjectPoints, mImagePoints1, mImagePoints2, K1, D1, K2, D2, mainSize, R, mT, mE, mF, flags,
      cv::TermCriteria(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 100, 1e-5)));
  std::cout << "Dual calibration RMS:" << mRMS << std::endl;
  std::cout << "Transition vector:[" << mT[0] << ", " << mT[1] << ", " << mT[2] << "]" << std::endl;
  std::printf("Stereo calibration done \n \n");
  // Rectification runs only with the debug switch. Intended coupling.
  if (m_bSaveDebugInfo != 0) Rectify(*this, mainSize);
  rotationToEulerAngles(R, r_x, r_y, r_z);
  computeResidue();
  assembleRectifyMatrix();
  saveCalibrationResult();
  const ChartLimitChecks checks = evaluateChartLimits();
  PrintRotationWarnings(checks);
  appendCalibLog();
  PrintReprojectionWarnings(checks);
  return 1;
}

void dualCalibration::rotationToEulerAngles(const cv::Mat& rotation, float& x, float& y, float& z) const {
  CV_Assert(rotation.rows == 3 && rotation.cols == 3);
  const cv::Mat_<double> r = rotation;
  const float sy = static_cast<float>(std::sqrt(r(0, 0) * r(0, 0) + r(1, 0) * r(1, 0)));
  if (sy < 1e-6) {
    x = static_cast<float>(std::atan2(-r(1, 2), r(1, 1)));
    y = static_cast<float>(std::atan2(-r(2, 0), static_cast<double>(sy)));
    z = 0.0f;
  } else {
    x = static_cast<float>(std::atan2(r(2, 1), r(2, 2)));
    y = static_cast<float>(std::atan2(-r(2, 0), static_cast<double>(sy)));
    z = static_cast<float>(std::atan2(r(1, 0), r(0, 0)));
  }
}

void dualCalibration::computeResidue() {
  std::vector<float> mainPoints, secondPoints;
  GatherResiduePoints(mImagePoints1, mImagePoints2, mainPoints, secondPoints);
  const int32_t count = static_cast<int32_t>(mainPoints.size() / 2);
  float mainCamera[9], secondCamera[9], rotation[9];
  ToFloat9(K1, mainCamera);
  ToFloat9(K2, secondCamera);
  ToFloat9(R, rotation);
  const float identity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  // Both sets end up in the main camera's pixel frame, without lens distortion.
  MainCameraFilter().MapPointsLinear(mainPoints.data(), mainPoints.data(), count, mainCamera, mainCamera, identity);
  SecondCameraFilter().MapPointsLinear(secondPoints.data(), secondPoints.data(), count, secondCamera, mainCamera,
                                       rotation);
  const cv::Point2f centre(chartImageSizes[0] * 0.5f - 0.5f, chartImageSizes[1] * 0.5f - 0.5f);
  Centre(mainPoints, centre);
  Centre(secondPoints, centre);
  const cv::Mat solution = FitVerticalResidue(mainPoints, secondPoints);
  std::cout << solution << std::endl;
  m_residueScale = solution.at<float>(0);
  m_residueOffsetY = solution.at<float>(1);
  mResidueMatrix = CentredScale(m_residueScale, m_residueOffsetY, centre);
  std::printf("m_residueScale==%f\n", m_residueScale);
  std::printf("m_residueOffsetY==%f\n", m_residueOffsetY);
}

void dualCalibration::assembleRectifyMatrix() {
  const cv::Mat total = K1 * R.t() * K2.inv(cv::DECOMP_LU);
  cv::Mat single;
  total.convertTo(single, CV_32F);
  single = mResidueMatrix * single;
  m_assembleMatrix = single.inv(cv::DECOMP_LU);
}
