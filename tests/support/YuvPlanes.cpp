#include "tests/support/YuvPlanes.h"

#include "distortion/YuvWarp.h"

YuvPlanes WarpTarget(int width, int height, uint8_t fill) {
  return YuvPlanes{width, height, std::vector<uint8_t>(static_cast<size_t>(WarpLumaBytes(width, height)), fill),
                   std::vector<uint8_t>(static_cast<size_t>(WarpChromaBytes(width, height)), fill)};
}
