#include "api/DebugLog.h"

#include <gtest/gtest.h>

#include "api/Globals.h"
#include "tests/support/AndroidLog.h"

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

TEST(DebugLog, WritesInfoLinesWithTheLibraryTag) {
  ASSERT_EQ(g_bDebugLog, 1);
  CaptureStderr();
  DebugLog("QLM LOG:QLM_Calib_INIT= %d  \n", -2);
  DebugLog("QLM LOG:m_nFeaturePointsNumThreshold=%d", 40);
  const std::string printed = GetCapturedStderr();
  EXPECT_EQ(StripAndroidLogPrefixes(printed),
            "Tarnweather I QLM LOG:QLM_Calib_INIT= -2  \n\n"
            "Tarnweather I QLM LOG:m_nFeaturePointsNumThreshold=40\n");
  EXPECT_NE(printed, StripAndroidLogPrefixes(printed)) << "liblog adds date, time and ids";
}

TEST(DebugLog, SilentWhileTheSwitchIsOff) {
  g_bDebugLog = 0;
  CaptureStderr();
  DebugLog("QLM LOG:ERROR 1 \n");
  const std::string printed = GetCapturedStderr();
  g_bDebugLog = 1;
  EXPECT_EQ(printed, "");
}
