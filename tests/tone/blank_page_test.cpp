#include <gtest/gtest.h>
#include <rastrel.h>

#include "tests/support/test_dib.h"
#include "tests/tone/tone_pages.h"

namespace rastrel::testing {
namespace {

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

}  // namespace
}  // namespace rastrel::testing
