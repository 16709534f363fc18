// The output-to-input pixel mapping of the radial YUV warp, shared by its
// plain loop (YuvWarp.cpp) and its vector row kernels (WarpRows.h), which
// are compiled once per instruction set. The functions here have internal
// linkage, so every translation unit keeps the copy built for its own
// instruction set and none replaces another's at link time.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>

#include "distortion/CDistortionFilter.h"

// Per-call constants of the mapping.
struct PixelMapping {
  float targetFx, targetFy, targetCx, targetCy;
  float placeX, placeY, placeScale;  // sourceTransform
  float zoom;
  float m[9];
  float fx, fy, cx, cy;
  float offsetX, offsetY, scale;  // forwardTransform
};

// The radial model's coefficients: 1 + k1 r^2 + k2 r^4 + k3 r^6.
struct RadialFactor {
  float k1, k2, k3;
};

// The rotation's products with each output column's normalised coordinate
// (m0 xn, m3 xn, m6 xn), computed once per call.
struct ColumnTerms {
  const float *m0, *m3, *m6;
};

// Normalised target coordinate of output column or row t. The centre is
// added back and taken away again, which only affects rounding.
static inline float NormalisedOutput(float t, float centre, float place, float placeScale, float zoom,
                                     float focal) {
  const float a = ((t - centre) * placeScale + place + centre) - centre;
  return (a / zoom) / focal;
}

static inline float FactorAt(const RadialFactor& k, float r) {
  const float r2 = r * r;
  const float r4 = r2 * r2;
  const float r6 = r4 * r2;
  return 1.0f + k.k1 * r2 + k.k2 * r4 + k.k3 * r6;
}

// The factor looked up in a curve's radius table.
struct TableFactor {
  const CurveTable& radius;
  const CurveTable& scale;
};

static inline float FactorAt(const TableFactor& table, float r) {
  return CDistortionFilter::InterpolateCurve(table.radius, table.scale, r);
}

// Maps output pixel (x, y) to the source: normalise, rotate as stored,
// distort by the factor at the rotated radius, project and place.
template <typename Factor>
static inline void MapPixel(const PixelMapping& p, const Factor& factor, int x, int y, float* sx, float* sy) {
  const float xn = NormalisedOutput(static_cast<float>(x), p.targetCx, p.placeX, p.placeScale, p.zoom, p.targetFx);
  const float yn = NormalisedOutput(static_cast<float>(y), p.targetCy, p.placeY, p.placeScale, p.zoom, p.targetFy);
  const float d = p.m[6] * xn + p.m[7] * yn + p.m[8];
  const float rx = (p.m[0] * xn + p.m[1] * yn + p.m[2]) / d;
  const float ry = (p.m[3] * xn + p.m[4] * yn + p.m[5]) / d;
  const float f = FactorAt(factor, std::sqrt(rx * rx + ry * ry));
  *sx = (p.cx + p.fx * rx * f) / p.scale - p.offsetX;
  *sy = (p.cy + p.fy * ry * f) / p.scale - p.offsetY;
}

static inline uint8_t* ChromaPair(const YuvImage& target, int x, int y) {
  return target.chroma + static_cast<ptrdiff_t>(y >> 1) * target.width + (x & ~1);
}

// A chroma pair's last writer: the odd column of the pair, or the last
// column when the pair has no odd column; the same for rows.
static inline bool LastWriter(int t, int size) { return (t & 1) != 0 || t == size - 1; }

#if defined(__x86_64__)
// The vector rows of the radial warp built for one x86-64 instruction set
// each (YuvWarpSsse3.cpp, YuvWarpAvx2.cpp, YuvWarpAvx512.cpp); call one only
// where the processor has its instructions.
void WarpRowsSsse3(const YuvImage& source, const YuvImage& target, const PixelMapping& mapping,
                   const RadialFactor& factor, const ColumnTerms& columns);
void WarpRowsAvx2(const YuvImage& source, const YuvImage& target, const PixelMapping& mapping,
                  const RadialFactor& factor, const ColumnTerms& columns);
void WarpRowsAvx512(const YuvImage& source, const YuvImage& target, const PixelMapping& mapping,
                    const RadialFactor& factor, const ColumnTerms& columns);
#endif
