#include "station/HealthVerdict.h"

#include <cstdio>

HealthBand HealthOf(double rowErrorP95, const HealthLimits& limits) {
  if (rowErrorP95 <= limits.goodPx) return HealthBand::kGood;
  if (rowErrorP95 <= limits.improvablePx) return HealthBand::kImprovable;
  return HealthBand::kRecalibrate;
}

const char* HealthName(HealthBand band) {
  switch (band) {
    case HealthBand::kGood: return "good";
    case HealthBand::kImprovable: return "improvable";
    case HealthBand::kRecalibrate: return "recalibrate";
  }
  return "";
}

std::string HealthLine(double rowErrorP95, const HealthLimits& limits) {
  char line[160];
  std::snprintf(line, sizeof line, "%s: row error p95 %.3f px (good <= %g, improvable <= %g)",
                HealthName(HealthOf(rowErrorP95, limits)), rowErrorP95, limits.goodPx, limits.improvablePx);
  return line;
}
