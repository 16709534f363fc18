#include "synthetic/ChessboardRenderer.h"

#include <gtest/gtest.h>

#include <fstream>

#include <nlohmann/json.hpp>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgcodecs.hpp>

#include "tests/support/TestFiles.h"

namespace {

// 10 px squares; board corner (0, 0) lands on pixel position (cx, cy).
cv::Mat GridAlignedBoard(double cx, double cy) {
  const PinholeCamera camera{{10.0, 0.0, cx, 0.0, 10.0, cy, 0.0, 0.0, 1.0}, cv::Size(200, 160)};
  ChessboardLayout layout;
  layout.width = 5, layout.height = 4, layout.squareSize = 1.0;
  return RenderBoardView(camera, layout, cv::Matx33d::eye(), cv::Vec3d(0.0, 0.0, 1.0), RenderOptions(), 1);
}

}  // namespace

TEST(ChessboardRenderer, PixelsTakeTheirExactAreaShares) {
  const cv::Mat aligned = GridAlignedBoard(99.5, 99.5);
  EXPECT_EQ(aligned.at<uint8_t>(105, 105), 30);   // square (0, 0): dark
  EXPECT_EQ(aligned.at<uint8_t>(105, 95), 220);   // square (-1, 0): light
  EXPECT_EQ(aligned.at<uint8_t>(95, 95), 30);     // square (-1, -1): dark
  EXPECT_EQ(aligned.at<uint8_t>(80, 80), 220);    // white margin
  EXPECT_EQ(aligned.at<uint8_t>(5, 5), 100);      // background
  const cv::Mat halfShifted = GridAlignedBoard(100.0, 99.5);
  EXPECT_EQ(halfShifted.at<uint8_t>(105, 100), 125);  // half dark, half light
  EXPECT_EQ(halfShifted.at<uint8_t>(105, 101), 30);
  const cv::Mat quarterShifted = GridAlignedBoard(100.0, 100.0);
  EXPECT_EQ(quarterShifted.at<uint8_t>(100, 100), 125);  // two dark and two light quarters
  // The margin's outer edge: board from -2 squares, i.e. pixel position 79.5 + 0.5.
  EXPECT_EQ(quarterShifted.at<uint8_t>(100, 80), 160);  // half margin, half background
}

TEST(ChessboardRenderer, CornersAreThePinholeProjection) {
  const StereoRig rig = ExampleStereoRig({2000, 1500}, {2400, 1800});
  const ChessboardLayout layout;
  const std::vector<BoardPose> poses = RandomBoardPoses(rig, layout, 1, 5);
  ASSERT_EQ(poses.size(), 1u);
  std::vector<cv::Point3f> board;
  for (int i = 0; i < layout.height; ++i) {
    for (int j = 0; j < layout.width; ++j) board.emplace_back(j * 25.0f, i * 25.0f, 0.0f);
  }
  for (const BoardPose& pose : poses) {
    const RenderedPair pair = RenderPair(rig, layout, pose, RenderOptions(), 1);
    std::vector<cv::Point2f> expected1, expected2;
    cv::projectPoints(board, pose.rvec, pose.tvec, rig.main.K, cv::noArray(), expected1);
    cv::Vec3d rvec2;
    cv::Matx33d rotation;
    cv::Rodrigues(pose.rvec, rotation);
    cv::Rodrigues(rig.R * rotation, rvec2);
    cv::projectPoints(board, rvec2, rig.R * pose.tvec + rig.T, rig.second.K, cv::noArray(), expected2);
    for (size_t i = 0; i < board.size(); ++i) {
      EXPECT_LT(cv::norm(pair.mainCorners[i] - expected1[i]), 1e-3);
      EXPECT_LT(cv::norm(pair.secondCorners[i] - expected2[i]), 1e-3);
    }
    EXPECT_EQ(pair.mainImage.size(), cv::Size(2000, 1500));
    EXPECT_EQ(pair.secondImage.size(), cv::Size(2400, 1800));
  }
}

TEST(ChessboardRenderer, PosesFollowTheSeedAndKeepTheBoardInView) {
  const StereoRig rig = ExampleStereoRig({2000, 1500}, {2000, 1500});
  const ChessboardLayout layout;
  const std::vector<BoardPose> first = RandomBoardPoses(rig, layout, 6, 42);
  const std::vector<BoardPose> again = RandomBoardPoses(rig, layout, 6, 42);
  const std::vector<BoardPose> other = RandomBoardPoses(rig, layout, 6, 43);
  ASSERT_EQ(first.size(), 6u);
  ASSERT_EQ(other.size(), 6u);
  for (size_t k = 0; k < first.size(); ++k) {
    EXPECT_EQ(first[k].rvec, again[k].rvec);
    EXPECT_EQ(first[k].tvec, again[k].tvec);
    EXPECT_NE(first[k].tvec, other[k].tvec);
    cv::Matx33d rotation;
    cv::Rodrigues(first[k].rvec, rotation);
    for (const cv::Point2f& p : ProjectBoardCorners(rig.main, layout, rotation, first[k].tvec)) {
      EXPECT_TRUE(p.x > 32 && p.y > 32 && p.x < 1967 && p.y < 1467) << p;
    }
  }
}

TEST(ChessboardRenderer, NoiseFollowsItsSeedAndSigma) {
  RenderOptions options;
  options.noiseSigma = 4.0;
  const cv::Mat a = RenderEmptyView({400, 300}, options, 9);
  const cv::Mat b = RenderEmptyView({400, 300}, options, 9);
  const cv::Mat c = RenderEmptyView({400, 300}, options, 10);
  EXPECT_EQ(cv::norm(a, b, cv::NORM_INF), 0.0);
  EXPECT_GT(cv::norm(a, c, cv::NORM_INF), 0.0);
  cv::Scalar mean, spread;
  cv::meanStdDev(a, mean, spread);
  EXPECT_NEAR(mean[0], 100.0, 0.1);
  EXPECT_NEAR(spread[0], 4.0, 0.1);
}

TEST(ChessboardRenderer, BlurSoftensTheEdges) {
  const PinholeCamera camera{{10.0, 0.0, 99.5, 0.0, 10.0, 99.5, 0.0, 0.0, 1.0}, cv::Size(200, 160)};
  ChessboardLayout layout;
  layout.width = 5, layout.height = 4, layout.squareSize = 1.0;
  RenderOptions options;
  options.blurSigmaPx = 1.5;
  const cv::Mat blurred = RenderBoardView(camera, layout, cv::Matx33d::eye(), cv::Vec3d(0, 0, 1), options, 1);
  const int edgeValue = blurred.at<uint8_t>(105, 100);
  EXPECT_GT(edgeValue, 30);
  EXPECT_LT(edgeValue, 220);
  EXPECT_EQ(blurred.at<uint8_t>(105, 105), 30);
}

TEST(ChessboardRenderer, WritesImagesAndGroundTruth) {
  TempDir dir;
  const StereoRig rig = ExampleStereoRig({2000, 1500}, {2000, 1500});
  const ChessboardLayout layout;
  std::vector<RenderedPair> pairs;
  for (const BoardPose& pose : RandomBoardPoses(rig, layout, 2, 3)) {
    pairs.push_back(RenderPair(rig, layout, pose, RenderOptions(), 1));
  }
  ASSERT_TRUE(WriteRenderedPairs(dir.Path(), rig, layout, RenderOptions(), pairs));
  const cv::Mat reread = cv::imread(dir.File("pair_1_second.png"), cv::IMREAD_UNCHANGED);
  EXPECT_EQ(cv::norm(reread, pairs[1].secondImage, cv::NORM_INF), 0.0);
  std::ifstream in(dir.File("ground_truth.json"));
  const nlohmann::json truth = nlohmann::json::parse(in);
  EXPECT_EQ(truth["board"]["width"], 9);
  EXPECT_EQ(truth["board"]["square_size"], 25.0);
  EXPECT_EQ(truth["T"][0], -40.0);
  EXPECT_EQ(truth["main_camera"]["K"][0][0], 1600.0);
  ASSERT_EQ(truth["pairs"].size(), 2u);
  EXPECT_EQ(truth["pairs"][1]["second_image"], "pair_1_second.png");
  EXPECT_EQ(truth["pairs"][1]["main_corners"].size(), 54u);
  EXPECT_EQ(truth["pairs"][1]["main_corners"][53][0], pairs[1].mainCorners[53].x);
  EXPECT_EQ(truth["pairs"][0]["tvec"][2], pairs[0].pose.tvec[2]);
  EXPECT_FALSE(WriteRenderedPairs(dir.File("missing"), rig, layout, RenderOptions(), pairs));
}
