#include "tests/reference/crop.h"

#include <gtest/gtest.h>
#include <rastrel.h>

#include <array>
#include <climits>
#include <cmath>
#include <cstring>
#include <random>

#include "tests/support/faults.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

const auto kNoBlock = reinterpret_cast<HGLOBAL>(uintptr_t{0x1234});

std::mt19937 random;

int Pick(int first, int last) {
  return first + static_cast<int>(random() % static_cast<unsigned>(last - first + 1));
}
TestDib RandomPage(std::initializer_list<int> depths, int round) {
  BITMAPINFOHEADER header = MakeHeader(depths.begin()[random() % depths.size()], Pick(1, 150), Pick(2, 9));
  if (round % 3 == 0) header.biClrUsed = static_cast<uint32_t>(Pick(1, 5));
  return TestDib::Random(header, static_cast<unsigned>(round));
}

// ---- CropToEdges ------------------------------------------------------------------------------------

// A dark page with a light sheet in columns 20 to 69 and page rows 30 to 79.
TestDib Scan() {
  TestDib page(MakeHeader(1, 100, 120));
  page.Fill(20, 30, 50, 50, 1);
  page.Settle();
  return page;
}

HGLOBAL CropStraight(HGLOBAL dib) {
  uint32_t x = 0;
  return CropToEdges(dib, 0.3, &x, 0, 0, 1);
}

TEST(CropToEdges, EqualsThePlainVersion) {
  random.seed(1);
  int found = 0;
  for (int round = 0; round < 600; ++round) {
    const bool isTall = round % 50 == 0;  // more rows than a byte counts
    BITMAPINFOHEADER header = MakeHeader(1, Pick(8, 600), isTall ? Pick(500, 600) : Pick(8, 60));
    header.biClrUsed = static_cast<uint32_t>(round % 7 == 0 ? Pick(0, 4) : 2);
    const Pixel sheet = round % 2;
    TestDib page = TestDib::Plain(header, 1 - sheet);
    const int left = Pick(0, page.width() / 2), top = Pick(0, page.height() / 2);
    page.Fill(left, top, Pick(1, page.width() - left), Pick(1, page.height() - top), sheet);
    for (int i = Pick(0, 300); i > 0; --i) {
      page.Set(Pick(0, page.width() - 1), Pick(0, page.height() - 1), static_cast<Pixel>(Pick(0, 1)));
    }
    const int most = std::min(page.width(), page.height()) / 4;  // which is refused
    const int margin = Pick(-most, most);
    constexpr double kFractions[] = {0.0, 0.1, 0.3, 0.5, 0.9, 1.0};
    const double fraction = kFractions[Pick(0, 5)];
    uint32_t x = static_cast<uint32_t>(Pick(0, Pick(0, 3) == 0 ? page.width() : 3)), expectedX = x;
    int error = 0;
    const Bytes expected =
        reference::CropToEdges(page.block(), fraction, expectedX, margin, sheet == 0, nullptr, error);
    SetRastrelError(0);
    const TestDib result(CropToEdges(page.handle(), fraction, &x, margin, sheet == 0, 1));
    ASSERT_EQ(Rounded(expected), result.block()) << "round " << round;
    ASSERT_EQ(std::pair(error, expectedX), std::pair(RastrelError(), x)) << "round " << round;
    found += result ? 1 : 0;
  }
  EXPECT_GT(found, 200);
}

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

TEST(CropToEdges, RefusesWithTheFirstCodeThatApplies) {
  const TestDib page = Scan();
  const auto expectError = [&](int error, const std::function<void(BITMAPINFOHEADER&)>& change) {
    EXPECT_EQ(nullptr, CropStraight(page.With(change).handle()));
    EXPECT_EQ(error, RastrelError());
  };
  expectError(ErrBitmapParams, [](auto& h) { h.biSize = 12, h.biPlanes = 2; });
  expectError(ErrHeaderBitCount, [](auto& h) { h.biPlanes = 2, h.biCompression = 1; });
  expectError(ErrHeaderBitCount, [](auto& h) { h.biBitCount = 8, h.biCompression = 1; });
  expectError(ErrCompressed, [](auto& h) { h.biCompression = 1, h.biWidth = 0; });
  expectError(ErrParameter, [](auto& h) { h.biWidth = -100; });
  expectError(ErrParameter, [](auto& h) { h.biHeight = 3; });
  expectError(ErrDIBSize, [](auto& h) { h.biHeight = 1000; });
  uint32_t x = 0, beyond = 100;
  const auto expectParameterError = [](HGLOBAL dib, double fraction, uint32_t* column, int margin) {
    SetRastrelError(0);
    EXPECT_EQ(nullptr, CropToEdges(dib, fraction, column, margin, 0, 1));
    EXPECT_EQ(ErrParameter, RastrelError());
  };
  for (const double fraction : {-0.001, 1.001, std::nan("")})
    expectParameterError(page.handle(), fraction, &x, 0);
  for (const int margin : {25, -25, INT_MIN}) expectParameterError(page.handle(), 0.3, &x, margin);
  expectParameterError(page.handle(), 0.3, &beyond, 0);
  expectParameterError(page.handle(), 0.3, nullptr, 0);
  expectParameterError(nullptr, 0.3, &x, 0);
  EXPECT_EQ(nullptr, CropStraight(kNoBlock));
  EXPECT_EQ(ErrLockMemory, RastrelError());
  ExpectEveryFault(host::Fault::kAllocation, page, ErrNoMemory, CropStraight);
  ExpectEveryFault(host::Fault::kLock, page, ErrLockMemory, CropStraight);
}

// ---- CropDIB ----------------------------------------------------------------------------------------

TEST(CropDIB, EqualsThePlainVersionAtAllDepthsAndLeavesALock) {
  random.seed(2);
  for (int round = 0; round < 1500; ++round) {
    const TestDib page = RandomPage({1, 2, 4, 8, 16, 24, 32}, round);
    const int left = Pick(0, page.width() - 1), top = Pick(0, page.height() - 1);
    const int right = Pick(left, page.width() - 1), bottom = Pick(top, page.height() - 1);
    const TestDib result(CropDIB(page.handle(), left, top, right, bottom));
    ASSERT_EQ(1u, GlobalFlags(result.handle()) & GMEM_LOCKCOUNT);
    ASSERT_EQ(Rounded(reference::CropDIB(page.block(), left, top, right, bottom)), result.block())
        << "round " << round << ": " << left << ' ' << top << ' ' << right << ' ' << bottom;
    ASSERT_TRUE(page.Unchanged());
  }
}

TEST(CropDIB, RefusesWithTheFirstCodeThatApplies) {
  const TestDib page = TestDib::Random(1, 9, 5, 1);
  const auto expectError = [](int error, HGLOBAL dib, std::array<int, 4> sides) {
    SetRastrelError(0);
    EXPECT_EQ(nullptr, CropDIB(dib, sides[0], sides[1], sides[2], sides[3]));
    EXPECT_EQ(error, RastrelError());
  };
  const TestDib longHeader = page.With([](auto& h) { h.biSize = 108, h.biHeight = 500; });
  expectError(ErrBitmapParams, longHeader.handle(), {0, 0, 8, 499});
  expectError(ErrDIBSize, page.With([](auto& h) { h.biHeight = 500; }).handle(), {0, 0, 8, 0});
  expectError(ErrParameter, longHeader.handle(), {0, 0, 9, 499});
  expectError(ErrParameter, page.With([](auto& h) { h.biBitCount = 3; }).handle(), {0, 0, 8, 0});
  expectError(ErrParameter, nullptr, {0, 0, 8, 4});
  expectError(ErrLockMemory, kNoBlock, {0, 0, 8, 4});
  const std::array<int, 4> kOutside[] = {{-1, 0, 1, 1}, {0, -1, 1, 1}, {0, 0, 9, 1},
                                         {0, 0, 1, 5},  {2, 0, 1, 1},  {0, 2, 1, 1}};
  for (const auto& sides : kOutside) expectError(ErrParameter, page.handle(), sides);
  const auto crop = [](HGLOBAL dib) { return CropDIB(dib, 0, 0, 8, 4); };
  ExpectEveryFault(host::Fault::kAllocation, page, ErrNoMemory, crop);
  ExpectEveryFault(host::Fault::kLock, page, ErrLockMemory, crop);
}

// ---- CutDIB -----------------------------------------------------------------------------------------

TEST(CutDIB, GivesTheRowsOfBothParts) {
  random.seed(3);
  for (int round = 0; round < 200; ++round) {
    const TestDib page = RandomPage({1, 4, 8, 24}, round);
    const int rows = Pick(1, page.height() - 1);
    HGLOBAL first = nullptr, second = nullptr;
    ASSERT_EQ(1, CutDIB(page.handle(), rows, &first, &second));
    BITMAPINFOHEADER header = page.header();
    const size_t headBytes = 40 + static_cast<size_t>(PaletteSize(&header));
    header.biSizeImage = static_cast<uint32_t>(GlobalSize(first) - headBytes);  // kept: of both
    const TestDib lower(first), upper(second);
    std::vector<Pixel> joined = upper.Pixels();
    const std::vector<Pixel> below = lower.Pixels();
    joined.insert(joined.end(), below.begin(), below.end());
    ASSERT_EQ(page.Pixels(), joined) << "round " << round;
    ASSERT_EQ(std::pair(page.height() - rows, rows), std::pair(lower.height(), upper.height()));
    for (const TestDib* part : {&lower, &upper}) {
      header.biHeight = part->height();
      Bytes head = page.block();
      head.resize(headBytes);
      std::memcpy(head.data(), &header, sizeof(header));
      const Bytes block = part->block();
      ASSERT_EQ(head, Bytes(block.begin(), block.begin() + static_cast<ptrdiff_t>(head.size())));
    }
    ASSERT_TRUE(page.Unchanged());
  }
}

TEST(CutDIB, RefusesAndSetsNoError) {
  const TestDib page = TestDib::Random(8, 9, 5, 1);
  HGLOBAL first = nullptr, second = nullptr;
  SetRastrelError(kErrorBefore);
  for (const int rows : {INT_MIN, 0, 5, 6}) EXPECT_EQ(0, CutDIB(page.handle(), rows, &first, &second));
  EXPECT_EQ(0, CutDIB(page.handle(), 1, nullptr, &second));
  EXPECT_EQ(0, CutDIB(page.handle(), 1, &first, nullptr));
  EXPECT_EQ(0, CutDIB(TestDib::Random(16, 9, 5, 1).handle(), 1, &first, &second));
  EXPECT_EQ(kErrorBefore, RastrelError());
  const auto cut = [](HGLOBAL dib) {
    HGLOBAL lower = nullptr, upper = nullptr;
    if (CutDIB(dib, 2, &lower, &upper) == 0) return HGLOBAL{nullptr};
    GlobalFree(upper);
    return lower;
  };
  ExpectRefusals({}, {1, 4, 8, 24}, cut);
  ExpectEveryFault(host::Fault::kAllocation, page, kErrorBefore, cut);
  ExpectEveryFault(host::Fault::kLock, page, kErrorBefore, cut);
}

}  // namespace
}  // namespace rastrel::testing
