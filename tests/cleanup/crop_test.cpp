#include <gtest/gtest.h>
#include <rastrel.h>

#include "tests/support/faults.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

// A dark page with a light sheet in columns 20 to 69 and page rows 30 to 79; a dark column crosses the sheet.
TEST(CropToEdges, FindsTheSheetAndAddsAMargin) {
  TestDib page(MakeHeader(1, 100, 120));
  page.Fill(20, 30, 50, 50, 1);
  page.Fill(60, 30, 1, 50, 0);
  for (const int margin : {0, 7, -7}) {
    uint32_t x = 3;
    const TestDib sheet(CropToEdges(page.handle(), 0.3, &x, margin, 0, 1));
    EXPECT_EQ(std::pair(40 + 2 * margin, 50 + 2 * margin), std::pair(sheet.width(), sheet.height()));
    EXPECT_EQ(60u + static_cast<unsigned>(margin), x);
    for (int i = 0; i < sheet.width() * sheet.height(); ++i) {
      const int across = i % sheet.width(), down = i / sheet.width();
      ASSERT_EQ(page.At(20 - margin + across, 30 - margin + down), sheet.At(across, down));
    }
  }
}

TEST(CropToEdges, StraightensFirst) {
  for (const double degrees : {0.0, 3.0}) {
    Bytes block = TestDib::Ruled(1, degrees).block();
    std::swap_ranges(block.begin() + 40, block.begin() + 44, block.begin() + 44);  // a light rule
    const TestDib page(block);
    uint32_t x = 7;
    SetRastrelError(0);
    const TestDib sheet(CropToEdges(page.handle(), 0.6, &x, 9, 0, 0));
    EXPECT_EQ(degrees != 0, static_cast<bool>(sheet));
    EXPECT_EQ(degrees != 0 ? 0 : ErrNoMemory, RastrelError()) << "a page that is straight already";
    for (const host::Fault fault : {host::Fault::kAllocation, host::Fault::kLock}) {
      const auto outcomes = RunWithFaults(fault, page, [](HGLOBAL dib) {
        uint32_t column = 7;
        return CropToEdges(dib, 0.6, &column, 9, 0, 0);
      });
      for (const FaultOutcome& outcome : outcomes) {
        EXPECT_TRUE(outcome.inputUnchanged && outcome.leakedBlocks == 0) << outcome;
        EXPECT_EQ(outcome.failed, outcome.error != 0) << outcome;
      }
    }
  }
}

TEST(CropDIB, GivesTheRectangleAndLeavesALock) {
  for (const int bits : {1, 4, 8, 24}) {
    const TestDib page = TestDib::Random(bits, 70, 9, 1);
    const TestDib part(CropDIB(page.handle(), 5, 2, 43, 6));
    EXPECT_EQ(1u, GlobalFlags(part.handle()) & GMEM_LOCKCOUNT);
    ASSERT_EQ(std::pair(39, 5), std::pair(part.width(), part.height()));
    for (int i = 0; i < 39 * 5; ++i) ASSERT_EQ(page.At(5 + i % 39, 2 + i / 39), part.At(i % 39, i / 39));
  }
}

TEST(CropToEdges, MovesTheColumnEvenWhereTheStraightPageIsSmaller) {
  TestDib page = TestDib::Plain(MakeHeader(1, 60, 300), 1);
  for (int y = 120; y < 180; ++y) {
    if (const int x = 30 + (y - 150); x >= 0 && x < 60) page.Set(x, y, 0);
  }
  const TestDib straight(DeskewDIB(page.handle(), 1, 0, nullptr, 0));
  ASSERT_LT(straight.height(), page.height());
  uint32_t x = 7;
  EXPECT_EQ(nullptr, CropToEdges(page.handle(), 0.1, &x, 0, 1, 0));
  EXPECT_EQ(ErrNoScannedPage, RastrelError());
  EXPECT_EQ(7u + static_cast<unsigned>(straight.width() - 60 + 1) / 2, x);
}

TEST(CutDIB, GivesTheRowsOfBothParts) {
  for (const int bits : {1, 4, 8, 24}) {
    const TestDib page = TestDib::Random(bits, 37, 9, 1);
    HGLOBAL first = nullptr, second = nullptr;
    ASSERT_EQ(1, CutDIB(page.handle(), 4, &first, &second));
    const TestDib lower(first), upper(second);
    EXPECT_EQ(std::pair(5, 4), std::pair(lower.height(), upper.height()));
    std::vector<Pixel> joined = upper.Pixels();
    for (const Pixel pixel : lower.Pixels()) joined.push_back(pixel);
    EXPECT_EQ(page.Pixels(), joined);
  }
}

}  // namespace
}  // namespace rastrel::testing
