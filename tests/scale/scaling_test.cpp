#include <gtest/gtest.h>
#include <rastrel.h>

#include <algorithm>

#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

TEST(ScaleDIB, LeavesTrueColourOfTheSameSizeAlone) {
  const TestDib page = TestDib::Random(24, 37, 11, 3);
  EXPECT_EQ(page.Pixels(), TestDib(ScaleDIB(page.handle(), 0, 37, 11)).Pixels());
}

TEST(ScaleDIB, WeighsNeighboursByHand) {
  TestDib page(MakeHeader(8, 2, 2));
  page.Fill(0, 0, 2, 2, 200);
  page.Set(1, 1, 100);
  // Halfway 128 and 127 of 255. Behind the last column and row they are repeated.
  const std::vector<Pixel> twice = {200, 200, 200, 200, 200, 200, 200, 200,  // from the top
                                    200, 175, 150, 150, 200, 150, 100, 100};
  EXPECT_EQ(twice, TestDib(ScaleDIB(page.handle(), 0, 4, 4)).Pixels());
  // Halfway between two rows cubic convolution takes 159 / 255 of both and takes away 31 / 255 of the ones
  // beyond them: black below the bottom row, and the lower of the two instead of one above the top row.
  page.Fill(0, 0, 2, 1, 200);
  page.Fill(0, 1, 2, 1, 0);
  EXPECT_EQ((std::vector<Pixel>{226, 200, 125, 0}), TestDib(ScaleDIB(page.handle(), 1, 1, 4)).Pixels());
}

// Black at the beginning of a row is index 0, whatever entry 0 is; after another colour it is the nearest.
TEST(ScaleDIB, TakesLeadingBlackForIndexZero) {
  for (const int bits : {4, 8}) {
    for (const bool isGrey : {false, true}) {
      std::vector<RGBQUAD> table(size_t{1} << bits, RGBQUAD{90, 90, isGrey ? uint8_t{90} : uint8_t{0}, 0});
      table[3] = {0, 0, 0, 0};
      TestDib page(MakeHeader(bits, 6, 2), table);
      page.Fill(0, 0, 6, 2, 3);
      page.Set(2, 0, 1);
      EXPECT_EQ((std::vector<Pixel>{0, 0, 0, 3, 3, 3, 0, 0, 0, 0, 0, 0}),
                TestDib(ScaleDIB(page.handle(), 0, 6, 2)).Pixels());
    }
  }
}

TEST(ScaleDIB, TakesTheNearestPixelsOfABilevelPage) {
  const TestDib page = TestDib::Drawn({"#..#.", ".##..", "#.#.#"});
  using Rows = std::vector<std::string>;
  // Columns (x * 5 + 1) / 3 and rows (y * 3 + 1) / 2; (x * 5 + 5) / 10 and (y * 3 + 2) / 4, behind whose last
  // column there are 0 bits.
  EXPECT_EQ((Rows{"#.#", "##."}), TestDib(ScaleDIB(page.handle(), 0, 3, 2)).Drawing());
  EXPECT_EQ((Rows{"#....##..#", ".####....#", "#..##..###", "#..##..###"}),
            TestDib(ScaleDIB(page.handle(), 0, 10, 4)).Drawing());
}

// Column x is the source's (x * from + to / 2) / to; half the width is made from whole words in a way of its
// own. Nothing stands in the padding.
TEST(ScaleDIB, TakesTheNearestColumnsAtEveryWidth) {
  constexpr int kHead = 40 + 2 * 4;
  for (int width = 1; width < 400; width += width < 70 ? 1 : 23) {
    for (const int from : {2 * width, 2 * width - 1, 3 * width + 1, width / 2 + 1}) {
      if (from == width) continue;  // copied as it is, padding and all
      const TestDib page = TestDib::Random(1, from, 2, static_cast<unsigned>(width));
      TestDib expected(MakeHeader(1, width, 2));
      for (int x = 0; x < width; ++x) {
        const int column = (x * from + width / 2) / width;
        for (const int y : {0, 1}) expected.Set(x, y, column < from ? page.At(column, y) : 0);
      }
      const Bytes wanted = expected.block(), actual = TestDib(ScaleDIB(page.handle(), 0, width, 2)).block();
      ASSERT_LE(wanted.size(), actual.size());  // there is more room than needed
      ASSERT_TRUE(std::equal(wanted.begin() + kHead, wanted.end(), actual.begin() + kHead))
          << from << " to " << width;
    }
  }
}

TEST(ScaleGrayDIB, GivesMostGreysOneIndexLower) {
  TestDib page(MakeHeader(8, 256, 1));
  for (int x = 0; x < 256; ++x) page.Set(x, 0, static_cast<Pixel>(x));
  const std::vector<Pixel> pixels = TestDib(ScaleGrayDIB(page.handle(), 0, 0, 256, 1, 1, 1, 0)).Pixels();
  for (size_t x = 0; x < 256; ++x) EXPECT_EQ(x == 0 ? 255 : x - 1, pixels[x]);
}

}  // namespace
}  // namespace rastrel::testing
