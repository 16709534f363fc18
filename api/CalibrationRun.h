// The work behind the exported entry points, on an engine given by
// reference: log.txt in the pictures directory and the set-up of a
// calibration run. The exports apply it to g_dualCalib.
#pragma once

#include <cstdint>

#include "engine/dualCalibration.h"

// Appends "QLM_Get_Calib_Vertion...0x109...  \n" to log.txt.
void AppendVersionLog() noexcept;

// Appends "rv=%d  \n" and "g_dualCalib.mImgPairsIdx=%d  \n" to log.txt.
void AppendProcessLog(const dualCalibration& engine, int rv) noexcept;

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
