// Bytes mixed of four, by where they lie among them.
#ifndef RASTREL_PIXELS_MIXING_H
#define RASTREL_PIXELS_MIXING_H

#include <cstddef>
#include <cstdint>

#include "pixels/byte_shuffle.h"
#include "pixels/kernels.h"

namespace rastrel {

// Where bytes lie, in 32768ths of a pixel of which only the fraction counts: a part for each byte, and one
// that all have.
struct MixedPlaces {
  const uint16_t *columnX, *columnY;
  uint16_t rowX, rowY;
};

constexpr int kMixedAtOnce = 16;

// Mixes 16 bytes of two rows with those `nextPixel` further on. All that is in 16 bits.
struct MixPlainly {
  [[gnu::always_inline]] static void Run(const uint8_t* __restrict lower, const uint8_t* __restrict upper,
                                         int nextPixel, const MixedPlaces& places, uint8_t* __restrict to) {
    for (int n = 0; n < kMixedAtOnce; ++n) {
      const auto x = static_cast<uint16_t>((places.columnX[n] + places.rowX) << 1);
      const auto y = static_cast<uint16_t>((places.columnY[n] + places.rowY) << 1);
      const auto right = static_cast<uint16_t>(x >> 8);      // in 256ths
      const auto above = static_cast<uint16_t>(y & 0xFF00);  // in 65536ths
      const auto low = static_cast<uint16_t>(lower[n] * (256 - right) + lower[n + nextPixel] * right);
      const auto high = static_cast<uint16_t>(upper[n] * (256 - right) + upper[n + nextPixel] * right);
      const auto lost = static_cast<uint16_t>((uint32_t{low} * above) >> 16);
      const auto gained = static_cast<uint16_t>((uint32_t{high} * above) >> 16);
      to[n] = static_cast<uint8_t>(static_cast<uint16_t>(low - lost + gained + 128) >> 8);
    }
  }
};

// The same with one instruction for the upper half of a product, which compilers make several of.
#if RASTREL_HAS_X86_VERSIONS
struct MixByAvx2 {
  RASTREL_FOR_AVX2 static __m256i Load(const uint16_t* words) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(words));
  }
  RASTREL_FOR_AVX2 static __m256i Widened(const uint8_t* bytes) {
    return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes)));
  }
  RASTREL_FOR_AVX2 static void Run(const uint8_t* lower, const uint8_t* upper, int nextPixel,
                                   const MixedPlaces& places, uint8_t* to) {
    const __m256i x =
        _mm256_add_epi16(Load(places.columnX), _mm256_set1_epi16(static_cast<int16_t>(places.rowX)));
    const __m256i y =
        _mm256_add_epi16(Load(places.columnY), _mm256_set1_epi16(static_cast<int16_t>(places.rowY)));
    const __m256i right = _mm256_srli_epi16(_mm256_slli_epi16(x, 1), 8);
    const __m256i left = _mm256_sub_epi16(_mm256_set1_epi16(256), right);
    const __m256i above = _mm256_slli_epi16(_mm256_srli_epi16(y, 7), 8);
    const __m256i low = _mm256_add_epi16(_mm256_mullo_epi16(Widened(lower), left),
                                         _mm256_mullo_epi16(Widened(lower + nextPixel), right));
    const __m256i high = _mm256_add_epi16(_mm256_mullo_epi16(Widened(upper), left),
                                          _mm256_mullo_epi16(Widened(upper + nextPixel), right));
    const __m256i kept = _mm256_sub_epi16(low, _mm256_mulhi_epu16(low, above));
    const __m256i sum = _mm256_add_epi16(kept, _mm256_mulhi_epu16(high, above));
    const __m256i mixed = _mm256_srli_epi16(_mm256_add_epi16(sum, _mm256_set1_epi16(128)), 8);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to),
                     _mm_packus_epi16(_mm256_castsi256_si128(mixed), _mm256_extracti128_si256(mixed, 1)));
  }
};
#else
using MixByAvx2 = MixPlainly;
#endif

}  // namespace rastrel

#endif
