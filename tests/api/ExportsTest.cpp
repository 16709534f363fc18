// The built shared library driven as a factory tool drives it: loaded with dlopen, called through the four
// mangled symbols, judged by its codes, its files, its printed text and the result records it hands back.
#include <dlfcn.h>

#include <atomic>
#include <new>

#include "tests/support/TestPrelude.h"

#include "api/CalibrationRecord.h"
#include "engine/dualCalibration.h"
#include "tests/support/AndroidLog.h"

using namespace testing::internal;

namespace {

// While set, every operator new throws std::bad_alloc: the library's calls meet an exception where they allocate.
std::atomic<bool> gAllocationsFail{false};

}  // namespace

// GCC takes these for a mismatched pair where it inlines them; they are a matched malloc/free pair.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void* operator new(size_t size) {
  if (gAllocationsFail.load(std::memory_order_relaxed)) throw std::bad_alloc();
  if (void* block = std::malloc(size == 0 ? 1 : size)) return block;
  throw std::bad_alloc();
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, size_t) noexcept { std::free(block); }

namespace {

// The library loaded afresh (its globals constructed anew), its entry points looked up by their mangled names.
struct Library {
  void* handle = dlopen(QLM_SERVICE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  int (*version)() = reinterpret_cast<int (*)()>(Symbol("_Z21QLM_Get_Calib_Vertionv"));
  int (*init)(unsigned char*, unsigned char*, unsigned char*, int, int, int, int) = reinterpret_cast<decltype(init)>(Symbol("_Z14QLM_Calib_INITPhS_S_iiii"));
  int (*process)(unsigned char*, unsigned char*, int, int, int, int, int) = reinterpret_cast<decltype(process)>(Symbol("_Z17QLM_Calib_PROCESSPhS_iiiii"));
  int (*result)(unsigned char*) = reinterpret_cast<decltype(result)>(Symbol("_Z20QLM_Get_Calib_ResultPh"));

  ~Library() { if (handle != nullptr) dlclose(handle); }
  void* Symbol(const char* name) const { return handle != nullptr ? dlsym(handle, name) : nullptr; }
  bool Loaded() const { return version && init && process && result; }
};

CalibrationRecord PatternRecord(uint8_t seed) {
  CalibrationRecord record;
  for (size_t i = 0; i < kCalibrationRecordSize; ++i) record.bytes[i] = static_cast<uint8_t>(i * seed + 1);
  SetRecordHOtp(record, RecordHomography{1, 0, 0, 0, 1, 0, 0, 0, 1});
  return record;
}

std::string Bytes(const CalibrationRecord& r) { return std::string(reinterpret_cast<const char*>(r.bytes), kCalibrationRecordSize); }

// The engine's section, at its defaults but these, written to path; returns the text.
std::string WriteParameterFile(const std::string& path, int32_t keypoints, int32_t scaleHundredths = 0) {
  auto engine = std::make_unique<dualCalibration>();
  engine->m_nFeaturePointsNumThreshold = keypoints, engine->m_nHomographyConstraintScale = scaleHundredths;
  EXPECT_EQ(SaveParametersToFile(*engine, path.c_str()), 1);
  return ReadFile(path);
}

struct Captured { int rv = 0; std::string out, log; };

class Exports : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(library.Loaded()) << dlerror(); }

  template <typename Call>
  Captured Capture(Call call) {
    CaptureStdout(), CaptureStderr();
    const int rv = call();
    const std::string log = StripAndroidLogPrefixes(GetCapturedStderr());
    return Captured{rv, GetCapturedStdout(), log};
  }
  Captured Init(std::string params, std::string record, CalibrationRecord memory) {
    auto* paramFile = reinterpret_cast<unsigned char*>(params.data());
    return Capture([&] { return library.init(paramFile, reinterpret_cast<unsigned char*>(record.data()), memory.bytes, 100, 200, 3, 4); });
  }
  Captured Process(unsigned char* mainImg, unsigned char* secondImg, int w1, int h1, int w2, int h2, int select) {
    return Capture([&] { return library.process(mainImg, secondImg, w1, h1, w2, h2, select); });
  }
  std::string Result() {
    CalibrationRecord record;
    EXPECT_EQ(library.result(record.bytes), 1);
    return Bytes(record);
  }
  // Black images have no keypoint. Records are compared with == in EXPECT_TRUE: EXPECT_EQ would print 15 kB twice.
  std::string ResultOfBlackPair(int recordSelect) {
    EXPECT_EQ(Process(black.data(), black.data(), 1000, 1000, 1000, 1000, recordSelect).rv, 0);
    return Result();
  }
  std::string LogFile() const { return ReadFile(dir.File("log.txt")); }

  TempDir dir;
  Library library;
  std::vector<unsigned char> black = std::vector<unsigned char>(10000 * 1000, 0);
};

}  // namespace

TEST_F(Exports, LogFileTracesEveryCallInOrder) {
  EXPECT_EQ(library.version(), 265);
  EXPECT_EQ(Init(dir.File("missing.txt"), "", PatternRecord(5)).rv, -1);
  EXPECT_EQ(Process(nullptr, nullptr, 0, 0, 0, 0, 0).rv, -4);
  EXPECT_EQ(library.version() + library.result(nullptr), 266);
  EXPECT_EQ(LogFile(), "QLM_Get_Calib_Vertion...0x109...  \nQLM_Calib_INIT...   \nrv=-4  \n"
                       "g_dualCalib.mImgPairsIdx=0  \nQLM_Get_Calib_Vertion...0x109...  \n");
}

TEST_F(Exports, InitLoadsTheRunAndTheSelectorPicksTheRecord) {
  const std::string params = WriteParameterFile(dir.File("params.txt"), 1, 9);
  const CalibrationRecord fileRecord = PatternRecord(3), memoryRecord = PatternRecord(5);
  WriteFile(dir.File("record.bin"), Bytes(fileRecord));
  const Captured init = Init(dir.File("params.txt"), dir.File("record.bin"), memoryRecord);
  EXPECT_EQ(std::tie(init.rv, init.out, init.log), std::make_tuple(1, "", "Tarnweather I QLM LOG:QLM_Calib_INIT= 1  \n\n"));
  EXPECT_EQ(std::make_pair(LogFile(), ReadFile(dir.File("defaultParameters.txt"))), std::make_pair(std::string("QLM_Calib_INIT...   \n"), params));
  EXPECT_TRUE(Result() == Bytes(CalibrationRecord{}) && ResultOfBlackPair(1) == Bytes(fileRecord));
  EXPECT_TRUE(ResultOfBlackPair(0) == Bytes(memoryRecord) && ResultOfBlackPair(-3) == Bytes(fileRecord));

  // A record file that cannot be opened: -2, the caller record still copied.
  const Captured missing = Init(dir.File("params.txt"), dir.File("missing.bin"), PatternRecord(7));
  EXPECT_EQ(std::tie(missing.rv, missing.log), std::make_tuple(-2, "Tarnweather I QLM LOG:QLM_Calib_INIT= -2  \n\n"));
  EXPECT_TRUE(ResultOfBlackPair(1) == Bytes(fileRecord) && ResultOfBlackPair(0) == Bytes(PatternRecord(7)));

  // A short record file fills only the head of the file record.
  WriteFile(dir.File("short.bin"), Bytes(PatternRecord(11)).substr(0, 100));
  EXPECT_EQ(Init(dir.File("params.txt"), dir.File("short.bin"), memoryRecord).rv, 1);
  EXPECT_TRUE(ResultOfBlackPair(1) == Bytes(PatternRecord(11)).substr(0, 100) + Bytes(fileRecord).substr(100));
}

// -1 saves the parameters in force: the defaults, or what a partial file set.
TEST_F(Exports, FailedParametersKeepTheRecordsAndSaveTheValuesInForce) {
  const std::string missing = dir.File("missing.txt");
  const Captured first = Init(missing, missing, PatternRecord(5));
  EXPECT_EQ(std::tie(first.rv, first.out, first.log), std::make_tuple(-1, "Open file " + missing + " fail!!! errcode=0\n",
            "Tarnweather I Load calibration parameter ERROR !!!\nTarnweather I QLM LOG:QLM_Calib_INIT= -1  \n\n"));
  ExpectGolden(ReadFile(dir.File("defaultParameters.txt")), "dualCalibration/default_section.golden");

  WriteFile(dir.File("partial.txt"), "\nParameterList\nbSaveDebugInfo=1;\nnHomographyConstraintScale=7;\nnot a line\n");
  WriteFile(dir.File("other.bin"), Bytes(PatternRecord(13)));
  EXPECT_EQ(Init(dir.File("partial.txt"), dir.File("other.bin"), PatternRecord(15)).rv, -1);
  std::string expected = WriteParameterFile(dir.File("expected.txt"), 0, 7);
  expected.replace(expected.find("bSaveDebugInfo=0"), 16, "bSaveDebugInfo=1");
  EXPECT_EQ(ReadFile(dir.File("defaultParameters.txt")), expected);
  EXPECT_TRUE(Result() == Bytes(CalibrationRecord{}));
}

// An exception inside INIT (here: no memory once the parameters have loaded) comes back as -1, as failed parameters
// do, and crosses nothing.
TEST_F(Exports, AnExceptionInInitIsMinus1) {
  WriteParameterFile(dir.File("params.txt"), 1);
  std::string params = dir.File("params.txt"), record = dir.File("missing.bin");
  CalibrationRecord memory = PatternRecord(5);
  ASSERT_EQ(Init(params, record, memory).rv, -2);
  gAllocationsFail = true;
  const int status = library.init(reinterpret_cast<unsigned char*>(params.data()),
                                  reinterpret_cast<unsigned char*>(record.data()), memory.bytes, 0, 0, 0, 0);
  gAllocationsFail = false;
  EXPECT_EQ(status, -1);
}

TEST_F(Exports, ArgumentChecksAnswerMinus4AndMinus5AndLeaveTheResult) {
  WriteParameterFile(dir.File("params.txt"), 1);
  WriteFile(dir.File("record.bin"), Bytes(PatternRecord(3)));
  ASSERT_EQ(Init(dir.File("params.txt"), dir.File("record.bin"), PatternRecord(5)).rv, 1);
  for (const auto& c : CaseRows("api/ProcessArguments.txt")) {
    SCOPED_TRACE(c[0]);
    std::istringstream arguments(c[0]);
    std::string images[2];
    int w1 = 0, h1 = 0, w2 = 0, h2 = 0, rv = std::stoi(c[1]);
    arguments >> images[0] >> images[1] >> w1 >> h1 >> w2 >> h2;
    ASSERT_TRUE(ResultOfBlackPair(0) == Bytes(PatternRecord(5)));
    WriteFile(dir.File("log.txt"), "");
    const Captured call = Process(images[0] == "null" ? nullptr : black.data(), images[1] == "null" ? nullptr : black.data(), w1, h1, w2, h2, 1);
    EXPECT_EQ(std::tie(call.rv, call.out), std::tie(rv, c[2]));
    EXPECT_EQ(rv ? call.log : call.log.substr(0, 48), "Tarnweather I QLM LOG:calibrationDetectPoint  \n\n");
    EXPECT_TRUE(Result() == Bytes(PatternRecord(rv ? 5 : 3)));
    EXPECT_EQ(LogFile(), "rv=" + c[1] + "  \ng_dualCalib.mImgPairsIdx=0  \n");
  }
}
