#include <gtest/gtest.h>
#include <rastrel.h>

#include <algorithm>

#include "tests/support/test_dib.h"
#include "tests/tone/tone_pages.h"

namespace rastrel::testing {
namespace {

using GreyRows = std::vector<std::vector<Pixel>>;

// Without the lock that success leaves.
TestDib ColourToGrey(const TestDib& page, int weighted, uint32_t method = 0) {
  TestDib result(ConvColorDIBtoGrayscale(page.handle(), weighted, method));
  if (result) GlobalUnlock(page.handle());
  return result;
}

// Page rows, from the top.
GreyRows Smoothed(std::initializer_list<std::string_view> pageRows, uint32_t method) {
  GreyRows rows = StoredRows(TestDib(ConvertMonoDIBtoGrayscale(TestDib::Drawn(pageRows).handle(), method)));
  std::reverse(rows.begin(), rows.end());
  return rows;
}

TEST(MonoToGrey, KeptRowsComeOneOrTwoHigherAndTheEndsAgain) {
  const std::initializer_list<std::string_view> dot = {"#########", "#########", "#########", "#########",
                                                       "####.####", "#########", "#########"};
  GreyRows expected(7, std::vector<Pixel>(9));
  expected[2] = expected[4] = {0, 0, 0, 8, 31, 8, 0, 0, 0};
  expected[3] = {0, 0, 0, 31, 99, 31, 0, 0, 0};
  EXPECT_EQ(expected, Smoothed(dot, 1));
  expected[0] = expected[4] = {0, 0, 0, 3, 7, 3, 0, 0, 0};
  expected[1] = expected[3] = {0, 0, 3, 16, 25, 16, 3, 0, 0};
  expected[2] = {0, 0, 7, 25, 39, 25, 7, 0, 0};
  EXPECT_EQ(expected, Smoothed(dot, 2));

  // The bottom row stands for those below it; the top one is never a centre.
  EXPECT_EQ((GreyRows{{0, 8, 31, 8}, {0, 39, 130, 39}, {0, 47, 161, 47}}),
            Smoothed({"####", "####", "##.#"}, 1));
  EXPECT_EQ((GreyRows{{8, 0, 8, 31}, {0, 0, 0, 0}, {0, 0, 0, 0}}), Smoothed({"###.", "####", "####"}, 1));

  // The four pixels at an end come again beyond it: pixel 3 stands left of pixel 0, and pixel 4 right of
  // pixel 7.
  EXPECT_EQ((GreyRows{{47, 0, 47, 161, 47, 0, 0, 0}}), Smoothed({"###.####"}, 1));
  EXPECT_EQ((GreyRows{{0, 0, 0, 47, 161, 47, 0, 47}}), Smoothed({"####.###"}, 1));
}

TEST(ColourToGrey, WeighsOrAverages) {
  const TestDib page = ColourPage({{0xFFFFFF, 0xFF0000, 0x00FF00, 0x0000FF, 0}});
  EXPECT_EQ((GreyRows{{255, 78, 147, 29, 0}}), StoredRows(ColourToGrey(page, -1)));
  EXPECT_EQ((GreyRows{{255, 85, 85, 85, 0}}), StoredRows(ColourToGrey(page, 0)));
}

}  // namespace
}  // namespace rastrel::testing
