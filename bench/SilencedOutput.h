// Sends the given standard streams (STDOUT_FILENO, STDERR_FILENO) to
// /dev/null while alive: the library and the engine print their progress
// there, which would bury a benchmark's own output.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <initializer_list>
#include <iostream>
#include <utility>
#include <vector>

class SilencedOutput {
 public:
  explicit SilencedOutput(std::initializer_list<int> streams = {STDOUT_FILENO, STDERR_FILENO}) {
    std::cout.flush();
    std::fflush(nullptr);
    const int devNull = open("/dev/null", O_WRONLY);
    for (const int stream : streams) {
      mSaved.emplace_back(stream, dup(stream));
      dup2(devNull, stream);
    }
    close(devNull);
  }
  ~SilencedOutput() {
    std::cout.flush();
    std::fflush(nullptr);
    for (const auto& [stream, saved] : mSaved) {
      dup2(saved, stream);
      close(saved);
    }
  }
  SilencedOutput(const SilencedOutput&) = delete;
  SilencedOutput& operator=(const SilencedOutput&) = delete;

 private:
  std::vector<std::pair<int, int>> mSaved;  // stream, its saved copy
};
