#include "chart/StepTimer.h"

#include "tests/support/TestPrelude.h"

#include <ctime>

// Two printouts of one step, the first after some processor time has passed: the second counts from the same start.
TEST(StepTimer, PrintsTheSecondsSinceTheStart) {
  StepTimer timer;
  StartTimer(timer);
  const int64_t start = timer.start;
  while (std::clock() - start < CLOCKS_PER_SEC / 50) continue;
  testing::internal::CaptureStdout();
  PrintElapsed(timer, "Mono");
  const double first = timer.elapsed;
  PrintElapsed(timer, "Stereo");
  std::ostringstream expected;
  expected << "time:funcMono... ..." << first << "s \ntime:funcStereo... ..." << timer.elapsed << "s \n";
  EXPECT_EQ(testing::internal::GetCapturedStdout(), expected.str());
  EXPECT_TRUE(timer.start == start && first >= 0.02 && timer.elapsed >= first) << first << " " << timer.elapsed;
  EXPECT_EQ(timer.elapsed, static_cast<double>(timer.last - start) / CLOCKS_PER_SEC);
}
