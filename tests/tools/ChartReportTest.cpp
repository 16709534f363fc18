// The report of a set that kept the board in the image centre and holds one
// spoiled view, checked from report.json.
#include <gtest/gtest.h>

#include <fstream>
#include <memory>

#include <opencv2/calib3d.hpp>

#include "engine/dualCalibration.h"
#include "synthetic/ChessboardRenderer.h"
#include "tests/support/TestFiles.h"
#include "tools/ChartReport.h"
#include "tools/ToolOutput.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

const cv::Size kImageSize(2000, 1500);
constexpr size_t kSpoiledView = 4;
// Rows 0 to 2 of the spoiled view's main corners move this far along x: a
// partial shift, which the view's own pose cannot absorb.
constexpr float kSpoilShiftPx = 3.0f;

// Eight tilted views with the board's centre near the main camera's axis,
// 1000 units away: the corners stay inside the middle half of the image.
// Corners are the renderer's true projections plus 0.1 px noise.
ReportInput CentredSetWithOneSpoiledView() {
  const StereoRig rig = ExampleStereoRig(kImageSize, kImageSize);
  const ChessboardLayout layout;
  const cv::Vec3d tilts[8] = {{0.3, 0, 0},   {-0.3, 0, 0},     {0, 0.3, 0},      {0, -0.3, 0},
                              {0.2, 0.2, 0.1}, {-0.2, 0.2, -0.1}, {0.2, -0.2, 0.2}, {-0.2, -0.25, 0}};
  auto engine = std::make_unique<dualCalibration>();
  ApplyExampleChartSettings(*engine);
  const int32_t sizes[4] = {kImageSize.width, kImageSize.height, kImageSize.width, kImageSize.height};
  std::copy(sizes, sizes + 4, engine->chartImageSizes);
  cv::RNG noise(9);
  for (const cv::Vec3d& tilt : tilts) {
    cv::Matx33d rotation;
    cv::Rodrigues(tilt, rotation);
    const cv::Vec3d centre(100.0, 62.5, 0.0);
    const cv::Vec3d translation = cv::Vec3d(0.0, 0.0, 1000.0) - rotation * centre;
    std::vector<cv::Point2f> corners[2] = {
        ProjectBoardCorners(rig.main, layout, rotation, translation),
        ProjectBoardCorners(rig.second, layout, rig.R * rotation, rig.R * translation + rig.T)};
    for (std::vector<cv::Point2f>& list : corners) {
      for (cv::Point2f& p : list) p += cv::Point2f(noise.gaussian(0.1), noise.gaussian(0.1));
    }
    std::vector<cv::Point3f> board;
    for (int i = 0; i < layout.height; ++i) {
      for (int j = 0; j < layout.width; ++j) board.emplace_back(j * 25.0f, i * 25.0f, 0.0f);
    }
    engine->mObjectPoints.push_back(board);
    engine->mImagePoints1.push_back(corners[0]);
    engine->mImagePoints2.push_back(corners[1]);
  }
  for (int i = 0; i < 3 * layout.width; ++i) engine->mImagePoints1[kSpoiledView][i].x += kSpoilShiftPx;
  CaptureStdout();
  engine->monoCalibration();
  GetCapturedStdout();
  ReportInput input;
  input.objectPoints = engine->mObjectPoints;
  input.cameras[0] = {"main", kImageSize, engine->K1, engine->D1, engine->mImagePoints1};
  input.cameras[1] = {"second", kImageSize, engine->K2, engine->D2, engine->mImagePoints2};
  return input;
}

}  // namespace

TEST(ChartReport, MarksTheSpoiledViewAndTheUncoveredBorder) {
  TempDir dir;
  WriteChartReport(dir.File("report"), CentredSetWithOneSpoiledView());
  CommitOutputs();
  std::ifstream in(dir.File("report/report.json"));
  const nlohmann::json report = nlohmann::json::parse(in);

  EXPECT_EQ(report["outlier_views"], nlohmann::json({kSpoiledView + 1}));
  ASSERT_EQ(report["views"].size(), 8u);
  EXPECT_EQ(report["views"][kSpoiledView]["outlier"], true);
  EXPECT_GT(report["views"][kSpoiledView]["error_px"][0].get<double>(),
            report["cameras"][0]["outlier_limit_px"].get<double>());
  for (int c = 0; c < 2; ++c) {
    const nlohmann::json& coverage = report["cameras"][c]["coverage"];
    EXPECT_EQ(coverage["grid"], nlohmann::json({8, 6}));
    // 8 x 6 cells of 250 px: the centred boards reach the middle 4 x 2 cells at most.
    EXPECT_LE(coverage["reached_fraction"].get<double>(), 8.0 / 48.0);
    EXPECT_GT(coverage["corner_counts"][2][3].get<int>(), 0);
    EXPECT_GT(coverage["corner_counts"][3][4].get<int>(), 0);
    for (const nlohmann::json& cell : {nlohmann::json({0, 0}), nlohmann::json({7, 0}), nlohmann::json({0, 5}),
                                      nlohmann::json({7, 5}), nlohmann::json({3, 0}), nlohmann::json({0, 3})}) {
      EXPECT_NE(std::find(coverage["empty_cells"].begin(), coverage["empty_cells"].end(), cell),
                coverage["empty_cells"].end())
          << cell;
    }
  }
  EXPECT_EQ(report["cameras"][1]["outlier_limit_px"].get<double>() > 0.0, true);
  for (const char* picture : {"coverage_main.png", "coverage_second.png", "view_01.png", "view_08.png", "errors.png"}) {
    EXPECT_TRUE(FileExists(dir.File("report/") + picture)) << picture;
  }
}
