// OpenCV's radial-tangential lens model (the 4-, 5- and 8-coefficient forms;
// 8 is the rational model) on normalised image coordinates, as the chart
// renderer draws through it: the forward map, its inverse, and the radius up
// to which the radial part keeps growing, beyond which the polynomial folds
// back and no longer stands for a real lens.
#pragma once

#include <opencv2/core.hpp>

// k1, k2, p1, p2, k3, k4, k5, k6 in OpenCV's order; all zero is a pinhole.
using DistortionCoefficients = cv::Vec<double, 8>;

bool HasDistortion(const DistortionCoefficients& coefficients);

// The distorted normalised point of the undistorted point p, as
// cv::projectPoints computes it.
cv::Point2d DistortNormalised(const DistortionCoefficients& coefficients, const cv::Point2d& p);

// The undistorted normalised point whose distortion is distorted, by Newton
// steps from distorted itself; exact to 1e-12 inside the monotonic radius.
cv::Point2d UndistortNormalised(const DistortionCoefficients& coefficients, const cv::Point2d& distorted);

// The largest normalised radius, at most kMaxNormalisedRadius, up to which
// r * radial(r) grows with r (tangential terms left out).
constexpr double kMaxNormalisedRadius = 6.0;
double MonotonicRadius(const DistortionCoefficients& coefficients);
