#include "tests/support/AndroidLog.h"

#include <regex>

std::string StripAndroidLogPrefixes(const std::string& stderrText) {
  static const std::regex prefix(
      R"((^|\n)(\S+ [VDIWEFA]) \d\d-\d\d \d\d:\d\d:\d\d(\.\d+)? +\d+ +\d+ )");
  return std::regex_replace(stderrText, prefix, "$1$2 ");
}
