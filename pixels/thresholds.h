// Rows of bytes held against limits that run evenly from place to place.
#ifndef RASTREL_PIXELS_THRESHOLDS_H
#define RASTREL_PIXELS_THRESHOLDS_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "pixels/byte_shuffle.h"
#include "pixels/kernels.h"

namespace rastrel {

// ---- numbers that run evenly ------------------------------------------------------------------------------

// Stretches of kSide bytes (2, 4, 8 or 16), one after the other: the upper bytes of start, start + step,
// start + 2 step ...
template <int kSide>
void RunStretches(const uint16_t* starts, const uint16_t* steps, size_t count, uint8_t* bytes) {
  using Words = uint16_t __attribute__((vector_size(16)));
  using Bytes = uint8_t __attribute__((vector_size(8)));
  constexpr Words kPlaces = {0, 1, 2, 3, 4, 5, 6, 7};
  constexpr int kAtOnce = kSide < 8 ? kSide : 8;
  for (size_t i = 0; i < count; ++i) {
    const Words start = starts[i] + Words{}, step = steps[i] + Words{};
    for (int from = 0; from < kSide; from += kAtOnce) {
      const Words sums = start + (kPlaces + static_cast<uint16_t>(from)) * step;
      const Bytes upper = __builtin_convertvector(sums >> 8, Bytes);
      std::memcpy(bytes + i * kSide + static_cast<size_t>(from), &upper, kAtOnce);
    }
  }
}

#if RASTREL_HAS_X86_VERSIONS
// Stretches of 4 or 8, 32 bytes at once. Each half of a register has all their starts, or steps; shuffles
// pick those of 16 sums, and packing lays halves side by side.
template <int kSide>
RASTREL_FOR_AVX2 void RunStretchesAvx2(const uint16_t* starts, const uint16_t* steps, size_t count,
                                       uint8_t* bytes) {
  static_assert(kSide == 4 || kSide == 8);
  constexpr size_t kAtOnce = 32 / kSide;
  const __m256i places = kSide == 8 ? _mm256_setr_epi16(0, 1, 2, 3, 4, 5, 6, 7, 0, 1, 2, 3, 4, 5, 6, 7)
                                    : _mm256_setr_epi16(0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3);
  // Numbers 0 and 2 of four, or 0, 1, 4 and 5 of eight; the second sums are those of the numbers between.
  const __m256i first = kSide == 8 ? _mm256_setr_epi64x(0x0100010001000100, 0x0100010001000100,
                                                        0x0504050405040504, 0x0504050405040504)
                                   : _mm256_setr_epi64x(0x0100010001000100, 0x0302030203020302,
                                                        0x0908090809080908, 0x0B0A0B0A0B0A0B0A);
  const __m256i second = _mm256_add_epi8(first, _mm256_set1_epi8(16 / kSide));
  size_t i = 0;
  for (; i + kAtOnce <= count; i += kAtOnce) {
    const auto* const startsHere = reinterpret_cast<const __m128i*>(starts + i);
    const auto* const stepsHere = reinterpret_cast<const __m128i*>(steps + i);
    const __m256i start =
        _mm256_broadcastsi128_si256(kSide == 8 ? _mm_loadl_epi64(startsHere) : _mm_loadu_si128(startsHere));
    const __m256i step =
        _mm256_broadcastsi128_si256(kSide == 8 ? _mm_loadl_epi64(stepsHere) : _mm_loadu_si128(stepsHere));
    __m256i sums[2];
    for (const int part : {0, 1}) {
      const __m256i which = part == 0 ? first : second;
      const __m256i climbs = _mm256_mullo_epi16(places, _mm256_shuffle_epi8(step, which));
      sums[part] = _mm256_srli_epi16(_mm256_add_epi16(_mm256_shuffle_epi8(start, which), climbs), 8);
    }
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(bytes + i * kSide), _mm256_packus_epi16(sums[0], sums[1]));
  }
  RunStretches<kSide>(starts + i, steps + i, count - i, bytes + i * kSide);
}
#else
template <int kSide>
void RunStretchesAvx2(const uint16_t* starts, const uint16_t* steps, size_t count, uint8_t* bytes) {
  RunStretches<kSide>(starts, steps, count, bytes);
}
#endif

template <int kSide>
inline constexpr Kernel kRunStretches = Widest<RunStretches<kSide>>;
template <>
inline constexpr Kernel kRunStretches<4> =
    Kernel(RunStretches<4>).With(Processor::kAvx2, RunStretchesAvx2<4>);
template <>
inline constexpr Kernel kRunStretches<8> =
    Kernel(RunStretches<8>).With(Processor::kAvx2, RunStretchesAvx2<8>);

// ---- comparisons ------------------------------------------------------------------------------------------

namespace thresholds {

// Eight bytes of 0 or 1 as eight bits, the first in the highest: the factor moves byte i to bit 63 - i of the
// product.
inline uint64_t BitsOfBytes(const uint8_t* flags) {
  constexpr uint64_t kGather =
      std::endian::native == std::endian::little ? 0x8040201008040201u : 0x0102040810204080u;
  uint64_t bytes;
  std::memcpy(&bytes, flags, 8);
  return bytes * kGather >> 56;
}

inline uint64_t WordOfUpTo(const uint8_t* bytes, const uint8_t* limits, size_t count) {
  uint8_t flags[64] = {};
  for (size_t i = 0; i < count; ++i) flags[i] = bytes[i] <= limits[i] ? 1 : 0;
  uint64_t word = 0;
  for (size_t i = 0; i < 8; ++i) word = word << 8 | BitsOfBytes(flags + i * 8);
  return word;
}

inline void MarkUpTo(const uint8_t* bytes, const uint8_t* limits, size_t count, uint64_t* bits) {
  for (; count >= 64; count -= 64, bytes += 64, limits += 64) *bits++ = WordOfUpTo(bytes, limits, 64);
  if (count > 0) *bits = WordOfUpTo(bytes, limits, count);
}

#if RASTREL_HAS_X86_VERSIONS
RASTREL_FOR_AVX2 inline uint64_t HalfWordOfUpToAvx2(const uint8_t* bytes, const uint8_t* limits) {
  const __m256i value = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes));
  const __m256i limit = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(limits));
  const __m256i isUpTo = _mm256_cmpeq_epi8(_mm256_min_epu8(value, limit), value);
  // The first byte's bit comes out lowest: bytes are turned round, in each half and then the halves.
  const __m256i backwards = _mm256_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13,
                                             12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
  const __m256i turned = _mm256_permute4x64_epi64(_mm256_shuffle_epi8(isUpTo, backwards), 0x4E);
  return static_cast<uint32_t>(_mm256_movemask_epi8(turned));
}

RASTREL_FOR_AVX2 inline void MarkUpToAvx2(const uint8_t* bytes, const uint8_t* limits, size_t count,
                                          uint64_t* bits) {
  for (; count >= 64; count -= 64, bytes += 64, limits += 64)
    *bits++ = HalfWordOfUpToAvx2(bytes, limits) << 32 | HalfWordOfUpToAvx2(bytes + 32, limits + 32);
  if (count > 0) *bits = WordOfUpTo(bytes, limits, count);
}
#else
inline void MarkUpToAvx2(const uint8_t* bytes, const uint8_t* limits, size_t count, uint64_t* bits) {
  MarkUpTo(bytes, limits, count, bits);
}
#endif

}  // namespace thresholds

namespace thresholds {

inline void FlagUpTo(const uint8_t* bytes, const uint8_t* limits, size_t count, uint8_t* flags) {
  for (; count > 0; ++limits, ++flags) {
    const size_t here = count < 64 ? count : 64;
    uint8_t any = 0;
    for (size_t i = 0; i < here; ++i) any |= static_cast<uint8_t>(bytes[i] <= *limits ? 1 : 0);
    *flags = any;
    bytes += here;
    count -= here;
  }
}

#if RASTREL_HAS_X86_VERSIONS
RASTREL_FOR_AVX2 inline void FlagUpToAvx2(const uint8_t* bytes, const uint8_t* limits, size_t count,
                                          uint8_t* flags) {
  for (; count >= 64; count -= 64, bytes += 64, ++limits, ++flags) {
    const __m256i least = _mm256_min_epu8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes)),
                                          _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes + 32)));
    const __m256i limit = _mm256_set1_epi8(static_cast<char>(*limits));
    const __m256i isUpTo = _mm256_cmpeq_epi8(_mm256_min_epu8(least, limit), least);
    *flags = static_cast<uint8_t>(_mm256_testz_si256(isUpTo, isUpTo) == 0 ? 1 : 0);
  }
  FlagUpTo(bytes, limits, count, flags);
}
#else
inline void FlagUpToAvx2(const uint8_t* bytes, const uint8_t* limits, size_t count, uint8_t* flags) {
  FlagUpTo(bytes, limits, count, flags);
}
#endif

}  // namespace thresholds

// A flag, 0 or 1, for each 64 bytes of which any is no higher than their limit.
inline constexpr Kernel kFlagUpTo =
    Kernel(thresholds::FlagUpTo).With(Processor::kAvx2, thresholds::FlagUpToAvx2);

// A bit for each byte that is no higher than its limit, 64 to a word with the first in the highest bit. Bits
// beyond `count` are 0.
inline constexpr Kernel kMarkUpTo =
    Kernel(thresholds::MarkUpTo).With(Processor::kAvx2, thresholds::MarkUpToAvx2);

}  // namespace rastrel

#endif
