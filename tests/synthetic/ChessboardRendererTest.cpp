#include "synthetic/ChessboardRenderer.h"

#include <gtest/gtest.h>

#include <fstream>

#include <nlohmann/json.hpp>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgcodecs.hpp>

#include "tests/support/TestFiles.h"

// A 5 x 4 board of 10 px squares whose corner (0, 0) lands on (cx, cy):
// pixels take their exact area shares of dark 30, light 220, the light
// margin and the background 100; blur softens the edges only.
TEST(ChessboardRenderer, PixelsTakeTheirExactAreaShares) {
  const auto render = [](double cx, double cy, double blurSigmaPx) {
    const PinholeCamera camera{{10.0, 0.0, cx, 0.0, 10.0, cy, 0.0, 0.0, 1.0}, cv::Size(200, 160)};
    ChessboardLayout layout;
    layout.width = 5, layout.height = 4, layout.squareSize = 1.0;
    RenderOptions options;
    options.blurSigmaPx = blurSigmaPx;
    return RenderBoardView(camera, layout, cv::Matx33d::eye(), cv::Vec3d(0.0, 0.0, 1.0), options, 1);
  };
  const cv::Mat aligned = render(99.5, 99.5, 0.0), half = render(100.0, 99.5, 0.0), quarter = render(100.0, 100.0, 0.0);
  const cv::Mat blurred = render(99.5, 99.5, 1.5);
  const struct {
    const cv::Mat& image;
    int x, y, value;
  } pixels[] = {{aligned, 105, 105, 30}, {aligned, 95, 105, 220}, {aligned, 95, 95, 30}, {aligned, 80, 80, 220},
                {aligned, 5, 5, 100},    {half, 100, 105, 125},    {half, 101, 105, 30}, {quarter, 100, 100, 125},
                {quarter, 80, 100, 160},  // half margin, half background
                {blurred, 105, 105, 30}};
  for (const auto& p : pixels) EXPECT_EQ(p.image.at<uint8_t>(p.y, p.x), p.value) << p.x << " " << p.y;
  EXPECT_GT(blurred.at<uint8_t>(105, 100), 30);
  EXPECT_LT(blurred.at<uint8_t>(105, 100), 220);
}

// Poses follow their seed and keep the board 32 px inside the image; the
// corners are the pinhole projections through both cameras; noise follows
// its seed and sigma; the files and the ground truth hold what was rendered.
TEST(ChessboardRenderer, PosesCornersNoiseAndFiles) {
  const StereoRig rig = ExampleStereoRig({2000, 1500}, {2400, 1800});
  const ChessboardLayout layout;
  const std::vector<BoardPose> poses = RandomBoardPoses(rig, layout, 6, 42);
  ASSERT_EQ(poses.size(), 6u);
  for (size_t k = 0; k < poses.size(); ++k) {
    EXPECT_EQ(poses[k].tvec, RandomBoardPoses(rig, layout, 6, 42)[k].tvec);
    EXPECT_NE(poses[k].tvec, RandomBoardPoses(rig, layout, 6, 43)[k].tvec);
    cv::Matx33d rotation;
    cv::Rodrigues(poses[k].rvec, rotation);
    for (const cv::Point2f& p : ProjectBoardCorners(rig.main, layout, rotation, poses[k].tvec)) {
      EXPECT_TRUE(p.x > 32 && p.y > 32 && p.x < 1967 && p.y < 1467) << p;
    }
  }
  RenderOptions noisy;
  noisy.noiseSigma = 4.0;
  const std::vector<RenderedPair> pairs = {RenderPair(rig, layout, poses[0], noisy, 9),
                                           RenderPair(rig, layout, poses[1], RenderOptions(), 1)};
  std::vector<cv::Point3f> board;
  for (int i = 0; i < 54; ++i) board.emplace_back(i % 9 * 25.0f, i / 9 * 25.0f, 0.0f);
  std::vector<cv::Point2f> expected1, expected2;
  cv::projectPoints(board, poses[1].rvec, poses[1].tvec, rig.main.K, cv::noArray(), expected1);
  cv::Matx33d rotation;
  cv::Rodrigues(poses[1].rvec, rotation);
  cv::Vec3d rvec2;
  cv::Rodrigues(rig.R * rotation, rvec2);
  cv::projectPoints(board, rvec2, rig.R * poses[1].tvec + rig.T, rig.second.K, cv::noArray(), expected2);
  EXPECT_LT(cv::norm(pairs[1].mainCorners, expected1, cv::NORM_INF) + cv::norm(pairs[1].secondCorners, expected2, cv::NORM_INF), 1e-3);
  EXPECT_EQ(pairs[1].secondImage.size(), cv::Size(2400, 1800));
  const cv::Mat a = RenderEmptyView({400, 300}, noisy, 9);
  EXPECT_EQ(cv::norm(a, RenderEmptyView({400, 300}, noisy, 9), cv::NORM_INF), 0.0);
  EXPECT_GT(cv::norm(a, RenderEmptyView({400, 300}, noisy, 10), cv::NORM_INF), 0.0);
  cv::Scalar mean, spread;
  cv::meanStdDev(a, mean, spread);
  EXPECT_NEAR(mean[0], 100.0, 0.1);
  EXPECT_NEAR(spread[0], 4.0, 0.1);

  TempDir dir;
  ASSERT_TRUE(WriteRenderedPairs(dir.Path(), rig, layout, noisy, pairs));
  EXPECT_EQ(cv::norm(cv::imread(dir.File("pair_0_second.png"), cv::IMREAD_UNCHANGED), pairs[0].secondImage, cv::NORM_INF), 0.0);
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
  EXPECT_FALSE(WriteRenderedPairs(dir.File("missing"), rig, layout, noisy, pairs));
}
