#include "distortion/ChartCorners.h"

#include "tests/support/TestPrelude.h"

#include "api/Globals.h"
#include "distortion/CDistortionFilter.h"
#include "engine/dualCalibration.h"

namespace {

// OpenCV's worker threads stall under qemu-aarch64, where this suite also runs: the drawing runs sequentially.
[[maybe_unused]] const bool kSequentialOpenCv = (cv::setNumThreads(0), true);

using Views = std::vector<std::vector<cv::Point2f>>;

constexpr int kMainWidth = 1600, kMainHeight = 1200, kSecondWidth = 1200, kSecondHeight = 1000;

Views RandomViews(int width, int height, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> x(0.0f, width - 1.0f), y(0.0f, height - 1.0f);
  Views views(kChartCornerViews);
  for (int i = 0; i < 24 * kChartCornerViews; ++i) views[i / 24].emplace_back(x(random), y(random));
  return views;
}

void SetLinearModel(CDistortionFilter& filter, float c, float reference) {
  filter.coefficientCount = 1, filter.currentPolynomial[0] = c, filter.referenceRadius = reference;
}

// The first `done` points of actual are those of original divided by 1 + c r / reference about the image centre
// (in double); the rest are as they were, exactly.
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

// Each test starts the library's two global filters with one linear term, and leaves them without.
class ChartCorners : public testing::Test {
 protected:
  void SetUp() override {
    for (CDistortionFilter* filter : {&g_distortionFilter1, &g_distortionFilter2}) SetLinearModel(*filter, 0.02f, 1000.0f);
    engine = std::make_unique<dualCalibration>();
    const int32_t sizes[4] = {kMainWidth, kMainHeight, kSecondWidth, kSecondHeight};
    std::copy(sizes, sizes + 4, engine->chartImageSizes);
    engine->mImagePoints1 = RandomViews(kMainWidth, kMainHeight, 11);
    engine->mImagePoints2 = RandomViews(kSecondWidth, kSecondHeight, 12);
  }
  void TearDown() override { g_distortionFilter1.coefficientCount = g_distortionFilter2.coefficientCount = 0; }

  std::unique_ptr<dualCalibration> engine;
};

}  // namespace

// The first path goes to the main camera's filter (the second global); a failure on it stops there.
TEST_F(ChartCorners, TablesGoToTheirFiltersWithTheirCodes) {
  TempDir dir;
  const std::string main = dir.File("main.txt"), second = dir.File("second.txt"), absent = dir.File("absent.txt");
  WriteFile(main, "1 1\n0 100 0 0.5 0\n");
  WriteFile(second, "1 1\n0 200 0 0.25 0\n");
  g_distortionFilter1.rowCount = 42;
  EXPECT_EQ(engine->LoadDistortionTables(absent.c_str(), second.c_str()) * 100 + g_distortionFilter1.rowCount, -158);
  EXPECT_EQ(engine->LoadDistortionTables(main.c_str(), absent.c_str()), -3);
  EXPECT_EQ(g_distortionFilter2.referenceRadius, 100.0f);
  EXPECT_EQ(engine->LoadDistortionTables(main.c_str(), second.c_str()), 1);
  EXPECT_EQ(g_distortionFilter1.referenceRadius + g_distortionFilter1.polynomialRows[0][0], 200.25f);
}

// Each camera with its own filter and size; every view processes as many points as the main camera's view 0, at
// most its own; a main-camera corner out of the band (3000 px out: 1.06, 0.8875) stops that view only, a
// second-camera one returns 0 at once, that view untouched and the earlier ones done.
TEST_F(ChartCorners, UndistortsBothCamerasAndStopsAtOutOfBandCorners) {
  SetLinearModel(g_distortionFilter1, -0.03f, 800.0f);
  engine->mImagePoints1[1][7] = cv::Point2f(kMainWidth / 2, kMainHeight / 2 - 3000.0f);
  engine->mImagePoints1[2].resize(10);
  engine->mImagePoints2[1].emplace_back(1.0f, 2.0f);
  engine->mImagePoints2[2][5] = cv::Point2f(kSecondWidth / 2 + 3000.0f, kSecondHeight / 2);
  const Views main = engine->mImagePoints1, second = engine->mImagePoints2;
  EXPECT_EQ(engine->undistortChartCorners(cv::Mat(), cv::Mat()), 0);
  const size_t mainDone[] = {24, 7, 10, 0}, secondDone[] = {24, 24, 0, 0};
  for (int view = 0; view < kChartCornerViews; ++view) {
    ExpectView(engine->mImagePoints1[view], main[view], mainDone[view], kMainWidth, kMainHeight);
    ExpectView(engine->mImagePoints2[view], second[view], secondDone[view], kSecondWidth, kSecondHeight, -0.03, 800.0);
  }
}

// 1 without and with the debug switch (which draws on any images) and for empty views; fewer than four views change
// nothing and return 0.
TEST_F(ChartCorners, DebugDrawingEmptyViewsAndShortLists) {
  EXPECT_EQ(engine->undistortChartCorners(cv::Mat(), cv::Mat()), 1);
  engine->m_bSaveDebugInfo = 1, engine->m_nBoardWidth = 6, engine->m_nBoardHeight = 4;
  EXPECT_EQ(engine->undistortChartCorners(cv::Mat(120, 160, CV_8UC1, cv::Scalar(128)), cv::Mat(10, 10, CV_8UC3)), 1);
  for (auto& view : engine->mImagePoints1) view.clear();
  EXPECT_EQ(engine->undistortChartCorners(cv::Mat(), cv::Mat()), 1);
  engine->mImagePoints1 = RandomViews(kMainWidth, kMainHeight, 11);
  engine->mImagePoints2.resize(3);
  const Views before = engine->mImagePoints2;
  EXPECT_EQ(engine->undistortChartCorners(cv::Mat(), cv::Mat()), 0);
  EXPECT_EQ(engine->mImagePoints2, before);
}
