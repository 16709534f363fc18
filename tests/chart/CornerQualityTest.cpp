#include "tests/support/TestPrelude.h"

#include <opencv2/calib3d.hpp>

#include "chart/CornerQuality.h"

namespace {

const cv::Size kPattern(9, 6);

// A 9 x 6 board of 60-mm squares tilted 35 degrees, seen through a lens with
// k1 -0.4 near the image's left edge: the worst a phone's ultra-wide gives.
std::vector<cv::Point2f> DistortedBoard() {
  std::vector<cv::Point3f> board;
  for (int r = 0; r < kPattern.height; ++r) {
    for (int c = 0; c < kPattern.width; ++c) board.emplace_back(60.0f * c, 60.0f * r, 0.0f);
  }
  const cv::Matx33d K(1600, 0, 1000, 0, 1600, 750, 0, 0, 1);
  const cv::Vec<double, 5> D(-0.4, 0.16, 0, 0, 0);
  std::vector<cv::Point2f> corners;
  cv::projectPoints(board, cv::Vec3d(0.2, 0.6, 0.1), cv::Vec3d(-1000, -200, 1500), K, D, corners);
  return corners;
}

}  // namespace

TEST(CornerQuality, NeighboursPutTheTrueCornersInPlaceAndFindAMisplacedOne) {
  std::vector<cv::Point2f> corners = DistortedBoard();
  ASSERT_LT(corners[0].x, 200.0f);  // the board reaches the strongly distorted edge
  const std::vector<float> clean = CornerNeighbourResiduals(corners, kPattern);
  EXPECT_LT(*std::max_element(clean.begin(), clean.end()), 0.05f * ShortestSquareSide(corners, kPattern, 0));
  EXPECT_TRUE(UnlocatedCorners(corners, kPattern).empty());
  // A corner pulled a fifth of a square off, at the board's corner and inside it: each found alone, worst first.
  for (const int misplaced : {0, 22}) {
    std::vector<cv::Point2f> moved = corners;
    const float side = ShortestSquareSide(corners, kPattern, misplaced);
    moved[misplaced] += cv::Point2f(0.2f * side, 0.0f);
    EXPECT_EQ(UnlocatedCorners(moved, kPattern), std::vector<int32_t>{misplaced}) << misplaced;
    EXPECT_NEAR(CornerNeighbourResiduals(moved, kPattern)[misplaced], 0.2f * side, 0.05f * side);
  }
  std::vector<cv::Point2f> two = corners;
  two[10] += cv::Point2f(0.0f, 8.0f), two[40] += cv::Point2f(3.0f, 3.0f);
  EXPECT_EQ(UnlocatedCorners(two, kPattern), (std::vector<int32_t>{10, 40}));
  // Left-out corners do not enter their neighbours' fits; a list that is not the whole grid is not judged.
  std::vector<bool> excluded(corners.size(), false);
  excluded[10] = true;
  EXPECT_LT(CornerNeighbourResiduals(two, kPattern, excluded)[11], 0.5f);
  EXPECT_TRUE(UnlocatedCorners(std::vector<cv::Point2f>(corners.begin(), corners.end() - 1), kPattern).empty());
}

// Perspective keeps a tilted board's rows and columns straight; the lens bends them. Corner 1 moved half a pixel off
// its row: the triple 0-1-2 bends by that (corner 0, at the grid's edge, borrows it), the triple 1-2-3 by half of it.
TEST(CornerQuality, GridBendIsTheLensNotThePerspective) {
  std::vector<cv::Point3f> board;
  for (int r = 0; r < kPattern.height; ++r) {
    for (int c = 0; c < kPattern.width; ++c) board.emplace_back(60.0f * c, 60.0f * r, 0.0f);
  }
  std::vector<cv::Point2f> straight;
  cv::projectPoints(board, cv::Vec3d(0.2, 0.6, 0.1), cv::Vec3d(-1000, -200, 1500),
                    cv::Matx33d(1600, 0, 1000, 0, 1600, 750, 0, 0, 1), cv::noArray(), straight);
  const std::vector<cv::Point2f> distorted = DistortedBoard();
  float straightest = 0.0f;
  for (int k = 0; k < kPattern.area(); ++k) straightest = std::max(straightest, GridBendPx(straight, kPattern, k));
  EXPECT_LT(straightest, 1e-3f);
  EXPECT_GT(GridBendPx(distorted, kPattern, 0), 0.3f);
  const cv::Point2f along = straight[2] - straight[0];
  straight[1] += 0.5f / static_cast<float>(cv::norm(along)) * cv::Point2f(-along.y, along.x);
  const float bends[] = {0.5f, 0.5f, 0.25f, 0.0f};
  for (int k = 0; k < 4; ++k) EXPECT_NEAR(GridBendPx(straight, kPattern, k), bends[k], 0.01f) << k;
}
