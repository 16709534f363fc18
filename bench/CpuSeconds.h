// CPU time of this process: the chart driver and the searches run on one
// thread, so their CPU time is their time on an idle machine, whatever else
// the machine runs.
#pragma once

#include <ctime>

inline double CpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return now.tv_sec + 1e-9 * now.tv_nsec;
}
