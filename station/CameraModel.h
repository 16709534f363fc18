// The checks every station unit makes of a camera it is handed: a camera
// matrix and lens coefficients in OpenCV's form, whatever their storage, as
// doubles or a one-line StationError naming them.
#pragma once

#include <string>

#include <opencv2/core.hpp>

#include "station/StationError.h"

// Whether matrix is a 2-D one-channel matrix of floats or doubles.
bool IsFloatMatrix(const cv::Mat& matrix);
// K as doubles: 3x3, finite, fx and fy positive, last row 0 0 1; otherwise
// "<name> is not a 3x3 camera matrix (finite, fx and fy positive, last row 0 0 1)".
cv::Matx33d CheckedCameraMatrix(const cv::Mat& K, const std::string& name);
// D as a 1xN row of doubles: a row or column of 4, 5, 8, 12 or 14 finite
// coefficients (OpenCV's counts); otherwise
// "<name> is not a row or column of 4, 5, 8, 12 or 14 finite coefficients".
cv::Mat CheckedLensCoefficients(const cv::Mat& D, const std::string& name);
