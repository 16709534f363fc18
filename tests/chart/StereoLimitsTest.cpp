#include "chart/StereoLimits.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <memory>
#include <string>

#include "engine/dualCalibration.h"
#include "tests/support/TestFiles.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

std::string RotationWarnings(const dualCalibration& engine) {
  CaptureStdout();
  PrintRotationWarnings(engine.evaluateChartLimits());
  return GetCapturedStdout();
}

std::string ReprojectionWarnings(const dualCalibration& engine) {
  CaptureStdout();
  PrintReprojectionWarnings(engine.evaluateChartLimits());
  return GetCapturedStdout();
}

}  // namespace

TEST(StereoLimits, AngleInTenthsOfADegree) {
  EXPECT_NEAR(AngleTenthsOfDegree(0.0087f), 4.985f, 1e-3f);
  EXPECT_NEAR(AngleTenthsOfDegree(-0.0088f), 5.042f, 1e-3f);
  EXPECT_EQ(AngleTenthsOfDegree(0.0f), 0.0f);
  // Single-precision product, double division by 3.1415926, rounded to float.
  const float scaled = 0.0123f * 180.0f * 10.0f;
  EXPECT_EQ(AngleTenthsOfDegree(0.0123f), static_cast<float>(static_cast<double>(scaled) / 3.1415926));
}

TEST(StereoLimits, RotationChecksAtTheTenthOfADegree) {
  struct Case {
    float rx, ry, rz;
    const char* expected;
  };
  const Case cases[] = {
      {0.0087f, 0.0087f, 0.0087f, ""},
      {0.0088f, 0.0f, 0.0f, "ERROR: RX value is too big ! \n"},
      {-0.0088f, 0.0f, 0.0f, "ERROR: RX value is too big ! \n"},
      {0.0f, -0.0088f, 0.0f, "ERROR: RY value is too big ! \n"},
      {0.0f, 0.0f, 0.0088f, "ERROR: RZ value is too big ! \n"},
      {0.0088f, -0.0088f, 0.0088f,
       "ERROR: RX value is too big ! \nERROR: RY value is too big ! \nERROR: RZ value is too big ! \n"},
      {0.0088f, 0.0087f, -0.0088f, "ERROR: RX value is too big ! \nERROR: RZ value is too big ! \n"},
      {NAN, 0.0f, 0.0f, ""},
  };
  auto engine = std::make_unique<dualCalibration>();
  engine->m_nMaxRx = 5, engine->m_nMaxRy = 5, engine->m_nMaxRz = 5;
  for (const Case& c : cases) {
    engine->r_x = c.rx, engine->r_y = c.ry, engine->r_z = c.rz;
    EXPECT_EQ(RotationWarnings(*engine), c.expected) << c.rx << " " << c.ry << " " << c.rz;
  }
}

TEST(StereoLimits, EachRotationUsesItsOwnLimit) {
  auto engine = std::make_unique<dualCalibration>();
  engine->r_x = engine->r_y = engine->r_z = 0.0088f;  // 5.042 tenths
  engine->m_nMaxRx = 6, engine->m_nMaxRy = 5, engine->m_nMaxRz = 6;
  EXPECT_EQ(RotationWarnings(*engine), "ERROR: RY value is too big ! \n");
  const ChartLimitChecks checks = engine->evaluateChartLimits();
  EXPECT_TRUE(checks.rotationX);
  EXPECT_FALSE(checks.rotationY);
  EXPECT_TRUE(checks.rotationZ);
}

TEST(StereoLimits, TranslationIsReportedOnlyWithATooLargeReprojectionError) {
  struct Case {
    float rms;
    cv::Vec3d T;
    const char* expected;
  };
  const Case cases[] = {
      {0.5f, {1000.0, -1000.0, 1000.0}, ""},  // at the limit: no message at all
      {0.2f, {-60.0, 2.0, 1.0}, ""},
      {0.51f, {49.0, -50.0, 50.0}, "ERROR: dual camera reprojection is too big ! \n"},
      {0.51f, {-50.5, 0.0, 0.0},
       "ERROR: transition X value is too big ! \nERROR: dual camera reprojection is too big ! \n"},
      {0.51f, {0.0, 51.0, -51.0},
       "ERROR: transition Y value is too big ! \nERROR: transition Z value is too big ! \n"
       "ERROR: dual camera reprojection is too big ! \n"},
      {3.0f, {-1000.0, 1000.0, 60.0},
       "ERROR: transition X value is too big ! \nERROR: transition Y value is too big ! \n"
       "ERROR: transition Z value is too big ! \nERROR: dual camera reprojection is too big ! \n"},
  };
  auto engine = std::make_unique<dualCalibration>();
  engine->m_nMaxReprojectionERROR = 50;
  engine->m_nMaxTransition = 50;
  for (const Case& c : cases) {
    engine->mRMS = c.rms;
    engine->mT = c.T;
    EXPECT_EQ(ReprojectionWarnings(*engine), c.expected) << c.rms << " " << c.T;
  }
}

TEST(StereoLimits, ReprojectionLimitIsStrict) {
  auto engine = std::make_unique<dualCalibration>();
  engine->m_nMaxReprojectionERROR = 37;
  engine->mRMS = 0.37f;  // just above 0.37 in single precision
  EXPECT_FALSE(engine->evaluateChartLimits().stereoReprojection);
  engine->mRMS = std::nextafter(0.37f, 0.0f);
  EXPECT_TRUE(engine->evaluateChartLimits().stereoReprojection);
}

TEST(StereoLimits, ChecksReportTheMonoErrorsToo) {
  auto engine = std::make_unique<dualCalibration>();
  engine->m_nMaxReprojectionERROR = 50;
  engine->mMonoRMS1 = 0.3, engine->mMonoRMS2 = 0.5;
  EXPECT_TRUE(engine->evaluateChartLimits().monoReprojection);
  engine->mMonoRMS2 = 0.6;
  EXPECT_FALSE(engine->evaluateChartLimits().monoReprojection);
}

TEST(StereoLimits, CalibLogIsAppendedLineByLine) {
  TempDir dir;
  auto engine = std::make_unique<dualCalibration>();
  engine->m_nMaxReprojectionERROR = 50;
  engine->m_nMaxTransition = 45;
  engine->mRMS = 0.123456789f;
  engine->mT = cv::Vec3d(-40.00353, 0.6021654, 1.2064412);
  engine->appendCalibLog();
  const std::string once =
      "\n"
      "stereoCalibration\n"
      "m_nMaxReprojectionERROR/100.0 threshold==0.5\n"
      "mRMS==0.123457\n"
      "m_nMaxTransition threshold==45\n"
      "mT[0]==-40.0035\n"
      "mT[1]==0.602165\n"
      "mT[2]==1.20644\n";
  EXPECT_EQ(ReadFile(dir.File("calib_log.txt")), once);
  engine->m_nMaxReprojectionERROR = 5;
  engine->mRMS = 2.0f;
  engine->mT = cv::Vec3d(1e-7, 123456789.0, -0.0);
  engine->appendCalibLog();
  const std::string twice = once +
                            "\n"
                            "stereoCalibration\n"
                            "m_nMaxReprojectionERROR/100.0 threshold==0.05\n"
                            "mRMS==2\n"
                            "m_nMaxTransition threshold==45\n"
                            "mT[0]==1e-07\n"
                            "mT[1]==1.23457e+08\n"
                            "mT[2]==-0\n";
  EXPECT_EQ(ReadFile(dir.File("calib_log.txt")), twice);
}

TEST(StereoLimits, UnopenableCalibLogIsSkippedSilently) {
  TempDir dir;
  setenv("QLM_PICTURES_DIR", dir.File("missing/folder").c_str(), 1);
  auto engine = std::make_unique<dualCalibration>();
  CaptureStdout();
  engine->appendCalibLog();
  EXPECT_EQ(GetCapturedStdout(), "");
  EXPECT_FALSE(FileExists(dir.File("missing")));
}
