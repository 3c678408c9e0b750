// Turning a page by any angle, smoothly.
//
// Every pixel of the new page takes what lies where it came from. Quarters of a turn come first, as a move of
// whole pixels; the rest is at most an eighth of a turn. There a source position is the sum of a part that
// the column decides and one that the row decides, both in fixed point, so that all builds make the same
// bytes and a tile of the new page needs them once.
//
// Between its pixels the page is taken to be what bilinear interpolation makes of it, with the background all
// around. That is also the mean of what a square of a pixel's size covers there. A pixel of 1 bit takes the
// nearest source pixel, unless that is unlike the three others around and covers little of the square:
// corners are rounded, and nothing else changes. Strokes keep their weight, as outer corners lose what inner
// ones gain. Dots and hairlines have outer ones only and would fade, so that they keep theirs; for thin
// strokes, which are a little of both, "little" is not half but 42 %, which costs no type 1 % of its ink.
//
// The new page is filled in tiles. The source pixels that one needs are first laid out in a buffer, with
// background where the page ends, so that nothing behind has to look for edges.
#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <optional>
#include <utility>

#include "frame/dib.h"
#include "frame/rastrel.h"
#include "frame/thread_state.h"
#include "geometry/plane.h"
#include "geometry/reversal.h"
#include "geometry/transposition.h"
#include "pixels/kernels.h"
#include "pixels/words.h"

namespace rastrel {
namespace {

// ---- the geometry of a turn -------------------------------------------------------------------------------

// The series, as far as counts within an eighth of a turn. The system's functions differ in last digits.
double Sine(double x) {
  const double q = x * x;
  return x * (1 - q / 6 * (1 - q / 20 * (1 - q / 42 * (1 - q / 72 * (1 - q / 110)))));
}
double Cosine(double x) {
  const double q = x * x;
  return 1 - q / 2 * (1 - q / 12 * (1 - q / 30 * (1 - q / 56 * (1 - q / 90 * (1 - q / 132)))));
}

// Counter-clockwise: quarters first, then the rest, whose sine and cosine are in units of 2^-31.
struct Turn {
  int quarters;  // 0 to 3
  int64_t sine, cosine;

  explicit Turn(double degrees) {
    const double withinTurn = std::fmod(degrees, 360.0);
    const double nearest = std::floor((withinTurn + 45) / 90);
    const double radians = (withinTurn - 90 * nearest) * 0.017453292519943295;  // the difference is exact
    quarters = static_cast<int>(nearest) & 3;
    sine = InUnits(Sine(radians));
    cosine = InUnits(Cosine(radians));
  }

  static int64_t InUnits(double value) {
    return static_cast<int64_t>(std::floor(value * 2147483648.0 + 0.5));
  }
};

struct Size {
  int64_t width, height;
};

// The smallest size that differs from the page's by even numbers, so that both centres lie in a pixel or
// between two, and leaves no pixel centre of the turned page out.
Size SizeOfWhole(const Turn& turn, Size page) {
  const auto whole = [](int64_t along, int64_t across, int64_t size) {  // both in units of 2^-31
    const int64_t growth = along - (size << 31) + across - (int64_t{1} << 31);
    constexpr int64_t kTwo = int64_t{2} << 31;
    return size + 2 * ((growth + kTwo - 1) >> 32);
  };
  const int64_t sine = std::abs(turn.sine);
  return {whole(turn.cosine * page.width, sine * page.height, page.width),
          whole(turn.cosine * page.height, sine * page.width, page.height)};
}

// A source position, or a part of one, in units of 2^-kFraction pixels; y points up. Pixels have their
// centres at whole numbers.
struct Point {
  int64_t x, y;
};
constexpr int kFraction = 15;
constexpr int kPixel = 1 << kFraction;

class Walk {
 public:
  // Where the size of the page and of the result differ by an odd number, their centres are half a pixel
  // apart, so that exact turns stay exact.
  Walk(const Turn& turn, const ConstPlane& page, Size result)
      : turn_(turn),
        centre_{(int64_t{page.width} - 1) * (kPixel / 2), (int64_t{page.height} - 1) * (kPixel / 2)},
        result_{result.width + ((result.width ^ page.width) & 1),
                result.height + ((result.height ^ page.height) & 1)} {}

  Point OfColumn(int64_t column) const {
    const int64_t right = 2 * column + 1 - result_.width;
    return {right * turn_.cosine >> kShift, -right * turn_.sine >> kShift};
  }
  Point OfRow(int64_t row) const {
    const int64_t up = 2 * row + 1 - result_.height;
    return {(up * turn_.sine >> kShift) + centre_.x, (up * turn_.cosine >> kShift) + centre_.y};
  }

 private:
  static constexpr int kShift = 1 + 31 - kFraction;

  Turn turn_;
  Point centre_;
  Size result_;  // with which positions are counted from the middle
};

// ---- tiles ------------------------------------------------------------------------------------------------

// A tile has 64 columns, a bit of a word for each, the leftmost one in the highest.
constexpr int kColumns = 64;
constexpr int kRows = 64;
constexpr uint64_t kOnes = ~uint64_t{0};
constexpr uint64_t kLeftmost = uint64_t{1} << 63;
using ColumnFlags = std::array<uint64_t, kColumns / 8>;  // as bytes

// The source pixels that a tile needs.
struct Box {
  int64_t left, bottom;
  int width, height;
};
constexpr int kBoxSide = 96;  // at most: the diagonal of a tile and what is around

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
uint64_t ColumnsOf(const ColumnFlags& flags) {
  uint64_t columns = 0;
  for (const uint64_t eight : flags) columns = columns << 8 | GatherFlags(eight);
  return columns;
}

// Flags where the whole number of a coordinate is another than that of the column before, by one bit of it.
// Returns the least and the greatest fraction.
void FlagSteps(const uint16_t* __restrict columns, uint16_t row, uint8_t* __restrict flags,
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

// ---- tiles of 1 bit ---------------------------------------------------------------------------------------

// Flags pixels between four source pixels, of which even the nearest covers little.
void FlagBetween(const uint16_t* __restrict columnX, const uint16_t* __restrict columnY, uint16_t rowX,
                 uint16_t rowY, uint8_t* __restrict flags) {
  constexpr int kLow = kPixel - 1;
  constexpr int kLittle = (1 << (2 * kFraction - 16)) * 42 / 100;
  for (int n = 0; n < kColumns; ++n) {
    const auto x = static_cast<uint16_t>((columnX[n] + rowX) & kLow);
    const auto y = static_cast<uint16_t>((columnY[n] + rowY) & kLow);
    const auto right = static_cast<uint16_t>(x >> (kFraction - 1));
    const auto upper = static_cast<uint16_t>(y >> (kFraction - 1));
    // What the nearer column and row cover: x, or kPixel - x.
    const auto shareX = static_cast<uint16_t>((x ^ ((right - 1) & kLow)) + 1 - right);
    const auto shareY = static_cast<uint16_t>((y ^ ((upper - 1) & kLow)) + 1 - upper);
    const auto share = static_cast<uint16_t>((uint32_t{shareX} * shareY) >> 16);
    flags[n] = static_cast<uint8_t>(static_cast<uint16_t>(share - kLittle) >> 15);
  }
}

// A tile's source pixels, a few words a row, with a row below and one above the box.
constexpr int kRowWords = 4;
constexpr int kSpareWords = 1;  // before and behind all rows
using BitPlane = std::array<uint64_t, kBoxSide * kRowWords + 2 * kSpareWords>;

// Finds the corners of what is at least two pixels wide: four pixels, the left lower one of which is marked,
// one unlike the three others and each in a square of four that are alike. `most` are those whose three
// others are set; `squares` and `others` are for work.
void FindCorners(const BitPlane& rows, int height, BitPlane& __restrict corners, BitPlane& __restrict most,
                 BitPlane& __restrict squares, BitPlane& __restrict others) {
  const auto onRight = [](const BitPlane& plane, int i) { return plane[i] << 1 | plane[i + 1] >> 63; };
  const auto onLeft = [](const BitPlane& plane, int i) { return plane[i] >> 1 | plane[i - 1] << 63; };
  const int end = kSpareWords + (height - 1) * kRowWords;
  for (int i = kSpareWords; i < end; ++i) {
    const int above = i + kRowWords;
    corners[i] = rows[i] ^ onRight(rows, i) ^ rows[above] ^ onRight(rows, above);
    others[i] = ~((rows[i] ^ onRight(rows, i)) | (rows[i] ^ rows[above]) | corners[i]);
  }
  for (int i = kSpareWords; i < end; ++i) squares[i] = others[i] | onLeft(others, i);
  for (int i = end - 1; i >= kSpareWords + kRowWords; --i) squares[i] |= squares[i - kRowWords];
  for (int i = kSpareWords; i < end; ++i) others[i] = squares[i] & onRight(squares, i);
  for (int i = kSpareWords; i < end - kRowWords; ++i) {
    const int above = i + kRowWords;
    corners[i] &= others[i] & others[above];
    most[i] = corners[i] & ((rows[i] & onRight(rows, i)) | (rows[above] & onRight(rows, above)));
  }
}

// The runs of a row.
class BitRuns {
 public:
  void Forget() { starts_.Forget(); }

  // Calls take(x, y, own) for each: where in the buffer its pixels would begin if all columns were of it, and
  // the columns that are.
  template <class Take>
  void ForEach(const Columns& columns, Place row, Take take) {
    if (starts_.Find(columns, row)) List(columns, row);
    const Place whole = starts_.WholeOf(row);
    for (int i = 0; i < count_; ++i) take(runs_[i].x + whole.x, runs_[i].y + whole.y, runs_[i].own);
  }

 private:
  struct Run {
    int x, y;
    uint64_t own;
  };

  void List(const Columns& columns, Place row) {
    const Place whole = starts_.WholeOf(row);
    uint64_t starts = starts_.columns();
    for (count_ = 0; starts != 0; ++count_) {
      const int n = std::countl_zero(starts);
      starts &= kOnes >> n >> 1;
      const uint64_t behind = starts == 0 ? 0 : kOnes >> std::countl_zero(starts);
      runs_[count_] = {PixelAt(row.x + columns.x[n]) - n - whole.x, PixelAt(row.y + columns.y[n]) - whole.y,
                       kOnes >> n & ~behind};
    }
  }

  RunStarts starts_;
  std::array<Run, kColumns> runs_;
  int count_ = 0;
};

class BitTile {
 public:
  BitTile(const ConstPlane& page, bool isSmooth, bool background)
      : page_(page), isSmooth_(isSmooth), background_(background ? kOnes : 0) {}

  // Words of the buffer are words of the page, with room for columns left of the box.
  static Point Origin(const Box& box) { return {(box.left - kColumns / 2) & -kColumns, box.bottom - 1}; }

  void SetColumns(const Columns& columns) {
    columns_ = columns;
    nearestRuns_.Forget();
    lowerLeftRuns_.Forget();
  }

  void Load(const Box& box) {
    const Point origin = Origin(box);
    const auto left = static_cast<int>(box.left - origin.x);
    const int first = (left - 1) / kColumns, last = (left + box.width) / kColumns;
    const int height = box.height + 2;
    for (int row = 0; row < height; ++row) {
      const int64_t y = origin.y + row;
      uint64_t* const words = &rows_[IndexOf(row)];
      if (y < 0 || y >= page_.height) {
        std::fill(words + first, words + last + 1, background_);
        continue;
      }
      const uint8_t* const from = page_.first + page_.step * static_cast<ptrdiff_t>(y);
      for (int i = first; i <= last; ++i) words[i] = SourceWord(from, origin.x / kColumns + i);
    }
    FindUniformRows(left, left + box.width, height);
    if (alikeUntil_[0] < height) FindRowsWithCorners(height);
  }

  void Fill(const Place* places, const Rows& to, bool /*isRoomy*/) {
    for (int i = 0; i < to.height; ++i) FillRow(places[i], to.width, to.StoredRow(i));
  }

 private:
  static int IndexOf(int row) { return kSpareWords + row * kRowWords; }

  void FillRow(Place row, int count, uint8_t* to) {
    const auto [lowest, highest] = std::minmax(columns_.y.front(), columns_.y.back());
    const int bottom = PixelAt(row.y + lowest);
    const int top = PixelAt(row.y + highest) + 1;
    uint64_t pixels = alikeUntil_[bottom] > top ? colours_[bottom] : Turned(row, bottom, top);
    if (count < kColumns) pixels &= ~(kOnes >> count);
    pixels = SwapLeftFirst(pixels);
    std::memcpy(to, &pixels, count > kColumns / 2 ? 8 : 4);
  }

  uint64_t SourceWord(const uint8_t* row, int64_t index) const {
    uint64_t word = 0;
    const auto at = static_cast<size_t>(index) * 8;
    const int64_t pixels = page_.width - index * kColumns;
    if (index >= 0 && pixels >= kColumns) {
      return LoadLeftFirst(row + at);
    }
    if (index < 0 || pixels <= 0) return background_;
    std::memcpy(&word, row + at, page_.rowBytes - at);
    const uint64_t beyond = kOnes >> pixels;
    return (SwapLeftFirst(word) & ~beyond) | (background_ & beyond);
  }

  // Most rows of most tiles are blank.
  void FindUniformRows(int left, int right, int height) {
    std::array<uint64_t, kRowWords> needed = {};
    for (int i = left / kColumns; i * kColumns < right; ++i) {
      const int first = std::max(left - i * kColumns, 0), behind = right - i * kColumns;
      needed[i] = kOnes >> first & ~(behind < kColumns ? kOnes >> behind : 0);
    }
    int end = height;
    for (int row = height - 1; row >= 0; --row) {
      const uint64_t* const words = &rows_[IndexOf(row)];
      colours_[row] = 0 - (words[left / kColumns] >> (63 - left % kColumns) & 1);
      uint64_t others = 0;
      for (int i = 0; i < kRowWords; ++i) others |= (words[i] ^ colours_[row]) & needed[i];
      if (row + 1 == height || colours_[row] != colours_[row + 1]) end = row + 1;
      if (others != 0) end = row;
      alikeUntil_[row] = end;
    }
  }

  void FindRowsWithCorners(int height) {
    noCornersUntil_.fill(height);
    if (!isSmooth_) return;
    Widest<FindCorners>(rows_, height, corners_, most_, work_[0], work_[1]);
    int end = height;
    for (int row = height - 3; row > 0; --row) {
      const uint64_t* const words = &corners_[IndexOf(row)];
      if ((words[0] | words[1] | words[2] | words[3]) != 0) end = row;
      noCornersUntil_[row] = end;
    }
  }

  // 64 pixels of a row of a plane, from a column on.
  static uint64_t PixelsAt(const BitPlane& plane, int x, int y) {
    const uint64_t* const words = &plane[IndexOf(y) + x / kColumns];
    const int shift = x % kColumns;
    return words[0] << shift | words[1] >> 1 >> (63 - shift);
  }

  // The pixels of a row that the buffer's rows from `bottom` to `top` are needed for.
  uint64_t Turned(Place row, int bottom, int top) {
    uint64_t nearest = 0;
    nearestRuns_.ForEach(columns_, {row.x + kPixel / 2, row.y + kPixel / 2},
                         [&](int x, int y, uint64_t own) { nearest |= PixelsAt(rows_, x, y) & own; });
    if (noCornersUntil_[bottom] >= top) return nearest;
    uint64_t corners = 0, most = 0;
    lowerLeftRuns_.ForEach(columns_, row, [&](int x, int y, uint64_t own) {
      corners |= PixelsAt(corners_, x, y) & own;
      most |= PixelsAt(most_, x, y) & own;
    });
    if (corners == 0) return nearest;
    // One of the four is unlike the others, and weighs less than they do.
    ColumnFlags flags;
    Widest<FlagBetween>(&columns_.shortX[1], &columns_.shortY[1], static_cast<uint16_t>(row.x),
                        static_cast<uint16_t>(row.y), reinterpret_cast<uint8_t*>(flags.data()));
    return nearest ^ ((nearest ^ most) & corners & ColumnsOf(flags));
  }

  ConstPlane page_;
  bool isSmooth_;
  uint64_t background_;
  Columns columns_;
  BitPlane rows_ = {};
  BitRuns nearestRuns_, lowerLeftRuns_;
  BitPlane corners_ = {}, most_ = {};
  std::array<BitPlane, 2> work_ = {};
  // Of each row the colour of its first needed pixel, and the row above from which on not all are of that
  // colour: itself, if it has others.
  std::array<uint64_t, kBoxSide> colours_;
  std::array<int, kBoxSide> alikeUntil_;
  std::array<int, kBoxSide> noCornersUntil_;  // of each row, the row above from which on there are some
};

// ---- tiles of bytes ---------------------------------------------------------------------------------------

// Bytes of a run are made so many at once; those that are too many are made again as parts of what follows.
constexpr int kAtOnce = 16;

template <int kChannels>
struct ByteColumns {
  std::array<uint16_t, kColumns * kChannels + kAtOnce> x, y;  // as the short ones, for each byte
};

// Mixes bytes of four pixels by where they lie among them. All that is in 16 bits.
[[gnu::always_inline]] inline void Mix(const uint8_t* __restrict lower, const uint8_t* __restrict upper,
                                       int nextPixel, const uint16_t* __restrict columnX,
                                       const uint16_t* __restrict columnY, uint16_t rowX, uint16_t rowY,
                                       uint8_t* __restrict to) {
  for (int n = 0; n < kAtOnce; ++n) {
    const auto x = static_cast<uint16_t>((columnX[n] + rowX) << 1);
    const auto y = static_cast<uint16_t>((columnY[n] + rowY) << 1);
    const auto right = static_cast<uint16_t>(x >> 8);      // in 256ths
    const auto above = static_cast<uint16_t>(y & 0xFF00);  // in 65536ths
    const auto low = static_cast<uint16_t>(lower[n] * (256 - right) + lower[n + nextPixel] * right);
    const auto high = static_cast<uint16_t>(upper[n] * (256 - right) + upper[n + nextPixel] * right);
    const auto lost = static_cast<uint16_t>((uint32_t{low} * above) >> 16);
    const auto gained = static_cast<uint16_t>((uint32_t{high} * above) >> 16);
    to[n] = static_cast<uint8_t>(static_cast<uint16_t>(low - lost + gained + 128) >> 8);
  }
}

// Makes a row of a tile, and up to kAtOnce - 1 bytes more.
template <int kChannels, int kStride, bool kIsSmooth>
void TurnRow(const uint8_t* buffer, uint64_t starts, const Columns& columns,
             const ByteColumns<kChannels>& bytes, Place row, int count, uint8_t* to) {
  while (starts != 0) {
    const int n = std::countl_zero(starts);
    if (n >= count) return;
    starts &= kOnes >> n >> 1;
    const int end = std::min(std::countl_zero(starts), count) * kChannels;
    const uint8_t* from =
        buffer + PixelAt(row.y + columns.y[n]) * kStride + PixelAt(row.x + columns.x[n]) * kChannels;
    for (int i = n * kChannels; i < end; i += kAtOnce, from += kAtOnce) {
      if constexpr (kIsSmooth) {
        Mix(from, from + kStride, kChannels, &bytes.x[i], &bytes.y[i], static_cast<uint16_t>(row.x),
            static_cast<uint16_t>(row.y), to + i);
      } else {
        std::memcpy(to + i, from, kAtOnce);
      }
    }
  }
}

// What a page with a colour table is mixed by: the greys of its indices, and the indices nearest to greys.
struct GreyTable {
  std::array<uint8_t, 256> greys, indices;
};

// 4, 8 or 24 bits. The buffer has the bytes of pixels, or with a table their greys.
template <int kBits>
class ByteTile {
 public:
  ByteTile(const ConstPlane& page, bool isSmooth, const GreyTable* table, const uint8_t* background)
      : page_(page), isSmooth_(isSmooth), table_(table) {
    std::memcpy(background_.data(), background, kChannels);
    if (table_ != nullptr) background_[0] = table_->greys[background_[0]];
  }

  static Point Origin(const Box& box) { return {box.left, box.bottom}; }

  void SetColumns(const Columns& columns) {
    columns_ = columns;
    starts_.Forget();
    for (int i = 0; i < kColumns * kChannels; ++i) {
      bytes_.x[i] = columns.shortX[1 + i / kChannels];
      bytes_.y[i] = columns.shortY[1 + i / kChannels];
    }
  }

  void Load(const Box& box) {
    const auto left = static_cast<int>(std::clamp<int64_t>(-box.left, 0, box.width));
    const auto right = static_cast<int>(std::clamp<int64_t>(page_.width - box.left, left, box.width));
    for (int row = 0; row < box.height; ++row) {
      const int64_t y = box.bottom + row;
      uint8_t* const to = buffer_.data() + row * kStride;
      if (y < 0 || y >= page_.height || left == right) {
        FillBackground(to, box.width);
        continue;
      }
      const uint8_t* const from = page_.first + page_.step * static_cast<ptrdiff_t>(y);
      FillBackground(to, left);
      LoadPixels(from, box.left + left, right - left, to + left * kChannels);
      FillBackground(to + right * kChannels, box.width - right);
    }
  }

  // `to` has room for more bytes behind its pixels where `isRoomy`.
  void Fill(const Place* places, const Rows& to, bool isRoomy) {
    const int half = isSmooth_ ? kPixel / 512 : kPixel / 2;  // of what positions are rounded to
    const auto turnRow =
        (isSmooth_ ? Widest<TurnRow<kChannels, kStride, true>> : Widest<TurnRow<kChannels, kStride, false>>)
            .Best();
    for (int i = 0; i < to.height; ++i) {
      const Place place = {places[i].x + half, places[i].y + half};
      uint8_t* const bytes = kBits == 4 || !isRoomy ? row_.data() : to.StoredRow(i);
      starts_.Find(columns_, place);
      turnRow(buffer_.data(), starts_.columns(), columns_, bytes_, place, to.width, bytes);
      if constexpr (kChannels == 1) {
        if (table_ != nullptr) LookUp(table_->indices, to.width, bytes);
      }
      if constexpr (kBits == 4) {
        Pack(to.width, to.StoredRow(i));
      } else if (!isRoomy) {
        std::memcpy(to.StoredRow(i), bytes, static_cast<size_t>(to.width) * kChannels);
      }
    }
  }

 private:
  static constexpr int kChannels = kBits == 24 ? 3 : 1;
  static constexpr int kStride = kBoxSide * kChannels;

  void FillBackground(uint8_t* to, int count) const {
    for (int i = 0; i < count * kChannels; ++i) to[i] = background_[i % kChannels];
  }

  void LoadPixels(const uint8_t* row, int64_t first, int count, uint8_t* to) const {
    if constexpr (kBits == 4) {
      for (int n = 0; n < count; ++n) {
        const int64_t x = first + n;
        to[n] = row[x / 2] >> (x % 2 == 0 ? 4 : 0) & 0xF;
      }
    } else {
      std::memcpy(to, row + first * kChannels, static_cast<size_t>(count) * kChannels);
    }
    if constexpr (kChannels == 1) {
      if (table_ != nullptr) LookUp(table_->greys, count, to);
    }
  }

  static void LookUp(const std::array<uint8_t, 256>& table, int count, uint8_t* bytes) {
    for (int n = 0; n < count; ++n) bytes[n] = table[bytes[n]];
  }

  void Pack(int count, uint8_t* to) {
    row_[count] = 0;
    for (int n = 0; n < count; n += 2) to[n / 2] = static_cast<uint8_t>(row_[n] << 4 | row_[n + 1]);
  }

  ConstPlane page_;
  bool isSmooth_;
  const GreyTable* table_;
  std::array<uint8_t, kChannels> background_;
  Columns columns_;
  RunStarts starts_;
  ByteColumns<kChannels> bytes_ = {};
  std::array<uint8_t, kColumns * kChannels + kAtOnce> row_;
  std::array<uint8_t, kBoxSide* kStride + 2 * kAtOnce> buffer_ = {};
};

// ---- the pass over the page -------------------------------------------------------------------------------

Columns ColumnsFrom(const Walk& walk, int64_t left) {
  const Point first = walk.OfColumn(left);
  Columns columns;
  for (int n = 0; n < kColumns; ++n) {
    const Point column = walk.OfColumn(left + n);
    columns.x[n] = static_cast<int32_t>(column.x - first.x);
    columns.y[n] = static_cast<int32_t>(column.y - first.y);
    columns.shortX[n + 1] = static_cast<uint16_t>(columns.x[n]);
    columns.shortY[n + 1] = static_cast<uint16_t>(columns.y[n]);
  }
  columns.shortX[0] = columns.shortY[0] = 0;
  return columns;
}

template <class Tile>
void FillTile(const Walk& walk, int64_t left, int bottom, bool isRoomy, Tile* tile, const Rows& to) {
  // Coordinates go one way along rows and columns, so that the corners bound the tile's.
  const Point first = walk.OfColumn(left), last = walk.OfColumn(left + kColumns - 1);
  const Point lowest = walk.OfRow(bottom), highest = walk.OfRow(bottom + kRows - 1);
  const auto bound = [](int64_t a, int64_t b, int64_t c, int64_t d) {
    const int64_t low = (std::min(a, b) + std::min(c, d)) >> kFraction;
    const int64_t high = (std::max(a, b) + std::max(c, d)) >> kFraction;
    return std::pair(low, static_cast<int>(high - low) + 2);
  };
  const auto [boxLeft, width] = bound(first.x, last.x, lowest.x, highest.x);
  const auto [boxBottom, height] = bound(first.y, last.y, lowest.y, highest.y);
  const Box box = {boxLeft, boxBottom, width, height};
  const Point origin = Tile::Origin(box);
  tile->Load(box);
  std::array<Place, kRows> places;
  for (int i = 0; i < to.height; ++i) {
    const Point row = walk.OfRow(bottom + i);
    places[i] = {static_cast<int32_t>(row.x + first.x - origin.x * kPixel),
                 static_cast<int32_t>(row.y + first.y - origin.y * kPixel)};
  }
  tile->Fill(places.data(), to, isRoomy);
}

template <class Tile>
void FillPage(const Walk& walk, unsigned bits, Tile tile, const Rows& result) {
  // Tiles above each other share their columns; of more rows than these the source would leave the caches.
  constexpr int kBandRows = 8 * kRows;
  const auto usedBytes = static_cast<size_t>(uint64_t{static_cast<uint32_t>(result.width)} * bits / 8);
  for (int64_t band = 0; band < result.height; band += kBandRows) {
    const int64_t end = std::min<int64_t>(band + kBandRows, result.height);
    for (int64_t y = band; y < end; ++y) {
      std::memset(result.StoredRow(static_cast<int>(y)) + usedBytes, 0, result.stride - usedBytes);
    }
    for (int64_t left = 0; left < result.width; left += kColumns) {
      tile.SetColumns(ColumnsFrom(walk, left));
      const auto count = static_cast<int>(std::min<int64_t>(kColumns, result.width - left));
      const bool isRoomy = left + kColumns + kAtOnce <= result.width;
      for (int64_t y = band; y < end; y += kRows) {
        const auto bottom = static_cast<int>(y);
        uint8_t* const to = result.StoredRow(bottom) + static_cast<size_t>(left * bits / 8);
        const auto rows = static_cast<int>(std::min<int64_t>(kRows, end - y));
        FillTile(walk, left, bottom, isRoomy, &tile, Rows{to, result.stride, count, rows});
      }
    }
  }
}

// ---- the operation ----------------------------------------------------------------------------------------

int64_t Distance(const RGBQUAD& entry, COLORREF colour) {
  const int red = entry.rgbRed - static_cast<int>(colour & 0xFF);
  const int green = entry.rgbGreen - static_cast<int>(colour >> 8 & 0xFF);
  const int blue = entry.rgbBlue - static_cast<int>(colour >> 16 & 0xFF);
  return red * red + green * green + blue * blue;
}

// The colour table of a page of up to 8 bits. Indices without an entry count as black.
struct ColourTable {
  std::array<RGBQUAD, 256> entries;
  int count;

  explicit ColourTable(const LockedDib& page) {
    entries.fill(kBlack);
    const uint32_t stored = DIBNumColors(&page.header());
    count = static_cast<int>(std::min(stored, 1u << std::min(page.bits(), 8u)));
    page.ReadPalette(static_cast<unsigned>(count), kBlack, entries.data());
  }

  // The lowest of equally near ones.
  uint8_t NearestTo(COLORREF colour) const {
    int nearest = 0;
    for (int i = 1; i < count; ++i) {
      if (Distance(entries[i], colour) < Distance(entries[nearest], colour)) nearest = i;
    }
    return static_cast<uint8_t>(nearest);
  }

  bool IsGrey() const {
    return std::all_of(entries.begin(), entries.begin() + count, [](const RGBQUAD& entry) {
      return entry.rgbRed == entry.rgbGreen && entry.rgbGreen == entry.rgbBlue;
    });
  }

  bool IsRamp() const {
    for (int i = 0; i < 256; ++i) {
      if (entries[i].rgbRed != i) return false;
    }
    return IsGrey();
  }

  GreyTable Greys() const {
    GreyTable table;
    for (unsigned i = 0; i < 256; ++i) {
      table.greys[i] = entries[i].rgbRed;
      table.indices[i] = NearestTo(i * 0x010101);
    }
    return table;
  }
};

void StraightenRows(const LockedDib& page, const ConstPlane& source, const Turn& turn, bool isSmooth,
                    COLORREF background, const Rows& result) {
  const Walk walk(turn, source, {result.width, result.height});
  const ColourTable colours(page);
  if (page.bits() == 1) {
    return FillPage(walk, 1, BitTile(source, isSmooth, colours.NearestTo(background) != 0), result);
  }
  if (page.bits() == 24) {
    const uint8_t pixel[] = {static_cast<uint8_t>(background >> 16), static_cast<uint8_t>(background >> 8),
                             static_cast<uint8_t>(background)};
    return FillPage(walk, 24, ByteTile<24>(source, isSmooth, nullptr, pixel), result);
  }
  const uint8_t pixel = colours.NearestTo(background);
  const bool isMixed = isSmooth && colours.IsGrey();
  const GreyTable greys = isMixed ? colours.Greys() : GreyTable();
  const GreyTable* table = isMixed && !colours.IsRamp() ? &greys : nullptr;
  if (page.bits() == 4) {
    FillPage(walk, 4, ByteTile<4>(source, isMixed, table, &pixel), result);
  } else {
    FillPage(walk, 8, ByteTile<8>(source, isMixed, table, &pixel), result);
  }
}

ErrorCode FindPage(const LockedDib& page, uint64_t rowsOffset, ConstRows* rows) {
  const Header& header = page.header();
  if (header.biSize != kHeaderBytes) return ErrFileFormat;
  if (header.biCompression != BI_RGB) return ErrCompressed;
  if (header.biWidth <= 0 || header.biHeight <= 0) return ErrDIBSize;
  const unsigned bits = header.biBitCount;
  if (bits != 1 && bits != 4 && bits != 8 && bits != 24) return ErrBitsPerPixel;
  return page.FindRows(rowsOffset, rows) ? ErrSuccess : ErrDIBSize;
}

ConstPlane PlaneOf(const ConstRows& rows) {
  return {rows.first, static_cast<ptrdiff_t>(rows.stride), rows.stride, rows.width, rows.height};
}

// Stored rows go up, so that this is the reverse of what it is on rows that go down.
void TurnQuarters(int quarters, const ConstPlane& from, unsigned bits, const MutablePlane& to) {
  if (quarters == 2) return ReverseRows(from, bits, to.UpsideDown());
  if (quarters == 1) return Transpose(from.UpsideDown(), bits, to);
  Transpose(from, bits, to.UpsideDown());
}

HGLOBAL Straighten(HGLOBAL dib, double angleDegrees, int quality, COLORREF background) {
  ThreadState& state = GetThreadState();
  const WaitCursor cursor;
  state.lastError = ErrSuccess;

  const bool isKnownQuality = (quality & ~(1 | STRAIGHTEN_SAME_SIZE)) == 0;
  if (dib == nullptr || !std::isfinite(angleDegrees) || !isKnownQuality) return state.Fail(ErrParameter);
  const LockedDib page(dib);
  if (!page) return state.Fail(ErrLockMemory);
  const uint64_t rowsOffset = kHeaderBytes + PaletteBytes(&page.header());
  ConstRows rows;
  if (const ErrorCode refused = FindPage(page, rowsOffset, &rows)) return state.Fail(refused);

  const Turn turn(angleDegrees);
  Header header = page.header();
  Size turnedPage = {rows.width, rows.height};
  if (turn.quarters % 2 != 0) {
    std::swap(turnedPage.width, turnedPage.height);
    std::swap(header.biXPelsPerMeter, header.biYPelsPerMeter);
  }
  if ((quality & STRAIGHTEN_SAME_SIZE) == 0) {
    const Size whole = SizeOfWhole(turn, turnedPage);
    if (std::max(whole.width, whole.height) > INT32_MAX) return state.Fail(ErrNoMemory);
    header.biWidth = static_cast<int32_t>(whole.width);
    header.biHeight = static_cast<int32_t>(whole.height);
  }
  const uint64_t imageBytes = DIBImageBytes(header.biWidth, header.biHeight, header.biBitCount);
  header.biSizeImage = static_cast<uint32_t>(imageBytes);
  NewBlock result(rowsOffset + imageBytes, Content::kUnset, Retry::kWhenCompacted);
  if (const ErrorCode failure = result.Failure()) return state.Fail(failure);

  ConstPlane source = PlaneOf(rows);
  std::optional<NewBlock> turned;
  if (turn.quarters != 0) {
    const auto width = static_cast<int32_t>(turnedPage.width);
    const auto height = static_cast<int32_t>(turnedPage.height);
    const auto stride = static_cast<size_t>(DIBRowBytes(turnedPage.width, page.bits()));
    turned.emplace(DIBImageBytes(width, height, page.bits()), Content::kUnset, Retry::kWhenCompacted);
    if (const ErrorCode failure = turned->Failure()) return state.Fail(failure);
    const MutablePlane plane = {turned->bytes(), static_cast<ptrdiff_t>(stride), stride, width, height};
    TurnQuarters(turn.quarters, source, page.bits(), plane);
    source = plane;
  }

  std::memcpy(result.bytes(), page.bytes(), static_cast<size_t>(rowsOffset));
  std::memcpy(result.bytes(), &header, sizeof(header));
  const Rows to = {result.bytes() + rowsOffset,
                   static_cast<size_t>(DIBRowBytes(static_cast<uint32_t>(header.biWidth), page.bits())),
                   header.biWidth, header.biHeight};
  const bool isSmooth = (quality & 1) != 0 && turn.sine != 0;
  StraightenRows(page, source, turn, isSmooth, background, to);
  return result.Release();
}

}  // namespace
}  // namespace rastrel

HGLOBAL RASTREL_CALL StraightenDIB(HGLOBAL dib, double angleDegrees, int quality, COLORREF background) {
  return rastrel::Straighten(dib, angleDegrees, quality, background);
}
