// The outlier rule over per-view reprojection errors: a view is an outlier
// of its camera when its error exceeds three times the median of all the
// views' errors of that camera.
#pragma once

#include <cstdint>
#include <vector>

constexpr double kOutlierMedianFactor = 3.0;

// Three times the median of errors (the mean of the two middle values for an
// even count); 0 without errors.
double ViewOutlierLimit(const std::vector<float>& errors);

// Per view: true when its error is strictly above ViewOutlierLimit(errors).
std::vector<bool> ViewOutliers(const std::vector<float>& errors);

// Ascending indices of the views that are outliers of either camera.
std::vector<int32_t> OutlierViewsOfEitherCamera(const std::vector<float>& errors1, const std::vector<float>& errors2);
