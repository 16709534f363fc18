// Four-lane float and integer vectors (GCC vector extensions, also understood
// by clang) for the fast forms of the distortion kernels. Every operation is
// the lane-wise IEEE operation of the scalar code, so with -ffp-contract=off
// the fast forms give the scalar forms' bits on x86-64 and AArch64.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <immintrin.h>
#elif defined(__ARM_NEON)
#include <arm_neon.h>
#endif

namespace float4 {

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
#elif defined(__ARM_NEON)
  return reinterpret_cast<F4>(vsqrtq_f32(reinterpret_cast<float32x4_t>(value)));
#else
  return F4{std::sqrt(value[0]), std::sqrt(value[1]), std::sqrt(value[2]), std::sqrt(value[3])};
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

}  // namespace float4
