// Android log lines as Debian's liblog prints them on standard error: "<tag> <priority> <MM-DD> <hh:mm:ss>
// <pid> <tid> <message>\n". The date, time and ids change from run to run; tests compare the rest.
#pragma once

#include <string>
#include <vector>

// Replaces every "<tag> <priority> <date> <time> <pid> <tid> " prefix with "<tag> <priority> ".
std::string StripAndroidLogPrefixes(const std::string& stderrText);

// The library's INFO lines for these messages, prefixes stripped: each one "Tarnweather I QLM LOG:<message>\n".
std::string LibraryLogLines(const std::vector<std::string>& messages);
