#include <gtest/gtest.h>

#include <memory>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "engine/dualCalibration.h"

namespace {

cv::Mat Pattern(cv::Size size, int seed) {
  cv::Mat image(size, CV_8UC1);
  for (int i = 0; i < size.area(); ++i) image.data[i] = static_cast<uint8_t>(1 + (i % size.width * 7 + i / size.width * 13 + seed) % 250);
  return image;
}

// Ideal cameras with the principal point at the image centre, no distortion:
// every map is the identity up to the second camera's rotation.
std::unique_ptr<dualCalibration> PreviewEngine(cv::Size size, double p2x, double p2y) {
  auto engine = std::make_unique<dualCalibration>();
  engine->chartImageSizes[0] = size.width, engine->chartImageSizes[1] = size.height;
  const double cx = 0.5 * (size.width - 1), cy = 0.5 * (size.height - 1);
  engine->K1 = (cv::Mat_<double>(3, 3) << 500, 0, cx, 0, 500, cy, 0, 0, 1);
  engine->K2 = engine->K1.clone();
  engine->D1 = cv::Mat::zeros(1, 5, CV_64F), engine->D2 = cv::Mat::zeros(1, 8, CV_64F);
  engine->mSecondRotation = cv::Mat::eye(3, 3, CV_64F);
  engine->mSecondResult.P2 = (cv::Mat_<double>(3, 4) << 500, 0, cx, p2x, 0, 500, cy, p2y, 0, 0, 1, 0);
  engine->mChartImages = {Pattern(size, 0), Pattern(size, 100)};
  return engine;
}

}  // namespace

// Both images side by side, or one above the other when the vertical
// baseline is the larger, with guide lines of value 0 every 64 pixels (2 px
// thick) across them. A quarter turn in mSecondRotation turns the second
// image by its inverse.
TEST(RectifyPreview, CanvasLayoutGuideLinesAndTheSecondRotation) {
  const struct {
    cv::Size size;
    double p2x, p2y;
    bool vertical, turned;
  } cases[] = {{{400, 300}, -30000, 100, false, false}, {{400, 300}, 200, -200, false, false},
               {{400, 300}, 100, -30000, true, false},  {{320, 320}, -100, 0, false, true}};
  for (const auto& c : cases) {
    auto engine = PreviewEngine(c.size, c.p2x, c.p2y);
    cv::Mat second = engine->mChartImages[1].clone(), expected;
    if (c.turned) {
      engine->mSecondRotation = (cv::Mat_<double>(3, 3) << 0, -1, 0, 1, 0, 0, 0, 0, 1);
      cv::rotate(second, second, cv::ROTATE_90_COUNTERCLOCKWISE);
    }
    const cv::Mat canvas = engine->buildRectifyCanvas();
    c.vertical ? cv::vconcat(engine->mChartImages[0], second, expected) : cv::hconcat(engine->mChartImages[0], second, expected);
    ASSERT_EQ(canvas.size(), expected.size());
    int ruled = 0, mismatched = 0;
    for (int y = 0; y < canvas.rows; ++y) {
      for (int x = 0; x < canvas.cols; ++x) {
        const int along = (c.vertical ? x : y) % 64;
        ruled += along == 0 && canvas.at<uint8_t>(y, x) != 0;
        mismatched += along > 1 && along < 63 && canvas.at<uint8_t>(y, x) != expected.at<uint8_t>(y, x);
      }
    }
    EXPECT_EQ(ruled + mismatched, 0) << c.p2x << " " << c.p2y;
    EXPECT_EQ(cv::norm(engine->mChartImages[1], Pattern(c.size, 100), cv::NORM_INF), 0.0);
  }
  auto engine = PreviewEngine(cv::Size(400, 300), 1.0, 0.0);
  EXPECT_NO_THROW(engine->rectifyPreview());
  engine->mSecondResult.P2 = cv::Mat();
  EXPECT_THROW(engine->buildRectifyCanvas(), cv::Exception);
  engine = PreviewEngine(cv::Size(400, 300), 1.0, 0.0);
  engine->mChartImages.pop_back();
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
      const bool inside = 150 - y >= 0 && 150 - y < 200 && x - 50 >= 0 && x - 50 < 100;
      mismatched += image.at<uint8_t>(y, x) != (inside ? source.at<uint8_t>(x - 50, 150 - y) : 0);
    }
  }
  EXPECT_EQ(mismatched, 0);
}
