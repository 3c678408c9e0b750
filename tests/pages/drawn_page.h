// Pages drawn for the tests of the page model, with known truth: paper under any light, strokes of known
// places, grain. All integers, so that a page is the same everywhere.
#ifndef RASTREL_TESTS_PAGES_DRAWN_PAGE_H
#define RASTREL_TESTS_PAGES_DRAWN_PAGE_H

#include <algorithm>
#include <cstdint>

#include "pages/planes.h"

namespace rastrel::pages {

struct DrawnPage {
  // `paperAt(x, y)` gives the paper's brightness.
  template <class PaperAt>
  DrawnPage(int width, int height, PaperAt paperAt)
      : grey(width, height), paper(width, height), truth(width, height) {
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) paper.Row(y)[x] = grey.Row(y)[x] = static_cast<uint8_t>(paperAt(x, y));
    }
  }

  // A bar that leaves `percent` of the paper's brightness. Ink is part of the truth; a stain or show-through
  // is not.
  void Bar(int left, int top, int width, int height, int percent, bool isInk = true) {
    for (int y = std::max(top, 0); y < std::min(top + height, grey.height()); ++y) {
      for (int x = std::max(left, 0); x < std::min(left + width, grey.width()); ++x) {
        grey.Row(y)[x] = static_cast<uint8_t>(grey.Row(y)[x] * percent / 100);
        if (isInk) truth.Set(x, y);
      }
    }
  }

  // Lines of letter-like strokes: uprights `stroke` wide, three strokes apart, on a base line, in the given
  // area.
  void Text(int left, int top, int right, int bottom, int stroke, int percent) {
    const int tall = stroke * 6;
    for (int y = top; y + tall < bottom; y += tall * 2) {
      for (int x = left, letter = 0; x + stroke < right; x += stroke * 3, ++letter) {
        if (letter % 6 == 5) continue;  // a space
        Bar(x, y, stroke, tall, percent);
        if (letter % 2 == 0) Bar(x + stroke, y + tall - stroke, stroke * 2, stroke, percent);
      }
    }
  }

  // Grain: even noise of up to `amount` grey levels either way.
  void Grain(int amount) {
    uint32_t state = 1;
    for (uint8_t& value : grey.bytes()) {
      state = state * 1664525u + 1013904223u;
      const int noise = static_cast<int>(state >> 16) % (2 * amount + 1) - amount;
      value = static_cast<uint8_t>(std::clamp(value + noise, 0, 255));
    }
  }

  BytePlane grey, paper;
  BitPlane truth;
};

}  // namespace rastrel::pages

#endif
