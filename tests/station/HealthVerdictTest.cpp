#include "station/HealthVerdict.h"

#include <cmath>

#include "tests/support/TestPrelude.h"

TEST(HealthVerdict, BandsCloseAtTheirLimitsAndNanIsRecalibrate) {
  const HealthLimits limits;
  EXPECT_EQ(HealthOf(0.3, limits), HealthBand::kGood);
  EXPECT_EQ(HealthOf(0.3000001, limits), HealthBand::kImprovable);
  EXPECT_EQ(HealthOf(0.5, limits), HealthBand::kImprovable);
  EXPECT_EQ(HealthOf(0.5000001, limits), HealthBand::kRecalibrate);
  EXPECT_EQ(HealthOf(std::nan(""), limits), HealthBand::kRecalibrate);
  EXPECT_EQ(HealthOf(0.2, {0.1, 0.25}), HealthBand::kImprovable);
  EXPECT_EQ(HealthLine(0.4123, limits), "improvable: row error p95 0.412 px (good <= 0.3, improvable <= 0.5)");
  EXPECT_EQ(HealthLine(0.05, {0.1, 0.25}), "good: row error p95 0.050 px (good <= 0.1, improvable <= 0.25)");
  EXPECT_EQ(HealthLine(1.5, limits), "recalibrate: row error p95 1.500 px (good <= 0.3, improvable <= 0.5)");
}
