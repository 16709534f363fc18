#include "chart/ViewOutliers.h"

#include <algorithm>
#include <numeric>
#include <utility>

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

bool CornerOutliers::empty() const {
  return views.empty() && std::all_of(corners.begin(), corners.end(), [](const auto& c) { return c.empty(); });
}

double CornerOutlierLimit(const std::vector<std::vector<float>>& errors) {
  std::vector<float> all;
  for (const std::vector<float>& view : errors) all.insert(all.end(), view.begin(), view.end());
  return kCornerOutlierMedianFactor * Median(all);
}

CornerOutliers WholeViewsOf(std::vector<std::vector<int32_t>> corners, const std::vector<size_t>& cornerCounts,
                            int32_t minViews) {
  const size_t views = std::min(corners.size(), cornerCounts.size());
  CornerOutliers outliers;
  corners.resize(views);
  outliers.corners = std::move(corners);
  std::vector<double> badShare(views, 0.0);
  for (size_t v = 0; v < views; ++v) {
    if (cornerCounts[v] > 0) badShare[v] = static_cast<double>(outliers.corners[v].size()) / cornerCounts[v];
  }
  std::vector<int32_t> order(views);
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(), [&](int32_t a, int32_t b) { return badShare[a] > badShare[b]; });
  for (const int32_t v : order) {
    if (badShare[v] <= 0.5 || static_cast<int32_t>(views - outliers.views.size()) <= minViews) break;
    outliers.views.push_back(v);
    outliers.corners[v].clear();
  }
  std::sort(outliers.views.begin(), outliers.views.end());
  return outliers;
}
