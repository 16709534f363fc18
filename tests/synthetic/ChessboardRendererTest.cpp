#include "synthetic/ChessboardRenderer.h"

#include "tests/support/TestPrelude.h"

#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>

// A 5 x 4 board of 10 px squares whose corner (0, 0) lands on (cx, cy): pixels take their exact area shares of dark
// 30, light 220, the light margin and the background 100; blur softens the edges only.
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

// The files hold the rendered pairs and the ground truth the tool's tests read back.
TEST(ChessboardRenderer, WritesImagesAndGroundTruth) {
  TempDir dir;
  const StereoRig rig = ExampleStereoRig({2000, 1500}, {2400, 1800});
  const std::vector<BoardPose> poses = RandomBoardPoses(rig, ChessboardLayout(), 2, 3);
  const std::vector<RenderedPair> pairs = {RenderPair(rig, {}, poses[0], {}, 1), RenderPair(rig, {}, poses[1], {}, 1)};
  ASSERT_TRUE(WriteRenderedPairs(dir.Path(), rig, {}, {}, pairs));
  EXPECT_EQ(cv::norm(cv::imread(dir.File("pair_1_second.png"), cv::IMREAD_UNCHANGED), pairs[1].secondImage, cv::NORM_INF), 0.0);
  const nlohmann::json truth = nlohmann::json::parse(ReadFile(dir.File("ground_truth.json")));
  EXPECT_EQ(truth["board"]["width"].dump() + truth["board"]["square_size"].dump() + truth["T"][0].dump(), "925.0-40.0");
  EXPECT_EQ(truth["main_camera"]["K"][0][0], 1600.0);
  ASSERT_EQ(truth["pairs"].size(), 2u);
  EXPECT_EQ(truth["pairs"][1]["second_image"], "pair_1_second.png");
  EXPECT_EQ(truth["pairs"][1]["main_corners"][53][0], pairs[1].mainCorners[53].x);
  EXPECT_EQ(truth["pairs"][0]["tvec"][2], pairs[0].pose.tvec[2]);
  EXPECT_FALSE(WriteRenderedPairs(dir.File("missing"), rig, {}, {}, pairs));
}
