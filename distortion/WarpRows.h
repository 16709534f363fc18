// The vector form of the radial YUV warp's rows, generic in the lane count.
// A lane-operations type supplies the vectors and what the compiler cannot
// write generically for them:
//   F, I                      float and int32 vectors of kLanes lanes
//   Sqrt, Clamp               IEEE square root; clamp with the scalar NaN rule
//   AnyLaneSet(I)             whether any lane is nonzero
//   StoreBytes(I, out)        lanes within 0..255 as kLanes bytes
//   StoreBytePairs(I, I, out) two such vectors interleaved, 2 kLanes bytes
//   OddLanes(F, F)            lanes 1, 3, ... of the first, then of the second
//   GroupLeaders(I)           lane 4g copied to lanes 4g .. 4g+3
//   ShuffleGroups(blocks, I)  per group of four lanes g, byte k of each index
//                             lane picks blocks[g][index byte k]; an index byte
//                             with its top bit set gives 0
// Every operation is the lane-wise IEEE operation of the plain loop, in its
// order, so the rows come out with its bytes. Each instruction set's
// translation unit includes this header and compiles its own copy: nothing
// here has external linkage.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "distortion/PixelMapping.h"

#if __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "The neighbour loads below take the lower address as the low byte."
#endif

namespace {

template <typename Ops>
using FloatLanes = typename Ops::F;
template <typename Ops>
using IntLanes = typename Ops::I;

template <typename V>
V LoadLanes(const float* values) {
  V loaded;
  std::memcpy(&loaded, values, sizeof(loaded));
  return loaded;
}

template <typename I>
I SelectInt(I mask, I a, I b) {
  return (a & mask) | (b & ~mask);
}

// What the mapping of one output row reads: the column terms and the
// rotation's products with the row's normalised coordinate.
struct RowTerms {
  ColumnTerms columns;
  float m1, m4, m7;
};

RowTerms MakeRowTerms(const PixelMapping& p, const ColumnTerms& columns, int y) {
  const float yn = NormalisedOutput(static_cast<float>(y), p.targetCy, p.placeY, p.placeScale, p.zoom, p.targetFy);
  return RowTerms{columns, p.m[1] * yn, p.m[4] * yn, p.m[7] * yn};
}

// MapPixel with the radial model on columns x .. x + kLanes - 1 of one row.
template <typename Ops>
__attribute__((always_inline)) inline void MapPixels(const PixelMapping& p, const RadialFactor& k, const RowTerms& row,
                                                     int x, FloatLanes<Ops>* sx, FloatLanes<Ops>* sy) {
  using F = FloatLanes<Ops>;
  const F d = LoadLanes<F>(&row.columns.m6[x]) + row.m7 + p.m[8];
  const F rx = (LoadLanes<F>(&row.columns.m0[x]) + row.m1 + p.m[2]) / d;
  const F ry = (LoadLanes<F>(&row.columns.m3[x]) + row.m4 + p.m[5]) / d;
  const F r = Ops::Sqrt(rx * rx + ry * ry);
  const F r2 = r * r;
  const F r4 = r2 * r2;
  const F r6 = r4 * r2;
  const F f = 1.0f + k.k1 * r2 + k.k2 * r4 + k.k3 * r6;
  const F px = p.cx + p.fx * rx * f;
  const F py = p.cy + p.fy * ry * f;
  if (p.scale == 1.0f) {
    // Dividing by exactly 1 returns its operand unchanged.
    *sx = px - p.offsetX;
    *sy = py - p.offsetY;
  } else {
    *sx = px / p.scale - p.offsetX;
    *sy = py / p.scale - p.offsetY;
  }
}

// BilinearSum's neighbours and weights on every lane. The far column x1 is
// x0 + 1, or x0 itself where x0 is the last column (atEnd).
template <typename Ops>
struct Bilinear {
  IntLanes<Ops> x0, x1, y0, y1, atEnd;
  FloatLanes<Ops> w00, w10, w01, w11;
};

template <typename Ops>
Bilinear<Ops> MakeBilinear(FloatLanes<Ops> x, FloatLanes<Ops> y, int lastColumn, int lastRow) {
  using F = FloatLanes<Ops>;
  using I = IntLanes<Ops>;
  Bilinear<Ops> b;
  b.x0 = __builtin_convertvector(x, I);
  b.y0 = __builtin_convertvector(y, I);
  const I last = I{} + lastRow;
  b.y1 = SelectInt<I>(b.y0 < last, b.y0 + 1, last);
  b.atEnd = b.x0 == lastColumn;
  b.x1 = b.x0 + 1 + b.atEnd;
  const F fx = x - __builtin_convertvector(b.x0, F);
  const F gx = __builtin_convertvector(b.x0 + 1, F) - x;
  const F fy = y - __builtin_convertvector(b.y0, F);
  const F gy = __builtin_convertvector(b.y0 + 1, F) - y;
  b.w00 = gx * gy;
  b.w10 = fx * gy;
  b.w01 = gx * fy;
  b.w11 = fx * fy;
  return b;
}

// Each lane's neighbour bytes, one per 32-bit lane: near at column x0, far
// at column x1, of rows y0 and y1.
template <typename Ops>
struct Neighbours {
  IntLanes<Ops> near0, far0, near1, far1;
};

// The bilinear sum in BilinearSum's order.
template <typename Ops>
FloatLanes<Ops> SumOfNeighbours(const Bilinear<Ops>& b, const Neighbours<Ops>& n) {
  using F = FloatLanes<Ops>;
  return b.w00 * __builtin_convertvector(n.near0, F) + b.w10 * __builtin_convertvector(n.far0, F) +
         b.w01 * __builtin_convertvector(n.near1, F) + b.w11 * __builtin_convertvector(n.far1, F);
}

// The neighbours of every channel for samples of sampleBytes interleaved
// bytes (1 for luma, 2 for the chroma pairs).
template <typename Ops, int sampleBytes>
using ChannelNeighbours = std::array<Neighbours<Ops>, sampleBytes>;

// Every lane loads its own neighbours: one unit of two columns per lane and
// row, starting at x0, or at x0 - 1 on the last column so that it stays
// inside the row.
struct PerLaneLoads {
  template <typename Ops, int sampleBytes>
  static ChannelNeighbours<Ops, sampleBytes> Read(const uint8_t* plane, int32_t stride, int /*columns*/,
                                                  int /*lastRow*/, const Bilinear<Ops>& b) {
    using I = IntLanes<Ops>;
    const I offsets = (b.x0 + b.atEnd) * sampleBytes;
    I units0 = offsets, units1 = offsets;
    for (int lane = 0; lane < Ops::kLanes; ++lane) {
      units0[lane] = LoadUnit<sampleBytes>(plane + b.y0[lane] * stride + offsets[lane]);
      units1[lane] = LoadUnit<sampleBytes>(plane + b.y1[lane] * stride + offsets[lane]);
    }
    ChannelNeighbours<Ops, sampleBytes> n;
    for (int c = 0; c < sampleBytes; ++c) {
      const I far0 = ByteOf(units0, c + sampleBytes), far1 = ByteOf(units1, c + sampleBytes);
      n[c] = Neighbours<Ops>{SelectInt<I>(b.atEnd, far0, ByteOf(units0, c)), far0,
                             SelectInt<I>(b.atEnd, far1, ByteOf(units1, c)), far1};
    }
    return n;
  }

  // The 2 sampleBytes bytes at `at`, the lower address as the low byte.
  template <int sampleBytes>
  static int32_t LoadUnit(const uint8_t* at) {
    if constexpr (sampleBytes == 1) {
      uint16_t unit;
      std::memcpy(&unit, at, sizeof(unit));
      return unit;
    } else {
      uint32_t unit;
      std::memcpy(&unit, at, sizeof(unit));
      return static_cast<int32_t>(unit);
    }
  }

  // Byte k (0 = lowest address) of each lane's unit.
  template <typename I>
  static I ByteOf(I units, int k) {
    return (units >> (8 * k)) & 0xFF;
  }
};

// Shared row loads: the mapping is smooth, so the four lanes of a group
// almost always read the same two rows within a few bytes. Then one 16-byte
// load per row and group and a byte shuffle hand every lane its neighbours.
// A group's block starts at its first lane's near column, moved left where
// it would pass the row's end. Where a group straddles a row boundary, four
// blocks per group cover the rows from one above its first lane's to two
// below, and each lane picks its own rows' bytes; lanes spread wider than a
// block, or rows further apart, fall back to the per-lane loads.
struct SharedRowLoads {
  template <typename Ops, int sampleBytes>
  __attribute__((always_inline)) static ChannelNeighbours<Ops, sampleBytes> Read(const uint8_t* plane,
                                                                                int32_t stride, int columns,
                                                                                int lastRow, const Bilinear<Ops>& b) {
    using I = IntLanes<Ops>;
    constexpr int kBlockColumns = 16 / sampleBytes;
    if (columns < kBlockColumns) return PerLaneLoads::Read<Ops, sampleBytes>(plane, stride, columns, lastRow, b);
    const I leaders = Ops::GroupLeaders(b.x0);
    const I lastStart = I{} + (columns - kBlockColumns);
    const I start = SelectInt<I>(leaders < lastStart, leaders, lastStart);
    const Columns<Ops> at{start, b.x0 - start, b.x1 - start};
    if (Ops::AnyLaneSet((at.near | at.far) & ~(kBlockColumns - 1))) {
      return PerLaneLoads::Read<Ops, sampleBytes>(plane, stride, columns, lastRow, b);
    }
    const I firstRow = Ops::GroupLeaders(b.y0);
    if (!Ops::AnyLaneSet(b.y0 - firstRow)) return OnTwoRows<Ops, sampleBytes>(plane, stride, b, at);
    // Rows of each lane as 0 .. 3 for one above the first lane's row .. two below.
    const I near = b.y0 - firstRow + 1, far = b.y1 - firstRow + 1;
    if (Ops::AnyLaneSet((near | far) & ~3)) {
      return PerLaneLoads::Read<Ops, sampleBytes>(plane, stride, columns, lastRow, b);
    }
    return OnFourRows<Ops, sampleBytes>(plane, stride, lastRow, firstRow, near, far, at);
  }

 private:
  // Each lane's block start and its near and far columns within the block.
  template <typename Ops>
  struct Columns {
    IntLanes<Ops> start, near, far;
  };

  template <typename Ops>
  static IntLanes<Ops> IndexOf(IntLanes<Ops> column, int sampleBytes, int channel) {
    // Bytes 1..3 of every index lane select zero.
    return (column * sampleBytes + channel) | static_cast<int32_t>(0x80808000u);
  }

  // Every group's lanes on the same two rows.
  template <typename Ops, int sampleBytes>
  __attribute__((always_inline)) static ChannelNeighbours<Ops, sampleBytes> OnTwoRows(const uint8_t* plane,
                                                                                     int32_t stride,
                                                                                     const Bilinear<Ops>& b,
                                                                                     const Columns<Ops>& at) {
    constexpr int kGroups = Ops::kLanes / 4;
    const uint8_t* row0[kGroups];
    const uint8_t* row1[kGroups];
    for (int g = 0; g < kGroups; ++g) {
      row0[g] = plane + static_cast<ptrdiff_t>(b.y0[4 * g]) * stride + at.start[4 * g] * sampleBytes;
      row1[g] = plane + static_cast<ptrdiff_t>(b.y1[4 * g]) * stride + at.start[4 * g] * sampleBytes;
    }
    ChannelNeighbours<Ops, sampleBytes> n;
    for (int c = 0; c < sampleBytes; ++c) {
      const IntLanes<Ops> nearIndex = IndexOf<Ops>(at.near, sampleBytes, c);
      const IntLanes<Ops> farIndex = IndexOf<Ops>(at.far, sampleBytes, c);
      n[c] = Neighbours<Ops>{Ops::ShuffleGroups(row0, nearIndex), Ops::ShuffleGroups(row0, farIndex),
                             Ops::ShuffleGroups(row1, nearIndex), Ops::ShuffleGroups(row1, farIndex)};
    }
    return n;
  }

  // Groups that straddle a row boundary: blocks of the four rows around each
  // group's first row (limited to the plane, where no lane reads them), and
  // each lane's rows picked by nearRow and farRow (0 .. 3).
  template <typename Ops, int sampleBytes>
  static ChannelNeighbours<Ops, sampleBytes> OnFourRows(const uint8_t* plane, int32_t stride, int lastRow,
                                                       IntLanes<Ops> firstRow, IntLanes<Ops> nearRow,
                                                       IntLanes<Ops> farRow, const Columns<Ops>& at) {
    using I = IntLanes<Ops>;
    constexpr int kGroups = Ops::kLanes / 4;
    const uint8_t* blocks[4][kGroups];
    for (int r = 0; r < 4; ++r) {
      for (int g = 0; g < kGroups; ++g) {
        const int row = std::clamp(firstRow[4 * g] + r - 1, 0, lastRow);
        blocks[r][g] = plane + static_cast<ptrdiff_t>(row) * stride + at.start[4 * g] * sampleBytes;
      }
    }
    const auto pick = [](const I (&rows)[4], I which) {
      return SelectInt<I>(which == 0, rows[0],
                          SelectInt<I>(which == 1, rows[1], SelectInt<I>(which == 2, rows[2], rows[3])));
    };
    ChannelNeighbours<Ops, sampleBytes> n;
    for (int c = 0; c < sampleBytes; ++c) {
      I nearBytes[4], farBytes[4];
      for (int r = 0; r < 4; ++r) {
        nearBytes[r] = Ops::ShuffleGroups(blocks[r], IndexOf<Ops>(at.near, sampleBytes, c));
        farBytes[r] = Ops::ShuffleGroups(blocks[r], IndexOf<Ops>(at.far, sampleBytes, c));
      }
      n[c] = Neighbours<Ops>{pick(nearBytes, nearRow), pick(farBytes, nearRow), pick(nearBytes, farRow),
                             pick(farBytes, farRow)};
    }
    return n;
  }
};

// A bilinear sum rounded to a byte: + 0.5, truncated. The weights are
// non-negative and sum to 1 within a few ulps, so the sum lies in 0..255.0001
// and the clamps of the scalar samplers never act.
template <typename Ops>
IntLanes<Ops> RoundSum(FloatLanes<Ops> sum) {
  return __builtin_convertvector(sum + 0.5f, IntLanes<Ops>);
}

// SampleGrayBilinear on every lane, stored to out[0 .. kLanes - 1].
template <typename Ops, typename Loads>
__attribute__((always_inline)) inline void SampleGray(const YuvImage& source, FloatLanes<Ops> sx, FloatLanes<Ops> sy,
                                                      uint8_t* out) {
  const int lastColumn = source.width - 1;
  const int lastRow = source.height - 1;
  const Bilinear<Ops> b = MakeBilinear<Ops>(Ops::Clamp(sx, 0.0f, static_cast<float>(lastColumn)),
                                            Ops::Clamp(sy, 0.0f, static_cast<float>(lastRow)), lastColumn, lastRow);
  const auto n = Loads::template Read<Ops, 1>(source.luma, source.width, source.width, lastRow, b);
  Ops::StoreBytes(RoundSum<Ops>(SumOfNeighbours(b, n[0])), out);
}

// SampleChromaBilinear on lanes whose pairs follow each other, stored to
// out[0 .. 2 kLanes - 1]. The source has at least two chroma columns and
// one chroma row.
template <typename Ops, typename Loads>
__attribute__((always_inline)) inline void SampleChroma(const YuvImage& source, FloatLanes<Ops> sx,
                                                        FloatLanes<Ops> sy, uint8_t* out) {
  const int columns = source.width >> 1;
  const int lastRow = (source.height >> 1) - 1;
  const Bilinear<Ops> b = MakeBilinear<Ops>(Ops::Clamp(sx * 0.5f, 0.0f, static_cast<float>(columns - 1)),
                                            Ops::Clamp(sy * 0.5f, 0.0f, static_cast<float>(lastRow)), columns - 1,
                                            lastRow);
  const auto n = Loads::template Read<Ops, 2>(source.chroma, source.width & ~1, columns, lastRow, b);
  Ops::StoreBytePairs(RoundSum<Ops>(SumOfNeighbours(b, n[0])), RoundSum<Ops>(SumOfNeighbours(b, n[1])), out);
}

// The blocks of kLanes pixels of one output row. Everything they read is
// held by value: the byte stores could otherwise alias it and force
// reloads. Only the last writer of each chroma pair samples chroma: inside
// the blocks the odd lanes, gathered over two blocks into kLanes
// consecutive pairs.
template <typename Ops, typename Loads>
__attribute__((always_inline)) inline void WarpBlocks(const YuvImage source, const YuvImage target,
                                                      const PixelMapping p, const RadialFactor k, const RowTerms row,
                                                      int y, int blocks) {
  using F = FloatLanes<Ops>;
  constexpr int kLanes = Ops::kLanes;
  const bool chromaRow = LastWriter(y, target.height);
  uint8_t* luma = target.luma + static_cast<ptrdiff_t>(y) * target.width;
  F pendingX{}, pendingY{};
  for (int x = 0; x < blocks; x += kLanes) {
    F sx, sy;
    MapPixels<Ops>(p, k, row, x, &sx, &sy);
    SampleGray<Ops, Loads>(source, sx, sy, luma + x);
    if (!chromaRow) continue;
    if ((x & kLanes) == 0) {
      pendingX = sx;
      pendingY = sy;
      continue;
    }
    SampleChroma<Ops, Loads>(source, Ops::OddLanes(pendingX, sx), Ops::OddLanes(pendingY, sy),
                             ChromaPair(target, x - kLanes, y));
  }
  if (chromaRow && (blocks & kLanes) != 0) {
    for (int lane = 1; lane < kLanes; lane += 2) {
      CDistortionFilter::SampleChromaBilinear(source, pendingX[lane], pendingY[lane],
                                              ChromaPair(target, blocks - kLanes + lane, y));
    }
  }
}

// Every row: kLanes pixels at a time, then the remaining columns one by one.
template <typename Ops, typename Loads>
__attribute__((always_inline)) inline void WarpRows(const YuvImage& source, const YuvImage& target,
                                                    const PixelMapping& mapping, const RadialFactor& factor,
                                                    const ColumnTerms& columns) {
  const int blocks = target.width & ~(Ops::kLanes - 1);
  for (int y = 0; y < target.height; ++y) {
    WarpBlocks<Ops, Loads>(source, target, mapping, factor, MakeRowTerms(mapping, columns, y), y, blocks);
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
}

}  // namespace
