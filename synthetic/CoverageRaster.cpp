#include "synthetic/CoverageRaster.h"

#include <algorithm>
#include <cmath>

double SignedArea(const std::vector<cv::Point2d>& polygon) {
  double twiceArea = 0.0;
  for (size_t i = 0; i < polygon.size(); ++i) {
    const cv::Point2d& a = polygon[i];
    const cv::Point2d& b = polygon[(i + 1) % polygon.size()];
    twiceArea += a.x * b.y - b.x * a.y;
  }
  return 0.5 * twiceArea;
}

CoverageRaster::CoverageRaster(cv::Size size) : size_(size), cells_(size.height, size.width + 2, CV_32F, 0.0f) {}

void CoverageRaster::AddPolygon(const std::vector<cv::Point2d>& polygon) {
  const double direction = SignedArea(polygon) < 0.0 ? -1.0 : 1.0;
  const cv::Point2d toCellCorner(0.5, 0.5);
  for (size_t i = 0; i < polygon.size(); ++i) {
    AddEdge(polygon[i] + toCellCorner, polygon[(i + 1) % polygon.size()] + toCellCorner, direction);
  }
}

// Splits the edge where it leaves [0, width] and moves the outer pieces onto
// the image's sides: left of the image an edge covers the whole row to its
// right, right of it nothing.
void CoverageRaster::AddEdge(const cv::Point2d& from, const cv::Point2d& to, double direction) {
  const double width = size_.width;
  std::vector<double> cuts = {0.0, 1.0};
  for (const double side : {0.0, width}) {
    const double t = (side - from.x) / (to.x - from.x);
    if (t > 0.0 && t < 1.0) cuts.push_back(t);
  }
  std::sort(cuts.begin(), cuts.end());
  for (size_t k = 0; k + 1 < cuts.size(); ++k) {
    cv::Point2d a = from + (to - from) * cuts[k], b = from + (to - from) * cuts[k + 1];
    if (k == 0) a = from;
    if (k + 2 == cuts.size()) b = to;
    const double midX = 0.5 * (a.x + b.x);
    if (midX <= 0.0 || midX >= width) a.x = b.x = std::clamp(midX, 0.0, width);
    AddInsideEdge(a, b, direction);
  }
}

// The accumulation step for an edge with both ends in [0, width] (in cell
// coordinates, where cell x covers [x, x + 1)).
void CoverageRaster::AddInsideEdge(cv::Point2d from, cv::Point2d to, double direction) {
  if (from.y == to.y) return;
  if (from.y > to.y) std::swap(from, to), direction = -direction;
  const double width = size_.width;
  const double slope = (to.x - from.x) / (to.y - from.y);
  const int firstRow = std::max(0, static_cast<int>(std::floor(from.y)));
  const int endRow = std::min(size_.height, static_cast<int>(std::ceil(to.y)));
  double x = from.x + (firstRow > from.y ? (firstRow - from.y) * slope : 0.0);
  for (int y = firstRow; y < endRow; ++y) {
    float* row = cells_.ptr<float>(y);
    const double dy = std::min(y + 1.0, to.y) - std::max(static_cast<double>(y), from.y);
    const double xNext = x + slope * dy;
    const double d = dy * direction;
    // Both ends stay in [0, width] but for rounding, which must not reach a cell outside the row.
    const double xa = std::clamp(x, 0.0, width), xb = std::clamp(xNext, 0.0, width);
    const double x0 = std::min(xa, xb), x1 = std::max(xa, xb);
    const int x0i = static_cast<int>(std::floor(x0));
    const int x1i = static_cast<int>(std::ceil(x1));
    if (x1i <= x0i + 1) {
      const double middle = 0.5 * (xa + xb) - x0i;
      row[x0i] += static_cast<float>(d - d * middle);
      row[x0i + 1] += static_cast<float>(d * middle);
    } else {
      const double s = 1.0 / (x1 - x0);
      const double x0f = x0 - x0i;
      const double a0 = 0.5 * s * (1.0 - x0f) * (1.0 - x0f);
      const double x1f = x1 - x1i + 1.0;
      const double am = 0.5 * s * x1f * x1f;
      row[x0i] += static_cast<float>(d * a0);
      if (x1i == x0i + 2) {
        row[x0i + 1] += static_cast<float>(d * (1.0 - a0 - am));
      } else {
        const double a1 = s * (1.5 - x0f);
        row[x0i + 1] += static_cast<float>(d * (a1 - a0));
        for (int xi = x0i + 2; xi < x1i - 1; ++xi) row[xi] += static_cast<float>(d * s);
        const double a2 = a1 + (x1i - x0i - 3) * s;
        row[x1i - 1] += static_cast<float>(d * (1.0 - a2 - am));
      }
      row[x1i] += static_cast<float>(d * am);
    }
    x = xNext;
  }
}

cv::Mat CoverageRaster::Coverage() const {
  cv::Mat coverage(size_, CV_32F);
  for (int y = 0; y < size_.height; ++y) {
    const float* cells = cells_.ptr<float>(y);
    float* row = coverage.ptr<float>(y);
    double sum = 0.0;
    for (int x = 0; x < size_.width; ++x) {
      sum += cells[x];
      row[x] = static_cast<float>(std::min(1.0, std::abs(sum)));
    }
  }
  return coverage;
}
