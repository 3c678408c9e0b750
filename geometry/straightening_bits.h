// Tiles of a straightened page of 1 bit.
#ifndef RASTREL_GEOMETRY_STRAIGHTENING_BITS_H
#define RASTREL_GEOMETRY_STRAIGHTENING_BITS_H

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "frame/dib.h"
#include "geometry/straightening_columns.h"

namespace rastrel::straightening {

// Flags pixels between four source pixels, of which even the nearest covers little.
inline void FlagBetween(const uint16_t* __restrict columnX, const uint16_t* __restrict columnY, uint16_t rowX,
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
inline void FindCorners(const BitPlane& rows, int height, BitPlane& __restrict corners,
                        BitPlane& __restrict most, BitPlane& __restrict squares,
                        BitPlane& __restrict others) {
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

// All words of a row at once.
using RowWords = uint64_t __attribute__((vector_size(8 * kRowWords)));
using NeededWords = std::array<uint64_t, kRowWords>;

// Loads rows of words that lie inside the page.
inline void LoadRows(const uint8_t* from, size_t stride, int height, uint64_t* __restrict rows) {
  for (int row = 0; row < height; ++row, from += stride, rows += kRowWords) {
    for (int i = 0; i < kRowWords; ++i) rows[i] = LoadLeftFirst(from + 8 * i);
  }
}

// What is set and what is not anywhere in the needed columns of the rows.
inline void CombineRows(const uint64_t* rows, int height, const NeededWords& needed, uint64_t* any,
                        uint64_t* missing) {
  RowWords set = {}, unset = {};
  for (int row = 0; row < height; ++row) {
    RowWords words;
    std::memcpy(&words, rows + row * kRowWords, sizeof words);
    set |= words;
    unset |= ~words;
  }
  *any = *missing = 0;
  for (int i = 0; i < kRowWords; ++i) {
    *any |= set[i] & needed[i];
    *missing |= unset[i] & needed[i];
  }
}

// Most rows of most tiles are blank. Of each row the colour of its first needed pixel, and the row above from
// which on not all are of that colour: itself, if it has others.
inline void FindUniformRows(const uint64_t* rows, int left, const NeededWords& needed, int height,
                            uint64_t* __restrict colours, int* __restrict alikeUntil) {
  RowWords mask;
  std::memcpy(&mask, needed.data(), sizeof mask);
  int end = height;
  for (int row = height - 1; row >= 0; --row) {
    RowWords words;
    std::memcpy(&words, rows + row * kRowWords, sizeof words);
    colours[row] = 0 - (rows[row * kRowWords + left / kColumns] >> (63 - left % kColumns) & 1);
    const RowWords others = (words ^ colours[row]) & mask;
    if (row + 1 == height || colours[row] != colours[row + 1]) end = row + 1;
    if ((others[0] | others[1] | others[2] | others[3]) != 0) end = row;
    alikeUntil[row] = end;
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
  BitTile(const ConstRows& page, bool isSmooth, bool background)
      : page_(page), isSmooth_(isSmooth), background_(background ? kOnes : 0) {}

  // Words of the buffer are words of the page, with room for columns left of the box.
  static Position Origin(const Box<int64_t>& box) {
    return {(box.columns.first - kColumns / 2) & -kColumns, box.rows.first - 1};
  }

  void SetColumns(const Columns& columns) {
    columns_ = columns;
    nearestRuns_.Forget();
    lowerLeftRuns_.Forget();
  }

  void Load(const Box<int64_t>& box) {
    const Position origin = Origin(box);
    const auto left = static_cast<int>(box.columns.first - origin.x);
    const int right = left + static_cast<int>(box.columns.size());
    const int first = (left - 1) / kColumns, last = right / kColumns;
    const int height = static_cast<int>(box.rows.size()) + 2;
    const int64_t word = origin.x / kColumns;
    const bool isInside = word >= 0 && (word + last + 1) * kColumns <= page_.width &&
                          (word + kRowWords) * 8 <= static_cast<int64_t>(page_.stride) && origin.y >= 0 &&
                          origin.y + height <= page_.height;
    if (isInside) {
      const uint8_t* const from = page_.StoredRow(static_cast<int>(origin.y)) + word * 8;
      Widest<LoadRows>(from, page_.stride, height, &rows_[IndexOf(0)]);
    } else {
      for (int row = 0; row < height; ++row) LoadRow(origin, row, first, last);
    }
    const NeededWords needed = Needed(left, right);
    uint64_t any = 0, missing = 0;
    Widest<CombineRows>(&rows_[IndexOf(0)], height, needed, &any, &missing);
    isUniform_ = any == 0 || missing == 0;
    uniformColour_ = any == 0 ? 0 : kOnes;
    if (isUniform_) return;
    Widest<FindUniformRows>(&rows_[IndexOf(0)], left, needed, height, colours_.data(), alikeUntil_.data());
    FindRowsWithCorners(height);
  }

  void Fill(const Place* places, const Rows& to, bool /*isRoomy*/) {
    if (isUniform_) {  // as many are
      for (int i = 0; i < to.height; ++i) PutRow(uniformColour_, to.width, to.StoredRow(i));
      return;
    }
    for (int i = 0; i < to.height; ++i) FillRow(places[i], to.width, to.StoredRow(i));
  }

 private:
  static int IndexOf(int row) { return kSpareWords + row * kRowWords; }

  // The words from `first` to `last` of a row that may lie beyond the page in part.
  void LoadRow(Position origin, int row, int first, int last) {
    const int64_t y = origin.y + row;
    uint64_t* const words = &rows_[IndexOf(row)];
    if (y < 0 || y >= page_.height) {
      std::fill(words + first, words + last + 1, background_);
      return;
    }
    const uint8_t* const from = page_.StoredRow(static_cast<int>(y));
    for (int i = first; i <= last; ++i) words[i] = SourceWord(from, origin.x / kColumns + i);
  }

  void FillRow(Place row, int count, uint8_t* to) {
    const auto [lowest, highest] = std::minmax(columns_.y.front(), columns_.y.back());
    const int bottom = PixelAt(row.y + lowest);
    const int top = PixelAt(row.y + highest) + 1;
    PutRow(alikeUntil_[bottom] > top ? colours_[bottom] : Turned(row, bottom, top), count, to);
  }

  static void PutRow(uint64_t pixels, int count, uint8_t* to) {
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
    std::memcpy(&word, row + at, page_.stride - at);
    const uint64_t beyond = kOnes >> pixels;
    return (SwapLeftFirst(word) & ~beyond) | (background_ & beyond);
  }

  // The columns of a box in the words of a row.
  static NeededWords Needed(int left, int right) {
    NeededWords needed = {};
    for (int i = left / kColumns; i * kColumns < right; ++i) {
      const int first = std::max(left - i * kColumns, 0), behind = right - i * kColumns;
      needed[i] = kOnes >> first & ~(behind < kColumns ? kOnes >> behind : 0);
    }
    return needed;
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
    const uint64_t* const words = &plane[IndexOf(y) + (x >> 6)];
    static_assert(kColumns == 1 << 6);
    const int shift = x & (kColumns - 1);
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

  ConstRows page_;
  bool isSmooth_;
  uint64_t background_;
  bool isUniform_ = false;  // all that the tile needs is of one colour
  uint64_t uniformColour_ = 0;
  Columns columns_;
  BitPlane rows_ = {};
  BitRuns nearestRuns_, lowerLeftRuns_;
  BitPlane corners_ = {}, most_ = {};
  std::array<BitPlane, 2> work_ = {};
  std::array<uint64_t, kBoxSide> colours_;  // see FindUniformRows
  std::array<int, kBoxSide> alikeUntil_;
  std::array<int, kBoxSide> noCornersUntil_;  // of each row, the row above from which on there are some
};

}  // namespace rastrel::straightening

#endif
