// How far points lie from a line through the origin, in fixed point, many at a time.
#ifndef RASTREL_PIXELS_LINE_DISTANCES_H
#define RASTREL_PIXELS_LINE_DISTANCES_H

#include <algorithm>
#include <cstdint>

#include "pixels/kernels.h"

#if RASTREL_HAS_SSE2
#include <emmintrin.h>
#endif

namespace rastrel {

// The distance of (x, y) is x * (highX / 2^14 + lowX / 2^29) + y * (highY / 2^14 + lowY / 2^29).
struct LineNormal {
  int16_t highX, highY;
  int16_t lowX, lowY;
};

constexpr int kPointsAtOnce = 64;

// Finds the distances of kPointsAtOnce points, x and y in turn, in units of 2^-16 and with one half added, as
//
//     4 * (highX * x + highY * y)  +  (lowX * x + lowY * y) / 2^13  +  2^15
//
// of which the last division rounds down. False when some distance is less than five units from a half, so
// that which whole number is nearest is not certain. Distances are below 2^15.
//
// The two versions stand here to be inlined: a call for each few points would take as long as their sums.
class LineDistances {
 public:
  explicit LineDistances(const LineNormal& normal) : normal_(normal) {}

  bool Find(const int16_t* points, int32_t* distances) const {
    int least = 0, most = 0;
    for (int i = 0; i < kPointsAtOnce; ++i) {
      const int x = points[2 * i], y = points[2 * i + 1];
      const int high = normal_.highX * x + normal_.highY * y;
      const int low = normal_.lowX * x + normal_.lowY * y;
      const int distance = 4 * high + (low >> 13);
      const int fraction = static_cast<int16_t>(distance);
      least = std::min(least, fraction);
      most = std::max(most, fraction);
      distances[i] = distance + kHalf;
    }
    return least >= -kUncertain && most <= kUncertain;
  }

  static constexpr int kHalf = 0x8000;
  static constexpr int kUncertain = kHalf - 5;  // from here on to either side of a whole number

 private:
  LineNormal normal_;
};

#if RASTREL_HAS_SSE2

class LineDistancesSse2 {
 public:
  explicit LineDistancesSse2(const LineNormal& normal)
      : high_(Pairs(normal.highX, normal.highY)), low_(Pairs(normal.lowX, normal.lowY)) {}

  bool Find(const int16_t* points, int32_t* distances) const {
    constexpr int kUncertain = LineDistances::kUncertain;
    __m128i least = _mm_setzero_si128();
    __m128i most = _mm_setzero_si128();
    for (int i = 0; i < kPointsAtOnce; i += 4) {
      const __m128i four = _mm_loadu_si128(reinterpret_cast<const __m128i*>(points + 2 * i));
      const __m128i distance = _mm_add_epi32(_mm_slli_epi32(_mm_madd_epi16(four, high_), 2),
                                             _mm_srai_epi32(_mm_madd_epi16(four, low_), 13));
      least = _mm_min_epi16(least, distance);
      most = _mm_max_epi16(most, distance);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(distances + i),
                       _mm_add_epi32(distance, _mm_set1_epi32(LineDistances::kHalf)));
    }
    // The fractions, as signed numbers, are in the low halves.
    const __m128i uncertain = _mm_or_si128(_mm_cmplt_epi16(least, _mm_set1_epi16(-kUncertain)),
                                           _mm_cmpgt_epi16(most, _mm_set1_epi16(kUncertain)));
    return (_mm_movemask_epi8(uncertain) & 0x3333) == 0;
  }

 private:
  static __m128i Pairs(int16_t first, int16_t second) {
    return _mm_set1_epi32(second * 0x10000 + (first & 0xFFFF));
  }

  __m128i high_, low_;
};

#else

using LineDistancesSse2 = LineDistances;  // where no processor asks for it

#endif

}  // namespace rastrel

#endif
