// The radial warp's rows on sixteen lanes, built with AVX-512 (F and BW):
// each quarter of a vector shuffles its neighbours out of its own 16-byte
// row blocks.
#include <immintrin.h>

#include <cstdint>

#include "distortion/PixelMapping.h"
#include "distortion/WarpRows.h"

namespace {

using F16 = float __attribute__((vector_size(64)));
using I16 = int32_t __attribute__((vector_size(64)));

struct Lanes16 {
  using F = F16;
  using I = I16;
  static constexpr int kLanes = 16;

  static F Sqrt(F value) { return reinterpret_cast<F>(_mm512_sqrt_ps(reinterpret_cast<__m512>(value))); }

  // vmaxps and vminps return their second operand on NaN: the scalar clamp's rule.
  static F Clamp(F value, float low, float high) {
    const __m512 raised = _mm512_max_ps(_mm512_set1_ps(low), reinterpret_cast<__m512>(value));
    return reinterpret_cast<F>(_mm512_min_ps(raised, _mm512_set1_ps(high)));
  }

  static bool AnyLaneSet(I mask) {
    const __m512i bits = reinterpret_cast<__m512i>(mask);
    return _mm512_test_epi32_mask(bits, bits) != 0;
  }

  static void StoreBytes(I values, uint8_t* out) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm512_cvtepi32_epi8(reinterpret_cast<__m512i>(values)));
  }

  static void StoreBytePairs(I first, I second, uint8_t* out) {
    const __m512i pairs = reinterpret_cast<__m512i>(first | (second << 8));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), _mm512_cvtepi32_epi16(pairs));
  }

  static F OddLanes(F a, F b) {
    return __builtin_shufflevector(a, b, 1, 3, 5, 7, 9, 11, 13, 15, 17, 19, 21, 23, 25, 27, 29, 31);
  }
  static I GroupLeaders(I values) {
    return __builtin_shufflevector(values, values, 0, 0, 0, 0, 4, 4, 4, 4, 8, 8, 8, 8, 12, 12, 12, 12);
  }

  static I ShuffleGroups(const uint8_t* const* blocks, I index) {
    __m512i bytes = _mm512_castsi128_si512(_mm_loadu_si128(reinterpret_cast<const __m128i*>(blocks[0])));
    bytes = _mm512_inserti32x4(bytes, _mm_loadu_si128(reinterpret_cast<const __m128i*>(blocks[1])), 1);
    bytes = _mm512_inserti32x4(bytes, _mm_loadu_si128(reinterpret_cast<const __m128i*>(blocks[2])), 2);
    bytes = _mm512_inserti32x4(bytes, _mm_loadu_si128(reinterpret_cast<const __m128i*>(blocks[3])), 3);
    return reinterpret_cast<I>(_mm512_shuffle_epi8(bytes, reinterpret_cast<__m512i>(index)));
  }
};

}  // namespace

void WarpRowsAvx512(const YuvImage& source, const YuvImage& target, const PixelMapping& mapping,
                    const RadialFactor& factor, const ColumnTerms& columns) {
  WarpRows<Lanes16, SharedRowLoads>(source, target, mapping, factor, columns);
}
