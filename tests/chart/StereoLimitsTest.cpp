#include "chart/StereoLimits.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <memory>
#include <string>

#include "engine/dualCalibration.h"
#include "tests/support/TestFiles.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

// 0.0087 rad is 4.985 tenths of a degree, 0.0088 rad 5.042 (single-precision product, double division by 3.1415926).
// The translation is reported only with a too large reprojection error. Limits are strict and NaN passes.
TEST(StereoLimits, WarningsFollowTheChecks) {
  const float scaled = 0.0123f * 180.0f * 10.0f;
  EXPECT_EQ(AngleTenthsOfDegree(-0.0123f), static_cast<float>(static_cast<double>(scaled) / 3.1415926));
  const std::map<char, std::string> warnings = {
      {'X', "RX value"},           {'Y', "RY value"},           {'Z', "RZ value"}, {'x', "transition X value"},
      {'y', "transition Y value"}, {'z', "transition Z value"}, {'R', "dual camera reprojection"}};
  const struct {
    float rx, ry, rz;
    int32_t limitY;
    float rms;
    cv::Vec3d T;
    const char* warned;  // in the order printed
  } cases[] = {
      {0.0087f, 0.0087f, -0.0087f, 5, 0.5f, {1000.0, -1000.0, 1000.0}, ""},
      {0.0088f, 0.0f, 0.0f, 5, 0.2f, {-60.0, 2.0, 1.0}, "X"},
      {-0.0088f, 0.0f, 0.0f, 5, 0.51f, {49.0, -50.0, 50.0}, "XR"},
      {0.0f, -0.0088f, 0.0f, 5, 0.0f, {}, "Y"},
      {0.0f, -0.0088f, 0.0f, 6, 0.0f, {}, ""},
      {0.0f, 0.0f, 0.0088f, 5, 0.51f, {-50.5, 0.0, 50.5}, "ZxzR"},
      {0.0088f, -0.0088f, 0.0088f, 5, 0.51f, {0.0, 51.0, -51.0}, "XYZyzR"},
      {NAN, 0.0087f, -0.0088f, 5, 3.0f, {-1000.0, 1000.0, 60.0}, "ZxyzR"},
  };
  auto engine = std::make_unique<dualCalibration>();
  engine->m_nMaxRx = engine->m_nMaxRz = 5;
  engine->m_nMaxReprojectionERROR = engine->m_nMaxTransition = 50;
  for (const auto& c : cases) {
    engine->r_x = c.rx, engine->r_y = c.ry, engine->r_z = c.rz, engine->m_nMaxRy = c.limitY;
    engine->mRMS = c.rms, engine->mT = c.T;
    CaptureStdout();
    PrintRotationWarnings(engine->evaluateChartLimits());
    PrintReprojectionWarnings(engine->evaluateChartLimits());
    std::string expected;
    for (const char* w = c.warned; *w != '\0'; ++w) expected += "ERROR: " + warnings.at(*w) + " is too big ! \n";
    EXPECT_EQ(GetCapturedStdout(), expected) << c.warned;
  }
  engine->m_nMaxReprojectionERROR = 37;
  engine->mRMS = 0.37f;  // just above 0.37 in single precision
  EXPECT_FALSE(engine->evaluateChartLimits().stereoReprojection);
  engine->mRMS = std::nextafter(0.37f, 0.0f);
  EXPECT_TRUE(engine->evaluateChartLimits().stereoReprojection);
  engine->mMonoRMS1 = 0.3, engine->mMonoRMS2 = 0.37;
  EXPECT_TRUE(engine->evaluateChartLimits().monoReprojection);
  engine->mMonoRMS2 = 0.38;
  EXPECT_FALSE(engine->evaluateChartLimits().monoReprojection);
}

// An unopenable log is skipped silently (ResultFiles.UncreatableFilesAreSkippedSilently).
TEST(StereoLimits, CalibLogIsAppended) {
  TempDir dir;
  auto engine = std::make_unique<dualCalibration>();
  engine->m_nMaxReprojectionERROR = 50, engine->m_nMaxTransition = 45;
  engine->mRMS = 0.123456789f, engine->mT = cv::Vec3d(-40.00353, 0.6021654, 1.2064412);
  engine->appendCalibLog();
  engine->m_nMaxReprojectionERROR = 5;
  engine->mRMS = 2.0f, engine->mT = cv::Vec3d(1e-7, 123456789.0, -0.0);
  engine->appendCalibLog();
  ExpectGolden(ReadFile(dir.File("calib_log.txt")), "chart/CalibLog.golden");
}
