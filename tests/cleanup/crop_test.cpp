#include "tests/reference/crop.h"

#include <gtest/gtest.h>
#include <rastrel.h>

#include "tests/support/faults.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

TEST(CropToEdges, StraightensFirst) {
  int found = 0;
  for (const double degrees : {0.0, 3.0, -4.0}) {
    Bytes block = TestDib::Ruled(1, degrees).block();
    // A light rule; dark pixels, the sheet's, are 1.
    std::swap_ranges(block.begin() + 40, block.begin() + 44, block.begin() + 44);
    const TestDib page(block);
    const Bytes straight = TestDib(DeskewDIB(page.handle(), 0, 0, nullptr, 0)).block();
    for (const double fraction : {0.1, 0.6, 1.0}) {
      uint32_t x = 7, expectedX = 7;
      int error = degrees == 0 && fraction < 1 ? kErrorBefore : 0;  // which a failed straightening leaves
      SetRastrelError(error);
      const Bytes expected = reference::CropToEdges(block, fraction, expectedX, 9, false, &straight, error);
      const TestDib result(CropToEdges(page.handle(), fraction, &x, 9, 0, 0));
      EXPECT_EQ(Rounded(expected), result.block());
      EXPECT_EQ(std::pair(error, expectedX), std::pair(RastrelError(), x));
      found += result ? 1 : 0;
    }
    for (const host::Fault fault : {host::Fault::kAllocation, host::Fault::kLock}) {
      const auto outcomes = RunWithFaults(fault, page, [](HGLOBAL dib) {
        uint32_t x = 7;
        return CropToEdges(dib, 0.6, &x, 9, 0, 0);
      });
      for (const FaultOutcome& outcome : outcomes) {
        EXPECT_TRUE(outcome.inputUnchanged && outcome.leakedBlocks == 0) << outcome;
        EXPECT_EQ(outcome.failed, outcome.error != 0) << outcome;
      }
    }
  }
  EXPECT_GE(found, 2);
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
