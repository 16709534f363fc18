#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <memory>
#include <sstream>
#include <string>

#include <opencv2/calib3d.hpp>

#include "engine/dualCalibration.h"
#include "synthetic/ChessboardRenderer.h"

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

// The residue fit's printout: its solution, then scale and offset.
std::string ResiduePrintout(const dualCalibration& engine) {
  char lines[128];
  std::snprintf(lines, sizeof lines, "m_residueScale==%f\nm_residueOffsetY==%f\n", engine.m_residueScale,
                engine.m_residueOffsetY);
  std::ostringstream solution;
  solution << (cv::Mat_<float>(2, 1) << engine.m_residueScale, engine.m_residueOffsetY) << "\n";
  return solution.str() + lines;
}

}  // namespace

TEST(StereoCalibration, EulerAnglesOfKnownRotations) {
  auto engine = std::make_unique<dualCalibration>();
  // The last is singular (R00 = R10 = 0): a quarter turn about y, so z is 0 and x takes the rest.
  const cv::Vec3d cases[] = {{0.0, 0.0, 0.0}, {0.0054, -0.0073, 0.0047}, {0.5, -0.3, 1.2}, {-2.0, 1.0, -3.0},
                             {0.3, CV_PI / 2, 0.0}};
  for (const cv::Vec3d& angles : cases) {
    float x = 9.0f, y = 9.0f, z = 9.0f;
    engine->rotationToEulerAngles(Rotation(0.0, angles[1], angles[2]) * Rotation(angles[0], 0.0, 0.0), x, y, z);
    EXPECT_NEAR(x, angles[0], 1e-6) << angles;
    EXPECT_NEAR(y, angles[1], 1e-6) << angles;
    EXPECT_NEAR(z, angles[2], 1e-6) << angles;
  }
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
  cv::Mat residue, actual;
  engine->mResidueMatrix.convertTo(residue, CV_64F);
  engine->m_assembleMatrix.convertTo(actual, CV_64F);
  const cv::Mat expected = engine->K2 * engine->R * engine->K1.inv() * residue.inv();
  EXPECT_LT(cv::norm(actual, expected, cv::NORM_INF), 2e-5 * cv::norm(expected, cv::NORM_INF));
}

// The second camera sees each main point's ray; mapped back into the main
// frame it lands at the main point with y scaled and shifted about the centre.
TEST(StereoCalibration, ResidueFitsTheVerticalScaleAndOffsetAfterMapping) {
  const StereoRig rig = ExampleStereoRig(kImageSize, kImageSize);
  const float scale = 1.004f, offsetY = -2.5f, centreX = 999.5f, centreY = 749.5f;
  auto engine = std::make_unique<dualCalibration>();
  engine->chartImageSizes[0] = kImageSize.width, engine->chartImageSizes[1] = kImageSize.height;
  engine->K1 = cv::Mat(rig.main.K).clone();
  engine->K2 = cv::Mat(rig.second.K).clone();
  engine->R = cv::Mat(rig.R).clone();
  for (int view = 0; view < 4; ++view) {
    std::vector<cv::Point2f> mainView, secondView;
    for (int i = 0; i < 54; ++i) {
      const cv::Point2d p(300.0 + 25.0 * i + 7.0 * view, 200.0 + 19.0 * i - 11.0 * view);
      const cv::Vec3d seen = rig.second.K * rig.R * rig.main.K.inv() *
                             cv::Vec3d(p.x, centreY + (p.y - centreY - offsetY) / scale, 1.0);
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
  EXPECT_FLOAT_EQ(residue(0, 0), engine->m_residueScale);
  EXPECT_FLOAT_EQ(residue(1, 1), engine->m_residueScale);
  EXPECT_NEAR(residue(0, 2), centreX * (1.0f - engine->m_residueScale), 1e-3);
  EXPECT_NEAR(residue(1, 2), engine->m_residueOffsetY + centreY * (1.0f - engine->m_residueScale), 1e-3);
  EXPECT_EQ(residue(2, 2), 1.0f);
}
