#include "chart/StereoLimits.h"

#include "tests/support/TestPrelude.h"

#include "engine/dualCalibration.h"

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
  auto engine = std::make_unique<dualCalibration>();
  engine->m_nMaxRx = engine->m_nMaxRz = 5;
  engine->m_nMaxReprojectionERROR = engine->m_nMaxTransition = 50;
  for (const auto& c : CaseRows("chart/StereoWarnings.txt")) {
    const std::vector<double> angles = Numbers(c[0]), T = Numbers(c[3]);
    engine->r_x = float(angles[0]), engine->r_y = float(angles[1]), engine->r_z = float(angles[2]);
    engine->m_nMaxRy = std::stoi(c[1]), engine->mRMS = std::stof(c[2]), engine->mT = cv::Vec3d(T[0], T[1], T[2]);
    CaptureStdout();
    PrintRotationWarnings(engine->evaluateChartLimits());
    PrintReprojectionWarnings(engine->evaluateChartLimits());
    std::string expected;
    for (const char w : c[4]) expected += w == '-' ? "" : "ERROR: " + warnings.at(w) + " is too big ! \n";
    EXPECT_EQ(GetCapturedStdout(), expected) << c[4];
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
