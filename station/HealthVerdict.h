// A unit's calibration health in one word, from the 95th percentile of its
// rectified row error: depth and portrait blur hold where matching points
// share a row. Factory limits of this kind are commonly 0.5 px.
#pragma once

#include <string>

enum class HealthBand { kGood, kImprovable, kRecalibrate };

// Upper bounds of the first two bands, pixels; good <= improvable.
struct HealthLimits {
  double goodPx = 0.3;
  double improvablePx = 0.5;
};

// good up to goodPx, improvable up to improvablePx, recalibrate above (and
// for a percentile that is not a number).
HealthBand HealthOf(double rowErrorP95, const HealthLimits& limits);
// "good", "improvable", "recalibrate".
const char* HealthName(HealthBand band);
// "improvable: row error p95 0.412 px (good <= 0.3, improvable <= 0.5)".
std::string HealthLine(double rowErrorP95, const HealthLimits& limits);
