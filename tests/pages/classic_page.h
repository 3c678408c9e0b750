// Pages drawn for the tests of the classic chain, and what it makes of them.
#ifndef RASTREL_TESTS_PAGES_CLASSIC_PAGE_H
#define RASTREL_TESTS_PAGES_CLASSIC_PAGE_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "pages/clean.h"
#include "pages/operations.h"

namespace rastrel::pages {

inline constexpr int kWidth = 1240, kHeight = 1754;  // A4 at 150 dpi
inline constexpr int32_t kDots = 5906;               // a metre

// A white page to draw on in black, of any depth.
class Drawing {
 public:
  explicit Drawing(int bits, int width = kWidth, int height = kHeight, int32_t dots = kDots)
      : page_(MakePage(width, height, bits, {dots, dots})) {
    std::ranges::fill(PageView(page_).pixels(), uint8_t{0});
    Fill(0, 0, width, height, /*isDark=*/false);
  }
  explicit Drawing(Dib page) : page_(std::move(page)) {}
  void Fill(int left, int top, int right, int bottom, bool isDark = true) {
    const PageView view(page_);
    for (int y = top; y < bottom; ++y) PaintRow(view, y, left, right, ExtremeInk(view, !isDark));
  }
  void Disc(int cx, int cy, int radius) {
    for (int y = -radius; y <= radius; ++y) {
      const int half = static_cast<int>(std::sqrt(radius * radius - y * y));
      Fill(cx - half, cy + y, cx + half + 1, cy + y + 1);
    }
  }
  // Lines of words that rise to the right by `degrees`.
  void Text(double degrees) {
    const double slope = std::tan(degrees * 3.14159265358979 / 180);
    for (int line = 0; line < 40; ++line) {
      for (int x = 250; x < 1050; ++x) {
        const int y = 200 + line * 33 - static_cast<int>(std::lround(slope * (x - kWidth / 2)));
        if (x / 7 % 3 != 0 && x / 60 % 5 != 0) Fill(x, y, x + 1, y + 12);
      }
    }
  }
  Dib Take() { return std::move(page_); }
  const Dib& page() const { return page_; }

 private:
  Dib page_;
};

inline uint8_t BrightnessAt(const Dib& page, int x, int y) {
  const PageView view(page);
  uint8_t brightness = 0;
  RowBrightness(view, BrightnessTable(view), y, x, x + 1, &brightness);
  return brightness;
}

inline int64_t DarkPixels(const Dib& page) {
  const PageView view(page);
  std::vector<uint8_t> row(static_cast<size_t>(view.width()));
  int64_t dark = 0;
  for (int y = 0; y < view.height(); ++y) {
    RowBrightness(view, BrightnessTable(view), y, 0, view.width(), row.data());
    dark += std::ranges::count_if(row, [](uint8_t value) { return value < 128; });
  }
  return dark;
}

inline bool SamePixels(const Dib& a, const Dib& b) {
  const PageView one(a), other(b);
  return one.width() == other.width() && std::ranges::equal(one.pixels(), other.pixels());
}

// What comes of a page, and what is noted of it.
struct Cleaned {
  explicit Cleaned(Dib dib, CleanOptions options = {}, Dib* overlay = nullptr) {
    options.isClassic = true;
    page = CleanPage(std::move(dib), options, &record, overlay);
  }
  CleanRecord record;
  Dib page;
};

// The record of a page that comes out as it was.
inline CleanRecord ExpectUntouched(const Dib& page, const CleanOptions& options = {}) {
  const Cleaned after(Duplicate(page), options);
  EXPECT_TRUE(SamePixels(page, after.page));
  return after.record;
}

}  // namespace rastrel::pages

#endif
