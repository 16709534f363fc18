// Pairing of the second view's corners with the main view's: by position,
// or by the board's symmetric orders.
#include "chart/CornerCorrespondence.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
#include <numeric>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include "engine/dualCalibration.h"

namespace {

// Side of the patch whose mean grey level stands for a square's colour.
constexpr int kColourPatchPx = 5;
// Orders the handedness and the colouring leave open (the half turn of a
// board of even W + H, the quarter turns of a square board) are told apart
// by their agreement with an unturned mapping, the cosine of the turn
// between the views: the best is taken when it is at least
// kMinOpenAgreement (a turn within 45 degrees) and leads the next by
// kAgreementMargin; otherwise the view is dropped. Such a board turned by
// half between the views is taken as unturned, as a rig's cameras are.
constexpr double kMinOpenAgreement = 0.7;
constexpr double kAgreementMargin = 0.5;

struct CloudStatistics {
  double meanX, meanY, spreadX, spreadY;
};

CloudStatistics Statistics(const std::vector<cv::Point2f>& corners) {
  cv::Scalar mean, spread;
  cv::meanStdDev(cv::Mat(corners), mean, spread);
  return {mean[0], mean[1], spread[0], spread[1]};
}

// The corner of second nearest to first's corner i after normalisation;
// -1 when no distance compares below the start value.
int NearestCorner(const cv::Point2f& corner, const CloudStatistics& firstStats, const std::vector<cv::Point2f>& second,
                  const CloudStatistics& secondStats, size_t count) {
  const double ux = (corner.x - firstStats.meanX) / firstStats.spreadX;
  const double uy = (corner.y - firstStats.meanY) / firstStats.spreadY;
  double bestDistance = 2147483647.0;
  int best = -1;
  for (size_t j = 0; j < count; ++j) {
    const double vx = (second[j].x - secondStats.meanX) / secondStats.spreadX;
    const double vy = (second[j].y - secondStats.meanY) / secondStats.spreadY;
    const double distance = (ux - vx) * (ux - vx) + (uy - vy) * (uy - vy);
    if (distance < bestDistance) {
      bestDistance = distance;
      best = static_cast<int>(j);
    }
  }
  return best;
}

int MatchCorners(const std::vector<cv::Point2f>& first, const std::vector<cv::Point2f>& second,
                 std::vector<cv::Point2f>& matched1, std::vector<cv::Point2f>& matched2) {
  if (first.empty()) return 1;
  const CloudStatistics firstStats = Statistics(first);
  const CloudStatistics secondStats = second.empty() ? CloudStatistics{} : Statistics(second);
  const size_t count = first.size();
  // The first list's count bounds both lists; a shorter second list is only
  // searched as far as it reaches.
  const size_t searched = std::min(count, second.size());
  std::unique_ptr<unsigned char[]> taken(new unsigned char[count]());
  cv::Point2f currentMatch(0.0f, 0.0f);  // kept from corner to corner on purpose
  for (size_t i = 0; i < count; ++i) {
    const int best = NearestCorner(first[i], firstStats, second, secondStats, searched);
    if (best == -1) {
      std::puts("missed");
    } else {
      currentMatch = second[best];
      if (taken[best]) {
        std::puts("multiple shoot");
      } else {
        taken[best] = 1;
      }
    }
    matched1.push_back(first[i]);
    matched2.push_back(currentMatch);
  }
  return 1;
}

// corners (one board listed row by row) in the main list's order under order.
std::vector<cv::Point2f> Reordered(const std::vector<cv::Point2f>& corners, cv::Size patternSize,
                                   const GridOrder& order) {
  const int w = patternSize.width, h = patternSize.height;
  std::vector<cv::Point2f> reordered;
  reordered.reserve(corners.size());
  for (int i = 0; i < h; ++i) {
    for (int j = 0; j < w; ++j) {
      int row = order.transposed ? j : i;
      int column = order.transposed ? i : j;
      if (order.rowsReversed) row = h - 1 - row;
      if (order.columnsReversed) column = w - 1 - column;
      reordered.push_back(corners[row * w + column]);
    }
  }
  return reordered;
}

cv::Point2d Mapped(const cv::Matx33d& H, const cv::Point2f& point) {
  const double s = H(2, 0) * point.x + H(2, 1) * point.y + H(2, 2);
  return {(H(0, 0) * point.x + H(0, 1) * point.y + H(0, 2)) / s, (H(1, 0) * point.x + H(1, 1) * point.y + H(1, 2)) / s};
}

// How far the homography's local map at point is from one that only scales
// and shifts: the trace of its Jacobian over twice the root of its
// determinant's magnitude, which is the cosine of the turn for a similarity
// and 0 for a mirror image.
double Agreement(const cv::Matx33d& H, const cv::Point2f& point) {
  const double s = H(2, 0) * point.x + H(2, 1) * point.y + H(2, 2);
  const cv::Point2d m = Mapped(H, point);
  const double j00 = (H(0, 0) - m.x * H(2, 0)) / s, j01 = (H(0, 1) - m.x * H(2, 1)) / s;
  const double j10 = (H(1, 0) - m.y * H(2, 0)) / s, j11 = (H(1, 1) - m.y * H(2, 1)) / s;
  const double scale = std::sqrt(std::fabs(j00 * j11 - j01 * j10));
  return scale > 0.0 ? (j00 + j11) / (2.0 * scale) : -2.0;
}

double ResidualPx(const cv::Matx33d& H, const std::vector<cv::Point2f>& from, const std::vector<cv::Point2f>& to) {
  double sum = 0.0;
  for (size_t k = 0; k < to.size(); ++k) {
    const cv::Point2d d = Mapped(H, from[k]) - cv::Point2d(to[k]);
    sum += d.dot(d);
  }
  return std::sqrt(sum / static_cast<double>(to.size()));
}

// The sign of the area of the grid's outline (corners listed row by row):
// both cameras see the board's front, so a pairing that flips it pairs the
// board with its mirror image.
bool CounterClockwise(const std::vector<cv::Point2f>& corners, cv::Size patternSize) {
  const int w = patternSize.width, h = patternSize.height;
  const cv::Point2f outline[4] = {corners[0], corners[w - 1], corners[h * w - 1], corners[(h - 1) * w]};
  double twiceArea = 0.0;
  for (int k = 0; k < 4; ++k) twiceArea += outline[k].cross(outline[(k + 1) % 4]);
  return twiceArea > 0.0;
}

double PatchMean(const cv::Mat& image, const std::vector<cv::Point2f>& corners, int w, int row, int column) {
  const cv::Point2f centre = 0.25f * (corners[row * w + column] + corners[row * w + column + 1] +
                                      corners[(row + 1) * w + column] + corners[(row + 1) * w + column + 1]);
  cv::Mat patch;
  cv::getRectSubPix(image, cv::Size(kColourPatchPx, kColourPatchPx), centre, patch, CV_32F);
  return cv::mean(patch)[0];
}

// Whether the grid's first square (between its first two rows and columns)
// is darker than the square next to it: -1 for a board too small to tell.
int FirstSquareDark(const cv::Mat& image, const std::vector<cv::Point2f>& corners, cv::Size patternSize) {
  const int w = patternSize.width, h = patternSize.height;
  if (w < 3 && h < 3) return -1;
  const double first = PatchMean(image, corners, w, 0, 0);
  const double next = w >= 3 ? PatchMean(image, corners, w, 0, 1) : PatchMean(image, corners, w, 1, 0);
  return first < next ? 1 : 0;
}

}  // namespace

GridPairing dualCalibration::matchCornerGridOrder(const std::vector<cv::Point2f>& corners1,
                                                  const std::vector<cv::Point2f>& corners2, cv::Size patternSize,
                                                  const cv::Mat& image1, const cv::Mat& image2,
                                                  std::vector<cv::Point2f>& matched1,
                                                  std::vector<cv::Point2f>& matched2) const {
  GridPairing best;
  const size_t count = static_cast<size_t>(patternSize.area());
  if (patternSize.width < 2 || patternSize.height < 2 || corners1.size() != count || corners2.size() != count) {
    return best;
  }
  const cv::Point2f centre = std::accumulate(corners1.begin(), corners1.end(), cv::Point2f()) * (1.0f / count);
  const bool handedness = CounterClockwise(corners1, patternSize);
  const bool withColour = !image1.empty() && !image2.empty();
  const int firstDark = withColour ? FirstSquareDark(image1, corners1, patternSize) : -1;
  const int orders = patternSize.width == patternSize.height ? kGridOrdersSquare : kGridOrdersRectangular;
  std::vector<cv::Point2f> bestOrder;
  double runnerUp = -std::numeric_limits<double>::infinity();
  for (int k = 0; k < orders; ++k) {
    std::vector<cv::Point2f> candidate = Reordered(corners2, patternSize, kGridOrders[k]);
    if (CounterClockwise(candidate, patternSize) != handedness) continue;
    if (firstDark != -1 && FirstSquareDark(image2, candidate, patternSize) != firstDark) continue;
    const cv::Mat H = cv::findHomography(corners1, candidate, 0);
    if (H.empty()) continue;
    const double agreement = Agreement(cv::Matx33d(H), centre);
    if (best.order != -1 && !(agreement > best.agreement)) {
      runnerUp = std::max(runnerUp, agreement);
      continue;
    }
    if (best.order != -1) runnerUp = std::max(runnerUp, best.agreement);
    best = {k, ResidualPx(cv::Matx33d(H), corners1, candidate), agreement, false};
    bestOrder = std::move(candidate);
  }
  if (best.order == -1) return best;
  const bool open = runnerUp > -std::numeric_limits<double>::infinity();
  if (open && (best.agreement < kMinOpenAgreement || best.agreement - runnerUp < kAgreementMargin)) {
    return {-1, 0.0, best.agreement, true};
  }
  matched1.insert(matched1.end(), corners1.begin(), corners1.end());
  matched2.insert(matched2.end(), bestOrder.begin(), bestOrder.end());
  return best;
}

int dualCalibration::matchCornerOrder(std::vector<cv::Point2f> corners1, std::vector<cv::Point2f> corners2,
                                      std::vector<cv::Point2f>& matched1, std::vector<cv::Point2f>& matched2) {
  return MatchCorners(corners1, corners2, matched1, matched2);
}

int dualCalibration::matchStoredCornerOrder() {
  return MatchCorners(mCorners1, mCorners2, mMatchedCorners1, mMatchedCorners2);
}
