// Votes of points for the lines that they lie on.
#ifndef RASTREL_CLEANUP_LINE_VOTES_H
#define RASTREL_CLEANUP_LINE_VOTES_H

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace rastrel {

// Where a clump is, from the middle of the page.
template <class Coordinate>
struct Anchor {
  Coordinate x;
  Coordinate y;
};

constexpr double kRadians = 0.017453292519943295;

struct Direction {
  explicit Direction(int degrees)
      : cosine(std::cos(degrees * kRadians)), sine(std::sin(degrees * kRadians)) {}
  double cosine;
  double sine;
};

// The lines of one direction are told by their distance from the middle of the page, rounded to whole pixels,
// halves away from 0: -reach to reach.
struct Lines {
  int reach;
  bool takeAll;  // no anchor lies on a line beyond the reach
};

inline Lines LinesOfPage(int width, int height) {
  // Kept: the sum wraps at 32 bits. Where it comes out negative or 0 a page has no line at all.
  const auto w = static_cast<uint32_t>(width);
  const auto h = static_cast<uint32_t>(height);
  const auto squares = static_cast<int32_t>(w * w + h * h);
  if (squares < 0) return {-1, false};
  const int outermost = static_cast<int>(std::sqrt(squares / 2.0) + 0.5) - 1;
  const double dx = width / 2;
  const double dy = height / 2;
  const int farthest = static_cast<int>(std::sqrt(dx * dx + dy * dy) + 1);
  return {std::min(outermost, farthest), farthest <= outermost};
}

// votes[-reach] to votes[reach] are counters.
template <class Coordinate, class Counter>
void VoteExactly(const Anchor<Coordinate>* anchors, size_t count, const Direction& direction, int reach,
                 Counter* votes) {
  for (size_t i = 0; i < count; ++i) {
    const double distance = direction.cosine * anchors[i].y + direction.sine * anchors[i].x;
    const auto line = static_cast<int>(distance > 0 ? distance + 0.5 : distance - 0.5);
    if (-reach <= line && line <= reach) ++votes[line];
  }
}

#ifdef __SSE2__

// The same in fixed point, four anchors at a time. A cosine c is c1 / 2^14 + c2 / 2^29 to within 2^-30, with
// c1 and c2 of 16 bits, so that
//
//     distance * 2^16  =  4 * (c1 * y + s1 * x)  +  (c2 * y + s2 * x) / 2^13
//
// The factors are off by (|x| + |y|) * 2^-14 or less and the last division, rounded down, by less than 1:
// together by less than 4 where |x| + |y| < 3 * 2^14. The error of the sum in doubles does not show beside
// that. So both ways round to the same line unless the fraction is within 4 of one half; a block with such an
// anchor votes exactly.
constexpr int kBlock = 64;
constexpr int kMaxFixedReach = 32000;  // |x| + |y| is at most 1.42 times this
constexpr int kUncertain = 0x8000 - 5;

class FixedDirection {
 public:
  explicit FixedDirection(const Direction& direction) {
    const double cosine = direction.cosine * 0x4000;
    const double sine = direction.sine * 0x4000;
    const auto c1 = static_cast<int>(std::lround(cosine));
    const auto s1 = static_cast<int>(std::lround(sine));
    high_ = Pair(s1, c1);
    low_ = Pair(static_cast<int>(std::lround((sine - s1) * 0x8000)),
                static_cast<int>(std::lround((cosine - c1) * 0x8000)));
  }

  // Finds the lines of kBlock anchors, times 2^16 and a fraction. Returns false when one of them is not
  // certain.
  bool LinesOf(const Anchor<int16_t>* anchors, int32_t* lines) const {
    static_assert(sizeof(*anchors) == 4);
    __m128i least = _mm_setzero_si128();
    __m128i most = _mm_setzero_si128();
    for (int i = 0; i < kBlock; i += 4) {
      const __m128i four = _mm_loadu_si128(reinterpret_cast<const __m128i*>(anchors + i));
      const __m128i distance = _mm_add_epi32(_mm_slli_epi32(_mm_madd_epi16(four, high_), 2),
                                             _mm_srai_epi32(_mm_madd_epi16(four, low_), 13));
      least = _mm_min_epi16(least, distance);
      most = _mm_max_epi16(most, distance);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(lines + i),
                       _mm_add_epi32(distance, _mm_set1_epi32(0x8000)));
    }
    // The fractions, as signed numbers, are in the low halves.
    const __m128i uncertain = _mm_or_si128(_mm_cmplt_epi16(least, _mm_set1_epi16(-kUncertain)),
                                           _mm_cmpgt_epi16(most, _mm_set1_epi16(kUncertain)));
    return (_mm_movemask_epi8(uncertain) & 0x3333) == 0;
  }

 private:
  static __m128i Pair(int first, int second) { return _mm_set1_epi32(second * 0x10000 + (first & 0xFFFF)); }

  __m128i high_;
  __m128i low_;
};

template <class Counter>
void VoteFast(const Anchor<int16_t>* anchors, size_t count, const Direction& direction, int reach,
              Counter* votes) {
  const FixedDirection fixed(direction);
  size_t i = 0;
  for (; i + kBlock <= count; i += kBlock) {
    int32_t lines[kBlock];
    if (fixed.LinesOf(anchors + i, lines)) {
#pragma GCC unroll 8
      for (int k = 0; k < kBlock; ++k) ++votes[lines[k] >> 16];
    } else {
      VoteExactly(anchors + i, kBlock, direction, reach, votes);
    }
  }
  VoteExactly(anchors + i, count - i, direction, reach, votes);
}

#endif  // __SSE2__

template <class Coordinate, class Counter>
void Vote(const Anchor<Coordinate>* anchors, size_t count, const Direction& direction, const Lines& lines,
          Counter* votes) {
#ifdef __SSE2__
  if constexpr (sizeof(Coordinate) == sizeof(int16_t)) {
    if (lines.takeAll && lines.reach <= kMaxFixedReach)
      return VoteFast(anchors, count, direction, lines.reach, votes);
  }
#endif
  VoteExactly(anchors, count, direction, lines.reach, votes);
}

}  // namespace rastrel

#endif
