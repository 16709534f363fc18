// The library's four entry points, exported under their C++ mangled names so
// that the argument types are part of each symbol. Each catches everything
// and answers with an integer code; nothing is thrown across them (the
// version and result calls contain nothing that can throw). Every
// call appends its trace to log.txt in the pictures directory (a log file
// that cannot be opened is skipped).
#pragma once

#define QLM_EXPORT __attribute__((visibility("default")))

constexpr int kLibraryVersion = 0x109;

// Returns the library version, 265.
QLM_EXPORT int QLM_Get_Calib_Vertion() noexcept;

// Starts a calibration run: loads the engine's "ParameterList" section from
// paramFile, writes the parameters in force to defaultParameters.txt, reads
// the file record from recordFile and copies 15252 bytes of recordMem as the
// caller record; a to d are stored as they are. Returns 1, -1 when the
// parameters could not be loaded (records untouched), -2 when the record file
// could not be opened (the caller record is still copied). An unexpected
// failure inside the run's set-up also answers -1. Details: api/CalibrationRun.h.
QLM_EXPORT int QLM_Calib_INIT(unsigned char* paramFile, unsigned char* recordFile,
                              unsigned char* recordMem, int a, int b, int c, int d) noexcept;

// Calibrates one pair of 8-bit grey images (w x h bytes each, rows packed)
// starting from the file record (recordSelect nonzero) or the caller record
// (zero). Returns the code of dualCalibration::calibrationDetectPoint: -4,
// -5, 0 or 1. An unexpected failure inside the calibration answers 0.
QLM_EXPORT int QLM_Calib_PROCESS(unsigned char* mainImg, unsigned char* secondImg, int w1, int h1,
                                 int w2, int h2, int recordSelect) noexcept;

// Copies the 15252-byte result record to out (nothing when out is null); returns 1.
QLM_EXPORT int QLM_Get_Calib_Result(unsigned char* out) noexcept;
