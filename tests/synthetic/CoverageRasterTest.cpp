#include "synthetic/CoverageRaster.h"

#include "tests/support/TestPrelude.h"

#include <opencv2/imgproc.hpp>

namespace {

// The covered share of pixel (x, y) by brute force: 256 x 256 samples tested with pointPolygonTest.
double SampledShare(const std::vector<cv::Point2d>& polygon, int x, int y) {
  std::vector<cv::Point2f> contour(polygon.begin(), polygon.end());
  int inside = 0;
  for (int sy = 0; sy < 256; ++sy) {
    for (int sx = 0; sx < 256; ++sx) {
      const cv::Point2f p(x - 0.5f + (sx + 0.5f) / 256, y - 0.5f + (sy + 0.5f) / 256);
      inside += cv::pointPolygonTest(contour, p, false) > 0;
    }
  }
  return inside / 65536.0;
}

}  // namespace

// A non-convex outline (an arrow with a notch), partly outside the image: each pixel takes its exact share, and a
// second polygon beside it, a rectangle on pixel boundaries, adds exactly its own area.
TEST(CoverageRaster, EveryPixelTakesItsShareOfAnyOutline) {
  const std::vector<cv::Point2d> arrow = {{-3.3, 2.2}, {6.7, 4.9}, {3.1, 6.05}, {9.45, 11.6}, {2.2, 8.3}, {1.1, 12.7}};
  CoverageRaster raster({12, 10});
  raster.AddPolygon(arrow);
  const cv::Mat coverage = raster.Coverage();
  for (int y = 0; y < coverage.rows; ++y) {
    for (int x = 0; x < coverage.cols; ++x) {
      EXPECT_NEAR(coverage.at<float>(y, x), SampledShare(arrow, x, y), 0.01) << x << " " << y;
    }
  }
  CoverageRaster both({12, 10});
  both.AddPolygon(arrow);
  both.AddPolygon({{7.5, 0.5}, {10.5, 0.5}, {10.5, 2.5}, {7.5, 2.5}});
  cv::Mat rectangle = both.Coverage() - coverage;
  EXPECT_EQ(cv::countNonZero(rectangle(cv::Rect(8, 1, 3, 2)) == 1.0f) + cv::countNonZero(rectangle), 12);
}
