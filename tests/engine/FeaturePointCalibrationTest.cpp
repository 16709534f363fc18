#include "engine/FeaturePointCalibration.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "engine/dualCalibration.h"
#include "tests/support/AndroidLog.h"
#include "synthetic/SyntheticScene.h"

using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

namespace {

const cv::Size kPairSize(2000, 1500);
const RecordHomography kIdentity{1, 0, 0, 0, 1, 0, 0, 0, 1};
constexpr char kIdentityPrints[] =
    "H_OTP=[1, 0, 0;\n 0, 1, 0;\n 0, 0, 1]\n"
    "H_OTP_INV=[1, 0, 0;\n 0, 1, 0;\n 0, 0, 1]\n";
// A mild perspective between the two cameras.
const cv::Matx33d kMainToSecond(1.02, 0.01, -30, -0.008, 0.99, 12, 1e-6, -2e-6, 1);

cv::Mat Estimate(double a00, double a01, double a02, double a10, double a11, double a12) {
  return cv::Mat(cv::Matx23d(a00, a01, a02, a10, a11, a12)).clone();
}

cv::Mat Matrix3(double h00, double h01, double h02, double h10, double h11, double h12) {
  return cv::Mat(cv::Matx33d(h00, h01, h02, h10, h11, h12, 0, 0, 1)).clone();
}

bool SameMatrix(const cv::Mat& a, const cv::Mat& b) {
  return a.size() == b.size() && a.type() == b.type() &&
         std::memcmp(a.data, b.data, a.total() * a.elemSize()) == 0;
}

std::unique_ptr<dualCalibration> EngineWithCallerRecord(const RecordHomography& hOtp,
                                                        float offsetX = 0.0f) {
  auto engine = std::make_unique<dualCalibration>();
  SetRecordHOtp(engine->mCallerRecord, hOtp);
  SetRecordOffsetX(engine->mCallerRecord, offsetX);
  SetRecordRefineCount(engine->mCallerRecord, 41);
  return engine;
}

void SetConstraints(dualCalibration& engine, int32_t scaleHundredths, int32_t offsetXPx,
                    int32_t offsetYPx) {
  engine.m_nHomographyConstraintScale = scaleHundredths;
  engine.m_nHomographyConstraintOffsetX = offsetXPx;
  engine.m_nHomographyConstraintOffsetY = offsetYPx;
}

// Runs the calibration on a pair of equal sizes with standard output and
// the Android log captured.
struct CapturedRun {
  int rv = 0;
  std::string stdoutText;
  std::string logText;
};

CapturedRun Calibrate(dualCalibration& engine, const cv::Mat& mainImage, const cv::Mat& secondImage,
                      FeaturePointReport* report) {
  CapturedRun run;
  CaptureStdout();
  CaptureStderr();
  run.rv =
      engine.calibrationDetectPoint(mainImage.data, secondImage.data, mainImage.cols,
                                    mainImage.rows, secondImage.cols, secondImage.rows, report);
  run.logText = StripAndroidLogPrefixes(GetCapturedStderr());
  run.stdoutText = GetCapturedStdout();
  return run;
}

}  // namespace

TEST(SelectGoodMatches, RatioIsStrictInSinglePrecisionAndNeedsTwoNeighbours) {
  uint32_t limitBits = 0;
  std::memcpy(&limitBits, &kRatioTestLimit, sizeof(limitBits));
  EXPECT_EQ(limitBits, 0x3F2AAAABu);

  const struct {
    std::vector<float> distances;
    bool kept;
  } cases[] = {
      {{}, false},
      {{5}, false},
      {{0, 0}, false},  // 0/0 is NaN
      {{0, 1}, true},
      {{19, 30}, true},
      {{65, 98}, true},
      {{20, 30}, false},  // exactly 2/3 in binary32; kept in double precision
      {{2, 3}, false},
      {{64, 96}, false},
      {{21, 31}, false},
      {{1, 1}, false},
      {{10, 15, 1}, false},
      {{12, 30, 31}, true},
  };
  for (const auto& c : cases) {
    std::vector<cv::DMatch> neighbours;
    for (size_t i = 0; i < c.distances.size(); ++i) {
      neighbours.emplace_back(3, static_cast<int>(i), c.distances[i]);
    }
    EXPECT_EQ(SelectGoodMatches({neighbours}).size(), c.kept ? 1u : 0u)
        << testing::PrintToString(c.distances);
  }
}

TEST(SelectGoodMatches, KeepsWholeNearestMatchesInQueryOrder) {
  const std::vector<std::vector<cv::DMatch>> knn = {
      {cv::DMatch(0, 7, 2, 10.0f), cv::DMatch(0, 8, 2, 40.0f)},
      {cv::DMatch(1, 3, 0, 30.0f), cv::DMatch(1, 4, 0, 31.0f)},
      {cv::DMatch(2, 9, 1, 0.0f), cv::DMatch(2, 1, 1, 12.0f)},
  };
  const std::vector<cv::DMatch> good = SelectGoodMatches(knn);
  ASSERT_EQ(good.size(), 2u);
  EXPECT_EQ(good[0].queryIdx, 0);
  EXPECT_EQ(good[0].trainIdx, 7);
  EXPECT_EQ(good[0].imgIdx, 2);
  EXPECT_EQ(good[0].distance, 10.0f);
  EXPECT_EQ(good[1].queryIdx, 2);
  EXPECT_EQ(good[1].trainIdx, 9);
  EXPECT_EQ(good[1].imgIdx, 1);
}

TEST(RefineHomography, ConstraintsAreStrictAndTestedAsStated) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const struct {
    const char* name;
    cv::Mat estimate;
    float offsetX;
    int32_t scale, limitX, limitY;
    bool met;
  } cases[] = {
      {"within every limit", Estimate(1.01, -0.02, 5, 0.02, 0.99, -3), 0, 2, 10, 10, true},
      {"|h02| equal to its limit", Estimate(1, 0, 5, 0, 1, 0), 0, 2, 5, 10, false},
      {"|h12| equal to its limit", Estimate(1, 0, 0, 0, 1, -4), 0, 2, 10, 4, false},
      {"h11 off by more than s", Estimate(1, 0, 0, 0, 0.97, 0), 0, 2, 10, 10, false},
      {"h00 inside the binary32 s", Estimate(1.0099999997, 0, 0, 0, 1, 0), 0, 1, 10, 10, true},
      {"h00 between binary32 s and 0.01", Estimate(1.0099999999, 0, 0, 0, 1, 0), 0, 1, 10, 10,
       false},
      {"scale tolerance 0", Estimate(1, 0, 0, 0, 1, 0), 0, 0, 10, 10, false},
      {"offset limit 0", Estimate(1, 0, 0, 0, 1, 0), 0, 2, 0, 10, false},
      {"fOffsetX brings h02 inside", Estimate(1, 0, 1, 0, 1, 0), 250, 2, 2, 10, true},
      {"fOffsetX takes h02 to the limit", Estimate(1, 0, 1, 0, 1, 0), 300, 2, 2, 10, false},
      {"NaN in the estimate", Estimate(1, 0, nan, 0, 1, 0), 0, 2, 10, 10, false},
  };
  for (const auto& c : cases) {
    const HomographyRefinement r =
        RefineHomography(c.estimate, c.offsetX, c.scale, c.limitX, c.limitY);
    EXPECT_EQ(r.constraintsMet, c.met) << c.name;
    if (!c.met) {
      EXPECT_TRUE(SameMatrix(r.refinedH, cv::Mat::eye(3, 3, CV_64F))) << c.name;
    }
  }
}

TEST(RefineHomography, KeepsScaleAndTranslationAndDropsTheRotation) {
  const HomographyRefinement r =
      RefineHomography(Estimate(1.01, -0.02, 5.5, 0.02, 0.99, -3.25), 0.0f, 2, 10, 10);
  ASSERT_TRUE(r.constraintsMet);
  EXPECT_TRUE(SameMatrix(r.correctedH, Matrix3(1.01, -0.02, 5.5, 0.02, 0.99, -3.25)));
  const double k = r.refinedH.at<double>(0, 0);
  EXPECT_DOUBLE_EQ(k, std::hypot(0.02, 0.99));
  EXPECT_TRUE(SameMatrix(r.refinedH, Matrix3(k, 0, 5.5, 0, k, -3.25)));

  const HomographyRefinement pure =
      RefineHomography(Estimate(1, 0, 1, 0, 0.99, 2), 0.0f, 2, 10, 10);
  EXPECT_TRUE(SameMatrix(pure.refinedH, Matrix3(0.99, 0, 1, 0, 0.99, 2)));
}

TEST(RefineHomography, OffsetCorrectionIsTheBinary32QuotientAddedToA02) {
  const struct {
    double a02;
    float offsetX;
    double expected;
  } cases[] = {
      {7.25, 250.0f, 4.75},
      {7.25, 0.0f, 7.25},
      {-1.0, -100.0f, 0.0},
      {0.1, 37.0f, 0.1 + static_cast<double>(-0.37f)},
      {3.0, 1.0f, 3.0 + static_cast<double>(-0.01f)},
  };
  for (const auto& c : cases) {
    const HomographyRefinement r =
        RefineHomography(Estimate(1, 0, c.a02, 0, 1, 0), c.offsetX, 2, 100, 100);
    EXPECT_EQ(r.correctedH.at<double>(0, 2), c.expected) << c.a02 << " " << c.offsetX;
    EXPECT_EQ(r.refinedH.at<double>(0, 2), c.expected) << c.a02 << " " << c.offsetX;
  }
}

TEST(RefineHomography, NoModelGivesTheIdentity) {
  const cv::Mat notAnEstimate[] = {cv::Mat(), cv::Mat::eye(3, 3, CV_64F),
                                   cv::Mat(cv::Matx23f(1, 0, 0, 0, 1, 0))};
  for (const cv::Mat& estimate : notAnEstimate) {
    const HomographyRefinement r = RefineHomography(estimate, 0.0f, 5, 10, 10);
    EXPECT_FALSE(r.constraintsMet);
    EXPECT_TRUE(r.correctedH.empty());
    EXPECT_TRUE(SameMatrix(r.refinedH, cv::Mat::eye(3, 3, CV_64F)));
  }
}

TEST(calibrationDetectPoint, IdenticalImagesGiveTheIdentityAndPrintEveryMatrix) {
  const cv::Mat scene = RenderTexturedScene(kPairSize, 11);
  auto engine = EngineWithCallerRecord(kIdentity);
  SetConstraints(*engine, 1, 1, 1);
  FeaturePointReport report;
  const CapturedRun run = Calibrate(*engine, scene, scene, &report);

  EXPECT_EQ(run.rv, 1);
  EXPECT_EQ(run.stdoutText, std::string(kIdentityPrints) +
                                "RANSAC  Refine H:[1, -0, 0;\n 0, 1, 0]\n"
                                "ORG H=[1, -0, 0;\n 0, 1, 0;\n 0, 0, 1]\n"
                                "refine H=[1, 0, 0;\n 0, 1, 0;\n 0, 0, 1]\n");
  EXPECT_EQ(run.logText,
            "Tarnweather I QLM LOG:calibrationDetectPoint  \n\n"
            "Tarnweather I QLM LOG:keypoints_1.size()=500\n\n"
            "Tarnweather I QLM LOG:keypoints_2.size()=500\n\n"
            "Tarnweather I QLM LOG:m_nFeaturePointsNumThreshold=0\n"
            "Tarnweather I QLM LOG:Match \n\n");
  EXPECT_EQ(report.keypoints1, 500);
  EXPECT_EQ(report.keypoints2, 500);
  EXPECT_EQ(report.goodMatches, 500);
  EXPECT_TRUE(report.constraintsMet);
  EXPECT_TRUE(report.matchesImage.empty());
  EXPECT_EQ(RecordRefineCount(engine->mResultRecord), 42);
}

TEST(calibrationDetectPoint, NoKeypointsPassWithThresholdZeroAndGiveTheIdentity) {
  const cv::Mat black = cv::Mat::zeros(1000, 1000, CV_8UC1);
  auto engine = EngineWithCallerRecord(kIdentity);
  SetConstraints(*engine, 5, 10, 10);
  FeaturePointReport report;
  const CapturedRun run = Calibrate(*engine, black, black, &report);

  EXPECT_EQ(run.rv, 1);
  EXPECT_EQ(run.stdoutText, std::string(kIdentityPrints) + "RANSAC  Refine H:[]\n");
  EXPECT_EQ(report.keypoints1, 0);
  EXPECT_EQ(report.keypoints2, 0);
  EXPECT_EQ(report.goodMatches, 0);
  EXPECT_TRUE(report.estimate.empty());
  EXPECT_FALSE(report.constraintsMet);
  EXPECT_TRUE(SameMatrix(report.refinedH, cv::Mat::eye(3, 3, CV_64F)));
  EXPECT_EQ(RecordRefineCount(engine->mResultRecord), 42);
}

TEST(calibrationDetectPoint, DegenerateHOtpYieldsAnEmptyAlignedImage) {
  const float inf = std::numeric_limits<float>::infinity();
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const struct {
    const char* name;
    RecordHomography hOtp;
  } cases[] = {
      {"all zero (singular)", RecordHomography{}},
      {"rank one", RecordHomography{1, 2, 3, 2, 4, 6, 3, 6, 9}},
      {"NaN", RecordHomography{1, 0, nan, 0, 1, 0, 0, 0, 1}},
      {"infinite", RecordHomography{inf, 0, 0, 0, 1, 0, 0, 0, 1}},
      {"far out of the frame", RecordHomography{1e30f, 0, 0, 0, 1e30f, 0, 0, 0, 1}},
  };
  const cv::Mat scene = RenderTexturedScene(cv::Size(1000, 1000), 5);
  for (const auto& c : cases) {
    auto engine = EngineWithCallerRecord(c.hOtp);
    FeaturePointReport report;
    const CapturedRun run = Calibrate(*engine, scene, scene, &report);
    EXPECT_EQ(run.rv, 1) << c.name;
    EXPECT_EQ(report.keypoints1, 500) << c.name;
    EXPECT_EQ(report.keypoints2, 0) << c.name;
    EXPECT_EQ(report.goodMatches, 0) << c.name;
    EXPECT_TRUE(SameMatrix(report.refinedH, cv::Mat::eye(3, 3, CV_64F))) << c.name;
    EXPECT_EQ(RecordRefineCount(engine->mResultRecord), 42) << c.name;
  }
}

TEST(calibrationDetectPoint, SingularHOtpPrintsTheZeroInverse) {
  const cv::Mat scene = RenderTexturedScene(cv::Size(1000, 1000), 5);
  auto engine = EngineWithCallerRecord(RecordHomography{});
  const CapturedRun run = Calibrate(*engine, scene, scene, nullptr);
  EXPECT_EQ(run.rv, 1);
  EXPECT_EQ(run.stdoutText,
            "H_OTP=[0, 0, 0;\n 0, 0, 0;\n 0, 0, 0]\n"
            "H_OTP_INV=[0, 0, 0;\n 0, 0, 0;\n 0, 0, 0]\n"
            "RANSAC  Refine H:[]\n");
}

TEST(calibrationDetectPoint, StoresTheDimensionsOnlyAfterTheChecks) {
  const cv::Mat black = cv::Mat::zeros(1200, 1100, CV_8UC1);
  auto engine = EngineWithCallerRecord(kIdentity);
  engine->m_nFeaturePointsNumThreshold = 1;
  CaptureStdout();
  CaptureStderr();
  EXPECT_EQ(engine->calibrationDetectPoint(black.data, black.data, 1100, 999, 1000, 1000), -5);
  GetCapturedStderr();
  EXPECT_EQ(GetCapturedStdout(), "Error: input image size out of range. \n");
  EXPECT_EQ(engine->mMainWidth, 0);
  EXPECT_EQ(engine->mSecondHeight, 0);

  const CapturedRun run =
      Calibrate(*engine, black, black(cv::Rect(0, 0, 1050, 1000)).clone(), nullptr);
  EXPECT_EQ(run.rv, 0);
  EXPECT_EQ(run.logText,
            "Tarnweather I QLM LOG:calibrationDetectPoint  \n\n"
            "Tarnweather I QLM LOG:keypoints_1.size()=0\n\n"
            "Tarnweather I QLM LOG:keypoints_2.size()=0\n\n"
            "Tarnweather I QLM LOG:m_nFeaturePointsNumThreshold=1\n"
            "Tarnweather I QLM LOG:ERROR 1 \n\n");
  EXPECT_EQ(engine->mMainWidth, 1100);
  EXPECT_EQ(engine->mMainHeight, 1200);
  EXPECT_EQ(engine->mSecondWidth, 1050);
  EXPECT_EQ(engine->mSecondHeight, 1000);
}

TEST(calibrationDetectPoint, ReportKeepsTheDrawnMatchesOnRequest) {
  const cv::Mat scene = RenderTexturedScene(cv::Size(1000, 1000), 3);
  auto engine = EngineWithCallerRecord(kIdentity);
  FeaturePointReport report;
  report.keepMatchesImage = true;
  EXPECT_EQ(Calibrate(*engine, scene, scene, &report).rv, 1);
  EXPECT_EQ(report.matchesImage.size(), cv::Size(2000, 1000));
  EXPECT_EQ(report.matchesImage.type(), CV_8UC3);
}

TEST(calibrationDetectPoint, OffsetXShiftsOnlyTheCorrectedTranslation) {
  const SyntheticPair pair =
      RenderSyntheticPair(kPairSize, 21, kMainToSecond, SimilarityTransform(1.004, 0.2, 6.5, -4.0));
  FeaturePointReport reports[3];
  const float offsets[3] = {0.0f, 250.0f, -37.0f};
  for (int i = 0; i < 3; ++i) {
    auto engine = EngineWithCallerRecord(pair.hOtp, offsets[i]);
    SetConstraints(*engine, 2, 20, 20);
    ASSERT_EQ(Calibrate(*engine, pair.mainImage, pair.secondImage, &reports[i]).rv, 1);
    ASSERT_TRUE(reports[i].constraintsMet);
  }
  const double a02 = reports[0].estimate.at<double>(0, 2);
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(SameMatrix(reports[i].estimate, reports[0].estimate)) << offsets[i];
    const double shifted = a02 + static_cast<double>(offsets[i] / -100.0f);
    EXPECT_EQ(reports[i].correctedH.at<double>(0, 2), shifted) << offsets[i];
    EXPECT_EQ(reports[i].refinedH.at<double>(0, 2), shifted) << offsets[i];
    EXPECT_EQ(reports[i].refinedH.at<double>(1, 2), reports[0].estimate.at<double>(1, 2));
  }
  EXPECT_EQ(reports[1].correctedH.at<double>(0, 2), a02 - 2.5);
}

TEST(calibrationDetectPoint, PeriodicTextureKeepsTheFeaturesAskedFor) {
  // ORB's tied scores on a 4-px tile give about 175,000 keypoints per image.
  const cv::Mat texture = RenderPeriodicTexture(kPairSize, 4, 1);
  auto engine = EngineWithCallerRecord(kIdentity);
  engine->m_nFeaturePointsNumThreshold = 100;
  engine->m_nRefineFeaturePointsNumThreshold = 20;
  FeaturePointReport report;
  const CapturedRun run = Calibrate(*engine, texture, texture, &report);

  EXPECT_EQ(run.rv, 0);
  EXPECT_EQ(run.logText,
            "Tarnweather I QLM LOG:calibrationDetectPoint  \n\n"
            "Tarnweather I QLM LOG:keypoints_1.size()=500\n\n"
            "Tarnweather I QLM LOG:keypoints_2.size()=500\n\n"
            "Tarnweather I QLM LOG:m_nFeaturePointsNumThreshold=100\n"
            "Tarnweather I QLM LOG:Match \n\n"
            "Tarnweather I QLM LOG:ERROR 3 \n\n");
  EXPECT_EQ(report.keypoints1, 500);
  EXPECT_EQ(report.keypoints2, 500);
  EXPECT_EQ(report.goodMatches, 0);
}
