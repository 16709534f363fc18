// The radial warp's rows on eight lanes, built with AVX2: each half of a
// vector shuffles its neighbours out of its own 16-byte row blocks.
#include <immintrin.h>

#include <cstdint>

#include "distortion/PixelMapping.h"
#include "distortion/WarpRows.h"

namespace {

using F8 = float __attribute__((vector_size(32)));
using I8 = int32_t __attribute__((vector_size(32)));

struct Lanes8 {
  using F = F8;
  using I = I8;
  static constexpr int kLanes = 8;

  static F Sqrt(F value) { return reinterpret_cast<F>(_mm256_sqrt_ps(reinterpret_cast<__m256>(value))); }

  // maxps and minps return their second operand on NaN: the scalar clamp's rule.
  static F Clamp(F value, float low, float high) {
    const __m256 raised = _mm256_max_ps(_mm256_set1_ps(low), reinterpret_cast<__m256>(value));
    return reinterpret_cast<F>(_mm256_min_ps(raised, _mm256_set1_ps(high)));
  }

  static bool AnyLaneSet(I mask) {
    const __m256i bits = reinterpret_cast<__m256i>(mask);
    return _mm256_testz_si256(bits, bits) == 0;
  }

  static void StoreBytes(I values, uint8_t* out) {
    const __m256i v = reinterpret_cast<__m256i>(values);
    const __m128i words = _mm_packs_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(words, words));
  }

  static void StoreBytePairs(I first, I second, uint8_t* out) {
    const __m256i pairs = reinterpret_cast<__m256i>(first | (second << 8));
    const __m128i words = _mm_packus_epi32(_mm256_castsi256_si128(pairs), _mm256_extracti128_si256(pairs, 1));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), words);
  }

  static F OddLanes(F a, F b) { return __builtin_shufflevector(a, b, 1, 3, 5, 7, 9, 11, 13, 15); }
  static I GroupLeaders(I values) { return __builtin_shufflevector(values, values, 0, 0, 0, 0, 4, 4, 4, 4); }

  static I ShuffleGroups(const uint8_t* const* blocks, I index) {
    const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(blocks[0]));
    const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(blocks[1]));
    const __m256i bytes = _mm256_inserti128_si256(_mm256_castsi128_si256(low), high, 1);
    return reinterpret_cast<I>(_mm256_shuffle_epi8(bytes, reinterpret_cast<__m256i>(index)));
  }
};

}  // namespace

void WarpRowsAvx2(const YuvImage& source, const YuvImage& target, const PixelMapping& mapping,
                  const RadialFactor& factor, const ColumnTerms& columns) {
  WarpRows<Lanes8, SharedRowLoads>(source, target, mapping, factor, columns);
}
