#include <gtest/gtest.h>
#include <rastrel.h>

#include "tests/support/test_dib.h"
#include "tests/tone/tone_pages.h"

namespace rastrel::testing {
namespace {

using Dither = HGLOBAL RASTREL_CALL(HGLOBAL, int);
using PixelRows = std::vector<std::vector<Pixel>>;

PixelRows Dithered(Dither* dither, const TestDib& page, int bits) {
  return StoredRows(TestDib(dither(page.handle(), bits)));
}

// Hand-made pages whose last tones are one below and one above what turns them white. Where a tone and what
// it got make 255, no error is left.
TEST(DitherFS4, HandsOnSixteenths) {
  // 128 is black and leaves 128: 7/16 are 56 for the right.
  EXPECT_EQ((PixelRows{{0, 0}}), Dithered(DitherFS4, GreyPage({{128, 72}}), 1));
  EXPECT_EQ((PixelRows{{0, 1}}), Dithered(DitherFS4, GreyPage({{128, 73}}), 1));
  // The second leaves 129 - 255: 3/16 are -23 for the cell below the first, in place of the first's 5/16.
  EXPECT_EQ((PixelRows{{0, 1}, {0, 0}}), Dithered(DitherFS4, GreyPage({{128, 73}, {151, 0}}), 1));
  EXPECT_EQ((PixelRows{{0, 1}, {1, 0}}), Dithered(DitherFS4, GreyPage({{128, 73}, {152, 0}}), 1));
  // Where the second leaves nothing, 1/16 of the first's error (8) stays below it.
  EXPECT_EQ((PixelRows{{0, 1}, {1, 0}}), Dithered(DitherFS4, GreyPage({{128, 199}, {215, 120}}), 1));
  EXPECT_EQ((PixelRows{{0, 1}, {1, 1}}), Dithered(DitherFS4, GreyPage({{128, 199}, {215, 121}}), 1));
}

TEST(DitherFS4, KeptCellsThatNothingReplacesServeEveryFurtherRow) {
  // 128 leaves 5/16, 40, below. 215 makes 255 of it, with no error to replace it.
  for (size_t rows = 2; rows < 40; ++rows) {
    std::vector<std::vector<int>> page(rows, {215});
    page.front() = {128};
    PixelRows expected(rows, {1});
    expected.front() = {0};
    page.back() = {89};
    EXPECT_EQ(expected, Dithered(DitherFS4, GreyPage(page), 1)) << rows;
    page.back() = {88};
    expected.back() = {0};
    EXPECT_EQ(expected, Dithered(DitherFS4, GreyPage(page), 1)) << rows;
  }
}

TEST(DitherFS4, KeptNextRowLiesOneFurtherLeftAtEightBits) {
  // The 31 in the middle leaves 31: 13 for the right, 5 and 1 of 16 (9 and 1) below the first two.
  const TestDib page = ColourPage({{0x000000, 0x1F0000, 0x130000}, {0x170000, 0x1F0000, 0x1F0000}});
  EXPECT_EQ((PixelRows{{0, 0, 0x20}, {0x20, 0x20, 0}}), Dithered(DitherFS4, page, 8));
}

TEST(DitherJJN, KeptRowAfterNextHolds13513AndStays) {
  // The first pixel leaves 128: 18 and 13 to the right; 18, 13, 8 below; then 13, 2, 8, which stay.
  for (const size_t further : {0, 1, 12, 13, 14, 15, 30}) {
    std::vector<std::vector<int>> page = {{128, 237, 242}, {237, 242, 247}};
    page.insert(page.end(), further, {242, 253, 247});
    PixelRows expected(page.size(), {1, 1, 1});
    expected[0] = {0, 1, 1};
    for (const auto& [tones, last] : {std::pair{std::vector{115, 0, 0}, std::vector<Pixel>{0, 0, 0}},
                                      {{116, 0, 0}, {1, 0, 0}},
                                      {{242, 126, 0}, {1, 0, 0}},
                                      {{242, 127, 0}, {1, 1, 0}},
                                      {{242, 253, 120}, {1, 1, 0}},
                                      {{242, 253, 121}, {1, 1, 1}}}) {
      page.push_back(tones);
      expected.push_back(last);
      EXPECT_EQ(expected, Dithered(DitherJJN, GreyPage(page), 1)) << further;
      page.pop_back();
      expected.pop_back();
    }
  }
}

TEST(DitherJJN, KeptSharesOfZeroReplaceCellsToo) {
  // The first pixel of the third row leaves -1: its shares are 0, and all that the first row left for the
  // last goes.
  for (const int tone : {128, 129}) {
    const TestDib page =
        GreyPage({{128, 237, 242}, {237, 242, 247}, {241, 253, 247}, {242, 253, 247}, {0, 0, tone}});
    EXPECT_EQ(tone == 129 ? 1u : 0u, Dithered(DitherJJN, page, 1).back().back());
  }
}

TEST(DitherJJN, KeptBlueLevelFourRaisesGreen) {
  // 255 leaves 63, of which 9 reach the next pixel (27 with Floyd-Steinberg).
  EXPECT_EQ((PixelRows{{3, 4}}), Dithered(DitherJJN, ColourPage({{255, 247}}), 8));
  EXPECT_EQ((PixelRows{{3, 3}}), Dithered(DitherFS4, ColourPage({{255, 229}}), 8));
}

TEST(DitherJJN, KeptFirstPixelOfAllIsRed) {
  const TestDib red = ColourPage({{0xFF0000, 0}, {0xFF0000, 0}});
  EXPECT_EQ((PixelRows{{1, 0}, {0, 0}}), Dithered(DitherJJN, red, 1));
  EXPECT_EQ((PixelRows{{0, 0}, {0, 0}}), Dithered(DitherFS4, red, 1));
}

}  // namespace
}  // namespace rastrel::testing
