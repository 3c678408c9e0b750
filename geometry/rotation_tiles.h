// Tiles of a rotated page: each kind knows how to fill its part of a row from the source page. MoveTo
// prepares a tile for some columns, whose source pixels lie in a box, and Copy then writes its part of a row.
#ifndef RASTREL_GEOMETRY_ROTATION_TILES_H
#define RASTREL_GEOMETRY_ROTATION_TILES_H

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "frame/dib.h"
#include "geometry/rotation_walk.h"
#include "pixels/unpacked.h"
#include "pixels/words.h"

namespace rastrel::rotation {

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

// One row of the new page.
struct TurnedRow {
  uint8_t* bytes;
  int x, y;        // source position of its first pixel, which may lie outside
  Columns inside;  // the columns that have a source pixel
};

// The signed steps from a row's first source pixel to those of a tile's columns.
template <int kColumns>
struct Pattern {
  int first;  // column
  int count;
  std::array<int32_t, kColumns> x, y;

  void MoveTo(const Walk& walk, Columns columns) {
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
void StoreWordAt(uint8_t* row, int column, int stride, uint64_t word) {
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
Columns WordBytes(Columns columns, int stride) {
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

  static Columns BytesOf(Columns columns, int stride) { return WordBytes<Bits>(columns, stride); }

  void MoveTo(const Walk& walk, Columns columns, const Box<int>& /*box*/) {
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
  void Copy(const TurnedRow& row, Columns columns, int stride) const {
    const int first = columns.first - pattern_.first;
    const int end = columns.end - pattern_.first;
    const bool roomy = source_.HasRoom(pattern_.TopRow(row, first, end), sizeof(uint64_t));
    for (int word = first / kPerWord; word * kPerWord < end; ++word) {
      const int from = std::max(first, word * kPerWord);
      const int to = std::min(end, (word + 1) * kPerWord);
      const uint64_t pixels =
          roomy && to - from == kPerWord ? WordOfRuns(row, word) : WordOfPixels(row, from, to);
      StoreWordAt<Bits>(row.bytes, pattern_.first + from, stride, pixels);
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

  static Columns BytesOf(Columns columns, int stride) { return WordBytes<Bits>(columns, stride); }

  void MoveTo(const Walk& walk, Columns columns, const Box<int>& box) {
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
      for (int i = 0; i < bytes; ++i)
        std::memcpy(to + i * kPerByte, kUnpacked<Bits>[from[i]].data(), kPerByte);
    }
  }

  // Writes the words with the pixels of `columns`. What lies outside the row's inside is 0 in them.
  void Copy(const TurnedRow& row, Columns columns, int stride) const {
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
      StoreWordAt<Bits>(row.bytes, pattern_.first + from, stride, pixels);
    }
  }

 private:
  static constexpr int kPerByte = 8 / Bits;
  // The largest box is as high and wide as the tile's diagonal; rows begin and end at whole bytes of the
  // source.
  static constexpr int kBoxRows = 146;
  static constexpr int kStride = 160;

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

  static Columns BytesOf(Columns columns, int /*stride*/) {
    return {columns.first * Bytes, columns.end * Bytes};
  }

  void MoveTo(const Walk& walk, Columns columns, const Box<int>& /*box*/) {
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

  void Copy(const TurnedRow& row, Columns columns, int /*stride*/) const {
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

  static Columns BytesOf(Columns columns, int /*stride*/) {
    return {columns.first * Bytes, columns.end * Bytes};
  }

  void MoveTo(const Walk& walk, Columns columns, const Box<int>& /*box*/) {
    pattern_.MoveTo(walk, columns);
    for (int n = 0; n < pattern_.count; ++n) {
      offset_[n] = static_cast<size_t>(pattern_.y[n]) * source_.rows.stride +
                   static_cast<size_t>(pattern_.x[n]) * Bytes;
    }
  }

  void Copy(const TurnedRow& row, Columns columns, int /*stride*/) const {
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

}  // namespace rastrel::rotation

#endif
