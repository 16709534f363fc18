#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <string>

#include "engine/dualCalibration.h"
#include "tests/support/TestFiles.h"

namespace {

// A fixed first result set with an 8-coefficient D2, and a second set that
// differs from it in every value and has a 5-coefficient D2.
std::unique_ptr<dualCalibration> FixedEngine() {
  auto engine = std::make_unique<dualCalibration>();
  engine->m_nBoardWidth = 9, engine->m_nBoardHeight = 6, engine->m_nSquareSize = 25;
  engine->K1 = (cv::Mat_<double>(3, 3) << 1234.5, 0, 1002.25, 0, 1234.56789, 749.5, 0, 0, 1);
  engine->K2 = (cv::Mat_<double>(3, 3) << 1650.1, 0, 990.0625, 0, 1648.0, 0.1, 0, 0, 1);
  engine->P1 = (cv::Mat_<double>(3, 4) << 1500.25, 0, 1000.5, 0, 0, 1500.25, 750.75, 0, 0, 0, 1, 0);
  engine->P2 = (cv::Mat_<double>(3, 4) << 1500.25, 0, 1000.5, -60012.5, 0, 1500.25, 750.75, 0, 0, 0, 1, 0);
  engine->D1 = (cv::Mat_<double>(1, 5) << 0.1, -0.2, 0.001, -0.002, 0.05);
  engine->D2 = (cv::Mat_<double>(1, 8) << 0.3, -0.4, 0.003, -0.004, 0.5, 0.6, -0.7, 0.8);
  engine->r_x = 0.0054f, engine->r_y = -0.0073f, engine->r_z = 0.0047f;
  engine->r_x_1 = 0.01f, engine->r_y_1 = 0.02f, engine->r_z_1 = 0.03f;
  engine->r_x_2 = -0.01f, engine->r_y_2 = -0.02f, engine->r_z_2 = -0.03f;
  engine->mT = cv::Vec3d(-40.00353, 0.6021654, 1.2064412);
  engine->mRMS = 0.0295783f;
  engine->m_assembleMatrix = (cv::Mat_<float>(3, 3) << 1.001f, 0.002f, -3.5f, -0.001f, 0.999f, 4.25f, 0, 0, 1);
  ChartResultSet& second = engine->mSecondResult;
  second.K1 = (cv::Mat_<double>(3, 3) << 1111, 0, 999, 0, 1112, 748, 0, 0, 1);
  second.K2 = (cv::Mat_<double>(3, 3) << 2222, 0, 998, 0, 2223, 747, 0, 0, 1);
  second.P1 = (cv::Mat_<double>(3, 4) << 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12);
  second.P2 = (cv::Mat_<double>(3, 4) << 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1);
  second.D1 = (cv::Mat_<double>(1, 8) << 1, 2, 3, 4, 5, 6, 7, 8);
  second.D2 = (cv::Mat_<double>(1, 5) << -1, -2, -3, -4, -5);
  second.mT = cv::Vec3d(1.5, 2.5, 3.5);
  second.r_x = 0.5f, second.r_y = 0.25f, second.r_z = 0.125f;
  return engine;
}

}  // namespace

// Each file is written twice and holds one copy. The k4_2..k6_2 lines follow
// the second set's D2 in both files; a coefficient D2 lacks prints as 0.
TEST(ResultFiles, FilesMatchTheirGoldenText) {
  const struct {
    const char* golden;
    bool platform;
    std::function<void(dualCalibration&)> change;
  } cases[] = {
      {"main_d1_of_5.golden", false, [](dualCalibration&) {}},
      {"main_d1_of_8.golden", false,
       [](dualCalibration& e) {
         e.D1 = (cv::Mat_<double>(1, 8) << 0.1, -0.2, 0.001, -0.002, 0.05, 1234.56789, -0.1, 1e-7);
         e.mSecondResult.D2 = cv::Mat::zeros(1, 6, CV_64F);
       }},
      {"main_d2_short.golden", false,
       [](dualCalibration& e) {
         e.D2 = (cv::Mat_<double>(1, 5) << 0.3, -0.4, 0.003, -0.004, 0.5);
         e.mSecondResult.D2 = cv::Mat::zeros(1, 8, CV_64F);
       }},
      {"platform.golden", true, [](dualCalibration&) {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.golden);
    TempDir dir;
    auto engine = FixedEngine();
    c.change(*engine);
    for (int i = 0; i < 2; ++i) c.platform ? engine->savePlatformCalibrationResult() : engine->saveCalibrationResult();
    const char* file = c.platform ? "calibrationResult_mtk.txt" : "calibrationResult.txt";
    ExpectGolden(ReadFile(dir.File(file)), std::string("ResultFiles/") + c.golden);
    EXPECT_FALSE(FileExists(dir.File(c.platform ? "calibrationResult.txt" : "calibrationResult_mtk.txt")));
  }
}

// The result files and the calibration log.
TEST(ResultFiles, UncreatableFilesAreSkippedSilently) {
  TempDir dir;
  setenv("QLM_PICTURES_DIR", dir.File("missing/folder").c_str(), 1);
  auto engine = FixedEngine();
  testing::internal::CaptureStdout();
  engine->saveCalibrationResult();
  engine->savePlatformCalibrationResult();
  engine->appendCalibLog();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_FALSE(FileExists(dir.File("missing")));
}
