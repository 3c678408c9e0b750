// The geometry of straightening, in fixed point: where the pixels of the new page come from.
#ifndef RASTREL_GEOMETRY_STRAIGHTENING_WALK_H
#define RASTREL_GEOMETRY_STRAIGHTENING_WALK_H

#include <cstdint>

#include "frame/dib.h"
#include "geometry/places.h"

namespace rastrel::straightening {

// Counter-clockwise: quarters first, then the rest, whose sine and cosine are in units of 2^-31.
struct Turn {
  int quarters;  // 0 to 3
  int64_t sine, cosine;

  explicit Turn(double degrees);
};

struct Size {
  int64_t width, height;
};

// The smallest size that differs from the page's by even numbers, so that both centres lie in a pixel or
// between two, and leaves no pixel centre of the turned page out.
Size SizeOfWhole(const Turn& turn, Size page);

// A source position, or a part of one, in units of 2^-kFraction pixels. Pixels have their centres at whole
// numbers.
using Position = Point<int64_t>;
constexpr int kFraction = 15;
constexpr int kPixel = 1 << kFraction;

class Walk {
 public:
  // Where the size of the page and of the result differ by an odd number, their centres are half a pixel
  // apart, so that exact turns stay exact.
  Walk(const Turn& turn, const ConstRows& page, Size result)
      : turn_(turn),
        centre_{(int64_t{page.width} - 1) * (kPixel / 2), (int64_t{page.height} - 1) * (kPixel / 2)},
        result_{result.width + ((result.width ^ page.width) & 1),
                result.height + ((result.height ^ page.height) & 1)} {}

  Position OfColumn(int64_t column) const {
    const int64_t right = 2 * column + 1 - result_.width;
    return {right * turn_.cosine >> kShift, -right * turn_.sine >> kShift};
  }
  Position OfRow(int64_t row) const {
    const int64_t up = 2 * row + 1 - result_.height;
    return {(up * turn_.sine >> kShift) + centre_.x, (up * turn_.cosine >> kShift) + centre_.y};
  }

 private:
  static constexpr int kShift = 1 + 31 - kFraction;

  Turn turn_;
  Position centre_;
  Size result_;  // with which positions are counted from the middle
};

}  // namespace rastrel::straightening

#endif
