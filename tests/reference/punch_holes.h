// Punch holes at the left edge painted white: every probe square is counted afresh.
#ifndef RASTREL_TESTS_REFERENCE_PUNCH_HOLES_H
#define RASTREL_TESTS_REFERENCE_PUNCH_HOLES_H

#include <algorithm>

#include "hole_map.h"

namespace reference {

// The walks are bounded by the step counter k; the cursor runs ahead of it by the runs it has passed.

inline void ProtectVerticalLines(PageMap<uint8_t>& map, int x, int h, double longest) {
  int y = 0;
  for (int k = 0; k <= h - 5; ++k) {
    if (y < h - 1 && map(x, y) == kDark) {
      int run = 0;
      while (y + run < h - 1 && map(x, y + run) == kDark) ++run;
      if (run > longest) {
        for (int i = 0; i < run; ++i) map(x, y + i) = kLine;
      }
      y += run - 1;
    }
    ++y;
  }
}

inline void ProtectHorizontalLines(PageMap<uint8_t>& map, int y, int w, int64_t band, double longest) {
  int x = 0;
  for (int k = 0; k <= band - 1 && k < w; ++k) {
    if (x < band - 1 && x < w && map(x, y) == kDark) {
      int run = 0;
      while (x + run < w - 2 && map(x + run, y) == kDark) ++run;
      if (run > longest) {
        for (int i = 0; i < run; ++i) map(x + i, y) = kLine;
      }
      x += run - 1;
    }
    ++x;
  }
}

inline void EraseDisc(PageMap<uint8_t>& map, int64_t w, int64_t h, int64_t cx, int64_t cy, int64_t r) {
  const int64_t xl = std::max<int64_t>(cx - r, 1), xr = std::min(cx + r, w - 1);
  const int64_t yt = std::max<int64_t>(cy - r, 1), yb = std::min(cy + r, h - 1);
  const int64_t mx = (xl + xr) / 2, my = (yt + yb) / 2;
  for (int64_t x = xl - 1; x <= xr + r && x < w; ++x) {
    for (int64_t y = yt - 1; y <= yb + r && y < h; ++y) {
      uint8_t& cell = map(static_cast<int>(x), static_cast<int>(y));
      const double squares = static_cast<double>((mx - x) * (mx - x) + (my - y) * (my - y));
      if (squares < static_cast<double>(r) * static_cast<double>(r) && cell != kLine) cell = kErased;
    }
  }
}

inline Block RemovePunchHoles(const Block& block, int holeSize) {
  const View page(block);
  const int w = page.width, h = page.height;
  if (holeSize < -3) return {};
  const int named[] = {9, 7, 5, 4};  // -3 ... 0
  const double diameterMm = holeSize <= 0 ? named[holeSize + 3] : holeSize / 2 + 2;
  if (!HasHoleMap(page)) return {};

  const double dpi = DotsPerInch(page);
  const double diameter = diameterMm / 25.4 * dpi;  // in pixels
  const int64_t band = Rounded(dpi * 0.7480314960629921), probe = Rounded(dpi * 0.11811023622047245);

  PageMap<uint8_t> map = MapOfDarkPixels(page);
  for (int x = 0; x < band && x < w; ++x) {
    ProtectVerticalLines(map, x, h, 4 * diameterMm / 25.4 * dpi);
  }
  for (int y = 0; y < h; ++y) ProtectHorizontalLines(map, y, w, band, 2 * diameterMm / 25.4 * dpi);

  const double threshold = static_cast<double>(probe) * 0.89 * static_cast<double>(probe);
  for (int x = 0; x <= band - probe - 1; ++x) {
    for (int y = 0; y <= h - probe - 1; ++y) {
      int count = 0;
      for (int i = x; i < x + probe && i < w; ++i) {
        for (int j = y; j < y + probe; ++j) count += map(i, j) == kDark;
      }
      if (count > threshold) {
        EraseDisc(map, w, h, x + Rounded(diameter / 2), y + Rounded(diameter / 3), Rounded(diameter));
      }
    }
  }

  return WithWhiteHoles(page, map);
}

}  // namespace reference

#endif
