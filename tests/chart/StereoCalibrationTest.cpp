#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <memory>
#include <sstream>
#include <string>

#include <opencv2/calib3d.hpp>

#include "engine/dualCalibration.h"
#include "synthetic/ChessboardRenderer.h"

namespace {

cv::Mat Rotation(double x, double y, double z) {
  cv::Mat rx, ry, rz;
  cv::Rodrigues(cv::Vec3d(x, 0, 0), rx), cv::Rodrigues(cv::Vec3d(0, y, 0), ry), cv::Rodrigues(cv::Vec3d(0, 0, z), rz);
  return rz * ry * rx;
}

}  // namespace

// The last rotation is singular (R00 = R10 = 0): z is 0 and x takes the rest.
TEST(StereoCalibration, EulerAnglesOfKnownRotations) {
  auto engine = std::make_unique<dualCalibration>();
  for (const cv::Vec3d& angles : {cv::Vec3d(0, 0, 0), {0.0054, -0.0073, 0.0047}, {0.5, -0.3, 1.2}, {-2.0, 1.0, -3.0},
                                  {0.3, CV_PI / 2, 0.0}}) {
    cv::Vec3f found(9.0f, 9.0f, 9.0f);
    engine->rotationToEulerAngles(Rotation(angles[0], angles[1], angles[2]), found[0], found[1], found[2]);
    EXPECT_LT(cv::norm(cv::Vec3d(found) - angles, cv::NORM_INF), 1e-6) << angles << found;
  }
}

// (M K1 R^T K2^-1)^-1 = K2 R K1^-1 M^-1, in single precision.
TEST(StereoCalibration, AssembledMatrixUndoesTheResidueAndTheRotation) {
  auto engine = std::make_unique<dualCalibration>();
  engine->K1 = (cv::Mat_<double>(3, 3) << 1600, 0, 1003.7, 0, 1601.5, 743.8, 0, 0, 1);
  engine->K2 = (cv::Mat_<double>(3, 3) << 1650, 0, 990.9, 0, 1648, 754.4, 0, 0, 1);
  engine->R = Rotation(0.0054, -0.0073, 0.0047);
  engine->mResidueMatrix = (cv::Mat_<float>(3, 3) << 1.002f, 0, -2.0f, 0, 1.002f, 3.5f, 0, 0, 1);
  engine->assembleRectifyMatrix();
  ASSERT_EQ(engine->m_assembleMatrix.type(), CV_32F);
  cv::Mat residue, actual;
  engine->mResidueMatrix.convertTo(residue, CV_64F);
  engine->m_assembleMatrix.convertTo(actual, CV_64F);
  const cv::Mat expected = engine->K2 * engine->R * engine->K1.inv() * residue.inv();
  EXPECT_LT(cv::norm(actual, expected, cv::NORM_INF), 2e-5 * cv::norm(expected, cv::NORM_INF));
}

// The second camera sees each main point's ray; mapped back into the main
// frame it lands at the main point with y scaled by 1.004 and shifted by
// -2.5 about the centre (999.5, 749.5). Only the first four views are read.
TEST(StereoCalibration, ResidueFitsTheVerticalScaleAndOffsetAfterMapping) {
  const StereoRig rig = ExampleStereoRig({2000, 1500}, {2000, 1500});
  auto engine = std::make_unique<dualCalibration>();
  engine->chartImageSizes[0] = 2000, engine->chartImageSizes[1] = 1500;
  engine->K1 = cv::Mat(rig.main.K).clone(), engine->K2 = cv::Mat(rig.second.K).clone(), engine->R = cv::Mat(rig.R).clone();
  engine->mImagePoints1.resize(5), engine->mImagePoints2.resize(5);
  for (int i = 0; i < 4 * 54; ++i) {
    const cv::Point2d p(300.0 + 25.0 * (i % 54) + 7.0 * (i / 54), 200.0 + 19.0 * (i % 54) - 11.0 * (i / 54));
    const cv::Vec3d seen = rig.second.K * rig.R * rig.main.K.inv() * cv::Vec3d(p.x, 749.5 + (p.y - 749.5 + 2.5) / 1.004, 1.0);
    engine->mImagePoints1[i / 54].emplace_back(p);
    engine->mImagePoints2[i / 54].emplace_back(static_cast<float>(seen[0] / seen[2]), static_cast<float>(seen[1] / seen[2]));
  }
  engine->mImagePoints1[4] = {{1.0f, 1.0f}}, engine->mImagePoints2[4] = {{900.0f, 900.0f}};
  testing::internal::CaptureStdout();
  engine->computeResidue();
  const std::string printed = testing::internal::GetCapturedStdout();
  EXPECT_NEAR(engine->m_residueScale, 1.004f, 2e-5);
  EXPECT_NEAR(engine->m_residueOffsetY, -2.5f, 0.01);
  char lines[80];
  std::snprintf(lines, sizeof lines, "m_residueScale==%f\nm_residueOffsetY==%f\n", engine->m_residueScale,
                engine->m_residueOffsetY);
  std::ostringstream solution;
  solution << cv::Mat(cv::Matx21f(engine->m_residueScale, engine->m_residueOffsetY)) << "\n" << lines;
  EXPECT_EQ(printed, solution.str());
  const float s = engine->m_residueScale;
  const cv::Mat expected = (cv::Mat_<float>(3, 3) << s, 0, 999.5f * (1 - s), 0, s, engine->m_residueOffsetY + 749.5f * (1 - s), 0, 0, 1);
  EXPECT_LT(cv::norm(engine->mResidueMatrix, expected, cv::NORM_INF), 1e-3);
}
