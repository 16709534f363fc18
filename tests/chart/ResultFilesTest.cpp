#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>

#include "engine/dualCalibration.h"
#include "tests/support/TestFiles.h"

namespace {

std::string MatrixText(const cv::Mat& matrix) {
  std::ostringstream text;
  text << matrix;
  return text.str();
}

// A fixed first result set with an 8-coefficient D2, and a second set that
// differs from it in every value.
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

std::string Header() {
  return "chessboard parameters: \n"
         "board_width:9\n"
         "board_height:6\n"
         "square_size:25\n"
         "\n";
}

std::string FirstSetBody(const dualCalibration& engine, const std::string& d1Block, const std::string& d2Block) {
  return Header() +
         "main camera matrix(K1): \n"
         "fx1:1234.500000\n"
         "fy1:1234.567871\n"
         "cx1:1002.250000\n"
         "cy1:749.500000\n"
         "\n"
         "second camera matrix(K2): \n"
         "fx2:1650.099976\n"
         "fy2:1648.000000\n"
         "cx2:990.062500\n"
         "cy2:0.100000\n"
         "\n"
         "main camera projection matrix(P1): \n"
         "P1:" + MatrixText(engine.P1) + "\n\n"
         "second camera projection matrix(P2): \n"
         "P2:" + MatrixText(engine.P2) + "\n\n"
         "main camera distortion(D1): \n" + d1Block + "\n"
         "second camera distortion(D2): \n" + d2Block + "\n"
         "camera rotation(R): \n"
         "r_x:0.005400\n"
         "r_y:-0.007300\n"
         "r_z:0.004700\n"
         "\n"
         "main camera rotation(R1): \n"
         "r_x_1:0.010000\n"
         "r_y_1:0.020000\n"
         "r_z_1:0.030000\n"
         "\n"
         "second camera rotation(R2): \n"
         "r_x_2:-0.010000\n"
         "r_y_2:-0.020000\n"
         "r_z_2:-0.030000\n"
         "\n"
         "camera transition(T): \n"
         "t_x:-40.003529\n"
         "t_y:0.602165\n"
         "t_z:1.206441\n"
         "\n"
         "dual calibration RMS:0.029578\n"
         "\n";
}

const char kFiveCoefficientD1[] =
    "k1_1:0.100000\n"
    "k2_1:-0.200000\n"
    "k3_1:0.050000\n"
    "p1_1:0.001000\n"
    "p1_1:-0.002000\n";

const char kD2WithoutK4ToK6[] =
    "k1_2:0.300000\n"
    "k2_2:-0.400000\n"
    "k3_2:0.500000\n"
    "p1_2:0.003000\n"
    "p1_2:-0.004000\n";

std::string AssembleSection(const dualCalibration& engine) {
  return "total rectify matrix (m_assembleMatrix): \n"
         "P2:" + MatrixText(engine.m_assembleMatrix) + "\n\n";
}

}  // namespace

TEST(ResultFiles, MainFileWithAFiveCoefficientD1) {
  TempDir dir;
  auto engine = FixedEngine();
  // The second set's D2 has 5 columns, so no k4_2 to k6_2 lines although the first set's D2 has 8.
  engine->saveCalibrationResult();
  EXPECT_EQ(ReadFile(dir.File("calibrationResult.txt")),
            FirstSetBody(*engine, kFiveCoefficientD1, kD2WithoutK4ToK6) + AssembleSection(*engine));
}

TEST(ResultFiles, MainFileWithAnEightCoefficientD1) {
  TempDir dir;
  auto engine = FixedEngine();
  engine->D1 = (cv::Mat_<double>(1, 8) << 0.1, -0.2, 0.001, -0.002, 0.05, 1234.56789, -0.1, 1e-7);
  engine->mSecondResult.D2 = cv::Mat::zeros(1, 6, CV_64F);
  engine->saveCalibrationResult();
  const std::string d1Block =
      "k1_1:0.100000\n"
      "k2_1:-0.200000\n"
      "k3_1:0.050000\n"
      "k4_1:1234.567871\n"
      "k5_1:-0.100000\n"
      "k6_1:0.000000\n"
      "p1_1:0.001000\n"
      "p1_1:-0.002000\n";
  // The second set's D2 has 6 columns: the first set's k4 to k6 are printed.
  const std::string d2Block =
      "k1_2:0.300000\n"
      "k2_2:-0.400000\n"
      "k3_2:0.500000\n"
      "k4_2:0.600000\n"
      "k5_2:-0.700000\n"
      "k6_2:0.800000\n"
      "p1_2:0.003000\n"
      "p1_2:-0.004000\n";
  EXPECT_EQ(ReadFile(dir.File("calibrationResult.txt")),
            FirstSetBody(*engine, d1Block, d2Block) + AssembleSection(*engine));
}

TEST(ResultFiles, MissingCoefficientsUnderTheSecondSetsConditionPrintAsZero) {
  TempDir dir;
  auto engine = FixedEngine();
  engine->D2 = (cv::Mat_<double>(1, 5) << 0.3, -0.4, 0.003, -0.004, 0.5);
  engine->mSecondResult.D2 = cv::Mat::zeros(1, 8, CV_64F);
  engine->saveCalibrationResult();
  const std::string d2Block =
      "k1_2:0.300000\n"
      "k2_2:-0.400000\n"
      "k3_2:0.500000\n"
      "k4_2:0.000000\n"
      "k5_2:0.000000\n"
      "k6_2:0.000000\n"
      "p1_2:0.003000\n"
      "p1_2:-0.004000\n";
  EXPECT_EQ(ReadFile(dir.File("calibrationResult.txt")),
            FirstSetBody(*engine, kFiveCoefficientD1, d2Block) + AssembleSection(*engine));
}

TEST(ResultFiles, PlatformFilePrintsTheSecondSet) {
  TempDir dir;
  auto engine = FixedEngine();
  engine->savePlatformCalibrationResult();
  const ChartResultSet& second = engine->mSecondResult;
  const std::string expected = Header() +
                               "main camera matrix(K1): \n"
                               "fx1:1111.000000\n"
                               "fy1:1112.000000\n"
                               "cx1:999.000000\n"
                               "cy1:748.000000\n"
                               "\n"
                               "second camera matrix(K2): \n"
                               "fx2:2222.000000\n"
                               "fy2:2223.000000\n"
                               "cx2:998.000000\n"
                               "cy2:747.000000\n"
                               "\n"
                               "main camera projection matrix(P1): \n"
                               "P1:" + MatrixText(second.P1) + "\n\n"
                               "second camera projection matrix(P2): \n"
                               "P2:" + MatrixText(second.P2) + "\n\n"
                               "main camera distortion(D1): \n"
                               "k1_1:1.000000\n"
                               "k2_1:2.000000\n"
                               "k3_1:5.000000\n"
                               "k4_1:6.000000\n"
                               "k5_1:7.000000\n"
                               "k6_1:8.000000\n"
                               "p1_1:3.000000\n"
                               "p1_1:4.000000\n"
                               "\n"
                               "second camera distortion(D2): \n"
                               "k1_2:-1.000000\n"
                               "k2_2:-2.000000\n"
                               "k3_2:-5.000000\n"
                               "p1_2:-3.000000\n"
                               "p1_2:-4.000000\n"
                               "\n"
                               "camera rotation(R): \n"
                               "r_x:0.500000\n"
                               "r_y:0.250000\n"
                               "r_z:0.125000\n"
                               "\n"
                               "main camera rotation(R1): \n"
                               "r_x_1:0.000000\n"
                               "r_y_1:0.000000\n"
                               "r_z_1:0.000000\n"
                               "\n"
                               "second camera rotation(R2): \n"
                               "r_x_2:0.000000\n"
                               "r_y_2:0.000000\n"
                               "r_z_2:0.000000\n"
                               "\n"
                               "camera transition(T): \n"
                               "t_x:1.500000\n"
                               "t_y:2.500000\n"
                               "t_z:3.500000\n"
                               "\n"
                               "dual calibration RMS:0.029578\n"
                               "\n";
  EXPECT_EQ(ReadFile(dir.File("calibrationResult_mtk.txt")), expected);
  EXPECT_FALSE(FileExists(dir.File("calibrationResult.txt")));
}

TEST(ResultFiles, WritingTwiceReplacesTheFile) {
  TempDir dir;
  auto engine = FixedEngine();
  engine->saveCalibrationResult();
  engine->savePlatformCalibrationResult();
  engine->K1.at<double>(0, 0) = 0.1;
  engine->mSecondResult.mT = cv::Vec3d(0.1, 0.0, 0.0);
  engine->saveCalibrationResult();
  engine->savePlatformCalibrationResult();
  std::string expected = FirstSetBody(*engine, kFiveCoefficientD1, kD2WithoutK4ToK6) + AssembleSection(*engine);
  expected.replace(expected.find("fx1:1234.500000\n"), 16, "fx1:0.100000\n");
  EXPECT_EQ(ReadFile(dir.File("calibrationResult.txt")), expected);
  const std::string platform = ReadFile(dir.File("calibrationResult_mtk.txt"));
  EXPECT_EQ(platform.find("chessboard parameters: \n", 1), std::string::npos);
  EXPECT_NE(platform.find("t_x:0.100000\n"), std::string::npos);
}

TEST(ResultFiles, UncreatableFileIsSkippedSilently) {
  TempDir dir;
  setenv("QLM_PICTURES_DIR", dir.File("missing/folder").c_str(), 1);
  auto engine = FixedEngine();
  testing::internal::CaptureStdout();
  engine->saveCalibrationResult();
  engine->savePlatformCalibrationResult();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_FALSE(FileExists(dir.File("missing")));
}
