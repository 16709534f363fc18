// Rectification preview of the stored chart images and the 90-degree turn.
#include <cmath>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include "engine/dualCalibration.h"

namespace {

constexpr int kGuideLineStepPx = 64;

struct UndistortMaps {
  cv::Mat first, second;
};

void RuleGuideLines(cv::Mat& canvas, bool vertical) {
  // The colour's first component, 0, is what a one-channel canvas receives.
  const cv::Scalar colour(0, 255, 0, 0);
  if (vertical) {
    for (int x = 0; x < canvas.cols; x += kGuideLineStepPx) {
      cv::line(canvas, cv::Point(x, 0), cv::Point(x, canvas.rows - 1), colour, 2, cv::LINE_8, 0);
    }
  } else {
    for (int y = 0; y < canvas.rows; y += kGuideLineStepPx) {
      cv::line(canvas, cv::Point(0, y), cv::Point(canvas.cols - 1, y), colour, 2, cv::LINE_8, 0);
    }
  }
}

}  // namespace

cv::Mat dualCalibration::buildRectifyCanvas() const {
  // The chart stages and the intake must have run; what they leave unset fails here.
  CV_Assert(mChartImages.size() >= 2);
  CV_Assert(mSecondResult.P2.type() == CV_64F && mSecondResult.P2.rows >= 2 && mSecondResult.P2.cols >= 4);
  const cv::Size size(chartImageSizes[0], chartImageSizes[1]);
  UndistortMaps maps[2];
  cv::initUndistortRectifyMap(K1, D1, cv::Mat(), K1, size, CV_16SC2, maps[0].first, maps[0].second);
  // The second image is brought into the main camera's projection: new camera matrix K1.
  cv::initUndistortRectifyMap(K2, D2, mSecondRotation.inv(cv::DECOMP_LU), K1, size, CV_16SC2, maps[1].first,
                              maps[1].second);
  const cv::Mat& P2 = mSecondResult.P2;
  const bool vertical = std::fabs(P2.at<double>(1, 3)) > std::fabs(P2.at<double>(0, 3));
  const cv::Size canvasSize = vertical ? cv::Size(size.width, 2 * size.height) : cv::Size(2 * size.width, size.height);
  cv::Mat canvas(canvasSize, CV_8UC1);
  for (int i = 0; i < 2; ++i) {
    cv::Mat remapped;
    cv::remap(mChartImages[i].clone(), remapped, maps[i].first, maps[i].second, cv::INTER_LINEAR,
              cv::BORDER_CONSTANT, cv::Scalar(0));
    const cv::Rect half = vertical ? cv::Rect(0, i * size.height, size.width, size.height)
                                   : cv::Rect(i * size.width, 0, size.width, size.height);
    cv::Mat region = canvas(half);
    cv::resize(remapped, region, half.size(), 0, 0, cv::INTER_AREA);
    // Ruled after each image, so the first half's lines are drawn twice.
    RuleGuideLines(canvas, vertical);
  }
  return canvas;
}

void dualCalibration::rectifyPreview() { buildRectifyCanvas(); }

void dualCalibration::rotateImage90(cv::Mat& image) const {
  const cv::Point2f centre(static_cast<float>(image.cols / 2), static_cast<float>(image.rows / 2));
  const cv::Mat rotation = cv::getRotationMatrix2D(centre, 90.0, 1.0);
  // The turn stays about the old centre while the size is swapped, so the
  // content moves by the difference of the two centres. Intended.
  cv::warpAffine(image, image, rotation, cv::Size(image.rows, image.cols), cv::INTER_LINEAR, cv::BORDER_CONSTANT,
                 cv::Scalar(0));
}
