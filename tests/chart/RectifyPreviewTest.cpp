#include <gtest/gtest.h>

#include <memory>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "engine/dualCalibration.h"

namespace {

cv::Mat Pattern(cv::Size size, int seed) {
  cv::Mat image(size, CV_8UC1);
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      image.at<uint8_t>(y, x) = static_cast<uint8_t>(1 + (x * 7 + y * 13 + seed) % 250);
    }
  }
  return image;
}

// Ideal cameras with the principal point at the image centre, no distortion:
// every map is the identity up to the second camera's rotation.
std::unique_ptr<dualCalibration> PreviewEngine(cv::Size size, double p2x, double p2y) {
  auto engine = std::make_unique<dualCalibration>();
  engine->chartImageSizes[0] = size.width;
  engine->chartImageSizes[1] = size.height;
  const double cx = 0.5 * (size.width - 1), cy = 0.5 * (size.height - 1);
  engine->K1 = (cv::Mat_<double>(3, 3) << 500, 0, cx, 0, 500, cy, 0, 0, 1);
  engine->K2 = engine->K1.clone();
  engine->D1 = cv::Mat::zeros(1, 5, CV_64F);
  engine->D2 = cv::Mat::zeros(1, 8, CV_64F);
  engine->mSecondRotation = cv::Mat::eye(3, 3, CV_64F);
  engine->mSecondResult.P2 = (cv::Mat_<double>(3, 4) << 500, 0, cx, p2x, 0, 500, cy, p2y, 0, 0, 1, 0);
  engine->mChartImages = {Pattern(size, 0), Pattern(size, 100)};
  return engine;
}

// True when the canvas rows (or columns) ruled as guide lines are 0 and
// every other pixel equals expected.
void ExpectCanvas(const cv::Mat& canvas, const cv::Mat& expected, bool vertical) {
  ASSERT_EQ(canvas.size(), expected.size());
  int ruled = 0, mismatched = 0;
  for (int y = 0; y < canvas.rows; ++y) {
    for (int x = 0; x < canvas.cols; ++x) {
      const int along = vertical ? x : y;
      const bool onLine = along % 64 == 0 || along % 64 == 63 || along % 64 == 1;
      const uint8_t value = canvas.at<uint8_t>(y, x);
      if (along % 64 == 0) ruled += value == 0 ? 0 : 1;
      if (!onLine) mismatched += value == expected.at<uint8_t>(y, x) ? 0 : 1;
    }
  }
  EXPECT_EQ(ruled, 0) << "pixels left on the guide lines";
  EXPECT_EQ(mismatched, 0) << "pixels off the guide lines that differ";
}

}  // namespace

TEST(RectifyPreview, SideBySideWhenTheVerticalBaselineIsNotLarger) {
  const cv::Size size(400, 300);
  for (const cv::Vec2d& p2 : {cv::Vec2d(-30000.0, 100.0), cv::Vec2d(-200.0, 200.0), cv::Vec2d(200.0, -200.0)}) {
    auto engine = PreviewEngine(size, p2[0], p2[1]);
    const cv::Mat canvas = engine->buildRectifyCanvas();
    cv::Mat expected;
    cv::hconcat(engine->mChartImages[0], engine->mChartImages[1], expected);
    EXPECT_EQ(canvas.size(), cv::Size(800, 300));
    ExpectCanvas(canvas, expected, false);
  }
}

TEST(RectifyPreview, OneAboveTheOtherWhenTheVerticalBaselineIsLarger) {
  const cv::Size size(400, 300);
  auto engine = PreviewEngine(size, 100.0, -30000.0);
  const cv::Mat canvas = engine->buildRectifyCanvas();
  cv::Mat expected;
  cv::vconcat(engine->mChartImages[0], engine->mChartImages[1], expected);
  EXPECT_EQ(canvas.size(), cv::Size(400, 600));
  ExpectCanvas(canvas, expected, true);
}

TEST(RectifyPreview, GuideLinesOfALargeCanvas) {
  const cv::Size size(2000, 1500);
  auto engine = PreviewEngine(size, 1.0, 0.0);
  const cv::Mat canvas = engine->buildRectifyCanvas();
  ASSERT_EQ(canvas.size(), cv::Size(4000, 1500));
  int lines = 0;
  for (int y = 0; y < canvas.rows; ++y) lines += cv::countNonZero(canvas.row(y)) == 0 ? 1 : 0;
  // y = 0, 64, .., 1472 at thickness 2.
  EXPECT_GE(lines, 24);
  EXPECT_LE(lines, 3 * 24);
  EXPECT_EQ(cv::countNonZero(canvas.row(1472)), 0);
  EXPECT_GT(cv::countNonZero(canvas.row(1474)), 0);
}

TEST(RectifyPreview, SecondImageIsTurnedByTheInverseOfItsRotation) {
  const cv::Size size(320, 320);
  auto engine = PreviewEngine(size, -100.0, 0.0);
  // A quarter turn about the optical axis: the source ray of output pixel
  // (u, v) is mSecondRotation applied to (u, v)'s ray, i.e. pixel (319 - v, u).
  engine->mSecondRotation = (cv::Mat_<double>(3, 3) << 0, -1, 0, 1, 0, 0, 0, 0, 1);
  const cv::Mat canvas = engine->buildRectifyCanvas();
  cv::Mat turned;
  cv::rotate(engine->mChartImages[1], turned, cv::ROTATE_90_COUNTERCLOCKWISE);
  cv::Mat expected;
  cv::hconcat(engine->mChartImages[0], turned, expected);
  ExpectCanvas(canvas, expected, false);
}

TEST(RectifyPreview, PreviewRunsAndLeavesTheEngineAsItWas) {
  auto engine = PreviewEngine(cv::Size(400, 300), 1.0, 0.0);
  const cv::Mat before = engine->mChartImages[1].clone();
  engine->rectifyPreview();
  EXPECT_EQ(cv::norm(engine->mChartImages[1], before, cv::NORM_INF), 0.0);
  EXPECT_EQ(engine->mChartImages.size(), 2u);
}

TEST(RectifyPreview, MissingInputsAreOpenCvErrors) {
  auto engine = PreviewEngine(cv::Size(400, 300), 1.0, 0.0);
  engine->mChartImages.pop_back();
  EXPECT_THROW(engine->buildRectifyCanvas(), cv::Exception);
  engine = PreviewEngine(cv::Size(400, 300), 1.0, 0.0);
  engine->mSecondResult.P2 = cv::Mat();
  EXPECT_THROW(engine->buildRectifyCanvas(), cv::Exception);
}

TEST(RotateImage90, SwapsTheSizeAndTurnsAboutTheOldCentre) {
  auto engine = std::make_unique<dualCalibration>();
  const cv::Mat source = Pattern(cv::Size(200, 100), 5);
  cv::Mat image = source.clone();
  engine->rotateImage90(image);
  ASSERT_EQ(image.size(), cv::Size(100, 200));
  // Centre (100, 50): source (x, y) lands on (y + 50, 150 - x).
  int mismatched = 0;
  for (int y = 0; y < image.rows; ++y) {
    for (int x = 0; x < image.cols; ++x) {
      const int sourceX = 150 - y, sourceY = x - 50;
      const bool inside = sourceX >= 0 && sourceX < 200 && sourceY >= 0 && sourceY < 100;
      const uint8_t expected = inside ? source.at<uint8_t>(sourceY, sourceX) : 0;
      mismatched += image.at<uint8_t>(y, x) == expected ? 0 : 1;
    }
  }
  EXPECT_EQ(mismatched, 0);
}
