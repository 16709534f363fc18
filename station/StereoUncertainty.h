// How sure the stereo stage's result is: the stage's solve run again with
// views left out (a jackknife over the views), giving how far each left-out
// group moves the baseline, the angles and the focal lengths, and the
// jackknife standard deviations of those parameters.
#pragma once

#include <cstddef>
#include <vector>

#include <opencv2/core.hpp>

#include "station/StationError.h"

// What the stereo stage solves from: the views and its starting point.
struct StereoSolveInput {
  std::vector<std::vector<cv::Point3f>> objectPoints;
  std::vector<std::vector<cv::Point2f>> imagePoints1, imagePoints2;  // main, second; same views and corner counts
  cv::Size imageSize;   // main image
  cv::Mat K1, K2;       // the stereo stage's starting matrices (the mono stage's result)
  int flags = 0;        // cv::stereoCalibrate flags, as the stage uses them
};

// The parameters a stereo solve delivers, as the station reports them.
struct StereoParameters {
  cv::Vec3d T;                 // translation, unit of the board's squares
  cv::Vec3d anglesDeg;         // x, y, z, the engine's Euler convention (rotationToEulerAngles), degrees
  cv::Vec4d camera1, camera2;  // fx, fy, cx, cy of each camera
};

struct StereoUncertainty {
  // Folds solved: one per view up to maxGroups views, else maxGroups, each
  // leaving out an interleaved group of views.
  size_t groups = 0;
  std::vector<StereoParameters> folds;  // each fold's solve without its group
  StereoParameters stdDev;              // jackknife standard deviations: sqrt((g-1)/g * sum (x_i - mean)^2)
  StereoParameters largestShift;        // largest |fold - full solve| per parameter
};

// The stereo stage's solve: cv::stereoCalibrate from K1 and K2 with both
// distortion rows 1x8 zeros, input.flags, and at most 100 iterations or a
// relative change under 1e-5. Throws StationError with one line starting
// "stereo solve", views and points counted from 1, when there is no view,
// the three lists differ in views or a view in points, a view has fewer
// than 4 points, a point is not finite, the image size is not positive,
// K1 or K2 is not a 3x3 camera matrix (finite, fx and fy positive, last row
// 0 0 1), or the solve fails (an OpenCV error, with its message, or a
// result that is not finite). Throws nothing else.
StereoParameters SolveStereo(const StereoSolveInput& input);

// The jackknife: the full solve, then g = min(views, maxGroups) folds, view
// v (from 0) in group v % g, fold k the solve without group k's views.
// Angle differences are taken modulo 360 degrees, so a spread across 180
// degrees stays small. Throws StationError as SolveStereo does but starting
// "stereo uncertainty", and when there are fewer than 5 views or maxGroups
// is under 2. A fold whose solve fails fails the whole estimate, its message
// naming the views the fold left out: without every fold the jackknife
// standard deviations have no meaning.
StereoUncertainty EstimateStereoUncertainty(const StereoSolveInput& input, size_t maxGroups = 20);
