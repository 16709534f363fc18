// 4:2:0 test images with their own planes, for the YUV warp kernels.
#pragma once

#include <cstdint>
#include <vector>

#include "distortion/CDistortionFilter.h"

// A 4:2:0 image with its planes sized exactly as the source samplers read them, or as a warp writes them
// (target), so any stray access is caught.
struct YuvPlanes {
  int width = 0, height = 0;
  std::vector<uint8_t> luma, chroma;

  YuvImage Image() { return YuvImage{0, luma.data(), chroma.data(), width, height}; }
};

// Planes of exactly the bytes a warp writes into a target of this size, every byte set to fill.
YuvPlanes WarpTarget(int width, int height, uint8_t fill);
