// The built shared library driven as a factory tool drives it: loaded with
// dlopen, called through the four mangled symbols, judged by its codes, its
// files, its printed text and the result records it hands back.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "api/CalibrationRecord.h"
#include "engine/dualCalibration.h"
#include "tests/support/AndroidLog.h"
#include "tests/support/ServiceLibrary.h"
#include "synthetic/SyntheticScene.h"
#include "tests/support/TestFiles.h"

using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

namespace {

constexpr char kIdentityPrints[] =
    "H_OTP=[1, 0, 0;\n 0, 1, 0;\n 0, 0, 1]\n"
    "H_OTP_INV=[1, 0, 0;\n 0, 1, 0;\n 0, 0, 1]\n";
const RecordHomography kIdentity{1, 0, 0, 0, 1, 0, 0, 0, 1};

CalibrationRecord PatternRecord(uint8_t seed, uint8_t refineCount,
                                const RecordHomography& hOtp = kIdentity) {
  CalibrationRecord record;
  for (size_t i = 0; i < kCalibrationRecordSize; ++i)
    record.bytes[i] = static_cast<uint8_t>(i * seed + 1);
  SetRecordOffsetX(record, 0.0f);
  SetRecordHOtp(record, hOtp);
  SetRecordRefineCount(record, refineCount);
  return record;
}

std::string Bytes(const CalibrationRecord& record, size_t count = kCalibrationRecordSize) {
  return std::string(reinterpret_cast<const char*>(record.bytes), count);
}

// The parameters that matter here; every other one keeps its default.
struct Thresholds {
  int32_t keypoints = 1;
  int32_t goodMatches = 1;
  int32_t scaleHundredths = 2;
  int32_t offsetPx = 30;
};

// The engine's section as a file at path holds it; returns the text.
std::string SavedSection(dualCalibration& engine, const std::string& path) {
  EXPECT_EQ(SaveParametersToFile(engine, path.c_str()), 1);
  return ReadFile(path);
}

std::unique_ptr<dualCalibration> EngineWith(const Thresholds& t) {
  auto engine = std::make_unique<dualCalibration>();
  engine->m_nFeaturePointsNumThreshold = t.keypoints;
  engine->m_nRefineFeaturePointsNumThreshold = t.goodMatches;
  engine->m_nHomographyConstraintScale = t.scaleHundredths;
  engine->m_nHomographyConstraintOffsetX = t.offsetPx;
  engine->m_nHomographyConstraintOffsetY = t.offsetPx;
  return engine;
}

std::string WriteParameterFile(const std::string& path, const Thresholds& t) {
  return SavedSection(*EngineWith(t), path);
}

// The matrix printed after label with OpenCV's default format, as doubles.
cv::Mat PrintedMatrix(const std::string& text, const std::string& label) {
  const size_t at = text.find(label + "[");
  if (at == std::string::npos) return cv::Mat();
  const size_t end = text.find(']', at);
  std::string body = text.substr(at + label.size() + 1, end - at - label.size() - 1);
  std::vector<double> values;
  int rows = 1;
  for (char& c : body) {
    if (c == ';') ++rows;
    if (c == ',' || c == ';') c = ' ';
  }
  std::istringstream stream(body);
  for (double v; stream >> v;) values.push_back(v);
  return cv::Mat(values, true).reshape(1, rows);
}

struct Captured {
  int rv = 0;
  std::string out;
  std::string log;
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

  // INIT with a parameter file of thresholds, a record file holding
  // fileRecord and memoryRecord as the caller's block.
  int Init(const Thresholds& thresholds, const CalibrationRecord& fileRecord,
           CalibrationRecord memoryRecord) {
    WriteParameterFile(dir.File("params.txt"), thresholds);
    WriteFile(dir.File("record.bin"), Bytes(fileRecord));
    return Capture([&] {
             return library.Init(dir.File("params.txt"), dir.File("record.bin"),
                                 memoryRecord.bytes);
           })
        .rv;
  }

  Captured Process(cv::Mat& mainImage, cv::Mat& secondImage, int recordSelect) {
    return Capture([&] {
      return library.Process(mainImage.data, secondImage.data, mainImage.cols, mainImage.rows,
                             secondImage.cols, secondImage.rows, recordSelect);
    });
  }

  CalibrationRecord Result() {
    CalibrationRecord record;
    EXPECT_EQ(library.Result(record.bytes), 1);
    return record;
  }

  std::string LogFile() const { return ReadFile(dir.File("log.txt")); }
  void ClearLogFile() const { WriteFile(dir.File("log.txt"), ""); }

  TempDir dir;
  ServiceLibrary library;
};

}  // namespace

TEST(ServiceLibraryLoad, EveryLoadStartsFromZeroRecords) {
  TempDir dir;
  const CalibrationRecord zero = {};
  cv::Mat scene = RenderTexturedScene(cv::Size(1000, 1000), 2);
  for (int load = 0; load < 2; ++load) {
    ServiceLibrary library;
    ASSERT_TRUE(library.Loaded()) << library.Error();
    CalibrationRecord result;
    EXPECT_EQ(library.Result(result.bytes), 1);
    EXPECT_EQ(Bytes(result), Bytes(zero)) << "load " << load;
    CalibrationRecord caller = PatternRecord(3, 7);
    WriteParameterFile(dir.File("params.txt"), Thresholds{});
    CaptureStdout();
    CaptureStderr();
    EXPECT_EQ(library.Init(dir.File("params.txt"), dir.File("none.bin"), caller.bytes), -2);
    EXPECT_EQ(library.Process(scene.data, scene.data, 1000, 1000, 1000, 1000, 0), 1);
    GetCapturedStderr();
    GetCapturedStdout();
  }
}

TEST_F(Exports, VersionIs265AndLogsOneBlockPerCall) {
  EXPECT_EQ(library.Version(), 265);
  EXPECT_EQ(library.Version(), 265);
  EXPECT_EQ(LogFile(),
            "QLM_Get_Calib_Vertion...0x109...  \n"
            "QLM_Get_Calib_Vertion...0x109...  \n");
}

TEST_F(Exports, InitLoadsTheRunAndTheSelectorPicksTheRecord) {
  const std::string params = WriteParameterFile(dir.File("params.txt"), Thresholds{});
  const CalibrationRecord fileRecord = PatternRecord(3, 10);
  CalibrationRecord memoryRecord = PatternRecord(5, 20);
  WriteFile(dir.File("record.bin"), Bytes(fileRecord));

  const Captured init = Capture([&] {
    return library.Init(dir.File("params.txt"), dir.File("record.bin"), memoryRecord.bytes, 100,
                        200, 3, 4);
  });
  EXPECT_EQ(init.rv, 1);
  EXPECT_EQ(init.out, "");
  EXPECT_EQ(init.log, "Tarnweather I QLM LOG:QLM_Calib_INIT= 1  \n\n");
  EXPECT_EQ(LogFile(), "QLM_Calib_INIT...   \n");
  EXPECT_EQ(ReadFile(dir.File("defaultParameters.txt")), params);
  EXPECT_EQ(Bytes(Result()), Bytes(CalibrationRecord{}));

  cv::Mat black = cv::Mat::zeros(1000, 1000, CV_8UC1);
  EXPECT_EQ(Process(black, black, 1).rv, 0);
  EXPECT_EQ(Bytes(Result()), Bytes(fileRecord));
  EXPECT_EQ(Process(black, black, 0).rv, 0);
  EXPECT_EQ(Bytes(Result()), Bytes(memoryRecord));
  EXPECT_EQ(Process(black, black, -3).rv, 0);
  EXPECT_EQ(Bytes(Result()), Bytes(fileRecord));
}

TEST_F(Exports, InitWithoutRecordFileStillSetsUpTheCallerRecord) {
  const CalibrationRecord fileRecord = PatternRecord(3, 10);
  ASSERT_EQ(Init(Thresholds{}, fileRecord, PatternRecord(5, 20)), 1);
  const std::string params = WriteParameterFile(dir.File("params2.txt"), Thresholds{7, 8, 9, 10});
  CalibrationRecord memoryRecord = PatternRecord(7, 30);

  const Captured init = Capture([&] {
    return library.Init(dir.File("params2.txt"), dir.File("missing.bin"), memoryRecord.bytes);
  });
  EXPECT_EQ(init.rv, -2);
  EXPECT_EQ(init.out, "");
  EXPECT_EQ(init.log, "Tarnweather I QLM LOG:QLM_Calib_INIT= -2  \n\n");
  EXPECT_EQ(ReadFile(dir.File("defaultParameters.txt")), params);

  cv::Mat black = cv::Mat::zeros(1000, 1000, CV_8UC1);
  EXPECT_EQ(Process(black, black, 1).rv, 0);
  EXPECT_EQ(Bytes(Result()), Bytes(fileRecord));
  EXPECT_EQ(Process(black, black, 0).rv, 0);
  EXPECT_EQ(Bytes(Result()), Bytes(memoryRecord));
}

TEST_F(Exports, InitWithoutParametersWritesTheCurrentValuesAndKeepsTheRecords) {
  CalibrationRecord memoryRecord = PatternRecord(5, 20);
  const std::string missing = dir.File("missing.txt");
  const Captured first =
      Capture([&] { return library.Init(missing, missing, memoryRecord.bytes); });
  EXPECT_EQ(first.rv, -1);
  EXPECT_EQ(first.out, "Open file " + missing + " fail!!! errcode=0\n");
  EXPECT_EQ(first.log,
            "Tarnweather I Load calibration parameter ERROR !!!\n"
            "Tarnweather I QLM LOG:QLM_Calib_INIT= -1  \n\n");
  ExpectGolden(ReadFile(dir.File("defaultParameters.txt")),
               "dualCalibration/default_section.golden");
  EXPECT_EQ(Bytes(Result()), Bytes(CalibrationRecord{}));

  const CalibrationRecord fileRecord = PatternRecord(3, 10);
  const CalibrationRecord callerRecord = PatternRecord(9, 20);
  ASSERT_EQ(Init(Thresholds{}, fileRecord, callerRecord), 1);
  const std::string partial =
      "\nParameterList\nbSaveDebugInfo=1;\nnHomographyConstraintScale=7;\nnot a parameter line\n";
  WriteFile(dir.File("partial.txt"), partial);
  const Captured second = Capture([&] {
    return library.Init(dir.File("partial.txt"), dir.File("record.bin"), memoryRecord.bytes);
  });
  EXPECT_EQ(second.rv, -1);
  auto expected = EngineWith(Thresholds{});
  expected->m_bSaveDebugInfo = 1;
  expected->m_nHomographyConstraintScale = 7;
  EXPECT_EQ(ReadFile(dir.File("defaultParameters.txt")),
            SavedSection(*expected, dir.File("expected.txt")));

  cv::Mat black = cv::Mat::zeros(1000, 1000, CV_8UC1);
  EXPECT_EQ(Process(black, black, 0).rv, 0);
  EXPECT_EQ(Bytes(Result()), Bytes(callerRecord));
}

TEST_F(Exports, ShortRecordFileFillsOnlyTheHead) {
  const CalibrationRecord fileRecord = PatternRecord(3, 10);
  ASSERT_EQ(Init(Thresholds{}, fileRecord, PatternRecord(5, 20)), 1);
  const CalibrationRecord shortRecord = PatternRecord(11, 0);
  WriteFile(dir.File("short.bin"), Bytes(shortRecord, 100));
  CalibrationRecord memoryRecord = PatternRecord(5, 20);
  EXPECT_EQ(Capture([&] {
              return library.Init(dir.File("params.txt"), dir.File("short.bin"),
                                  memoryRecord.bytes);
            }).rv,
            1);

  cv::Mat black = cv::Mat::zeros(1000, 1000, CV_8UC1);
  EXPECT_EQ(Process(black, black, 1).rv, 0);
  EXPECT_EQ(Bytes(Result()), Bytes(shortRecord, 100) + Bytes(fileRecord).substr(100));
}

TEST_F(Exports, ArgumentChecksAnswerMinus4AndMinus5AndLeaveTheResult) {
  const CalibrationRecord callerRecord = PatternRecord(5, 20);
  ASSERT_EQ(Init(Thresholds{}, PatternRecord(3, 10), callerRecord), 1);
  std::vector<unsigned char> pixels(10000 * 1000, 0);
  unsigned char* image = pixels.data();
  cv::Mat black = cv::Mat::zeros(1000, 1000, CV_8UC1);
  ASSERT_EQ(Process(black, black, 0).rv, 0);
  ClearLogFile();

  const char* const kNull = "Error: main or sencond image data is empty. \n";
  const char* const kRange = "Error: input image size out of range. \n";
  const struct {
    unsigned char* mainImg;
    unsigned char* secondImg;
    int w1, h1, w2, h2;
    int rv;
    const char* printed;
  } cases[] = {
      {nullptr, image, 1000, 1000, 1000, 1000, -4, kNull},
      {image, nullptr, 999, 1000, 1000, 1000, -4, kNull},
      {image, image, 999, 1000, 1000, 1000, -5, kRange},
      {image, image, 1000, 999, 1000, 1000, -5, kRange},
      {image, image, 1000, 1000, 999, 1000, -5, kRange},
      {image, image, 1000, 1000, 1000, 999, -5, kRange},
      {image, image, 10001, 1000, 1000, 1000, -5, kRange},
      {image, image, 1000, 10001, 1000, 1000, -5, kRange},
      {image, image, 1000, 1000, 10001, 1000, -5, kRange},
      {image, image, 1000, 1000, 1000, 10001, -5, kRange},
      {image, image, -1000, -1000, 1000, 1000, -5, kRange},
  };
  std::string expectedLog;
  for (const auto& c : cases) {
    const Captured call =
        Capture([&] { return library.Process(c.mainImg, c.secondImg, c.w1, c.h1, c.w2, c.h2, 1); });
    const std::string where = std::to_string(c.w1) + "x" + std::to_string(c.h1) + " " +
                              std::to_string(c.w2) + "x" + std::to_string(c.h2);
    EXPECT_EQ(call.rv, c.rv) << where;
    EXPECT_EQ(call.out, c.printed) << where;
    EXPECT_EQ(call.log, "Tarnweather I QLM LOG:calibrationDetectPoint  \n\n") << where;
    EXPECT_EQ(Bytes(Result()), Bytes(callerRecord)) << where;
    expectedLog += "rv=" + std::to_string(c.rv) + "  \ng_dualCalib.mImgPairsIdx=0  \n";
  }
  EXPECT_EQ(LogFile(), expectedLog);
}

TEST_F(Exports, SidesFrom1000To10000AreAccepted) {
  const CalibrationRecord fileRecord = PatternRecord(3, 10);
  ASSERT_EQ(Init(Thresholds{}, fileRecord, PatternRecord(5, 20)), 1);
  std::vector<unsigned char> pixels(10000 * 1000, 0);
  const struct {
    int w1, h1, w2, h2;
  } cases[] = {{1000, 1000, 1000, 1000}, {10000, 1000, 1000, 10000}, {1000, 10000, 10000, 1000}};
  for (const auto& c : cases) {
    const Captured call = Capture(
        [&] { return library.Process(pixels.data(), pixels.data(), c.w1, c.h1, c.w2, c.h2, 1); });
    EXPECT_EQ(call.rv, 0) << c.w1 << "x" << c.h1;
    EXPECT_EQ(call.out, kIdentityPrints);
    EXPECT_EQ(call.log,
              "Tarnweather I QLM LOG:calibrationDetectPoint  \n\n"
              "Tarnweather I QLM LOG:keypoints_1.size()=0\n\n"
              "Tarnweather I QLM LOG:keypoints_2.size()=0\n\n"
              "Tarnweather I QLM LOG:m_nFeaturePointsNumThreshold=1\n"
              "Tarnweather I QLM LOG:ERROR 1 \n\n");
    EXPECT_EQ(Bytes(Result()), Bytes(fileRecord));
  }
}

TEST_F(Exports, CountFailuresAnswer0WithTheSelectedRecord) {
  const CalibrationRecord callerRecord = PatternRecord(5, 20);
  ASSERT_EQ(Init(Thresholds{1, 1000, 2, 30}, PatternRecord(3, 10), callerRecord), 1);
  cv::Mat scene = RenderTexturedScene(cv::Size(1000, 1000), 4);
  cv::Mat black = cv::Mat::zeros(1000, 1000, CV_8UC1);
  const std::string start =
      "Tarnweather I QLM LOG:calibrationDetectPoint  \n\n"
      "Tarnweather I QLM LOG:keypoints_1.size()=";
  const struct {
    cv::Mat* mainImage;
    cv::Mat* secondImage;
    std::string log;
  } cases[] = {
      {&black, &scene,
       start + "0\n\nTarnweather I QLM LOG:keypoints_2.size()=500\n\n"
               "Tarnweather I QLM LOG:m_nFeaturePointsNumThreshold=1\n"
               "Tarnweather I QLM LOG:ERROR 1 \n\n"},
      {&scene, &black,
       start + "500\n\nTarnweather I QLM LOG:keypoints_2.size()=0\n\n"
               "Tarnweather I QLM LOG:m_nFeaturePointsNumThreshold=1\n"
               "Tarnweather I QLM LOG:ERROR 2 \n\n"},
      {&scene, &scene,
       start + "500\n\nTarnweather I QLM LOG:keypoints_2.size()=500\n\n"
               "Tarnweather I QLM LOG:m_nFeaturePointsNumThreshold=1\n"
               "Tarnweather I QLM LOG:Match \n\n"
               "Tarnweather I QLM LOG:ERROR 3 \n\n"},
  };
  for (const auto& c : cases) {
    ClearLogFile();
    const Captured call = Process(*c.mainImage, *c.secondImage, 0);
    EXPECT_EQ(call.rv, 0);
    EXPECT_EQ(call.out, kIdentityPrints);
    EXPECT_EQ(call.log, c.log);
    EXPECT_EQ(Bytes(Result()), Bytes(callerRecord));
    EXPECT_EQ(LogFile(), "rv=0  \ng_dualCalib.mImgPairsIdx=0  \n");
  }
}

TEST_F(Exports, CountsEqualToTheirThresholdsPass) {
  cv::Mat scene = RenderTexturedScene(cv::Size(1000, 1000), 4);
  const struct {
    int32_t keypoints, goodMatches;
    int rv;
    const char* lastLogLine;
  } cases[] = {
      {500, 500, 1, "Tarnweather I QLM LOG:Match \n\n"},
      {501, 500, 0, "Tarnweather I QLM LOG:ERROR 1 \n\n"},
      {500, 501, 0, "Tarnweather I QLM LOG:ERROR 3 \n\n"},
  };
  for (const auto& c : cases) {
    ASSERT_EQ(Init(Thresholds{c.keypoints, c.goodMatches, 2, 30}, PatternRecord(3, 10),
                   PatternRecord(5, 20)),
              1);
    const Captured call = Process(scene, scene, 0);
    EXPECT_EQ(call.rv, c.rv) << c.keypoints << " " << c.goodMatches;
    const std::string tail(c.lastLogLine);
    ASSERT_GE(call.log.size(), tail.size());
    EXPECT_EQ(call.log.substr(call.log.size() - tail.size()), tail)
        << c.keypoints << " " << c.goodMatches;
  }
}

TEST_F(Exports, SuccessChangesOnlyTheRefineCountOfTheSelectedRecord) {
  const CalibrationRecord fileRecord = PatternRecord(3, 255);
  const CalibrationRecord callerRecord = PatternRecord(5, 20);
  ASSERT_EQ(Init(Thresholds{}, fileRecord, callerRecord), 1);
  cv::Mat scene = RenderTexturedScene(cv::Size(1000, 1000), 4);
  const struct {
    int recordSelect;
    const CalibrationRecord* selected;
    uint8_t count;
  } cases[] = {{0, &callerRecord, 21}, {0, &callerRecord, 21}, {1, &fileRecord, 0}};
  for (const auto& c : cases) {
    ClearLogFile();
    const Captured call = Process(scene, scene, c.recordSelect);
    EXPECT_EQ(call.rv, 1);
    EXPECT_EQ(call.out, std::string(kIdentityPrints) +
                            "RANSAC  Refine H:[1, -0, 0;\n 0, 1, 0]\n"
                            "ORG H=[1, -0, 0;\n 0, 1, 0;\n 0, 0, 1]\n"
                            "refine H=[1, 0, 0;\n 0, 1, 0;\n 0, 0, 1]\n");
    EXPECT_EQ(LogFile(), "rv=1  \ng_dualCalib.mImgPairsIdx=0  \n");
    CalibrationRecord expected = *c.selected;
    SetRecordRefineCount(expected, c.count);
    EXPECT_EQ(Bytes(Result()), Bytes(expected)) << "select " << c.recordSelect;
  }
}

TEST_F(Exports, EstimateRecoversAKnownSimilarity) {
  // Targets: the translation within 0.1 px and the scale within 2e-4, taken as
  // the RMS over the pairs. ORB puts keypoints on whole pixels of their
  // pyramid level, so a single pair at the corners of the offset range may miss
  // them (up to about 0.2 px and 3e-4 over 100 rendered pairs): single pairs
  // are held to twice the target plus that spread. The translation is the
  // displacement of the image centre; the one at the origin also carries the
  // scale and rotation error times the distance to the origin.
  constexpr double kTranslationRmsPx = 0.1;
  constexpr double kScaleRms = 2e-4;
  constexpr double kTranslationPerPairPx = 0.25;
  constexpr double kScalePerPair = 4e-4;
  constexpr double kOriginPerPairPx = 0.5;
  const cv::Matx33d mainToSecond(1.02, 0.01, -30, -0.008, 0.99, 12, 1e-6, -2e-6, 1);
  const struct {
    uint32_t seed;
    double scale, rotationDeg, txPx, tyPx;
  } cases[] = {
      {31, 1.01, 0.5, 20, -20}, {32, 0.99, -0.5, -20, 20},     {33, 1.01, -0.5, -20, -20},
      {34, 0.99, 0.5, 20, 20},  {35, 1.006, -0.3, 12.5, 7.25}, {36, 0.995, 0.4, -8, -17},
  };
  double translationSquares = 0.0;
  double scaleSquares = 0.0;
  for (const auto& c : cases) {
    const SyntheticPair pair =
        RenderSyntheticPair(cv::Size(2000, 1500), c.seed, mainToSecond,
                            SimilarityTransform(c.scale, c.rotationDeg, c.txPx, c.tyPx));
    ASSERT_EQ(Init(Thresholds{}, PatternRecord(3, 10), PatternRecord(5, 20, pair.hOtp)), 1);
    cv::Mat mainImage = pair.mainImage;
    cv::Mat secondImage = pair.secondImage;
    const Captured call = Process(mainImage, secondImage, 0);
    ASSERT_EQ(call.rv, 1) << c.seed;
    EXPECT_NE(call.out.find("refine H=["), std::string::npos) << c.seed;
    const cv::Mat a = PrintedMatrix(call.out, "RANSAC  Refine H:");
    ASSERT_EQ(a.size(), cv::Size(3, 2)) << call.out;
    const cv::Matx33d& truth = pair.expectedEstimate;
    const cv::Vec3d centre(1000, 750, 1);
    const cv::Vec3d expectedCentre = truth * centre;
    for (int row = 0; row < 2; ++row) {
      const double moved = a.at<double>(row, 0) * centre[0] + a.at<double>(row, 1) * centre[1] +
                           a.at<double>(row, 2);
      EXPECT_NEAR(moved, expectedCentre[row], kTranslationPerPairPx) << c.seed << " row " << row;
      EXPECT_NEAR(a.at<double>(row, 2), truth(row, 2), kOriginPerPairPx)
          << c.seed << " row " << row;
      translationSquares += (moved - expectedCentre[row]) * (moved - expectedCentre[row]);
    }
    const double scaleError =
        std::hypot(a.at<double>(0, 0), a.at<double>(1, 0)) - std::hypot(truth(0, 0), truth(1, 0));
    EXPECT_LT(std::fabs(scaleError), kScalePerPair) << c.seed;
    scaleSquares += scaleError * scaleError;
  }
  const double pairs = static_cast<double>(std::size(cases));
  EXPECT_LT(std::sqrt(translationSquares / (2.0 * pairs)), kTranslationRmsPx);
  EXPECT_LT(std::sqrt(scaleSquares / pairs), kScaleRms);
}

TEST_F(Exports, OffsetXShiftsTheRefinedTranslation) {
  const SyntheticPair pair = RenderSyntheticPair(cv::Size(2000, 1500), 37, cv::Matx33d::eye(),
                                                 SimilarityTransform(1.003, 0.1, 4, -3));
  cv::Mat mainImage = pair.mainImage;
  cv::Mat secondImage = pair.secondImage;
  cv::Mat refined[2];
  const float offsets[2] = {0.0f, 250.0f};
  for (int i = 0; i < 2; ++i) {
    CalibrationRecord record = PatternRecord(5, 20, pair.hOtp);
    SetRecordOffsetX(record, offsets[i]);
    ASSERT_EQ(Init(Thresholds{}, record, record), 1);
    const Captured call = Process(mainImage, secondImage, 0);
    ASSERT_EQ(call.rv, 1);
    refined[i] = PrintedMatrix(call.out, "refine H=");
    ASSERT_EQ(refined[i].size(), cv::Size(3, 3)) << call.out;
  }
  // The printout carries 16 significant digits.
  EXPECT_NEAR(refined[1].at<double>(0, 2) - refined[0].at<double>(0, 2), -2.5, 1e-12);
  EXPECT_EQ(refined[1].at<double>(1, 2), refined[0].at<double>(1, 2));
  EXPECT_EQ(refined[1].at<double>(0, 0), refined[0].at<double>(0, 0));
}

TEST_F(Exports, LogFileTracesEveryCallInOrder) {
  EXPECT_EQ(library.Version(), 265);
  CalibrationRecord memoryRecord = PatternRecord(5, 20);
  const std::string missing = dir.File("missing.txt");
  EXPECT_EQ(Capture([&] { return library.Init(missing, missing, memoryRecord.bytes); }).rv, -1);
  EXPECT_EQ(Capture([&] { return library.Process(nullptr, nullptr, 0, 0, 0, 0, 0); }).rv, -4);
  EXPECT_EQ(library.Version(), 265);
  EXPECT_EQ(LogFile(),
            "QLM_Get_Calib_Vertion...0x109...  \n"
            "QLM_Calib_INIT...   \n"
            "rv=-4  \n"
            "g_dualCalib.mImgPairsIdx=0  \n"
            "QLM_Get_Calib_Vertion...0x109...  \n");
}
