// Exact pixel-area coverage of polygons of any shape, convex or not, by the
// signed-area accumulation of font rasterisers: each edge adds the signed
// area it sweeps to the cells of the rows it crosses, and a running sum
// along each row turns that into the covered share of each pixel. The cost
// is the outline's length plus one pass over the image. Pixel centres lie on
// integer coordinates, pixel (x, y) covering [x - 0.5, x + 0.5) x [y - 0.5, y + 0.5).
#pragma once

#include <vector>

#include <opencv2/core.hpp>

// The area of a closed polygon, positive when its vertices run
// counter-clockwise in x-right, y-up axes (clockwise on the image).
double SignedArea(const std::vector<cv::Point2d>& polygon);

class CoverageRaster {
 public:
  explicit CoverageRaster(cv::Size size);

  // Adds a closed polygon of three or more vertices, in either orientation;
  // polygons added to one raster must not overlap. Parts outside the image
  // are cut off.
  void AddPolygon(const std::vector<cv::Point2d>& polygon);

  // The covered share of every pixel: CV_32F, 0 to 1.
  cv::Mat Coverage() const;

 private:
  void AddEdge(const cv::Point2d& from, const cv::Point2d& to, double direction);
  void AddInsideEdge(cv::Point2d from, cv::Point2d to, double direction);

  cv::Size size_;
  cv::Mat cells_;  // CV_32F, one row per image row, two spare cells on the right
};
