// Skew of a page in whole degrees: clumps of foreground become anchors, anchors vote for lines.
#ifndef RASTREL_TESTS_REFERENCE_SKEW_DETECTION_H
#define RASTREL_TESTS_REFERENCE_SKEW_DETECTION_H

#include <algorithm>
#include <cmath>

#include "dib.h"

namespace reference {

enum SkewCell : int32_t { kGround = 0, kMark = 1, kAbsorbed = 2, kAnchor = 3 };

inline bool IsForeground(const View& page, int x, int storedRow, bool darkForeground) {
  if (page.bits == 1) return page.IsDarkBit(page.Pixel(x, storedRow)) == darkForeground;
  const int mean = page.ColourOf(x, storedRow).Mean();
  return darkForeground ? mean < 128 : mean > 128;
}

// Wipes the marks from one end of a column up to the fourth cell that is none.
inline void StripColumn(PageMap<int32_t>& map, int x, int height, int from, int direction) {
  int passed = 0;
  for (int y = from; y >= 0 && y < height; y += direction) {
    if (map(x, y) == kMark) {
      map(x, y) = kGround;
    } else if (passed == 3) {
      break;
    } else {
      ++passed;
    }
  }
}

inline void ReduceClump(PageMap<int32_t>& map, int width, int height, int x, int y, int radius) {
  int x0 = width, x1 = -1, y0 = height, y1 = -1;
  for (int column = std::max(x - radius, 0); column <= std::min(x + radius, width - 1); ++column) {
    for (int row = std::max(y - radius, 0); row <= std::min(y + radius, height - 1); ++row) {
      if (map(column, row) != kMark) continue;
      x0 = std::min(x0, column);
      x1 = std::max(x1, column);
      y0 = std::min(y0, row);
      y1 = std::max(y1, row);
    }
  }
  map(x1, (y0 + y1) / 2) = kAnchor;
  for (int column = x0; column <= x1; ++column) {
    for (int row = y0; row <= y1; ++row) {
      if (map(column, row) == kMark) map(column, row) = kAbsorbed;
    }
  }
}

inline int DetectSkewAngle(const Block& block, bool darkForeground) {
  const View page(block);
  const int w = page.width, h = page.height;
  if (page.bits != 1 && page.bits != 8 && page.bits != 24) return 0;

  const uint32_t uw = static_cast<uint32_t>(w), uh = static_cast<uint32_t>(h);
  const int32_t squares = static_cast<int32_t>(uw * uw + uh * uh);  // wraps
  if (squares < 0) return 0;

  int radius = static_cast<int>((w / 100.0 + h / 100.0) / 2.0 + 0.5);
  if (radius < 2) radius = 0;
  if (radius > 10) radius = 10;

  PageMap<int32_t> map(w, h);
  for (int row = 0; row < h; ++row) {
    for (int x = 0; x < w; ++x) {
      if (IsForeground(page, x, row, darkForeground)) map(x, h - 1 - row) = kMark;
    }
  }
  for (int x = 0; x < w; ++x) {
    StripColumn(map, x, h, 0, +1);
    StripColumn(map, x, h, h - 1, -1);
  }
  for (int x = 0; x < w; ++x) {
    for (int y = 0; y < h; ++y) {
      if (map(x, y) == kMark) ReduceClump(map, w, h, x, y, radius);
    }
  }

  const int reach = static_cast<int>(std::sqrt(squares / 2.0) + 0.5) - 1;
  const int counters = 2 * reach + 2, cx = w / 2, cy = h / 2;
  std::vector<std::vector<int32_t>> votes(180, std::vector<int32_t>(static_cast<size_t>(counters)));
  for (size_t a = 0; a < 180; ++a) {
    const double t = static_cast<double>(a) * 0.017453292519943295, cosine = std::cos(t), sine = std::sin(t);
    for (int x = 0; x < w; ++x) {
      for (int y = 0; y < h; ++y) {
        if (map(x, y) != kAnchor) continue;
        const double rho = cosine * (y - cy) + sine * (x - cx);
        const int i = reach + static_cast<int>(rho > 0 ? rho + 0.5 : rho - 0.5);
        if (i >= 0 && i < counters) ++votes[a][static_cast<size_t>(i)];
      }
    }
  }

  int32_t best = 0;
  int angle = 0;
  for (int a = 0; a < 180; ++a) {
    for (int i = 0; i <= 2 * reach; ++i) {  // the last counter is never looked at
      const int32_t count = votes[static_cast<size_t>(a)][static_cast<size_t>(i)];
      if (count <= best) continue;
      best = count;
      angle = a;
    }
  }
  if (angle > 45) angle -= 90;
  if (angle > 45) angle -= 90;
  return angle;
}

}  // namespace reference

#endif
