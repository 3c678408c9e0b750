#include "pixels/group_sums.h"

#include "pixels/kernels.h"

#if RASTREL_HAS_SSE2
#include <emmintrin.h>
#endif

namespace rastrel {
namespace {

void AddBits(const uint8_t* bytes, int groups, uint16_t* sums) {
  for (int i = 0; i < groups; ++i) {
    auto bits = static_cast<uint8_t>(bytes[i] - (bytes[i] >> 1 & 0x55));
    bits = static_cast<uint8_t>((bits & 0x33) + (bits >> 2 & 0x33));
    sums[i] = static_cast<uint16_t>(sums[i] + ((bits + (bits >> 4)) & 0x0F));
  }
}

template <int kBytes, int kDivisor>
void AddGroups(const uint8_t* bytes, int groups, uint16_t* sums) {
  for (int i = 0; i < groups; ++i, bytes += kBytes) {
    int sum = 0;
    for (int k = 0; k < kBytes; ++k) sum += bytes[k];
    sums[i] = static_cast<uint16_t>(sums[i] + sum / kDivisor);
  }
}

constexpr auto AddBytes = AddGroups<kGroupPixels, 1>;
constexpr auto AddTriples = AddGroups<3 * kGroupPixels, 3>;

#if RASTREL_HAS_SSE2

void AddBytesSse2(const uint8_t* bytes, int groups, uint16_t* sums) {
  const __m128i zero = _mm_setzero_si128();
  int i = 0;
  for (; i + 8 <= groups; i += 8, bytes += 64) {
    const auto pair = [&](int k) {
      return _mm_sad_epu8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + 16 * k)), zero);
    };
    const __m128i low = _mm_packs_epi32(pair(0), pair(1));
    const __m128i high = _mm_packs_epi32(pair(2), pair(3));
    auto* const sum = reinterpret_cast<__m128i*>(sums + i);
    // Every other 16 bits of these are 0.
    const __m128i eight = _mm_packs_epi32(low, high);
    _mm_storeu_si128(sum, _mm_add_epi16(_mm_loadu_si128(sum), eight));
  }
  for (; i < groups; ++i, bytes += 8) {
    const __m128i eight = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(bytes));
    sums[i] = static_cast<uint16_t>(sums[i] + _mm_cvtsi128_si32(_mm_sad_epu8(eight, zero)));
  }
}

void AddTriplesSse2(const uint8_t* bytes, int groups, uint16_t* sums) {
  const __m128i zero = _mm_setzero_si128();
  for (int i = 0; i < groups; ++i, bytes += 24) {
    const __m128i low = _mm_sad_epu8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes)), zero);
    const __m128i high = _mm_sad_epu8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(bytes + 16)), zero);
    const __m128i sum = _mm_add_epi32(_mm_add_epi32(low, high), _mm_srli_si128(low, 8));
    sums[i] = static_cast<uint16_t>(sums[i] + static_cast<uint32_t>(_mm_cvtsi128_si32(sum)) / 3);
  }
}

constexpr Kernel kAddBytes = Kernel(AddBytes).With(Processor::kSse2, AddBytesSse2);
constexpr Kernel kAddTriples = Kernel(AddTriples).With(Processor::kSse2, AddTriplesSse2);

#else

constexpr Kernel kAddBytes = Kernel(AddBytes);
constexpr Kernel kAddTriples = Kernel(AddTriples);

#endif

}  // namespace

void AddBitGroups(const uint8_t* bytes, int groups, uint16_t* sums) { Widest<AddBits>(bytes, groups, sums); }

void AddByteGroups(const uint8_t* bytes, int groups, uint16_t* sums) { kAddBytes(bytes, groups, sums); }

void AddTripleGroups(const uint8_t* bytes, int groups, uint16_t* sums) { kAddTriples(bytes, groups, sums); }

}  // namespace rastrel
