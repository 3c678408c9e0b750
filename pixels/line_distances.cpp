#include "pixels/line_distances.h"

#include <algorithm>

#if RASTREL_HAS_SSE2
#include <emmintrin.h>
#endif

namespace rastrel {
namespace {

constexpr int kHalf = 0x8000;
constexpr int kUncertain = kHalf - 5;  // from here on to either side of a whole number

bool Distances(const int16_t* points, const LineNormal& normal, int32_t* distances) {
  int least = 0, most = 0;
  for (int i = 0; i < kPointsAtOnce; ++i) {
    const int x = points[2 * i], y = points[2 * i + 1];
    const int high = normal.highX * x + normal.highY * y;
    const int low = normal.lowX * x + normal.lowY * y;
    const int distance = 4 * high + (low >> 13);
    const int fraction = static_cast<int16_t>(distance);
    least = std::min(least, fraction);
    most = std::max(most, fraction);
    distances[i] = distance + kHalf;
  }
  return least >= -kUncertain && most <= kUncertain;
}

#if RASTREL_HAS_SSE2

__m128i Pairs(int16_t first, int16_t second) { return _mm_set1_epi32(second * 0x10000 + (first & 0xFFFF)); }

bool DistancesSse2(const int16_t* points, const LineNormal& normal, int32_t* distances) {
  const __m128i highFactors = Pairs(normal.highX, normal.highY);
  const __m128i lowFactors = Pairs(normal.lowX, normal.lowY);
  __m128i least = _mm_setzero_si128();
  __m128i most = _mm_setzero_si128();
  for (int i = 0; i < kPointsAtOnce; i += 4) {
    const __m128i four = _mm_loadu_si128(reinterpret_cast<const __m128i*>(points + 2 * i));
    const __m128i distance = _mm_add_epi32(_mm_slli_epi32(_mm_madd_epi16(four, highFactors), 2),
                                           _mm_srai_epi32(_mm_madd_epi16(four, lowFactors), 13));
    least = _mm_min_epi16(least, distance);
    most = _mm_max_epi16(most, distance);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(distances + i),
                     _mm_add_epi32(distance, _mm_set1_epi32(kHalf)));
  }
  // The fractions, as signed numbers, are in the low halves.
  const __m128i uncertain = _mm_or_si128(_mm_cmplt_epi16(least, _mm_set1_epi16(-kUncertain)),
                                         _mm_cmpgt_epi16(most, _mm_set1_epi16(kUncertain)));
  return (_mm_movemask_epi8(uncertain) & 0x3333) == 0;
}

#endif

}  // namespace

#if RASTREL_HAS_SSE2
constinit const Kernel<DistanceFunction> kLineDistances =
    Kernel(Distances).With(Processor::kSse2, DistancesSse2);
#else
constinit const Kernel<DistanceFunction> kLineDistances = Kernel(Distances);
#endif

}  // namespace rastrel
