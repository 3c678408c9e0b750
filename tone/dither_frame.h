// What all dithers share around the dither itself: the checks, a page's pixels as planes of bytes, the packed
// result with its header and palette.
#ifndef RASTREL_TONE_DITHER_FRAME_H
#define RASTREL_TONE_DITHER_FRAME_H

#include <cstddef>
#include <cstdint>

#include "frame/dib.h"
#include "frame/rastrel.h"
#include "frame/thread_state.h"

namespace rastrel {

constexpr uint8_t GreyOf(unsigned red, unsigned green, unsigned blue) {
  return static_cast<uint8_t>((30 * red + 59 * green + 11 * blue) / 100);
}

// Greys of `count` pixels of blue, green, red.
void ReadTrueColourGrey(const uint8_t* pixels, size_t count, uint8_t* grey);

// The pixels of a page of 4, 8 or 24 bits, a stored row at a time. An index beyond the colour table is looked
// up in what the block holds there.
class PagePlanes {
 public:
  static bool Takes(unsigned bits) { return bits == 4 || bits == 8 || bits == 24; }

  // The page stays locked for the life of this.
  PagePlanes(const LockedDib& page, const ConstRows& rows);
  int width() const { return rows_.width; }
  int height() const { return rows_.height; }
  // The pixels that the bytes of a stored row are counted as: the width rounded up to 8 at 4 bits, else to 4.
  uint64_t paddedWidth() const;

  // These write up to one byte behind the last pixel's.
  void ReadGrey(int row, uint8_t* grey) const;
  void ReadRed(int row, uint8_t* red) const;
  void ReadColours(int row, uint8_t* red, uint8_t* green, uint8_t* blue) const;

  // The red of a row's first pixel.
  uint8_t FirstRed(int row) const;

  // ReadGrey without the copy where the pixels are greys as they stand: returns `buffer` or the pixels.
  const uint8_t* GreyRow(int row, uint8_t* buffer) const;

 private:
  // What a byte of indices stands for: one pixel at 8 bits, two at 4.
  struct Table {
    uint8_t one[256];
    uint8_t two[256][2];
  };
  void LookUp(int row, const Table& table, uint8_t* to) const;

  ConstRows rows_;
  unsigned bits_;
  Table red_;
  Table green_;
  Table blue_;
  Table grey_;
  bool indicesAreGreys_;
};

// The result of a dither: a new page of 1, 4 or 8 bits with its standard palette and the source's size and
// resolution. The rows are for the dither to write, in full.
class DitherResult : public NewBlock {
 public:
  DitherResult(const Header& source, int bits);
  const Rows& rows() const { return rows_; }

 private:
  Rows rows_ = {};
};

// Packs a row of `rows` from one byte a pixel; what lies behind the last pixel becomes 0.
// To 1 bit: 0 for black, 255 for white.
void PackBlackAndWhite(const uint8_t* white, const Rows& rows, int row);
// To 4 bits: the same for each colour. Only even indices arise.
void PackEightColours(const uint8_t* red, const uint8_t* green, const uint8_t* blue, const Rows& rows,
                      int row);
// To 8 bits: levels 0 .. 7 of red and green, 0 .. 3 of blue. A blue level of 4 sets the lowest bit of green
// and leaves blue at 0. Kept: callers of dithers compare their pages with stored ones.
void PackCube(const uint8_t* red, const uint8_t* green, const uint8_t* blue, const Rows& rows, int row);

// In what the dithers' checks differ.
struct DitherRules {
  ErrorCode nullHandle;
  ErrorCode cannotLock;
  int mostBits = 8;  // of a result
};

// Fills the rows of a result of `bits` bits. Returns false when there is no memory for it.
using DitherPass = bool (*)(const PagePlanes& page, int bits, const Rows& result);

// A whole exported dither. Sets the thread's error either way.
HGLOBAL Dither(HGLOBAL dib, int bits, const DitherRules& rules, DitherPass pass);

}  // namespace rastrel

#endif
