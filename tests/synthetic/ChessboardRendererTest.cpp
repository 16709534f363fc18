#include "synthetic/ChessboardRenderer.h"

#include "tests/support/TestPrelude.h"

#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "synthetic/BoardPlacement.h"

// A 5 x 4 board of 10 px squares whose corner (0, 0) lands on (cx, cy): pixels take their exact area shares of dark
// 30, light 220, the light margin and the background 100; blur softens the edges only.
TEST(ChessboardRenderer, PixelsTakeTheirExactAreaShares) {
  const auto render = [](double cx, double cy, double blurSigmaPx) {
    const SyntheticCamera camera{{10.0, 0.0, cx, 0.0, 10.0, cy, 0.0, 0.0, 1.0}, cv::Size(200, 160)};
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

// The ground truth the tool's tests read back: rig, board, image names, corners and poses of every pair.
TEST(ChessboardRenderer, GroundTruthHoldsRigPairsAndCorners) {
  const StereoRig rig = ExampleStereoRig({2000, 1500}, {2400, 1800});
  const std::vector<BoardPose> poses = RandomBoardPoses(rig, ChessboardLayout(), 2, 3);
  const std::vector<RenderedPair> pairs = {RenderPair(rig, {}, poses[0], {}, 1), RenderPair(rig, {}, poses[1], {}, 1)};
  const nlohmann::json truth = nlohmann::json::parse(GroundTruthJson(rig, {}, {}, pairs).dump(2));
  EXPECT_EQ(truth["board"]["width"].dump() + truth["board"]["square_size"].dump() + truth["T"][0].dump(), "925.0-40.0");
  EXPECT_EQ(truth["main_camera"]["K"][0][0], 1600.0);
  ASSERT_EQ(truth["pairs"].size(), 2u);
  EXPECT_EQ(truth["pairs"][1]["second_image"], "pair_1_second.png");
  EXPECT_EQ(truth["pairs"][1]["main_corners"][53][0], pairs[1].mainCorners[53].x);
  EXPECT_EQ(truth["pairs"][0]["tvec"][2], pairs[0].pose.tvec[2]);
}

// The pixels agree with the truth through every lens form: on noise-free renders (5 coefficients of a phone's
// ultra-wide with decentring, the rational 8, and a pincushion tele), with boards 10 px from the edges and in the
// image corners at any roll, cornerSubPix started at the true corners moves none by more than 0.05 px. The renders
// carry a lens's blur of 1.5 px and cornerSubPix a 15 x 15 window: on sharp edges cornerSubPix itself errs by up to
// 0.09 px (pinhole renders included, where every pixel is an exact area share), 0.06 px at 1 px blur.
TEST(ChessboardRenderer, LensRendersPutEveryCornerWhereTheTruthSays) {
  const DistortionCoefficients lenses[][2] = {
      {{-0.36, 0.14, 0.0006, -0.0004, -0.01, 0.0, 0.0, 0.0}, {-0.40, 0.17, -0.0005, 0.0003, -0.012, 0.0, 0.0, 0.0}},
      {{0.6, -0.05, 0.001, 0.0005, 0.002, 0.95, 0.1, 0.001}, {0.5, -0.04, -0.001, 0.0004, 0.0, 0.85, 0.08, 0.0}},
      {{0.08, -0.02, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0}, {0.06, 0.0, 0.0002, 0.0, 0.0, 0.0, 0.0, 0.0}}};
  const ChessboardLayout layout;
  for (const auto& lens : lenses) {
    StereoRig rig = ExampleStereoRig({1600, 1200}, {1600, 1200});
    rig.main.distortion = lens[0], rig.second.distortion = lens[1];
    for (const Placement placement : {Placement::kBorder, Placement::kCorner}) {
      PlacementOptions options;
      options.placement = placement;
      options.maxRollDeg = 180.0, options.borderPx = 10.0;
      options.minSquarePx = 40.0, options.maxSquarePx = 100.0;
      const std::vector<BoardPose> poses = PlaceBoards(rig, layout, 2, 11, options);
      ASSERT_EQ(poses.size(), 2u);
      for (const BoardPose& pose : poses) {
        RenderOptions lensBlur;
        lensBlur.blurSigmaPx = 1.5;
        const RenderedPair pair = RenderPair(rig, layout, pose, lensBlur, 1);
        for (const auto& [image, truth] : {std::pair(pair.mainImage, pair.mainCorners),
                                           std::pair(pair.secondImage, pair.secondCorners)}) {
          std::vector<cv::Point2f> refined = truth;
          cv::cornerSubPix(image, refined, cv::Size(7, 7), cv::Size(-1, -1),
                           cv::TermCriteria(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 100, 1e-4));
          double largest = 0.0;
          for (size_t k = 0; k < truth.size(); ++k) largest = std::max(largest, cv::norm(refined[k] - truth[k]));
          EXPECT_LT(largest, 0.05) << lens[0][0] << " " << PlacementName(placement);
        }
      }
    }
  }
}
