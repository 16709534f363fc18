#include "distortion/YuvWarp.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <vector>

#include "distortion/CDistortionFilter.h"
#include "distortion/Float4.h"

namespace {

// Per-call constants of the output-to-input pixel mapping.
struct PixelMapping {
  float targetFx, targetFy, targetCx, targetCy;
  float placeX, placeY, placeScale;  // sourceTransform
  float zoom;
  float m[9];
  float fx, fy, cx, cy;
  float offsetX, offsetY, scale;  // forwardTransform
};

PixelMapping MakeMapping(const CDistortionFilter& filter, const float sourceCamera[9],
                         const float targetCamera[9], const float rotation[9], float zoom) {
  PixelMapping mapping{};
  mapping.targetFx = targetCamera[0];
  mapping.targetFy = targetCamera[4];
  mapping.targetCx = targetCamera[2];
  mapping.targetCy = targetCamera[5];
  mapping.placeX = filter.sourceTransform[0];
  mapping.placeY = filter.sourceTransform[1];
  mapping.placeScale = filter.sourceTransform[2];
  mapping.zoom = zoom;
  for (int i = 0; i < 9; ++i) mapping.m[i] = rotation[i];
  mapping.fx = sourceCamera[0];
  mapping.fy = sourceCamera[4];
  mapping.cx = sourceCamera[2];
  mapping.cy = sourceCamera[5];
  mapping.offsetX = filter.forwardTransform[0];
  mapping.offsetY = filter.forwardTransform[1];
  mapping.scale = filter.forwardTransform[2];
  return mapping;
}

// Normalised target coordinate of output column or row t. The centre is
// added back and taken away again, which only affects rounding.
float NormalisedOutput(float t, float centre, float place, float placeScale, float zoom, float focal) {
  const float a = ((t - centre) * placeScale + place + centre) - centre;
  return (a / zoom) / focal;
}

// The radial model evaluated directly: 1 + k1 r^2 + k2 r^4 + k3 r^6.
struct RadialFactor {
  float k1, k2, k3;
  float operator()(float r) const {
    const float r2 = r * r;
    const float r4 = r2 * r2;
    const float r6 = r4 * r2;
    return 1.0f + k1 * r2 + k2 * r4 + k3 * r6;
  }
};

// The factor looked up in a curve's radius table.
struct TableFactor {
  const CurveTable& radius;
  const CurveTable& scale;
  float operator()(float r) const { return CDistortionFilter::InterpolateCurve(radius, scale, r); }
};

// Maps output pixel (x, y) to the source: normalise, rotate as stored,
// distort by the factor at the rotated radius, project and place.
template <typename Factor>
void MapPixel(const PixelMapping& p, const Factor& factor, int x, int y, float* sx, float* sy) {
  const float xn = NormalisedOutput(static_cast<float>(x), p.targetCx, p.placeX, p.placeScale, p.zoom, p.targetFx);
  const float yn = NormalisedOutput(static_cast<float>(y), p.targetCy, p.placeY, p.placeScale, p.zoom, p.targetFy);
  const float d = p.m[6] * xn + p.m[7] * yn + p.m[8];
  const float rx = (p.m[0] * xn + p.m[1] * yn + p.m[2]) / d;
  const float ry = (p.m[3] * xn + p.m[4] * yn + p.m[5]) / d;
  const float f = factor(std::sqrt(rx * rx + ry * ry));
  *sx = (p.cx + p.fx * rx * f) / p.scale - p.offsetX;
  *sy = (p.cy + p.fy * ry * f) / p.scale - p.offsetY;
}

uint8_t* ChromaPair(const YuvImage& target, int x, int y) {
  return target.chroma + static_cast<ptrdiff_t>(y >> 1) * target.width + (x & ~1);
}

// Every pixel in turn: luma sample, then its chroma pair, which later pixels
// of the same pair overwrite.
template <typename Factor>
void WarpEveryPixel(const YuvImage& source, const YuvImage& target, const PixelMapping& mapping,
                    const Factor& factor) {
  for (int y = 0; y < target.height; ++y) {
    for (int x = 0; x < target.width; ++x) {
      float sx = 0.0f, sy = 0.0f;
      MapPixel(mapping, factor, x, y, &sx, &sy);
      CDistortionFilter::SampleGrayBilinear(source, sx, sy,
                                            target.luma + static_cast<ptrdiff_t>(y) * target.width + x);
      CDistortionFilter::SampleChromaBilinear(source, sx, sy, ChromaPair(target, x, y));
    }
  }
}

// Largest mapped coordinate of one border coordinate, starting from start.
float Largest(const std::vector<float>& points, int axis, float start) {
  for (size_t i = axis; i < points.size(); i += 2) {
    if (points[i] > start) start = points[i];
  }
  return start;
}

float Smallest(const std::vector<float>& points, int axis, float start) {
  for (size_t i = axis; i < points.size(); i += 2) {
    if (points[i] < start) start = points[i];
  }
  return start;
}

// Maps the source border through the radial tables into the target frame and
// returns the enlargement about the target centre that pushes every side of
// it out of the frame, at least 1.
float MappedBorderZoom(const CDistortionFilter& filter, const YuvImage& source, const YuvImage& target,
                       const float sourceCamera[9], const float targetCamera[9], const float rotation[9],
                       const CurveTable& radius, const CurveTable& scale) {
  const int width = std::max(source.width, 0);
  const int height = std::max(source.height, 0);
  std::vector<float> top(2 * width), bottom(2 * width), left(2 * height), right(2 * height);
  for (int x = 0; x < width; ++x) {
    top[2 * x] = bottom[2 * x] = static_cast<float>(x);
    top[2 * x + 1] = 0.0f;
    bottom[2 * x + 1] = static_cast<float>(height - 1);
  }
  for (int y = 0; y < height; ++y) {
    left[2 * y] = 0.0f;
    right[2 * y] = static_cast<float>(width - 1);
    left[2 * y + 1] = right[2 * y + 1] = static_cast<float>(y);
  }
  for (std::vector<float>* border : {&top, &bottom, &left, &right}) {
    filter.MapPointsRadial(border->data(), border->data(), static_cast<int32_t>(border->size() / 2), sourceCamera,
                           targetCamera, rotation, radius, scale);
  }
  const float outWidth = static_cast<float>(target.width);
  const float outHeight = static_cast<float>(target.height);
  const float cx = targetCamera[2], cy = targetCamera[5];
  const float ratios[] = {cx / (cx - Largest(left, 0, 0.0f)), (outWidth - cx) / (Smallest(right, 0, outWidth) - cx),
                          cy / (cy - Largest(top, 1, 0.0f)), (outHeight - cy) / (Smallest(bottom, 1, outHeight) - cy)};
  float zoom = 1.0f;
  for (float ratio : ratios) {
    if (ratio > zoom) zoom = ratio;
  }
  return zoom;
}

// ---- Fast form: the same operations on four pixels at a time ----

using namespace float4;

// The rotation's products with each output column's normalised coordinate
// (m0 xn, m3 xn, m6 xn): the same for every row, so computed once per call.
struct ColumnTerms {
  std::vector<float> m0, m3, m6;
};

ColumnTerms MakeColumnTerms(const PixelMapping& p, int width) {
  ColumnTerms terms{std::vector<float>(width), std::vector<float>(width), std::vector<float>(width)};
  for (int x = 0; x < width; ++x) {
    const float xn = NormalisedOutput(static_cast<float>(x), p.targetCx, p.placeX, p.placeScale, p.zoom, p.targetFx);
    terms.m0[x] = p.m[0] * xn;
    terms.m3[x] = p.m[3] * xn;
    terms.m6[x] = p.m[6] * xn;
  }
  return terms;
}

// What the four-lane mapping of one output row reads: the column terms and
// the rotation's products with the row's normalised coordinate.
struct RowTerms {
  const float *m0, *m3, *m6;
  float m1, m4, m7;
};

RowTerms MakeRowTerms(const PixelMapping& p, const ColumnTerms& columns, int y) {
  const float yn = NormalisedOutput(static_cast<float>(y), p.targetCy, p.placeY, p.placeScale, p.zoom, p.targetFy);
  return RowTerms{columns.m0.data(), columns.m3.data(), columns.m6.data(), p.m[1] * yn, p.m[4] * yn, p.m[7] * yn};
}

// MapPixel with the radial model on columns x .. x+3 of one row.
__attribute__((always_inline)) inline void MapPixels4(const PixelMapping& p, const RadialFactor& k,
                                                      const RowTerms& row, int x, F4* sx, F4* sy) {
  const F4 d = Load4(&row.m6[x]) + row.m7 + p.m[8];
  const F4 rx = (Load4(&row.m0[x]) + row.m1 + p.m[2]) / d;
  const F4 ry = (Load4(&row.m3[x]) + row.m4 + p.m[5]) / d;
  const F4 r = Sqrt(rx * rx + ry * ry);
  const F4 r2 = r * r;
  const F4 r4 = r2 * r2;
  const F4 r6 = r4 * r2;
  const F4 f = 1.0f + k.k1 * r2 + k.k2 * r4 + k.k3 * r6;
  const F4 px = p.cx + p.fx * rx * f;
  const F4 py = p.cy + p.fy * ry * f;
  if (p.scale == 1.0f) {
    // Dividing by exactly 1 returns its operand unchanged.
    *sx = px - p.offsetX;
    *sy = py - p.offsetY;
  } else {
    *sx = px / p.scale - p.offsetX;
    *sy = py / p.scale - p.offsetY;
  }
}

// BilinearSum's neighbours and weights on four lanes. The far column x1 is
// x0 + 1, or x0 itself where x0 is the last column (atEnd).
struct Bilinear4 {
  I4 x0, x1, y0, y1, atEnd;
  F4 w00, w10, w01, w11;
};

Bilinear4 MakeBilinear4(F4 x, F4 y, int lastColumn, int lastRow) {
  Bilinear4 b;
  b.x0 = __builtin_convertvector(x, I4);
  b.y0 = __builtin_convertvector(y, I4);
  b.y1 = SelectInt(b.y0 < SplatInt(lastRow), b.y0 + 1, SplatInt(lastRow));
  b.atEnd = b.x0 == SplatInt(lastColumn);
  b.x1 = b.x0 + 1 + b.atEnd;
  const F4 fx = x - __builtin_convertvector(b.x0, F4);
  const F4 gx = __builtin_convertvector(b.x0 + 1, F4) - x;
  const F4 fy = y - __builtin_convertvector(b.y0, F4);
  const F4 gy = __builtin_convertvector(b.y0 + 1, F4) - y;
  b.w00 = gx * gy;
  b.w10 = fx * gy;
  b.w01 = gx * fy;
  b.w11 = fx * fy;
  return b;
}

// Each lane's neighbour bytes, one per 32-bit lane: near at column x0, far
// at column x1, of rows y0 and y1.
struct Neighbours {
  I4 near0, far0, near1, far1;
};

F4 ToFloat(I4 values) { return __builtin_convertvector(values, F4); }

// The bilinear sum in BilinearSum's order.
F4 SumOfNeighbours(const Bilinear4& b, const Neighbours& n) {
  return b.w00 * ToFloat(n.near0) + b.w10 * ToFloat(n.far0) + b.w01 * ToFloat(n.near1) + b.w11 * ToFloat(n.far1);
}

#if __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "The neighbour loads below take the lower address as the low byte."
#endif

template <typename Unit>
int32_t LoadUnit(const uint8_t* at) {
  Unit unit;
  std::memcpy(&unit, at, sizeof(unit));
  return static_cast<int32_t>(unit);
}

// One unit per lane at base + offsets[lane].
template <typename Unit>
I4 LoadUnits4(const uint8_t* base, I4 offsets) {
  return I4{LoadUnit<Unit>(base + offsets[0]), LoadUnit<Unit>(base + offsets[1]), LoadUnit<Unit>(base + offsets[2]),
            LoadUnit<Unit>(base + offsets[3])};
}

// Byte k (0 = lowest address) of each lane's unit.
I4 ByteOf(I4 units, int k) { return (units >> (8 * k)) & 0xFF; }

// Neighbours read one unit of two columns per lane and row. The read starts
// at x0, or at x0 - 1 on the last column so that it stays inside the row;
// sampleBytes is the distance between the two columns' bytes.
template <typename Unit>
Neighbours NeighboursPerLane(const uint8_t* plane, int32_t stride, const Bilinear4& b, int channel) {
  constexpr int sampleBytes = sizeof(Unit) / 2;
  const I4 offsets = (b.x0 + b.atEnd) * sampleBytes;
  const I4 row0 = LoadUnits4<Unit>(plane, b.y0 * stride + offsets);
  const I4 row1 = LoadUnits4<Unit>(plane, b.y1 * stride + offsets);
  const I4 far0 = ByteOf(row0, channel + sampleBytes), far1 = ByteOf(row1, channel + sampleBytes);
  return Neighbours{SelectInt(b.atEnd, far0, ByteOf(row0, channel)), far0,
                    SelectInt(b.atEnd, far1, ByteOf(row1, channel)), far1};
}

// The neighbours of every channel for samples of sampleBytes interleaved
// bytes (1 for luma, 2 for the chroma pairs).
template <int sampleBytes>
using ChannelNeighbours = std::array<Neighbours, sampleBytes>;

template <int sampleBytes>
using PerLaneUnit = std::conditional_t<sampleBytes == 1, uint16_t, uint32_t>;

// Every lane loads its own neighbours.
struct PerLaneLoads {
  template <int sampleBytes>
  static ChannelNeighbours<sampleBytes> Read(const uint8_t* plane, int32_t stride, int /*columns*/,
                                             const Bilinear4& b) {
    ChannelNeighbours<sampleBytes> n;
    for (int c = 0; c < sampleBytes; ++c) n[c] = NeighboursPerLane<PerLaneUnit<sampleBytes>>(plane, stride, b, c);
    return n;
  }
};

#if defined(__SSE2__) || defined(__ARM_NEON)
// Shared row loads: the mapping is smooth, so the four lanes almost always
// read the same two rows within a few bytes. Then one 16-byte load per row
// and a byte shuffle hand every lane its neighbours; lanes on different rows
// or spread wider than the block fall back to the per-lane loads. The block
// starts at lane 0's near column, moved left where it would pass the row's end.
struct SharedRowLoads {
  template <int sampleBytes>
  FLOAT4_SHUFFLE_TARGET static ChannelNeighbours<sampleBytes> Read(const uint8_t* plane, int32_t stride, int columns,
                                                                   const Bilinear4& b) {
    constexpr int kBlockColumns = 16 / sampleBytes;
    if (columns < kBlockColumns) return PerLaneLoads::Read<sampleBytes>(plane, stride, columns, b);
    const int32_t start = std::min(b.x0[0], columns - kBlockColumns);
    const I4 nearColumn = b.x0 - start;
    const I4 farColumn = b.x1 - start;
    if (AnyLaneSet((b.y0 - b.y0[0]) | ((nearColumn | farColumn) & ~(kBlockColumns - 1)))) {
      return PerLaneLoads::Read<sampleBytes>(plane, stride, columns, b);
    }
    const uint8_t* row0 = plane + static_cast<ptrdiff_t>(b.y0[0]) * stride + start * sampleBytes;
    const uint8_t* row1 = plane + static_cast<ptrdiff_t>(b.y1[0]) * stride + start * sampleBytes;
    // Bytes 1..3 of every index lane select zero.
    const I4 zeroHigh = SplatInt(static_cast<int32_t>(0x80808000u));
    ChannelNeighbours<sampleBytes> n;
    for (int c = 0; c < sampleBytes; ++c) {
      const I4 nearIndex = (nearColumn * sampleBytes + c) | zeroHigh;
      const I4 farIndex = (farColumn * sampleBytes + c) | zeroHigh;
      n[c] = Neighbours{ShuffleBytes(row0, nearIndex), ShuffleBytes(row0, farIndex), ShuffleBytes(row1, nearIndex),
                        ShuffleBytes(row1, farIndex)};
    }
    return n;
  }
};
#endif

// A bilinear sum rounded to a byte: + 0.5, truncated. The weights are
// non-negative and sum to 1 within a few ulps, so the sum lies in 0..255.0001
// and the clamps of the scalar samplers never act.
I4 RoundSum(F4 sum) { return __builtin_convertvector(sum + 0.5f, I4); }

// SampleGrayBilinear on four lanes, stored to out[0..3].
template <typename Loads>
__attribute__((always_inline)) inline void SampleGray4(const YuvImage& source, F4 sx, F4 sy, uint8_t* out) {
  const int lastColumn = source.width - 1;
  const int lastRow = source.height - 1;
  const Bilinear4 b = MakeBilinear4(Clamp(sx, 0.0f, static_cast<float>(lastColumn)),
                                    Clamp(sy, 0.0f, static_cast<float>(lastRow)), lastColumn, lastRow);
  const auto n = Loads::template Read<1>(source.luma, source.width, source.width, b);
  StoreBytes(RoundSum(SumOfNeighbours(b, n[0])), out);
}

// SampleChromaBilinear on four lanes whose pairs follow each other, stored
// to out[0..7]. The source has at least two chroma columns and one chroma row.
template <typename Loads>
__attribute__((always_inline)) inline void SampleChroma4(const YuvImage& source, F4 sx, F4 sy, uint8_t* out) {
  const int columns = source.width >> 1;
  const int lastRow = (source.height >> 1) - 1;
  const Bilinear4 b = MakeBilinear4(Clamp(sx * 0.5f, 0.0f, static_cast<float>(columns - 1)),
                                    Clamp(sy * 0.5f, 0.0f, static_cast<float>(lastRow)), columns - 1, lastRow);
  const auto n = Loads::template Read<2>(source.chroma, source.width & ~1, columns, b);
  StoreBytePairs(RoundSum(SumOfNeighbours(b, n[0])), RoundSum(SumOfNeighbours(b, n[1])), out);
}

// A chroma pair's last writer: the odd column of the pair, or the last
// column when the pair has no odd column; the same for rows.
bool LastWriter(int t, int size) { return (t & 1) != 0 || t == size - 1; }

// The four-pixel blocks of one output row. Everything they read is held
// by value: the byte stores could otherwise alias it and force reloads.
// Only the last writer of each chroma pair samples chroma: inside the
// blocks the odd lanes, gathered over two blocks into four consecutive pairs.
template <typename Loads>
__attribute__((always_inline)) inline void WarpBlocks(const YuvImage source, const YuvImage target,
                                                      const PixelMapping p, const RadialFactor k,
                                                      const RowTerms row, int y, int blocks) {
  const bool chromaRow = LastWriter(y, target.height);
  uint8_t* luma = target.luma + static_cast<ptrdiff_t>(y) * target.width;
  F4 pendingX{}, pendingY{};
  for (int x = 0; x < blocks; x += 4) {
    F4 sx, sy;
    MapPixels4(p, k, row, x, &sx, &sy);
    SampleGray4<Loads>(source, sx, sy, luma + x);
    if (!chromaRow) continue;
    if ((x & 4) == 0) {
      pendingX = sx;
      pendingY = sy;
      continue;
    }
    SampleChroma4<Loads>(source, F4{pendingX[1], pendingX[3], sx[1], sx[3]}, F4{pendingY[1], pendingY[3], sy[1], sy[3]},
                         ChromaPair(target, x - 3, y));
  }
  if (chromaRow && (blocks & 4) != 0) {
    for (int lane = 1; lane < 4; lane += 2) {
      CDistortionFilter::SampleChromaBilinear(source, pendingX[lane], pendingY[lane],
                                              ChromaPair(target, blocks - 4 + lane, y));
    }
  }
}

// One output row: four pixels at a time, then the remaining columns one by one.
template <typename Loads>
__attribute__((always_inline)) inline void WarpRowFast(const YuvImage& source, const YuvImage& target,
                                                       const PixelMapping& mapping, const RadialFactor& factor,
                                                       const ColumnTerms& columns, int y) {
  const int blocks = target.width & ~3;
  WarpBlocks<Loads>(source, target, mapping, factor, MakeRowTerms(mapping, columns, y), y, blocks);
  const bool chromaRow = LastWriter(y, target.height);
  uint8_t* luma = target.luma + static_cast<ptrdiff_t>(y) * target.width;
  for (int x = blocks; x < target.width; ++x) {
    float sx = 0.0f, sy = 0.0f;
    MapPixel(mapping, factor, x, y, &sx, &sy);
    CDistortionFilter::SampleGrayBilinear(source, sx, sy, luma + x);
    if (chromaRow && LastWriter(x, target.width)) {
      CDistortionFilter::SampleChromaBilinear(source, sx, sy, ChromaPair(target, x, y));
    }
  }
}

// Every row of the fast form.
template <typename Loads>
__attribute__((always_inline)) inline void WarpRowsFast(const YuvImage& source, const YuvImage& target,
                                                        const PixelMapping& mapping, const RadialFactor& factor) {
  const ColumnTerms columns = MakeColumnTerms(mapping, target.width);
  for (int y = 0; y < target.height; ++y) WarpRowFast<Loads>(source, target, mapping, factor, columns, y);
}

#if defined(__SSE2__)
// The shuffle needs SSSE3, which the x86-64 baseline lacks: chosen at run time.
FLOAT4_SHUFFLE_TARGET void WarpRowsShared(const YuvImage& source, const YuvImage& target, const PixelMapping& mapping,
                                          const RadialFactor& factor) {
  WarpRowsFast<SharedRowLoads>(source, target, mapping, factor);
}

void WarpRowsBest(const YuvImage& source, const YuvImage& target, const PixelMapping& mapping,
                  const RadialFactor& factor) {
  if (__builtin_cpu_supports("ssse3")) {
    WarpRowsShared(source, target, mapping, factor);
  } else {
    WarpRowsFast<PerLaneLoads>(source, target, mapping, factor);
  }
}
#elif defined(__ARM_NEON)
void WarpRowsBest(const YuvImage& source, const YuvImage& target, const PixelMapping& mapping,
                  const RadialFactor& factor) {
  WarpRowsFast<SharedRowLoads>(source, target, mapping, factor);
}
#else
void WarpRowsBest(const YuvImage& source, const YuvImage& target, const PixelMapping& mapping,
                  const RadialFactor& factor) {
  WarpRowsFast<PerLaneLoads>(source, target, mapping, factor);
}
#endif

// Step one of both radial warps: the radial tables of the source and the zoom
// of the mapped border.
float RadialBorderZoom(const CDistortionFilter& filter, const YuvImage& source, const YuvImage& target,
                       const float sourceCamera[9], const float targetCamera[9], const float rotation[9]) {
  CurveTable radius, scale;
  filter.BuildCurveFromRadialModel(sourceCamera, radius, scale, static_cast<float>(source.width),
                                   static_cast<float>(source.height));
  return MappedBorderZoom(filter, source, target, sourceCamera, targetCamera, rotation, radius, scale);
}

RadialFactor RadialFactorOf(const CDistortionFilter& filter) {
  return RadialFactor{filter.radialCoefficients[0], filter.radialCoefficients[1], filter.radialCoefficients[2]};
}

}  // namespace

int64_t WarpLumaBytes(int32_t width, int32_t height) {
  if (width < 1 || height < 1) return 0;
  return static_cast<int64_t>(width) * height;
}

int64_t WarpChromaBytes(int32_t width, int32_t height) {
  if (width < 1 || height < 1) return 0;
  return static_cast<int64_t>(width) * ((static_cast<int64_t>(height) + 1) / 2) + (width & 1);
}

void CDistortionFilter::WarpYuvImageRadial(const YuvImage& source, const YuvImage& target,
                                           const float sourceCamera[9], const float targetCamera[9],
                                           const float rotation[9], float* zoom) const {
  *zoom = 1.0f;
  *zoom = RadialBorderZoom(*this, source, target, sourceCamera, targetCamera, rotation);
  if (target.height < 1) return;
  const PixelMapping mapping = MakeMapping(*this, sourceCamera, targetCamera, rotation, *zoom);
  if (source.width < 4 || source.height < 2 || WarpLumaBytes(source.width, source.height) > INT32_MAX) {
    // Fewer than two chroma columns to read in pairs, or offsets past 32 bits: the plain loop.
    WarpEveryPixel(source, target, mapping, RadialFactorOf(*this));
    return;
  }
  WarpRowsBest(source, target, mapping, RadialFactorOf(*this));
}

void CDistortionFilter::WarpYuvImageRadialReference(const YuvImage& source, const YuvImage& target,
                                                    const float sourceCamera[9], const float targetCamera[9],
                                                    const float rotation[9], float* zoom) const {
  *zoom = 1.0f;
  *zoom = RadialBorderZoom(*this, source, target, sourceCamera, targetCamera, rotation);
  if (target.height < 1) return;
  WarpEveryPixel(source, target, MakeMapping(*this, sourceCamera, targetCamera, rotation, *zoom),
                 RadialFactorOf(*this));
}

void CDistortionFilter::WarpYuvImage(const YuvImage& source, const YuvImage& target, const float sourceCamera[9],
                                     const float targetCamera[9], const float rotation[9], float* zoom) const {
  *zoom = 1.0f;
  CurveTable radius, scale;
  const float width = static_cast<float>(source.width);
  const float height = static_cast<float>(source.height);
  if (coefficientCount >= 1) {
    BuildCurveFromPolynomial(radius, scale, width, height);
    for (int i = 0; i < kCurveSize; ++i) radius[i] /= sourceCamera[0];
  } else {
    BuildCurveFromRadialModel(sourceCamera, radius, scale, width, height);
  }
  *zoom = MappedBorderZoom(*this, source, target, sourceCamera, targetCamera, rotation, radius, scale);
  if (target.height < 1) return;
  WarpEveryPixel(source, target, MakeMapping(*this, sourceCamera, targetCamera, rotation, *zoom),
                 TableFactor{radius, scale});
}
