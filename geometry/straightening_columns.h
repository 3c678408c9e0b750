// The columns of a tile of a straightened page, and where their pixels step on in the source.
#ifndef RASTREL_GEOMETRY_STRAIGHTENING_COLUMNS_H
#define RASTREL_GEOMETRY_STRAIGHTENING_COLUMNS_H

#include <algorithm>
#include <array>
#include <cstdint>

#include "geometry/straightening_walk.h"
#include "pixels/kernels.h"
#include "pixels/words.h"

namespace rastrel::straightening {

// A tile has 64 columns, a bit of a word for each, the leftmost one in the highest.
constexpr int kColumns = 64;
constexpr int kRows = 64;
constexpr uint64_t kOnes = ~uint64_t{0};
constexpr uint64_t kLeftmost = uint64_t{1} << 63;
using ColumnFlags = std::array<uint64_t, kColumns / 8>;  // as bytes

// The source pixels that a tile needs lie in a box, whose sides are no longer than its diagonal and what is
// around.
constexpr int kBoxSide = 96;

// A position in a tile's buffer.
struct Place {
  int32_t x, y;
};
constexpr int PixelAt(int32_t position) { return position >> kFraction; }

// Where a tile's columns come from, counted from its first one.
struct Columns {
  std::array<int32_t, kColumns> x, y;
  // Again one bit of the whole numbers and the fractions, from the column before the first on.
  std::array<uint16_t, 1 + kColumns> shortX, shortY;
};

// Returns the columns whose flag is 1.
inline uint64_t ColumnsOf(const ColumnFlags& flags) {
  uint64_t columns = 0;
  for (const uint64_t eight : flags) columns = columns << 8 | GatherFlags(eight);
  return columns;
}

// Flags where the whole number of a coordinate is another than that of the column before, by one bit of it.
// Returns the least and the greatest fraction.
inline void FlagSteps(const uint16_t* __restrict columns, uint16_t row, uint8_t* __restrict flags,
                      int16_t* __restrict least, int16_t* __restrict greatest) {
  int16_t low = kPixel - 1, high = 0;
  for (int n = 0; n < kColumns; ++n) {
    const auto before = static_cast<uint16_t>(columns[n] + row);
    const auto here = static_cast<uint16_t>(columns[n + 1] + row);
    flags[n] = static_cast<uint8_t>(static_cast<uint16_t>(before ^ here) >> kFraction);
    const auto fraction = static_cast<int16_t>(here & (kPixel - 1));
    low = std::min(low, fraction);
    high = std::max(high, fraction);
  }
  *least = low;
  *greatest = high;
}

// The columns at which a coordinate steps on. They stay the same from row to row, while no column's fraction
// reaches the next whole number: for many rows where angles are small.
class Steps {
 public:
  bool Hold(int32_t row) const { return ((row - row_ + low_) & (kPixel - 1)) < span_; }
  void Find(const uint16_t* columns, int32_t row) {
    ColumnFlags flags;
    int16_t high = 0;
    Widest<FlagSteps>(columns, static_cast<uint16_t>(row), reinterpret_cast<uint8_t*>(flags.data()), &low_,
                      &high);
    columns_ = ColumnsOf(flags);
    row_ = row;
    span_ = kPixel - high + low_;
  }
  void Forget() { span_ = 0; }
  uint64_t columns() const { return columns_; }
  // By how many whole numbers a row is further on than the first one that had these steps.
  int WholeOf(int32_t row) const { return PixelAt(row - row_ + low_); }

 private:
  uint64_t columns_ = 0;
  int32_t row_ = 0;
  int16_t low_ = 0;
  int span_ = 0;
};

// Along a row the pixels come in runs that lie side by side in the source.
class RunStarts {
 public:
  void Forget() {
    x_.Forget();
    y_.Forget();
  }
  // Returns whether they are others than the row's before.
  bool Find(const Columns& columns, Place row) {
    const bool holdsX = x_.Hold(row.x), holdsY = y_.Hold(row.y);
    if (!holdsX) x_.Find(columns.shortX.data(), row.x);
    if (!holdsY) y_.Find(columns.shortY.data(), row.y);
    return !holdsX || !holdsY;
  }
  uint64_t columns() const { return ~x_.columns() | y_.columns() | kLeftmost; }
  Place WholeOf(Place row) const { return {x_.WholeOf(row.x), y_.WholeOf(row.y)}; }

 private:
  Steps x_, y_;
};

}  // namespace rastrel::straightening

#endif
