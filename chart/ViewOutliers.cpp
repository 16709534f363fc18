#include "chart/ViewOutliers.h"

#include <algorithm>

float OutlierLimit(const std::vector<float>& errors) {
  if (errors.empty()) return 0.0f;
  std::vector<float> sorted = errors;
  std::sort(sorted.begin(), sorted.end());
  const size_t middle = sorted.size() / 2;
  const float median = sorted.size() % 2 == 1 ? sorted[middle] : 0.5f * (sorted[middle - 1] + sorted[middle]);
  return kOutlierMedianFactor * median;
}

std::vector<int32_t> ViewOutliers(const std::vector<float>& errors1, const std::vector<float>& errors2) {
  const float limit1 = OutlierLimit(errors1);
  const float limit2 = OutlierLimit(errors2);
  std::vector<int32_t> outliers;
  for (size_t k = 0; k < std::max(errors1.size(), errors2.size()); ++k) {
    const bool far1 = k < errors1.size() && errors1[k] > limit1;
    const bool far2 = k < errors2.size() && errors2[k] > limit2;
    if (far1 || far2) outliers.push_back(static_cast<int32_t>(k));
  }
  return outliers;
}
