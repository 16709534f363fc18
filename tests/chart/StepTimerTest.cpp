#include "chart/StepTimer.h"

#include <gtest/gtest.h>

#include <ctime>
#include <sstream>
#include <string>

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

void BurnProcessorTime(std::clock_t ticks) {
  const std::clock_t until = std::clock() + ticks;
  volatile double sink = 0.0;
  while (std::clock() < until) sink = sink + 1.0;
}

// The seconds printed by one line, checked against the line's layout.
double PrintedSeconds(const std::string& line, const std::string& name) {
  const std::string head = "time:func" + name + "... ...";
  const std::string tail = "s \n";
  const bool framed = line.size() > head.size() + tail.size() && line.compare(0, head.size(), head) == 0 &&
                      line.compare(line.size() - tail.size(), tail.size(), tail) == 0;
  EXPECT_TRUE(framed) << line;
  if (!framed) return -1.0;
  const std::string number = line.substr(head.size(), line.size() - head.size() - tail.size());
  size_t used = 0;
  const double seconds = std::stod(number, &used);
  EXPECT_EQ(used, number.size()) << line;
  return seconds;
}

std::string Formatted(double value) {
  std::ostringstream text;
  text << value;
  return text.str();
}

}  // namespace

TEST(StepTimer, StartStoresTheClock) {
  StepTimer timer;
  const std::clock_t before = std::clock();
  StartTimer(timer);
  EXPECT_GE(timer.start, static_cast<int64_t>(before));
  EXPECT_LE(timer.start, static_cast<int64_t>(std::clock()));
}

TEST(StepTimer, PrintoutsMeasureFromTheSameStart) {
  StepTimer timer;
  StartTimer(timer);
  const int64_t start = timer.start;
  BurnProcessorTime(CLOCKS_PER_SEC / 50);
  CaptureStdout();
  PrintElapsed(timer, "detect");
  const std::string first = GetCapturedStdout();
  EXPECT_EQ(first, "time:funcdetect... ..." + Formatted(timer.elapsed) + "s \n");
  EXPECT_EQ(timer.elapsed, static_cast<double>(timer.last - start) / 1000000.0);
  const double firstSeconds = PrintedSeconds(first, "detect");
  EXPECT_GE(firstSeconds, 0.015);
  BurnProcessorTime(CLOCKS_PER_SEC / 50);
  CaptureStdout();
  PrintElapsed(timer, "calibrate");
  const double secondSeconds = PrintedSeconds(GetCapturedStdout(), "calibrate");
  EXPECT_EQ(timer.start, start);
  EXPECT_GT(secondSeconds, firstSeconds + 0.015);
}
