#include "api/CalibrationRun.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <memory>
#include <string>

#include "tests/support/TestFiles.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

CalibrationRecord PatternRecord(uint8_t seed) {
  CalibrationRecord record;
  for (size_t i = 0; i < kCalibrationRecordSize; ++i)
    record.bytes[i] = static_cast<uint8_t>(i * seed + 1);
  return record;
}

std::string RecordText(const CalibrationRecord& record) {
  return std::string(reinterpret_cast<const char*>(record.bytes), kCalibrationRecordSize);
}

const unsigned char* Path(const std::string& path) {
  return reinterpret_cast<const unsigned char*>(path.c_str());
}

bool SameRecord(const CalibrationRecord& a, const CalibrationRecord& b) {
  return std::memcmp(a.bytes, b.bytes, kCalibrationRecordSize) == 0;
}

// A parameter file that loads: the engine's own saved section.
std::string WriteParameterFile(const TempDir& dir) {
  const std::string path = dir.File("params.txt");
  auto engine = std::make_unique<dualCalibration>();
  engine->m_nBoardWidth = 9;
  EXPECT_EQ(SaveParametersToFile(*engine, path.c_str()), 1);
  return path;
}

}  // namespace

TEST(CalibrationRun, BlendTruncatesTowardZero) {
  const struct {
    int32_t a, b, blend;
  } cases[] = {
      {100, 200, 174},
      {-100, 0, -25},
      {0, 0, 0},
      {1, 1, 0},
      {4, 0, 1},
      {-4, 0, -1},
      {3, -1, 0},
      {INT_MAX, INT_MAX, 2147268898},
      {INT_MIN, INT_MIN, -2147268899},
      {INT_MIN, INT_MAX, 1068802610},
  };
  for (const auto& c : cases) EXPECT_EQ(BlendInitValues(c.a, c.b), c.blend) << c.a << ", " << c.b;
}

TEST(CalibrationRun, InitLoadsParametersAndRecordsAndResetsTheCounter) {
  TempDir dir;
  const std::string params = WriteParameterFile(dir);
  const CalibrationRecord fileRecord = PatternRecord(3);
  const CalibrationRecord memoryRecord = PatternRecord(5);
  WriteFile(dir.File("record.bin"), RecordText(fileRecord));
  auto engine = std::make_unique<dualCalibration>();
  engine->mImgPairsIdx = 7;
  engine->mInitReserved = 5;

  CaptureStdout();
  EXPECT_EQ(InitCalibrationRun(*engine, Path(params), Path(dir.File("record.bin")),
                               memoryRecord.bytes, 100, 200, -3, 4),
            1);
  EXPECT_EQ(GetCapturedStdout(), "");
  EXPECT_EQ(engine->m_nBoardWidth, 9);
  EXPECT_TRUE(SameRecord(engine->mFileRecord, fileRecord));
  EXPECT_TRUE(SameRecord(engine->mCallerRecord, memoryRecord));
  EXPECT_EQ(engine->mImgPairsIdx, 0);
  EXPECT_EQ(engine->mInitValueA, 100);
  EXPECT_EQ(engine->mInitValueB, 200);
  EXPECT_EQ(engine->mInitValueC, -3);
  EXPECT_EQ(engine->mInitValueD, 4);
  EXPECT_EQ(engine->mInitBlend, 174);
  EXPECT_EQ(engine->mInitReserved, 0);
  EXPECT_EQ(ReadFile(dir.File("log.txt")), "QLM_Calib_INIT...   \n");
}

TEST(CalibrationRun, FailedLoadStoresTheValuesButLeavesRecordsAndCounter) {
  TempDir dir;
  const CalibrationRecord memoryRecord = PatternRecord(5);
  auto engine = std::make_unique<dualCalibration>();
  engine->mImgPairsIdx = 7;
  const std::string missing = dir.File("missing.txt");

  CaptureStdout();
  EXPECT_EQ(
      InitCalibrationRun(*engine, Path(missing), Path(missing), memoryRecord.bytes, -100, 0, 1, 2),
      -1);
  EXPECT_EQ(GetCapturedStdout(), "Open file " + missing + " fail!!! errcode=0\n");
  EXPECT_EQ(engine->mImgPairsIdx, 7);
  EXPECT_TRUE(SameRecord(engine->mCallerRecord, CalibrationRecord{}));
  EXPECT_EQ(engine->mInitBlend, -25);
  EXPECT_EQ(engine->mInitValueD, 2);
  EXPECT_TRUE(FileExists(dir.File("defaultParameters.txt")));
}

TEST(CalibrationRun, NullPathsFailToOpenAndANullRecordIsNotCopied) {
  TempDir dir;
  const std::string params = WriteParameterFile(dir);
  auto engine = std::make_unique<dualCalibration>();
  engine->mCallerRecord = PatternRecord(9);

  CaptureStdout();
  EXPECT_EQ(InitCalibrationRun(*engine, nullptr, nullptr, nullptr, 0, 0, 0, 0), -1);
  EXPECT_EQ(GetCapturedStdout(), "Open file  fail!!! errcode=0\n");
  EXPECT_EQ(InitCalibrationRun(*engine, Path(params), nullptr, nullptr, 0, 0, 0, 0), -2);
  EXPECT_TRUE(SameRecord(engine->mCallerRecord, PatternRecord(9)));
}

TEST(CalibrationRun, LogFileThatCannotBeOpenedIsSkipped) {
  TempDir dir;
  const std::string params = WriteParameterFile(dir);
  const std::string nowhere = dir.File("no-such-dir");
  setenv("QLM_PICTURES_DIR", nowhere.c_str(), 1);
  auto engine = std::make_unique<dualCalibration>();
  const CalibrationRecord memoryRecord = PatternRecord(5);

  CaptureStdout();
  AppendVersionLog();
  AppendProcessLog(*engine, 1);
  EXPECT_EQ(InitCalibrationRun(*engine, Path(params), Path(params), memoryRecord.bytes, 0, 0, 0, 0),
            1);
  EXPECT_EQ(GetCapturedStdout(), "Open file " + nowhere + "/defaultParameters.txt fail!!! \n");
  EXPECT_FALSE(FileExists(nowhere));
}
