// The library's Android log lines: priority INFO, tag "Tarnweather",
// written only while g_bDebugLog is nonzero. On Linux hosts liblog prints
// them on standard error.
#pragma once

// printf-style; the text is formatted by liblog.
void DebugLog(const char* format, ...) __attribute__((format(printf, 1, 2)));
