#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <memory>
#include <vector>

#include <opencv2/calib3d.hpp>

#include "engine/dualCalibration.h"
#include "synthetic/ChessboardRenderer.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

using ObjectViews = std::vector<std::vector<cv::Point3f>>;
using ImageViews = std::vector<std::vector<cv::Point2f>>;

std::vector<cv::Point3f> Board(float squareSize) {
  std::vector<cv::Point3f> points;
  for (int i = 0; i < 6; ++i) {
    for (int j = 0; j < 9; ++j) points.emplace_back(j * squareSize, i * squareSize, 0.0f);
  }
  return points;
}

// Four tilted views of a 9 x 6 board through an ideal camera of focal
// length focal and principal point centre; offsetPx is added to every
// second point's x so that the fit cannot be exact.
ImageViews ProjectViews(const ObjectViews& objects, double focal, cv::Point2d centre, float offsetPx) {
  const cv::Matx33d K(focal, 0.0, centre.x, 0.0, focal, centre.y, 0.0, 0.0, 1.0);
  const cv::Vec3d rotations[4] = {{0.3, 0.0, 0.05}, {-0.3, 0.1, 0.0}, {0.0, 0.35, -0.1}, {0.1, -0.3, 0.2}};
  ImageViews views;
  for (size_t k = 0; k < objects.size(); ++k) {
    std::vector<cv::Point2f> projected;
    cv::projectPoints(objects[k], rotations[k], cv::Vec3d(-100.0, -60.0, 4.0 * focal / 10.0), K, cv::noArray(),
                      projected);
    for (size_t i = 1; i < projected.size(); i += 2) projected[i].x += offsetPx;
    views.push_back(projected);
  }
  return views;
}

// Engine whose mono stage keeps the seeded focal lengths and principal points.
std::unique_ptr<dualCalibration> SeedKeepingEngine(int32_t mainWidth, int32_t mainHeight, int32_t secondWidth,
                                                   int32_t secondHeight) {
  auto engine = std::make_unique<dualCalibration>();
  const int32_t sizes[4] = {mainWidth, mainHeight, secondWidth, secondHeight};
  std::copy(sizes, sizes + 4, engine->chartImageSizes);
  engine->m_nMonoCalibUseIntrinsicGuess = 1;
  engine->m_nMonoCalibFixFocalLength = 1;
  engine->m_nMonoCalibFixPrincipalPoint = 1;
  engine->m_nMonoCalibZeroTangentDist = 1;
  engine->m_nMonoCalibFixK3 = 1;
  engine->mObjectPoints = ObjectViews(4, Board(30.0f));
  engine->K1.at<double>(0, 0) = 17.0;
  engine->K1.at<double>(0, 1) = 0.5;
  return engine;
}

// Engine holding the first count of 16 board views of the example rig:
// true corners plus 0.1 px Gaussian noise, both cameras 2000 x 1500.
std::unique_ptr<dualCalibration> RenderedRigEngine(size_t count) {
  const cv::Size size(2000, 1500);
  const StereoRig rig = ExampleStereoRig(size, size);
  const ChessboardLayout layout;
  const std::vector<BoardPose> poses = RandomBoardPoses(rig, layout, 16, 77);
  cv::RNG noise(5);
  auto engine = std::make_unique<dualCalibration>();
  ApplyExampleChartSettings(*engine);
  const int32_t sizes[4] = {size.width, size.height, size.width, size.height};
  std::copy(sizes, sizes + 4, engine->chartImageSizes);
  for (size_t k = 0; k < count; ++k) {
    cv::Matx33d rotation;
    cv::Rodrigues(poses[k].rvec, rotation);
    std::vector<cv::Point2f> corners[2] = {
        ProjectBoardCorners(rig.main, layout, rotation, poses[k].tvec),
        ProjectBoardCorners(rig.second, layout, rig.R * rotation, rig.R * poses[k].tvec + rig.T)};
    for (std::vector<cv::Point2f>& list : corners) {
      for (cv::Point2f& p : list) p += cv::Point2f(noise.gaussian(0.1), noise.gaussian(0.1));
    }
    engine->mObjectPoints.push_back(Board(static_cast<float>(layout.squareSize)));
    engine->mImagePoints1.push_back(corners[0]);
    engine->mImagePoints2.push_back(corners[1]);
  }
  return engine;
}

}  // namespace

TEST(MonoCalibration, DeviationsLeaveTheResultsBitIdentical) {
  auto engine = RenderedRigEngine(8);
  CaptureStdout();
  engine->monoCalibration();
  GetCapturedStdout();
  const cv::TermCriteria criteria(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 30, DBL_EPSILON);
  const cv::Mat* results[2][2] = {{&engine->K1, &engine->D1}, {&engine->K2, &engine->D2}};
  const std::vector<std::vector<cv::Point2f>>* views[2] = {&engine->mImagePoints1, &engine->mImagePoints2};
  const double rms[2] = {engine->mMonoRMS1, engine->mMonoRMS2};
  for (int camera = 0; camera < 2; ++camera) {
    cv::Mat K = (cv::Mat_<double>(3, 3) << 1500, 0, 1000, 0, 1500, 750, 0, 0, 1);
    cv::Mat D = cv::Mat::zeros(1, 8, CV_64F);
    std::vector<cv::Mat> rvecs, tvecs;
    const double plainRms = cv::calibrateCamera(engine->mObjectPoints, *views[camera], cv::Size(2000, 1500), K, D,
                                                rvecs, tvecs, engine->monoCalibrationFlags(), criteria);
    EXPECT_EQ(rms[camera], plainRms);
    EXPECT_EQ(cv::norm(*results[camera][0], K, cv::NORM_INF), 0.0);
    EXPECT_EQ(cv::norm(*results[camera][1], D, cv::NORM_INF), 0.0);
  }
  EXPECT_EQ(engine->mMonoStdDev1.size(), cv::Size(1, 18));
  EXPECT_GT(engine->mMonoStdDev2.at<double>(0), 0.0);
}

TEST(MonoCalibration, DeviationsShrinkFromSixToSixteenViews) {
  auto six = RenderedRigEngine(6);
  auto sixteen = RenderedRigEngine(16);
  CaptureStdout();
  six->monoCalibration();
  sixteen->monoCalibration();
  GetCapturedStdout();
  // fx, fy, cx, cy, k1, k2, p1, p2, k3 of both cameras.
  for (int i = 0; i < 9; ++i) {
    EXPECT_LT(sixteen->mMonoStdDev1.at<double>(i), six->mMonoStdDev1.at<double>(i)) << i;
    EXPECT_LT(sixteen->mMonoStdDev2.at<double>(i), six->mMonoStdDev2.at<double>(i)) << i;
  }
  std::printf("main fx deviation: 6 views %.4f px, 16 views %.4f px\n", six->mMonoStdDev1.at<double>(0),
              sixteen->mMonoStdDev1.at<double>(0));
}

TEST(MonoCalibration, SeedsTheCameraMatricesFromTheImageSizes) {
  auto engine = SeedKeepingEngine(4000, 3000, 1001, 751);
  engine->mImagePoints1 = ProjectViews(engine->mObjectPoints, 3000.0, {2000.0, 1500.0}, 0.0f);
  engine->mImagePoints2 = ProjectViews(engine->mObjectPoints, 751.0, {500.0, 375.0}, 0.0f);
  engine->m_nMaxReprojectionERROR = 50;
  CaptureStdout();
  EXPECT_EQ(engine->monoCalibration(), 1);
  EXPECT_EQ(GetCapturedStdout(), "\nStarting mono calibration ...\nMono calibration done.\n \n");
  EXPECT_EQ(engine->K1.at<double>(0, 0), 3000.0);
  EXPECT_EQ(engine->K1.at<double>(1, 1), 3000.0);
  EXPECT_EQ(engine->K1.at<double>(0, 2), 2000.0);
  EXPECT_EQ(engine->K1.at<double>(1, 2), 1500.0);
  EXPECT_EQ(engine->K1.at<double>(0, 1), 0.0);
  EXPECT_EQ(engine->K2.at<double>(0, 0), 751.0);
  EXPECT_EQ(engine->K2.at<double>(1, 1), 751.0);
  EXPECT_EQ(engine->K2.at<double>(0, 2), 500.0);
  EXPECT_EQ(engine->K2.at<double>(1, 2), 375.0);
  EXPECT_LT(engine->mMonoRMS1, 1e-3);
  EXPECT_LT(engine->mMonoRMS2, 1e-3);
}

TEST(MonoCalibration, ErrorAboveTheLimitWarnsAndKeepsTheResults) {
  auto engine = SeedKeepingEngine(4000, 3000, 4000, 3000);
  engine->mImagePoints1 = ProjectViews(engine->mObjectPoints, 3000.0, {2000.0, 1500.0}, 0.0f);
  engine->mImagePoints2 = ProjectViews(engine->mObjectPoints, 3000.0, {2000.0, 1500.0}, 0.8f);
  engine->m_nMaxReprojectionERROR = 20;
  CaptureStdout();
  EXPECT_EQ(engine->monoCalibration(), 1);
  EXPECT_EQ(GetCapturedStdout(),
            "\nStarting mono calibration ...\nERROR: reproject error is too big ! \nMono calibration done.\n \n");
  EXPECT_GT(engine->mMonoRMS2, 0.2);
  EXPECT_EQ(engine->K2.at<double>(0, 0), 3000.0);
}

TEST(MonoCalibration, LimitIsHundredthsInSinglePrecision) {
  struct Case {
    int32_t limit;
    double rms;
    bool exceeds;
  };
  const Case cases[] = {
      {50, 0.5, false},  {50, 0.50001, true}, {0, 1e-9, true}, {0, 0.0, false},
      // 1 / 100 in single precision lies just below 0.01.
      {1, 0.01, true},   {1, 0.0099999, false}, {3, 0.03, true}, {5000, 50.0, false},
  };
  auto engine = std::make_unique<dualCalibration>();
  for (const Case& c : cases) {
    engine->m_nMaxReprojectionERROR = c.limit;
    EXPECT_EQ(engine->monoReprojectionExceeds(c.rms), c.exceeds) << c.limit << " " << c.rms;
  }
}

TEST(MonoCalibration, ReprojectionErrorsPerViewAndOverall) {
  auto engine = std::make_unique<dualCalibration>();
  const ObjectViews objects(2, Board(10.0f));
  const cv::Mat K = (cv::Mat_<double>(3, 3) << 1000, 0, 500, 0, 1000, 400, 0, 0, 1);
  const std::vector<cv::Mat> rvecs(2, cv::Mat::zeros(3, 1, CV_64F));
  const std::vector<cv::Mat> tvecs(2, (cv::Mat_<double>(3, 1) << 0, 0, 1000));
  ImageViews images(2);
  for (const cv::Point3f& p : objects[0]) {
    images[0].emplace_back(500.0f + p.x, 400.0f + p.y);
    images[1].emplace_back(503.0f + p.x, 404.0f + p.y);  // 5 px off everywhere
  }
  std::vector<float> perView;
  const double total = engine->computeReprojectionErrors(objects, images, rvecs, tvecs, K, cv::Mat(), &perView);
  EXPECT_NEAR(total, std::sqrt(12.5), 1e-5);
  ASSERT_EQ(perView.size(), 2u);
  EXPECT_NEAR(perView[0], 0.0f, 1e-5);
  EXPECT_NEAR(perView[1], 5.0f, 1e-5);
  EXPECT_NEAR(engine->computeReprojectionErrors(objects, images, rvecs, tvecs, K, cv::Mat()), std::sqrt(12.5), 1e-5);
}

TEST(MonoCalibration, ReprojectionErrorWithoutViewsIsNotANumber) {
  auto engine = std::make_unique<dualCalibration>();
  EXPECT_TRUE(std::isnan(engine->computeReprojectionErrors({}, {}, {}, {}, cv::Mat::eye(3, 3, CV_64F), cv::Mat())));
}

TEST(MonoCalibration, OffsetsFollowTheMode) {
  struct Case {
    int mode;
    cv::Point2f main, second;
  };
  // Main: 4000 x 3000 against 3990 x 2980; second: 2000 x 1500 against 2001 x 1490.
  const Case cases[] = {{0, {1.5f, 2.5f}, {1.5f, 2.5f}},   {1, {11.5f, 2.5f}, {0.5f, 2.5f}},
                        {2, {1.5f, 22.5f}, {1.5f, 12.5f}}, {3, {11.5f, 22.5f}, {0.5f, 12.5f}},
                        {4, {1.5f, 2.5f}, {1.5f, 2.5f}},   {-1, {1.5f, 2.5f}, {1.5f, 2.5f}}};
  auto engine = std::make_unique<dualCalibration>();
  const int32_t sizes[4] = {4000, 3000, 2000, 1500};
  std::copy(sizes, sizes + 4, engine->chartImageSizes);
  engine->mainReferenceSize[0] = 3990, engine->mainReferenceSize[1] = 2980;
  engine->secondReferenceSize[0] = 2001, engine->secondReferenceSize[1] = 1490;
  for (Case c : cases) {
    std::vector<cv::Point2f> mainPoints(2, cv::Point2f(1.5f, 2.5f));
    std::vector<cv::Point2f> secondPoints(2, cv::Point2f(1.5f, 2.5f));
    engine->offsetMainPoints(mainPoints, c.mode);
    engine->offsetSecondPoints(secondPoints, c.mode);
    EXPECT_EQ(mainPoints, std::vector<cv::Point2f>(2, c.main)) << "mode " << c.mode;
    EXPECT_EQ(secondPoints, std::vector<cv::Point2f>(2, c.second)) << "mode " << c.mode;
  }
}
