#include "tests/reference/error_diffusion.h"

#include <gtest/gtest.h>
#include <rastrel.h>

#include <functional>

#include "tests/support/faults.h"
#include "tests/support/test_dib.h"
#include "tests/tone/tone_pages.h"

namespace rastrel::testing {
namespace {

using Dither = HGLOBAL RASTREL_CALL(HGLOBAL, int);
using PixelRows = std::vector<std::vector<Pixel>>;

PixelRows Dithered(Dither* dither, const TestDib& page, int bits) {
  return StoredRows(TestDib(dither(page.handle(), bits)));
}

TEST(ErrorDiffusion, EqualsThePlainVersion) {
  unsigned seed = 0;
  for (const auto& [bits, target] : {std::pair{4, 1}, {8, 1}, {8, 4}, {24, 1}, {24, 4}, {24, 8}}) {
    for (const int width : {1, 2, 3, 7, 8, 9, 15, 16, 17, 31, 32, 33, 47, 61, 64, 65, 129}) {
      for (const int height : {1, 2, 15, 16, 17, 35}) {
        for (int kind = 0; kind < 6; ++kind) {
          const TestDib page(TonePage(bits, width, height, ++seed));
          SCOPED_TRACE(::testing::Message() << bits << " to " << target << " bits, " << width << " x "
                                            << height << ", seed " << seed);
          ASSERT_EQ(Rounded(reference::DitherFS4(page.block(), target)),
                    TestDib(DitherFS4(page.handle(), target)).block());
          ASSERT_EQ(0, RastrelError());
          ASSERT_EQ(Rounded(reference::DitherJJN(page.block(), target)),
                    TestDib(DitherJJN(page.handle(), target)).block());
          ASSERT_TRUE(page.Unchanged());
        }
      }
    }
  }
}

TEST(ErrorDiffusion, EqualsThePlainVersionOnVeryWidePages) {
  const TestDib page(TonePage(8, 40001, 2, 1));
  EXPECT_EQ(Rounded(reference::DitherFS4(page.block(), 1)), TestDib(DitherFS4(page.handle(), 1)).block());
  EXPECT_EQ(Rounded(reference::DitherJJN(page.block(), 1)), TestDib(DitherJJN(page.handle(), 1)).block());
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

struct Operation {
  Dither* dither;
  int nullHandle;
  int cannotLock;
};
constexpr Operation kOperations[] = {{DitherFS4, ErrParameter, ErrLockMemory},
                                     {DitherJJN, ErrLockMemory, ErrNoMemory}};

TEST(ErrorDiffusion, RefusesWithTheCodeOfTheFirstFault) {
  for (const Operation& operation : kOperations) {
    const auto errorOf = [&](HGLOBAL dib, int bits) {
      EXPECT_EQ(nullptr, operation.dither(dib, bits));
      return RastrelError();
    };
    for (const int bits : {-1, 0, 2, 3, 16, 24, 257}) EXPECT_EQ(ErrParameter, errorOf(nullptr, bits));
    EXPECT_EQ(operation.nullHandle, errorOf(nullptr, 1));
    HGLOBAL freed = GlobalAlloc(GMEM_MOVEABLE, 100);
    GlobalFree(freed);
    for (HGLOBAL dead : {freed, reinterpret_cast<HGLOBAL>(uintptr_t{0x1234567})}) {
      EXPECT_EQ(operation.cannotLock, errorOf(dead, 8));
    }
    for (const int depth : {8, 24}) {
      for (const Bytes& block : LyingBlocks(depth)) {
        const TestDib page(block);
        EXPECT_EQ(ErrDIBSize, errorOf(page.handle(), 1));
        EXPECT_TRUE(page.Unchanged());
      }
    }
  }
}

TEST(ErrorDiffusion, KeptLeavesALockOnPagesOfOtherDepths) {
  for (const Operation& operation : kOperations) {
    for (const auto& [depth, bits] : {std::pair{1, 1}, {4, 4}, {4, 8}, {8, 8}, {16, 1}, {32, 8}, {0, 1}}) {
      BITMAPINFOHEADER header = MakeHeader(depth, -3, 2);  // the size comes later
      const TestDib page(Bytes(reinterpret_cast<uint8_t*>(&header), reinterpret_cast<uint8_t*>(&header + 1)));
      EXPECT_EQ(nullptr, operation.dither(page.handle(), bits));
      EXPECT_EQ(ErrDitherParameter, RastrelError());
      EXPECT_EQ(1u, GlobalFlags(page.handle()) & GMEM_LOCKCOUNT) << depth << " to " << bits;
    }
  }
}

TEST(ErrorDiffusion, FailsCleanlyWithoutMemory) {
  const TestDib page = TestDib::Random(24, 33, 17, 1);
  for (const Operation& operation : kOperations) {
    for (const int bits : {1, 4, 8}) {
      const auto run = [&](HGLOBAL dib) { return operation.dither(dib, bits); };
      ExpectEveryFault(host::Fault::kAllocation, page, ErrNoMemory, run);
      const auto outcomes = RunWithFaults(host::Fault::kLock, page, run);
      for (const FaultOutcome& outcome : outcomes) {
        const bool through = &outcome == &outcomes.back();
        const int error = through ? ErrSuccess : outcome.n == 1 ? operation.cannotLock : ErrNoMemory;
        EXPECT_EQ(error, outcome.error) << outcome;
        EXPECT_EQ(!through, outcome.failed) << outcome;
        EXPECT_EQ(0u, outcome.leakedBlocks + outcome.locks) << outcome;
      }
    }
  }
}

}  // namespace
}  // namespace rastrel::testing
