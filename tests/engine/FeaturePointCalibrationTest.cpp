#include "engine/FeaturePointCalibration.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "engine/dualCalibration.h"
#include "synthetic/SyntheticScene.h"
#include "tests/support/AndroidLog.h"

using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

namespace {

const RecordHomography kIdentity{1, 0, 0, 0, 1, 0, 0, 0, 1};
const cv::Mat kEye = cv::Mat::eye(3, 3, CV_64F);

cv::Mat Estimate(double a00, double a01, double a02, double a10, double a11, double a12) {
  return cv::Mat(cv::Matx23d(a00, a01, a02, a10, a11, a12)).clone();
}

bool SameMatrix(const cv::Mat& a, const cv::Mat& b) {
  return a.size() == b.size() && a.type() == b.type() && cv::norm(a, b, cv::NORM_INF) == 0.0;
}

// An engine whose caller record holds hOtp, fOffsetX and nRefineCount 41.
std::unique_ptr<dualCalibration> Engine(const RecordHomography& hOtp, float offsetX = 0.0f) {
  auto engine = std::make_unique<dualCalibration>();
  SetRecordHOtp(engine->mCallerRecord, hOtp);
  SetRecordOffsetX(engine->mCallerRecord, offsetX);
  SetRecordRefineCount(engine->mCallerRecord, 41);
  return engine;
}

struct CapturedRun {
  int rv = 0;
  std::string out, log;
  FeaturePointReport report;
};

CapturedRun Calibrate(dualCalibration& engine, const cv::Mat& mainImage, const cv::Mat& secondImage,
                      bool keepMatchesImage = false) {
  CapturedRun run;
  run.report.keepMatchesImage = keepMatchesImage;
  CaptureStdout();
  CaptureStderr();
  run.rv = engine.calibrationDetectPoint(mainImage.data, secondImage.data, mainImage.cols, mainImage.rows,
                                         secondImage.cols, secondImage.rows, &run.report);
  run.log = StripAndroidLogPrefixes(GetCapturedStderr());
  run.out = GetCapturedStdout();
  return run;
}

}  // namespace

TEST(SelectGoodMatches, RatioIsStrictInSinglePrecisionAndNeedsTwoNeighbours) {
  const struct {
    std::vector<float> distances;
    bool kept;
  } cases[] = {
      {{}, false},      {{5}, false},     {{0, 0}, false},  {{0, 1}, true},       {{19, 30}, true},
      {{65, 98}, true}, {{20, 30}, false}, {{64, 96}, false}, {{10, 15, 1}, false}, {{12, 30, 31}, true},
  };  // 20/30 is exactly 2/3 in binary32 but below it in double precision.
  std::vector<std::vector<cv::DMatch>> knn;
  std::vector<int> kept;
  for (const auto& c : cases) {
    knn.emplace_back();
    for (size_t i = 0; i < c.distances.size(); ++i)
      knn.back().emplace_back(static_cast<int>(knn.size()), static_cast<int>(i + 7), 2, c.distances[i]);
    if (c.kept) kept.push_back(static_cast<int>(knn.size()));
  }
  const std::vector<cv::DMatch> good = SelectGoodMatches(knn);
  ASSERT_EQ(good.size(), kept.size());
  for (size_t i = 0; i < good.size(); ++i) {
    EXPECT_EQ(good[i].queryIdx, kept[i]);
    EXPECT_EQ(good[i].trainIdx * 10 + good[i].imgIdx, 72);
    EXPECT_EQ(good[i].distance, cases[kept[i] - 1].distances[0]);
  }
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
      {"h00 between binary32 s and 0.01", Estimate(1.0099999999, 0, 0, 0, 1, 0), 0, 1, 10, 10, false},
      {"scale tolerance 0", Estimate(1, 0, 0, 0, 1, 0), 0, 0, 10, 10, false},
      {"fOffsetX brings h02 inside", Estimate(1, 0, 1, 0, 1, 0), 250, 2, 2, 10, true},
      {"fOffsetX takes h02 to the limit", Estimate(1, 0, 1, 0, 1, 0), 300, 2, 2, 10, false},
      {"NaN in the estimate", Estimate(1, 0, nan, 0, 1, 0), 0, 2, 10, 10, false},
      {"no estimate", cv::Mat(), 0, 2, 10, 10, false},
      {"3x3", cv::Mat::eye(3, 3, CV_64F), 0, 2, 10, 10, false},
      {"single precision", cv::Mat(cv::Matx23f(1, 0, 0, 0, 1, 0)), 0, 2, 10, 10, false},
  };
  for (const auto& c : cases) {
    const HomographyRefinement r = RefineHomography(c.estimate, c.offsetX, c.scale, c.limitX, c.limitY);
    EXPECT_EQ(r.constraintsMet, c.met) << c.name;
    EXPECT_EQ(r.correctedH.empty(), c.estimate.type() != CV_64F || c.estimate.rows != 2) << c.name;
    EXPECT_TRUE(c.met || SameMatrix(r.refinedH, kEye)) << c.name;
  }
}

// One run on a textured scene against itself: every printed matrix and log
// line, the report, fOffsetX from the record and the refine count.
TEST(calibrationDetectPoint, IdenticalImagesPrintEveryStepAndCountTheRefinement) {
  const cv::Mat scene = RenderTexturedScene(cv::Size(2000, 1500), 11);
  auto engine = Engine(kIdentity, 50.0f);
  engine->m_nHomographyConstraintScale = 1;
  engine->m_nHomographyConstraintOffsetX = 1;
  engine->m_nHomographyConstraintOffsetY = 1;
  const CapturedRun run = Calibrate(*engine, scene, scene, true);
  EXPECT_EQ(run.rv, 1);
  EXPECT_EQ(run.out,
            "H_OTP=[1, 0, 0;\n 0, 1, 0;\n 0, 0, 1]\nH_OTP_INV=[1, 0, 0;\n 0, 1, 0;\n 0, 0, 1]\n"
            "RANSAC  Refine H:[1, -0, 0;\n 0, 1, 0]\nORG H=[1, -0, -0.5;\n 0, 1, 0;\n 0, 0, 1]\n"
            "refine H=[1, 0, -0.5;\n 0, 1, 0;\n 0, 0, 1]\n");
  EXPECT_EQ(run.log, LibraryLogLines({"calibrationDetectPoint  \n", "keypoints_1.size()=500\n", "keypoints_2.size()=500\n",
                          "m_nFeaturePointsNumThreshold=0", "Match \n"}));
  EXPECT_EQ(run.report.goodMatches, 500);
  EXPECT_TRUE(run.report.constraintsMet);
  EXPECT_EQ(run.report.matchesImage.size(), cv::Size(4000, 1500));
  EXPECT_EQ(run.report.matchesImage.type(), CV_8UC3);
  EXPECT_EQ(RecordRefineCount(engine->mResultRecord), 42);
}

// H_OTP that aligns nothing: the aligned image stays black, no keypoint or
// estimate, and the run still counts. Threshold 0 lets zero keypoints pass.
TEST(calibrationDetectPoint, DegenerateHOtpGivesNoKeypointsAndTheIdentity) {
  const float inf = std::numeric_limits<float>::infinity();
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const struct {
    const char* name;
    RecordHomography hOtp;
    const char* printedInverse;
  } cases[] = {
      {"all zero", RecordHomography{}, "H_OTP=[0, 0, 0;\n 0, 0, 0;\n 0, 0, 0]\nH_OTP_INV=[0, 0, 0;\n 0, 0, 0;\n 0, 0, 0]\n"},
      {"rank one", RecordHomography{1, 2, 3, 2, 4, 6, 3, 6, 9}, nullptr},
      {"NaN", RecordHomography{1, 0, nan, 0, 1, 0, 0, 0, 1}, nullptr},
      {"infinite", RecordHomography{inf, 0, 0, 0, 1, 0, 0, 0, 1}, nullptr},
      {"far out of the frame", RecordHomography{1e30f, 0, 0, 0, 1e30f, 0, 0, 0, 1}, nullptr},
  };
  const cv::Mat scene = RenderTexturedScene(cv::Size(1000, 1000), 5);
  for (const auto& c : cases) {
    auto engine = Engine(c.hOtp);
    const CapturedRun run = Calibrate(*engine, scene, scene);
    EXPECT_EQ(run.rv, 1) << c.name;
    EXPECT_EQ(run.report.keypoints1 * 1000 + run.report.keypoints2, 500000) << c.name;
    EXPECT_EQ(run.report.goodMatches, 0) << c.name;
    EXPECT_TRUE(run.report.estimate.empty()) << c.name;
    EXPECT_TRUE(SameMatrix(run.report.refinedH, kEye)) << c.name;
    EXPECT_EQ(RecordRefineCount(engine->mResultRecord), 42) << c.name;
    if (c.printedInverse) {
      EXPECT_EQ(run.out, std::string(c.printedInverse) + "RANSAC  Refine H:[]\n");
    }
  }
}

TEST(calibrationDetectPoint, StoresTheDimensionsOnlyAfterTheChecks) {
  const cv::Mat black = cv::Mat::zeros(1200, 1100, CV_8UC1);
  auto engine = Engine(kIdentity);
  engine->m_nFeaturePointsNumThreshold = 1;
  CaptureStdout();
  CaptureStderr();
  EXPECT_EQ(engine->calibrationDetectPoint(black.data, black.data, 1100, 999, 1000, 1000), -5);
  GetCapturedStderr();
  EXPECT_EQ(GetCapturedStdout(), "Error: input image size out of range. \n");
  EXPECT_EQ(engine->mMainWidth + engine->mSecondHeight, 0);
  const CapturedRun run = Calibrate(*engine, black, black(cv::Rect(0, 0, 1050, 1000)).clone());
  EXPECT_EQ(run.rv, 0);
  EXPECT_EQ(run.log, LibraryLogLines({"calibrationDetectPoint  \n", "keypoints_1.size()=0\n", "keypoints_2.size()=0\n",
                          "m_nFeaturePointsNumThreshold=1", "ERROR 1 \n"}));
  EXPECT_EQ(std::vector<int32_t>({engine->mMainWidth, engine->mMainHeight, engine->mSecondWidth,
                                  engine->mSecondHeight}),
            std::vector<int32_t>({1100, 1200, 1050, 1000}));
}

TEST(calibrationDetectPoint, PeriodicTextureKeepsTheFeaturesAskedFor) {
  // ORB's tied scores on a 4-px tile give about 175,000 keypoints per image.
  const cv::Mat texture = RenderPeriodicTexture(cv::Size(2000, 1500), 4, 1);
  auto engine = Engine(kIdentity);
  engine->m_nRefineFeaturePointsNumThreshold = 20;
  const CapturedRun run = Calibrate(*engine, texture, texture);
  EXPECT_EQ(run.rv, 0);
  EXPECT_EQ(run.report.keypoints1 * 1000 + run.report.keypoints2, 500500);
  EXPECT_EQ(run.report.goodMatches, 0);
  EXPECT_EQ(run.log, LibraryLogLines({"calibrationDetectPoint  \n", "keypoints_1.size()=500\n", "keypoints_2.size()=500\n",
                          "m_nFeaturePointsNumThreshold=0", "Match \n", "ERROR 3 \n"}));
}

TEST(calibrationDetectPoint, EstimateRecoversAKnownSimilarity) {
  // Targets: the translation within 0.1 px and the scale within 2e-4, taken as
  // the RMS over the pairs. ORB puts keypoints on whole pixels of their
  // pyramid level, so a single pair at the corners of the offset range may miss
  // them (up to about 0.2 px and 3e-4 over 100 rendered pairs): single pairs
  // are held to twice the target plus that spread. The translation is the
  // displacement of the image centre; the one at the origin also carries the
  // scale and rotation error times the distance to the origin.
  constexpr double kTranslationRmsPx = 0.1, kScaleRms = 2e-4;
  constexpr double kTranslationPerPairPx = 0.25, kScalePerPair = 4e-4, kOriginPerPairPx = 0.5;
  const cv::Matx33d mainToSecond(1.02, 0.01, -30, -0.008, 0.99, 12, 1e-6, -2e-6, 1);
  const struct {
    uint32_t seed;
    double scale, rotationDeg, txPx, tyPx;
  } cases[] = {
      {31, 1.01, 0.5, 20, -20}, {32, 0.99, -0.5, -20, 20},     {33, 1.01, -0.5, -20, -20},
      {34, 0.99, 0.5, 20, 20},  {35, 1.006, -0.3, 12.5, 7.25}, {36, 0.995, 0.4, -8, -17},
  };
  double translationSquares = 0.0, scaleSquares = 0.0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.seed);
    const SyntheticPair pair = RenderSyntheticPair(cv::Size(2000, 1500), c.seed, mainToSecond,
                                                   SimilarityTransform(c.scale, c.rotationDeg, c.txPx, c.tyPx));
    auto engine = Engine(pair.hOtp);
    engine->m_nHomographyConstraintScale = 2;
    engine->m_nHomographyConstraintOffsetX = engine->m_nHomographyConstraintOffsetY = 30;
    const CapturedRun run = Calibrate(*engine, pair.mainImage, pair.secondImage);
    ASSERT_EQ(run.rv, 1);
    EXPECT_TRUE(run.report.constraintsMet);
    const cv::Mat& a = run.report.estimate;
    const cv::Matx33d& truth = pair.expectedEstimate;
    const cv::Vec3d centre(1000, 750, 1), expectedCentre = truth * centre;
    for (int row = 0; row < 2; ++row) {
      const double moved = a.at<double>(row, 0) * centre[0] + a.at<double>(row, 1) * centre[1] + a.at<double>(row, 2);
      EXPECT_NEAR(moved, expectedCentre[row], kTranslationPerPairPx) << "row " << row;
      EXPECT_NEAR(a.at<double>(row, 2), truth(row, 2), kOriginPerPairPx) << "row " << row;
      translationSquares += (moved - expectedCentre[row]) * (moved - expectedCentre[row]);
    }
    const double scaleError = std::hypot(a.at<double>(0, 0), a.at<double>(1, 0)) - std::hypot(truth(0, 0), truth(1, 0));
    EXPECT_LT(std::fabs(scaleError), kScalePerPair);
    scaleSquares += scaleError * scaleError;
  }
  EXPECT_LT(std::sqrt(translationSquares / 12.0), kTranslationRmsPx);
  EXPECT_LT(std::sqrt(scaleSquares / 6.0), kScaleRms);
}
