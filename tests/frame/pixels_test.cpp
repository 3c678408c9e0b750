#include <gtest/gtest.h>
#include <rastrel.h>

#include "tests/support/faults.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

constexpr COLORREF kNone = 0xABCDEF01;

COLORREF ColourAt(const TestDib& page, unsigned x, unsigned y) {
  COLORREF colour = kNone;
  const int result = GetDIBPixelColor(page.handle(), x, y, &colour);
  EXPECT_EQ(colour == kNone ? 0 : 1, result);
  return colour;
}

TEST(DIBPixelColor, LiesWhereItsOwnOrderSays) {
  const TestDib bits(MakeHeader(1, 10, 2));
  EXPECT_EQ(1, SetDIBPixelColor(bits.handle(), 0, 0, 0xFFFFFF));
  EXPECT_EQ(1, SetDIBPixelColor(bits.handle(), 9, 1, 0x77FFFFFF)) << "the top byte is ignored";
  const Bytes block = bits.block();
  // Kept: from the lowest bit. The bottom row comes first.
  EXPECT_EQ((Bytes{0, 0x02, 0, 0, 0x01, 0, 0, 0}), Bytes(block.begin() + 48, block.end()));

  TestDib colours(MakeHeader(24, 3, 2));
  colours.Set(0, 0, 0x302010);  // bytes 10 20 30
  EXPECT_EQ(0x102030u, ColourAt(colours, 0, 0));

  TestDib indices(MakeHeader(8, 3, 2), {{9, 8, 7, 6}, {1, 2, 3, 4}, {1, 2, 3, 5}});
  EXPECT_EQ(0x090807u, ColourAt(indices, 1, 1));
  EXPECT_EQ(1, SetDIBPixelColor(indices.handle(), 2, 1, 0x010203));
  EXPECT_EQ(1u, indices.At(2, 1)) << "the first of equal entries";
  // Kept: a table is taken to be full.
  EXPECT_EQ(0x010203u, ColourAt(indices.With([](auto& header) { header.biClrUsed = 1; }), 2, 1));
}

TEST(SetDIBPixelColor, ChangesNoOtherPixel) {
  for (const int bits : {1, 8, 24}) {
    const TestDib page = TestDib::Random(bits, 19, 3, 7);
    for (unsigned i = 0; i < 19 * 3; ++i) {
      const COLORREF before = ColourAt(page, i % 19, i / 19), after = before ^ 0xFFFFFF;
      EXPECT_EQ(1, SetDIBPixelColor(page.handle(), i % 19, i / 19, after));
      EXPECT_EQ(after, ColourAt(page, i % 19, i / 19));
      EXPECT_EQ(1, SetDIBPixelColor(page.handle(), i % 19, i / 19, before));
    }
    EXPECT_TRUE(page.Unchanged()) << bits;
  }
}

TEST(DIBPixelColor, RefusesWhatIsNotThere) {
  const auto refuses = [](HGLOBAL dib, unsigned x, unsigned y) {
    COLORREF colour = kNone;
    SetRastrelError(kErrorBefore);
    EXPECT_EQ(0, GetDIBPixelColor(dib, x, y, &colour) + SetDIBPixelColor(dib, x, y, 0)) << x << " " << y;
    EXPECT_EQ(kErrorBefore, RastrelError());
  };
  for (const uintptr_t handle : {0, 0x1234}) refuses(reinterpret_cast<HGLOBAL>(handle), 0, 0);
  for (const int bits : {4, 16, 32}) refuses(TestDib::Random(bits, 9, 5, 1).handle(), 3, 3);
  for (const int bits : {1, 8, 24}) {
    const TestDib page = TestDib::Random(bits, 9, 5, 1);
    EXPECT_EQ(0, GetDIBPixelColor(page.handle(), 0, 0, nullptr));
    for (const unsigned beyond : {9u, ~0u}) refuses(page.handle(), beyond, 0);
    for (const unsigned beyond : {5u, ~0u}) refuses(page.handle(), 0, beyond);
    refuses(page.With([](auto& header) { header.biSize = 108; }).handle(), 0, 0);
    refuses(page.With([](auto& header) { header.biCompression = 1; }).handle(), 0, 0);
    const TestDib wide = page.With([](auto& header) { header.biWidth = -1; });  // as unsigned
    EXPECT_EQ(ColourAt(page, 3, 4), ColourAt(wide, 3, 4)) << "the bottom row is in the block";
    refuses(wide.handle(), 0x7FFFFFFE, 4);
    refuses(wide.handle(), 0, 3);
    // At 24 bits the top row of this would lie 2^64 bytes behind the bottom one.
    refuses(page.With([](auto& h) { h.biWidth = -0x55555556, h.biHeight = -0x7FFFFFFF; }).handle(), 0, 0);
    for (const Bytes& block : LyingBlocks(bits)) {
      const TestDib lying(block);
      for (const unsigned x : {2u, 8u}) ColourAt(lying, x, 0), ColourAt(lying, x, 4);
      EXPECT_TRUE(lying.Unchanged());
    }
    Bytes cut = TestDib(MakeHeader(24, 3, 1)).block();
    cut.resize(48);
    refuses(TestDib(cut).handle(), 2, 0);
    EXPECT_EQ(bits == 24, SetDIBPixelColor(page.handle(), 1, 1, 0x010203) == 1);
    EXPECT_EQ(bits != 24, GlobalFlags(page.handle()) == 1) << "Kept: a colour that the table lacks";
  }
}

}  // namespace
}  // namespace rastrel::testing
