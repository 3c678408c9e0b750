#include "tests/reference/mirror.h"

#include <gtest/gtest.h>
#include <rastrel.h>

#include <cstring>
#include <random>

#include "tests/support/faults.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

// A block of rows as long as the planes make them, all random behind the header.
Bytes RandomPage(int bits, int planes, int width, int height, unsigned colours) {
  BITMAPINFOHEADER header = MakeHeader(bits, width, height);
  header.biPlanes = static_cast<uint16_t>(planes);
  header.biClrUsed = colours;
  header.biSizeImage = 12345;  // is copied as it stands
  Bytes block(40 + colours * 4 + static_cast<size_t>((width * bits * planes + 31) / 32 * 4 * height));
  std::mt19937 random(static_cast<unsigned>(width));
  for (uint8_t& byte : block) byte = static_cast<uint8_t>(random() >> 8);
  std::memcpy(block.data(), &header, sizeof header);
  return block;
}

void ExpectAsReference(const Bytes& block) {
  const TestDib page(block);
  SetRastrelError(kErrorBefore);
  EXPECT_EQ(Rounded(reference::FlipDIBVertical(block)), TestDib(FlipDIBVertical(page.handle())).block());
  EXPECT_EQ(Rounded(reference::FlipDIBHorizontal(block)), TestDib(FlipDIBHorizontal(page.handle())).block());
  EXPECT_EQ(kErrorBefore, RastrelError());
  EXPECT_TRUE(page.Unchanged());
}

TEST(FlipDIB, MirrorsAPicture) {
  const TestDib page = TestDib::Drawn({"#........#.", "#.#.#....##"});
  EXPECT_EQ((std::vector<std::string>{".#........#", "##....#.#.#"}),
            TestDib(FlipDIBHorizontal(page.handle())).Drawing());
  EXPECT_EQ((std::vector<std::string>{"#.#.#....##", "#........#."}),
            TestDib(FlipDIBVertical(page.handle())).Drawing());
}

TEST(FlipDIB, EqualsThePixelByPixelMove) {
  for (const int bits : {1, 2, 3, 4, 7, 8, 12, 15, 16, 24, 31, 32, 48}) {
    for (const int planes : {1, 2, 3}) {
      for (int width = 1; width < 300; width += width < 70 ? 1 : 37) {
        ExpectAsReference(
            RandomPage(bits, planes, width, 1 + width % 6, static_cast<unsigned>(1 + width % 5)));
        ASSERT_FALSE(HasFailure()) << bits << " bits, " << planes << " planes, width " << width;
      }
    }
  }
  for (const auto& [width, height] : {std::pair{0, 5}, {5, 0}, {0, 0}}) {
    ExpectAsReference(RandomPage(8, 1, width, height, 3));
  }
}

TEST(FlipDIB, KeptLeavesPagesOfTwoBitsBlankLeftToRight) {
  const TestDib page = TestDib::Random(2, 40, 4, 1);
  EXPECT_EQ(std::vector<Pixel>(160, 0), TestDib(FlipDIBHorizontal(page.handle())).Pixels());
}

TEST(FlipDIB, RefusesWhatIsNoPageAndLeavesNothingBehind) {
  HGLOBAL freed = GlobalAlloc(GMEM_MOVEABLE, 100);
  GlobalFree(freed);
  for (HGLOBAL(RASTREL_CALL * flip)(HGLOBAL) : {FlipDIBVertical, FlipDIBHorizontal}) {
    for (HGLOBAL dead : {freed, HGLOBAL{nullptr}}) EXPECT_EQ(nullptr, flip(dead));
    for (const Bytes& block : LyingBlocks(24)) {
      const reference::View view(block);
      if (block.size() >= 40 && (view.width == 0 || view.height == 0)) continue;  // an empty page
      EXPECT_EQ(nullptr, flip(TestDib(block).handle())) << view.width << " x " << view.height;
    }
    const TestDib page = TestDib::Random(8, 30, 30, 1);
    ExpectEveryFault(host::Fault::kAllocation, page, kErrorBefore, flip);
    ExpectEveryFault(host::Fault::kLock, page, kErrorBefore, flip);
    const TestDib emptyRows = page.With([](BITMAPINFOHEADER& h) { h.biWidth = 0, h.biHeight = INT32_MAX; });
    EXPECT_TRUE(TestDib(flip(emptyRows.handle())));  // and at once
    const TestDib huge =
        emptyRows.With([](BITMAPINFOHEADER& h) { h.biWidth = INT32_MAX, h.biPlanes = 65535; });
    EXPECT_EQ(nullptr, flip(huge.handle()));
  }
}

}  // namespace
}  // namespace rastrel::testing
