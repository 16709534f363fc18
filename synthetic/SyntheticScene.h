// Synthetic camera pairs with known geometry: a deterministic textured grey
// scene full of distinct corners, and the second camera's view of it through
// a known homography. Used by the tests and by tools that need ground truth.
#pragma once

#include <cstdint>

#include <opencv2/core.hpp>

#include "api/CalibrationRecord.h"

// An 8-bit single-channel image of the given size (1000..10000 per side is
// the intended range) covered with overlapping polygons and discs of
// random grey levels, slightly blurred. The same size and seed always give
// the same bytes.
cv::Mat RenderTexturedScene(cv::Size size, uint32_t seed);

// A tile of tilePx x tilePx random grey levels repeated over an image of the
// given size: a fine periodic texture on which many corner scores tie.
cv::Mat RenderPeriodicTexture(cv::Size size, int tilePx, uint32_t seed);

// The second camera's image of the main image: the pixel p of the result
// shows the main image at mainToSecond^-1 p (bilinear), black where the main
// image does not reach.
cv::Mat RenderSecondView(const cv::Mat& mainImage, const cv::Matx33d& mainToSecond,
                         cv::Size secondSize);

// Scale about the origin, then a rotation by rotationDeg (counter-clockwise
// in image axes, y down), then a translation by (txPx, tyPx).
cv::Matx33d SimilarityTransform(double scale, double rotationDeg, double txPx, double tyPx);

// A calibration pair with its ground truth: the second image is the main
// image seen through mainToSecond, and the record's H_OTP is off from
// mainToSecond by recordOffset (H_OTP = mainToSecond * recordOffset, rounded
// to binary32 as a record holds it). The estimate that maps the aligned
// second image onto the main image is then mainToSecond^-1 * H_OTP, which is
// recordOffset up to the rounding.
struct SyntheticPair {
  cv::Mat mainImage;
  cv::Mat secondImage;
  RecordHomography hOtp;
  cv::Matx33d expectedEstimate;
};

SyntheticPair RenderSyntheticPair(cv::Size size, uint32_t seed, const cv::Matx33d& mainToSecond,
                                  const cv::Matx33d& recordOffset);
