// The built shared library driven as a factory tool drives it: loaded with
// dlopen, called through the four mangled symbols, judged by its codes, its
// files, its printed text and the result records it hands back.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "api/CalibrationRecord.h"
#include "engine/dualCalibration.h"
#include "synthetic/SyntheticScene.h"
#include "tests/support/AndroidLog.h"
#include "tests/support/ServiceLibrary.h"
#include "tests/support/TestFiles.h"

using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

namespace {

// Every byte different from its neighbours, H_OTP the identity.
CalibrationRecord PatternRecord(uint8_t seed, uint8_t refineCount) {
  CalibrationRecord record;
  for (size_t i = 0; i < kCalibrationRecordSize; ++i) record.bytes[i] = static_cast<uint8_t>(i * seed + 1);
  SetRecordOffsetX(record, 0.0f);
  SetRecordHOtp(record, RecordHomography{1, 0, 0, 0, 1, 0, 0, 0, 1});
  SetRecordRefineCount(record, refineCount);
  return record;
}

std::string Bytes(const CalibrationRecord& record, size_t count = kCalibrationRecordSize) {
  return std::string(reinterpret_cast<const char*>(record.bytes), count);
}

// Records compared byte for byte; a failure names the first differing byte.
testing::AssertionResult SameBytes(const std::string& actual, const std::string& expected) {
  if (actual == expected) return testing::AssertionSuccess();
  const auto differ = std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end());
  return testing::AssertionFailure() << "records differ from byte " << differ.first - actual.begin();
}

// The engine's section with these thresholds (every other parameter at its
// default) written to path; returns the text.
std::string WriteParameterFile(const std::string& path, int32_t keypoints = 1, int32_t goodMatches = 1,
                               int32_t scaleHundredths = 0) {
  auto engine = std::make_unique<dualCalibration>();
  engine->m_nFeaturePointsNumThreshold = keypoints;
  engine->m_nRefineFeaturePointsNumThreshold = goodMatches;
  engine->m_nHomographyConstraintScale = scaleHundredths;
  EXPECT_EQ(SaveParametersToFile(*engine, path.c_str()), 1);
  return ReadFile(path);
}

constexpr char kIdentityPrints[] =
    "H_OTP=[1, 0, 0;\n 0, 1, 0;\n 0, 0, 1]\nH_OTP_INV=[1, 0, 0;\n 0, 1, 0;\n 0, 0, 1]\n";
const std::string kProcessLog = LibraryLogLines({"calibrationDetectPoint  \n"});

struct Captured {
  int rv = 0;
  std::string out, log;
};

class Exports : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(library.Loaded()) << library.Error(); }

  template <typename Call>
  Captured Capture(Call call) {
    Captured captured;
    CaptureStdout();
    CaptureStderr();
    captured.rv = call();
    captured.log = StripAndroidLogPrefixes(GetCapturedStderr());
    captured.out = GetCapturedStdout();
    return captured;
  }
  Captured Init(const std::string& params, const std::string& record, CalibrationRecord memoryRecord) {
    return Capture([&] { return library.Init(params, record, memoryRecord.bytes, 100, 200, 3, 4); });
  }
  // INIT with the default thresholds and both records; 1 expected.
  void InitWith(const CalibrationRecord& fileRecord, const CalibrationRecord& memoryRecord) {
    WriteParameterFile(dir.File("params.txt"));
    WriteFile(dir.File("record.bin"), Bytes(fileRecord));
    ASSERT_EQ(Init(dir.File("params.txt"), dir.File("record.bin"), memoryRecord).rv, 1);
  }
  Captured Process(cv::Mat& mainImage, cv::Mat& secondImage, int recordSelect) {
    return Capture([&] {
      return library.Process(mainImage.data, secondImage.data, mainImage.cols, mainImage.rows, secondImage.cols,
                             secondImage.rows, recordSelect);
    });
  }
  // The result record after a PROCESS of black images, which fails its counts.
  std::string ResultOfBlackPair(int recordSelect) {
    EXPECT_EQ(Process(black, black, recordSelect).rv, 0);
    return Result();
  }
  std::string Result() {
    CalibrationRecord record;
    EXPECT_EQ(library.Result(record.bytes), 1);
    return Bytes(record);
  }
  std::string LogFile() const { return ReadFile(dir.File("log.txt")); }

  TempDir dir;
  ServiceLibrary library;
  cv::Mat black = cv::Mat::zeros(1000, 1000, CV_8UC1);
};

}  // namespace

TEST(ServiceLibraryLoad, EveryLoadStartsFromZeroRecords) {
  TempDir dir;
  cv::Mat scene = RenderTexturedScene(cv::Size(1000, 1000), 2);
  WriteParameterFile(dir.File("params.txt"));
  for (int load = 0; load < 2; ++load) {
    ServiceLibrary library;
    ASSERT_TRUE(library.Loaded()) << library.Error();
    CalibrationRecord result;
    EXPECT_EQ(library.Result(result.bytes), 1);
    EXPECT_TRUE(SameBytes(Bytes(result), Bytes(CalibrationRecord{}))) << "load " << load;
    CalibrationRecord caller = PatternRecord(3, 7);
    CaptureStdout();
    CaptureStderr();
    EXPECT_EQ(library.Init(dir.File("params.txt"), dir.File("none.bin"), caller.bytes), -2);
    EXPECT_EQ(library.Process(scene.data, scene.data, 1000, 1000, 1000, 1000, 0), 1);
    GetCapturedStderr();
    GetCapturedStdout();
  }
}

TEST_F(Exports, LogFileTracesEveryCallInOrder) {
  EXPECT_EQ(library.Version(), 265);
  const std::string missing = dir.File("missing.txt");
  EXPECT_EQ(Init(missing, missing, PatternRecord(5, 20)).rv, -1);
  EXPECT_EQ(Capture([&] { return library.Process(nullptr, nullptr, 0, 0, 0, 0, 0); }).rv, -4);
  EXPECT_EQ(library.Version(), 265);
  EXPECT_EQ(library.Result(nullptr), 1);
  EXPECT_EQ(LogFile(),
            "QLM_Get_Calib_Vertion...0x109...  \nQLM_Calib_INIT...   \nrv=-4  \ng_dualCalib.mImgPairsIdx=0  \n"
            "QLM_Get_Calib_Vertion...0x109...  \n");
}

TEST_F(Exports, InitLoadsTheRunAndTheSelectorPicksTheRecord) {
  const std::string params = WriteParameterFile(dir.File("params.txt"), 7, 8, 9);
  const CalibrationRecord fileRecord = PatternRecord(3, 10), memoryRecord = PatternRecord(5, 20);
  WriteFile(dir.File("record.bin"), Bytes(fileRecord));
  const Captured init = Init(dir.File("params.txt"), dir.File("record.bin"), memoryRecord);
  EXPECT_EQ(init.rv, 1);
  EXPECT_EQ(init.out, "");
  EXPECT_EQ(init.log, "Tarnweather I QLM LOG:QLM_Calib_INIT= 1  \n\n");
  EXPECT_EQ(LogFile(), "QLM_Calib_INIT...   \n");
  EXPECT_EQ(ReadFile(dir.File("defaultParameters.txt")), params);
  EXPECT_TRUE(SameBytes(Result(), Bytes(CalibrationRecord{})));
  EXPECT_TRUE(SameBytes(ResultOfBlackPair(1), Bytes(fileRecord)));
  EXPECT_TRUE(SameBytes(ResultOfBlackPair(0), Bytes(memoryRecord)));
  EXPECT_TRUE(SameBytes(ResultOfBlackPair(-3), Bytes(fileRecord)));

  // A record file that cannot be opened: -2, the caller record still copied.
  const CalibrationRecord secondMemory = PatternRecord(7, 30);
  const Captured missing = Init(dir.File("params.txt"), dir.File("missing.bin"), secondMemory);
  EXPECT_EQ(missing.rv, -2);
  EXPECT_EQ(missing.log, "Tarnweather I QLM LOG:QLM_Calib_INIT= -2  \n\n");
  EXPECT_TRUE(SameBytes(ResultOfBlackPair(1), Bytes(fileRecord)));
  EXPECT_TRUE(SameBytes(ResultOfBlackPair(0), Bytes(secondMemory)));

  // A short record file fills only the head of the file record.
  WriteFile(dir.File("short.bin"), Bytes(PatternRecord(11, 0), 100));
  EXPECT_EQ(Init(dir.File("params.txt"), dir.File("short.bin"), memoryRecord).rv, 1);
  EXPECT_TRUE(SameBytes(ResultOfBlackPair(1), Bytes(PatternRecord(11, 0), 100) + Bytes(fileRecord).substr(100)));
}

// -1 leaves both records as they were, even with a record file at hand, and
// saves the parameters in force: the defaults, or what a partial file set.
TEST_F(Exports, FailedParametersKeepTheRecordsAndSaveTheValuesInForce) {
  const std::string missing = dir.File("missing.txt");
  const Captured first = Init(missing, missing, PatternRecord(5, 20));
  EXPECT_EQ(first.rv, -1);
  EXPECT_EQ(first.out, "Open file " + missing + " fail!!! errcode=0\n");
  EXPECT_EQ(first.log, "Tarnweather I Load calibration parameter ERROR !!!\n"
                       "Tarnweather I QLM LOG:QLM_Calib_INIT= -1  \n\n");
  ExpectGolden(ReadFile(dir.File("defaultParameters.txt")), "dualCalibration/default_section.golden");
  EXPECT_TRUE(SameBytes(Result(), Bytes(CalibrationRecord{})));

  const CalibrationRecord fileRecord = PatternRecord(3, 10), callerRecord = PatternRecord(9, 20);
  InitWith(fileRecord, callerRecord);
  WriteFile(dir.File("partial.txt"), "\nParameterList\nbSaveDebugInfo=1;\nnHomographyConstraintScale=7;\nnot a line\n");
  WriteFile(dir.File("other.bin"), Bytes(PatternRecord(13, 40)));
  EXPECT_EQ(Init(dir.File("partial.txt"), dir.File("other.bin"), PatternRecord(15, 50)).rv, -1);
  std::string expected = WriteParameterFile(dir.File("expected.txt"), 1, 1, 7);
  expected.replace(expected.find("bSaveDebugInfo=0"), 16, "bSaveDebugInfo=1");
  EXPECT_EQ(ReadFile(dir.File("defaultParameters.txt")), expected);
  EXPECT_TRUE(SameBytes(ResultOfBlackPair(1), Bytes(fileRecord)));
  EXPECT_TRUE(SameBytes(ResultOfBlackPair(0), Bytes(callerRecord)));
}

TEST_F(Exports, ArgumentChecksAnswerMinus4AndMinus5AndLeaveTheResult) {
  const CalibrationRecord fileRecord = PatternRecord(3, 10), callerRecord = PatternRecord(5, 20);
  InitWith(fileRecord, callerRecord);
  std::vector<unsigned char> pixels(10000 * 1000, 0);
  unsigned char* image = pixels.data();
  const std::string kNull = "Error: main or sencond image data is empty. \n";
  const std::string kRange = "Error: input image size out of range. \n";
  const std::string kAccepted = LibraryLogLines({"calibrationDetectPoint  \n", "keypoints_1.size()=0\n",
                                                 "keypoints_2.size()=0\n", "m_nFeaturePointsNumThreshold=1",
                                                 "ERROR 1 \n"});
  const struct {
    unsigned char *mainImg, *secondImg;
    int w1, h1, w2, h2, rv;
    std::string printed, log;
  } cases[] = {
      {nullptr, image, 1000, 1000, 1000, 1000, -4, kNull, kProcessLog},
      {image, nullptr, 999, 1000, 1000, 1000, -4, kNull, kProcessLog},
      {image, image, 999, 1000, 1000, 1000, -5, kRange, kProcessLog},
      {image, image, 1000, 999, 1000, 1000, -5, kRange, kProcessLog},
      {image, image, 1000, 1000, 999, 1000, -5, kRange, kProcessLog},
      {image, image, 1000, 1000, 1000, 999, -5, kRange, kProcessLog},
      {image, image, 10001, 1000, 1000, 1000, -5, kRange, kProcessLog},
      {image, image, 1000, 10001, 1000, 1000, -5, kRange, kProcessLog},
      {image, image, 1000, 1000, 10001, 1000, -5, kRange, kProcessLog},
      {image, image, 1000, 1000, 1000, 10001, -5, kRange, kProcessLog},
      {image, image, -1000, -1000, 1000, 1000, -5, kRange, kProcessLog},
      {image, image, 10000, 1000, 1000, 10000, 0, kIdentityPrints, kAccepted},
      {image, image, 1000, 10000, 10000, 1000, 0, kIdentityPrints, kAccepted},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.w1 << "x" << c.h1 << " " << c.w2 << "x" << c.h2);
    ASSERT_TRUE(SameBytes(ResultOfBlackPair(0), Bytes(callerRecord)));
    WriteFile(dir.File("log.txt"), "");
    const Captured call = Capture([&] { return library.Process(c.mainImg, c.secondImg, c.w1, c.h1, c.w2, c.h2, 1); });
    EXPECT_EQ(call.rv, c.rv);
    EXPECT_EQ(call.out, c.printed);
    EXPECT_EQ(call.log, c.log);
    EXPECT_TRUE(SameBytes(Result(), Bytes(c.rv == 0 ? fileRecord : callerRecord)));
    EXPECT_EQ(LogFile(), "rv=" + std::to_string(c.rv) + "  \ng_dualCalib.mImgPairsIdx=0  \n");
  }
}

// Each count passes at its threshold and fails one below it; only a
// completed run changes the selected record, by one in nRefineCount.
TEST_F(Exports, CountsAgainstTheirThresholdsDecideTheRun) {
  cv::Mat scene = RenderTexturedScene(cv::Size(1000, 1000), 4);
  const CalibrationRecord fileRecord = PatternRecord(3, 255), callerRecord = PatternRecord(5, 20);
  WriteFile(dir.File("record.bin"), Bytes(fileRecord));
  const std::string start = "calibrationDetectPoint  \n";
  const struct {
    cv::Mat *mainImage, *secondImage;
    int32_t keypoints, goodMatches;
    int recordSelect, rv;
    std::string log;
    uint8_t refineCount;
  } cases[] = {
      {&black, &scene, 1, 1000, 0, 0, LibraryLogLines({start, "keypoints_1.size()=0\n", "keypoints_2.size()=500\n",
                                                       "m_nFeaturePointsNumThreshold=1", "ERROR 1 \n"}), 20},
      {&scene, &black, 1, 1000, 0, 0, LibraryLogLines({start, "keypoints_1.size()=500\n", "keypoints_2.size()=0\n",
                                                       "m_nFeaturePointsNumThreshold=1", "ERROR 2 \n"}), 20},
      {&scene, &scene, 501, 500, 0, 0, LibraryLogLines({start, "keypoints_1.size()=500\n", "keypoints_2.size()=500\n",
                                                        "m_nFeaturePointsNumThreshold=501", "ERROR 1 \n"}), 20},
      {&scene, &scene, 500, 501, 0, 0, LibraryLogLines({start, "keypoints_1.size()=500\n", "keypoints_2.size()=500\n",
                                                        "m_nFeaturePointsNumThreshold=500", "Match \n", "ERROR 3 \n"}), 20},
      {&scene, &scene, 500, 500, 0, 1, LibraryLogLines({start, "keypoints_1.size()=500\n", "keypoints_2.size()=500\n",
                                                        "m_nFeaturePointsNumThreshold=500", "Match \n"}), 21},
      {&scene, &scene, 500, 500, 1, 1, LibraryLogLines({start, "keypoints_1.size()=500\n", "keypoints_2.size()=500\n",
                                                        "m_nFeaturePointsNumThreshold=500", "Match \n"}), 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.keypoints << " " << c.goodMatches << " " << c.recordSelect);
    WriteParameterFile(dir.File("params.txt"), c.keypoints, c.goodMatches);
    ASSERT_EQ(Init(dir.File("params.txt"), dir.File("record.bin"), callerRecord).rv, 1);
    WriteFile(dir.File("log.txt"), "");
    const Captured call = Process(*c.mainImage, *c.secondImage, c.recordSelect);
    EXPECT_EQ(call.rv, c.rv);
    EXPECT_EQ(call.log, c.log);
    CalibrationRecord expected = c.recordSelect ? fileRecord : callerRecord;
    SetRecordRefineCount(expected, c.refineCount);
    EXPECT_TRUE(SameBytes(Result(), Bytes(expected)));
    EXPECT_EQ(LogFile(), "rv=" + std::to_string(c.rv) + "  \ng_dualCalib.mImgPairsIdx=0  \n");
  }
}
