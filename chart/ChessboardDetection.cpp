// Chessboard corner detection and the collection of calibration views.
#include <cstdio>
#include <iostream>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include "distortion/ChartCorners.h"
#include "engine/dualCalibration.h"

namespace {

constexpr double kSearchScale = 0.25;
constexpr float kCornerScale = 4.0f;
// Flag words 13 for the main image and 5 for the second: adaptive
// threshold and quad filtering for both, the fast check for the main image
// only. Intended asymmetry.
constexpr int kMainSearchFlags = cv::CALIB_CB_ADAPTIVE_THRESH | cv::CALIB_CB_FILTER_QUADS | cv::CALIB_CB_FAST_CHECK;
constexpr int kSecondSearchFlags = cv::CALIB_CB_ADAPTIVE_THRESH | cv::CALIB_CB_FILTER_QUADS;
static_assert(kMainSearchFlags == 13 && kSecondSearchFlags == 5, "the search flag words are 13 and 5");

bool SearchAtQuarterSize(const cv::Mat& image, cv::Size patternSize, int flags, std::vector<cv::Point2f>& corners) {
  cv::Mat reduced;
  cv::resize(image, reduced, cv::Size(), kSearchScale, kSearchScale, cv::INTER_LINEAR);
  return cv::findChessboardCorners(reduced, patternSize, corners, flags);
}

// Searches the quarter-size image and returns the corners at full scale,
// refined on the full image when the board was found.
bool FindCornersAtQuarterSize(const cv::Mat& image, cv::Size patternSize, int flags,
                              std::vector<cv::Point2f>& corners) {
  const bool found = SearchAtQuarterSize(image, patternSize, flags, corners);
  for (cv::Point2f& corner : corners) corner *= kCornerScale;
  if (found) {
    cv::cornerSubPix(image, corners, cv::Size(10, 10), cv::Size(-1, -1),
                     cv::TermCriteria(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 30, 0.1));
  }
  return found;
}

std::vector<cv::Point3f> BoardObjectPoints(int boardWidth, int boardHeight, float squareSize) {
  std::vector<cv::Point3f> points;
  for (int i = 0; i < boardHeight; ++i) {
    for (int j = 0; j < boardWidth; ++j) points.emplace_back(j * squareSize, i * squareSize, 0.0f);
  }
  return points;
}

}  // namespace

bool dualCalibration::detectChessboardCorners(const cv::Mat& mainImage, const cv::Mat& secondImage, int label,
                                              cv::Size patternSize, std::vector<cv::Point2f>& corners1,
                                              std::vector<cv::Point2f>& corners2) {
  mLastGridPairing = GridPairing();
  std::vector<cv::Point2f> found1, found2;
  const bool mainFound = FindCornersAtQuarterSize(mainImage, patternSize, kMainSearchFlags, found1);
  const bool secondFound = FindCornersAtQuarterSize(secondImage, patternSize, kSecondSearchFlags, found2);
  if (!mainFound) corners1 = found1;
  if (!secondFound) corners2 = found2;
  if (!(mainFound && secondFound)) {
    std::printf("ERROR: mask %d image points not found ! \n", label);
    return false;
  }
  if (mCornerPairing == CornerPairing::kGrid) {
    mLastGridPairing = matchCornerGridOrder(found1, found2, patternSize, mainImage, secondImage, corners1, corners2);
    if (mLastGridPairing.order == -1) {
      std::printf("ERROR: mask %d corner order not decided ! \n", label);
      return false;
    }
  } else {
    matchCornerOrder(found1, found2, corners1, corners2);
  }
  std::cout << label << ". Found corners!" << std::endl;
  return true;
}

int dualCalibration::findImagePoints(const cv::Mat& mainImage, const cv::Mat& secondImage, int viewIndex) {
  const cv::Size patternSize(m_nBoardWidth, m_nBoardHeight);
  std::vector<cv::Point2f> corners1, corners2;
  if (!detectChessboardCorners(mainImage, secondImage, 1, patternSize, corners1, corners2)) {
    std::printf("ERROR: find Image point failed! \n ");
    return 0;
  }
  mObjectPoints.push_back(BoardObjectPoints(m_nBoardWidth, m_nBoardHeight, static_cast<float>(m_nSquareSize)));
  mImagePoints1.push_back(corners1);
  mImagePoints2.push_back(corners2);
  // A view index outside the lists is the caller's error; it draws nothing.
  const bool viewStored = viewIndex >= 0 && static_cast<size_t>(viewIndex) < mImagePoints1.size();
  if (m_bSaveDebugInfo != 0 && viewStored) {
    cv::Mat mainCopy = ChartColourCopy(mainImage);
    cv::Mat secondCopy = ChartColourCopy(secondImage);
    DrawChartView(mainCopy, patternSize, mImagePoints1[viewIndex]);
    DrawChartView(secondCopy, patternSize, mImagePoints2[viewIndex]);
  }
  return 1;
}

bool dualCalibration::passesQuickBoardCheck(const cv::Mat& image, cv::Size patternSize) const {
  std::vector<cv::Point2f> corners;
  return SearchAtQuarterSize(image, patternSize, kMainSearchFlags, corners);
}
