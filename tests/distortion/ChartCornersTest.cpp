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

// Four views of 24 corners scattered over the image with a fixed seed.
Views RandomViews(int width, int height, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> x(0.0f, width - 1.0f), y(0.0f, height - 1.0f);
  Views views(kChartCornerViews);
  for (auto& view : views) {
    for (int i = 0; i < 24; ++i) view.emplace_back(x(random), y(random));
  }
  return views;
}

void SetLinearModel(CDistortionFilter& filter, float c, float reference) {
  filter.coefficientCount = 1;
  filter.currentPolynomial[0] = c;
  filter.referenceRadius = reference;
}

// The first `done` points of actual are those of original divided by
// 1 + c r / reference about the image centre (in double); the rest are as
// they were, exactly.
void ExpectView(const std::vector<cv::Point2f>& actual, const std::vector<cv::Point2f>& original, size_t done,
                int width, int height, double c = 0.02, double reference = 1000.0) {
  ASSERT_EQ(actual.size(), original.size());
  const cv::Point2d half(width / 2, height / 2);
  for (size_t i = 0; i < actual.size(); ++i) {
    const cv::Point2d q = cv::Point2d(original[i]) - half;
    const cv::Point2d expected = i < done ? q / (1.0 + c * cv::norm(q) / reference) + half : cv::Point2d(original[i]);
    EXPECT_LE(cv::norm(cv::Point2d(actual[i]) - expected), i < done ? 1e-3 : 0.0) << i;
  }
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
    const int32_t sizes[4] = {kMainWidth, kMainHeight, kSecondWidth, kSecondHeight};
    std::copy(sizes, sizes + 4, engine->chartImageSizes);
    engine->mImagePoints1 = RandomViews(kMainWidth, kMainHeight, 11);
    engine->mImagePoints2 = RandomViews(kSecondWidth, kSecondHeight, 12);
  }
  void TearDown() override { SetUp(); }

  std::unique_ptr<dualCalibration> engine;
};

}  // namespace

// The first path goes to the main camera's filter (the second global), the
// second path to the first global; a failure on the first path stops there.
TEST_F(ChartCorners, TablesGoToTheirFiltersWithTheirCodes) {
  TempDir dir;
  const std::string main = dir.File("main.txt"), second = dir.File("second.txt"), absent = dir.File("absent.txt");
  WriteFile(main, "1 1\n0 100 0 0.5 0\n");
  WriteFile(second, "1 1\n0 200 0 0.25 0\n");
  g_distortionFilter1.rowCount = 42;
  EXPECT_EQ(engine->LoadDistortionTables(absent.c_str(), second.c_str()), -2);
  EXPECT_EQ(g_distortionFilter1.rowCount, 42);
  EXPECT_EQ(engine->LoadDistortionTables(main.c_str(), absent.c_str()), -3);
  EXPECT_EQ(g_distortionFilter2.referenceRadius, 100.0f);
  EXPECT_EQ(engine->LoadDistortionTables(main.c_str(), second.c_str()), 1);
  EXPECT_EQ(g_distortionFilter1.referenceRadius, 200.0f);
  EXPECT_EQ(g_distortionFilter1.polynomialRows[0][0], 0.25f);
}

// Each camera with its own filter and image size; every view processes as
// many points as view 0 of the main camera has, at most its own.
TEST_F(ChartCorners, BothCamerasAreUndistortedWithTheirOwnFiltersAndSizes) {
  SetLinearModel(g_distortionFilter2, 0.02f, 1000.0f);
  SetLinearModel(g_distortionFilter1, -0.03f, 800.0f);
  engine->mImagePoints1[2].resize(10);
  engine->mImagePoints2[3].resize(3);
  engine->mImagePoints2[1].emplace_back(1.0f, 2.0f);
  const Views main = engine->mImagePoints1, second = engine->mImagePoints2;
  EXPECT_EQ(engine->undistortChartCorners(cv::Mat(), cv::Mat()), 1);
  for (int view = 0; view < kChartCornerViews; ++view) {
    ExpectView(engine->mImagePoints1[view], main[view], 24, kMainWidth, kMainHeight);
    ExpectView(engine->mImagePoints2[view], second[view], 24, kSecondWidth, kSecondHeight, -0.03, 800.0);
  }
}

// A main-camera corner out of the band stops that view only; a second-camera
// one returns 0 at once, with that view untouched and the views before done.
TEST_F(ChartCorners, OutOfBandCorners) {
  SetLinearModel(g_distortionFilter2, 0.02f, 1000.0f);
  SetLinearModel(g_distortionFilter1, 0.02f, 1000.0f);
  // 3000 px from the centre the factor is 1.06.
  engine->mImagePoints1[1][7] = cv::Point2f(kMainWidth / 2, kMainHeight / 2 - 3000.0f);
  engine->mImagePoints2[2][5] = cv::Point2f(kSecondWidth / 2 + 3000.0f, kSecondHeight / 2);
  const Views main = engine->mImagePoints1, second = engine->mImagePoints2;
  EXPECT_EQ(engine->undistortChartCorners(cv::Mat(), cv::Mat()), 0);
  const size_t mainDone[] = {24, 7, 24, 0}, secondDone[] = {24, 24, 0, 0};
  for (int view = 0; view < kChartCornerViews; ++view) {
    ExpectView(engine->mImagePoints1[view], main[view], mainDone[view], kMainWidth, kMainHeight);
    ExpectView(engine->mImagePoints2[view], second[view], secondDone[view], kSecondWidth, kSecondHeight);
  }
}

// The debug drawing runs on any images and leaves them alone; empty views
// still succeed; fewer than four views change nothing and return 0.
TEST_F(ChartCorners, DebugDrawingEmptyViewsAndShortLists) {
  engine->m_bSaveDebugInfo = 1;
  engine->m_nBoardWidth = 6;
  engine->m_nBoardHeight = 4;
  const cv::Mat main(120, 160, CV_8UC1, cv::Scalar(128)), second(100, 120, CV_8UC1, cv::Scalar(128));
  EXPECT_EQ(engine->undistortChartCorners(main, second), 1);
  EXPECT_EQ(engine->undistortChartCorners(cv::Mat(), cv::Mat(10, 10, CV_8UC3)), 1);
  engine->m_nBoardWidth = 1000;
  EXPECT_EQ(engine->undistortChartCorners(main, second), 1);
  EXPECT_EQ(cv::countNonZero(main != 128) + cv::countNonZero(second != 128), 0);
  for (auto& view : engine->mImagePoints1) view.clear();
  EXPECT_EQ(engine->undistortChartCorners(cv::Mat(), cv::Mat()), 1);
  SetLinearModel(g_distortionFilter1, 0.02f, 1000.0f);
  engine->mImagePoints1 = RandomViews(kMainWidth, kMainHeight, 11);
  engine->mImagePoints2.resize(3);
  const Views before = engine->mImagePoints2;
  EXPECT_EQ(engine->undistortChartCorners(cv::Mat(), cv::Mat()), 0);
  EXPECT_EQ(engine->mImagePoints2, before);
}

// A complete view is joined as a found grid, through (80, 50) between its
// first two corners; any other view is drawn as loose corners.
TEST(ChartCornerDrawing, DrawsTheGridOnAColourCopy) {
  const cv::Mat grey(200, 300, CV_8UC1, cv::Scalar(100));
  EXPECT_TRUE(ChartColourCopy(cv::Mat()).empty());
  EXPECT_TRUE(ChartColourCopy(cv::Mat(4, 4, CV_8UC3)).empty());
  const std::vector<cv::Point2f> corners = {{50, 50}, {110, 50}, {170, 50}, {50, 110}, {110, 110}, {170, 110}};
  const cv::Vec3b background(100, 100, 100);
  for (const bool complete : {true, false}) {
    cv::Mat canvas = ChartColourCopy(grey);
    ASSERT_EQ(canvas.type(), CV_8UC3);
    DrawChartView(canvas, cv::Size(complete ? 3 : 4, 2), corners);
    EXPECT_GT(cv::countNonZero(canvas.reshape(1) != 100), 0);
    EXPECT_EQ(canvas.at<cv::Vec3b>(199, 299), background);
    EXPECT_EQ(canvas.at<cv::Vec3b>(50, 80) != background, complete);
  }
  cv::Mat empty;
  DrawChartView(empty, cv::Size(3, 2), corners);
  EXPECT_TRUE(empty.empty());
}
