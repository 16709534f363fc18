#include "api/CalibrationRun.h"

#include <cstdio>
#include <cstring>

#include "api/DebugLog.h"
#include "framework/FileHandle.h"
#include "framework/PicturesDir.h"

namespace {

constexpr char kVersionLogLine[] = "QLM_Get_Calib_Vertion...0x109...  \n";
constexpr char kInitLogLine[] = "QLM_Calib_INIT...   \n";
static_assert(sizeof(kVersionLogLine) - 1 == 35 && sizeof(kInitLogLine) - 1 == 21,
              "log lines are written as fixed blocks");

constexpr int kInitDone = 1;
constexpr int kInitParametersFailed = -1;
constexpr int kInitRecordFileMissing = -2;

// Null when log.txt cannot be opened; the caller then skips its lines.
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

const char* PathOrEmpty(const unsigned char* path) {
  return path != nullptr ? reinterpret_cast<const char*>(path) : "";
}

// The count read is not checked: a short file fills only the head of the record.
int ReadFileRecord(CalibrationRecord& record, const char* path) {
  const FileHandle file(std::fopen(path, "rb"));
  if (!file) return kInitRecordFileMissing;
  const size_t bytesRead = std::fread(record.bytes, 1, kCalibrationRecordSize, file.get());
  static_cast<void>(bytesRead);
  return kInitDone;
}

void StoreInitValues(dualCalibration& engine, int32_t a, int32_t b, int32_t c, int32_t d) {
  engine.mInitValueA = a;
  engine.mInitValueB = b;
  engine.mInitValueC = c;
  engine.mInitValueD = d;
  engine.mInitBlend = BlendInitValues(a, b);
  engine.mInitReserved = 0;
}

}  // namespace

void AppendVersionLog() noexcept { AppendLogBlock(kVersionLogLine, sizeof(kVersionLogLine) - 1); }

void AppendProcessLog(const dualCalibration& engine, int rv) noexcept {
  const FileHandle log = OpenLogFile();
  if (!log) return;
  std::fprintf(log.get(), "rv=%d  \n", rv);
  std::fprintf(log.get(), "g_dualCalib.mImgPairsIdx=%d  \n", engine.mImgPairsIdx);
}

int ProcessImagePair(dualCalibration& engine, const unsigned char* mainImage,
                     const unsigned char* secondImage, int32_t w1, int32_t h1, int32_t w2, int32_t h2,
                     int32_t recordSelect, FeaturePointReport* report) noexcept {
  engine.mRecordSelect = recordSelect;
  int rv = kProcessOnException;
  try {
    rv = engine.calibrationDetectPoint(mainImage, secondImage, w1, h1, w2, h2, report);
  } catch (...) {
    rv = kProcessOnException;
  }
  AppendProcessLog(engine, rv);
  return rv;
}

// |a * 0.2511 + b * 0.7488| < 2^31 for any 32-bit a and b: the conversion is always defined.
int32_t BlendInitValues(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<double>(a) * 0.2511 + static_cast<double>(b) * 0.7488);
}

int InitCalibrationRun(dualCalibration& engine, const unsigned char* paramFile,
                       const unsigned char* recordFile, const unsigned char* recordMem, int32_t a,
                       int32_t b, int32_t c, int32_t d) {
  AppendLogBlock(kInitLogLine, sizeof(kInitLogLine) - 1);
  StoreInitValues(engine, a, b, c, d);
  const int loaded = LoadParametersFromFile(engine, PathOrEmpty(paramFile));
  SaveParametersToFile(engine, PicturesPath("defaultParameters.txt").c_str());
  if (loaded != 1) {
    DebugLog("Load calibration parameter ERROR !!!");
    DebugLog("QLM LOG:QLM_Calib_INIT= -1  \n");
    return kInitParametersFailed;
  }
  const int result = ReadFileRecord(engine.mFileRecord, PathOrEmpty(recordFile));
  if (recordMem != nullptr) {
    std::memcpy(engine.mCallerRecord.bytes, recordMem, kCalibrationRecordSize);
  }
  engine.mImgPairsIdx = 0;
  DebugLog("QLM LOG:QLM_Calib_INIT= %d  \n", result);
  return result;
}
