#include "api/DebugLog.h"

#include <android/log.h>

#include <cstdarg>

#include "api/Globals.h"

namespace {
constexpr const char* kLogTag = "Tarnweather";
}  // namespace

void DebugLog(const char* format, ...) {
  if (g_bDebugLog == 0) return;
  va_list arguments;
  va_start(arguments, format);
  __android_log_vprint(ANDROID_LOG_INFO, kLogTag, format, arguments);
  va_end(arguments);
}
