// Feeds arbitrary bytes to the engine's parameter-section loader through a
// memory stream, the way INIT reads a caller's parameter file.
#include <cstdint>
#include <cstdio>

#include "engine/dualCalibration.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // The loader's messages would drown the fuzzer's own report.
  return std::freopen("/dev/null", "w", stdout) != nullptr ? 0 : 1;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static auto* engine = new dualCalibration;
  if (size == 0) return 0;
  FILE* stream = fmemopen(const_cast<uint8_t*>(data), size, "r");
  if (stream == nullptr) return 0;
  engine->LoadParameters(stream);
  std::fclose(stream);
  return 0;
}
