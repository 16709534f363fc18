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

// Views with more than half their corners outliers go whole, the worst share first, while enough views stay.
TEST(ViewOutliers, WholeViewsGoWorstFirstWhileEnoughStay) {
  const std::vector<std::vector<int32_t>> corners = {{1}, {0, 1, 2}, {}, {0, 2, 3}, {0, 1, 2, 3}};
  const std::vector<size_t> counts = {4, 4, 4, 5, 4};
  const CornerOutliers two = WholeViewsOf(corners, counts, 3);
  EXPECT_EQ(two.views, (std::vector<int32_t>{1, 4}));
  EXPECT_EQ(two.corners, (std::vector<std::vector<int32_t>>{{1}, {}, {}, {0, 2, 3}, {}}));
  EXPECT_EQ(WholeViewsOf(corners, counts, 4).views, std::vector<int32_t>{4});
  EXPECT_TRUE(WholeViewsOf({{}, {}}, {4, 4}, 1).empty());
  EXPECT_FALSE(WholeViewsOf({{}, {2}}, {4, 4}, 1).empty());
  EXPECT_DOUBLE_EQ(CornerOutlierLimit({{0.1f, 0.3f}, {0.2f}}), 5.0 * 0.2f);
}
