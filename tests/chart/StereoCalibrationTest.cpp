#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <memory>
#include <sstream>
#include <string>

#include <opencv2/calib3d.hpp>

#include "engine/dualCalibration.h"
#include "synthetic/ChessboardRenderer.h"
#include "tests/support/TestFiles.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

const cv::Size kImageSize(2000, 1500);

cv::Mat Rotation(double x, double y, double z) {
  cv::Mat rx, ry, rz;
  cv::Rodrigues(cv::Vec3d(x, 0, 0), rx);
  cv::Rodrigues(cv::Vec3d(0, y, 0), ry);
  cv::Rodrigues(cv::Vec3d(0, 0, z), rz);
  return rz * ry * rx;
}

std::string Streamed(double value) {
  std::ostringstream text;
  text << value;
  return text.str();
}

std::string ResiduePrintout(const dualCalibration& engine) {
  std::ostringstream text;
  text << (cv::Mat_<float>(2, 1) << engine.m_residueScale, engine.m_residueOffsetY) << "\n";
  char lines[128];
  std::snprintf(lines, sizeof lines, "m_residueScale==%f\nm_residueOffsetY==%f\n", engine.m_residueScale,
                engine.m_residueOffsetY);
  return text.str() + lines;
}

// Exact corner projections of six board poses through the example rig,
// with the rig's own intrinsics in K1 and K2.
std::unique_ptr<dualCalibration> ProjectedViewsEngine(const StereoRig& rig) {
  auto engine = std::make_unique<dualCalibration>();
  engine->m_nBoardWidth = 9, engine->m_nBoardHeight = 6, engine->m_nSquareSize = 25;
  engine->chartImageSizes[0] = engine->chartImageSizes[2] = kImageSize.width;
  engine->chartImageSizes[1] = engine->chartImageSizes[3] = kImageSize.height;
  const ChessboardLayout layout;
  std::vector<cv::Point3f> board;
  for (int i = 0; i < 6; ++i) {
    for (int j = 0; j < 9; ++j) board.emplace_back(j * 25.0f, i * 25.0f, 0.0f);
  }
  for (const BoardPose& pose : RandomBoardPoses(rig, layout, 6, 21)) {
    cv::Matx33d rotation;
    cv::Rodrigues(pose.rvec, rotation);
    engine->mObjectPoints.push_back(board);
    engine->mImagePoints1.push_back(ProjectBoardCorners(rig.main, layout, rotation, pose.tvec));
    engine->mImagePoints2.push_back(
        ProjectBoardCorners(rig.second, layout, rig.R * rotation, rig.R * pose.tvec + rig.T));
  }
  engine->K1 = cv::Mat(rig.main.K).clone();
  engine->K2 = cv::Mat(rig.second.K).clone();
  engine->m_nDualCalibFixIntrinsic = 1;
  engine->m_nMaxRx = engine->m_nMaxRy = engine->m_nMaxRz = 100;
  engine->m_nMaxTransition = 100;
  engine->m_nMaxReprojectionERROR = 100;
  return engine;
}

std::string StageHead(const dualCalibration& engine) {
  return "Starting stereo calibration ... \n"
         "Dual calibration RMS:" + Streamed(engine.mRMS) + "\n"
         "Transition vector:[" + Streamed(engine.mT[0]) + ", " + Streamed(engine.mT[1]) + ", " +
         Streamed(engine.mT[2]) + "]\n"
         "Stereo calibration done \n \n";
}

}  // namespace

TEST(StereoCalibration, EulerAnglesOfKnownRotations) {
  auto engine = std::make_unique<dualCalibration>();
  const cv::Vec3d cases[] = {{0.0, 0.0, 0.0}, {0.0054, -0.0073, 0.0047}, {0.5, -0.3, 1.2}, {-2.0, 1.0, -3.0}};
  for (const cv::Vec3d& angles : cases) {
    float x = 9.0f, y = 9.0f, z = 9.0f;
    engine->rotationToEulerAngles(Rotation(angles[0], angles[1], angles[2]), x, y, z);
    EXPECT_NEAR(x, angles[0], 1e-6) << angles;
    EXPECT_NEAR(y, angles[1], 1e-6) << angles;
    EXPECT_NEAR(z, angles[2], 1e-6) << angles;
  }
}

TEST(StereoCalibration, EulerAnglesOfASingularRotationHaveNoZ) {
  auto engine = std::make_unique<dualCalibration>();
  // A quarter turn about y followed by 0.3 about x: R00 = R10 = 0.
  float x = 9.0f, y = 9.0f, z = 9.0f;
  engine->rotationToEulerAngles(Rotation(0.0, CV_PI / 2, 0.0) * Rotation(0.3, 0.0, 0.0), x, y, z);
  EXPECT_NEAR(x, 0.3f, 1e-6);
  EXPECT_NEAR(y, static_cast<float>(CV_PI / 2), 1e-6);
  EXPECT_EQ(z, 0.0f);
}

TEST(StereoCalibration, AssembledMatrixUndoesTheResidueAndTheRotation) {
  auto engine = std::make_unique<dualCalibration>();
  engine->K1 = (cv::Mat_<double>(3, 3) << 1600, 0, 1003.7, 0, 1601.5, 743.8, 0, 0, 1);
  engine->K2 = (cv::Mat_<double>(3, 3) << 1650, 0, 990.9, 0, 1648, 754.4, 0, 0, 1);
  engine->R = Rotation(0.0054, -0.0073, 0.0047);
  engine->mResidueMatrix = (cv::Mat_<float>(3, 3) << 1.002f, 0, -2.0f, 0, 1.002f, 3.5f, 0, 0, 1);
  engine->assembleRectifyMatrix();
  ASSERT_EQ(engine->m_assembleMatrix.type(), CV_32F);
  // (M K1 R^T K2^-1)^-1 = K2 R K1^-1 M^-1.
  cv::Mat residue;
  engine->mResidueMatrix.convertTo(residue, CV_64F);
  const cv::Mat expected = engine->K2 * engine->R * engine->K1.inv() * residue.inv();
  cv::Mat actual;
  engine->m_assembleMatrix.convertTo(actual, CV_64F);
  EXPECT_LT(cv::norm(actual, expected, cv::NORM_INF), 2e-5 * cv::norm(expected, cv::NORM_INF));
}

TEST(StereoCalibration, ResidueFitsTheVerticalScaleAndOffsetAfterMapping) {
  const StereoRig rig = ExampleStereoRig(kImageSize, kImageSize);
  const float scale = 1.004f, offsetY = -2.5f;
  const float centreX = 999.5f, centreY = 749.5f;
  auto engine = std::make_unique<dualCalibration>();
  engine->chartImageSizes[0] = kImageSize.width, engine->chartImageSizes[1] = kImageSize.height;
  engine->K1 = cv::Mat(rig.main.K).clone();
  engine->K2 = cv::Mat(rig.second.K).clone();
  engine->R = cv::Mat(rig.R).clone();
  // The second camera sees each main point's ray; mapped back into the main
  // frame it lands at the main point with y scaled and shifted about the centre.
  for (int view = 0; view < 4; ++view) {
    std::vector<cv::Point2f> mainView, secondView;
    for (int i = 0; i < 54; ++i) {
      const cv::Point2d p(300.0 + 25.0 * i + 7.0 * view, 200.0 + 19.0 * i - 11.0 * view);
      const cv::Point2d mapped(p.x, centreY + (p.y - centreY - offsetY) / scale);
      const cv::Vec3d seen = rig.second.K * rig.R * rig.main.K.inv() * cv::Vec3d(mapped.x, mapped.y, 1.0);
      mainView.emplace_back(static_cast<float>(p.x), static_cast<float>(p.y));
      secondView.emplace_back(static_cast<float>(seen[0] / seen[2]), static_cast<float>(seen[1] / seen[2]));
    }
    engine->mImagePoints1.push_back(mainView);
    engine->mImagePoints2.push_back(secondView);
  }
  engine->mImagePoints1.push_back({{1.0f, 1.0f}});  // a fifth view is not read
  engine->mImagePoints2.push_back({{900.0f, 900.0f}});
  CaptureStdout();
  engine->computeResidue();
  const std::string printed = GetCapturedStdout();
  EXPECT_NEAR(engine->m_residueScale, scale, 2e-5);
  EXPECT_NEAR(engine->m_residueOffsetY, offsetY, 0.01);
  EXPECT_EQ(printed, ResiduePrintout(*engine));
  const cv::Mat_<float> residue = engine->mResidueMatrix;
  ASSERT_EQ(engine->mResidueMatrix.type(), CV_32F);
  EXPECT_FLOAT_EQ(residue(0, 0), engine->m_residueScale);
  EXPECT_FLOAT_EQ(residue(1, 1), engine->m_residueScale);
  EXPECT_NEAR(residue(0, 2), centreX * (1.0f - engine->m_residueScale), 1e-3);
  EXPECT_NEAR(residue(1, 2), engine->m_residueOffsetY + centreY * (1.0f - engine->m_residueScale), 1e-3);
  EXPECT_EQ(residue(2, 2), 1.0f);
}

TEST(StereoCalibration, StagePrintsWritesAndChecksInOrder) {
  TempDir dir;
  const StereoRig rig = ExampleStereoRig(kImageSize, kImageSize);
  auto engine = ProjectedViewsEngine(rig);
  engine->m_nMaxRx = 0;                  // r_x of the rig is about 0.3 degrees
  engine->m_nMaxTransition = 10;         // |T| = 40 along x
  engine->m_nMaxReprojectionERROR = 0;   // any error is too big
  engine->R1 = cv::Mat::eye(3, 3, CV_64F) * 7.0;
  engine->r_x_1 = 0.25f;
  CaptureStdout();
  EXPECT_EQ(engine->stereoCalibration(), 1);
  const std::string printed = GetCapturedStdout();
  EXPECT_EQ(printed, StageHead(*engine) + ResiduePrintout(*engine) +
                         "ERROR: RX value is too big ! \n"
                         "ERROR: transition X value is too big ! \n"
                         "ERROR: dual camera reprojection is too big ! \n");
  EXPECT_LT(cv::norm(engine->mT - rig.T), 1e-3);
  EXPECT_NEAR(engine->r_x, std::atan2(rig.R(2, 1), rig.R(2, 2)), 1e-6);
  EXPECT_NEAR(engine->r_z, std::atan2(rig.R(1, 0), rig.R(0, 0)), 1e-6);
  EXPECT_EQ(cv::countNonZero(engine->D1), 0);
  EXPECT_EQ(cv::countNonZero(engine->D2), 0);
  // Without the debug switch nothing of the rectification is touched.
  EXPECT_EQ(engine->R1.at<double>(0, 0), 7.0);
  EXPECT_EQ(engine->r_x_1, 0.25f);
  EXPECT_TRUE(engine->P1.empty());
  // Written whatever the checks say.
  const std::string result = ReadFile(dir.File("calibrationResult.txt"));
  EXPECT_NE(result.find("board_width:9\n"), std::string::npos);
  EXPECT_NE(result.find("P1:[]\n"), std::string::npos);
  EXPECT_EQ(ReadFile(dir.File("calib_log.txt")), "\nstereoCalibration\n"
                                                  "m_nMaxReprojectionERROR/100.0 threshold==0\n"
                                                  "mRMS==" + Streamed(engine->mRMS) + "\n"
                                                  "m_nMaxTransition threshold==10\n"
                                                  "mT[0]==" + Streamed(engine->mT[0]) + "\n"
                                                  "mT[1]==" + Streamed(engine->mT[1]) + "\n"
                                                  "mT[2]==" + Streamed(engine->mT[2]) + "\n");
}

TEST(StereoCalibration, DebugSwitchRectifies) {
  TempDir dir;
  const StereoRig rig = ExampleStereoRig(kImageSize, kImageSize);
  auto engine = ProjectedViewsEngine(rig);
  engine->m_bSaveDebugInfo = 1;
  CaptureStdout();
  engine->stereoCalibration();
  const std::string printed = GetCapturedStdout();
  EXPECT_EQ(printed, StageHead(*engine) + "Starting rectification ... \nRectification done \n" +
                         ResiduePrintout(*engine));
  ASSERT_EQ(engine->P2.size(), cv::Size(4, 3));
  // Zero disparity: the horizontal baseline ends up in P2[0][3].
  EXPECT_GT(std::fabs(engine->P2.at<double>(0, 3)), 10.0 * std::fabs(engine->P2.at<double>(1, 3)));
  float x, y, z;
  engine->rotationToEulerAngles(engine->R2, x, y, z);
  EXPECT_EQ(engine->r_x_2, x);
  EXPECT_EQ(engine->r_z_2, z);
  EXPECT_NE(engine->r_y_1, 0.0f);
  char line[64];
  std::snprintf(line, sizeof line, "r_y_1:%.6f\n", engine->r_y_1);
  EXPECT_NE(ReadFile(dir.File("calibrationResult.txt")).find(line), std::string::npos);
}
