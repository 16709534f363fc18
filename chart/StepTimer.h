// A stopwatch over processor time that prints the time spent in a named step.
#pragma once

#include <cstdint>

struct StepTimer {
  int64_t start = 0;    // clock() ticks
  int64_t last = 0;     // clock() ticks at the last printout
  double elapsed = 0.0;  // seconds from start to last
};

// Stores the current clock() in start.
void StartTimer(StepTimer& timer);

// Prints "time:func<name>... ...<seconds>s " and a line end, measured from
// start (which stays), and keeps the time in last and elapsed.
void PrintElapsed(StepTimer& timer, const char* name);
