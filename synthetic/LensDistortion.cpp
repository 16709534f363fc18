#include "synthetic/LensDistortion.h"

#include <cmath>

namespace {

constexpr int kNewtonSteps = 50;
constexpr double kNewtonTolerance = 1e-14;
constexpr double kRadiusStep = 1e-3;

double RadialFactor(const DistortionCoefficients& d, double r2) {
  const double numerator = 1.0 + r2 * (d[0] + r2 * (d[1] + r2 * d[4]));
  const double denominator = 1.0 + r2 * (d[5] + r2 * (d[6] + r2 * d[7]));
  return numerator / denominator;
}

// The 2x2 Jacobian of DistortNormalised at p by central differences.
cv::Matx22d Jacobian(const DistortionCoefficients& d, const cv::Point2d& p) {
  constexpr double h = 1e-6;
  const cv::Point2d dx = DistortNormalised(d, {p.x + h, p.y}) - DistortNormalised(d, {p.x - h, p.y});
  const cv::Point2d dy = DistortNormalised(d, {p.x, p.y + h}) - DistortNormalised(d, {p.x, p.y - h});
  return cv::Matx22d(dx.x, dy.x, dx.y, dy.y) * (0.5 / h);
}

}  // namespace

bool HasDistortion(const DistortionCoefficients& coefficients) {
  for (int i = 0; i < DistortionCoefficients::channels; ++i) {
    if (coefficients[i] != 0.0) return true;
  }
  return false;
}

cv::Point2d DistortNormalised(const DistortionCoefficients& d, const cv::Point2d& p) {
  const double r2 = p.x * p.x + p.y * p.y;
  const double radial = RadialFactor(d, r2);
  const double xy = p.x * p.y;
  return {p.x * radial + 2.0 * d[2] * xy + d[3] * (r2 + 2.0 * p.x * p.x),
          p.y * radial + d[2] * (r2 + 2.0 * p.y * p.y) + 2.0 * d[3] * xy};
}

cv::Point2d UndistortNormalised(const DistortionCoefficients& d, const cv::Point2d& distorted) {
  cv::Point2d p = distorted;
  for (int step = 0; step < kNewtonSteps; ++step) {
    const cv::Point2d residual = DistortNormalised(d, p) - distorted;
    if (std::hypot(residual.x, residual.y) < kNewtonTolerance) break;
    const cv::Vec2d move = Jacobian(d, p).inv() * cv::Vec2d(residual.x, residual.y);
    p -= cv::Point2d(move[0], move[1]);
  }
  return p;
}

double MonotonicRadius(const DistortionCoefficients& d) {
  double previous = 0.0;
  for (double r = kRadiusStep; r <= kMaxNormalisedRadius; r += kRadiusStep) {
    const double image = r * RadialFactor(d, r * r);
    if (!(image > previous)) return r - kRadiusStep;
    previous = image;
  }
  return kMaxNormalisedRadius;
}
