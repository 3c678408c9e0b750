#include <gtest/gtest.h>
#include <rastrel.h>

#include "tests/support/test_dib.h"
#include "tests/tone/tone_pages.h"

namespace rastrel::testing {
namespace {

using PixelRows = std::vector<std::vector<Pixel>>;

constexpr uint16_t kThreshold = 0, kDiffusion = 1, kOrdered = 2;

PixelRows Halftoned(const TestDib& page, uint16_t method, int brightness) {
  return StoredRows(TestDib(Halftone(page.handle(), method, brightness, nullptr)));
}

TEST(Halftone, ThresholdIsAbove128) {
  const TestDib page = GreyPage({{127, 128, 129, 0, 255}});
  EXPECT_EQ((PixelRows{{0, 0, 1, 0, 1}}), Halftoned(page, kThreshold, 0));
  EXPECT_EQ((PixelRows{{0, 1, 1, 0, 1}}), Halftoned(page, kThreshold, 1));
  EXPECT_EQ((PixelRows{{1, 1, 1, 1, 1}}), Halftoned(page, kThreshold, 129));
  EXPECT_EQ((PixelRows{{0, 0, 0, 0, 0}}), Halftoned(page, kThreshold, -300));
}

TEST(Halftone, OrderedPatternHoldsEveryNumberOnce) {
  // At grey g the numbers below g are white: g of the 256, and always the ones of darker greys.
  PixelRows before(16, std::vector<Pixel>(16));
  for (int grey = 0; grey < 256; ++grey) {
    const PixelRows rows = Halftoned(GreyPage(std::vector(16, std::vector<int>(16, grey))), kOrdered, 0);
    int white = 0;
    for (size_t y = 0; y < 16; ++y) {
      for (size_t x = 0; x < 16; ++x) {
        EXPECT_GE(rows[y][x], before[y][x]);
        white += static_cast<int>(rows[y][x]);
      }
    }
    EXPECT_EQ(grey, white);
    before = rows;
  }
  // The 255 stands in the first column of the last stored row; no brightness lifts a grey above it.
  const TestDib bright = GreyPage(std::vector(32, std::vector<int>(32, 250)));
  const PixelRows rows = Halftoned(bright, kOrdered, 1000);
  for (size_t y = 0; y < 32; ++y) {
    for (size_t x = 0; x < 32; ++x) EXPECT_EQ(y % 16 != 15 || x % 16 != 0, rows[y][x] == 1) << x << " " << y;
  }
  // The numbers of the first row: 0, 128, 32, 160.
  EXPECT_EQ((PixelRows{{1, 1, 1, 0}}), Halftoned(GreyPage({{1, 129, 33, 160}}), kOrdered, 0));
  EXPECT_EQ((PixelRows{{0, 0, 0, 1}}), Halftoned(GreyPage({{0, 128, 32, 161}}), kOrdered, 0));
}

TEST(Halftone, KeptDiffusionHolds13531TwoRowsOn) {
  // The first pixel leaves 128: 18 and 13 to the right; 18, 13, 8 below; then 13, 8, 2.
  for (const auto& [tones, expected] : {std::pair{std::vector{115, 0, 0}, std::vector<Pixel>{0, 0, 0}},
                                        {{116, 0, 0}, {1, 0, 0}},
                                        {{242, 120, 0}, {1, 0, 0}},
                                        {{242, 121, 0}, {1, 1, 0}},
                                        {{242, 247, 126}, {1, 1, 0}},
                                        {{242, 247, 127}, {1, 1, 1}}}) {
    EXPECT_EQ((PixelRows{{0, 1, 1}, {1, 1, 1}, expected}),
              Halftoned(GreyPage({{128, 237, 242}, {237, 242, 247}, tones}), kDiffusion, 0));
  }
}

TEST(Halftone, KeptTrueColourComesOutInTheFirstThird) {
  // 4 pixels are 12 bytes: three rows of greys a row.
  const Pixel white = 0xFFFFFF;
  const TestDib page = ColourPage({{white, 0, 0, 0},
                                   {0, white, 0, 0},
                                   {0, 0, white, 0},
                                   {white, white, 0, white},
                                   {0, white, 0, 0},
                                   {0, 0, white, 0}});
  PixelRows expected = {{1, 0, 0, 0}, {1, 1, 0, 1}, {0, 0, 0, 0}, {0, 0, 0, 0}, {0, 0, 0, 0}, {0, 0, 0, 0}};
  EXPECT_EQ(expected, Halftoned(page, kThreshold, 128));
  for (size_t y = 2; y < 6; ++y) expected[y] = {1, 1, 1, 1};
  for (size_t y = 0; y < 2; ++y) expected[y] = {1, 1, 1, 1};
  EXPECT_EQ(expected, Halftoned(page, kThreshold, 129));
}

}  // namespace
}  // namespace rastrel::testing
