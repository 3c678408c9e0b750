// Punch holes of any size at the left edge painted white: blobs are measured through their centres.
#ifndef RASTREL_TESTS_REFERENCE_AUTOMATIC_HOLES_H
#define RASTREL_TESTS_REFERENCE_AUTOMATIC_HOLES_H

#include <algorithm>
#include <cmath>

#include "hole_map.h"

namespace reference {

// Cells of a map along a row or down a column.
struct CellLine {
  PageMap<uint8_t>& map;
  bool isColumn;
  int at, length;

  uint8_t& operator()(int i) const { return isColumn ? map(at, i) : map(i, at); }

  // Dark cells from a dark one on; the last of the line does not count except as the first.
  int Run(int from) const {
    if (from >= length - 1) return 1;
    int run = 0;
    while (from + run < length - 1 && (*this)(from + run) == kDark) ++run;
    return run;
  }
};

// Short runs vanish, long ones are protected, with the cell behind them each.
inline void SortRuns(const CellLine& line, double shortest, double longest) {
  int i = 0;
  for (int k = 0; k <= line.length - 1; ++k) {
    if (i >= line.length - 1 || line(i) != kDark) {
      ++i;
      continue;
    }
    const int run = line.Run(i);
    if (run < shortest || run > longest) {
      for (int j = i; j <= i + run; ++j) line(j) = run < shortest ? kLight : kLine;
    }
    i += run;
  }
}

// The dark cells around one of a line; cell 0 never belongs to them.
struct Extent {
  int stoppedAt, first, count;

  Extent(const CellLine& line, int from) {
    int before = from, behind = from;
    while (before >= 1 && line(before) == kDark) --before;
    while (behind < line.length && line(behind) == kDark) ++behind;
    stoppedAt = before;
    first = before + 1;
    count = behind - before - 1;
  }
};

inline void EraseClippedDisc(PageMap<uint8_t>& map, int w, int h, int64_t cx, int64_t cy, int64_t r) {
  const int64_t left = std::max<int64_t>(cx - r, 0), right = std::min<int64_t>(cx + r, w - 1);
  const int64_t top = std::max<int64_t>(cy - r, 0), bottom = std::min<int64_t>(cy + r, h - 1);
  const int64_t mx = (left + right) / 2, my = (top + bottom) / 2;
  for (int64_t x = left; x <= right; ++x) {
    for (int64_t y = top; y <= bottom; ++y) {
      uint8_t& cell = map(static_cast<int>(x), static_cast<int>(y));
      if ((mx - x) * (mx - x) + (my - y) * (my - y) < r * r && cell != kLine) cell = kErased;
    }
  }
}

// Looks at the run of `a` dark cells that begins at (x, y).
inline void EraseIfHole(PageMap<uint8_t>& map, int w, int h, double dpi, int x, int y, int a) {
  const double fourMm = dpi * 0.15748031496062992;
  if (!(a > fourMm)) return;
  const int cx = x + a / 2;
  const Extent rows(CellLine{map, true, cx, h}, y);
  if (!(rows.count > fourMm)) return;
  const int cy = rows.first + rows.count / 2;
  Extent columns(CellLine{map, false, cy, w}, cx);
  if (columns.stoppedAt == cy) {  // a column compared with a row
    columns.first = columns.stoppedAt;
    columns.count = 0;
  }
  const int cx2 = columns.first + columns.count / 2;
  const int halfHeight = cy - rows.first, halfWidth = cx2 - columns.first;
  const int q = (halfHeight + halfWidth) / 2;
  const int64_t r = Rounded(q) + Rounded(dpi * 0.043307086614173235);
  if (halfHeight - halfWidth < dpi * 0.023622047244094488) EraseClippedDisc(map, w, h, cx2, cy, r);
}

inline Block AutoPunchHoleRemover(const Block& block) {
  const View page(block);
  if (!HasHoleMap(page) || !HoldsItsRows(page)) return {};
  const int w = page.width, h = page.height;
  const double dpi = DotsPerInch(page);
  const double shortest = 2 / 25.4 * dpi, longest = 15 / 25.4 * dpi;
  const int64_t band = Rounded(dpi * 0.7480314960629921) - 1;

  PageMap<uint8_t> map = MapOfDarkPixels(page);
  for (int x = 0; x < w; ++x) SortRuns(CellLine{map, true, x, h}, shortest, longest);
  for (int y = 0; y < h; ++y) SortRuns(CellLine{map, false, y, w}, shortest, longest);
  for (int y = 0; y < h; ++y) {
    int x = 0;
    for (int64_t k = 0; k <= band && x < w; ++k) {
      if (x < band && map(x, y) == kDark) {
        const int a = CellLine{map, false, y, w}.Run(x);
        EraseIfHole(map, w, h, dpi, x, y, a);
        x += a - 1;
      }
      ++x;
    }
  }
  return WithWhiteHoles(page, map);
}

}  // namespace reference

#endif
