// The stereo calibration in the conventions of Android's camera2 static
// metadata (android.lens.*), one entry per camera, the main camera being the
// primary camera that the poses refer to.
//
// Conventions: android.lens.poseRotation is the unit quaternion (x, y, z, w)
// of the rotation R with p_camera = R * p_sensor, from the Android sensor
// coordinate axes (x right, y up, z out of the screen in the device's natural
// orientation) to the camera's axes (x along the image rows, y down the
// columns, z along the optical axis). android.lens.poseTranslation is the
// camera's optical centre in metres in the sensor axes, measured from the
// primary camera's optical centre, so that p_camera = R * (p - t).
// android.lens.intrinsicCalibration is [fx, fy, cx, cy, s] with pixel
// centres at half-integer coordinates (OpenCV's at integers: cx + 0.5), and
// android.lens.distortion is [k1, k2, k3, p1, p2].
#pragma once

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

class dualCalibration;

// Unit quaternion (x, y, z, w) with w >= 0 of a rotation matrix.
cv::Vec4d QuaternionOf(const cv::Matx33d& rotation);

// The rotation from the sensor axes to a back camera's axes whose images
// need sensorOrientationDeg (0, 90, 180 or 270) clockwise to stand upright in
// the device's natural orientation.
cv::Matx33d BackCameraRotation(int sensorOrientationDeg);

// Entries "main" and "second" from the engine's K1, D1, K2, D2, R and mT.
// mT is in units of nSquareSize, taken as millimetres unless squareMm > 0
// gives the real size of a square. The main camera is mounted as
// BackCameraRotation(sensorOrientationDeg) says. Throws StationError when
// nSquareSize is 0 (no scale).
nlohmann::json AndroidMetadataJson(const dualCalibration& engine, double squareMm, int sensorOrientationDeg);
