// The message a station function refuses its input with, for tests that pin
// messages byte for byte.
#pragma once

#include <functional>
#include <string>

#include "station/StationError.h"

// What run throws as a StationError, or "" when it throws none.
inline std::string StationErrorOf(const std::function<void()>& run) {
  try {
    run();
  } catch (const StationError& error) {
    return error.what();
  }
  return "";
}
