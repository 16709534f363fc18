// The outlier rules over reprojection errors: a view is an outlier of its
// camera when its error exceeds three times the median of all the views'
// errors of that camera; a corner is, when its error exceeds five times the
// median of all the corners' errors of that camera (a good corner's error
// passes it about once in 10^7) under a pose fitted without the corners
// already found to be outliers.
#pragma once

#include <cstddef>
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

constexpr double kCornerOutlierMedianFactor = 5.0;

// What dropping outliers by corner takes out: the views (ascending) and, per
// view, the positions (ascending, within the view's corner list) of its
// outlier corners; a dropped view's list is empty.
struct CornerOutliers {
  std::vector<int32_t> views;
  std::vector<std::vector<int32_t>> corners;

  bool empty() const;
};

// kCornerOutlierMedianFactor times the median of all the corners' errors.
double CornerOutlierLimit(const std::vector<std::vector<float>>& errors);

// From each view's outlier corners (positions, ascending) and its corner
// count: a view goes whole when more than half its corners are outliers,
// the worst share first, while at least minViews views stay; the other
// views lose their outlier corners only.
CornerOutliers WholeViewsOf(std::vector<std::vector<int32_t>> corners, const std::vector<size_t>& cornerCounts,
                            int32_t minViews);
