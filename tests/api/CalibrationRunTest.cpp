#include "api/CalibrationRun.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <memory>
#include <cstdio>
#include <string>
#include <vector>

#include "tests/support/TestFiles.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

CalibrationRecord PatternRecord(uint8_t seed) {
  CalibrationRecord record;
  for (size_t i = 0; i < kCalibrationRecordSize; ++i) record.bytes[i] = static_cast<uint8_t>(i * seed + 1);
  return record;
}

bool SameRecord(const CalibrationRecord& a, const CalibrationRecord& b) {
  return std::memcmp(a.bytes, b.bytes, kCalibrationRecordSize) == 0;
}

const unsigned char* Path(const std::string& path) { return reinterpret_cast<const unsigned char*>(path.c_str()); }

// An engine with distinct records and counter, and in dir a parameter file
// that loads (nBoardWidth 9) and a record file.
struct RunSetUp {
  TempDir dir;
  std::unique_ptr<dualCalibration> engine = std::make_unique<dualCalibration>();
  const CalibrationRecord fileRecord = PatternRecord(3), memoryRecord = PatternRecord(5);
  std::string params = dir.File("params.txt"), record = dir.File("record.bin");

  RunSetUp() {
    auto saved = std::make_unique<dualCalibration>();
    saved->m_nBoardWidth = 9;
    EXPECT_EQ(SaveParametersToFile(*saved, params.c_str()), 1);
    WriteFile(record, std::string(reinterpret_cast<const char*>(fileRecord.bytes), kCalibrationRecordSize));
    engine->mFileRecord = PatternRecord(7);
    engine->mCallerRecord = PatternRecord(9);
    engine->mResultRecord = PatternRecord(11);
    engine->mImgPairsIdx = 7;
    engine->mInitReserved = 5;
  }
  int Init(const unsigned char* paramFile, const unsigned char* recordFile, const unsigned char* recordMem) {
    return InitCalibrationRun(*engine, paramFile, recordFile, recordMem, 100, 200, -3, 4);
  }
};

}  // namespace

TEST(CalibrationRun, BlendTruncatesTowardZero) {
  const struct {
    int32_t a, b, blend;
  } cases[] = {{100, 200, 174}, {-100, 0, -25},  {1, 1, 0}, {4, 0, 1}, {-4, 0, -1},
               {INT_MAX, INT_MAX, 2147268898}, {INT_MIN, INT_MIN, -2147268899}, {INT_MIN, INT_MAX, 1068802610}};
  for (const auto& c : cases) EXPECT_EQ(BlendInitValues(c.a, c.b), c.blend) << c.a << ", " << c.b;
}

TEST(CalibrationRun, InitLoadsParametersAndRecordsAndResetsTheCounter) {
  RunSetUp run;
  CaptureStdout();
  EXPECT_EQ(run.Init(Path(run.params), Path(run.record), run.memoryRecord.bytes), 1);
  EXPECT_EQ(GetCapturedStdout(), "");
  const dualCalibration& e = *run.engine;
  EXPECT_EQ(e.m_nBoardWidth, 9);
  EXPECT_TRUE(SameRecord(e.mFileRecord, run.fileRecord));
  EXPECT_TRUE(SameRecord(e.mCallerRecord, run.memoryRecord));
  EXPECT_TRUE(SameRecord(e.mResultRecord, PatternRecord(11)));
  EXPECT_EQ(std::vector<int32_t>({e.mImgPairsIdx, e.mInitValueA, e.mInitValueB, e.mInitValueC, e.mInitValueD,
                                  e.mInitBlend, e.mInitReserved}),
            std::vector<int32_t>({0, 100, 200, -3, 4, 174, 0}));
  EXPECT_EQ(ReadFile(run.dir.File("log.txt")), "QLM_Calib_INIT...   \n");
  EXPECT_EQ(ReadFile(run.dir.File("defaultParameters.txt")), ReadFile(run.params));
}

// -1 leaves every record and the counter as they were, whatever the record
// file holds; the values and the parameter file are still written.
TEST(CalibrationRun, FailedLoadLeavesRecordsAndCounter) {
  RunSetUp run;
  const std::string missing = run.dir.File("missing.txt"), partial = run.dir.File("partial.txt");
  WriteFile(partial, "\nParameterList\nbSaveDebugInfo=1;\nnHomographyConstraintScale=7;\nnot a line\n");
  const struct {
    const unsigned char* paramFile;
    std::string printed;
  } cases[] = {{Path(missing), "Open file " + missing + " fail!!! errcode=0\n"},
               {nullptr, "Open file  fail!!! errcode=0\n"},
               {Path(partial), "FindNameValue from not a line\n failed!!!\n"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.printed);
    std::remove(run.dir.File("defaultParameters.txt").c_str());
    CaptureStdout();
    EXPECT_EQ(run.Init(c.paramFile, Path(run.record), run.memoryRecord.bytes), -1);
    EXPECT_EQ(GetCapturedStdout().substr(0, c.printed.size()), c.printed);
    EXPECT_TRUE(SameRecord(run.engine->mFileRecord, PatternRecord(7)));
    EXPECT_TRUE(SameRecord(run.engine->mCallerRecord, PatternRecord(9)));
    EXPECT_TRUE(SameRecord(run.engine->mResultRecord, PatternRecord(11)));
    EXPECT_EQ(run.engine->mImgPairsIdx, 7);
    EXPECT_EQ(run.engine->mInitBlend, 174);
    EXPECT_TRUE(FileExists(run.dir.File("defaultParameters.txt")));
  }
  EXPECT_EQ(run.engine->m_nHomographyConstraintScale, 7);
}

TEST(CalibrationRun, MissingRecordFileAnswersMinus2AndANullRecordIsNotCopied) {
  RunSetUp run;
  EXPECT_EQ(run.Init(Path(run.params), nullptr, nullptr), -2);
  EXPECT_EQ(run.Init(Path(run.params), Path(run.dir.File("none.bin")), nullptr), -2);
  EXPECT_TRUE(SameRecord(run.engine->mFileRecord, PatternRecord(7)));
  EXPECT_TRUE(SameRecord(run.engine->mCallerRecord, PatternRecord(9)));
  EXPECT_EQ(run.engine->mImgPairsIdx, 0);
}

TEST(CalibrationRun, LogFileThatCannotBeOpenedIsSkipped) {
  RunSetUp run;
  const std::string nowhere = run.dir.File("no-such-dir");
  setenv("QLM_PICTURES_DIR", nowhere.c_str(), 1);
  CaptureStdout();
  AppendVersionLog();
  AppendProcessLog(*run.engine, 1);
  EXPECT_EQ(run.Init(Path(run.params), Path(run.record), run.memoryRecord.bytes), 1);
  EXPECT_EQ(GetCapturedStdout(), "Open file " + nowhere + "/defaultParameters.txt fail!!! \n");
  EXPECT_FALSE(FileExists(nowhere));
}
