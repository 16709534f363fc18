#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include <opencv2/calib3d.hpp>

#include "engine/dualCalibration.h"

namespace {

std::vector<cv::Point3f> Board(float squareSize) {
  std::vector<cv::Point3f> points;
  for (int i = 0; i < 54; ++i) points.emplace_back(i % 9 * squareSize, i / 9 * squareSize, 0.0f);
  return points;
}

// Four tilted views through an ideal camera; offsetPx on every second point's x keeps the fit from being exact.
std::vector<std::vector<cv::Point2f>> ProjectViews(double focal, cv::Point2d centre, float offsetPx) {
  const cv::Matx33d K(focal, 0.0, centre.x, 0.0, focal, centre.y, 0.0, 0.0, 1.0);
  std::vector<std::vector<cv::Point2f>> views;
  for (const cv::Vec3d& rotation : {cv::Vec3d(0.3, 0, 0.05), {-0.3, 0.1, 0}, {0, 0.35, -0.1}, {0.1, -0.3, 0.2}}) {
    std::vector<cv::Point2f> projected;
    cv::projectPoints(Board(30.0f), rotation, cv::Vec3d(-100.0, -60.0, 0.4 * focal), K, cv::noArray(), projected);
    for (size_t i = 1; i < projected.size(); i += 2) projected[i].x += offsetPx;
    views.push_back(projected);
  }
  return views;
}

}  // namespace

// fx = fy = the shorter side, principal point at the integer half sizes (kept by the fixing switches); an error above
// the limit warns and keeps the results.
TEST(MonoCalibration, SeedsTheCameraMatricesAndWarnsAboveTheLimit) {
  auto engine = std::make_unique<dualCalibration>();
  const int32_t sizes[4] = {4000, 3000, 1001, 751};
  std::copy(sizes, sizes + 4, engine->chartImageSizes);
  engine->m_nMonoCalibUseIntrinsicGuess = engine->m_nMonoCalibFixFocalLength = 1;
  engine->m_nMonoCalibFixPrincipalPoint = engine->m_nMonoCalibZeroTangentDist = engine->m_nMonoCalibFixK3 = 1;
  engine->mObjectPoints.assign(4, Board(30.0f));
  engine->mImagePoints1 = ProjectViews(3000.0, {2000.0, 1500.0}, 0.0f);
  engine->mImagePoints2 = ProjectViews(751.0, {500.0, 375.0}, 0.8f);
  engine->K1.at<double>(0, 0) = 17.0, engine->K1.at<double>(0, 1) = 0.5;
  engine->m_nMaxReprojectionERROR = 20;
  testing::internal::CaptureStdout();
  EXPECT_EQ(engine->monoCalibration(), 1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "\nStarting mono calibration ...\nERROR: reproject error is too big ! \nMono calibration done.\n \n");
  EXPECT_EQ(cv::norm(engine->K1, cv::Mat(cv::Matx33d(3000, 0, 2000, 0, 3000, 1500, 0, 0, 1)), cv::NORM_INF), 0.0);
  EXPECT_EQ(cv::norm(engine->K2, cv::Mat(cv::Matx33d(751, 0, 500, 0, 751, 375, 0, 0, 1)), cv::NORM_INF), 0.0);
  EXPECT_LT(engine->mMonoRMS1, 1e-3);
  EXPECT_GT(engine->mMonoRMS2, 0.2);
  // The limit is hundredths in single precision: 1 / 100 lies just below 0.01.
  const struct {
    int32_t limit;
    double rms;
    bool exceeds;
  } limits[] = {{50, 0.5, false}, {50, 0.50001, true}, {0, 1e-9, true},        {0, 0.0, false},
                {1, 0.01, true},   {1, 0.0099999, false}, {3, 0.03, true}, {5000, 50.0, false}};
  for (const auto& c : limits) {
    engine->m_nMaxReprojectionERROR = c.limit;
    EXPECT_EQ(engine->monoReprojectionExceeds(c.rms), c.exceeds) << c.limit << " " << c.rms;
  }
}

TEST(MonoCalibration, ReprojectionErrorsPerViewAndOverall) {
  auto engine = std::make_unique<dualCalibration>();
  const std::vector<std::vector<cv::Point3f>> objects(2, Board(10.0f));
  const cv::Mat K = (cv::Mat_<double>(3, 3) << 1000, 0, 500, 0, 1000, 400, 0, 0, 1);
  std::vector<std::vector<cv::Point2f>> images(2);
  for (const cv::Point3f& p : objects[0]) {
    images[0].emplace_back(500.0f + p.x, 400.0f + p.y);
    images[1].emplace_back(503.0f + p.x, 404.0f + p.y);  // 5 px off everywhere
  }
  std::vector<float> perView;
  const std::vector<cv::Mat> rvecs(2, cv::Mat::zeros(3, 1, CV_64F)), tvecs(2, (cv::Mat_<double>(3, 1) << 0, 0, 1000));
  EXPECT_NEAR(engine->computeReprojectionErrors(objects, images, rvecs, tvecs, K, cv::Mat(), &perView), std::sqrt(12.5), 1e-5);
  EXPECT_LT(cv::norm(cv::Mat(perView), cv::Mat(std::vector<float>{0.0f, 5.0f}), cv::NORM_INF), 1e-5);
  EXPECT_TRUE(std::isnan(engine->computeReprojectionErrors({}, {}, {}, {}, K, cv::Mat())));
}

// Main 4000 x 3000 against 3990 x 2980, second 2000 x 1500 against 2001 x 1490.
TEST(MonoCalibration, OffsetsFollowTheMode) {
  auto engine = std::make_unique<dualCalibration>();
  const int32_t sizes[8] = {4000, 3000, 2000, 1500, 3990, 2980, 2001, 1490};
  std::copy(sizes, sizes + 4, engine->chartImageSizes);
  std::copy(sizes + 4, sizes + 6, engine->mainReferenceSize), std::copy(sizes + 6, sizes + 8, engine->secondReferenceSize);
  const struct {
    int mode;
    cv::Point2f main, second;
  } cases[] = {{0, {1.5f, 2.5f}, {1.5f, 2.5f}},   {1, {11.5f, 2.5f}, {0.5f, 2.5f}}, {2, {1.5f, 22.5f}, {1.5f, 12.5f}},
               {3, {11.5f, 22.5f}, {0.5f, 12.5f}}, {4, {1.5f, 2.5f}, {1.5f, 2.5f}},  {-1, {1.5f, 2.5f}, {1.5f, 2.5f}}};
  for (auto c : cases) {
    std::vector<cv::Point2f> mainPoints(2, {1.5f, 2.5f}), secondPoints = mainPoints;
    engine->offsetMainPoints(mainPoints, c.mode), engine->offsetSecondPoints(secondPoints, c.mode);
    EXPECT_EQ(mainPoints, std::vector<cv::Point2f>(2, c.main)) << c.mode;
    EXPECT_EQ(secondPoints, std::vector<cv::Point2f>(2, c.second)) << c.mode;
  }
}
