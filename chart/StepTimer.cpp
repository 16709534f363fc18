#include "chart/StepTimer.h"

#include <ctime>
#include <iostream>

void StartTimer(StepTimer& timer) { timer.start = static_cast<int64_t>(std::clock()); }

void PrintElapsed(StepTimer& timer, const char* name) {
  const int64_t now = static_cast<int64_t>(std::clock());
  timer.last = now;
  timer.elapsed = static_cast<double>(now - timer.start) / 1000000.0;
  std::cout << "time:func" << name << "... ..." << timer.elapsed << "s " << std::endl;
}
