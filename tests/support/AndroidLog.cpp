#include "tests/support/AndroidLog.h"

#include <cstdio>
#include <sstream>

std::string StripAndroidLogPrefixes(const std::string& stderrText) {
  std::string stripped;
  std::istringstream lines(stderrText);
  for (std::string line; std::getline(lines, line);) {
    char tag[64] = {}, priority = 0;
    unsigned month, day, hour, minute, second, pid, tid;
    int end = 0;
    if (std::sscanf(line.c_str(), "%63s %c %2u-%2u %2u:%2u:%2u %u %u%n", tag, &priority, &month, &day, &hour,
                    &minute, &second, &pid, &tid, &end) == 9 && line[end] == ' ') {
      line = std::string(tag) + " " + priority + " " + line.substr(end + 1);
    }
    stripped += line + "\n";
  }
  return stripped;
}

std::string LibraryLogLines(const std::vector<std::string>& messages) {
  std::string text;
  for (const std::string& message : messages) text += "Tarnweather I QLM LOG:" + message + "\n";
  return text;
}
