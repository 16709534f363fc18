#include "tests/support/TestPrelude.h"

#include <cfloat>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include "distortion/CDistortionFilter.h"
#include "engine/dualCalibration.h"
#include "synthetic/ChessboardRenderer.h"

namespace {

using ImagePairs = std::vector<std::pair<cv::Mat, cv::Mat>>;
const cv::Size kImageSize(2000, 1500);

struct Scene {
  StereoRig rig;
  std::vector<RenderedPair> rendered;
  ImagePairs pairs;
};

// count poses drawn with poseSeed; pair k's noise is seeded with noiseSeed + 2 k.
Scene RenderScene(const StereoRig& rig, const ChessboardLayout& layout, int count, uint64_t poseSeed,
                  double maxTiltDeg, double maxRollDeg, double noiseSigma, double blurSigmaPx, uint64_t noiseSeed) {
  Scene s{rig, {}, {}};
  RenderOptions options;
  options.noiseSigma = noiseSigma, options.blurSigmaPx = blurSigmaPx;
  for (const BoardPose& pose : RandomBoardPoses(rig, layout, count, poseSeed, maxTiltDeg, maxRollDeg)) {
    s.rendered.push_back(RenderPair(rig, layout, pose, options, noiseSeed + 2 * s.pairs.size()));
    s.pairs.emplace_back(s.rendered.back().mainImage, s.rendered.back().secondImage);
  }
  return s;
}

// Eight views of the example rig, rendered once per test program.
const Scene& ExampleScene() {
  static const Scene scene = RenderScene(ExampleStereoRig(kImageSize, kImageSize), {}, 8, 2024, 30, 15, 1.0, 0.7, 100);
  return scene;
}

ImagePairs FirstPairs(size_t count) { return {ExampleScene().pairs.begin(), ExampleScene().pairs.begin() + count}; }

std::unique_ptr<dualCalibration> ChartEngine() {
  auto engine = std::make_unique<dualCalibration>();
  ApplyExampleChartSettings(*engine);
  return engine;
}

ChartSummary RunDriver(dualCalibration& engine, const ImagePairs& pairs, ChartRunOptions options = {},
                       std::string* printed = nullptr) {
  testing::internal::CaptureStdout();
  ChartSummary summary = engine.runChartCalibration(pairs, options);
  const std::string text = testing::internal::GetCapturedStdout();
  if (printed != nullptr) *printed = text;
  return summary;
}

// Against the rig: stereo RMS below 0.2 px, T within 0.5% of |T|, angles of R within 0.05 degrees, focal lengths 0.5%.
void ExpectAccurate(const ChartSummary& s, const dualCalibration& engine, const StereoRig& rig) {
  EXPECT_LT(s.stereoRms, 0.2);
  EXPECT_LT(cv::norm(s.T - rig.T), 0.005 * cv::norm(rig.T)) << s.T;
  const cv::Vec3d truth(std::atan2(rig.R(2, 1), rig.R(2, 2)), std::atan2(-rig.R(2, 0), std::hypot(rig.R(0, 0), rig.R(1, 0))),
                        std::atan2(rig.R(1, 0), rig.R(0, 0)));
  EXPECT_LT(cv::norm(cv::Vec3d(s.r_x, s.r_y, s.r_z) - truth, cv::NORM_INF) * 180.0 / CV_PI, 0.05);
  for (int i = 0; i < 2; ++i) {
    EXPECT_NEAR(engine.K1.at<double>(i, i) / rig.main.K(i, i), 1.0, 0.005);
    EXPECT_NEAR(engine.K2.at<double>(i, i) / rig.second.K(i, i), 1.0, 0.005);
  }
}

// Views (0-based) in which some second-image corner is not the true partner of its main-image corner.
std::vector<int32_t> WronglyPairedViews(const dualCalibration& engine, const Scene& scene) {
  std::vector<int32_t> wrong;
  for (size_t v = 0; v < engine.mImagePoints1.size(); ++v) {
    const RenderedPair& truth = scene.rendered[v];
    for (size_t n = 0; n < engine.mImagePoints1[v].size(); ++n) {
      const auto distance = [&](const cv::Point2f& p) { return cv::norm(p - engine.mImagePoints1[v][n]); };
      const size_t corner = std::min_element(truth.mainCorners.begin(), truth.mainCorners.end(),
                                             [&](auto& a, auto& b) { return distance(a) < distance(b); }) -
                            truth.mainCorners.begin();
      if (cv::norm(engine.mImagePoints2[v][n] - truth.secondCorners[corner]) > 1.0) {
        wrong.push_back(static_cast<int32_t>(v));
        break;
      }
    }
  }
  return wrong;
}

// A table of three rows whose current (second) row is 1 + c1 * r / 1000.
std::string TableText(double c1) { return "3 1\n0 100 0 0 0\n0 200 0 " + std::to_string(c1) + " 0\n0 1000 0 0 0\n"; }

}  // namespace

// Eight pairs with the debug switch, into lists an earlier run left filled. The same OpenCV calls with the stages'
// flags and criteria give the same bits.
TEST(ChartDriver, CalibratesEightRenderedPairs) {
  TempDir dir;
  auto engine = ChartEngine();
  engine->m_bSaveDebugInfo = 1;
  engine->mObjectPoints.resize(5), engine->mImagePoints1.resize(5), engine->mImagePoints2.resize(5);
  std::string printed;
  const ChartSummary summary = RunDriver(*engine, ExampleScene().pairs, {}, &printed);
  ASSERT_EQ(summary.status, kChartOk) << summary.failedStage << ": " << summary.message;
  EXPECT_EQ(summary.viewsFound, std::vector<int32_t>(8, 1));
  ASSERT_EQ(std::make_pair(engine->mImagePoints2.size(), summary.viewErrors2.size()), std::make_pair(size_t{8}, size_t{8}));
  EXPECT_GT(*std::min_element(summary.viewErrors1.begin(), summary.viewErrors1.end()), 0.0f);
  EXPECT_LT(*std::max_element(summary.viewErrors2.begin(), summary.viewErrors2.end()), 0.2f);
  ExpectAccurate(summary, *engine, ExampleScene().rig);
  const ChartLimitChecks& c = summary.checks;
  EXPECT_TRUE(c.monoReprojection && c.rotationX && c.rotationY && c.rotationZ && c.stereoReprojection &&
              c.translationX && c.translationY && c.translationZ);
  EXPECT_EQ(printed.find("ERROR"), std::string::npos) << printed;
  EXPECT_NE(printed.find("Stereo calibration done \n \nStarting rectification ... \nRectification done \n"),
            std::string::npos);

  const std::vector<std::vector<cv::Point2f>>* views[2] = {&engine->mImagePoints1, &engine->mImagePoints2};
  const double monoRms[2] = {summary.monoRms1, summary.monoRms2};
  cv::Mat K[2], D[2], R, T, E, F;
  for (int i = 0; i < 2; ++i) {
    std::vector<cv::Mat> rvecs, tvecs;
    EXPECT_EQ(monoRms[i], cv::calibrateCamera(engine->mObjectPoints, *views[i], kImageSize, K[i], D[i], rvecs, tvecs,
                                              0, {cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 30, DBL_EPSILON}));
    D[i] = cv::Mat::zeros(1, 8, CV_64F);
  }
  EXPECT_EQ(cv::norm(summary.mono2.K, K[1], cv::NORM_INF), 0.0);
  const double stereoRms = cv::stereoCalibrate(engine->mObjectPoints, *views[0], *views[1], K[0], D[0], K[1], D[1],
                                               kImageSize, R, T, E, F, cv::CALIB_USE_INTRINSIC_GUESS,
                                               {cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 100, 1e-5});
  EXPECT_EQ(std::make_pair(summary.stereoRms, summary.T), std::make_pair(static_cast<float>(stereoRms), cv::Vec3d(T)));
  EXPECT_EQ(cv::norm(engine->K1, K[0], cv::NORM_INF) + cv::norm(engine->D2, D[1], cv::NORM_INF), 0.0);
  // The deviations in the order fx, fy, cx, cy, k1, k2, k3, p1, p2 from OpenCV's k1, k2, p1, p2, k3.
  for (int i = 0; i < 9; ++i) EXPECT_EQ(summary.mono2.stdDev[i], engine->mMonoStdDev2.at<double>("012345867"[i] - '0'));

  // Rectification: the horizontal baseline in P2, the angles of R1 and R2 in the file; the second set is a copy.
  EXPECT_GT(std::fabs(engine->P2.at<double>(0, 3)), 10.0 * std::fabs(engine->P2.at<double>(1, 3)));
  float x, y, z;
  engine->rotationToEulerAngles(engine->R2, x, y, z);
  EXPECT_EQ(cv::Vec3f(engine->r_x_2, engine->r_y_2, engine->r_z_2), cv::Vec3f(x, y, z));
  const std::string main = ReadFile(dir.File("calibrationResult.txt"));
  EXPECT_NE(main.find(cv::format("r_y_1:%.6f\n", engine->r_y_1)), std::string::npos);
  EXPECT_EQ(cv::norm(engine->mSecondResult.P2, engine->P2, cv::NORM_INF) + cv::norm(engine->mSecondRotation, engine->R, cv::NORM_INF), 0.0);
  // The assembled matrix (M K1 R^T K2^-1)^-1 = K2 R K1^-1 M^-1, in single precision.
  cv::Mat residue, assembled;
  engine->mResidueMatrix.convertTo(residue, CV_64F), engine->m_assembleMatrix.convertTo(assembled, CV_64F);
  const cv::Mat expected = engine->K2 * engine->R * engine->K1.inv() * residue.inv();
  EXPECT_LT(cv::norm(assembled, expected, cv::NORM_INF), 2e-5 * cv::norm(expected, cv::NORM_INF));
  engine->savePlatformCalibrationResult();
  // Written before the copy, the first file's k4_2..k6_2 lines follow the second set's earlier D2.
  EXPECT_EQ(ReadFile(dir.File("calibrationResult_mtk.txt")).rfind(main.substr(0, main.find("second camera dist")), 0), 0u);

  // The tables undistort views 0 to 3 only and the summary counts the two left; a rerun without views 0 and 5 keeps
  // the rest as they were.
  const std::string mainTable = dir.File("main.txt"), secondTable = dir.File("second.txt");
  WriteFile(mainTable, TableText(0.0)), WriteFile(secondTable, TableText(0.004));
  ChartRunOptions options;
  options.mainTablePath = mainTable.c_str(), options.secondTablePath = secondTable.c_str();
  auto tables = ChartEngine();
  const ChartSummary withTables = RunDriver(*tables, FirstPairs(6), options);
  ASSERT_EQ(withTables.status, kChartOk) << withTables.message;
  EXPECT_EQ(withTables.viewsWithoutTables, 2);
  EXPECT_EQ(tables->mImagePoints1, decltype(engine->mImagePoints1)(engine->mImagePoints1.begin(), engine->mImagePoints1.begin() + 6));
  std::vector<std::vector<cv::Point2f>> undistorted(engine->mImagePoints2.begin(), engine->mImagePoints2.begin() + 6);
  for (size_t k = 0; k < 4; ++k) {
    ASSERT_EQ(dualCalibration::SecondCameraFilter().UndistortPointsPolynomial(&undistorted[k][0].x, &undistorted[k][0].x,
                                                                              54, 2000, 1500), 1);
    EXPECT_NE(undistorted[k], engine->mImagePoints2[k]) << k;
  }
  EXPECT_EQ(tables->mImagePoints2, undistorted);
  testing::internal::CaptureStdout();
  const ChartSummary rerun = tables->recalibrateChartWithoutViews(withTables, {5, 0, 99});
  testing::internal::GetCapturedStdout();
  ASSERT_EQ(rerun.status, kChartOk) << rerun.message;
  EXPECT_EQ(rerun.viewsFound, (std::vector<int32_t>{0, 1, 1, 1, 1, 0}));
  EXPECT_EQ(rerun.viewCount + rerun.viewsWithoutTables + rerun.viewErrors1.size() + tables->mObjectPoints.size(), 13u);
  EXPECT_EQ(tables->mImagePoints2, decltype(undistorted)(undistorted.begin() + 1, undistorted.end() - 1));
}

// Each failure stops the run with the status, stage and message of chart/DriverFailures.golden (square size 0: an
// OpenCV error). Progress per pair: V a view, Q turned away by the quick check of the main image, N not found.
TEST(ChartDriver, FailuresStopTheRunWithTheirStageAndMessage) {
  TempDir dir;
  const std::string flat = dir.File("flat.txt"), steep = dir.File("steep.txt"), missing = dir.File("missing.txt");
  WriteFile(flat, TableText(0.0)), WriteFile(steep, TableText(0.5));  // steep: far outside the band at the corners
  const ImagePairs good = FirstPairs(4);
  const cv::Mat empty = RenderEmptyView(kImageSize, RenderOptions(), 5);
  RenderOptions faintOptions;  // a board the fast check rejects and the second image's search finds: kept
  faintOptions.lightLevel = 60.0;
  const cv::Mat faint = RenderPair(ExampleScene().rig, {}, ExampleScene().rendered[2].pose, faintOptions, 7).secondImage;
  const cv::Mat colour(kImageSize, CV_8UC3, cv::Scalar::all(0));
  const struct {
    ImagePairs pairs;
    const char *mainTable, *secondTable;
    int32_t squareSize;
  } cases[] = {
      {{}, nullptr, nullptr, 25},
      {{good[0], {cv::Mat(), good[0].second}}, nullptr, nullptr, 25},
      {{{good[0].first, colour}}, nullptr, nullptr, 25},
      {{good[0], {good[0].first, cv::Mat::zeros(1000, 1500, CV_8UC1)}}, nullptr, nullptr, 25},
      {good, nullptr, steep.c_str(), 25},
      {{good[0], {empty, empty}, good[1], {good[2].first, faint}, {empty, good[2].second}}, nullptr, nullptr, 25},
      {good, missing.c_str(), flat.c_str(), 25},
      {good, flat.c_str(), steep.c_str(), 25},
      {good, nullptr, nullptr, 0},
  };
  std::string transcript;
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    auto engine = ChartEngine();
    engine->m_nSquareSize = c.squareSize;
    ChartRunOptions options;
    options.mainTablePath = c.mainTable, options.secondTablePath = c.secondTable;
    std::string progress, printed;
    options.onPair = [&](size_t k, ChartPairResult r) { progress += progress.size() == k ? "VNQ"[int(r)] : '?'; };
    const ChartSummary summary = RunDriver(*engine, c.pairs, options, &printed);
    // OpenCV's own text, from its first parenthesis on, names its version and build paths.
    transcript += std::to_string(summary.status) + " " + summary.failedStage + ": " +
                  summary.message.substr(0, summary.message.find('(')) + " [" + progress + "]\n";
    EXPECT_NE(printed.find("ERROR: " + summary.failedStage + " failed: " + summary.message), std::string::npos);
    EXPECT_EQ(printed.find("Starting stereo"), std::string::npos);
    std::vector<int32_t> found, quick;
    for (char r : progress) found.push_back(r == 'V'), quick.push_back(r == 'Q');
    EXPECT_EQ(std::tie(summary.viewsFound, summary.quickRejected), std::tie(found, quick));
    EXPECT_EQ(engine->mImagePoints1.size(), static_cast<size_t>(std::count(found.begin(), found.end(), 1)));
    EXPECT_EQ(engine->chartImageSizes[3], progress.empty() ? 0 : 1500);
    const cv::Mat kept = progress.empty() ? cv::Mat() : c.pairs[0].second;
    EXPECT_EQ(engine->mChartImages.empty() ? 0.0 : cv::norm(engine->mChartImages[1], kept, cv::NORM_INF), 0.0);
  }
  ExpectGolden(transcript, "chart/DriverFailures.golden");
}

// A phone at a close-range fixture (cameras 12 mm apart, 5 mm squares at 7 to 12 cm, tilts up to 45 degrees, turns
// up to 180): the views differ in perspective too much for the nearest pairing. The grid run is held to limits the rig
// cannot meet: the stage warns, logs and succeeds.
TEST(ChartDriver, GridPairingHoldsOnAPhoneRigWhereNearestPairingFails) {
  TempDir dir;
  ChessboardLayout layout;
  layout.squareSize = 5.0;
  const Scene scene = RenderScene(PhoneStereoRig(kImageSize, kImageSize), layout, 14, 7, 45, 180, 1.5, 0.8, 300);
  auto engine = ChartEngine();
  engine->m_nSquareSize = 5, engine->m_nMaxRy = 20;
  const ChartSummary nearest = RunDriver(*engine, scene.pairs);
  ASSERT_EQ(nearest.viewsFound, std::vector<int32_t>(14, 1));
  // View 4 on x86-64, view 6 under AArch64's OpenCV: the last bits of the corner refinement decide.
  const std::vector<int32_t> wrong = WronglyPairedViews(*engine, scene);
  EXPECT_TRUE(wrong == std::vector<int32_t>{3} || wrong == std::vector<int32_t>{5}) << testing::PrintToString(wrong);
  EXPECT_EQ(nearest.repeatedCornerViews, wrong);
  testing::internal::CaptureStdout();  // without view 0 the same view is one earlier
  EXPECT_EQ(engine->recalibrateChartWithoutViews(nearest, {0}).repeatedCornerViews, std::vector<int32_t>{wrong.at(0) - 1});
  testing::internal::GetCapturedStdout();
  engine->m_nMaxRx = 0, engine->m_nMaxTransition = 10, engine->m_nMaxReprojectionERROR = 0;
  engine->R1 = cv::Mat::eye(3, 3, CV_64F) * 7.0;
  std::remove(dir.File("calib_log.txt").c_str());
  ChartRunOptions options;
  options.pairing = CornerPairing::kGrid;
  std::string printed;
  const ChartSummary grid = RunDriver(*engine, scene.pairs, options, &printed);
  ASSERT_EQ(grid.status, kChartOk) << grid.message;
  EXPECT_EQ(std::make_pair(WronglyPairedViews(*engine, scene), grid.repeatedCornerViews), std::make_pair(std::vector<int32_t>{}, std::vector<int32_t>{}));
  ASSERT_EQ(grid.gridPairings.size(), 14u);
  for (const GridPairing& pairing : grid.gridPairings) EXPECT_LT(pairing.residualPx, 0.1);
  ExpectAccurate(grid, *engine, scene.rig);
  std::ostringstream tail;
  tail << "Dual calibration RMS:" << engine->mRMS << "\nTransition vector:[" << engine->mT[0] << ", " << engine->mT[1]
       << ", " << engine->mT[2] << "]\nStereo calibration done \n \n"
       << cv::Mat(cv::Matx21f(engine->m_residueScale, engine->m_residueOffsetY)) << "\n"
       << cv::format("m_residueScale==%f\nm_residueOffsetY==%f\n", engine->m_residueScale, engine->m_residueOffsetY)
       << "ERROR: RX value is too big ! \nERROR: transition X value is too big ! \n"
       << "ERROR: dual camera reprojection is too big ! \n";
  EXPECT_EQ(printed.substr(printed.rfind("Dual calibration RMS:")), tail.str());
  // One entry, written with the limits of this run.
  EXPECT_EQ(ReadFile(dir.File("calib_log.txt")).rfind("\nstereoCalibration\nm_nMaxReprojectionERROR/100.0 threshold==0\n"), 0u);
  // Without the debug switch nothing of the rectification is touched.
  EXPECT_EQ(engine->R1.at<double>(0, 0), 7.0);
  EXPECT_NE(ReadFile(dir.File("calibrationResult.txt")).find("P1:[]\n"), std::string::npos);
}

// Outliers by corner: a corner pulled 4 px off in view 2 leaves its view, a view with 40 corners pulled off goes whole,
// and the run again without them fits better; with four views none goes whole, only corners.
TEST(ChartDriver, DropsOutlierCornersAndViewsWhileEnoughViewsStay) {
  for (const size_t pairs : {6u, 4u}) {
    auto engine = ChartEngine();
    ChartRunOptions options;
    options.onPair = [&](size_t k, ChartPairResult) {
      if (k == 2) engine->mImagePoints1.back()[7] += cv::Point2f(4.0f, 0.0f);
      for (int i = 0; k == 3 && i < 40; ++i) engine->mImagePoints2.back()[i] += cv::Point2f(3.0f, i % 2 ? 3.0f : -3.0f);
    };
    const ChartSummary first = RunDriver(*engine, FirstPairs(pairs), options);
    ASSERT_EQ(first.status, kChartOk) << first.message;
    const std::vector<int32_t> wholeViews = pairs == 6 ? std::vector<int32_t>{3} : std::vector<int32_t>{};
    EXPECT_EQ(first.outlierCorners.views, wholeViews) << pairs;
    EXPECT_EQ(first.outlierCorners.corners[2], std::vector<int32_t>{7}) << pairs;
    testing::internal::CaptureStdout();
    const ChartSummary rerun = engine->recalibrateChartWithout(first, first.outlierCorners);
    testing::internal::GetCapturedStdout();
    ASSERT_EQ(rerun.status, kChartOk) << rerun.message;
    EXPECT_EQ(rerun.dropped.views, wholeViews);
    EXPECT_EQ(rerun.dropped.corners[2], std::vector<int32_t>{7});
    EXPECT_EQ(rerun.viewCount, static_cast<int32_t>(pairs - wholeViews.size()));
    EXPECT_EQ(engine->mObjectPoints[2].size(), 53u);
    EXPECT_EQ(engine->mObjectPoints[2][7], cv::Point3f(8 * 25.0f, 0.0f, 0.0f));
    EXPECT_LT(rerun.monoRms1, 0.5 * first.monoRms1);
  }
}

// A corner of the first main image moved by 0.15 of a square (its neighbourhood shifted inside a disc) is
// unlocated: it leaves its view, in both images and the board, and the view and the calibration stay.
TEST(ChartDriver, AnUnlocatedCornerLeavesItsView) {
  ImagePairs pairs = FirstPairs(4);
  const std::vector<cv::Point2f>& truth = ExampleScene().rendered[0].mainCorners;
  const cv::Point2f corner = truth[22];
  const float square = static_cast<float>(cv::norm(truth[23] - corner));
  cv::Mat shifted, disc = cv::Mat::zeros(kImageSize, CV_8UC1), moved = pairs[0].first.clone();
  cv::warpAffine(moved, shifted, cv::Matx23f(1, 0, 0.15f * square, 0, 1, 0), kImageSize);
  cv::circle(disc, corner, cvRound(0.35f * square), 255, cv::FILLED);
  shifted.copyTo(moved, disc);
  pairs[0].first = moved;
  auto engine = ChartEngine();
  ChartRunOptions options;
  options.search = CornerSearch::kAnyScale, options.pairing = CornerPairing::kGrid;
  const ChartSummary summary = RunDriver(*engine, pairs, options);
  ASSERT_EQ(summary.viewsFound[0], 1) << summary.cornersUnlocated[0];
  ASSERT_EQ(summary.status, kChartOk) << summary.message;
  ASSERT_EQ(summary.cornerQuality[0].leftOut.size(), 1u);
  EXPECT_EQ(engine->mObjectPoints[0].size() + engine->mImagePoints1[0].size() + engine->mImagePoints2[0].size(), 3 * 53u);
  for (const cv::Point2f& kept : engine->mImagePoints1[0]) EXPECT_GT(cv::norm(kept - corner), 0.5 * square);
}
