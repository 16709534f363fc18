// Whether a fitted lens model can be trusted over the whole image: a model
// fitted only where the boards were can fold further out (the distorted
// radius stops growing with the undistorted one, or the rational denominator
// 1 + k4 r^2 + k5 r^4 + k6 r^6 reaches zero), so that two scene directions
// land on one pixel and undistortion has no unique answer, while its RMS is
// small. Such a calibration has failed.
#pragma once

#include <string>

#include <opencv2/core.hpp>

#include "station/StationError.h"

struct LensModelCheck {
  bool valid = true;
  std::string problem;                  // "" when valid; one line otherwise, the first problem found
  double foldRadiusPx = 0;              // distorted radius where the model folds or stops short; 0 when it does not
  double reachPx = 0;                   // largest distance from the principal point to an image corner
  double worstUndistortResidualPx = 0;  // over the check grid; infinite when undistortion gives no finite answer
};

// Checks a camera's lens model over its image, in this order, and reports
// the first problem:
//  1. The denominator 1 + k4 r^2 + k5 r^4 + k6 r^6 has no root for r up to
//     the image's normalised reach: the largest of the undistorted radii at
//     which the rays below leave the image and the pinhole radii
//     |K^-1 corner| of the image corners (where undistortion starts from).
//       "lens model divides by zero at normalised radius 1.0000, inside the
//        image's reach of 1.2500"
//  2. Along rays from the principal point towards the image's corners, the
//     middles of its sides and every 15 degrees, each undistorted ray mapped
//     through the model moves outward (its rate along the ray and the
//     Jacobian determinant of the forward map stay positive) until it leaves
//     the image ([-0.5, width - 0.5] x [-0.5, height - 0.5]); the smallest
//     distorted radius where it stops doing so is foldRadiusPx.
//       "lens model folds 496.9 px from the principal point, inside the
//        image (its corners reach 1250.0 px)"
//     A ray still inside the image 89 degrees off the axis stops short:
//       "lens model stops 1180.2 px from the principal point, short of the
//        image border (its corners reach 1250.0 px)"
//  3. Every point of a 17 x 13 grid over the image, corners included (whole
//     pixels), undistorted by cv::undistortPoints for 200 iterations and
//     distorted again, lands within 0.01 px of itself.
//       "undistortion does not converge at (0, 0): 3.200 px off after 200
//        iterations" (or ": no finite answer after 200 iterations")
// The figures are filled whatever the outcome. K is a 3x3 camera matrix
// (finite, fx and fy positive, last row 0 0 1) and D a row or column of 4, 5,
// 8, 12 or 14 finite coefficients in OpenCV's order, either in float or
// double. Throws StationError with one line, "K is not ...", "D is not ..."
// or "image size 0x1500 is not positive", for other input; throws nothing
// else. The caller names the camera.
LensModelCheck CheckLensModel(const cv::Mat& K, const cv::Mat& D, cv::Size imageSize);
