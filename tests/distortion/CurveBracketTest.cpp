#include "distortion/CurveBracket.h"

#include "tests/support/TestPrelude.h"

namespace {

// Radius tables of random radial models (barrel, pincushion, and ones that fold back, which are not
// bisectable), scaled so that the upper end lies anywhere from 1e-20 to 1e4.
CurveTable RandomRadiusTable(std::mt19937& random) {
  std::uniform_real_distribution<float> k(-0.5f, 0.5f), exponent(-20.0f, 4.0f);
  const float k1 = k(random), k2 = k(random), k3 = k(random), reach = std::pow(10.0f, exponent(random));
  CurveTable xs{};
  for (int i = 0; i < kCurveSize; ++i) {
    const float r = 1.5f * static_cast<float>(i) / kCurveSize, r2 = r * r;
    xs[i] = reach * r * (1.0f + k1 * r2 + k2 * r2 * r2 + k3 * r2 * r2 * r2);
  }
  return xs;
}

// The values where a bracket can change: every entry, its neighbouring floats, the midpoints, and NaN.
std::vector<float> ProbesOf(const CurveTable& xs) {
  std::vector<float> probes{std::numeric_limits<float>::quiet_NaN()};
  const float inf = std::numeric_limits<float>::infinity();
  for (int i = 0; i < kCurveSize; ++i) {
    for (const float x : {xs[i], std::nextafter(xs[i], -inf), std::nextafter(xs[i], inf)})
      if (x >= xs[0] && x <= xs[kCurveSize - 1]) probes.push_back(x);
    if (i + 1 < kCurveSize) probes.push_back(xs[i] + (xs[i + 1] - xs[i]) / 2.0f);
  }
  return probes;
}

TEST(CurveBracket, BisectionFindsTheScansIntervalOnEveryBisectableTable) {
  std::mt19937 random(11);
  int bisectable = 0, refused = 0;
  for (int trial = 0; trial < 200; ++trial) {
    const CurveTable xs = RandomRadiusTable(random);
    ++(Bisectable(xs) ? bisectable : refused);
    for (const float x : Bisectable(xs) ? ProbesOf(xs) : std::vector<float>()) {
      ASSERT_EQ(BisectBracket(xs, x), FirstBracket(xs, x, kCurveSize)) << trial << " " << x;
      ASSERT_EQ(BisectBracket(xs, x), FirstBracket(xs, x, kCurveSize - 1)) << trial << " " << x;
    }
  }
  EXPECT_GT(bisectable, 50);
  EXPECT_GT(refused, 20);
}

// Tables the scan answers differently from bisection: a product of two positive differences that rounds to zero
// brackets early; a repeated entry and a fold make the order wrong; a NaN first entry never brackets.
TEST(CurveBracket, RefusesTablesWhereTheScanDiffers) {
  CurveTable tiny{}, even{};
  for (int i = 0; i < kCurveSize; ++i) tiny[i] = 1e-30f * static_cast<float>(i), even[i] = static_cast<float>(i);
  EXPECT_EQ(FirstBracket(tiny, tiny[500], kCurveSize), 0);  // (5e-28 * 4.99e-28) rounds to 0
  CurveTable flat = even, folded = even, nanFirst = even;
  flat[300] = flat[299];
  folded[700] = 10.0f, nanFirst[0] = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(std::vector<bool>({Bisectable(tiny), Bisectable(flat), Bisectable(folded), Bisectable(nanFirst), Bisectable(even)}),
            std::vector<bool>({false, false, false, false, true}));
}

}  // namespace
