#include "engine/FeaturePointCalibration.h"

#include "tests/support/TestPrelude.h"

#include "engine/dualCalibration.h"
#include "synthetic/SyntheticScene.h"
#include "tests/support/AndroidLog.h"

using namespace testing::internal;

namespace {

const RecordHomography kIdentity{1, 0, 0, 0, 1, 0, 0, 0, 1};
const cv::Mat kEye = cv::Mat::eye(3, 3, CV_64F);

bool IsIdentity(const cv::Mat& m) { return m.type() == CV_64F && m.size() == kEye.size() && cv::norm(m, kEye) == 0.0; }

// The caller record holds hOtp, fOffsetX and nRefineCount 41; the file record nRefineCount 255.
std::unique_ptr<dualCalibration> Engine(const RecordHomography& hOtp, float offsetX = 0.0f) {
  auto engine = std::make_unique<dualCalibration>();
  SetRecordHOtp(engine->mCallerRecord, hOtp), SetRecordOffsetX(engine->mCallerRecord, offsetX), SetRecordRefineCount(engine->mCallerRecord, 41);
  SetRecordHOtp(engine->mFileRecord, kIdentity), SetRecordRefineCount(engine->mFileRecord, 255);
  return engine;
}

struct CapturedRun { int rv = 0; std::string out, log; FeaturePointReport report; };

CapturedRun Calibrate(dualCalibration& engine, const cv::Mat& mainImage, const cv::Mat& secondImage, bool keepImage = false) {
  CapturedRun run;
  run.report.keepMatchesImage = keepImage;
  CaptureStdout(), CaptureStderr();
  run.rv = engine.calibrationDetectPoint(mainImage.data, secondImage.data, mainImage.cols, mainImage.rows,
                                         secondImage.cols, secondImage.rows, &run.report);
  run.log = StripAndroidLogPrefixes(GetCapturedStderr());
  run.out = GetCapturedStdout();
  return run;
}

}  // namespace

TEST(SelectGoodMatches, KeepsNearestMatchesWhoseSinglePrecisionRatioIsBelowTwoThirds) {
  // 20/30 is exactly 2/3 in binary32 but below it in double precision; 0/0 is NaN.
  const std::vector<std::vector<float>> distances = {{}, {5}, {0, 0}, {0, 1}, {19, 30}, {65, 98},
                                                     {20, 30}, {64, 96}, {10, 15, 1}, {12, 30, 31}};
  std::vector<std::vector<cv::DMatch>> knn(distances.size());
  for (size_t q = 0; q < distances.size(); ++q)
    for (size_t i = 0; i < distances[q].size(); ++i) knn[q].emplace_back(int(q), int(i + 7), 2, distances[q][i]);
  std::string kept;
  for (const cv::DMatch& m : SelectGoodMatches(knn))
    kept += std::to_string(m.queryIdx) + ":" + std::to_string(m.trainIdx) + std::to_string(m.imgIdx) + "/" + std::to_string(int(m.distance)) + " ";
  EXPECT_EQ(kept, "3:72/0 4:72/19 5:72/65 9:72/12 ");
}

TEST(RefineHomography, ConstraintsAreStrictAndTestedAsStated) {
  const std::map<std::string, cv::Mat> named = {
      {"none", cv::Mat()}, {"eye3", cv::Mat::eye(3, 3, CV_64F)}, {"float", cv::Mat(cv::Matx23f(1, 0, 0, 0, 1, 0))}};
  for (const auto& c : CaseRows("engine/RefineHomography.txt")) {
    SCOPED_TRACE(c[3]);
    const cv::Mat estimate = named.count(c[0]) ? named.at(c[0]) : cv::Mat(Numbers(c[0]), true).reshape(1, 2);
    const std::vector<double> l = Numbers(c[1]);  // fOffsetX, scale, offset limits
    const HomographyRefinement r = RefineHomography(estimate, float(l[0]), int32_t(l[1]), int32_t(l[2]), int32_t(l[3]));
    EXPECT_EQ(r.constraintsMet, c[2] == "1");
    EXPECT_EQ(r.correctedH.empty(), estimate.type() != CV_64F || estimate.rows != 2);
    EXPECT_TRUE(c[2] == "1" || IsIdentity(r.refinedH));
  }
}

// A scene against itself: every printed matrix (fOffsetX from the record) and log line, report and refine count.
TEST(calibrationDetectPoint, IdenticalImagesPrintEveryStep) {
  const cv::Mat scene = RenderTexturedScene(cv::Size(2000, 1500), 11);
  auto engine = Engine(kIdentity, 50.0f);
  engine->m_nHomographyConstraintScale = engine->m_nHomographyConstraintOffsetX = engine->m_nHomographyConstraintOffsetY = 1;
  const CapturedRun run = Calibrate(*engine, scene, scene, true);
  ExpectGolden("stdout:\n" + run.out + "log:\n" + run.log, "engine/IdenticalImages.golden");
  EXPECT_EQ(std::make_tuple(run.rv, run.report.goodMatches, run.report.matchesImage.size(), run.report.matchesImage.type(),
                            RecordRefineCount(engine->mResultRecord)),
            std::make_tuple(1, 500, cv::Size(4000, 1500), CV_8UC3, uint8_t{42}));
}

// Each count passes at its threshold and fails one above it; the result is the selected record, its nRefineCount
// advanced once the estimate is done.
TEST(calibrationDetectPoint, CountsAgainstTheirThresholdsDecideTheRun) {
  const std::map<std::string, cv::Mat> images = {{"scene", RenderTexturedScene(cv::Size(1000, 1000), 4)},
      {"black", cv::Mat::zeros(1000, 1000, CV_8UC1)}, {"periodic", RenderPeriodicTexture(cv::Size(2000, 1500), 4, 1)}};
  for (const auto& c : CaseRows("engine/DetectPointCounts.txt")) {
    SCOPED_TRACE(c[0] + " | " + c[1] + " | " + c[2]);
    std::istringstream names(c[0]), homography(c[1]), thresholds(c[2]), results(c[3]);
    std::string mainName, secondName, number;
    RecordHomography hOtp{};
    int rv = 0, refineCount = 0;
    names >> mainName >> secondName, results >> rv >> refineCount;
    for (float& h : hOtp) homography >> number, h = std::stof(number);
    auto engine = Engine(hOtp);
    thresholds >> engine->m_nFeaturePointsNumThreshold >> engine->m_nRefineFeaturePointsNumThreshold >> engine->mRecordSelect;
    const cv::Mat &mainImage = images.at(mainName), &secondImage = images.at(secondName);
    const CapturedRun run = Calibrate(*engine, mainImage, secondImage);
    EXPECT_EQ(run.rv, rv);
    EXPECT_EQ(cv::Rect(engine->mMainWidth, engine->mMainHeight, engine->mSecondWidth, engine->mSecondHeight),
              cv::Rect(cv::Point(mainImage.size()), secondImage.size()));
    EXPECT_EQ(run.log, LibraryLogLines({c.begin() + 4, c.end()}));
    CalibrationRecord expected = engine->mRecordSelect ? engine->mFileRecord : engine->mCallerRecord;
    SetRecordRefineCount(expected, static_cast<uint8_t>(refineCount));
    EXPECT_EQ(std::memcmp(engine->mResultRecord.bytes, expected.bytes, kCalibrationRecordSize), 0);
    EXPECT_TRUE(rv == 0 || run.report.keypoints2 > 0 || (run.report.estimate.empty() && IsIdentity(run.report.refinedH)));
  }
}

TEST(calibrationDetectPoint, EstimateRecoversAKnownSimilarity) {
  // RMS targets: the image centre's translation within 0.1 px, scale within 2e-4. ORB keypoints sit on whole pixels
  // of their pyramid level, so single pairs miss by up to about 0.2 px and 3e-4 (seen over 100 rendered pairs); the
  // translation at the origin also carries the scale and rotation error times the distance to the origin.
  constexpr double kTranslationRmsPx = 0.1, kScaleRms = 2e-4, kTranslationPerPairPx = 0.25, kScalePerPair = 4e-4;
  constexpr double kOriginPerPairPx = 0.5;
  const cv::Matx33d mainToSecond(1.02, 0.01, -30, -0.008, 0.99, 12, 1e-6, -2e-6, 1);
  const double cases[][5] = {{31, 1.01, 0.5, 20, -20}, {32, 0.99, -0.5, -20, 20},     {33, 1.01, -0.5, -20, -20},
                             {34, 0.99, 0.5, 20, 20},  {35, 1.006, -0.3, 12.5, 7.25}, {36, 0.995, 0.4, -8, -17}};
  double translationSquares = 0.0, scaleSquares = 0.0;
  for (const auto& c : cases) {  // seed, scale, rotation in degrees, translation in pixels
    SCOPED_TRACE(c[0]);
    const SyntheticPair pair = RenderSyntheticPair(cv::Size(2000, 1500), static_cast<uint32_t>(c[0]), mainToSecond,
                                                   SimilarityTransform(c[1], c[2], c[3], c[4]));
    auto engine = Engine(pair.hOtp);
    const CapturedRun run = Calibrate(*engine, pair.mainImage, pair.secondImage);
    ASSERT_EQ(run.rv, 1);
    const cv::Matx23d a(run.report.estimate);
    const cv::Matx33d& truth = pair.expectedEstimate;
    const cv::Vec3d centre(1000, 750, 1), expectedCentre = truth * centre;
    const cv::Vec2d moved = a * centre;
    for (int row = 0; row < 2; ++row) {
      EXPECT_NEAR(moved[row], expectedCentre[row], kTranslationPerPairPx) << "row " << row;
      EXPECT_NEAR(a(row, 2), truth(row, 2), kOriginPerPairPx) << "row " << row;
      translationSquares += (moved[row] - expectedCentre[row]) * (moved[row] - expectedCentre[row]);
    }
    const double scaleError = std::hypot(a(0, 0), a(1, 0)) - std::hypot(truth(0, 0), truth(1, 0));
    EXPECT_LT(std::fabs(scaleError), kScalePerPair);
    scaleSquares += scaleError * scaleError;
  }
  EXPECT_LT(std::sqrt(translationSquares / 12.0), kTranslationRmsPx);
  EXPECT_LT(std::sqrt(scaleSquares / 6.0), kScaleRms);
}
