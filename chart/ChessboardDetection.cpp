// Chessboard corner detection and the collection of calibration views.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include "chart/CornerQuality.h"
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

// The any-scale search: quad passes (findChessboardCorners), the first at a
// scale that brings the longer side to at most kAnyScaleFirstSidePx, then
// twice as fine while the image shows no checker squares at all (the
// board's squares too small at that scale; the fast check decides); a step
// that would come within kFullSizeStep of full size goes to full size.
// Where they find no board, one sector pass (findChessboardCornersSB) at a
// longer side of at most kSectorSidePx finds boards whose outer squares
// leave the image, dark boards and boards of squares the quad passes split.
// Only an image known to show the board (the second image of a pair whose
// main image showed it) gets OpenCV's adaptive-threshold fallback last: its
// 48 binarisations cost seconds on a textured scene without a board, where
// the passes before it stay within a few tenths of a second at 12 MP.
constexpr int kAnyScaleFirstSidePx = 2000;
constexpr double kFullSizeStep = 0.7;
constexpr int kSectorSidePx = 1000;
// The quad passes binarise by the histogram and by the mean level, without
// normalisation: it turns sensor noise on a flat scene into a checker-like
// texture that passes the fast check.
constexpr int kAnyScaleFlags = cv::CALIB_CB_FAST_CHECK;
constexpr int kInViewFlags = cv::CALIB_CB_ADAPTIVE_THRESH | cv::CALIB_CB_FAST_CHECK;
constexpr int kSectorFlags = cv::CALIB_CB_NORMALIZE_IMAGE;
// The sector pass needs a light and a dark square side by side: a step of at
// least kMinSquareContrast grey levels within kContrastReachPx of the sector
// image once it is averaged over kContrastBlurPx. A flat backdrop's noise stays
// below it; a board of 12-px squares at a quarter of their contrast passes.
constexpr int kMinSquareContrast = 24;
constexpr int kContrastBlurPx = 5;
constexpr int kContrastReachPx = 3;
// Refinement half-window: this share of the corner's shortest square side,
// at most the larger of kSharpHalfWindowPx and kEdgeWidths times the view's
// edge blur (a soft edge needs a window over its whole profile), at least
// kMinHalfWindowPx, and never reaching past the image's edge.
constexpr double kHalfWindowShare = 0.5;
constexpr int kMinHalfWindowPx = 2;
constexpr int kSharpHalfWindowPx = 11;
constexpr double kEdgeWidths = 7.0;
// The refinement runs on the board's region smoothed by a Gaussian of
// kRefineSmoothingSigmaPx: the smoothing keeps a corner where it is and
// takes the sensor noise and the pixel steps of sharp edges out of the
// gradients.
constexpr double kRefineSmoothingSigmaPx = 1.0;
// A noisy capture (the sensor noise over kNoisyContrastShare of the board's
// contrast: small pixels in low light) is smoothed by kNoisySmoothingSigmaPx
// and refined a second time in windows widened, within the share of the
// square, as far as the lens lets the edges stay straight: to where the
// grid's bend at the corner (GridBendPx, over squares of side s) moves an
// edge at most kEdgeBendLimitPx from its tangent, bend * (half / s)^2. Wider
// windows average more of the noise; on a clean capture they gain little and
// a lighting gradient across them (a vignetted lens) pulls the corners.
constexpr double kNoisyContrastShare = 0.03;
constexpr double kNoisySmoothingSigmaPx = 2.0;
constexpr double kEdgeBendLimitPx = 0.02;
// The noise is read from a 4-neighbour Laplacian, whose response to white
// noise of sigma 1 has a deviation of sqrt(20); the contrast between the
// kContrastPercentile-th lowest and highest percentiles of the board's box.
constexpr double kLaplacianNoiseGain = 4.47213595499958;
constexpr double kContrastPercentile = 5.0;
// Edge blur is measured within this radius of each corner.
constexpr int kBlurProbeRadiusPx = 6;

// Gaussian sigma (px) of the edges at one corner: a step of contrast C
// blurred by sigma has a steepest slope of C / (sigma * sqrt(2 pi)).
double EdgeSigmaAt(const cv::Mat& image, cv::Point2f corner) {
  const cv::Rect probe = cv::Rect(cvRound(corner.x) - kBlurProbeRadiusPx, cvRound(corner.y) - kBlurProbeRadiusPx,
                                  2 * kBlurProbeRadiusPx + 1, 2 * kBlurProbeRadiusPx + 1) &
                         cv::Rect(0, 0, image.cols, image.rows);
  if (probe.width < 3 || probe.height < 3) return 0.0;
  cv::Mat patch, dx, dy, magnitude;
  cv::blur(image(probe), patch, cv::Size(3, 3), cv::Point(-1, -1), cv::BORDER_REPLICATE);
  patch.convertTo(patch, CV_32F);
  cv::Sobel(patch, dx, CV_32F, 1, 0, 3, 1.0 / 8.0, 0.0, cv::BORDER_REPLICATE);
  cv::Sobel(patch, dy, CV_32F, 0, 1, 3, 1.0 / 8.0, 0.0, cv::BORDER_REPLICATE);
  cv::magnitude(dx, dy, magnitude);
  double lowest = 0.0, highest = 0.0, steepest = 0.0;
  cv::minMaxLoc(patch, &lowest, &highest);
  cv::minMaxLoc(magnitude, nullptr, &steepest);
  return steepest > 0.0 ? (highest - lowest) / (steepest * std::sqrt(2.0 * CV_PI)) : 0.0;
}

// The view's edge blur: the median over its corners.
double ViewEdgeSigma(const cv::Mat& image, const std::vector<cv::Point2f>& corners) {
  std::vector<double> sigmas;
  for (const cv::Point2f& corner : corners) sigmas.push_back(EdgeSigmaAt(image, corner));
  std::nth_element(sigmas.begin(), sigmas.begin() + sigmas.size() / 2, sigmas.end());
  return sigmas[sigmas.size() / 2];
}

// The histogram of an 8-bit image's grey levels.
cv::Mat GreyHistogram(const cv::Mat& image) {
  const int bins = 256;
  const float range[] = {0.0f, 256.0f};
  const float* ranges[] = {range};
  cv::Mat histogram;
  cv::calcHist(&image, 1, nullptr, cv::Mat(), histogram, 1, &bins, ranges);
  return histogram;
}

// The grey level below which the given share of the histogram's pixels lie.
int GreyPercentile(const cv::Mat& histogram, double share) {
  const double total = cv::sum(histogram)[0];
  double below = 0.0;
  for (int level = 0; level < histogram.rows; ++level) {
    below += histogram.at<float>(level);
    if (below >= share * total) return level;
  }
  return histogram.rows - 1;
}

// True when the sensor noise in the board's box, as the median absolute
// Laplacian reads it (most of the box is the squares' flat insides; the
// magnitudes saturate at 255, far above any median), is over
// kNoisyContrastShare of the board's contrast.
bool IsNoisy(const cv::Mat& image, const std::vector<cv::Point2f>& corners) {
  const cv::Mat board = image(cv::boundingRect(corners) & cv::Rect(0, 0, image.cols, image.rows));
  if (board.rows < 3 || board.cols < 3) return false;
  cv::Mat laplacian, magnitude;
  cv::Laplacian(board, laplacian, CV_16S);
  cv::convertScaleAbs(laplacian, magnitude);
  const double noise = 1.4826 * GreyPercentile(GreyHistogram(magnitude), 0.5) / kLaplacianNoiseGain;
  const cv::Mat levels = GreyHistogram(board);
  const double share = kContrastPercentile / 100.0;
  const int contrast = GreyPercentile(levels, 1.0 - share) - GreyPercentile(levels, share);
  return noise > kNoisyContrastShare * contrast;
}

// The board's part of the image smoothed by sigma, with its offset: the
// region the corners' windows (half-widths up to widest) and the smoothing
// reach.
cv::Mat SmoothedBoardRegion(const cv::Mat& image, const std::vector<cv::Point2f>& corners, double sigma, int widest,
                            cv::Point& offset) {
  const int reach = widest + 2 + static_cast<int>(std::ceil(4.0 * sigma));
  const cv::Rect board = cv::boundingRect(corners);
  const cv::Rect region = cv::Rect(board.tl() - cv::Point(reach, reach), board.br() + cv::Point(reach, reach)) &
                          cv::Rect(0, 0, image.cols, image.rows);
  offset = region.tl();
  cv::Mat smoothed;
  cv::GaussianBlur(image(region), smoothed, cv::Size(0, 0), sigma);
  return smoothed;
}

// Half-windows of every corner: kHalfWindowShare of its shortest square
// side, at most widest (or, bendLimited, as far as the grid's bend allows
// when that is wider), at least kMinHalfWindowPx, inside the image.
std::vector<int> HalfWindows(cv::Size imageSize, const std::vector<cv::Point2f>& corners, cv::Size patternSize,
                             int widest, bool bendLimited) {
  std::vector<int> halves(corners.size());
  for (size_t k = 0; k < corners.size(); ++k) {
    const cv::Point2f& p = corners[k];
    const float toEdge = std::min({p.x, p.y, imageSize.width - 1 - p.x, imageSize.height - 1 - p.y});
    const double side = ShortestSquareSide(corners, patternSize, static_cast<int>(k));
    double allowed = widest;
    if (bendLimited) {
      const double bend = GridBendPx(corners, patternSize, static_cast<int>(k));
      allowed = bend > 0.0 ? std::max(allowed, side * std::sqrt(kEdgeBendLimitPx / bend)) : side;
    }
    const int half = static_cast<int>(std::min(kHalfWindowShare * side, allowed));
    halves[k] = std::max(std::min(half, static_cast<int>(toEdge) - 1), kMinHalfWindowPx);
  }
  return halves;
}

// Each corner refined on the smoothed region in its own half-window.
void RefineEach(const cv::Mat& smoothed, cv::Point offset, const std::vector<int>& halves,
                std::vector<cv::Point2f>& corners) {
  for (size_t k = 0; k < corners.size(); ++k) {
    std::vector<cv::Point2f> one = {corners[k] - cv::Point2f(offset)};
    cv::cornerSubPix(smoothed, one, cv::Size(halves[k], halves[k]), cv::Size(-1, -1),
                     cv::TermCriteria(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 40, 0.001));
    corners[k] = one[0] + cv::Point2f(offset);
  }
}

// Each corner refined in the windows of the found corners; on a noisy
// capture, on a smoother image and then again in windows widened as far as
// the bend of the refined grid allows.
void RefineInSquareWindows(const cv::Mat& image, cv::Size patternSize, std::vector<cv::Point2f>& corners) {
  const int widest = std::max(kSharpHalfWindowPx, static_cast<int>(kEdgeWidths * ViewEdgeSigma(image, corners)));
  const bool noisy = IsNoisy(image, corners);
  int reach = widest;
  for (size_t k = 0; noisy && k < corners.size(); ++k) {
    reach = std::max(reach, static_cast<int>(kHalfWindowShare * ShortestSquareSide(corners, patternSize, int(k))));
  }
  cv::Point offset;
  const cv::Mat smoothed =
      SmoothedBoardRegion(image, corners, noisy ? kNoisySmoothingSigmaPx : kRefineSmoothingSigmaPx, reach, offset);
  RefineEach(smoothed, offset, HalfWindows(image.size(), corners, patternSize, widest, false), corners);
  if (noisy) RefineEach(smoothed, offset, HalfWindows(image.size(), corners, patternSize, widest, true), corners);
}

double ScaleForSide(const cv::Mat& image, int sidePx) {
  return std::min(1.0, static_cast<double>(sidePx) / std::max(image.cols, image.rows));
}

cv::Mat Reduced(const cv::Mat& image, double scale) {
  cv::Mat reduced = image;
  if (scale < 1.0) cv::resize(image, reduced, cv::Size(), scale, scale, cv::INTER_AREA);
  return reduced;
}

// Corners found at the given scale, moved to the full image: pixel centres
// of the reduced image lie at (x + 0.5) / scale - 0.5 of the full one.
void ToFullScale(std::vector<cv::Point2f>& corners, double scale) {
  for (cv::Point2f& corner : corners) corner = (corner + cv::Point2f(0.5f, 0.5f)) / scale - cv::Point2f(0.5f, 0.5f);
}

bool ShowsSquareContrast(const cv::Mat& image) {
  cv::Mat averaged, steps;
  cv::blur(image, averaged, cv::Size(kContrastBlurPx, kContrastBlurPx));
  cv::morphologyEx(averaged, steps, cv::MORPH_GRADIENT,
                   cv::getStructuringElement(cv::MORPH_RECT, cv::Size(kContrastReachPx, kContrastReachPx)));
  double largest = 0.0;
  cv::minMaxLoc(steps, nullptr, &largest);
  return largest >= kMinSquareContrast;
}

// Corners of a pass at the given scale moved to the full image, when it found
// the board.
bool FoundAtScale(bool found, double scale, std::vector<cv::Point2f>& corners) {
  if (found) ToFullScale(corners, scale);
  return found;
}

bool SearchAnyScale(const cv::Mat& image, cv::Size patternSize, bool boardInView, std::vector<cv::Point2f>& corners) {
  const double first = ScaleForSide(image, kAnyScaleFirstSidePx);
  const cv::Mat firstImage = Reduced(image, first);
  bool sawChecker = false;
  for (double scale = first;; scale = 2.0 * scale >= kFullSizeStep ? 1.0 : 2.0 * scale) {
    const cv::Mat reduced = scale == first ? firstImage : Reduced(image, scale);
    // A finer pass runs only where its image shows checker squares.
    if (scale == first || cv::checkChessboard(reduced, patternSize)) {
      if (FoundAtScale(cv::findChessboardCorners(reduced, patternSize, corners, kAnyScaleFlags), scale, corners)) {
        return true;
      }
      // Squares of a checker seen at this scale: finer scales show no more.
      sawChecker = scale != first || cv::checkChessboard(reduced, patternSize);
    }
    if (sawChecker || scale >= 1.0) break;
  }
  // The sector pass looks for a board only where the board is known to be,
  // checker squares were seen, or squares could be: a flat backdrop costs
  // the checks alone.
  const double sectorScale = ScaleForSide(image, kSectorSidePx);
  const cv::Mat sector = Reduced(image, sectorScale);
  if ((boardInView || sawChecker || ShowsSquareContrast(sector)) &&
      FoundAtScale(cv::findChessboardCornersSB(sector, patternSize, corners, kSectorFlags), sectorScale, corners)) {
    return true;
  }
  return boardInView &&
         FoundAtScale(cv::findChessboardCorners(firstImage, patternSize, corners, kInViewFlags), first, corners);
}

bool FindCornersAtAnyScale(const cv::Mat& image, cv::Size patternSize, bool boardInView,
                           std::vector<cv::Point2f>& corners) {
  if (!SearchAnyScale(image, patternSize, boardInView, corners)) return false;
  RefineInSquareWindows(image, patternSize, corners);
  return true;
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
  bool mainFound = false, secondFound = false;
  if (mCornerSearch == CornerSearch::kAnyScale) {
    mainFound = FindCornersAtAnyScale(mainImage, patternSize, false, found1);
    secondFound = mainFound && FindCornersAtAnyScale(secondImage, patternSize, true, found2);
  } else {
    mainFound = FindCornersAtQuarterSize(mainImage, patternSize, kMainSearchFlags, found1);
    secondFound = FindCornersAtQuarterSize(secondImage, patternSize, kSecondSearchFlags, found2);
  }
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
  if (mCornerSearch == CornerSearch::kAnyScale) return SearchAnyScale(image, patternSize, false, corners);
  return SearchAtQuarterSize(image, patternSize, kMainSearchFlags, corners);
}
