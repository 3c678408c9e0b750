// Turning a page by any angle.
//
// Every pixel of the new page takes the source pixel that lies where it came from. Only the corners of the
// new page are mapped back in floating point. In between, the first pixel of each row is found by adding a
// constant step to that of the row below, and the other pixels of a row by two integer error accumulators,
// one a coordinate, that start anew in each row. So the way from a row's first source pixel to its n-th
// depends on n alone: it is worked out once for a tile of columns and serves all rows of the tile. Where the
// page is turned a little, the way is cut into runs, stretches of columns that lie side by side in one source
// row, and these are copied as bytes or as the bits of a word.
//
// The new page is filled in tiles that are small enough for the source pixels they need to stay in the cache
// at any angle.
#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>

#include "frame/dib.h"
#include "frame/rastrel.h"
#include "frame/thread_state.h"
#include "geometry/page_to_turn.h"
#include "pixels/words.h"

namespace rastrel {
namespace {

// ---- the geometry of a turn -------------------------------------------------------------------------------

// Kept: callers compare bytes. More digits of pi / 180 would shift single pixels at some angles.
constexpr double kRadiansPerDegree = 0.01745329;

struct Point {
  double x, y;
};

// A counter-clockwise turn about the origin; y points up.
class Turn {
 public:
  explicit Turn(double radians) : sine_(std::sin(radians)), cosine_(std::cos(radians)) {}

  double sine() const { return sine_; }
  double cosine() const { return cosine_; }
  Point operator()(Point p) const { return {p.x * cosine_ - p.y * sine_, p.x * sine_ + p.y * cosine_}; }

 private:
  double sine_, cosine_;
};

// Returns the angle within a full turn, in radians. The remainder is exact, as taking 360 away again and
// again would be.
double RadiansOf(double degrees) {
  degrees = std::fmod(degrees, 360.0);
  if (degrees < 0) degrees += 360.0;
  if (degrees >= 360.0) degrees -= 360.0;  // a tiny negative angle is a full turn after rounding
  return degrees * kRadiansPerDegree;
}

// Half away from zero.
int Round(double value) { return static_cast<int>(value < 0 ? value - 0.5 : value + 0.5); }

// Columns from `first` to before `end`.
struct Interval {
  int first, end;

  bool empty() const { return first >= end; }
  Interval And(Interval other) const { return {std::max(first, other.first), std::min(end, other.end)}; }
};

// How one source coordinate moves along a row: each column adds twice the row's whole change to an error that
// starts at 0, and an error above the number of the last column, D, is a step of one pixel that takes 2 D
// off. After n columns that makes floor((2 n change + D - 1) / 2 D) steps.
class Stepper {
 public:
  Stepper() = default;
  // `change` is that of the coordinate from the first to the last of `columns` columns, at least 2.
  Stepper(double change, int columns)
      : change_(Round(std::fabs(change))), last_(columns - 1), sign_(change < 0 ? -1 : 1) {}

  int sign() const { return sign_; }
  int64_t change() const { return change_; }

  int64_t Steps(int64_t column) const { return (2 * column * change_ + last_ - 1) / (2 * last_); }

  // Returns the first column at which at least `steps` steps have been made, or the number of columns.
  int FirstColumn(int64_t steps) const {
    if (steps <= 0) return 0;
    if (steps > change_) return static_cast<int>(last_ + 1);
    // The smallest n with 2 n change + D - 1 >= 2 D steps.
    return static_cast<int>((2 * last_ * steps - last_ + 2 * change_) / (2 * change_));
  }

  // Returns the columns at which a coordinate that starts at `start` is one of `size` pixels. Steps go one
  // way only, so they are an interval: from where the coordinate has entered to where it leaves.
  Interval Inside(int start, int size) const {
    if (sign_ > 0) return {FirstColumn(-start), FirstColumn(size - start)};
    return {FirstColumn(start - size + 1), FirstColumn(start + 1)};
  }

  // Writes the signed steps at `count` columns from `first` on.
  void Tabulate(int first, int count, int32_t* steps) const {
    const int64_t before = Steps(first);
    auto position = static_cast<int32_t>(sign_ * before);
    auto error = static_cast<int32_t>(2 * first * change_ - 2 * last_ * before);
    for (int n = 0; n < count; ++n) {
      steps[n] = position;
      error += static_cast<int32_t>(2 * change_);
      if (error > last_) {
        error -= static_cast<int32_t>(2 * last_);
        position += sign_;
      }
    }
  }

 private:
  int64_t change_ = 0;
  int64_t last_ = 1;
  int sign_ = 1;
};

// The page to turn. Width and height are 16 bits wide.
struct Source {
  ConstRows rows = {};
  size_t readable = 0;  // bytes from the first row to the end of the block

  // Whether `extra` bytes may be read from anywhere in that stored row.
  bool HasRoom(int row, size_t extra) const {
    const uint64_t end = (uint64_t{static_cast<uint32_t>(row)} + 1) * rows.stride + extra;
    return end <= readable;
  }
};

// Where the pixels of the new page come from.
struct Walk {
  int width, height;  // of the new page
  Point start;        // source position of its first pixel
  Point rowStep;
  Stepper x, y;

  Walk(const Turn& back, int halfWidth, int halfHeight, const ConstRows& source)
      : width(2 * halfWidth), height(2 * halfHeight) {
    // The source's centre is taken in whole pixels: the centre pixels meet, and an odd-sized page loses none.
    const auto sourceOf = [&](int right, int up) {
      const Point p = back({static_cast<double>(right), static_cast<double>(up)});
      return Point{p.x + source.width / 2, p.y + source.height / 2};
    };
    start = sourceOf(-halfWidth, -halfHeight);
    const Point top = sourceOf(-halfWidth, halfHeight - 1);
    const Point right = sourceOf(halfWidth - 1, -halfHeight);
    rowStep = {(top.x - start.x) / (height - 1), (top.y - start.y) / (height - 1)};
    x = Stepper(right.x - start.x, width);
    y = Stepper(right.y - start.y, width);
  }

  // Columns that lie side by side in one source row, on average, and left to right there; 0 when turned the
  // other way.
  int64_t MeanRun() const {
    if (x.sign() < 0) return 0;
    return width / (y.change() + (width - 1 - x.change()) + 1);
  }
};

// Half the new width and height: where the farthest corner lies, rounded. At least 1, as |sine| + |cosine|
// is.
struct HalfSize {
  int width = 0, height = 0;

  HalfSize(const Turn& turn, const ConstRows& source) {
    const double right = source.width / 2.0;
    const double top = source.height / 2.0;
    for (const Point corner :
         {Point{-right, -top}, Point{right, -top}, Point{-right, top}, Point{right, top}}) {
      const Point turned = turn(corner);
      width = std::max(width, static_cast<int>(std::fabs(turned.x) + 0.5));
      height = std::max(height, static_cast<int>(std::fabs(turned.y) + 0.5));
    }
  }
};

// Returns the resolution along an axis on which two source axes lie with these lengths in pixels. What is no
// number that fits, as with a source resolution of 0, becomes 0.
int32_t MixedResolution(double sinePixels, double sineResolution, double cosinePixels,
                        double cosineResolution) {
  const double inches = sinePixels / sineResolution + cosinePixels / cosineResolution;
  const double rounded = (sinePixels + cosinePixels) / inches + 0.5;
  return rounded > -2147483649.0 && rounded < 2147483648.0 ? static_cast<int32_t>(rounded) : 0;
}

// ---- tiles ------------------------------------------------------------------------------------------------

// One row of the new page.
struct TurnedRow {
  uint8_t* bytes;
  int x, y;         // source position of its first pixel, which may lie outside
  Interval inside;  // the columns that have a source pixel
};

// The source pixels that a tile needs lie in here.
struct Box {
  Interval columns, rows;
};

// The signed steps from a row's first source pixel to those of a tile's columns.
template <int kColumns>
struct Pattern {
  int first;  // column
  int count;
  std::array<int32_t, kColumns> x, y;

  void MoveTo(const Walk& walk, Interval columns) {
    first = columns.first;
    count = columns.end - columns.first;
    walk.x.Tabulate(first, count, x.data());
    walk.y.Tabulate(first, count, y.data());
  }
  // Whether column n of the tile comes from the pixel right of where the one before it came from.
  bool Continues(int n) const { return y[n] == y[n - 1] && x[n] == x[n - 1] + 1; }
  // The highest source row that a row needs for some columns of the tile, counted from the tile.
  int TopRow(const TurnedRow& row, int from, int end) const { return row.y + std::max(y[from], y[end - 1]); }
};

// Stores the word, its leftmost pixel highest, at `column` of a row of `stride` bytes, or the half of it that
// the row has.
template <int Bits>
void StoreWord(uint8_t* row, int column, int stride, uint64_t word) {
  const int at = column / (64 / Bits) * 8;
  word = SwapLeftFirst(word);
  if (at + 8 <= stride) {
    std::memcpy(row + at, &word, 8);
  } else {
    std::memcpy(row + at, &word, 4);
  }
}

// Returns the bytes of a row of `stride` bytes that the words with these columns have.
template <int Bits>
Interval WordBytes(Interval columns, int stride) {
  constexpr int kPerWord = 64 / Bits;
  return {columns.first / kPerWord * 8, std::min((columns.end + kPerWord - 1) / kPerWord * 8, stride)};
}

// 1 or 4 bits, turned a little: each word of the new page is put together from the runs in it.
template <int Bits>
class WordRunTile {
 public:
  static constexpr int kBits = Bits;
  static constexpr int kPerWord = 64 / Bits;
  static constexpr int kColumns = 8 * kPerWord;
  static constexpr bool kPrefetch = Bits > 1;  // pages of 1 bit are small enough without
  static constexpr int kRows = 256;

  explicit WordRunTile(const Source& source) : source_(source) {}

  static Interval BytesOf(Interval columns, int stride) { return WordBytes<Bits>(columns, stride); }

  void MoveTo(const Walk& walk, Interval columns, const Box& /*box*/) {
    pattern_.MoveTo(walk, columns);
    int runs = 0;
    int length = 0;
    for (int n = 0; n < pattern_.count; ++n) {
      const bool newWord = n % kPerWord == 0;
      if (newWord) runsBefore_[n / kPerWord] = runs;
      if (newWord || length == kLongestRun || !pattern_.Continues(n)) {
        const size_t row = static_cast<size_t>(pattern_.y[n]) * source_.rows.stride;
        runs_[runs++] = {0, row, pattern_.x[n] * Bits, n % kPerWord * Bits};
        length = 0;
      }
      ++length;
      runs_[runs - 1].mask |= kTopPixel >> n % kPerWord * Bits;
    }
    runsBefore_[(pattern_.count + kPerWord - 1) / kPerWord] = runs;
  }

  // Writes the words with the pixels of `columns`. What lies outside the row's inside is 0 in them.
  void Copy(const TurnedRow& row, Interval columns, int stride) const {
    const int first = columns.first - pattern_.first;
    const int end = columns.end - pattern_.first;
    const bool roomy = source_.HasRoom(pattern_.TopRow(row, first, end), sizeof(uint64_t));
    for (int word = first / kPerWord; word * kPerWord < end; ++word) {
      const int from = std::max(first, word * kPerWord);
      const int to = std::min(end, (word + 1) * kPerWord);
      const uint64_t pixels =
          roomy && to - from == kPerWord ? WordOfRuns(row, word) : WordOfPixels(row, from, to);
      StoreWord<Bits>(row.bytes, pattern_.first + from, stride, pixels);
    }
  }

 private:
  // A part of a word whose pixels lie side by side in a source row.
  struct Run {
    uint64_t mask;    // its bits
    size_t rowBytes;  // from the row of the first column to its row
    int32_t bits;     // from the first column to its first pixel
    int32_t shift;    // from the top of the word to its first pixel
  };

  static constexpr uint64_t kTopPixel = ~uint64_t{0} << (64 - Bits);
  // A run must come out of one load, which starts at a byte.
  static constexpr int kLongestRun = 56 / Bits;

  uint64_t WordOfRuns(const TurnedRow& row, int word) const {
    const uint8_t* source = source_.rows.first;
    const size_t rowBytes = static_cast<size_t>(row.y) * source_.rows.stride;
    const int32_t rowBits = row.x * Bits;
    uint64_t pixels = 0;
    for (int i = runsBefore_[word]; i < runsBefore_[word + 1]; ++i) {
      const Run& run = runs_[i];
      const int32_t bit = rowBits + run.bits;
      const uint64_t loaded =
          LoadLeftFirst(source + (rowBytes + run.rowBytes + static_cast<size_t>(bit >> 3)));
      pixels |= std::rotl(loaded, (bit & 7) - run.shift) & run.mask;
    }
    return pixels;
  }

  // For the words at the ends of a row's inside, and those that may lie too close to the block's end for
  // whole loads.
  uint64_t WordOfPixels(const TurnedRow& row, int from, int to) const {
    uint64_t pixels = 0;
    for (int n = from; n < to; ++n) {
      const int32_t bit = (row.x + pattern_.x[n]) * Bits;
      const uint8_t byte = source_.rows.StoredRow(row.y + pattern_.y[n])[bit >> 3];
      const uint64_t atTop = uint64_t{byte} << (56 + (bit & 7)) & kTopPixel;
      pixels |= atTop >> n % kPerWord * Bits;
    }
    return pixels;
  }

  const Source& source_;
  Pattern<kColumns> pattern_;
  std::array<Run, kColumns> runs_;
  std::array<int, kColumns / kPerWord + 1> runsBefore_;  // each word, and all
};

// 1 or 4 bits at any angle: the tile's source pixels are first laid out as bytes, and picked from there one
// by one.
template <int Bits>
class UnpackedTile {
 public:
  static constexpr int kBits = Bits;
  static constexpr int kPerWord = 64 / Bits;
  static constexpr int kColumns = 64;
  static constexpr bool kPrefetch = Bits > 1;  // pages of 1 bit are small enough without
  static constexpr int kRows = 128;

  explicit UnpackedTile(const Source& source) : source_(source) {}

  static Interval BytesOf(Interval columns, int stride) { return WordBytes<Bits>(columns, stride); }

  void MoveTo(const Walk& walk, Interval columns, const Box& box) {
    pattern_.MoveTo(walk, columns);
    for (int n = 0; n < pattern_.count; ++n) {
      offset_[n] = static_cast<size_t>(pattern_.y[n] * kStride + pattern_.x[n]);
    }
    const int firstByte = box.columns.first / kPerByte;
    const int bytes = (box.columns.end + kPerByte - 1) / kPerByte - firstByte;
    left_ = firstByte * kPerByte;
    bottom_ = box.rows.first;
    for (int y = box.rows.first; y < box.rows.end; ++y) {
      const uint8_t* from = source_.rows.StoredRow(y) + firstByte;
      uint8_t* to = pixels_.data() + (y - bottom_) * kStride;
      for (int i = 0; i < bytes; ++i) std::memcpy(to + i * kPerByte, kUnpacked[from[i]].data(), kPerByte);
    }
  }

  // Writes the words with the pixels of `columns`. What lies outside the row's inside is 0 in them.
  void Copy(const TurnedRow& row, Interval columns, int stride) const {
    const int first = columns.first - pattern_.first;
    const int end = columns.end - pattern_.first;
    // An address, as the row's first source pixel may lie outside.
    const uintptr_t start = reinterpret_cast<uintptr_t>(pixels_.data()) +
                            static_cast<size_t>((row.y - bottom_) * kStride + row.x - left_);
    const auto pixel = [&](int n) { return *reinterpret_cast<const uint8_t*>(start + offset_[n]); };
    for (int word = first / kPerWord; word * kPerWord < end; ++word) {
      const int from = std::max(first, word * kPerWord);
      const int to = std::min(end, (word + 1) * kPerWord);
      uint64_t pixels = 0;
      int n = from;
      for (; n + 8 <= to; n += 8) {
        uint32_t eight = 0;
        for (int i = 0; i < 8; ++i) eight = (eight << Bits) + pixel(n + i);
        pixels = pixels << 8 * Bits | eight;
      }
      for (; n < to; ++n) pixels = pixels << Bits | pixel(n);
      pixels <<= ((word + 1) * kPerWord - to) * Bits;
      StoreWord<Bits>(row.bytes, pattern_.first + from, stride, pixels);
    }
  }

 private:
  static constexpr int kPerByte = 8 / Bits;
  // The largest box is as high and wide as the tile's diagonal; rows begin and end at whole bytes of the
  // source.
  static constexpr int kBoxRows = 146;
  static constexpr int kStride = 160;

  // The pixels of a byte, one a byte.
  static constexpr auto kUnpacked = [] {
    std::array<std::array<uint8_t, kPerByte>, 256> table{};
    for (unsigned byte = 0; byte < 256; ++byte) {
      for (unsigned i = 0; i < kPerByte; ++i) {
        table[byte][i] = static_cast<uint8_t>(byte >> (8 - Bits - i * Bits) & ((1u << Bits) - 1));
      }
    }
    return table;
  }();

  const Source& source_;
  Pattern<kColumns> pattern_;
  std::array<size_t, kColumns> offset_;
  int left_ = 0;
  int bottom_ = 0;
  std::array<uint8_t, kBoxRows * kStride> pixels_;
};

// 8 or 24 bits, turned a little: runs are copied in chunks.
template <int Bytes>
class ByteRunTile {
 public:
  static constexpr int kBits = Bytes * 8;
  static constexpr int kColumns = 256;
  static constexpr bool kPrefetch = true;
  static constexpr int kRows = Bytes == 1 ? 192 : 128;

  explicit ByteRunTile(const Source& source) : source_(source) {}

  static Interval BytesOf(Interval columns, int /*stride*/) {
    return {columns.first * Bytes, columns.end * Bytes};
  }

  void MoveTo(const Walk& walk, Interval columns, const Box& /*box*/) {
    pattern_.MoveTo(walk, columns);
    int runs = 0;
    for (int n = 0; n < pattern_.count; ++n) {
      if (n == 0 || !pattern_.Continues(n)) {
        const size_t row = static_cast<size_t>(pattern_.y[n]) * source_.rows.stride;
        runs_[runs++] = {row + static_cast<size_t>(pattern_.x[n] - n) * Bytes, n};
      }
      runs_[runs - 1].end = n + 1;
    }
  }

  void Copy(const TurnedRow& row, Interval columns, int /*stride*/) const {
    const int first = columns.first - pattern_.first;
    const int end = columns.end - pattern_.first;
    // A chunk may reach over the end of its run: what belongs there is written next, as long as the row's
    // inside goes on. It must not reach over the end of the source block.
    const bool roomy = source_.HasRoom(pattern_.TopRow(row, first, end), kChunkBytes);
    const int lastChunk = (roomy ? row.inside.end - pattern_.first : first) - kChunk;
    const size_t start =
        static_cast<size_t>(row.y) * source_.rows.stride + static_cast<size_t>(row.x) * Bytes;
    uint8_t* const to = row.bytes + pattern_.first * Bytes;
    const Run* run = runs_.data();
    while (run->end <= first) ++run;
    for (int n = first; n < end; ++run) {
      const int runEnd = std::min(run->end, end);
      const auto from = [&](int column) {
        return source_.rows.first + (start + run->offset + static_cast<size_t>(column) * Bytes);
      };
      for (; n < runEnd && n <= lastChunk; n += kChunk) std::memcpy(to + n * Bytes, from(n), kChunkBytes);
      if (n < runEnd) std::memcpy(to + n * Bytes, from(n), static_cast<size_t>(runEnd - n) * Bytes);
      n = runEnd;
    }
  }

 private:
  struct Run {
    size_t offset;  // from a row's first source pixel to where the tile's column 0 would be; wraps below 0
    int end;
  };

  static constexpr int kChunk = 16;
  static constexpr int kChunkBytes = kChunk * Bytes;

  const Source& source_;
  Pattern<kColumns> pattern_;
  std::array<Run, kColumns> runs_;
};

// 8 or 24 bits at any angle: pixels are copied one by one.
template <int Bytes>
class BytePixelTile {
 public:
  static constexpr int kBits = Bytes * 8;
  static constexpr int kColumns = 128;
  static constexpr bool kPrefetch = true;
  static constexpr int kRows = 128;

  explicit BytePixelTile(const Source& source) : source_(source) {}

  static Interval BytesOf(Interval columns, int /*stride*/) {
    return {columns.first * Bytes, columns.end * Bytes};
  }

  void MoveTo(const Walk& walk, Interval columns, const Box& /*box*/) {
    pattern_.MoveTo(walk, columns);
    for (int n = 0; n < pattern_.count; ++n) {
      offset_[n] = static_cast<size_t>(pattern_.y[n]) * source_.rows.stride +
                   static_cast<size_t>(pattern_.x[n]) * Bytes;
    }
  }

  void Copy(const TurnedRow& row, Interval columns, int /*stride*/) const {
    const int end = columns.end - pattern_.first;
    const size_t start =
        static_cast<size_t>(row.y) * source_.rows.stride + static_cast<size_t>(row.x) * Bytes;
    const uint8_t* const from = source_.rows.first;
    uint8_t* const to = row.bytes + pattern_.first * Bytes;
    int n = columns.first - pattern_.first;
    if constexpr (Bytes == 1) {
      for (; n + 8 <= end; n += 8) {
        uint64_t pixels = 0;
        for (int i = 0; i < 8; ++i) pixels = pixels << 8 | from[start + offset_[n + i]];
        pixels = SwapLeftFirst(pixels);
        std::memcpy(to + n, &pixels, sizeof(pixels));
      }
    } else if (source_.HasRoom(pattern_.TopRow(row, n, end), 1)) {
      // With the byte that follows, which the next pixel overwrites.
      for (; n + 1 < end; ++n) std::memcpy(to + n * Bytes, from + (start + offset_[n]), Bytes + 1);
    }
    for (; n < end; ++n) std::memcpy(to + n * Bytes, from + (start + offset_[n]), Bytes);
  }

 private:
  const Source& source_;
  Pattern<kColumns> pattern_;
  std::array<size_t, kColumns> offset_;  // from a row's first source pixel; wraps below 0
};

// ---- the pass over the page -------------------------------------------------------------------------------

template <class Tile>
class PageTurner {
 public:
  PageTurner(const Source& source, const Walk& walk, uint8_t* result)
      : source_(source),
        walk_(walk),
        result_(result),
        stride_(static_cast<int>(DIBRowBytes(static_cast<uint32_t>(walk.width), Tile::kBits))),
        at_(walk.start),
        tile_(source) {}

  void Run() {
    for (int bottom = 0; bottom < walk_.height; bottom += Tile::kRows) {
      const Interval used = StartRows(bottom);
      Interval columns = ColumnsOfTile(used.first / Tile::kColumns * Tile::kColumns);
      Box box = BoxOf(columns);
      while (columns.first < used.end) {
        tile_.MoveTo(walk_, columns, box);
        const Interval next = ColumnsOfTile(columns.end);
        box = BoxOf(next);
        for (int i = 0; i < count_; ++i) {
          if constexpr (Tile::kPrefetch) Prefetch(box, next, i);
          const Interval part = rows_[i].inside.And(columns);
          if (!part.empty()) tile_.Copy(rows_[i], part, stride_);
        }
        columns = next;
      }
    }
  }

 private:
  // Finds where the rows of the next tiles come from and clears what no tile writes of them. Returns the
  // columns that have a source pixel in some row.
  Interval StartRows(int bottom) {
    count_ = std::min(Tile::kRows, walk_.height - bottom);
    Interval used = {walk_.width, 0};
    for (int i = 0; i < count_; ++i) {
      uint8_t* bytes = result_ + static_cast<size_t>(bottom + i) * static_cast<size_t>(stride_);
      const int x = Round(at_.x);
      const int y = Round(at_.y);
      at_ = {at_.x + walk_.rowStep.x, at_.y + walk_.rowStep.y};
      const Interval inside =
          walk_.x.Inside(x, source_.rows.width).And(walk_.y.Inside(y, source_.rows.height));
      Interval written = {stride_, stride_};
      if (!inside.empty()) {
        written = Tile::BytesOf(inside, stride_);
        used = {std::min(used.first, inside.first), std::max(used.end, inside.end)};
      }
      std::memset(bytes, 0, static_cast<size_t>(written.first));
      std::memset(bytes + written.end, 0, static_cast<size_t>(stride_ - written.end));
      rows_[i] = {bytes, x, y, inside};
    }
    return used;
  }

  Interval ColumnsOfTile(int first) const { return {first, std::min(first + Tile::kColumns, walk_.width)}; }

  // Positions go one way along rows and columns, so that the corners of a tile bound it.
  Box BoxOf(Interval columns) const {
    const auto bound = [&](const Stepper& stepper, int firstRow, int lastRow, int size) {
      const auto left = static_cast<int>(stepper.sign() * stepper.Steps(columns.first));
      const auto right = static_cast<int>(stepper.sign() * stepper.Steps(columns.end - 1));
      const auto [low, high] =
          std::minmax({firstRow + left, firstRow + right, lastRow + left, lastRow + right});
      return Interval{std::max(low, 0), std::min(high + 1, size)};
    };
    const TurnedRow& first = rows_[0];
    const TurnedRow& last = rows_[count_ - 1];
    return {bound(walk_.x, first.x, last.x, source_.rows.width),
            bound(walk_.y, first.y, last.y, source_.rows.height)};
  }

  // While row i of a tile is done, asks for a share of the next tile's source pixels and for where that row
  // goes on. The processor cannot guess either: a tile is short pieces of many rows, and waiting for them
  // would take longer than copying. Inlined, since a function that only asks may be dropped as having no
  // effect.
  [[gnu::always_inline]] void Prefetch(const Box& box, Interval columns, int i) const {
    const int rows = box.rows.end - box.rows.first;
    const int firstByte = box.columns.first * Tile::kBits / 8;
    const int endByte = (box.columns.end * Tile::kBits + 7) / 8;
    for (int y = box.rows.first + rows * i / count_; y < box.rows.first + rows * (i + 1) / count_; ++y) {
      const uint8_t* row = source_.rows.StoredRow(y);
      for (int byte = firstByte; byte < endByte; byte += kCacheLine) __builtin_prefetch(row + byte);
    }
    const Interval next = rows_[i].inside.And(columns);
    for (int byte = next.first * Tile::kBits / 8; byte < next.end * Tile::kBits / 8; byte += kCacheLine) {
      __builtin_prefetch(rows_[i].bytes + byte, kForWriting);
    }
  }

  static constexpr int kCacheLine = 64;
  static constexpr int kForWriting = 1;

  const Source& source_;
  const Walk& walk_;
  uint8_t* result_;
  int stride_;
  Point at_;  // source position of the next row's first pixel
  int count_ = 0;
  std::array<TurnedRow, Tile::kRows> rows_;
  Tile tile_;
};

// Where runs are shorter than this on average, picking pixels one by one is faster.
constexpr int kShortestRunPacked = 4;
constexpr int kShortestRunBytes = 7;

template <class RunTile, class PixelTile>
void TurnPage(const Source& source, const Walk& walk, int shortestRun, uint8_t* result) {
  if (walk.MeanRun() >= shortestRun) {
    PageTurner<RunTile>(source, walk, result).Run();
  } else {
    PageTurner<PixelTile>(source, walk, result).Run();
  }
}

void TurnPage(unsigned bits, const Source& source, const Walk& walk, uint8_t* result) {
  switch (bits) {
    case 1:
      return TurnPage<WordRunTile<1>, UnpackedTile<1>>(source, walk, kShortestRunPacked, result);
    case 4:
      return TurnPage<WordRunTile<4>, UnpackedTile<4>>(source, walk, kShortestRunPacked, result);
    case 8:
      return TurnPage<ByteRunTile<1>, BytePixelTile<1>>(source, walk, kShortestRunBytes, result);
    default:
      return TurnPage<ByteRunTile<3>, BytePixelTile<3>>(source, walk, kShortestRunBytes, result);
  }
}

bool IsKnownDepth(unsigned bits) { return bits == 1 || bits == 4 || bits == 8 || bits == 24; }

Header TurnedHeader(Header header, const Turn& back, const Walk& walk, const ConstRows& source) {
  const double cosineWidth = back.cosine() * source.width;
  const double cosineHeight = back.cosine() * source.height;
  const double sineWidth = back.sine() * source.width;
  const double sineHeight = back.sine() * source.height;
  const double x = header.biXPelsPerMeter;
  const double y = header.biYPelsPerMeter;
  header.biWidth = walk.width;
  header.biHeight = walk.height;
  header.biSizeImage = static_cast<uint32_t>(DIBImageBytes(walk.width, walk.height, header.biBitCount));
  header.biXPelsPerMeter = MixedResolution(sineHeight, y, cosineWidth, x);
  header.biYPelsPerMeter = MixedResolution(sineWidth, x, cosineHeight, y);
  return header;
}

HGLOBAL RotateBy(HGLOBAL dib, double angle) {
  ThreadState& state = GetThreadState();
  const WaitCursor cursor;
  state.lastError = ErrSuccess;

  if (dib == nullptr || !std::isfinite(angle)) return state.Fail(ErrParameter);
  const LockedDib page(dib);
  if (!page) return state.Fail(ErrLockMemory);
  PageToTurn found;
  if (const ErrorCode refused = FindPageToTurn(page, IsKnownDepth, &found)) return state.Fail(refused);
  const size_t rowsOffset = found.rowsOffset;
  const Source source = {found.rows, page.size() - rowsOffset};

  const double radians = RadiansOf(angle);
  const HalfSize half(Turn(radians), source.rows);
  const Turn back(-radians);
  const Walk walk(back, half.width, half.height, source.rows);

  const uint64_t bytes = rowsOffset + DIBImageBytes(walk.width, walk.height, page.bits());
  NewBlock result(bytes, Content::kUnset, Retry::kWhenCompacted);
  if (const ErrorCode failure = result.Failure(ErrCreateBitmap)) return state.Fail(failure);

  const Header header = TurnedHeader(page.header(), back, walk, source.rows);
  std::memcpy(result.bytes(), page.bytes(), rowsOffset);
  std::memcpy(result.bytes(), &header, sizeof(header));
  TurnPage(page.bits(), source, walk, result.bytes() + rowsOffset);
  return result.Release();
}

}  // namespace
}  // namespace rastrel

HGLOBAL RASTREL_CALL RotateDIB(HGLOBAL dib, double angle) { return rastrel::RotateBy(dib, angle); }

// Turns like any other: a page of even size loses a line of pixels, which a transpose would not. Kept:
// callers compare bytes.
HGLOBAL RASTREL_CALL RotateDIB90(HGLOBAL dib) { return rastrel::RotateBy(dib, 90.0); }
HGLOBAL RASTREL_CALL RotateDIB180(HGLOBAL dib) { return rastrel::RotateBy(dib, 180.0); }
HGLOBAL RASTREL_CALL RotateDIB270(HGLOBAL dib) { return rastrel::RotateBy(dib, 270.0); }
