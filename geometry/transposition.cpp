// A square of pixels is transposed by exchanging its two quarters off the diagonal, then those of each
// quarter, and so on down to single pixels. With the pixels of a row in one word of 64 bits an exchange is a
// few shifts and masks for each pair of rows. Four squares that lie side by side go abreast, as the words of
// a vector.
#include "geometry/transposition.h"

#include <algorithm>
#include <cstring>

#include "pixels/kernels.h"
#include "pixels/words.h"

namespace rastrel {
namespace {

using Words = uint64_t __attribute__((vector_size(32)));
constexpr int kAbreast = 4;

// Strips are taken in tiles of so many bytes across and, of the result, down: of cache lines nothing is left
// over.
constexpr int kTileBytes = 64;

// Four squares side by side.
template <int Bits>
struct Strip {
  static constexpr int kSide = 64 / Bits;
  static constexpr int kColumns = kAbreast * kSide;
  static constexpr int kTile = kTileBytes * 8 / Bits;
  // Words are used as they lie in memory. Pixels of less than a byte are then in the reverse order within
  // each byte, so rows are taken in that order too.
  static constexpr int kOrder = Bits < 8 ? 8 / Bits - 1 : 0;

  static constexpr size_t ByteOf(int pixel) { return static_cast<size_t>(pixel) * Bits / 8; }
};

// The exchanges among `kRows` rows (a power of 2 up to 8) of which each is `Apart` pixels below the one
// before.
template <int Bits, int kRows, int Apart>
[[gnu::always_inline]] inline void ExchangeSteps(Words* rows) {
  if constexpr (kRows >= 8) {
    ExchangeOffDiagonal<4 * Apart * Bits>(rows[0], rows[4]);
    ExchangeOffDiagonal<4 * Apart * Bits>(rows[1], rows[5]);
    ExchangeOffDiagonal<4 * Apart * Bits>(rows[2], rows[6]);
    ExchangeOffDiagonal<4 * Apart * Bits>(rows[3], rows[7]);
  }
  if constexpr (kRows >= 4) {
#pragma GCC unroll 8
    for (int i = 0; i < kRows; i += 4) {
      ExchangeOffDiagonal<2 * Apart * Bits>(rows[i], rows[i + 2]);
      ExchangeOffDiagonal<2 * Apart * Bits>(rows[i + 1], rows[i + 3]);
    }
  }
  if constexpr (kRows >= 2) {
#pragma GCC unroll 8
    for (int i = 0; i < kRows; i += 2) ExchangeOffDiagonal<Apart * Bits>(rows[i], rows[i + 1]);
  }
}

// Transposes a whole strip. `to` is the first word of its first column.
template <int Bits>
[[gnu::always_inline]] inline void TransposeStrip(const uint8_t* from, ptrdiff_t fromStep, uint8_t* to,
                                                  ptrdiff_t toStep) {
  constexpr int kSide = Strip<Bits>::kSide;
  constexpr int kOrder = Strip<Bits>::kOrder;
  // As many rows as registers hold: in the second pass those that lie side by side, in the first, if there is
  // one, those that are so far apart.
  constexpr int kSecond = std::min(kSide, 8);
  constexpr int kFirst = kSide / kSecond;
  Words strip[kSide];
  for (int i = 0; i < kSecond; ++i) {
    Words rows[kFirst];
#pragma GCC unroll 8
    for (int k = 0; k < kFirst; ++k) {
      std::memcpy(&rows[k], from + ((i + k * kSecond) ^ kOrder) * fromStep, sizeof(Words));
    }
    ExchangeSteps<Bits, kFirst, kSecond>(rows);
#pragma GCC unroll 8
    for (int k = 0; k < kFirst; ++k) strip[i + k * kSecond] = rows[k];
  }
  for (int i = 0; i < kSide; i += kSecond) {
    Words rows[kSecond];
#pragma GCC unroll 8
    for (int k = 0; k < kSecond; ++k) rows[k] = strip[i + k];
    ExchangeSteps<Bits, kSecond, 1>(rows);
#pragma GCC unroll 8
    for (int k = 0; k < kSecond; ++k) {
      uint8_t* row = to + ((i + k) ^ kOrder) * toStep;
#pragma GCC unroll 4
      for (int square = 0; square < kAbreast; ++square) {
        const uint64_t word = rows[k][square];
        std::memcpy(row + square * kSide * toStep, &word, sizeof(word));
      }
    }
  }
}

// A strip that the right or the lower edge cuts: through copies that are filled up with zeros.
template <int Bits>
inline void TransposeEdge(const ConstRows& from, int x, int y, const Rows& to) {
  using S = Strip<Bits>;
  uint8_t source[S::kSide * sizeof(Words)] = {};
  uint8_t result[S::kColumns * sizeof(uint64_t)];
  const size_t byte = S::ByteOf(x);
  const size_t sourceBytes = std::min(sizeof(Words), (static_cast<size_t>(from.width) * Bits + 7) / 8 - byte);
  const int rows = std::min(S::kSide, from.height - y);
  for (int i = 0; i < rows; ++i)
    std::memcpy(source + i * sizeof(Words), from.StoredRow(y + i) + byte, sourceBytes);

  TransposeStrip<Bits>(source, sizeof(Words), result, sizeof(uint64_t));

  const size_t resultBytes = std::min(sizeof(uint64_t), to.stride - S::ByteOf(y));
  const int columns = std::min(S::kColumns, from.width - x);
  for (int i = 0; i < columns; ++i) {
    std::memcpy(to.StoredRow(x + i) + S::ByteOf(y), result + i * sizeof(uint64_t), resultBytes);
  }
}

// Asks for the part of the strip at (x, y) that a tile further down needs, and for a share of where its
// columns will go: the processor does not guess either, and waiting would take longer than the work.
template <int Bits>
[[gnu::always_inline]] inline void PrefetchNextTile(const ConstRows& from, int x, int y, const Rows& to) {
  using S = Strip<Bits>;
  constexpr int kForWriting = 1;
  if (y + S::kTile + S::kSide > from.height) return;
  for (int i = 0; i < S::kSide; ++i) {
    __builtin_prefetch(from.StoredRow(y + S::kTile + i) + S::ByteOf(x) + sizeof(Words) - 1);
  }
  const int top = y - y % S::kTile;
  for (int i = 0; i < S::kSide / 2; ++i) {
    __builtin_prefetch(to.StoredRow(x + (y - top) / 2 + i) + S::ByteOf(top) + 2 * kTileBytes - 1,
                       kForWriting);
  }
}

template <int Bits>
void TransposePacked(const ConstRows& from, const Rows& to) {
  using S = Strip<Bits>;
  for (int left = 0; left < from.width; left += S::kTile) {
    const int right = std::min(from.width, left + S::kTile);
    for (int top = 0; top < from.height; top += S::kTile) {
      const int bottom = std::min(from.height, top + S::kTile);
      for (int x = left; x < right; x += S::kColumns) {
        for (int y = top; y < bottom; y += S::kSide) {
          if (from.width - x < S::kColumns || from.height - y < S::kSide) {
            TransposeEdge<Bits>(from, x, y, to);
            continue;
          }
          if constexpr (Bits >= 8) PrefetchNextTile<Bits>(from, x, y, to);  // smaller pages are in the cache
          TransposeStrip<Bits>(from.StoredRow(y) + S::ByteOf(x), from.step, to.StoredRow(x) + S::ByteOf(y),
                               to.step);
        }
      }
    }
  }
}

constexpr int kTriplesTile = 64;
constexpr int kTriplesTileBytes = 3 * kTriplesTile;

// Moves `count` pixels of a column, `step` bytes apart, into a row. Four bytes are moved faster than three;
// the next pixel overwrites the one too many. Unrolled, as so short a loop takes a third longer where it
// happens to cross a line of the instruction cache.
[[gnu::always_inline]] inline void GatherTriples(const uint8_t* column, int step, int count, uint8_t* row) {
#pragma GCC unroll 8
  for (int y = 0; y < count - 1; ++y) std::memcpy(row + 3 * y, column + y * step, 4);
  std::memcpy(row + 3 * (count - 1), column + (count - 1) * step, 3);
}

// Copies rows of a tile, `step` bytes apart, from the page. A whole one is of a size that the compiler knows:
// for sizes that it does not know it takes string instructions, which are slow to begin.
[[gnu::always_inline]] inline void CopyTile(const ConstRows& from, int top, int rows, size_t byte,
                                            size_t bytes, uint8_t* tile, int step) {
  if (bytes == kTriplesTileBytes) {
    for (int y = 0; y < rows; ++y)
      std::memcpy(tile + y * step, from.StoredRow(top + y) + byte, kTriplesTileBytes);
  } else {
    for (int y = 0; y < rows; ++y) std::memcpy(tile + y * step, from.StoredRow(top + y) + byte, bytes);
  }
}

// Three bytes do not fit into words: the pixels are moved one by one, out of a copy of a tile, since rows
// whose distance is a multiple of a large power of 2 push each other out of the cache.
void Transpose24(const ConstRows& from, const Rows& to) {
  constexpr int kForWriting = 1;
  constexpr int kStep = kTriplesTileBytes + 4;  // with room behind the last pixel
  uint8_t tile[kTriplesTile * kStep];
  for (int left = 0; left < from.width; left += kTriplesTile) {
    const int columns = std::min(kTriplesTile, from.width - left);
    const size_t byte = 3 * static_cast<size_t>(left);
    for (int top = 0; top < from.height; top += kTriplesTile) {
      const int rows = std::min(kTriplesTile, from.height - top);
      const size_t bytes = 3 * static_cast<size_t>(columns);
      CopyTile(from, top, rows, byte, bytes, tile, kStep);
      const int rowsOfNext = std::min(kTriplesTile, from.height - top - rows);
      for (int x = 0; x < columns; ++x) {
        uint8_t* row = to.StoredRow(left + x) + 3 * static_cast<size_t>(top);
        if (x < rowsOfNext) {
          const uint8_t* source = from.StoredRow(top + rows + x) + byte;
          for (size_t i = 0; i < bytes; i += 64) __builtin_prefetch(source + i);
          for (int i = 1; i <= 3; ++i) __builtin_prefetch(row + kTriplesTileBytes + 64 * i - 1, kForWriting);
        }
        if (rows == kTriplesTile) {
          GatherTriples(tile + 3 * x, kStep, kTriplesTile, row);
        } else {
          GatherTriples(tile + 3 * x, kStep, rows, row);
        }
      }
    }
    const size_t pixelBytes = 3 * static_cast<size_t>(from.height);
    for (int x = left; x < left + columns; ++x)
      std::memset(to.StoredRow(x) + pixelBytes, 0, to.stride - pixelBytes);
  }
}

}  // namespace

void Transpose(const ConstRows& from, unsigned bits, const Rows& to) {
  switch (bits) {
    case 1:
      return Widest<TransposePacked<1>>(from, to);
    case 2:
      return Widest<TransposePacked<2>>(from, to);
    case 4:
      return Widest<TransposePacked<4>>(from, to);
    case 8:
      return Widest<TransposePacked<8>>(from, to);
    case 16:
      return Widest<TransposePacked<16>>(from, to);
    case 24:
      return Transpose24(from, to);
    case 32:
      return Widest<TransposePacked<32>>(from, to);
    default:
      return to.Clear();
  }
}

}  // namespace rastrel
