// Specks removed by a 3 x 3 neighbourhood: a neighbour count at 1 bit, a rank filter at 8 bits.
#ifndef RASTREL_TESTS_REFERENCE_SPECKLE_H
#define RASTREL_TESTS_REFERENCE_SPECKLE_H

#include "dib.h"

namespace reference {

// Pixels and bytes have their neighbours by plain addressing: at the ends of a row they lie in the rows
// before and after it, behind the last row in what the block holds there.

inline Block CleanBilevel(const Block& source, int level, bool full) {
  const View page(source);
  const int64_t pixels = kHeader + 4 * int64_t{Field(source, kClrUsed, 4)};
  const int64_t rowBits = page.stride * 8;
  const auto pixelAt = [&](int64_t bit) { return ByteAt(source, pixels + bit / 8) >> (7 - bit % 8) & 1; };
  const int threshold = level * 8 / 100;

  Block copy = source;
  for (int row = 1; row < page.height - 1; ++row) {
    for (int64_t x = 1; x < rowBits; ++x) {
      if (x == page.width - 1 && page.width % 8 != 0) continue;
      const int64_t at = row * rowBits + x;
      int n = pixelAt(at - 1) + pixelAt(at + 1);
      for (int dx = -1; dx <= 1; ++dx) n += pixelAt(at - rowBits + dx) + pixelAt(at + rowBits + dx);
      if (!full && n >= 4) continue;
      uint8_t& byte = Byte(copy, pixels + at / 8);
      const int bit = 0x80 >> (at % 8);
      if (n > threshold) byte = static_cast<uint8_t>(byte | bit);
      if (n < threshold) byte = static_cast<uint8_t>(byte & ~bit);
    }
  }
  return copy;
}

inline Block CleanGrey(const Block& source, int level, bool full) {
  const View page(source);
  const int64_t pixels = kHeader + 4 * int64_t{Field(source, kClrUsed, 4)};
  const int64_t stride = page.stride;
  const int rank = level * 9 / 100;
  const int64_t neighbours[8] = {+1, -1, stride + 1, stride - 1, -stride + 1, -stride - 1, stride, -stride};

  Block copy = source;
  for (int row = 1; row < page.height - 1; ++row) {
    for (int64_t x = 1; x < stride; ++x) {
      if (x == page.width - 1) continue;
      const int64_t at = pixels + row * stride + x;
      const int own = ByteAt(source, at);
      if (!full && own >= 5 && own <= 250) continue;

      bool taken[8] = {};
      int choice = 0;
      for (int pass = 0; pass < rank; ++pass) {
        int minimum = 255;
        for (int i = 0; i < 8; ++i) {
          const int value = ByteAt(source, at + neighbours[i]);
          if (taken[i] || value > minimum) continue;
          minimum = value;
          choice = i;
        }
        taken[choice] = true;
      }
      Byte(copy, at) = ByteAt(source, at + neighbours[choice]);
    }
  }
  return copy;
}

inline Block CleanImage(const Block& block, int level, bool full) {
  const View page(block);
  if (level < 20 || level > 100) return {};
  if (page.bits != 1 && page.bits != 8) return {};
  if (page.bits == 8 && Field(block, kPlanes, 2) != 1) return {};
  for (int i = 0; i < 1 << page.bits; ++i) {
    if (!page.HoldsEntry(i) || !page.Entry(i).IsGrey()) return {};
  }
  const int engineLevel = page.Entry(0).IsBlack() ? 120 - level : level;
  return page.bits == 1 ? CleanBilevel(block, engineLevel, full) : CleanGrey(block, 120 - engineLevel, full);
}

}  // namespace reference

#endif
