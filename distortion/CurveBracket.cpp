#include "distortion/CurveBracket.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "distortion/Float4.h"

int FirstBracket(const CurveTable& xs, float x, int intervals) {
  using namespace float4;
  for (int k = 0; k < intervals; k += 4) {
    const F4 products = (x - Load4(&xs[k])) * (x - Load4(&xs[k + 1]));
    const int lane = FirstSetLane(products <= Splat(0.0f));
    if (lane >= 0) return k + lane < intervals ? k + lane : -1;
  }
  return -1;
}

bool Bisectable(const CurveTable& xs) {
  if (!std::isfinite(xs[0]) || !(xs[1] > 0.0f)) return false;
  float smallestGap = std::numeric_limits<float>::infinity();
  for (int k = 0; k + 1 < kCurveSize; ++k) {
    if (!std::isfinite(xs[k + 1])) return false;
    smallestGap = std::min(smallestGap, xs[k + 1] - xs[k]);
  }
  // A gap of zero or below (a repeated entry, a fold) fails the bound too.
  const float spacing = std::nextafter(xs[1], std::numeric_limits<float>::infinity()) - xs[1];
  return static_cast<double>(smallestGap) * static_cast<double>(spacing) >= 0x1p-126;
}

int BisectBracket(const CurveTable& xs, float x) {
  if (std::isnan(x)) return -1;
  const float* upperEnds = xs.data() + 1;
  return static_cast<int>(std::lower_bound(upperEnds, upperEnds + (kCurveSize - 1), x) - upperEnds);
}
