// What both searches for punch holes share: a map of the dark pixels, and a page painted white by it.
#ifndef RASTREL_TESTS_REFERENCE_HOLE_MAP_H
#define RASTREL_TESTS_REFERENCE_HOLE_MAP_H

#include <cmath>

#include "dib.h"

namespace reference {

enum HoleCell : uint8_t { kLight = 0, kDark = 1, kErased = 2, kLine = 3 };

inline int64_t Rounded(double value) { return static_cast<int64_t>(value + 0.5); }

// Whether the page can be searched: a depth that is known, one resolution.
inline bool HasHoleMap(const View& page) {
  if (SignedField(page.block, kXPelsPerMeter) != SignedField(page.block, kYPelsPerMeter)) return false;
  return page.bits == 1 || page.bits == 8 || page.bits == 24;
}

inline double DotsPerInch(const View& page) {
  return std::trunc(SignedField(page.block, kXPelsPerMeter) / 39.37 + 0.5);
}

inline bool IsDarkPixel(const View& page, int x, int storedRow) {
  if (page.bits == 1) return page.IsDarkBit(page.Pixel(x, storedRow));
  if (page.bits == 8 && !page.HoldsEntry(page.Pixel(x, storedRow))) return false;
  return page.ColourOf(x, storedRow).Mean() < 128;
}

inline PageMap<uint8_t> MapOfDarkPixels(const View& page) {
  PageMap<uint8_t> map(page.width, page.height);
  for (int row = 0; row < page.height; ++row) {
    for (int x = 0; x < page.width; ++x) {
      if (IsDarkPixel(page, x, row)) map(x, page.height - 1 - row) = kDark;
    }
  }
  return map;
}

inline Block WithWhiteHoles(const View& page, PageMap<uint8_t>& map) {
  Block copy = page.block;
  for (int row = 0; row < page.height; ++row) {
    for (int x = 0; x < page.width; ++x) {
      if (map(x, page.height - 1 - row) != kErased) continue;
      if (page.bits == 1 && page.IsDarkBit(1)) {
        uint8_t& byte = Byte(copy, page.Row(row) + x / 8);
        byte = static_cast<uint8_t>(byte & ~(0x80 >> (x % 8)));
      } else {
        OrPixel(copy, page.Row(row), x, page.bits, (1 << page.bits) - 1);
      }
    }
  }
  return copy;
}

}  // namespace reference

#endif
