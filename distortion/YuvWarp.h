// The undistort-and-rectify warps of a 4:2:0 image (CDistortionFilter's
// image kernels, implemented in YuvWarp.cpp) and the plane sizes they write.
#pragma once

#include <cstdint>

// Bytes a warp writes into a target luma plane of the given size.
int64_t WarpLumaBytes(int32_t width, int32_t height);
// Bytes a warp writes into a target chroma plane of the given luma size:
// (height + 1) / 2 rows of stride width, and with an odd width one byte
// more, which the last pair of the last row spills past it.
int64_t WarpChromaBytes(int32_t width, int32_t height);
