#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include "engine/dualCalibration.h"
#include "synthetic/ChessboardRenderer.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

using Corners = std::vector<cv::Point2f>;

const cv::Size kImageSize(2000, 1500);
const char kNotFound[] = "ERROR: mask 1 image points not found ! \nERROR: find Image point failed! \n ";

std::unique_ptr<dualCalibration> BoardEngine(int squareSize) {
  auto engine = std::make_unique<dualCalibration>();
  engine->m_nBoardWidth = 9, engine->m_nBoardHeight = 6, engine->m_nSquareSize = squareSize;
  return engine;
}

double LargestDistance(const Corners& found, const Corners& truth) {
  if (found.size() != truth.size()) return 1e9;
  double largest = 0.0;
  for (size_t i = 0; i < found.size(); ++i) largest = std::max(largest, cv::norm(found[i] - truth[i]));
  return largest;
}

// A board facing the camera squarely, centred on the principal point.
cv::Mat FrontalBoard(double squareSize, double distance, Corners* truth = nullptr) {
  const PinholeCamera camera{{1600.0, 0.0, 999.5, 0.0, 1600.0, 749.5, 0.0, 0.0, 1.0}, kImageSize};
  ChessboardLayout layout;
  layout.squareSize = squareSize;
  const cv::Vec3d translation(-4.0 * squareSize, -2.5 * squareSize, distance);
  if (truth != nullptr) *truth = ProjectBoardCorners(camera, layout, cv::Matx33d::eye(), translation);
  return RenderBoardView(camera, layout, cv::Matx33d::eye(), translation, RenderOptions(), 1);
}

}  // namespace

// Six blurred, noisy rendered pairs: every board is found, entry n of both
// lists is one corner, and the corners' RMS distance from the truth lies in
// a band. A refinement window of 9 or 11 instead of 10 gives 0.0424 or
// 0.0358 px, an epsilon of 0.2 instead of 0.1 gives 0.0413 px, one iteration
// instead of 30 about six times the error, and a corner scale other than 4
// tens of pixels; each leaves the band.
TEST(ChessboardDetection, FindsPairsAndRefinesRenderedBoardsWithinTheirBand) {
  constexpr double kLowestRmsPx = 0.0370, kHighestRmsPx = 0.0400;  // measured 0.0385
  const StereoRig rig = ExampleStereoRig(kImageSize, kImageSize);
  const ChessboardLayout layout;
  RenderOptions options;
  options.noiseSigma = 2.0;
  options.blurSigmaPx = 2.5;
  auto engine = BoardEngine(25);
  double squaredSum = 0.0;
  size_t count = 0;
  for (const BoardPose& pose : RandomBoardPoses(rig, layout, 6, 11, 40.0, 30.0)) {
    const RenderedPair pair = RenderPair(rig, layout, pose, options, 50 + count);
    Corners corners1, corners2;
    CaptureStdout();
    ASSERT_TRUE(engine->detectChessboardCorners(pair.mainImage, pair.secondImage, 1, {9, 6}, corners1, corners2));
    EXPECT_EQ(GetCapturedStdout(), "1. Found corners!\n");
    ASSERT_EQ(corners2.size(), 54u);
    for (size_t n = 0; n < corners1.size(); ++n) {
      size_t nearest = 0;
      for (size_t i = 1; i < 54; ++i) {
        if (cv::norm(corners1[n] - pair.mainCorners[i]) < cv::norm(corners1[n] - pair.mainCorners[nearest])) nearest = i;
      }
      const cv::Point2f errors[2] = {corners1[n] - pair.mainCorners[nearest], corners2[n] - pair.secondCorners[nearest]};
      for (const cv::Point2f& e : errors) squaredSum += e.dot(e);
      count += 2;
    }
  }
  ASSERT_EQ(count, 6u * 2u * 54u);
  const double rms = std::sqrt(squaredSum / count);
  EXPECT_GT(rms, kLowestRmsPx);
  EXPECT_LT(rms, kHighestRmsPx);
}

// One view appended with the board's object points; with the debug switch,
// a view index outside the lists draws nothing and changes nothing.
TEST(ChessboardDetection, FindImagePointsAppendsOneViewWithBoardObjectPoints) {
  const cv::Mat image = FrontalBoard(20.0, 450.0);
  auto engine = BoardEngine(20);
  engine->m_bSaveDebugInfo = 1;
  CaptureStdout();
  EXPECT_EQ(engine->findImagePoints(image, image, 0), 1);
  EXPECT_EQ(GetCapturedStdout(), "1. Found corners!\n");
  ASSERT_EQ(engine->mObjectPoints.size(), 1u);
  const std::vector<cv::Point3f>& points = engine->mObjectPoints[0];
  ASSERT_EQ(points.size(), 54u);
  EXPECT_EQ(points[1], cv::Point3f(20.0f, 0.0f, 0.0f));
  EXPECT_EQ(points[9], cv::Point3f(0.0f, 20.0f, 0.0f));
  EXPECT_EQ(points[53], cv::Point3f(160.0f, 100.0f, 0.0f));
  EXPECT_EQ(engine->mImagePoints1[0].size(), 54u);
  EXPECT_EQ(engine->mImagePoints1[0], engine->mImagePoints2[0]);
  CaptureStdout();
  EXPECT_EQ(engine->findImagePoints(image, image, 5), 1);
  GetCapturedStdout();
  EXPECT_EQ(engine->mImagePoints2.size(), 2u);
}

TEST(ChessboardDetection, SecondBoardTurnedHalfWayIsReorderedByPosition) {
  Corners truth;
  const cv::Mat mainImage = FrontalBoard(25.0, 600.0, &truth);
  cv::Mat secondImage;
  cv::rotate(mainImage, secondImage, cv::ROTATE_180);
  auto engine = BoardEngine(25);
  Corners corners1, corners2;
  CaptureStdout();
  ASSERT_TRUE(engine->detectChessboardCorners(mainImage, secondImage, 1, {9, 6}, corners1, corners2));
  GetCapturedStdout();
  ASSERT_LT(LargestDistance(corners1, truth), 0.15);
  // The search lists the turned board backwards through the image; entry n
  // of the second list is the corner at entry n's place of the grid.
  Corners expected;
  for (auto p = truth.rbegin(); p != truth.rend(); ++p) expected.emplace_back(1999.0f - p->x, 1499.0f - p->y);
  EXPECT_LT(LargestDistance(corners2, expected), 0.15);
}

TEST(ChessboardDetection, BoardInOneImageOnlyChangesNoList) {
  const cv::Mat board = FrontalBoard(25.0, 600.0);
  const cv::Mat empty = RenderEmptyView(kImageSize, RenderOptions(), 3);
  // Squares of about 13 px are 3 px at the quarter size the search runs at.
  const cv::Mat small = FrontalBoard(5.0, 600.0);
  Corners atFullSize;
  ASSERT_TRUE(cv::findChessboardCorners(small, {9, 6}, atFullSize, 5));
  const std::pair<cv::Mat, cv::Mat> cases[] = {{board, empty}, {empty, board}, {empty, empty}, {small, small}};
  for (const auto& [mainImage, secondImage] : cases) {
    auto engine = BoardEngine(25);
    engine->mObjectPoints = {{cv::Point3f(1.0f, 2.0f, 0.0f)}};
    engine->mImagePoints1 = engine->mImagePoints2 = {{cv::Point2f(3.0f, 4.0f)}};
    CaptureStdout();
    EXPECT_EQ(engine->findImagePoints(mainImage, secondImage, 0), 0);
    EXPECT_EQ(GetCapturedStdout(), kNotFound);
    EXPECT_EQ(engine->mObjectPoints, (std::vector<std::vector<cv::Point3f>>{{cv::Point3f(1.0f, 2.0f, 0.0f)}}));
    EXPECT_EQ(engine->mImagePoints1, (std::vector<Corners>{{cv::Point2f(3.0f, 4.0f)}}));
    EXPECT_EQ(engine->mImagePoints2, engine->mImagePoints1);
  }
}

// The failed image's list takes what its search handed back, which OpenCV
// leaves empty; the found image's list stays as the caller had it.
TEST(ChessboardDetection, FailedSearchReplacesOnlyTheListOfTheFailedImage) {
  const cv::Mat board = FrontalBoard(25.0, 600.0);
  const cv::Mat empty = RenderEmptyView(kImageSize, RenderOptions(), 3);
  auto engine = BoardEngine(25);
  Corners corners1 = {{1.0f, 2.0f}}, corners2 = {{3.0f, 4.0f}};
  CaptureStdout();
  EXPECT_FALSE(engine->detectChessboardCorners(board, empty, 7, {9, 6}, corners1, corners2));
  EXPECT_EQ(GetCapturedStdout(), "ERROR: mask 7 image points not found ! \n");
  EXPECT_EQ(corners1, (Corners{{1.0f, 2.0f}}));
  EXPECT_TRUE(corners2.empty());
}
