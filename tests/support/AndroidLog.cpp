#include "tests/support/AndroidLog.h"

#include <regex>

std::string StripAndroidLogPrefixes(const std::string& stderrText) {
  static const std::regex kPrefix(R"((\S+ [A-Z] )\d\d-\d\d \d\d:\d\d:\d\d +\d+ +\d+ )");
  return std::regex_replace(stderrText, kPrefix, "$1");
}

std::string LibraryLogLines(std::initializer_list<std::string> messages) {
  std::string text;
  for (const std::string& message : messages) text += "Tarnweather I QLM LOG:" + message + "\n";
  return text;
}
