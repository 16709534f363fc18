// Synthetic camera pairs with known geometry: a deterministic textured grey
// scene full of distinct corners, and the second camera's view of it through
// a known homography. Used by the tests and by tools that need ground truth.
#pragma once

#include <cstdint>

#include <opencv2/core.hpp>

// An 8-bit single-channel image of the given size (1000..10000 per side is
// the intended range) covered with overlapping polygons and discs of
// random grey levels, slightly blurred. The same size and seed always give
// the same bytes.
cv::Mat RenderTexturedScene(cv::Size size, uint32_t seed);

// The second camera's image of the main image: the pixel p of the result
// shows the main image at mainToSecond^-1 p (bilinear), black where the main
// image does not reach.
cv::Mat RenderSecondView(const cv::Mat& mainImage, const cv::Matx33d& mainToSecond,
                         cv::Size secondSize);

// Scale about the origin, then a rotation by rotationDeg (counter-clockwise
// in image axes, y down), then a translation by (txPx, tyPx).
cv::Matx33d SimilarityTransform(double scale, double rotationDeg, double txPx, double tyPx);
