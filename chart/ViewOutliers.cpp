#include "chart/ViewOutliers.h"

#include <algorithm>

namespace {

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

std::vector<int32_t> OutlierViewsOfEitherCamera(const std::vector<float>& errors1, const std::vector<float>& errors2) {
  const std::vector<bool> outliers1 = ViewOutliers(errors1);
  const std::vector<bool> outliers2 = ViewOutliers(errors2);
  std::vector<int32_t> views;
  for (size_t k = 0; k < std::max(outliers1.size(), outliers2.size()); ++k) {
    if ((k < outliers1.size() && outliers1[k]) || (k < outliers2.size() && outliers2[k])) {
      views.push_back(static_cast<int32_t>(k));
    }
  }
  return views;
}
