#include <gtest/gtest.h>

#include <memory>

#include "engine/dualCalibration.h"

namespace {

struct SwitchCase {
  const char* name;
  int expectedBit;
};

constexpr SwitchCase kMonoSwitches[] = {
    {"nMonoCalibUseIntrinsicGuess", 1}, {"nMonoCalibFixAspectRatio", 2}, {"nMonoCalibFixPrincipalPoint", 4},
    {"nMonoCalibZeroTangentDist", 8},   {"nMonoCalibFixFocalLength", 16}, {"nMonoCalibFixK1", 32},
    {"nMonoCalibFixK2", 64},            {"nMonoCalibFixK3", 128},         {"nMonoCalibFixK4", 2048},
    {"nMonoCalibFixK5", 4096},          {"nMonoCalibFixK6", 8192},        {"nMonoCalibRationalModel", 16384},
};

constexpr SwitchCase kStereoSwitches[] = {
    {"nDualCalibUseIntrinsicGuess", 1}, {"nDualCalibFixAspectRatio", 2}, {"nDualCalibFixPrincipalPoint", 4},
    {"nDualCalibZeroTangentDist", 8},   {"nDualCalibFixFocalLength", 16}, {"nDualCalibFixK1", 32},
    {"nDualCalibFixK2", 64},            {"nDualCalibFixK3", 128},         {"nDualCalibFixIntrinsic", 256},
    {"nDualCalibSameFocalLength", 512}, {"nDualCalibFixK4", 2048},        {"nDualCalibFixK5", 4096},
    {"nDualCalibFixK6", 8192},          {"nDualCalibRationalModel", 16384},
};

void SetSwitch(dualCalibration& engine, const char* name, int value) {
  const FilterParameter* parameter = engine.mParameterList.Find(name);
  ASSERT_NE(parameter, nullptr) << name;
  *parameter->value = value;
}

}  // namespace

TEST(CalibrationFlags, EachMonoSwitchAddsItsFlag) {
  for (const SwitchCase& c : kMonoSwitches) {
    SCOPED_TRACE(c.name);
    auto engine = std::make_unique<dualCalibration>();
    EXPECT_EQ(engine->monoCalibrationFlags(), 0);
    SetSwitch(*engine, c.name, 1);
    EXPECT_EQ(engine->monoCalibrationFlags(), c.expectedBit);
    EXPECT_EQ(engine->stereoCalibrationFlags(), 0);
    SetSwitch(*engine, c.name, 3);
    EXPECT_EQ(engine->monoCalibrationFlags(), 3 * c.expectedBit);
  }
}

TEST(CalibrationFlags, EachStereoSwitchAddsItsFlag) {
  for (const SwitchCase& c : kStereoSwitches) {
    SCOPED_TRACE(c.name);
    auto engine = std::make_unique<dualCalibration>();
    SetSwitch(*engine, c.name, 1);
    EXPECT_EQ(engine->stereoCalibrationFlags(), c.expectedBit);
    EXPECT_EQ(engine->monoCalibrationFlags(), 0);
  }
}

TEST(CalibrationFlags, AllSwitchesOn) {
  auto engine = std::make_unique<dualCalibration>();
  for (const SwitchCase& c : kMonoSwitches) SetSwitch(*engine, c.name, 1);
  EXPECT_EQ(engine->monoCalibrationFlags(), 30975);
  for (const SwitchCase& c : kStereoSwitches) SetSwitch(*engine, c.name, 1);
  EXPECT_EQ(engine->stereoCalibrationFlags(), 31743);
}
