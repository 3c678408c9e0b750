// Something like text, drawn along any curve, for tests of what finds lines.
#ifndef RASTREL_TESTS_PAGES_DRAWN_TEXT_H
#define RASTREL_TESTS_PAGES_DRAWN_TEXT_H

#include <cmath>
#include <cstdint>

#include "pages/planes.h"

namespace rastrel::pages {

class TextPainter {
 public:
  TextPainter(BitPlane* plane, uint32_t seed) : plane_(plane), random_(seed) {}

  // Words of letters `height` high from left to right, that stand on
  // baseline(x). Letters are two stems and a bar; some have an ascender or a
  // descender.
  template <class Baseline>
  void DrawLine(double left, double right, double height, Baseline baseline) {
    double x = left;
    while (x < right) {
      const int letters = 2 + static_cast<int>(Next() * 8);
      for (int i = 0; i < letters && x < right; ++i) {
        const double width = height * (0.4 + 0.4 * Next()), stem = height / 6;
        const double kind = Next();
        const double up = kind < 0.2 ? 1.6 : 1, down = kind > 0.9 ? 0.5 : 0;
        Fill(x, x + stem, -height * up, height * down, baseline);
        Fill(x + width - stem, x + width, -height, 0, baseline);
        const double bar = -height * (kind < 0.5 ? 1 : 0.4);
        Fill(x, x + width, bar, bar + stem, baseline);
        x += width + height / 4;
      }
      x += height * 0.6;
    }
  }

 private:
  double Next() {
    random_ = random_ * 1664525 + 1013904223;
    return (random_ >> 8) / 16777216.0;
  }
  template <class Baseline>
  void Fill(double left, double right, double top, double bottom, Baseline baseline) {
    for (int x = static_cast<int>(left); x < static_cast<int>(right) + 1; ++x) {
      if (x < 0 || x >= plane_->width()) continue;
      const double base = baseline(x);
      for (int y = static_cast<int>(std::floor(base + top + 0.5)); y < std::floor(base + bottom + 0.5); ++y) {
        if (y >= 0 && y < plane_->height()) plane_->Set(x, y);
      }
    }
  }

  BitPlane* plane_;
  uint32_t random_;
};

}  // namespace rastrel::pages

#endif
