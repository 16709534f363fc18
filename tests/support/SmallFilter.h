// A minimal concrete filter with two parameters, for framework tests.
#pragma once

#include <cstdint>

#include "framework/CFilter.h"

class SmallFilter final : public CFilter {
 public:
  explicit SmallFilter(const char* name) { SetName(name); }
  ~SmallFilter() = default;

  bool Initialize() override {
    ++initializeCalls;
    mParameterList.AddParameter("nGain", &gain, 0, 10, nullptr);
    gain = 1;
    mParameterList.AddParameter("nBias", &bias, -10, 10, "offset");
    bias = 0;
    return true;
  }

  int32_t gain = 0;
  int32_t bias = 0;
  int initializeCalls = 0;
};
