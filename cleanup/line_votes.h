// Votes of points for the lines that they lie on.
#ifndef RASTREL_CLEANUP_LINE_VOTES_H
#define RASTREL_CLEANUP_LINE_VOTES_H

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "pixels/kernels.h"
#include "pixels/line_distances.h"

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

// The same in fixed point, many anchors at a time. A cosine c is c1 / 2^14 + c2 / 2^29 to within 2^-30, with
// c1 and c2 of 16 bits, so that
//
//     distance * 2^16  =  4 * (c1 * y + s1 * x)  +  (c2 * y + s2 * x) / 2^13
//
// The factors are off by (|x| + |y|) * 2^-14 or less and the last division, rounded down, by less than 1:
// together by less than 4 where |x| + |y| < 3 * 2^14. The error of the sum in doubles does not show beside
// that. So both ways round to the same line unless the fraction is within 4 of one half; anchors among which
// there is such a one vote exactly.
constexpr int kMaxFixedReach = 32000;  // |x| + |y| is at most 1.42 times this

inline LineNormal FixedNormal(const Direction& direction) {
  const double cosine = direction.cosine * 0x4000;
  const double sine = direction.sine * 0x4000;
  const auto c1 = static_cast<int16_t>(std::lround(cosine));
  const auto s1 = static_cast<int16_t>(std::lround(sine));
  return {s1, c1, static_cast<int16_t>(std::lround((sine - s1) * 0x8000)),
          static_cast<int16_t>(std::lround((cosine - c1) * 0x8000))};
}

template <class Distances, class Counter>
void VoteInGroups(const Anchor<int16_t>* anchors, size_t count, const Direction& direction, int reach,
                  Counter* votes) {
  static_assert(sizeof(*anchors) == 2 * sizeof(int16_t));
  const Distances distances(FixedNormal(direction));
  size_t i = 0;
  for (; i + kPointsAtOnce <= count; i += kPointsAtOnce) {
    int32_t found[kPointsAtOnce];
    if (distances.Find(&anchors[i].x, found)) {
#pragma GCC unroll 8
      for (int k = 0; k < kPointsAtOnce; ++k) ++votes[found[k] >> 16];
    } else {
      VoteExactly(anchors + i, kPointsAtOnce, direction, reach, votes);
    }
  }
  VoteExactly(anchors + i, count - i, direction, reach, votes);
}

template <class Counter>
inline constexpr Kernel kVoteInGroups = Kernel(VoteInGroups<LineDistances, Counter>)
                                            .With(Processor::kSse2, VoteInGroups<LineDistancesSse2, Counter>);

template <class Coordinate, class Counter>
void Vote(const Anchor<Coordinate>* anchors, size_t count, const Direction& direction, const Lines& lines,
          Counter* votes) {
  if constexpr (sizeof(Coordinate) == sizeof(int16_t)) {
    if (lines.takeAll && lines.reach <= kMaxFixedReach)
      return kVoteInGroups<Counter>(anchors, count, direction, lines.reach, votes);
  }
  VoteExactly(anchors, count, direction, lines.reach, votes);
}

}  // namespace rastrel

#endif
