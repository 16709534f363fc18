#include "synthetic/BoardPlacement.h"

#include "tests/support/TestPrelude.h"

namespace {

// Distances of the board's nearest corner from the left, top, right and bottom edge of the image.
std::array<double, 4> EdgeDistances(const std::vector<cv::Point2f>& corners, const cv::Size& size) {
  std::array<double, 4> nearest = {1e9, 1e9, 1e9, 1e9};
  for (const cv::Point2f& c : corners) {
    const double d[] = {c.x, c.y, size.width - 1.0 - c.x, size.height - 1.0 - c.y};
    for (int side = 0; side < 4; ++side) nearest[side] = std::min(nearest[side], d[side]);
  }
  return nearest;
}

StereoRig LensRig() {
  StereoRig rig = ExampleStereoRig({2000, 1500}, {2000, 1500});
  rig.main.distortion = {-0.36, 0.14, 0.0005, -0.0003, 0.0, 0.0, 0.0, 0.0};
  rig.second.distortion = {-0.32, 0.11, -0.0004, 0.0002, 0.0, 0.0, 0.0, 0.0};
  return rig;
}

}  // namespace

// Through two different, strongly distorted lenses: border boards reach borderPx from one edge, corner boards from
// two (in whichever image is nearer), at every roll up to upside down; all corners stay inside both images with
// squares no smaller than asked.
TEST(BoardPlacement, BoardsReachTheEdgesAndCornersAtAnyRoll) {
  const StereoRig rig = LensRig();
  const ChessboardLayout layout;
  const struct {
    Placement placement;
    int sidesAtBorder;
  } rows[] = {{Placement::kBorder, 1}, {Placement::kCorner, 2}, {Placement::kAnywhere, 0}};
  for (const auto& row : rows) {
    PlacementOptions options;
    options.placement = row.placement, options.maxRollDeg = 180.0;
    options.minSquarePx = 30.0, options.maxSquarePx = 60.0;
    options.borderPx = 20.0;
    const std::vector<BoardPose> poses = PlaceBoards(rig, layout, 12, 5, options);
    ASSERT_EQ(poses.size(), 12u) << PlacementName(row.placement);
    double largestRollDeg = 0.0;
    for (const BoardPose& pose : poses) {
      const cv::Matx33d rotation = RotationOf(pose.rvec);
      const auto main = ProjectBoardCorners(rig.main, layout, rotation, pose.tvec);
      const auto second = ProjectBoardCorners(rig.second, layout, rig.R * rotation, rig.R * pose.tvec + rig.T);
      std::array<double, 4> d = EdgeDistances(main, rig.main.size), d2 = EdgeDistances(second, rig.second.size);
      for (int side = 0; side < 4; ++side) d[side] = std::min(d[side], d2[side]);
      EXPECT_EQ(std::count_if(d.begin(), d.end(), [](double x) { return std::abs(x - 20.0) <= 2.0; }),
                row.sidesAtBorder);
      EXPECT_GE(*std::min_element(d.begin(), d.end()), kMinCornerMarginPx);
      EXPECT_GE(std::min(SmallestSquareSide(main, layout), SmallestSquareSide(second, layout)), 15.0);
      const cv::Point2f row0 = main[layout.width - 1] - main[0];
      largestRollDeg = std::max(largestRollDeg, std::abs(std::atan2(row0.y, row0.x)) * 180.0 / CV_PI);
    }
    EXPECT_GT(largestRollDeg, 120.0) << PlacementName(row.placement);
  }
}
