// The rectification preview and the quarter turn of dualCalibration.
#include "tests/support/TestPrelude.h"

#include <opencv2/imgproc.hpp>

#include "engine/dualCalibration.h"

namespace {

// Values 1 to 255: the guide lines' 0 appears nowhere else.
cv::Mat Noise(cv::Size size, uint64_t seed) {
  cv::Mat image(size, CV_8UC1);
  cv::RNG(seed).fill(image, cv::RNG::UNIFORM, 1, 256);
  return image;
}

}  // namespace

// Cameras without distortion leave each half its image, the second turned by the inverse of mSecondRotation and moved
// left by its camera centre's shift, black where it leaves the image; the larger translation in P2 sets the layout.
TEST(RectifyPreview, CanvasLayoutGuideLinesAndTheSecondRotation) {
  const struct {
    cv::Size size;
    double p2x, p2y, shift;
    bool vertical, turned;
  } cases[] = {{{400, 300}, -30000, 100, 0, false, false}, {{400, 300}, 200, -200, 8, false, false},  // a tie lies side by side
               {{400, 300}, 100, -30000, 0, true, false}, {{320, 320}, -100, 0, 0, false, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.p2x << " " << c.p2y);
    auto engine = std::make_unique<dualCalibration>();
    engine->chartImageSizes[0] = c.size.width, engine->chartImageSizes[1] = c.size.height;
    const double cx = 0.5 * (c.size.width - 1), cy = 0.5 * (c.size.height - 1);
    engine->K1 = (cv::Mat_<double>(3, 3) << 500, 0, cx, 0, 500, cy, 0, 0, 1);
    engine->K2 = (cv::Mat_<double>(3, 3) << 500, 0, cx + c.shift, 0, 500, cy, 0, 0, 1);
    engine->mSecondRotation = c.turned ? cv::Mat(cv::Matx33d(0, -1, 0, 1, 0, 0, 0, 0, 1)) : cv::Mat::eye(3, 3, CV_64F);
    engine->mSecondResult.P2 = (cv::Mat_<double>(2, 4) << 500, 0, cx, c.p2x, 0, 500, cy, c.p2y);  // the rows it reads
    engine->mChartImages = {Noise(c.size, 1), Noise(c.size, 2)};
    cv::Mat second = Noise(c.size, 2), expected;
    if (c.turned) cv::rotate(second, second, cv::ROTATE_90_COUNTERCLOCKWISE);
    cv::warpAffine(second, second, cv::Matx23d(1, 0, -c.shift, 0, 1, 0), c.size);
    c.vertical ? cv::vconcat(engine->mChartImages[0], second, expected) : cv::hconcat(engine->mChartImages[0], second, expected);
    // Guide lines every 64 px across both halves; cv::line's 2 px thickness covers at - 1 to at + 1.
    for (int at = 0; at < (c.vertical ? expected.cols : expected.rows); at += 64) {
      const cv::Range band(std::max(at - 1, 0), at + 2);
      (c.vertical ? expected.colRange(band) : expected.rowRange(band)).setTo(0);
    }
    const cv::Mat canvas = engine->buildRectifyCanvas();
    EXPECT_EQ(canvas.size() == expected.size() ? cv::norm(canvas, expected, cv::NORM_INF) : -1.0, 0.0);
    EXPECT_EQ(cv::norm(engine->mChartImages[1], Noise(c.size, 2), cv::NORM_INF), 0.0);
    EXPECT_NO_THROW(engine->rectifyPreview());
    engine->mSecondResult.P2 = cv::Mat();
    EXPECT_THROW(engine->buildRectifyCanvas(), cv::Exception);
  }
  EXPECT_THROW(std::make_unique<dualCalibration>()->buildRectifyCanvas(), cv::Exception);
}

// The turn keeps the old centre (100, 50): source (x, y) lands on (y + 50, 149 - x) after the size swap.
TEST(RotateImage90, SwapsTheSizeAndTurnsAboutTheOldCentre) {
  const cv::Mat source = Noise(cv::Size(200, 100), 5);
  cv::Mat image = source.clone(), turned, expected = cv::Mat::zeros(200, 100, CV_8UC1);
  std::make_unique<dualCalibration>()->rotateImage90(image);
  cv::rotate(source, turned, cv::ROTATE_90_COUNTERCLOCKWISE);
  turned(cv::Rect(0, 49, 50, 151)).copyTo(expected(cv::Rect(50, 0, 50, 151)));
  EXPECT_EQ(cv::norm(image, expected, cv::NORM_INF), 0.0);
}
