#include "tests/support/AndroidLog.h"

#include <regex>

std::string StripAndroidLogPrefixes(const std::string& stderrText) {
  static const std::regex kPrefix(R"((\S+ [A-Z] )\d\d-\d\d \d\d:\d\d:\d\d +\d+ +\d+ )");
  return std::regex_replace(stderrText, kPrefix, "$1");
}
