#include "distortion/ChartCorners.h"

#include <algorithm>
#include <cstdint>
#include <limits>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include "api/Globals.h"
#include "distortion/CDistortionFilter.h"
#include "engine/dualCalibration.h"

namespace {

// Undistorts up to `count` points of view into scratch and returns the
// kernel's result; the view itself is not touched.
int32_t UndistortIntoScratch(const CDistortionFilter& filter, const std::vector<cv::Point2f>& view,
                             size_t count, int32_t width, int32_t height, std::vector<float>& scratch) {
  const size_t points = std::min({count, view.size(), size_t{std::numeric_limits<int32_t>::max()}});
  scratch.resize(2 * points);
  for (size_t i = 0; i < points; ++i) {
    scratch[2 * i] = view[i].x;
    scratch[2 * i + 1] = view[i].y;
  }
  return filter.UndistortPointsPolynomial(scratch.data(), scratch.data(), static_cast<int32_t>(points),
                                          width, height);
}

void CopyBack(const std::vector<float>& scratch, std::vector<cv::Point2f>& view) {
  for (size_t i = 0; 2 * i < scratch.size(); ++i) view[i] = cv::Point2f(scratch[2 * i], scratch[2 * i + 1]);
}

}  // namespace

CDistortionFilter& dualCalibration::MainCameraFilter() { return g_distortionFilter2; }

CDistortionFilter& dualCalibration::SecondCameraFilter() { return g_distortionFilter1; }

int dualCalibration::LoadDistortionTables(const char* firstPath, const char* secondPath) {
  if (MainCameraFilter().LoadDistortionTable(firstPath) == 0) return -2;
  return SecondCameraFilter().LoadDistortionTable(secondPath) != 0 ? 1 : -3;
}

int dualCalibration::undistortChartCorners(const cv::Mat& mainImage, const cv::Mat& secondImage) {
  if (mImagePoints1.size() < kChartCornerViews || mImagePoints2.size() < kChartCornerViews) return 0;
  const size_t count = mImagePoints1[0].size();
  std::vector<float> scratch;
  for (int view = 0; view < kChartCornerViews; ++view) {
    // Deliberately one-sided: a main-camera point outside the band stops this view only.
    UndistortIntoScratch(MainCameraFilter(), mImagePoints1[view], count, chartImageSizes[0],
                         chartImageSizes[1], scratch);
    CopyBack(scratch, mImagePoints1[view]);
    if (UndistortIntoScratch(SecondCameraFilter(), mImagePoints2[view], count, chartImageSizes[2],
                             chartImageSizes[3], scratch) == 0) {
      return 0;
    }
    CopyBack(scratch, mImagePoints2[view]);
  }
  if (m_bSaveDebugInfo == 0) return 1;
  cv::Mat mainCopy = ChartColourCopy(mainImage);
  cv::Mat secondCopy = ChartColourCopy(secondImage);
  const cv::Size boardSize(m_nBoardWidth, m_nBoardHeight);
  for (int view = 0; view < kChartCornerViews; ++view) {
    DrawChartView(mainCopy, boardSize, mImagePoints1[view]);
    DrawChartView(secondCopy, boardSize, mImagePoints2[view]);
  }
  return 1;
}

cv::Mat ChartColourCopy(const cv::Mat& image) {
  cv::Mat colour;
  if (image.empty() || image.type() != CV_8UC1) return colour;
  cv::cvtColor(image, colour, cv::COLOR_GRAY2BGR);
  return colour;
}

void DrawChartView(cv::Mat& canvas, cv::Size boardSize, const std::vector<cv::Point2f>& corners) {
  if (canvas.empty()) return;
  const bool complete = static_cast<size_t>(boardSize.area()) == corners.size();
  cv::drawChessboardCorners(canvas, boardSize, corners, complete);
}
