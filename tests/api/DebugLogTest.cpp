#include "api/DebugLog.h"

#include <gtest/gtest.h>

#include "api/Globals.h"
#include "tests/support/AndroidLog.h"

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

TEST(DebugLog, WritesInfoLinesWithTheLibraryTagWhileTheSwitchIsOn) {
  ASSERT_EQ(g_bDebugLog, 1);
  CaptureStderr();
  DebugLog("QLM LOG:QLM_Calib_INIT= %d  \n", -2);
  g_bDebugLog = 0;
  DebugLog("QLM LOG:ERROR 1 \n");
  g_bDebugLog = 1;
  DebugLog("QLM LOG:m_nFeaturePointsNumThreshold=%d", 40);
  EXPECT_EQ(StripAndroidLogPrefixes(GetCapturedStderr()),
            "Tarnweather I QLM LOG:QLM_Calib_INIT= -2  \n\n"
            "Tarnweather I QLM LOG:m_nFeaturePointsNumThreshold=40\n");
}
