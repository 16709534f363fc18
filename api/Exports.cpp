#include "api/Exports.h"

#include <cstring>

#include "api/CalibrationRun.h"
#include "api/Globals.h"

namespace {

// What an exception escaping the run's set-up becomes: INIT could not set up
// the run, as when its parameters fail.
constexpr int kInitOnException = -1;

}  // namespace

int QLM_Get_Calib_Vertion() noexcept {
  AppendVersionLog();
  return kLibraryVersion;
}

int QLM_Calib_INIT(unsigned char* paramFile, unsigned char* recordFile, unsigned char* recordMem,
                   int a, int b, int c, int d) noexcept {
  try {
    return InitCalibrationRun(g_dualCalib, paramFile, recordFile, recordMem, a, b, c, d);
  } catch (...) {
    return kInitOnException;
  }
}

int QLM_Calib_PROCESS(unsigned char* mainImg, unsigned char* secondImg, int w1, int h1, int w2,
                      int h2, int recordSelect) noexcept {
  return ProcessImagePair(g_dualCalib, mainImg, secondImg, w1, h1, w2, h2, recordSelect, nullptr);
}

// A null out receives nothing.
int QLM_Get_Calib_Result(unsigned char* out) noexcept {
  if (out != nullptr) std::memcpy(out, g_dualCalib.mResultRecord.bytes, kCalibrationRecordSize);
  return 1;
}
