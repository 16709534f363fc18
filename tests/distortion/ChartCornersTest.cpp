#include "distortion/ChartCorners.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <vector>

#include "api/Globals.h"
#include "distortion/CDistortionFilter.h"
#include "engine/dualCalibration.h"
#include "tests/support/TestFiles.h"

namespace {

// OpenCV's worker threads stall under qemu-aarch64, where this suite also
// runs, so the drawing runs sequentially.
[[maybe_unused]] const bool kSequentialOpenCv = (cv::setNumThreads(0), true);

using Views = std::vector<std::vector<cv::Point2f>>;

constexpr int kMainWidth = 1600, kMainHeight = 1200;
constexpr int kSecondWidth = 1200, kSecondHeight = 1000;

// Four views of a 6 x 4 corner grid scattered over the image with a fixed seed.
Views RandomViews(int width, int height, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> x(0.0f, static_cast<float>(width - 1));
  std::uniform_real_distribution<float> y(0.0f, static_cast<float>(height - 1));
  Views views(kChartCornerViews);
  for (auto& view : views) {
    for (int i = 0; i < 24; ++i) view.emplace_back(x(random), y(random));
  }
  return views;
}

// The polynomial with one linear term in double: the point divided by
// 1 + c * r / reference about the image centre.
cv::Point2f LinearModelUndistort(cv::Point2f p, int width, int height, double c, double reference) {
  const cv::Point2d half(width / 2, height / 2);
  const cv::Point2d q = cv::Point2d(p) - half;
  const cv::Point2d out = q / (1.0 + c * cv::norm(q) / reference) + half;
  return cv::Point2f(static_cast<float>(out.x), static_cast<float>(out.y));
}

void SetLinearModel(CDistortionFilter& filter, float c, float reference) {
  filter.coefficientCount = 1;
  filter.currentPolynomial[0] = c;
  filter.referenceRadius = reference;
}

// The tests drive the library's two global filters; each starts them clean.
class ChartCorners : public testing::Test {
 protected:
  void SetUp() override {
    for (CDistortionFilter* filter : {&g_distortionFilter1, &g_distortionFilter2}) {
      filter->ResetDistortion();
      filter->coefficientCount = 0;
    }
    engine = std::make_unique<dualCalibration>();
    engine->chartImageSizes[0] = kMainWidth;
    engine->chartImageSizes[1] = kMainHeight;
    engine->chartImageSizes[2] = kSecondWidth;
    engine->chartImageSizes[3] = kSecondHeight;
    engine->mImagePoints1 = RandomViews(kMainWidth, kMainHeight, 11);
    engine->mImagePoints2 = RandomViews(kSecondWidth, kSecondHeight, 12);
  }
  void TearDown() override { SetUp(); }

  std::unique_ptr<dualCalibration> engine;
};

void ExpectSameView(const std::vector<cv::Point2f>& actual, const std::vector<cv::Point2f>& expected) {
  ASSERT_EQ(actual.size(), expected.size());
  for (size_t i = 0; i < actual.size(); ++i) {
    EXPECT_EQ(actual[i].x, expected[i].x) << i;
    EXPECT_EQ(actual[i].y, expected[i].y) << i;
  }
}

void ExpectUndistortedView(const std::vector<cv::Point2f>& actual, const std::vector<cv::Point2f>& original,
                           int width, int height, double c, double reference) {
  ASSERT_EQ(actual.size(), original.size());
  for (size_t i = 0; i < actual.size(); ++i) {
    const cv::Point2f expected = LinearModelUndistort(original[i], width, height, c, reference);
    EXPECT_NEAR(actual[i].x, expected.x, 1e-3) << i;
    EXPECT_NEAR(actual[i].y, expected.y, 1e-3) << i;
  }
}

}  // namespace

TEST_F(ChartCorners, TablesGoToTheMainAndSecondFilters) {
  EXPECT_EQ(&dualCalibration::MainCameraFilter(), &g_distortionFilter2);
  EXPECT_EQ(&dualCalibration::SecondCameraFilter(), &g_distortionFilter1);
  TempDir dir;
  WriteFile(dir.File("main.txt"), "1 1\n0 100 0 0.5 0\n");
  WriteFile(dir.File("second.txt"), "1 2\n0 200 0 0.25 0.75 0\n");
  EXPECT_EQ(engine->LoadDistortionTables(dir.File("main.txt").c_str(), dir.File("second.txt").c_str()), 1);
  EXPECT_EQ(g_distortionFilter2.referenceRadius, 100.0f);
  EXPECT_EQ(g_distortionFilter2.polynomialRows[0][0], 0.5f);
  EXPECT_EQ(g_distortionFilter1.referenceRadius, 200.0f);
  EXPECT_EQ(g_distortionFilter1.polynomialRows[0][1], 0.25f);
}

TEST_F(ChartCorners, TableLoadingCodes) {
  TempDir dir;
  WriteFile(dir.File("main.txt"), "1 1\n0 100 0 0.5 0\n");
  WriteFile(dir.File("second.txt"), "1 1\n0 200 0 0.5 0\n");
  g_distortionFilter1.rowCount = 42;
  // The first path fails: -2, and the second is never read.
  EXPECT_EQ(engine->LoadDistortionTables(dir.File("absent.txt").c_str(), dir.File("second.txt").c_str()), -2);
  EXPECT_EQ(g_distortionFilter1.rowCount, 42);
  EXPECT_EQ(engine->LoadDistortionTables(dir.File("main.txt").c_str(), dir.File("absent.txt").c_str()), -3);
  EXPECT_EQ(g_distortionFilter2.referenceRadius, 100.0f);
  EXPECT_EQ(g_distortionFilter1.rowCount, 42);
}

// Unchanged up to the rounding of taking the centre away and adding it back.
TEST_F(ChartCorners, WithoutCoefficientsTheCornersStay) {
  const Views main = engine->mImagePoints1, second = engine->mImagePoints2;
  EXPECT_EQ(engine->undistortChartCorners(cv::Mat(), cv::Mat()), 1);
  for (int view = 0; view < kChartCornerViews; ++view) {
    ExpectUndistortedView(engine->mImagePoints1[view], main[view], kMainWidth, kMainHeight, 0.0, 1.0);
    ExpectUndistortedView(engine->mImagePoints2[view], second[view], kSecondWidth, kSecondHeight, 0.0, 1.0);
  }
}

TEST_F(ChartCorners, BothCamerasAreUndistortedWithTheirOwnSizes) {
  SetLinearModel(g_distortionFilter2, 0.02f, 1000.0f);
  SetLinearModel(g_distortionFilter1, -0.03f, 800.0f);
  const Views main = engine->mImagePoints1, second = engine->mImagePoints2;
  EXPECT_EQ(engine->undistortChartCorners(cv::Mat(), cv::Mat()), 1);
  for (int view = 0; view < kChartCornerViews; ++view) {
    ExpectUndistortedView(engine->mImagePoints1[view], main[view], kMainWidth, kMainHeight, 0.02, 1000.0);
    ExpectUndistortedView(engine->mImagePoints2[view], second[view], kSecondWidth, kSecondHeight, -0.03, 800.0);
  }
}

TEST_F(ChartCorners, SecondCameraFaultReturnsAtOnce) {
  SetLinearModel(g_distortionFilter2, 0.02f, 1000.0f);
  SetLinearModel(g_distortionFilter1, 0.02f, 1000.0f);
  // A corner 3000 px from the centre has factor 1.06: out of band.
  engine->mImagePoints2[2][5] = cv::Point2f(kSecondWidth / 2 + 3000.0f, kSecondHeight / 2);
  const Views main = engine->mImagePoints1, second = engine->mImagePoints2;
  EXPECT_EQ(engine->undistortChartCorners(cv::Mat(), cv::Mat()), 0);
  for (int view = 0; view < 2; ++view) {
    ExpectUndistortedView(engine->mImagePoints1[view], main[view], kMainWidth, kMainHeight, 0.02, 1000.0);
    ExpectUndistortedView(engine->mImagePoints2[view], second[view], kSecondWidth, kSecondHeight, 0.02, 1000.0);
  }
  ExpectUndistortedView(engine->mImagePoints1[2], main[2], kMainWidth, kMainHeight, 0.02, 1000.0);
  ExpectSameView(engine->mImagePoints2[2], second[2]);
  ExpectSameView(engine->mImagePoints1[3], main[3]);
  ExpectSameView(engine->mImagePoints2[3], second[3]);
}

TEST_F(ChartCorners, MainCameraFaultStopsOnlyThatView) {
  SetLinearModel(g_distortionFilter2, 0.02f, 1000.0f);
  engine->mImagePoints1[1][7] = cv::Point2f(kMainWidth / 2, kMainHeight / 2 - 3000.0f);
  const Views main = engine->mImagePoints1, second = engine->mImagePoints2;
  EXPECT_EQ(engine->undistortChartCorners(cv::Mat(), cv::Mat()), 1);
  for (int view = 0; view < kChartCornerViews; ++view) {
    ExpectUndistortedView(engine->mImagePoints2[view], second[view], kSecondWidth, kSecondHeight, 0.0, 1.0);
    if (view == 1) continue;
    ExpectUndistortedView(engine->mImagePoints1[view], main[view], kMainWidth, kMainHeight, 0.02, 1000.0);
  }
  const std::vector<cv::Point2f> head(main[1].begin(), main[1].begin() + 7);
  const std::vector<cv::Point2f> tail(main[1].begin() + 7, main[1].end());
  ExpectUndistortedView({engine->mImagePoints1[1].begin(), engine->mImagePoints1[1].begin() + 7}, head,
                        kMainWidth, kMainHeight, 0.02, 1000.0);
  ExpectSameView({engine->mImagePoints1[1].begin() + 7, engine->mImagePoints1[1].end()}, tail);
}

TEST_F(ChartCorners, ViewCountsAreBounded) {
  SetLinearModel(g_distortionFilter2, 0.02f, 1000.0f);
  SetLinearModel(g_distortionFilter1, 0.02f, 1000.0f);
  // Views shorter and longer than view 0: each processes at most its own
  // points and at most as many as view 0 has.
  engine->mImagePoints1[2].resize(10);
  engine->mImagePoints2[3].resize(3);
  engine->mImagePoints2[1].emplace_back(1.0f, 2.0f);
  const Views main = engine->mImagePoints1, second = engine->mImagePoints2;
  EXPECT_EQ(engine->undistortChartCorners(cv::Mat(), cv::Mat()), 1);
  ExpectUndistortedView(engine->mImagePoints1[2], main[2], kMainWidth, kMainHeight, 0.02, 1000.0);
  ExpectUndistortedView(engine->mImagePoints2[3], second[3], kSecondWidth, kSecondHeight, 0.02, 1000.0);
  EXPECT_EQ(engine->mImagePoints2[1].back(), cv::Point2f(1.0f, 2.0f));

  // Fewer than four views: nothing to do, nothing changed.
  engine->mImagePoints2.resize(3);
  const Views shortMain = engine->mImagePoints1;
  EXPECT_EQ(engine->undistortChartCorners(cv::Mat(), cv::Mat()), 0);
  ExpectSameView(engine->mImagePoints1[0], shortMain[0]);
  engine->mImagePoints1.clear();
  EXPECT_EQ(engine->undistortChartCorners(cv::Mat(), cv::Mat()), 0);
}

TEST_F(ChartCorners, EmptyViewsStillCheckTheSecondCamera) {
  for (auto& view : engine->mImagePoints1) view.clear();
  EXPECT_EQ(engine->undistortChartCorners(cv::Mat(), cv::Mat()), 1);
  EXPECT_EQ(engine->mImagePoints2[0].size(), 24u);
}

TEST_F(ChartCorners, DebugDrawingRunsOnAnyImages) {
  engine->m_bSaveDebugInfo = 1;
  engine->m_nBoardWidth = 6;
  engine->m_nBoardHeight = 4;
  const cv::Mat main(kMainHeight, kMainWidth, CV_8UC1, cv::Scalar(128));
  const cv::Mat second(kSecondHeight, kSecondWidth, CV_8UC1, cv::Scalar(128));
  EXPECT_EQ(engine->undistortChartCorners(main, second), 1);
  EXPECT_EQ(engine->undistortChartCorners(cv::Mat(), cv::Mat(10, 10, CV_8UC3)), 1);
  engine->m_nBoardWidth = 1000;
  EXPECT_EQ(engine->undistortChartCorners(main, second), 1);
  // The images themselves stay grey.
  EXPECT_EQ(cv::countNonZero(main != 128), 0);
}

TEST(ChartCornerDrawing, DrawsTheGridOnAColourCopy) {
  const cv::Mat grey(200, 300, CV_8UC1, cv::Scalar(100));
  EXPECT_TRUE(ChartColourCopy(cv::Mat()).empty());
  EXPECT_TRUE(ChartColourCopy(cv::Mat(4, 4, CV_8UC3)).empty());
  std::vector<cv::Point2f> corners;
  for (int y = 0; y < 2; ++y) {
    for (int x = 0; x < 3; ++x) corners.emplace_back(50.0f + 60.0f * x, 50.0f + 60.0f * y);
  }
  const auto colouredPixels = [](const cv::Mat& canvas) {
    std::vector<cv::Mat> planes;
    cv::split(canvas, planes);
    return cv::countNonZero(planes[0] != planes[1]) + cv::countNonZero(planes[1] != planes[2]);
  };
  cv::Mat complete = ChartColourCopy(grey);
  ASSERT_EQ(complete.type(), CV_8UC3);
  EXPECT_EQ(colouredPixels(complete), 0);
  DrawChartView(complete, cv::Size(3, 2), corners);
  EXPECT_GT(colouredPixels(complete), 0);
  // Joined as a found grid, the line between corners 0 and 1 is drawn too.
  EXPECT_NE(complete.at<cv::Vec3b>(50, 80), cv::Vec3b(100, 100, 100));

  cv::Mat loose = ChartColourCopy(grey);
  DrawChartView(loose, cv::Size(4, 2), corners);
  EXPECT_GT(colouredPixels(loose), 0);
  EXPECT_EQ(loose.at<cv::Vec3b>(50, 80), cv::Vec3b(100, 100, 100));

  cv::Mat empty;
  DrawChartView(empty, cv::Size(3, 2), corners);
  EXPECT_TRUE(empty.empty());
}
