// Checks a stereo calibration against board corners detected in pairs of
// images, which need not be the pairs it was calibrated from. The figure
// depth rests on is the row error: rectified with the calibration, a corner
// must land on the same row in both images. Beside it the epipolar error of
// the unrectified corners (what OpenCV's stereo sample prints) and a map of
// the row error over the main image.
#pragma once

#include <cstddef>
#include <vector>

#include <opencv2/core.hpp>

#include "station/StationError.h"
#include "station/StereoCalibration.h"

// Root mean square, 95th percentile and largest of a set of non-negative
// errors, in pixels, and how many there are. The percentile is the nearest
// rank: the ceil(0.95 n)-th smallest error. An error that cannot be computed
// (a corner the lens model cannot undistort) counts as infinite.
struct ErrorFigures {
  double rms = 0, p95 = 0, max = 0;
  size_t count = 0;
};

struct StereoVerification {
  std::vector<std::vector<float>> rowErrors;  // per view and corner, second minus main, rectified px
  std::vector<ErrorFigures> viewRowErrors;    // per view, of |row error|
  ErrorFigures rowError;                      // all corners, of |row error|
  ErrorFigures epipolarError;                 // all corners, px
};

// Rectifies both views of every pair as cv::stereoRectify does with
// CALIB_ZERO_DISPARITY and alpha -1 (the rectified focal length and image
// size are the calibration's own), each corner undistorted until it
// reprojects within 1e-9 px or for 100 iterations, and measures:
//   row error: rectified y of the second corner minus that of the main one;
//   epipolar error: with both corners undistorted to pixels of their own
//   camera and F = K2^-T [T]x R K1^-1, the mean of the second corner's
//   distance to the line F x1 and the main corner's distance to F^T x2.
// mainCorners[v][i] and secondCorners[v][i] are the same board corner in
// view v. Throws StationError with one line, views and corners counted from
// 1, when there is no view, the two lists differ in views or a view in
// corners, a view has no corner, a corner is not finite or lies outside the
// image ([-0.5, width - 0.5] x [-0.5, height - 0.5]), or the calibration is
// not one: a positive image size; 3x3 camera matrices (finite, fx and fy
// positive, last row 0 0 1); D empty or a row or column of 4, 5, 8, 12 or 14
// finite coefficients; R a rotation; T finite and not zero. Throws nothing
// else.
StereoVerification VerifyStereo(const StereoCalibration& calibration,
                                const std::vector<std::vector<cv::Point2f>>& mainCorners,
                                const std::vector<std::vector<cv::Point2f>>& secondCorners);

// The map's grid over the main image: columns across, rows down.
constexpr int kRowErrorMapColumns = 16;
constexpr int kRowErrorMapRows = 12;

// Where RowErrorMap draws the main image's area: scaled to fit 800 x 800 px
// (each side at least 48 px), below the title line. Cell (c, r) spans
// [c * width / 16, (c + 1) * width / 16) across it (integer division), and
// the same down it with 12 rows.
cv::Rect RowErrorMapArea(cv::Size imageSize);

// A BGR picture of the row error over the main image: each cell of the grid
// coloured by the RMS |row error| of the corners whose main-image position
// lies in it, on a colour bar from 0 px to a round value at or above the
// largest cell, marked in px; cells without a corner grey with a cross. The
// title line gives the RMS, 95th percentile and largest |row error| and how
// many corners and views they come from. The same input gives the same
// bytes. Throws StationError as VerifyStereo does for the image size and
// the main corners, and when verification holds other views or corner
// counts than mainCorners.
cv::Mat RowErrorMap(const StereoCalibration& calibration, const std::vector<std::vector<cv::Point2f>>& mainCorners,
                    const StereoVerification& verification);
