#include "api/Exports.h"

#include <cstdio>
#include <cstring>

#include "api/DebugLog.h"
#include "api/Globals.h"
#include "framework/FileHandle.h"
#include "framework/PicturesDir.h"

namespace {

constexpr char kVersionLogLine[] = "QLM_Get_Calib_Vertion...0x109...  \n";
constexpr char kInitLogLine[] = "QLM_Calib_INIT...   \n";
static_assert(sizeof(kVersionLogLine) - 1 == 35 && sizeof(kInitLogLine) - 1 == 21,
              "log lines are written as fixed blocks");

constexpr int kInitLoaded = 1;
constexpr int kInitParametersFailed = -1;
constexpr int kInitRecordFileMissing = -2;
// What an exception escaping the engine becomes: the run could not be set up,
// or the pair gave no estimate.
constexpr int kInitOnException = kInitParametersFailed;
constexpr int kProcessOnException = 0;

// Runs body and turns any exception into fallbackCode.
template <typename Body>
int Guarded(int fallbackCode, Body&& body) noexcept {
  try {
    return body();
  } catch (...) {
    return fallbackCode;
  }
}

// Opens log.txt for appending; null when it cannot be opened, and then the
// caller skips its line.
FileHandle OpenLogFile() noexcept {
  try {
    return FileHandle(std::fopen(PicturesPath("log.txt").c_str(), "ab+"));
  } catch (...) {
    return nullptr;
  }
}

void AppendLogBlock(const char* text, size_t length) noexcept {
  const FileHandle log = OpenLogFile();
  if (log) std::fwrite(text, 1, length, log.get());
}

void AppendProcessLines(int rv) noexcept {
  const FileHandle log = OpenLogFile();
  if (!log) return;
  std::fprintf(log.get(), "rv=%d  \n", rv);
  std::fprintf(log.get(), "g_dualCalib.mImgPairsIdx=%d  \n", g_dualCalib.mImgPairsIdx);
}

// a*0.2511 + b*0.7488 stays inside the 32-bit range for any 32-bit a and b,
// so the truncation toward zero is always defined.
int32_t BlendInitValues(int a, int b) {
  return static_cast<int32_t>(static_cast<double>(a) * 0.2511 + static_cast<double>(b) * 0.7488);
}

// A null path behaves as a path that cannot be opened.
const char* PathOrEmpty(const unsigned char* path) {
  return path != nullptr ? reinterpret_cast<const char*>(path) : "";
}

// The count read is not checked: a short file fills only the head of the record.
int ReadFileRecord(const char* path) {
  const FileHandle file(std::fopen(path, "rb"));
  if (!file) return kInitRecordFileMissing;
  const size_t ignored = std::fread(g_dualCalib.mFileRecord.bytes, 1, kCalibrationRecordSize, file.get());
  static_cast<void>(ignored);
  return kInitLoaded;
}

int InitCalibrationRun(const unsigned char* paramFile, const unsigned char* recordFile,
                       const unsigned char* recordMem, int a, int b, int c, int d) {
  AppendLogBlock(kInitLogLine, sizeof(kInitLogLine) - 1);
  g_dualCalib.mInitValueA = a;
  g_dualCalib.mInitValueB = b;
  g_dualCalib.mInitValueC = c;
  g_dualCalib.mInitValueD = d;
  g_dualCalib.mInitBlend = BlendInitValues(a, b);
  g_dualCalib.mInitReserved = 0;
  const int loaded = LoadParametersFromFile(g_dualCalib, PathOrEmpty(paramFile));
  SaveParametersToFile(g_dualCalib, PicturesPath("defaultParameters.txt").c_str());
  if (loaded != 1) {
    DebugLog("Load calibration parameter ERROR !!!");
    DebugLog("QLM LOG:QLM_Calib_INIT= -1  \n");
    return kInitParametersFailed;
  }
  const int result = ReadFileRecord(PathOrEmpty(recordFile));
  if (recordMem != nullptr) std::memcpy(g_dualCalib.mCallerRecord.bytes, recordMem, kCalibrationRecordSize);
  g_dualCalib.mImgPairsIdx = 0;
  DebugLog("QLM LOG:QLM_Calib_INIT= %d  \n", result);
  return result;
}

}  // namespace

int QLM_Get_Calib_Vertion() noexcept {
  AppendLogBlock(kVersionLogLine, sizeof(kVersionLogLine) - 1);
  return kLibraryVersion;
}

int QLM_Calib_INIT(unsigned char* paramFile, unsigned char* recordFile, unsigned char* recordMem,
                   int a, int b, int c, int d) noexcept {
  return Guarded(kInitOnException, [&] {
    return InitCalibrationRun(paramFile, recordFile, recordMem, a, b, c, d);
  });
}

int QLM_Calib_PROCESS(unsigned char* mainImg, unsigned char* secondImg, int w1, int h1, int w2,
                      int h2, int recordSelect) noexcept {
  g_dualCalib.mRecordSelect = recordSelect;
  const int rv = Guarded(kProcessOnException, [&] {
    return g_dualCalib.calibrationDetectPoint(mainImg, secondImg, w1, h1, w2, h2);
  });
  AppendProcessLines(rv);
  return rv;
}

int QLM_Get_Calib_Result(unsigned char* out) noexcept {
  if (out != nullptr) std::memcpy(out, g_dualCalib.mResultRecord.bytes, kCalibrationRecordSize);
  return 1;
}
