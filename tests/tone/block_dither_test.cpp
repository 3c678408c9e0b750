#include <gtest/gtest.h>
#include <rastrel.h>

#include "tests/support/test_dib.h"
#include "tests/tone/tone_pages.h"

namespace rastrel::testing {
namespace {

using Dither = HGLOBAL RASTREL_CALL(HGLOBAL, int);
using PixelRows = std::vector<std::vector<Pixel>>;
constexpr Dither* kDithers[] = {DitherSmooth, DitherSharp};

PixelRows Dithered(Dither* dither, const TestDib& page, int bits) {
  return StoredRows(TestDib(dither(page.handle(), bits)));
}

TEST(BlockDither, MakesPlainBlackAndWhiteOfThemselves) {
  for (Dither* dither : kDithers) {
    for (const auto& [tone, to1, to4] : {std::tuple{0x000000u, 0u, 0u}, {0xFFFFFFu, 1u, 14u}}) {
      const PixelRows page(20, std::vector<Pixel>(5, tone));
      EXPECT_EQ(PixelRows(20, std::vector<Pixel>(5, to1)), Dithered(dither, ColourPage(page), 1));
      EXPECT_EQ(PixelRows(20, std::vector<Pixel>(5, to4)), Dithered(dither, ColourPage(page), 4));
    }
  }
}

// A pixel v alone is its own next row twice: 2 v leave it 255 and, as the next row, 2 v - 255. Twice that
// must be 255 again.
TEST(BlockDither, HandsOutTwiceWhatALonePixelHas) {
  for (Dither* dither : kDithers) {
    EXPECT_EQ((PixelRows{{0}}), Dithered(dither, GreyPage({{191}}), 1));
    EXPECT_EQ((PixelRows{{1}}), Dithered(dither, GreyPage({{192}}), 1));
  }
}

// 178 leaves 2 * 178 - 255 = 101 to row 0, which is carried right and, all or half of it, added to what
// stands in row 1 there. Half of 255 makes that white.
TEST(BlockDither, CarriesTheWholeOrHalf) {
  const auto last = [](Dither* dither, int tone) {
    return Dithered(dither, GreyPage({{178, 0, 0}, {0, 0, tone}}), 1);
  };
  const PixelRows black = {{0, 0, 0}, {0, 0, 0}};
  const PixelRows white = {{0, 0, 0}, {0, 0, 1}};
  EXPECT_EQ(black, last(DitherSmooth, 128 - 101 - 1));
  EXPECT_EQ(white, last(DitherSmooth, 128 - 101));
  EXPECT_EQ(black, last(DitherSharp, 128 - 50 - 1));
  EXPECT_EQ(white, last(DitherSharp, 128 - 50));
}

// Row 0 makes 2 * 255 of its last pixel and 2 * 20 of the one before, which are carried behind the last
// pixel. They count with the last pixel of row 1 where the width needs no padding.
TEST(BlockDither, KeptCellBehindTheLastPixelStaysOnUnpaddedRows) {
  for (const int width : {3, 4, 5, 8}) {
    for (Dither* dither : kDithers) {
      const int behind = width % 4 != 0 ? 0 : dither == DitherSmooth ? 40 : 20;
      std::vector<std::vector<int>> page(2, std::vector<int>(static_cast<size_t>(width)));
      page[0].rbegin()[0] = 255;
      page[0].rbegin()[1] = 20;
      for (const Pixel white : {0u, 1u}) {
        page[1].back() = 127 + static_cast<int>(white) - behind;
        EXPECT_EQ(white, Dithered(dither, GreyPage(page), 1)[1].back()) << width;
      }
    }
  }
}

TEST(BlockDither, KeptSecondRowCountsByItsRed) {
  for (Dither* dither : kDithers) {
    EXPECT_EQ((PixelRows{{0}, {1}, {0}}), Dithered(dither, ColourPage({{0}, {0xFF0000}, {0}}), 1));
    EXPECT_EQ((PixelRows{{0}, {0}, {0}}), Dithered(dither, ColourPage({{0}, {0x00FFFF}, {0}}), 1));
    // Red as grey is 76: twice that is no white.
    EXPECT_EQ((PixelRows{{0}, {0}, {0}}), Dithered(dither, ColourPage({{0}, {0}, {0xFF0000}}), 1));
  }
}

TEST(DitherSmooth, KeptFirstPixelOfAllIsRed) {
  EXPECT_EQ((PixelRows{{1}}), Dithered(DitherSmooth, ColourPage({{0xFF0000}}), 1));
  EXPECT_EQ((PixelRows{{0, 0}}), Dithered(DitherSmooth, ColourPage({{0, 0xFF0000}}), 1));
  EXPECT_EQ((PixelRows{{0}}), Dithered(DitherSharp, ColourPage({{0xFF0000}}), 1));
}

}  // namespace
}  // namespace rastrel::testing
