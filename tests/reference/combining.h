// One page laid onto another, as colours.
#ifndef RASTREL_TESTS_REFERENCE_COMBINING_H
#define RASTREL_TESTS_REFERENCE_COMBINING_H

#include <algorithm>

#include "dib.h"

namespace reference {

// An index without a stored entry is black.
inline Colour ShownColour(const View& page, int64_t x, int64_t row) {
  const int64_t at = page.Row(row) + x * page.bits / 8;
  const auto widened = [&](int shift) {
    const int five = static_cast<int>(Field(page.block, at, 2)) >> shift & 31;
    return five << 3 | five >> 2;
  };
  if (page.bits >= 24) return page.ColourAt(at);
  if (page.bits == 16) return {widened(0), widened(5), widened(10)};
  const int index = page.Pixel(static_cast<int>(x), row);
  return index < page.colours ? page.Entry(index) : Colour{0, 0, 0};
}

inline void PutNearestColour(Block& block, int64_t x, int64_t row, Colour wanted) {
  const View page(block);
  const int64_t bit = x * page.bits, at = page.Row(row) + bit / 8;
  const int64_t full = wanted.blue | wanted.green << 8 | wanted.red << 16;
  const int64_t fives = wanted.blue >> 3 | wanted.green >> 3 << 5 | wanted.red >> 3 << 10;
  if (page.bits >= 16) return SetField(block, at, page.bits / 8, page.bits == 16 ? fives : full);
  const int64_t best = NearestEntry(page, wanted);
  const int64_t shift = 8 - page.bits - bit % 8, mask = ((1 << page.bits) - 1) << shift;
  SetField(block, at, 1, (ByteAt(block, at) & ~mask) | best << shift);
}

inline bool IsPicture(const View& page) {
  const bool known = page.bits == 24 || (page.bits > 0 && page.bits != 2 && 32 % page.bits == 0);
  const int64_t room = static_cast<int64_t>(page.block.size()) - page.pixels;
  return Field(page.block, 0, 4) == kHeader && Field(page.block, 16, 4) == 0 && known && page.width > 0 &&
         page.height > 0 && room >= 0 && page.height <= room / page.stride;
}

// On a screen without a palette. (x, y): where the top left pixel of the source goes, from the top left.
inline bool CombineDIB(int x, int y, Block& destination, const Block& source, const Block* mask,
                       bool andFlag) {
  const Block before = destination, sourceBefore = source, maskBefore = mask == nullptr ? source : *mask;
  const View under(before), over(sourceBefore), stencil(maskBefore);
  if (!IsPicture(under) || !IsPicture(over) || !IsPicture(stencil)) return false;
  if (stencil.width != over.width || stencil.height != over.height) return false;

  // What is moved has the destination's size: from a negative x or y on it does not reach the far edge.
  for (int64_t sy = 0; sy < std::min(over.height, under.height); ++sy) {
    for (int64_t sx = 0; sx < std::min(over.width, under.width); ++sx) {
      const int64_t dx = x + sx, dy = y + sy;
      if (dx < 0 || dy < 0 || dx >= under.width || dy >= under.height) continue;
      Colour colour = ShownColour(over, sx, over.height - 1 - sy);
      const Colour light = ShownColour(stencil, sx, over.height - 1 - sy);
      if (mask != nullptr && light.blue + light.green + light.red < 383) colour = {0, 0, 0};
      if (andFlag) {
        const Colour old = ShownColour(under, dx, under.height - 1 - dy);
        colour = {colour.blue & old.blue, colour.green & old.green, colour.red & old.red};
      }
      PutNearestColour(destination, dx, under.height - 1 - dy, colour);
    }
  }
  return true;
}

}  // namespace reference

#endif
