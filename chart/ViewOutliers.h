// Views whose reprojection error stands far above the rest of the set.
#pragma once

#include <cstdint>
#include <vector>

// A view is an outlier when its error exceeds this many times the median
// view error of its camera.
constexpr float kOutlierMedianFactor = 3.0f;

// kOutlierMedianFactor times the median of errors (the mean of the middle
// two for an even count); 0 without errors.
float OutlierLimit(const std::vector<float>& errors);

// Ascending indices of the views whose error in errors1 or in errors2 is
// above that list's OutlierLimit.
std::vector<int32_t> ViewOutliers(const std::vector<float>& errors1, const std::vector<float>& errors2);
