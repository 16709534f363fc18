// A stereo calibration as a station delivers, checks and exchanges it: both
// cameras' intrinsics and lens distortion, and the second camera's pose in
// the main camera's frame (a point x in main-camera coordinates is R x + T
// in second-camera coordinates, OpenCV's stereoCalibrate convention).
#pragma once

#include <opencv2/core.hpp>

struct StereoCalibration {
  cv::Size imageSize;      // both cameras' images, pixels
  cv::Mat K1, K2;          // 3x3 CV_64F camera matrices, main and second
  cv::Mat D1, D2;          // 1xN CV_64F, OpenCV's order (k1, k2, p1, p2[, k3[, k4, k5, k6]])
  cv::Mat R;               // 3x3 CV_64F
  cv::Vec3d T;             // in the unit of the board's square size, or mm
};
