// The message of the ToolError a call throws, for the tool's unit tests.
#pragma once

#include <functional>
#include <string>

#include "tools/ToolInput.h"

// The ToolError's text, or "" when run throws none.
inline std::string ErrorOf(const std::function<void()>& run) {
  try {
    run();
  } catch (const ToolError& error) {
    return error.what();
  }
  return "";
}
