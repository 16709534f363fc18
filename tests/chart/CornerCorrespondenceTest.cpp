#include "tests/support/TestPrelude.h"

#include "engine/dualCalibration.h"

namespace {

using Corners = std::vector<cv::Point2f>;

// A slightly perspective w x h grid, row by row, optionally through a homography.
Corners Grid(int w, int h, const cv::Matx33d& H = cv::Matx33d::eye()) {
  Corners corners;
  for (int i = 0; i < w * h; ++i) {
    const cv::Vec3d p = H * cv::Vec3d(100.0 + 50.0 * (i % w) + 2.0 * (i / w), 80.0 + 48.0 * (i / w) + 0.5 * (i % w), 1.0);
    corners.emplace_back(static_cast<float>(p[0] / p[2]), static_cast<float>(p[1] / p[2]));
  }
  return corners;
}

}  // namespace

// Both output lists are appended to: each case starts them with a marker.
TEST(CornerCorrespondence, NearestPairingByNormalisedPosition) {
  const Corners grid = Grid(9, 6), scaled = Grid(9, 6, {3, 0, 700, 0, 3, -40, 0, 0, 1});
  Corners shuffled = scaled;
  std::rotate(shuffled.begin(), shuffled.begin() + 17, shuffled.end());
  std::swap(shuffled[3], shuffled[40]);
  const struct {
    Corners first, second, expected;
    const char* printed;
  } cases[] = {
      {grid, shuffled, scaled, ""},
      {{}, grid, {}, ""},
      // No spread in x: every distance is NaN, each corner is missed and keeps the match so far, (0, 0).
      {{{0, 0}, {1, 2}, {2, 1}}, {{5, 0}, {5, 1}, {5, 2}}, Corners(3, {0, 0}), "missed\nmissed\nmissed\n"},
      // Searched only as far as it reaches; ties go to the lower index.
      {{{0, 0}, {10, 0}, {0, 10}, {10, 10}}, {{0, 0}, {10, 10}}, {{0, 0}, {0, 0}, {0, 0}, {10, 10}},
       "multiple shoot\nmultiple shoot\n"},
  };
  for (const auto& c : cases) {
    auto engine = std::make_unique<dualCalibration>();
    Corners matched1 = {{-1, -1}}, matched2 = {{-2, -2}}, expected1 = matched1, expected2 = matched2;
    testing::internal::CaptureStdout();
    EXPECT_EQ(engine->matchCornerOrder(c.first, c.second, matched1, matched2), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), c.printed);
    expected1.insert(expected1.end(), c.first.begin(), c.first.end());
    expected2.insert(expected2.end(), c.expected.begin(), c.expected.end());
    EXPECT_EQ(std::tie(matched1, matched2), std::tie(expected1, expected2)) << c.printed;
  }
  auto engine = std::make_unique<dualCalibration>();
  engine->mCorners1 = grid, engine->mCorners2 = shuffled;
  EXPECT_EQ(engine->matchStoredCornerOrder(), 1);
  EXPECT_EQ(std::tie(engine->mMatchedCorners1, engine->mMatchedCorners2), std::tie(grid, scaled));
}

// Every symmetric order in which a detector may list the second view (1.5 times larger, turned by 3 degrees, with
// some perspective) is brought back to the main view's order, and named.
TEST(CornerCorrespondence, GridPairingUndoesEverySymmetricOrder) {
  const cv::Matx33d H(1.5 * std::cos(0.05), -1.5 * std::sin(0.05), 40.0, 1.5 * std::sin(0.05), 1.5 * std::cos(0.05),
                      -25.0, 2e-5, -1e-5, 1.0);
  for (const auto& c : CaseRows("chart/GridOrders.txt")) {
    SCOPED_TRACE(c[3]);
    const std::vector<double> board = Numbers(c[0]), start = Numbers(c[1]);
    const int w = int(board[0]), h = int(board[1]);
    const bool bottom = start[0] != 0, right = start[1] != 0, alongColumns = start[2] != 0;
    const Corners truth = Grid(w, h, H);
    Corners listed, matched1, matched2;
    for (int a = 0; a < w * h; ++a) {
      const int row = alongColumns ? a % h : a / w, column = alongColumns ? a / h : a % w;
      listed.push_back(truth[(bottom ? h - 1 - row : row) * w + (right ? w - 1 - column : column)]);
    }
    auto engine = std::make_unique<dualCalibration>();
    const GridPairing pairing = engine->matchCornerGridOrder(Grid(w, h), listed, {w, h}, matched1, matched2);
    ASSERT_EQ(pairing.order, std::stoi(c[2]));
    EXPECT_EQ(kGridOrders[pairing.order].name, c[3]);
    EXPECT_EQ(std::make_pair(matched1, matched2), std::make_pair(Grid(w, h), truth));
    EXPECT_LT(pairing.residualPx, 1e-3);
    EXPECT_NEAR(pairing.agreement, std::cos(0.05), 0.01);
  }
  auto engine = std::make_unique<dualCalibration>();
  Corners matched1, matched2;
  EXPECT_EQ(engine->matchCornerGridOrder(Grid(9, 6), Corners(53, {1, 1}), {9, 6}, matched1, matched2).order, -1);
  EXPECT_TRUE(matched1.empty() && matched2.empty());
}
