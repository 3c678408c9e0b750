// Bytes of a vector put in any order.
#ifndef RASTREL_PIXELS_BYTE_SHUFFLE_H
#define RASTREL_PIXELS_BYTE_SHUFFLE_H

#include <cstdint>

#include "pixels/kernels.h"

#if RASTREL_HAS_X86_VERSIONS
#include <immintrin.h>
#endif

namespace rastrel {

using ShuffleBytes = uint8_t __attribute__((vector_size(16)));

// Byte i of the result is byte places[i] (0 to 15) of `bytes`. Only for versions for SSSE3 and more.
RASTREL_FOR_SSSE3 inline ShuffleBytes Shuffled(ShuffleBytes bytes, ShuffleBytes places) {
#if RASTREL_HAS_X86_VERSIONS
  return reinterpret_cast<ShuffleBytes>(
      _mm_shuffle_epi8(reinterpret_cast<__m128i>(bytes), reinterpret_cast<__m128i>(places)));
#else
  ShuffleBytes result = {};
  for (int i = 0; i < 16; ++i) result[i] = bytes[places[i]];
  return result;
#endif
}

using WideShuffleBytes = uint8_t __attribute__((vector_size(32)));

// The same in each half by itself. Only for versions for AVX2.
RASTREL_FOR_AVX2 inline WideShuffleBytes ShuffledInHalves(WideShuffleBytes bytes, WideShuffleBytes places) {
#if RASTREL_HAS_X86_VERSIONS
  return reinterpret_cast<WideShuffleBytes>(
      _mm256_shuffle_epi8(reinterpret_cast<__m256i>(bytes), reinterpret_cast<__m256i>(places)));
#else
  WideShuffleBytes result = {};
  for (int i = 0; i < 32; ++i) result[i] = bytes[i / 16 * 16 + places[i]];
  return result;
#endif
}

}  // namespace rastrel

#endif
