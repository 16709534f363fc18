#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <sstream>
#include <memory>
#include <string>
#include <vector>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include "distortion/CDistortionFilter.h"
#include "engine/dualCalibration.h"
#include "synthetic/ChessboardRenderer.h"
#include "tests/support/TestFiles.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

using ImagePairs = std::vector<std::pair<cv::Mat, cv::Mat>>;

const cv::Size kImageSize(2000, 1500);

// Accuracy targets on noisy, blurred renders.
constexpr double kMaxStereoRmsPx = 0.2;
constexpr double kMaxRelativeTranslationError = 0.005;
constexpr double kMaxAngleErrorDeg = 0.05;
constexpr double kMaxRelativeFocalError = 0.005;

struct Scene {
  StereoRig rig;
  std::vector<RenderedPair> rendered;
  ImagePairs pairs;
};

// Pair k's noise is seeded with noiseSeed + 2 k.
Scene RenderScene(const StereoRig& rig, const ChessboardLayout& layout, const std::vector<BoardPose>& poses,
                  double noiseSigma, double blurSigmaPx, uint64_t noiseSeed) {
  Scene s{rig, {}, {}};
  RenderOptions options;
  options.noiseSigma = noiseSigma;
  options.blurSigmaPx = blurSigmaPx;
  for (size_t k = 0; k < poses.size(); ++k) {
    s.rendered.push_back(RenderPair(rig, layout, poses[k], options, noiseSeed + 2 * k));
    s.pairs.emplace_back(s.rendered.back().mainImage, s.rendered.back().secondImage);
  }
  return s;
}

// Eight views of the example rig, rendered once per test program.
const Scene& ExampleScene() {
  static const Scene scene = [] {
    const StereoRig rig = ExampleStereoRig(kImageSize, kImageSize);
    return RenderScene(rig, ChessboardLayout(), RandomBoardPoses(rig, ChessboardLayout(), 8, 2024), 1.0, 0.7, 100);
  }();
  return scene;
}

std::unique_ptr<dualCalibration> ChartEngine() {
  auto engine = std::make_unique<dualCalibration>();
  ApplyExampleChartSettings(*engine);
  return engine;
}

ChartSummary RunDriver(dualCalibration& engine, const ImagePairs& pairs, ChartRunOptions options = {},
                       std::string* printed = nullptr) {
  CaptureStdout();
  ChartSummary summary = engine.runChartCalibration(pairs, options);
  const std::string text = GetCapturedStdout();
  if (printed != nullptr) *printed = text;
  return summary;
}

double AngleErrorDeg(float estimated, double truth) { return std::fabs(estimated - truth) * 180.0 / CV_PI; }

// Stereo RMS, translation, angles of R and focal lengths against the rig.
void ExpectAccurate(const ChartSummary& summary, const dualCalibration& engine, const StereoRig& rig) {
  EXPECT_LT(summary.stereoRms, kMaxStereoRmsPx);
  EXPECT_LT(cv::norm(summary.T - rig.T), kMaxRelativeTranslationError * cv::norm(rig.T)) << summary.T;
  EXPECT_LT(AngleErrorDeg(summary.r_x, std::atan2(rig.R(2, 1), rig.R(2, 2))), kMaxAngleErrorDeg);
  EXPECT_LT(AngleErrorDeg(summary.r_y, std::atan2(-rig.R(2, 0), std::hypot(rig.R(0, 0), rig.R(1, 0)))),
            kMaxAngleErrorDeg);
  EXPECT_LT(AngleErrorDeg(summary.r_z, std::atan2(rig.R(1, 0), rig.R(0, 0))), kMaxAngleErrorDeg);
  for (int i = 0; i < 2; ++i) {
    EXPECT_NEAR(engine.K1.at<double>(i, i) / rig.main.K(i, i), 1.0, kMaxRelativeFocalError);
    EXPECT_NEAR(engine.K2.at<double>(i, i) / rig.second.K(i, i), 1.0, kMaxRelativeFocalError);
  }
}

// Views (0-based) in which some second-image corner is not the true partner of its main-image corner.
std::vector<int32_t> WronglyPairedViews(const dualCalibration& engine, const Scene& scene) {
  std::vector<int32_t> wrong;
  for (size_t v = 0; v < engine.mImagePoints1.size(); ++v) {
    const RenderedPair& truth = scene.rendered[v];
    for (size_t n = 0; n < engine.mImagePoints1[v].size(); ++n) {
      size_t corner = 0;
      for (size_t k = 1; k < truth.mainCorners.size(); ++k) {
        const cv::Point2f p = engine.mImagePoints1[v][n];
        if (cv::norm(truth.mainCorners[k] - p) < cv::norm(truth.mainCorners[corner] - p)) corner = k;
      }
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

// One run over eight pairs with the debug switch, into lists an earlier run
// left filled. The mono stage is cv::calibrateCamera with 30 iterations or a
// change below DBL_EPSILON, the stereo stage cv::stereoCalibrate from the
// mono camera matrices without distortion with 100 iterations or a change
// below 1e-5: the same calls here give the same bits.
TEST(ChartDriver, CalibratesEightRenderedPairs) {
  TempDir dir;
  auto engine = ChartEngine();
  engine->m_bSaveDebugInfo = 1;
  engine->mObjectPoints.resize(5), engine->mImagePoints1.resize(5), engine->mImagePoints2.resize(5);
  std::string printed;
  const ChartSummary summary = RunDriver(*engine, ExampleScene().pairs, {}, &printed);
  ASSERT_EQ(summary.status, kChartOk) << summary.failedStage << ": " << summary.message;
  EXPECT_EQ(summary.failedStage + summary.message, "");
  EXPECT_EQ(summary.viewsFound, std::vector<int32_t>(8, 1));
  EXPECT_EQ(summary.viewCount, 8);
  ASSERT_EQ(engine->mImagePoints2.size(), 8u);
  ASSERT_EQ(summary.viewErrors2.size(), 8u);
  for (int k = 0; k < 8; ++k) {
    EXPECT_GT(summary.viewErrors1[k], 0.0f);
    EXPECT_LT(std::max(summary.viewErrors1[k], summary.viewErrors2[k]), kMaxStereoRmsPx);
  }
  ExpectAccurate(summary, *engine, ExampleScene().rig);
  const ChartLimitChecks& c = summary.checks;
  EXPECT_TRUE(c.monoReprojection && c.rotationX && c.rotationY && c.rotationZ && c.stereoReprojection &&
              c.translationX && c.translationY && c.translationZ);
  EXPECT_EQ(printed.find("ERROR"), std::string::npos) << printed;
  EXPECT_NE(printed.find("Stereo calibration done \n \nStarting rectification ... \nRectification done \n"),
            std::string::npos);

  const cv::TermCriteria monoCriteria(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 30, DBL_EPSILON);
  const double monoRms[2] = {summary.monoRms1, summary.monoRms2};
  const std::vector<std::vector<cv::Point2f>>* views[2] = {&engine->mImagePoints1, &engine->mImagePoints2};
  cv::Mat K[2], D[2];
  for (int i = 0; i < 2; ++i) {
    std::vector<cv::Mat> rvecs, tvecs;
    EXPECT_EQ(monoRms[i], cv::calibrateCamera(engine->mObjectPoints, *views[i], kImageSize, K[i], D[i], rvecs,
                                              tvecs, 0, monoCriteria));
    D[i] = cv::Mat::zeros(1, 8, CV_64F);
  }
  EXPECT_EQ(cv::norm(summary.mono2.K, K[1], cv::NORM_INF), 0.0);
  cv::Mat R, T, E, F;
  const double stereoRms = cv::stereoCalibrate(
      engine->mObjectPoints, engine->mImagePoints1, engine->mImagePoints2, K[0], D[0], K[1], D[1], kImageSize, R, T,
      E, F, cv::CALIB_USE_INTRINSIC_GUESS, cv::TermCriteria(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 100, 1e-5));
  EXPECT_EQ(summary.stereoRms, static_cast<float>(stereoRms));
  EXPECT_EQ(summary.T, cv::Vec3d(T));
  EXPECT_EQ(cv::norm(engine->K1, K[0], cv::NORM_INF) + cv::norm(engine->D2, D[1], cv::NORM_INF), 0.0);
  // The deviations in the order fx, fy, cx, cy, k1, k2, k3, p1, p2 from OpenCV's k1, k2, p1, p2, k3.
  for (int i = 0; i < 9; ++i) {
    EXPECT_EQ(summary.mono2.stdDev[i], engine->mMonoStdDev2.at<double>("012345867"[i] - '0')) << i;
  }

  // Rectification: the horizontal baseline in P2, the angles of R1 and R2 in the file.
  EXPECT_GT(std::fabs(engine->P2.at<double>(0, 3)), 10.0 * std::fabs(engine->P2.at<double>(1, 3)));
  float x, y, z;
  engine->rotationToEulerAngles(engine->R2, x, y, z);
  EXPECT_EQ(cv::Vec3f(engine->r_x_2, engine->r_y_2, engine->r_z_2), cv::Vec3f(x, y, z));
  const std::string main = ReadFile(dir.File("calibrationResult.txt"));
  char line[64];
  std::snprintf(line, sizeof line, "r_y_1:%.6f\n", engine->r_y_1);
  EXPECT_NE(main.find(line), std::string::npos);
  // The second set and the preview rotation are copies of the first set.
  EXPECT_EQ(cv::norm(engine->mSecondResult.P2, engine->P2, cv::NORM_INF), 0.0);
  EXPECT_EQ(engine->mSecondResult.mT, engine->mT);
  EXPECT_EQ(engine->mSecondResult.r_y_2, engine->r_y_2);
  EXPECT_EQ(cv::norm(engine->mSecondRotation, engine->R, cv::NORM_INF), 0.0);
  EXPECT_EQ(engine->buildRectifyCanvas().size(), cv::Size(2 * kImageSize.width, kImageSize.height));
  engine->savePlatformCalibrationResult();
  const size_t fx1 = main.find("fx1:");
  EXPECT_NE(ReadFile(dir.File("calibrationResult_mtk.txt")).find(main.substr(fx1, main.find('\n', fx1) - fx1 + 1)),
            std::string::npos);
}

// The tables undistort views 0 to 3 only and the summary counts the two left
// uncorrected; a rerun without views 0 and 5 keeps the rest as they were.
TEST(ChartDriver, TablesUndistortTheFirstFourViewsAndARerunDropsViews) {
  TempDir dir;
  WriteFile(dir.File("main.txt"), TableText(0.0));
  WriteFile(dir.File("second.txt"), TableText(0.004));
  const ImagePairs pairs(ExampleScene().pairs.begin(), ExampleScene().pairs.begin() + 6);
  auto engine = ChartEngine();
  ChartRunOptions options;
  const std::string mainTable = dir.File("main.txt"), secondTable = dir.File("second.txt");
  options.mainTablePath = mainTable.c_str(), options.secondTablePath = secondTable.c_str();
  const ChartSummary summary = RunDriver(*engine, pairs, options);
  ASSERT_EQ(summary.status, kChartOk) << summary.message;
  EXPECT_EQ(summary.viewsWithoutTables, 2);
  auto reference = ChartEngine();
  CaptureStdout();
  for (const auto& pair : pairs) reference->findImagePoints(pair.first, pair.second, 0);
  GetCapturedStdout();
  EXPECT_EQ(engine->mImagePoints1, reference->mImagePoints1);
  std::vector<std::vector<cv::Point2f>> undistorted = reference->mImagePoints2;
  for (size_t k = 0; k < 4; ++k) {
    ASSERT_EQ(dualCalibration::SecondCameraFilter().UndistortPointsPolynomial(
                  &undistorted[k][0].x, &undistorted[k][0].x, static_cast<int32_t>(undistorted[k].size()), 2000, 1500),
              1);
    EXPECT_NE(undistorted[k], reference->mImagePoints2[k]) << k;
  }
  EXPECT_EQ(engine->mImagePoints2, undistorted);

  CaptureStdout();
  const ChartSummary rerun = engine->recalibrateChartWithoutViews(summary, {5, 0, 99});
  GetCapturedStdout();
  ASSERT_EQ(rerun.status, kChartOk) << rerun.message;
  EXPECT_EQ(rerun.viewCount, 4);
  EXPECT_EQ(rerun.viewsFound, (std::vector<int32_t>{0, 1, 1, 1, 1, 0}));
  EXPECT_EQ(rerun.viewsWithoutTables, 1);
  EXPECT_EQ(rerun.viewErrors1.size(), 4u);
  EXPECT_EQ(engine->mImagePoints2, decltype(undistorted)(undistorted.begin() + 1, undistorted.end() - 1));
  EXPECT_EQ(engine->mObjectPoints.size(), 4u);
}

// Unusable input, pairs without the board in both images, too few views,
// tables that do not load or undistort, and an OpenCV error (every object
// point at the origin) each stop the run with their stage and message.
// progress: per pair V (a view), Q (turned away by the quick check of the
// second image), N (not found by the full search).
TEST(ChartDriver, FailuresStopTheRunWithTheirStageAndMessage) {
  TempDir dir;
  WriteFile(dir.File("flat.txt"), TableText(0.0));
  WriteFile(dir.File("steep.txt"), TableText(0.5));  // far outside the band at the corners
  const std::string flat = dir.File("flat.txt"), steep = dir.File("steep.txt"), missing = dir.File("missing.txt");
  const ImagePairs good(ExampleScene().pairs.begin(), ExampleScene().pairs.begin() + 4);
  const cv::Mat empty = RenderEmptyView(kImageSize, RenderOptions(), 5);
  cv::Mat colour;
  cv::cvtColor(good[0].first, colour, cv::COLOR_GRAY2BGR);
  const struct {
    ImagePairs pairs;
    const char *mainTable, *secondTable;
    int32_t squareSize;
    ChartStatus status;
    const char *stage, *message, *progress;
  } cases[] = {
      {{}, nullptr, nullptr, 25, kChartBadImages, "chart intake", "no chart image pair", ""},
      {{good[0], {cv::Mat(), good[0].second}}, nullptr, nullptr, 25, kChartBadImages, "chart intake",
       "chart pair 1 is not two 8-bit grey images", ""},
      {{{good[0].first, colour}}, nullptr, nullptr, 25, kChartBadImages, "chart intake",
       "chart pair 0 is not two 8-bit grey images", ""},
      {{good[0], {good[0].first, cv::Mat::zeros(1000, 1500, CV_8UC1)}}, nullptr, nullptr, 25, kChartBadImages,
       "chart intake", "chart pair 1 differs in size from pair 0", ""},
      {good, nullptr, steep.c_str(), 25, kChartBadTables, "chart intake", "both distortion tables or none are needed", ""},
      {{good[0], {empty, empty}, good[1], {good[2].first, empty}, {empty, good[2].second}}, nullptr, nullptr, 25,
       kChartTooFewViews, "findImagePoints", "2 views found, 4 needed", "VQVQN"},
      {good, missing.c_str(), flat.c_str(), 25, kChartBadTables, "LoadDistortionTables", "tables not loaded, code -2",
       "VVVV"},
      {good, flat.c_str(), steep.c_str(), 25, kChartUndistortFailed, "undistortChartCorners",
       "a second-camera corner left the distortion band", "VVVV"},
      {good, nullptr, nullptr, 0, kChartStageFailed, "monoCalibration", "OpenCV", "VVVV"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.message);
    auto engine = ChartEngine();
    engine->m_nSquareSize = c.squareSize;
    ChartRunOptions options;
    options.mainTablePath = c.mainTable, options.secondTablePath = c.secondTable;
    std::string progress, printed;
    options.onPair = [&](size_t k, ChartPairResult result) {
      progress += progress.size() == k ? "VNQ"[static_cast<int>(result)] : '?';
    };
    const ChartSummary summary = RunDriver(*engine, c.pairs, options, &printed);
    EXPECT_EQ(summary.status, c.status);
    EXPECT_EQ(summary.failedStage, c.stage);
    EXPECT_EQ(summary.message.rfind(c.message, 0), 0u) << summary.message;
    EXPECT_NE(printed.find(std::string("ERROR: ") + c.stage + " failed: " + c.message), std::string::npos);
    EXPECT_EQ(printed.find("Starting stereo"), std::string::npos);
    EXPECT_EQ(progress, c.progress);
    std::vector<int32_t> found, quick;
    for (char r : progress) found.push_back(r == 'V'), quick.push_back(r == 'Q');
    EXPECT_EQ(summary.viewsFound, found);
    EXPECT_EQ(summary.quickRejected, quick);
    EXPECT_EQ(engine->mImagePoints1.size(), static_cast<size_t>(std::count(found.begin(), found.end(), 1)));
    EXPECT_EQ(engine->chartImageSizes[3], progress.empty() ? 0 : 1500);
    const cv::Mat kept = progress.empty() ? cv::Mat() : c.pairs[0].second;
    EXPECT_EQ(engine->mChartImages.empty() ? 0.0 : cv::norm(engine->mChartImages[1], kept, cv::NORM_INF), 0.0);
  }
}

// A phone at a close-range fixture: a wide main camera and a 1.5x narrower
// second camera 12 mm apart, a chart of 5 mm squares at 7 to 12 cm, tilted by
// up to 45 degrees and turned by up to 180. The views differ in perspective
// by several degrees, which the nearest pairing does not survive.
TEST(ChartDriver, GridPairingHoldsOnAPhoneRigWhereNearestPairingFails) {
  TempDir dir;
  const StereoRig rig = PhoneStereoRig(kImageSize, kImageSize);
  ChessboardLayout layout;
  layout.squareSize = 5.0;
  const Scene scene = RenderScene(rig, layout, RandomBoardPoses(rig, layout, 14, 7, 45.0, 180.0), 1.5, 0.8, 300);
  auto engine = ChartEngine();
  engine->m_nSquareSize = 5;
  engine->m_nMaxRy = 20;
  const ChartSummary nearest = RunDriver(*engine, scene.pairs);
  ASSERT_EQ(nearest.viewsFound, std::vector<int32_t>(14, 1));
  // View 4 on x86-64, view 6 under AArch64's OpenCV: the last bits of the corner refinement decide.
  const std::vector<int32_t> wrong = WronglyPairedViews(*engine, scene);
  EXPECT_TRUE(wrong == std::vector<int32_t>{3} || wrong == std::vector<int32_t>{5}) << testing::PrintToString(wrong);
  EXPECT_EQ(nearest.repeatedCornerViews, wrong);
  ChartRunOptions options;
  // Limits the rig cannot meet: the stage warns, logs and still succeeds.
  engine->m_nMaxRx = 0, engine->m_nMaxTransition = 10, engine->m_nMaxReprojectionERROR = 0;
  engine->R1 = cv::Mat::eye(3, 3, CV_64F) * 7.0;
  std::remove(dir.File("calib_log.txt").c_str());
  options.pairing = CornerPairing::kGrid;
  std::string printed;
  const ChartSummary grid = RunDriver(*engine, scene.pairs, options, &printed);
  ASSERT_EQ(grid.status, kChartOk) << grid.message;
  char residue[128];
  std::snprintf(residue, sizeof residue, "m_residueScale==%f\nm_residueOffsetY==%f\n", engine->m_residueScale,
                engine->m_residueOffsetY);
  std::ostringstream tail, log;
  tail << "Dual calibration RMS:" << engine->mRMS << "\nTransition vector:[" << engine->mT[0] << ", " << engine->mT[1]
       << ", " << engine->mT[2] << "]\nStereo calibration done \n \n"
       << (cv::Mat_<float>(2, 1) << engine->m_residueScale, engine->m_residueOffsetY) << "\n"
       << residue << "ERROR: RX value is too big ! \nERROR: transition X value is too big ! \n"
       << "ERROR: dual camera reprojection is too big ! \n";
  EXPECT_EQ(printed.substr(printed.rfind("Dual calibration RMS:")), tail.str());
  log << "\nstereoCalibration\nm_nMaxReprojectionERROR/100.0 threshold==0\nmRMS==" << engine->mRMS
      << "\nm_nMaxTransition threshold==10\nmT[0]==" << engine->mT[0] << "\nmT[1]==" << engine->mT[1]
      << "\nmT[2]==" << engine->mT[2] << "\n";
  EXPECT_EQ(ReadFile(dir.File("calib_log.txt")), log.str());
  // Without the debug switch nothing of the rectification is touched.
  EXPECT_EQ(engine->R1.at<double>(0, 0), 7.0);
  EXPECT_NE(ReadFile(dir.File("calibrationResult.txt")).find("P1:[]\n"), std::string::npos);
  EXPECT_EQ(WronglyPairedViews(*engine, scene), std::vector<int32_t>{});
  EXPECT_EQ(grid.repeatedCornerViews, std::vector<int32_t>{});
  ASSERT_EQ(grid.gridPairings.size(), 14u);
  for (const GridPairing& pairing : grid.gridPairings) EXPECT_LT(pairing.residualPx, 0.1);
  ExpectAccurate(grid, *engine, scene.rig);
}
