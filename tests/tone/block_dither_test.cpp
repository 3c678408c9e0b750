#include "tests/reference/block_dither.h"

#include <gtest/gtest.h>
#include <rastrel.h>

#include <random>

#include "tests/support/faults.h"
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

// Slopes of every steepness with a little noise, each colour its own.
TestDib SlopePage(int bits, int width, int height, unsigned seed) {
  std::mt19937 random(seed);
  const auto below = [&](unsigned n) { return static_cast<unsigned>(random() % n); };
  TestDib page(MakeHeader(bits, width, height));
  const unsigned across = below(16), down = below(16), start = below(256), noise = 1 + below(8);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const unsigned slope = start + across * static_cast<unsigned>(x) + down * static_cast<unsigned>(y);
      const auto tone = [&](unsigned colour) { return (slope * (1 + colour) + below(noise)) & 255; };
      page.Set(x, y, bits == 24 ? tone(0) << 16 | tone(1) << 8 | tone(2) : tone(0) >> (8 - bits));
    }
  }
  page.Settle();
  return page;
}

void ExpectPlainVersion(const TestDib& page, int target) {
  ASSERT_EQ(Rounded(reference::DitherSmooth(page.block(), target)),
            TestDib(DitherSmooth(page.handle(), target)).block());
  ASSERT_EQ(0, RastrelError());
  ASSERT_EQ(Rounded(reference::DitherSharp(page.block(), target)),
            TestDib(DitherSharp(page.handle(), target)).block());
  ASSERT_TRUE(page.Unchanged());
}

TEST(BlockDither, EqualsThePlainVersion) {
  unsigned seed = 0;
  for (const auto& [bits, target] : {std::pair{4, 1}, {8, 1}, {8, 4}, {24, 1}, {24, 4}}) {
    for (int width = 1; width <= 70; ++width) {
      for (const int height : {1, 2, 3, 15, 16, 17, 35}) {
        SCOPED_TRACE(::testing::Message()
                     << bits << " to " << target << " bits, " << width << " x " << height << ", " << ++seed);
        ASSERT_NO_FATAL_FAILURE(ExpectPlainVersion(TestDib(TonePage(bits, width, height, seed)), target));
        ASSERT_NO_FATAL_FAILURE(ExpectPlainVersion(SlopePage(bits, width, height, seed), target));
      }
    }
  }
}

TEST(BlockDither, EqualsThePlainVersionOnVeryWidePages) {
  for (const int width : {40000, 40001}) ExpectPlainVersion(TestDib(TonePage(8, width, 18, 1)), 1);
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

TEST(BlockDither, RefusesWithTheCodeOfTheFirstFault) {
  for (Dither* dither : kDithers) {
    const auto errorOf = [&](HGLOBAL dib, int bits) {
      EXPECT_EQ(nullptr, dither(dib, bits));
      return RastrelError();
    };
    for (const int bits : {-1, 0, 2, 3, 8, 16, 24, 257}) EXPECT_EQ(ErrParameter, errorOf(nullptr, bits));
    EXPECT_EQ(ErrLockMemory, errorOf(nullptr, 1));
    HGLOBAL freed = GlobalAlloc(GMEM_MOVEABLE, 100);
    GlobalFree(freed);
    for (HGLOBAL dead : {freed, reinterpret_cast<HGLOBAL>(uintptr_t{0x1234567})}) {
      EXPECT_EQ(ErrNoMemory, errorOf(dead, 4));
    }
    for (const int depth : {4, 8, 24}) {
      for (const Bytes& block : LyingBlocks(depth)) {
        const TestDib page(block);
        EXPECT_EQ(ErrDIBSize, errorOf(page.handle(), 1));
        EXPECT_TRUE(page.Unchanged());
      }
    }
  }
}

TEST(BlockDither, KeptLeavesALockOnPagesOfOtherDepths) {
  for (Dither* dither : kDithers) {
    for (const auto& [depth, bits] : {std::pair{1, 1}, {4, 4}, {1, 4}, {16, 1}, {32, 4}, {0, 1}}) {
      BITMAPINFOHEADER header = MakeHeader(depth, -3, 2);  // the size comes later
      const TestDib page(Bytes(reinterpret_cast<uint8_t*>(&header), reinterpret_cast<uint8_t*>(&header + 1)));
      EXPECT_EQ(nullptr, dither(page.handle(), bits));
      EXPECT_EQ(ErrDitherParameter, RastrelError());
      EXPECT_EQ(1u, GlobalFlags(page.handle()) & GMEM_LOCKCOUNT) << depth << " to " << bits;
    }
  }
}

TEST(BlockDither, FailsCleanlyWithoutMemory) {
  const TestDib page = TestDib::Random(24, 33, 17, 1);
  for (Dither* dither : kDithers) {
    for (const int bits : {1, 4}) {
      const auto run = [&](HGLOBAL dib) { return dither(dib, bits); };
      ExpectEveryFault(host::Fault::kAllocation, page, ErrNoMemory, run);
      ExpectEveryFault(host::Fault::kLock, page, ErrNoMemory, run);
    }
  }
}

}  // namespace
}  // namespace rastrel::testing
