// Pairing of the second view's corners with the main view's by position.
#include <algorithm>
#include <cstdio>
#include <memory>

#include "engine/dualCalibration.h"

namespace {

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

}  // namespace

int dualCalibration::matchCornerOrder(std::vector<cv::Point2f> corners1, std::vector<cv::Point2f> corners2,
                                      std::vector<cv::Point2f>& matched1, std::vector<cv::Point2f>& matched2) {
  return MatchCorners(corners1, corners2, matched1, matched2);
}

int dualCalibration::matchStoredCornerOrder() {
  return MatchCorners(mCorners1, mCorners2, mMatchedCorners1, mMatchedCorners2);
}
