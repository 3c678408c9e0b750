#include "scale/mono_scaling.h"

#include <gtest/gtest.h>

#include <climits>
#include <random>

#include "tests/reference/scaling.h"
#include "tests/support/faults.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

HGLOBAL Scaled(HGLOBAL dib, int newWidth, int newHeight) {
  const LockedDib page(dib);
  return ScaleMonoRect(page, 0, 0, page.width(), page.height(), newWidth, newHeight);
}

TEST(ScaleMonoRect, TakesTheNearestPixels) {
  const TestDib page = TestDib::Drawn({"#..#.", ".##..", "#.#.#"});
  using Rows = std::vector<std::string>;
  // Columns (x * 5 + 1) / 3 and rows (y * 3 + 1) / 2; (x * 5 + 5) / 10 and (y * 3 + 2) / 4, behind whose last
  // column there are 0 bits.
  EXPECT_EQ((Rows{"#.#", "##."}), TestDib(Scaled(page.handle(), 3, 2)).Drawing());
  EXPECT_EQ((Rows{"#....##..#", ".####....#", "#..##..###", "#..##..###"}),
            TestDib(Scaled(page.handle(), 10, 4)).Drawing());
}

TEST(ScaleMonoRect, EqualsThePlainVersion) {
  std::mt19937 random(1);
  const auto pick = [&](int first, int last) {
    return first + static_cast<int>(random() % static_cast<unsigned>(last - first + 1));
  };
  for (int round = 0; round < 1200; ++round) {
    const bool isWide = round % 100 == 99;  // maps of several pieces
    BITMAPINFOHEADER header = MakeHeader(1, isWide ? pick(8000, 20000) : pick(1, 200), pick(1, 150));
    header.biClrUsed = round % 5 == 4 ? 3 : static_cast<uint32_t>(pick(0, 2));
    header.biSizeImage = static_cast<uint32_t>(pick(0, 99));
    const TestDib page = TestDib::Random(header, static_cast<unsigned>(round));
    int left = 0, top = 0, width = page.width(), height = page.height();
    if (round % 2 == 0) {  // rectangles, some of which reach beyond the page
      left = pick(0, width - 1);
      top = pick(0, height - 1);
      width = pick(1, width + 20);
      height = pick(1, height + 20);
    }
    const int newWidth = round % 3 == 0   ? width
                         : round % 7 == 0 ? (width + 1) / 2
                         : isWide         ? pick(1, 30000)
                                          : pick(1, 400);
    const int newHeight = pick(1, 200);
    ASSERT_EQ(Rounded(reference::ScaleMonoRect(page.block(), left, top, width, height, newWidth, newHeight)),
              TestDib(ScaleMonoRect(LockedDib(page.handle()), left, top, width, height, newWidth, newHeight))
                  .block())
        << "round " << round;
  }
}

TEST(ScaleMonoRect, RefusesRectanglesAndSizesAndSetsNoError) {
  const TestDib page = TestDib::Random(1, 9, 5, 1);
  SetRastrelError(kErrorBefore);
  constexpr int kBad[][6] = {{0, 0, 0, 5, 9, 5},       {0, 0, 9, -1, 9, 5}, {0, 0, 9, 5, 0, 5},
                             {0, 0, 9, 5, 9, INT_MIN}, {-1, 0, 9, 5, 9, 5}, {0, -1, 9, 5, 9, 5},
                             {9, 0, 1, 1, 9, 5},       {0, 5, 1, 1, 9, 5},  {0, 0, 9, 5, INT_MAX, INT_MAX}};
  for (const auto& [left, top, width, height, newWidth, newHeight] : kBad)
    EXPECT_EQ(nullptr,
              ScaleMonoRect(LockedDib(page.handle()), left, top, width, height, newWidth, newHeight));
  // A rectangle may reach as far as it likes.
  const TestDib wide(ScaleMonoRect(LockedDib(page.handle()), 8, 4, INT_MAX, INT_MAX, 100, 70));
  EXPECT_EQ(100, wide.width());
  EXPECT_EQ(kErrorBefore, RastrelError());
  const auto enlarge = [](HGLOBAL dib) { return Scaled(dib, 20, 10); };
  ExpectRefusals({}, {1}, enlarge);
  ExpectEveryFault(host::Fault::kAllocation, page, kErrorBefore, enlarge);
  ExpectEveryFault(host::Fault::kLock, page, kErrorBefore, enlarge);
}

}  // namespace
}  // namespace rastrel::testing
