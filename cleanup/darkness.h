// How the cleanup operations tell dark pixels from light ones, and the columns of a page as sets of
// foreground bits. At 1 bit a page's polarity is whether LockedDib::FirstColourIsBlack.
#ifndef RASTREL_CLEANUP_DARKNESS_H
#define RASTREL_CLEANUP_DARKNESS_H

#include <algorithm>
#include <array>
#include <cstdint>

#include "cleanup/progress_window.h"
#include "frame/dib.h"
#include "pixels/bit_square.h"

namespace rastrel {

// 0 is black, 255 white.
constexpr unsigned ToneOf(unsigned blue, unsigned green, unsigned red) { return (blue + green + red) / 3; }

// Whether each index of an 8-bit page is one of those that are looked for.
using IndexSet = std::array<bool, 256>;

// The indices whose colour has a tone of `firstTone` to `lastTone`. An index beyond the block has the colour
// `beyond`.
IndexSet IndicesOfTones(const LockedDib& dib, RGBQUAD beyond, unsigned firstTone, unsigned lastTone);

// What counts as foreground. A tone of 128 is neither dark nor light.
enum class Foreground : bool { kLight, kDark };

// Finds the foreground of rows of 1, 8 or 24 bits, 64 pixels at a time.
class ForegroundTest {
 public:
  // An index beyond the block has the colour `beyond`.
  ForegroundTest(const LockedDib& dib, Foreground foreground, RGBQUAD beyond);
  static bool Takes(unsigned bits) { return bits == 1 || bits == 8 || bits == 24; }

  // Packs `pixels` pixels of a row of `stride` bytes from `column` on, a multiple of 64: eight pixels in each
  // byte of a word, from the lowest byte on, the leftmost in the byte's highest bit, as 1-bit rows lie in
  // memory. Bits that no pixel fills hold 0 or what the row's padding holds.
  void PackRow(const uint8_t* row, size_t stride, int column, int pixels, uint64_t* words) const;

 private:
  unsigned bits_;
  uint64_t flip_;          // 1 bit: what turns a word of pixels into one of foreground
  IndexSet indices_ = {};  // 8 bits
  bool isRange_ = false;   // whether the foreground indices are the firstIndex_ .. lastIndex_
  uint8_t firstIndex_ = 0;
  uint8_t lastIndex_ = 0;
  uint16_t firstSum_;  // 24 bits: the sums of the three bytes
  uint16_t lastSum_;
};

// Rows are packed in pieces of this width.
constexpr int kPieceWords = 64;
constexpr int kPieceColumns = kPieceWords * 64;

// Finds the foreground of columns 0 .. columns - 1 and hands it over in squares of 64 x 64 pixels, from the
// bottom up, as put(left, top, rows, any): the packed page rows from `top`, a multiple of 64, on, 0 below the
// page, and a word that is 0 when all of them are. Takes a step of the progress window at each page row that
// is a multiple of its divisor, the bottom one excepted. Returns false when the user cancelled.
template <class Put>
bool GatherSquares(const ConstRows& rows, const ForegroundTest& test, int columns, ProgressWindow& window,
                   Put put) {
  for (int top = (rows.height - 1) / 64 * 64; top >= 0; top -= 64) {
    const int count = std::min(64, rows.height - top);
    for (int y = std::min(top + count, rows.height - 1) - 1; y >= top; --y) {
      if (y % ProgressWindow::kDivisor == 0) window.Step();
      if (window.cancelled()) return false;
    }
    for (int left = 0, pieceColumns; left < columns; left += pieceColumns) {
      pieceColumns = std::min(kPieceColumns, columns - left);
      uint64_t packed[64][kPieceWords];
      for (int i = count - 1; i >= 0; --i)
        test.PackRow(rows.PageRow(top + i), rows.stride, left, pieceColumns, packed[i]);
      for (int x = 0; x < pieceColumns; x += 64) {
        uint64_t square[64] = {};
        uint64_t any = 0;
        for (int i = 0; i < count; ++i) any |= square[i] = packed[i][x / 64];
        put(left + x, top, square, any);
      }
    }
  }
  return true;
}

// The same, as columns: put(left, top, bits, count) has `count` columns from `left` on, a word each, with
// page row `top` in the lowest bit.
template <class Put>
bool GatherColumns(const ConstRows& rows, const ForegroundTest& test, int columns, ProgressWindow& window,
                   Put put) {
  return GatherSquares(rows, test, columns, window,
                       [columns, &put](int left, int top, uint64_t* square, uint64_t any) {
                         if (any != 0) TransposeBits(square);
                         put(left, top, square, std::min(64, columns - left));
                       });
}

}  // namespace rastrel

#endif
