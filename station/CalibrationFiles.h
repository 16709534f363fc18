// A stereo calibration in the files other tools read without glue, and back.
//
// OpenCV: intrinsics.yml and extrinsics.yml as OpenCV's stereo calibration
// sample writes and reads them (cv::FileStorage YAML): M1 D1 M2 D2 in the
// first, with image_width and image_height beside them; R T R1 R2 P1 P2 Q in
// the second, T a 3x1 matrix, R1 to Q from cv::stereoRectify with
// CALIB_ZERO_DISPARITY and alpha -1. Numbers keep every bit of a double.
//
// ROS: one camera_info YAML per camera as camera_calibration_parsers reads
// it, with the rectification and projection of that same cv::stereoRectify.
//
// Every function returns text and writes nothing: the caller stores it
// through the run's committed outputs. Every failure is a StationError with
// one line: "<path>: <what is wrong>" for a file read, "stereo calibration:
// <what is wrong>" for a calibration that cannot be written.
#pragma once

#include <cstdint>
#include <string>

#include "station/StationError.h"
#include "station/StereoCalibration.h"

// Largest intrinsics or extrinsics file read.
constexpr uintmax_t kMaxCalibrationFileBytes = uintmax_t{1} << 20;

struct OpenCvCalibrationText {
  std::string intrinsics;  // intrinsics.yml
  std::string extrinsics;  // extrinsics.yml
};

// Both files' contents. Throws unless K1, K2 and R are 3x3, D1 and D2 hold
// 4, 5, 8, 12 or 14 coefficients (one row or one column), every number is
// finite, the image size is positive and cv::stereoRectify gives a finite
// rectification (it gives none for T = 0 or a zero focal length).
OpenCvCalibrationText OpenCvCalibrationYaml(const StereoCalibration& calibration);

// Parses the two files' contents; the paths name them in messages. Requires
// M1 and M2 3x3, D1 and D2 with 4, 5, 8, 12 or 14 coefficients in one row or
// one column (returned as 1xN), R 3x3 and T of 3 elements, all finite; R1
// to Q are not read. The image size comes from image_width and image_height
// when the intrinsics hold them, else it is left 0x0 for the caller to take
// from its images.
StereoCalibration ParseOpenCvCalibration(const OpenCvCalibrationText& text, const std::string& intrinsicsPath,
                                         const std::string& extrinsicsPath);
// Reads both files, each a regular file of at most kMaxCalibrationFileBytes,
// and parses them as above.
StereoCalibration ReadOpenCvCalibration(const std::string& intrinsicsPath, const std::string& extrinsicsPath);

// The camera_info YAML of camera 0 (main: K1, D1, R1, P1) or 1 (second: K2,
// D2, R2, P2), named cameraName (letters, digits and underscores). Up to 5
// coefficients are written as plumb_bob, padded with zeros to 5, and 8 as
// rational_polynomial; more (thin prism, tilt) have no ROS model and throw,
// as do the faults OpenCvCalibrationYaml refuses. Numbers are written in the
// shortest form that reads back as the same double, so the text is the same
// byte for byte on every platform that computes the same rectification.
std::string RosCameraInfoYaml(const StereoCalibration& calibration, int camera, const std::string& cameraName);

// What undistorts and rectifies one camera's frames with the warp's radial
// model (qlm-calib warp-yuv): the camera's fx, fy, cx, cy; k1, k2, k3 of its
// lens (p1, p2 and the rational terms have no place in that model and are
// left out, their largest magnitude kept in leftOut); the rectifying
// rotation R1 or R2 row by row; and the rectified camera from P1 or P2.
// Camera 0 is the main one. Refuses what OpenCvCalibrationYaml refuses.
struct RectifyingWarp {
  double sourceCamera[4], targetCamera[4], radial[3], rotation[9];
  double leftOut = 0.0;
};
RectifyingWarp RectifyingWarpOf(const StereoCalibration& calibration, int camera);
