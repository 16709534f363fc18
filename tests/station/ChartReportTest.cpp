#include "tests/support/TestPrelude.h"

#include <opencv2/calib3d.hpp>
#include <opencv2/imgcodecs.hpp>

#include "synthetic/ChessboardRenderer.h"
#include "station/ChartReport.h"
#include "station/RunOutputs.h"

// Eight tilted views with the board's centre 1000 units along the main camera's axis (the corners stay inside the
// middle half of the image): true projections plus 0.1 px noise, fitted with the true cameras; rows 0 to 2 of view
// 5's main corners move 3 px along x, which the view's own pose cannot absorb, and corner 21 of view 2's second image
// moves 10 px. Pair 5 gave no view, so view 5 is pair 6 in every name and number of the report. View 2's main image
// is a flat grey file, its second image is missing.
TEST(ChartReport, MarksTheSpoiledViewsTheWorstCornerAndTheUncoveredBorder) {
  const cv::Size size(2000, 1500);
  const StereoRig rig = ExampleStereoRig(size, size);
  ReportInput input;
  input.cameras[0] = {"main", size, cv::Mat(rig.main.K), cv::Mat::zeros(1, 5, CV_64F), {}};
  input.cameras[1] = {"second", size, cv::Mat(rig.second.K), cv::Mat::zeros(1, 5, CV_64F), {}};
  cv::RNG noise(9);
  for (const cv::Vec3d& tilt : {cv::Vec3d(0.3, 0, 0), {-0.3, 0, 0}, {0, 0.3, 0}, {0, -0.3, 0}, {0.2, 0.2, 0.1},
                                {-0.2, 0.2, -0.1}, {0.2, -0.2, 0.2}, {-0.2, -0.25, 0}}) {
    cv::Matx33d rotation;
    cv::Rodrigues(tilt, rotation);
    const cv::Vec3d translation = cv::Vec3d(0.0, 0.0, 1000.0) - rotation * cv::Vec3d(100.0, 62.5, 0.0);
    std::vector<cv::Point2f> corners[2] = {
        ProjectBoardCorners(rig.main, ChessboardLayout(), rotation, translation),
        ProjectBoardCorners(rig.second, ChessboardLayout(), rig.R * rotation, rig.R * translation + rig.T)};
    for (int c = 0; c < 2; ++c) {
      for (cv::Point2f& p : corners[c]) p += cv::Point2f(noise.gaussian(0.1), noise.gaussian(0.1));
      input.cameras[c].corners.push_back(corners[c]);
    }
    input.objectPoints.emplace_back();
    for (int i = 0; i < 54; ++i) input.objectPoints.back().emplace_back(i % 9 * 25.0f, i / 9 * 25.0f, 0.0f);
  }
  for (int i = 0; i < 27; ++i) input.cameras[0].corners[4][i].x += 3.0f;
  input.cameras[1].corners[1][20] += cv::Point2f(6.0f, 8.0f);
  input.viewPairs = {1, 2, 3, 4, 6, 7, 8, 9};  // pair 5 gave no view
  input.rejectedPairs = {{5, "p5_main.png p5_second.png", "board not found"}};
  input.rowErrors.assign(8, std::vector<float>(54, 0.0f));
  input.rowErrors[2][0] = -0.5f;
  TempDir dir;
  cv::imwrite(dir.File("grey.png"), cv::Mat(size, CV_8U, cv::Scalar(100)));
  input.viewImages.resize(8);
  input.viewImages[1] = {dir.File("grey.png"), dir.File("missing.png")};
  WriteChartReport(dir.File("report"), input);
  CommitOutputs();
  const nlohmann::json report = nlohmann::json::parse(ReadFile(dir.File("report/report.json")));
  EXPECT_EQ(report["outlier_pairs"], nlohmann::json({2, 6}));
  ASSERT_EQ(report["views"].size(), 8u);
  EXPECT_EQ(report["views"][4]["outlier"].dump() + report["views"][4]["pair"].dump(), "true6");
  EXPECT_GT(report["views"][4]["error_px"][0].get<double>(), report["cameras"][0]["outlier_limit_px"].get<double>());
  EXPECT_GT(report["cameras"][1]["outlier_limit_px"].get<double>(), 0.0);
  EXPECT_EQ(report["rejected_pairs"].dump(), R"([{"images":"p5_main.png p5_second.png","pair":5,"why":"board not found"}])");
  EXPECT_EQ(report["views"][2]["row_error_px"]["max"], 0.5);
  EXPECT_NEAR(report["views"][2]["row_error_px"]["rms"].get<double>(), 0.5 / std::sqrt(54.0), 5e-5);  // to 1e-4 px
  const nlohmann::json& spoiled = report["views"][1]["cameras"][1];
  ASSERT_EQ(spoiled["worst_corners"].size(), 1u) << spoiled["worst_corners"];
  EXPECT_EQ(spoiled["worst_corners"][0]["corner"], 21);
  EXPECT_NEAR(spoiled["worst_corners"][0]["error_px"].get<double>(), 10.0, 1.0);  // the pose absorbs a little
  EXPECT_EQ(report["views"][1]["cameras"][0]["image"], dir.File("grey.png"));
  EXPECT_TRUE(spoiled["image"].is_null() && report["views"][0]["cameras"][0]["image"].is_null());
  // Image pixel (6, 6) of the main panels (scale 0.32): the grey file dimmed in pair 2, the blank area in pair 1.
  EXPECT_EQ(cv::imread(dir.File("report/pair_02.png")).at<cv::Vec3b>(70, 14), cv::Vec3b(185, 185, 185));
  EXPECT_EQ(cv::imread(dir.File("report/pair_01.png")).at<cv::Vec3b>(70, 14), cv::Vec3b(236, 236, 236));
  // One magnification for every panel: the 95th percentile residual of both cameras drawn 16 to 40 px long.
  std::vector<double> drawnPx;
  for (const nlohmann::json& view : report["views"]) {
    for (const nlohmann::json& camera : view["cameras"]) {
      EXPECT_EQ(camera["residuals_px"].size(), 54u);
      for (const nlohmann::json& r : camera["residuals_px"]) {
        drawnPx.push_back(std::hypot(r[0].get<double>(), r[1].get<double>()) * 0.32 * report["arrow_scale"].get<double>());
      }
    }
  }
  ASSERT_EQ(drawnPx.size(), 864u);
  std::nth_element(drawnPx.begin(), drawnPx.begin() + 820, drawnPx.end());  // the 821st of 864
  EXPECT_GT(drawnPx[820], 16.0);
  EXPECT_LE(drawnPx[820], 40.0);
  for (int c = 0; c < 2; ++c) {
    const nlohmann::json& coverage = report["cameras"][c]["coverage"];
    EXPECT_EQ(coverage["grid"], nlohmann::json({8, 6}));
    // 8 x 6 cells of 250 px: the centred boards reach the middle 4 x 2 cells at most.
    EXPECT_LE(coverage["reached_fraction"].get<double>(), 8.0 / 48.0);
    EXPECT_GT(coverage["corner_counts"][2][3].get<int>() * coverage["corner_counts"][3][4].get<int>(), 0);
    for (const auto& cell : {nlohmann::json({0, 0}), {7, 0}, {0, 5}, {7, 5}, {3, 0}, {0, 3}}) {
      const nlohmann::json& empty = coverage["empty_cells"];
      EXPECT_NE(std::find(empty.begin(), empty.end(), cell), empty.end()) << cell;
    }
  }
  for (const char* picture : {"coverage_main.png", "coverage_second.png", "pair_01.png", "pair_06.png", "pair_09.png", "errors.png"}) {
    EXPECT_TRUE(FileExists(dir.File("report/") + picture)) << picture;
  }
}
