// The work behind the exported entry points, on an engine given by
// reference: log.txt in the pictures directory and the set-up of a
// calibration run. The exports apply it to g_dualCalib.
#pragma once

#include <cstdint>

#include "engine/FeaturePointCalibration.h"
#include "engine/dualCalibration.h"

// Appends "QLM_Get_Calib_Vertion...0x109...  \n" to log.txt.
void AppendVersionLog() noexcept;

// Appends "rv=%d  \n" and "g_dualCalib.mImgPairsIdx=%d  \n" to log.txt.
void AppendProcessLog(const dualCalibration& engine, int rv) noexcept;

// What PROCESS answers when an exception escapes the engine: no estimate was
// computed, as when its counts fail.
constexpr int kProcessOnException = 0;

// Stores recordSelect, runs calibrationDetectPoint (report, when given,
// receives its intermediate results), then appends the process lines to
// log.txt. Nothing is thrown: an escaping exception answers kProcessOnException.
int ProcessImagePair(dualCalibration& engine, const unsigned char* mainImage,
                     const unsigned char* secondImage, int32_t w1, int32_t h1, int32_t w2, int32_t h2,
                     int32_t recordSelect, FeaturePointReport* report) noexcept;

// a * 0.2511 + b * 0.7488 in double precision, truncated toward zero.
int32_t BlendInitValues(int32_t a, int32_t b);

// Logs the call, stores a..d and their blend, loads the engine's section
// from paramFile, saves the parameters in force to defaultParameters.txt
// (also after a failed load), then reads up to 15252 bytes of recordFile into
// mFileRecord and copies recordMem into mCallerRecord and resets
// mImgPairsIdx. Returns 1; -1 when the parameters did not load (records and
// counter untouched); -2 when the record file did not open (mFileRecord
// untouched, the rest done). A null path behaves as one that cannot be
// opened and a null recordMem leaves mCallerRecord as it is. The record file
// is closed after reading.
int InitCalibrationRun(dualCalibration& engine, const unsigned char* paramFile,
                       const unsigned char* recordFile, const unsigned char* recordMem, int32_t a,
                       int32_t b, int32_t c, int32_t d);
