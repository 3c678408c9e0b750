// Points and boxes of pixels, as the turns by any angle use them.
#ifndef RASTREL_GEOMETRY_PLACES_H
#define RASTREL_GEOMETRY_PLACES_H

#include <algorithm>

namespace rastrel {

// x points right and y up, as stored rows do.
template <class Coordinate>
struct Point {
  Coordinate x, y;
};

// Columns or rows from `first` to before `end`.
template <class Number>
struct Interval {
  Number first, end;

  bool empty() const { return first >= end; }
  Number size() const { return end - first; }
  Interval And(Interval other) const { return {std::max(first, other.first), std::min(end, other.end)}; }
};

template <class Number>
struct Box {
  Interval<Number> columns, rows;
};

}  // namespace rastrel

#endif
