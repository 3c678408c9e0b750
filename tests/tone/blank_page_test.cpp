#include "tests/reference/blank_page.h"

#include <gtest/gtest.h>
#include <rastrel.h>

#include <climits>
#include <random>

#include "tests/support/faults.h"
#include "tests/support/test_dib.h"
#include "tests/tone/tone_pages.h"

namespace rastrel::testing {
namespace {

// A page of which a random share is light, with a random 8-bit or a grey 1-bit colour table.
TestDib LightPage(int bits, int width, int height, unsigned seed) {
  Bytes block = bits == 1 || seed % 2 != 0 ? TestDib::Random(bits, width, height, seed).block()
                                           : TonePage(bits, width, height, seed);
  std::mt19937 random(seed);
  const auto share = static_cast<unsigned>(random() % 101);
  for (size_t i = bits == 1 ? 48 : 40; i < block.size(); ++i) {
    if (random() % 100 < share) block[i] = random() % 50 == 0 ? 0xFE : 0xFF;
  }
  if (bits == 1 && seed % 3 == 0) std::fill_n(&block[40], 3, uint8_t{1});
  return TestDib(block);
}

TEST(IsImageBlank, EqualsThePlainVersion) {
  SetRastrelError(kErrorBefore);
  unsigned seed = 0;
  int verdicts[2] = {};
  for (const int bits : {1, 4, 8, 16, 24}) {
    for (int width = 1; width <= 40205; width += width < 72 ? 1 : width < 200 ? 7 : 40000) {
      for (const int height : {1, width == 1 ? 70000 : 2, 9}) {
        const TestDib page = LightPage(bits, width, height, ++seed);
        const Bytes block = page.block();
        for (const int tolerance : {0, 1, 10, 200, 500, 800, 999, 1000, INT_MAX, INT_MIN}) {
          for (const COLORREF background : {0u, 0x804020u, 0xC8C8C8u, 0xFEFEFEu, 0xFFFF00FFu}) {
            const int expected = reference::IsImageBlank(block, tolerance, background);
            ASSERT_EQ(expected, IsImageBlank(page.handle(), tolerance, background))
                << bits << " bits, " << width << " x " << height << ", " << tolerance << ", seed " << seed;
            ++verdicts[expected];
          }
        }
        ASSERT_TRUE(page.Unchanged());
      }
    }
  }
  EXPECT_GT(std::min(verdicts[0], verdicts[1]), 1000);
  EXPECT_EQ(kErrorBefore, RastrelError());
}

TEST(IsImageBlank, TurnsAtTheVeryPixel) {
  // Of 1000 pixels. In doubles, 699 and 999 tenths of a percent of them are a little more than that.
  for (const auto& [ink, expected] :
       {std::pair{0, 1}, {1, 2}, {499, 500}, {500, 501}, {699, 699}, {999, 999}}) {
    for (const int bits : {1, 8, 24}) {
      TestDib page = TestDib::Plain(MakeHeader(bits, 25, 40), bits == 24 ? 0xFFFFFF : (1u << bits) - 1);
      for (int i = 0; i < ink; ++i) page.Set(i * 7 % 1000 % 25, i * 7 % 1000 / 25, 0);
      EXPECT_EQ(0, IsImageBlank(page.handle(), expected - 1, 0x7F7F7F));
      EXPECT_EQ(1, IsImageBlank(page.handle(), expected, 0x7F7F7F));
    }
  }
}

TEST(IsImageBlank, KeptAByteOfPaddingCountsBehindAByte) {
  for (const int width : {7, 8, 24, 25, 32, 40, 64}) {
    const TestDib page = TestDib::Plain(MakeHeader(1, width, 3000), 1);  // white, in black padding
    EXPECT_EQ(width % 8 == 0 && width % 32 != 0 ? 0 : 1, IsImageBlank(page.handle(), 1, 0)) << width;
  }
}

TEST(IsImageBlank, KeptComparesRedAndBlueCrosswiseAt24Bits) {
  const COLORREF colour = 50 | 200 << 8 | 200 << 16;
  const auto ofIndex = [](RGBQUAD entry) { return TestDib(MakeHeader(8, 1, 1), {entry}); };
  EXPECT_EQ(1, IsImageBlank(ColourPage({{0xFAFA64}}).handle(), 10, colour));
  EXPECT_EQ(0, IsImageBlank(ofIndex({100, 250, 250, 0}).handle(), 10, colour));
  EXPECT_EQ(1, IsImageBlank(ofIndex({201, 201, 51, 0}).handle(), 10, colour));
  EXPECT_EQ(0, IsImageBlank(ofIndex({200, 201, 51, 0}).handle(), 10, colour));
}

TEST(IsImageBlank, LooksOnlyAtKnownPagesAndSurvivesOthers) {
  SetRastrelError(kErrorBefore);
  const auto test = [](HGLOBAL dib) { return IsImageBlank(dib, 1000, 0); };
  EXPECT_EQ(1, test(TestDib(MakeHeader(1, 9, 1), {{9, 9, 9, 0}, {8, 8, 8, 0}}).handle()));
  EXPECT_EQ(0, test(TestDib(MakeHeader(1, 9, 1), {{9, 9, 9, 0}, {8, 8, 9, 0}}).handle()));
  // Without rows too the colours count, and have to be there.
  BITMAPINFOHEADER empty = MakeHeader(1, 9, 0);
  EXPECT_EQ(0, test(TestDib(empty, {{9, 9, 9, 0}, {8, 8, 9, 0}}).handle()));
  const auto* const head = reinterpret_cast<const uint8_t*>(&empty);
  EXPECT_EQ(0, test(TestDib(Bytes(head, head + sizeof(empty))).handle()));
  for (const int bits : {1, 4, 8, 24}) {
    EXPECT_EQ(bits == 1, test(TestDib(MakeHeader(bits, 9, 0)).handle()));
    for (const Bytes& block : LyingBlocks(bits)) {
      const TestDib lying(block);
      EXPECT_EQ(reference::IsImageBlank(block, 1000, 0), test(lying.handle()));
      EXPECT_TRUE(lying.Unchanged());
    }
  }
  const TestDib page = TestDib::Random(8, 9, 9, 1);
  for (const uint32_t headerSize : {0u, 12u, 124u, 1000u, 0xFFFFFFFFu}) {
    const TestDib odd = page.With([=](BITMAPINFOHEADER& header) { header.biSize = headerSize; });
    EXPECT_EQ(reference::IsImageBlank(odd.block(), 1000, 0), test(odd.handle()));
  }
  EXPECT_EQ(-1, test(nullptr));
  EXPECT_EQ(-1, test(reinterpret_cast<HGLOBAL>(uintptr_t{0x1234567})));
  host::FailNth(host::Fault::kLock, 1);
  EXPECT_EQ(-1, test(page.handle()));
  host::FailNth(host::Fault::kLock, 0);
  EXPECT_EQ(kErrorBefore, RastrelError());
  EXPECT_TRUE(page.Unchanged());
}

}  // namespace
}  // namespace rastrel::testing
