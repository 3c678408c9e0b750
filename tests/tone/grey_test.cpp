#include "tests/reference/grey.h"

#include <gtest/gtest.h>
#include <rastrel.h>

#include <algorithm>
#include <array>

#include "tests/support/faults.h"
#include "tests/support/test_dib.h"
#include "tests/tone/tone_pages.h"

namespace rastrel::testing {
namespace {

using GreyRows = std::vector<std::vector<Pixel>>;

// Without the lock that success leaves.
TestDib ColourToGrey(const TestDib& page, int weighted, uint32_t method = 0) {
  TestDib result(ConvColorDIBtoGrayscale(page.handle(), weighted, method));
  if (result) GlobalUnlock(page.handle());
  return result;
}

// Fields that no other page sets, and at 1 bit a first colour that is often just white or not.
TestDib OddPage(int bits, int width, int height, unsigned seed) {
  Bytes block = TonePage(bits, width, height, seed);
  block[12] = static_cast<uint8_t>(bits == 1 ? 1 : seed % 3);  // planes
  block[20] = 5;                                               // image size
  block[36] = 9;                                               // important colours
  if (bits == 1 && seed % 5 > 1) std::fill_n(&block[40], 3, uint8_t{128});
  if (bits == 1 && seed % 5 > 3) block[40 + seed % 3] = 127;
  return TestDib(block);
}

TEST(GreyConversions, EqualThePlainVersions) {
  unsigned seed = 0;
  for (const int bits : {1, 4, 8, 16, 24, 32}) {
    for (int width = 1; width <= 200; width += width < 72 ? 1 : 7) {
      for (const int height : {1, 2, 3, 4, 5, 6, 12}) {
        for (const uint32_t method : {0u, 1u, 2u}) {
          const TestDib page = OddPage(bits, width, height, ++seed);
          const int weighted = static_cast<int>(method) - 1;
          SCOPED_TRACE(::testing::Message() << bits << " bits, " << width << " x " << height << ", " << seed);
          SetRastrelError(kErrorBefore);
          ASSERT_EQ(Rounded(reference::ConvColorDIBtoGrayscale(page.block(), weighted, method)),
                    ColourToGrey(page, weighted, method).block());
          ASSERT_EQ(ErrSuccess, RastrelError());
          if (bits == 1) {
            SetRastrelError(kErrorBefore);
            const Bytes expected = Rounded(reference::ConvertMonoDIBtoGrayscale(page.block(), method));
            ASSERT_EQ(expected, TestDib(ConvertMonoDIBtoGrayscale(page.handle(), method)).block());
            ASSERT_EQ(ErrSuccess, RastrelError());
            ASSERT_EQ(expected, TestDib(ConvMonoDIBtoGrayscale(page.handle(), method)).block());
          }
          ASSERT_TRUE(page.Unchanged());
        }
      }
    }
  }
}

// Page rows, from the top.
GreyRows Smoothed(std::initializer_list<std::string_view> pageRows, uint32_t method) {
  GreyRows rows = StoredRows(TestDib(ConvertMonoDIBtoGrayscale(TestDib::Drawn(pageRows).handle(), method)));
  std::reverse(rows.begin(), rows.end());
  return rows;
}

TEST(ColourToGrey, LeavesOutColoursThatDoNotFit) {
  for (const auto& [bits, used] : {std::pair{4, 20u}, {8, 300u}}) {
    BITMAPINFOHEADER header = MakeHeader(bits, 9, 3);
    header.biClrUsed = used;
    const TestDib page = TestDib::Random(header, 1);
    EXPECT_EQ(Rounded(reference::ConvColorDIBtoGrayscale(page.block(), 1, 0)), ColourToGrey(page, 1).block());
  }
}

TEST(MonoToGrey, KeptRowsComeOneOrTwoHigherAndTheEndsAgain) {
  const std::initializer_list<std::string_view> dot = {"#########", "#########", "#########", "#########",
                                                       "####.####", "#########", "#########"};
  GreyRows expected(7, std::vector<Pixel>(9));
  expected[2] = expected[4] = {0, 0, 0, 8, 31, 8, 0, 0, 0};
  expected[3] = {0, 0, 0, 31, 99, 31, 0, 0, 0};
  EXPECT_EQ(expected, Smoothed(dot, 1));
  expected[0] = expected[4] = {0, 0, 0, 3, 7, 3, 0, 0, 0};
  expected[1] = expected[3] = {0, 0, 3, 16, 25, 16, 3, 0, 0};
  expected[2] = {0, 0, 7, 25, 39, 25, 7, 0, 0};
  EXPECT_EQ(expected, Smoothed(dot, 2));

  // The bottom row stands for those below it; the top one is never a centre.
  EXPECT_EQ((GreyRows{{0, 8, 31, 8}, {0, 39, 130, 39}, {0, 47, 161, 47}}),
            Smoothed({"####", "####", "##.#"}, 1));
  EXPECT_EQ((GreyRows{{8, 0, 8, 31}, {0, 0, 0, 0}, {0, 0, 0, 0}}), Smoothed({"###.", "####", "####"}, 1));

  // The four pixels at an end come again beyond it: pixel 3 stands left of pixel 0, and pixel 4 right of
  // pixel 7.
  EXPECT_EQ((GreyRows{{47, 0, 47, 161, 47, 0, 0, 0}}), Smoothed({"###.####"}, 1));
  EXPECT_EQ((GreyRows{{0, 0, 0, 47, 161, 47, 0, 47}}), Smoothed({"####.###"}, 1));
}

TEST(ColourToGrey, WeighsOrAverages) {
  const TestDib page = ColourPage({{0xFFFFFF, 0xFF0000, 0x00FF00, 0x0000FF, 0}});
  EXPECT_EQ((GreyRows{{255, 78, 147, 29, 0}}), StoredRows(ColourToGrey(page, -1)));
  EXPECT_EQ((GreyRows{{255, 85, 85, 85, 0}}), StoredRows(ColourToGrey(page, 0)));
}

TEST(GreyConversions, RefuseInOrder) {
  // Header size, planes, bits, compression, width, height, method; the errors of mono and of colour pages.
  for (const auto& [size, planes, bits, rle, width, height, method, monoError, colourError] :
       {std::array{12, 2, 4, 1, 0, 0, 3, 8, 8},
        {40, 2, 1, 0, 9, 6, 0, 18, 0},
        {40, 1, 4, 0, 0, 6, 3, 18, 19},
        {40, 1, 1, 1, 0, 6, 3, 18, 18},
        {40, 1, 1, 0, 0, 6, 3, 19, 19},
        {40, 1, 1, 0, 9, 0, 3, 19, 19},
        {40, 1, 1, 0, 9, 6, -1, 8, 8},
        {40, 1, 4, 0, 9, 6, 3, 18, 0}}) {
    TestDib page = TestDib::Random(4, 32, 32, 1);
    page.SetHeader({static_cast<uint32_t>(size), width, height, static_cast<uint16_t>(planes),
                    static_cast<uint16_t>(bits), static_cast<uint32_t>(rle), 0, 0, 0, 0, 0});
    EXPECT_EQ(nullptr, ConvertMonoDIBtoGrayscale(page.handle(), static_cast<uint32_t>(method)));
    EXPECT_EQ(monoError, RastrelError());
    EXPECT_EQ(colourError == 0, static_cast<bool>(ColourToGrey(page, 1, static_cast<uint32_t>(method))));
    EXPECT_EQ(colourError, RastrelError());
    EXPECT_TRUE(page.Unchanged());
  }
  const Refusals errors = {.noHandle = ErrParameter, .noBlock = ErrLockMemory, .lying = ErrDIBSize};
  ExpectRefusals(errors, {1}, [](HGLOBAL dib) { return ConvertMonoDIBtoGrayscale(dib, 2); });
  ExpectRefusals(errors, {1, 4, 8, 16, 24}, [](HGLOBAL dib) { return ConvColorDIBtoGrayscale(dib, 1, 2); });
}

TEST(GreyConversions, FailCleanlyWithoutMemoryAndColourKeepsTheLockOfSuccess) {
  for (const int bits : {1, 4, 8, 16, 24}) {
    const TestDib page = TestDib::Random(bits, 9, 8, 1);
    for (const uint32_t method : {0u, 1u, 2u}) {
      const auto colour = [=](HGLOBAL dib) { return ConvColorDIBtoGrayscale(dib, 1, method); };
      const auto mono = [=](HGLOBAL dib) { return ConvertMonoDIBtoGrayscale(dib, method); };
      for (const auto& [fault, error] :
           {std::pair{host::Fault::kAllocation, ErrNoMemory}, {host::Fault::kLock, ErrLockMemory}}) {
        ExpectEveryFault(fault, page, error, colour);
        if (bits == 1) ExpectEveryFault(fault, page, error, mono);
      }
      EXPECT_EQ(1u, RunWithFaults(host::Fault::kAllocation, page, colour).back().locks);
      EXPECT_EQ(0u, RunWithFaults(host::Fault::kAllocation, page, mono).back().locks);
    }
  }
}

}  // namespace
}  // namespace rastrel::testing
