// Corner quality from the grid neighbours, and the corners it rejects.
#include "chart/CornerQuality.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

// Board offsets and image positions of the usable corners of the 3 x 3
// block around (row, column), shifted inside the grid, the corner itself left out.
void Neighbours(const std::vector<cv::Point2f>& corners, cv::Size patternSize, const std::vector<bool>& excluded,
                int row, int column, std::vector<cv::Point2d>& offsets, std::vector<cv::Point2d>& positions) {
  const int w = patternSize.width, h = patternSize.height;
  const int top = std::clamp(row - 1, 0, std::max(h - 3, 0)), left = std::clamp(column - 1, 0, std::max(w - 3, 0));
  for (int r = top; r < std::min(top + 3, h); ++r) {
    for (int c = left; c < std::min(left + 3, w); ++c) {
      const size_t k = static_cast<size_t>(r * w + c);
      if ((r == row && c == column) || (k < excluded.size() && excluded[k])) continue;
      offsets.emplace_back(c - column, r - row);
      positions.emplace_back(corners[k].x, corners[k].y);
    }
  }
}

// The fitted map's value at the corner's own offset (0, 0): quadratic with
// six or more neighbours, affine with three to five.
cv::Point2d Predicted(const std::vector<cv::Point2d>& offsets, const std::vector<cv::Point2d>& positions) {
  const int terms = offsets.size() >= 6 ? 6 : 3;
  cv::Mat design(static_cast<int>(offsets.size()), terms, CV_64F), targets(static_cast<int>(offsets.size()), 2, CV_64F);
  for (int i = 0; i < design.rows; ++i) {
    const double u = offsets[i].x, v = offsets[i].y;
    const double row[6] = {1.0, u, v, u * u, u * v, v * v};
    for (int j = 0; j < terms; ++j) design.at<double>(i, j) = row[j];
    targets.at<double>(i, 0) = positions[i].x;
    targets.at<double>(i, 1) = positions[i].y;
  }
  cv::Mat solution;
  cv::solve(design, targets, solution, cv::DECOMP_SVD);
  return {solution.at<double>(0, 0), solution.at<double>(0, 1)};
}

// Distance of middle from the chord through a and b.
float ChordDistance(const cv::Point2f& a, const cv::Point2f& middle, const cv::Point2f& b) {
  const float chord = static_cast<float>(cv::norm(b - a));
  return chord > 0.0f ? static_cast<float>(std::abs((b - a).cross(middle - a))) / chord : 0.0f;
}

}  // namespace

float GridBendPx(const std::vector<cv::Point2f>& corners, cv::Size patternSize, int k) {
  const int w = patternSize.width, h = patternSize.height, row = k / w, column = k % w;
  float bend = 0.0f;
  if (w >= 3) {
    const int c = std::clamp(column, 1, w - 2);
    bend = ChordDistance(corners[row * w + c - 1], corners[row * w + c], corners[row * w + c + 1]);
  }
  if (h >= 3) {
    const int r = std::clamp(row, 1, h - 2);
    bend = std::max(
        bend, ChordDistance(corners[(r - 1) * w + column], corners[r * w + column], corners[(r + 1) * w + column]));
  }
  return bend;
}

float UpperMedian(std::vector<float> values) {
  if (values.empty()) return 0.0f;
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  return values[values.size() / 2];
}

float ShortestSquareSide(const std::vector<cv::Point2f>& corners, cv::Size patternSize, int k) {
  const int w = patternSize.width, row = k / w, column = k % w;
  float shortest = std::numeric_limits<float>::max();
  for (const cv::Point step : {cv::Point(1, 0), cv::Point(-1, 0), cv::Point(0, 1), cv::Point(0, -1)}) {
    const int r = row + step.y, c = column + step.x;
    if (r < 0 || r >= patternSize.height || c < 0 || c >= w) continue;
    shortest = std::min(shortest, static_cast<float>(cv::norm(corners[r * w + c] - corners[k])));
  }
  return shortest;
}

std::vector<float> CornerNeighbourResiduals(const std::vector<cv::Point2f>& corners, cv::Size patternSize,
                                            const std::vector<bool>& excluded) {
  std::vector<float> residuals(corners.size(), 0.0f);
  if (patternSize.width < 1 || corners.size() != static_cast<size_t>(patternSize.area())) return residuals;
  std::vector<cv::Point2d> offsets, positions;
  for (int k = 0; k < static_cast<int>(corners.size()); ++k) {
    offsets.clear(), positions.clear();
    Neighbours(corners, patternSize, excluded, k / patternSize.width, k % patternSize.width, offsets, positions);
    if (offsets.size() < 3) continue;
    const cv::Point2d found(corners[k].x, corners[k].y);
    residuals[k] = static_cast<float>(cv::norm(Predicted(offsets, positions) - found));
  }
  return residuals;
}

std::vector<int32_t> UnlocatedCorners(const std::vector<cv::Point2f>& corners, cv::Size patternSize) {
  std::vector<int32_t> unlocated;
  if (patternSize.width < 1 || corners.size() != static_cast<size_t>(patternSize.area())) return unlocated;
  std::vector<bool> excluded(corners.size(), false);
  while (unlocated.size() < corners.size()) {
    const std::vector<float> residuals = CornerNeighbourResiduals(corners, patternSize, excluded);
    std::vector<float> kept;
    for (size_t k = 0; k < corners.size(); ++k) {
      if (!excluded[k]) kept.push_back(residuals[k]);
    }
    const double medianLimit = kUnlocatedMedianFactor * UpperMedian(kept);
    int worst = -1;
    double worstExcess = 1.0;
    for (int k = 0; k < static_cast<int>(corners.size()); ++k) {
      if (excluded[k]) continue;
      const double limit = std::max(medianLimit, kUnlocatedSquareShare * ShortestSquareSide(corners, patternSize, k));
      if (limit > 0.0 && residuals[k] / limit > worstExcess) worst = k, worstExcess = residuals[k] / limit;
    }
    if (worst < 0) break;
    excluded[worst] = true;
    unlocated.push_back(worst);
  }
  return unlocated;
}
