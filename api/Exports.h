// The library's four entry points. Each catches everything and answers
// with an integer code; nothing is thrown across them.
#pragma once

#define QLM_EXPORT __attribute__((visibility("default")))

constexpr int kLibraryVersion = 0x109;

QLM_EXPORT int QLM_Get_Calib_Vertion();
