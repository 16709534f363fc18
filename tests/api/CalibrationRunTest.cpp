#include "api/CalibrationRun.h"

#include "tests/support/TestPrelude.h"

#include <climits>

using namespace testing::internal;

namespace {

CalibrationRecord PatternRecord(uint8_t seed) {
  CalibrationRecord record;
  for (size_t i = 0; i < kCalibrationRecordSize; ++i) record.bytes[i] = static_cast<uint8_t>(i * seed + 1);
  return record;
}

const unsigned char* Path(const std::string& path) { return reinterpret_cast<const unsigned char*>(path.c_str()); }

// An engine with distinct records and counter, a parameter file that loads (nBoardWidth 9), record file pattern 3.
struct InitSetUp {
  TempDir dir;
  std::unique_ptr<dualCalibration> engine = std::make_unique<dualCalibration>();
  std::string params = dir.File("params.txt"), record = dir.File("record.bin");

  InitSetUp() {
    auto saved = std::make_unique<dualCalibration>();
    saved->m_nBoardWidth = 9;
    EXPECT_EQ(SaveParametersToFile(*saved, params.c_str()), 1);
    WriteFile(record, std::string(reinterpret_cast<const char*>(PatternRecord(3).bytes), kCalibrationRecordSize));
    engine->mFileRecord = PatternRecord(7), engine->mCallerRecord = PatternRecord(9), engine->mResultRecord = PatternRecord(11);
    engine->mImgPairsIdx = 7, engine->mInitReserved = 5;
  }
  int Init(const unsigned char* paramFile, const unsigned char* recordFile, bool withMemory = true) {
    const CalibrationRecord memory = PatternRecord(5);
    return InitCalibrationRun(*engine, paramFile, recordFile, withMemory ? memory.bytes : nullptr, 100, 200, -3, 4);
  }
  // The seeds of the file, caller and result records, 0 for another content.
  std::vector<int> Records() const {
    std::vector<int> seeds;
    for (const CalibrationRecord* r : {&engine->mFileRecord, &engine->mCallerRecord, &engine->mResultRecord}) {
      seeds.push_back(r->bytes[1] - 1);
      if (std::memcmp(r->bytes, PatternRecord(static_cast<uint8_t>(seeds.back())).bytes, kCalibrationRecordSize)) seeds.back() = 0;
    }
    return seeds;
  }
};

}  // namespace

TEST(CalibrationRun, BlendTruncatesTowardZero) {
  const int32_t cases[][3] = {{100, 200, 174}, {-100, 0, -25}, {1, 1, 0}, {4, 0, 1}, {-4, 0, -1},
                              {INT_MAX, INT_MAX, 2147268898}, {INT_MIN, INT_MIN, -2147268899}, {INT_MIN, INT_MAX, 1068802610}};
  for (const auto& c : cases) EXPECT_EQ(BlendInitValues(c[0], c[1]), c[2]) << c[0] << ", " << c[1];
}

// A null record path answers -2 and leaves the file record; a null caller record is not copied.
TEST(CalibrationRun, InitLoadsValuesAndRecordsAndResetsTheCounter) {
  InitSetUp run;
  CaptureStdout();
  EXPECT_EQ(run.Init(Path(run.params), nullptr, false), -2);
  EXPECT_EQ(run.Records(), std::vector<int>({7, 9, 11}));
  EXPECT_EQ(run.Init(Path(run.params), Path(run.record), false), 1);
  EXPECT_EQ(GetCapturedStdout(), "");
  const dualCalibration& e = *run.engine;
  EXPECT_EQ(run.Records(), std::vector<int>({3, 9, 11}));
  EXPECT_EQ(std::vector<int32_t>({e.m_nBoardWidth, e.mImgPairsIdx, e.mInitValueA, e.mInitValueB, e.mInitValueC,
                                  e.mInitValueD, e.mInitBlend, e.mInitReserved}),
            std::vector<int32_t>({9, 0, 100, 200, -3, 4, 174, 0}));
}

// -1 leaves the records and the counter, whatever the record file holds; values and parameter file are written.
TEST(CalibrationRun, FailedLoadLeavesRecordsAndCounter) {
  InitSetUp run;
  const std::string missing = run.dir.File("missing.txt"), partial = run.dir.File("partial.txt");
  WriteFile(partial, "\nParameterList\nbSaveDebugInfo=1;\nnot a line\n");
  const std::pair<const unsigned char*, std::string> cases[] = {
      {Path(missing), "Open file " + missing + " fail!!! errcode=0\n"},
      {nullptr, "Open file  fail!!! errcode=0\n"},
      {Path(partial), "FindNameValue from not a line\n failed!!!\n"}};
  for (const auto& [paramFile, printed] : cases) {
    SCOPED_TRACE(printed);
    std::remove(run.dir.File("defaultParameters.txt").c_str());
    CaptureStdout();
    EXPECT_EQ(run.Init(paramFile, Path(run.record)), -1);
    EXPECT_EQ(GetCapturedStdout().substr(0, printed.size()), printed);
    EXPECT_EQ(run.Records(), std::vector<int>({7, 9, 11}));
    EXPECT_EQ(run.engine->mImgPairsIdx * 1000 + run.engine->mInitBlend, 7174);
    EXPECT_TRUE(FileExists(run.dir.File("defaultParameters.txt")));
  }
}
