#include "tests/support/TestPrelude.h"

#include "engine/dualCalibration.h"
#include "synthetic/ChessboardRenderer.h"

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
    const GridPairing pairing = engine->matchCornerGridOrder(Grid(w, h), listed, {w, h}, {}, {}, matched1, matched2);
    ASSERT_EQ(pairing.order, std::stoi(c[2]));
    EXPECT_EQ(kGridOrders[pairing.order].name, c[3]);
    EXPECT_EQ(std::make_pair(matched1, matched2), std::make_pair(Grid(w, h), truth));
    EXPECT_LT(pairing.residualPx, 1e-3);
    EXPECT_NEAR(pairing.agreement, std::cos(0.05), 0.01);
  }
  auto engine = std::make_unique<dualCalibration>();
  Corners matched1, matched2;
  EXPECT_EQ(engine->matchCornerGridOrder(Grid(9, 6), Corners(53, {1, 1}), {9, 6}, {}, {}, matched1, matched2).order, -1);
  EXPECT_TRUE(matched1.empty() && matched2.empty());
}

// The second camera turned about its axis by 0 to 345 degrees in 15-degree steps, the board found by the engine in
// both renders: a 9 x 6 board (odd W + H, its colouring tells a half turn) is paired right at every roll. A 7 x 5 board
// (even W + H) looks the same turned by half: it is paired right up to 30 degrees of roll, left undecided from 60 to
// 120, and turned by more it is taken as turned by 180 degrees less, every corner paired with its mirror through the
// board's centre.
TEST(CornerCorrespondence, GridPairingIsRightAtAnyRollBetweenTheViews) {
  const double degToRad = CV_PI / 180.0;
  for (const cv::Size board : {cv::Size(9, 6), cv::Size(7, 5)}) {
    ChessboardLayout layout;
    layout.width = board.width, layout.height = board.height;
    const cv::Vec3d centre(0.5 * (board.width - 1) * layout.squareSize, 0.5 * (board.height - 1) * layout.squareSize, 0.0);
    const cv::Matx33d tilt = RotationOf({0.2, -0.15, 0.3});
    const BoardPose pose = {{0.2, -0.15, 0.3}, cv::Vec3d(0.0, 0.0, 640.0) - tilt * centre};
    for (int rollDeg = 0; rollDeg < 360; rollDeg += 15) {
      SCOPED_TRACE(std::to_string(board.width) + "x" + std::to_string(board.height) + " at " + std::to_string(rollDeg));
      StereoRig rig = ExampleStereoRig({2000, 1500}, {2000, 1500});
      const cv::Matx33d roll = RotationOf({0.0, 0.0, rollDeg * degToRad});
      rig.R = roll * rig.R, rig.T = roll * rig.T;
      const RenderedPair pair = RenderPair(rig, layout, pose, RenderOptions(), 1);
      auto engine = std::make_unique<dualCalibration>();
      engine->mCornerPairing = CornerPairing::kGrid;
      Corners corners1, corners2;
      testing::internal::CaptureStdout();
      const bool paired = engine->detectChessboardCorners(pair.mainImage, pair.secondImage, 1, board, corners1, corners2);
      testing::internal::GetCapturedStdout();
      const int relativeDeg = std::min(rollDeg, 360 - rollDeg), symmetric = (board.width + board.height) % 2 == 0;
      if (symmetric && relativeDeg >= 60 && relativeDeg <= 120) {
        EXPECT_FALSE(paired);
        EXPECT_TRUE(engine->mLastGridPairing.undecided);
        continue;
      }
      EXPECT_TRUE(paired || (symmetric && relativeDeg == 45));
      if (!paired) continue;
      if (symmetric && relativeDeg > 120) std::reverse(corners2.begin(), corners2.end());  // seen as turned by less
      const auto nearest = [](const Corners& truth, const cv::Point2f& p) {
        const auto closer = [&](const cv::Point2f& a, const cv::Point2f& b) { return cv::norm(a - p) < cv::norm(b - p); };
        return std::min_element(truth.begin(), truth.end(), closer) - truth.begin();
      };
      int right = 0;
      for (size_t k = 0; k < corners1.size(); ++k) {
        right += nearest(pair.mainCorners, corners1[k]) == nearest(pair.secondCorners, corners2[k]);
      }
      EXPECT_EQ(right, board.area());
    }
  }
}
