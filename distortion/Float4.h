// Four-lane float and integer vectors (GCC vector extensions, also understood
// by clang) for the fast forms of the distortion kernels. Every operation is
// the lane-wise IEEE operation of the scalar code, so with -ffp-contract=off
// the fast forms give the scalar forms' bits on x86-64 and AArch64.
// Translation units built for different x86-64 instruction sets include this
// header, so everything here has internal linkage: no unit's copy can stand
// in for another's at link time.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <immintrin.h>
#elif defined(__aarch64__) && defined(__ARM_NEON)
#include <arm_neon.h>
#else
#error "Float4.h is written for x86-64 (SSE2) and AArch64 (NEON)"
#endif

namespace float4 {
namespace {

using F4 = float __attribute__((vector_size(16)));
using I4 = int32_t __attribute__((vector_size(16)));

inline F4 Splat(float value) { return F4{value, value, value, value}; }
inline I4 SplatInt(int32_t value) { return I4{value, value, value, value}; }

// Lane-wise mask ? a : b, with masks as comparisons give them (all bits set or clear).
inline I4 SelectInt(I4 mask, I4 a, I4 b) { return (a & mask) | (b & ~mask); }

inline F4 Select(I4 mask, F4 a, F4 b) {
  return reinterpret_cast<F4>(SelectInt(mask, reinterpret_cast<I4>(a), reinterpret_cast<I4>(b)));
}

inline F4 Load4(const float* values) {
  F4 loaded;
  std::memcpy(&loaded, values, sizeof(loaded));
  return loaded;
}

inline F4 Sqrt(F4 value) {
#if defined(__SSE2__)
  return reinterpret_cast<F4>(_mm_sqrt_ps(reinterpret_cast<__m128>(value)));
#else
  return reinterpret_cast<F4>(vsqrtq_f32(reinterpret_cast<float32x4_t>(value)));
#endif
}

// The lowest lane whose mask is set, or -1 when none is.
inline int FirstSetLane(I4 mask) {
#if defined(__SSE2__)
  const int bits = _mm_movemask_ps(reinterpret_cast<__m128>(mask));
  return bits == 0 ? -1 : __builtin_ctz(static_cast<unsigned>(bits));
#else
  for (int lane = 0; lane < 4; ++lane) {
    if (mask[lane] != 0) return lane;
  }
  return -1;
#endif
}

// Lane-wise clamp to [low, high] as the scalar code writes it: low > v ? low
// : v, then v < high ? v : high, so a NaN passes the lower bound and becomes
// high. maxps and minps return their second operand on NaN, which is that.
inline F4 Clamp(F4 value, float low, float high) {
#if defined(__SSE2__)
  const __m128 raised = _mm_max_ps(_mm_set1_ps(low), reinterpret_cast<__m128>(value));
  return reinterpret_cast<F4>(_mm_min_ps(raised, _mm_set1_ps(high)));
#else
  value = Select(Splat(low) > value, Splat(low), value);
  return Select(value < Splat(high), value, Splat(high));
#endif
}

// Lanes within 0..255 stored as four bytes.
inline void StoreBytes(I4 values, uint8_t* out) {
#if defined(__SSE2__)
  const __m128i words = _mm_packs_epi32(reinterpret_cast<__m128i>(values), reinterpret_cast<__m128i>(values));
  const int32_t bytes = _mm_cvtsi128_si32(_mm_packus_epi16(words, words));
  std::memcpy(out, &bytes, sizeof(bytes));
#else
  const uint16x4_t words = vmovn_u32(reinterpret_cast<uint32x4_t>(values));
  const uint8x8_t bytes = vmovn_u16(vcombine_u16(words, words));
  vst1_lane_u32(reinterpret_cast<uint32_t*>(out), vreinterpret_u32_u8(bytes), 0);
#endif
}

// Two lanes within 0..255 per pair, stored as four pairs of bytes:
// first[0], second[0], first[1], second[1], ...
inline void StoreBytePairs(I4 first, I4 second, uint8_t* out) {
#if defined(__SSE2__)
  const __m128i words = _mm_packs_epi32(reinterpret_cast<__m128i>(first), reinterpret_cast<__m128i>(second));
  const __m128i bytes = _mm_packus_epi16(words, words);
  _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi8(bytes, _mm_srli_si128(bytes, 4)));
#else
  const uint16x4_t pairs = vmovn_u32(reinterpret_cast<uint32x4_t>(first | (second << 8)));
  vst1_u16(reinterpret_cast<uint16_t*>(out), pairs);
#endif
}

// Whether any lane of the mask is nonzero.
inline bool AnyLaneSet(I4 mask) {
#if defined(__SSE2__)
  return _mm_movemask_epi8(reinterpret_cast<__m128i>(mask != 0)) != 0;
#else
  return vmaxvq_u32(reinterpret_cast<uint32x4_t>(mask)) != 0;
#endif
}

// Four bytes of a 16-byte block per lane: byte k of each index lane picks
// block[index byte k], and an index byte with its top bit set gives 0. The
// same rule as pshufb and tbl, whose out-of-range bytes are zero too.
#if defined(__SSSE3__)
inline I4 ShuffleBytes(const uint8_t* block, I4 index) {
  const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block));
  return reinterpret_cast<I4>(_mm_shuffle_epi8(bytes, reinterpret_cast<__m128i>(index)));
}
#elif defined(__ARM_NEON)
inline I4 ShuffleBytes(const uint8_t* block, I4 index) {
  return reinterpret_cast<I4>(vqtbl1q_u8(vld1q_u8(block), reinterpret_cast<uint8x16_t>(index)));
}
#endif

// The four-lane operations of the generic warp rows (distortion/WarpRows.h).
struct Lanes4 {
  using F = F4;
  using I = I4;
  static constexpr int kLanes = 4;
  static F Sqrt(F value) { return float4::Sqrt(value); }
  static F Clamp(F value, float low, float high) { return float4::Clamp(value, low, high); }
  static bool AnyLaneSet(I mask) { return float4::AnyLaneSet(mask); }
  static void StoreBytes(I values, uint8_t* out) { float4::StoreBytes(values, out); }
  static void StoreBytePairs(I first, I second, uint8_t* out) { float4::StoreBytePairs(first, second, out); }
  static F OddLanes(F a, F b) { return F{a[1], a[3], b[1], b[3]}; }
  static I GroupLeaders(I values) { return SplatInt(values[0]); }
#if defined(__SSSE3__) || defined(__ARM_NEON)
  static I ShuffleGroups(const uint8_t* const* blocks, I index) { return ShuffleBytes(blocks[0], index); }
#endif
};

}  // namespace
}  // namespace float4
