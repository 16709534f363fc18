#include "chart/ViewOutliers.h"

#include <algorithm>

namespace {

constexpr double kOutlierMedianFactor = 3.0;

double Median(std::vector<float> values) {
  if (values.empty()) return 0.0;
  const size_t middle = values.size() / 2;
  std::nth_element(values.begin(), values.begin() + middle, values.end());
  const double upper = values[middle];
  if (values.size() % 2 == 1) return upper;
  const double lower = *std::max_element(values.begin(), values.begin() + middle);
  return 0.5 * (lower + upper);
}

}  // namespace

double ViewOutlierLimit(const std::vector<float>& errors) { return kOutlierMedianFactor * Median(errors); }

std::vector<bool> ViewOutliers(const std::vector<float>& errors) {
  const double limit = ViewOutlierLimit(errors);
  std::vector<bool> outliers;
  for (float error : errors) outliers.push_back(error > limit);
  return outliers;
}
