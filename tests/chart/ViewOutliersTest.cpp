#include <gtest/gtest.h>

#include <vector>

#include "chart/ViewOutliers.h"

TEST(ViewOutliers, ThreeTimesTheMedianIsTheLimit) {
  struct Case {
    std::vector<float> errors;
    double limit;
    std::vector<bool> outliers;
  };
  const Case cases[] = {
      {{}, 0.0, {}},
      {{0.5f}, 1.5, {false}},
      {{0.1f, 0.2f, 0.9f}, 0.6000000089406967, {false, false, true}},
      // Even count: the mean of the two middle values, 0.25 and 0.375.
      {{0.375f, 0.125f, 1.0f, 0.25f}, 0.9375, {false, false, true, false}},
      // Exactly at the limit is not an outlier.
      {{1.0f, 1.0f, 3.0f}, 3.0, {false, false, false}},
  };
  for (const Case& c : cases) {
    EXPECT_DOUBLE_EQ(ViewOutlierLimit(c.errors), c.limit) << c.errors.size();
    EXPECT_EQ(ViewOutliers(c.errors), c.outliers) << c.errors.size();
  }
  // A view that is an outlier in one camera only counts; the shorter list ends early.
  EXPECT_EQ(OutlierViewsOfEitherCamera({0.1f, 0.2f, 0.9f, 0.1f}, {0.9f, 0.2f, 0.2f}), (std::vector<int32_t>{0, 2}));
}
