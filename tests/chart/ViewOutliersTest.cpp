#include "tests/support/TestPrelude.h"

#include "chart/ViewOutliers.h"

TEST(ViewOutliers, ThreeTimesTheMedianIsTheLimit) {
  for (const auto& c : CaseRows("chart/ViewOutliers.txt")) {
    const std::vector<double> values = Numbers(c[0]), flags = Numbers(c[2]);
    const std::vector<float> errors(values.begin(), values.end());
    EXPECT_DOUBLE_EQ(ViewOutlierLimit(errors), std::stod(c[1])) << c[0];
    EXPECT_EQ(ViewOutliers(errors), std::vector<bool>(flags.begin(), flags.end())) << c[0];
  }
  // A view that is an outlier in one camera only counts; the shorter list ends early.
  EXPECT_EQ(OutlierViewsOfEitherCamera({0.1f, 0.2f, 0.9f, 0.1f}, {0.9f, 0.2f, 0.2f}), (std::vector<int32_t>{0, 2}));
}
