// Pages of boxes for the punch hole removers, and what they made of them.
#ifndef RASTREL_TESTS_CLEANUP_PUNCHED_PAGES_H
#define RASTREL_TESTS_CLEANUP_PUNCHED_PAGES_H

#include <initializer_list>
#include <string>
#include <vector>

#include "tests/support/test_dib.h"

namespace rastrel::testing {

constexpr int kDots25 = 1000;  // a metre: 25 dots per inch

// 8 bits: dark is 0, the light ground 200, and what is painted 255.
constexpr Pixel kGround = 200;

inline BITMAPINFOHEADER HeaderWithDots(int bits, int width, int height, int dotsPerMetre) {
  BITMAPINFOHEADER header = MakeHeader(bits, width, height);
  header.biXPelsPerMeter = header.biYPelsPerMeter = dotsPerMetre;
  return header;
}

struct Box {
  int left, top, width, height;
};

inline TestDib WithBoxes(int width, int height, std::initializer_list<Box> boxes,
                         int dotsPerMetre = kDots25) {
  TestDib page = TestDib::Plain(HeaderWithDots(8, width, height, dotsPerMetre), kGround);
  for (const Box& box : boxes) page.Fill(box.left, box.top, box.width, box.height, 0);
  page.Settle();
  return page;
}

// A page without holes as a drawing: '#' dark, 'o' painted, '.' ground.
inline std::vector<std::string> DrawnBoxes(const TestDib& result) {
  std::vector<std::string> rows(static_cast<size_t>(result.height()));
  int i = 0;
  for (const Pixel pixel : result.Pixels())
    rows[static_cast<size_t>(i++ / result.width())] += pixel == 0 ? '#' : pixel == kGround ? '.' : 'o';
  return rows;
}

}  // namespace rastrel::testing

#endif
