// Feature-point calibration of an image pair: the pieces of
// dualCalibration::calibrationDetectPoint that stand on their own, and the
// report in which the operation can hand its intermediate results to a tool.
#pragma once

#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>

// Intermediate results of one calibrationDetectPoint call, filled as far as
// the call gets. The exported entry point never asks for it.
struct FeaturePointReport {
  // Input: keep the image drawn with the good matches in matchesImage.
  bool keepMatchesImage = false;
  // Keypoints of the main and the aligned second image, after description.
  int32_t keypoints1 = 0;
  int32_t keypoints2 = 0;
  int32_t goodMatches = 0;
  // A (2x3): maps aligned-second points to main points; empty when the
  // robust fit found no model.
  cv::Mat estimate;
  // [A; 0 0 1] with the fOffsetX correction; empty with an empty estimate.
  cv::Mat correctedH;
  // Scale-and-translation matrix when the constraints are met, else identity.
  cv::Mat refinedH;
  bool constraintsMet = false;
  cv::Mat matchesImage;
};

// A match is kept when nearest / second-nearest distance, in single
// precision, is strictly below this (binary32 0x3F2AAAAB).
constexpr float kRatioTestLimit = 2.0f / 3.0f;

// Ratio test over k-nearest-neighbour lists: keeps, in query order, the
// nearest match of every list whose ratio passes. A list with fewer than two
// entries does not pass, and neither does 0/0.
std::vector<cv::DMatch> SelectGoodMatches(const std::vector<std::vector<cv::DMatch>>& knnMatches);

struct HomographyRefinement {
  cv::Mat correctedH;  // see FeaturePointReport
  bool constraintsMet = false;
  cv::Mat refinedH;
};

// From the 2x3 CV_64F estimate A: adds offsetX / -100 (hundredths of a pixel,
// divided in single precision) to a02, forms the 3x3 matrix and checks it,
// in this order and strictly: |h00 - 1| < s, |h11 - 1| < s, |h12| < offsetYLimitPx,
// |h02| < offsetXLimitPx, with s = scaleToleranceHundredths / 100 rounded to
// binary32. When met, h00 = h11 = sqrt(h10^2 + h11^2) and h01 = h10 = 0;
// otherwise refinedH is the identity. Any other estimate (empty included)
// fails the check and gives no correctedH.
HomographyRefinement RefineHomography(const cv::Mat& estimate, float offsetX,
                                      int32_t scaleToleranceHundredths, int32_t offsetXLimitPx,
                                      int32_t offsetYLimitPx);
