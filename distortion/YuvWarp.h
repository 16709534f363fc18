// The undistort-and-rectify warps of a 4:2:0 image (CDistortionFilter's
// image kernels, implemented in YuvWarp.cpp) and the plane sizes they write.
#pragma once

#include <cstdint>
#include <vector>

class CDistortionFilter;
struct YuvImage;

// Bytes a warp writes into a target luma plane of the given size.
int64_t WarpLumaBytes(int32_t width, int32_t height);
// Bytes a warp writes into a target chroma plane of the given luma size:
// (height + 1) / 2 rows of stride width, and with an odd width one byte
// more, which the last pair of the last row spills past it.
int64_t WarpChromaBytes(int32_t width, int32_t height);

// The vector forms of the radial warp's rows: four lanes that each load
// their own neighbours; four lanes that share their row loads (SSSE3 on
// x86-64, NEON on AArch64); eight lanes (AVX2); sixteen lanes (AVX-512).
// Every form writes the bytes of the plain per-pixel loop.
enum class WarpKernel { kLanes4, kShared4, kShared8, kShared16 };

// The forms this processor runs, fastest first.
std::vector<WarpKernel> SupportedWarpKernels();

// CDistortionFilter::WarpYuvImageRadial with the given form, one of
// SupportedWarpKernels(); that function uses the first.
void WarpYuvImageRadialWith(WarpKernel kernel, const CDistortionFilter& filter, const YuvImage& source,
                            const YuvImage& target, const float (&sourceCamera)[9], const float (&targetCamera)[9],
                            const float (&rotation)[9], float* zoom);
