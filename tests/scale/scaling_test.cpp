#include "tests/reference/scaling.h"

#include <gtest/gtest.h>
#include <rastrel.h>

#include <random>

#include "tests/support/faults.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

int Pick(std::mt19937& random, int first, int last) {
  return first + static_cast<int>(random() % static_cast<unsigned>(last - first + 1));
}

enum class Colours { kRamp, kGreys, kRandom, kFew };

// A page whose table holds what `colours` says, often with black in it.
TestDib Page(int bits, int width, int height, Colours colours, unsigned seed) {
  std::mt19937 random(seed);
  BITMAPINFOHEADER header = MakeHeader(bits, width, height);
  if (bits == 24) header.biClrUsed = seed % 3;
  if (bits != 24 && seed % 4 == 0) header.biClrUsed = 0;
  if (bits != 24 && colours == Colours::kFew) header.biClrUsed = static_cast<uint32_t>(Pick(random, 1, 40));
  TestDib page = TestDib::Random(header, seed);
  Bytes block = page.block();
  const auto rows = static_cast<size_t>(reference::View(block).pixels);
  const bool areGrey = colours == Colours::kGreys || (colours == Colours::kFew && seed % 2 == 0);
  for (size_t i = 40; i < rows && colours != Colours::kRamp; i += 4) {
    const bool isBlack = random() % 4 == 0;
    for (size_t k = 0; k < 3; ++k) {
      block[i + k] = isBlack ? 0 : areGrey && k > 0 ? block[i] : static_cast<uint8_t>(random());
    }
  }
  for (size_t i = rows; i < block.size() && seed % 3 == 0; ++i) {  // mostly one pixel, also where rows begin
    if (random() % 8 != 0) block[i] = bits == 24 ? 0 : 0x33;
  }
  page.SetBlock(block);
  return page;
}

void ExpectPlainScale(const TestDib& page, int cubic, int newWidth, int newHeight) {
  const Bytes expected = reference::ScaleDIB(page.block(), cubic, newWidth, newHeight);
  const TestDib scaled(ScaleDIB(page.handle(), cubic, newWidth, newHeight));
  ASSERT_FALSE(expected.empty());
  ASSERT_TRUE(scaled);
  ASSERT_EQ(0u, GlobalFlags(scaled.handle()));
  ASSERT_EQ(Rounded(expected), scaled.block())
      << page.header().biBitCount << " bits, " << page.width() << " x " << page.height() << " to " << newWidth
      << " x " << newHeight << (cubic != 0 ? ", cubic" : "");
}

TEST(ScaleDIB, InterpolatesAsThePlainVersion) {
  std::mt19937 random(1);
  const Colours kinds[] = {Colours::kRamp, Colours::kGreys, Colours::kRandom, Colours::kFew};
  for (unsigned round = 0; round < 600; ++round) {
    const int bits = round % 3 == 0 ? 24 : round % 3 == 1 ? 8 : 4;
    const int most = round % 4 == 0 ? 9 : 120;
    const int width = Pick(random, 1, most), height = Pick(random, 1, most / 3);
    const TestDib page = Page(bits, width, height, kinds[round / 3 % 4], round);
    const int newWidth = Pick(random, 1, round % 5 == 0 ? 400 : 70), newHeight = Pick(random, 1, 50);
    const int cubic = static_cast<int>(round & 1) * (round % 7 == 0 ? 0x10000 : 1);
    ASSERT_NO_FATAL_FAILURE(ExpectPlainScale(page, cubic, newWidth, newHeight)) << "round " << round;
    ASSERT_TRUE(page.Unchanged());
  }
}

// Ratios that change how bytes are moved: from far enlargements to far reductions, and whole ones.
TEST(ScaleDIB, InterpolatesLongRowsAsThePlainVersion) {
  for (const int bits : {4, 8, 24}) {
    const TestDib page = Page(bits, 2000, 2, Colours::kGreys, 5);
    for (const int width : {1, 7, 100, 400, 500, 667, 900, 1000, 1999, 2000, 2001, 3000, 4000, 9001}) {
      for (const int cubic : {0, 1}) {
        ASSERT_NO_FATAL_FAILURE(ExpectPlainScale(page, cubic, width, 3));
      }
    }
    const TestDib tall = Page(bits, 3, 700, Colours::kRandom, 7);
    for (const int height : {1, 100, 233, 234, 300, 350, 467, 699, 700, 701, 1050, 2100}) {
      for (const int cubic : {0, 1}) ASSERT_NO_FATAL_FAILURE(ExpectPlainScale(tall, cubic, 5, height));
    }
  }
}

TEST(ScaleDIB, LeavesTrueColourOfTheSameSizeAlone) {
  const TestDib page = TestDib::Random(24, 37, 11, 3);
  EXPECT_EQ(page.Pixels(), TestDib(ScaleDIB(page.handle(), 0, 37, 11)).Pixels());
}

TEST(ScaleDIB, WeighsNeighboursByHand) {
  TestDib page(MakeHeader(8, 2, 2));
  page.Fill(0, 0, 2, 2, 200);
  page.Set(1, 1, 100);
  // Halfway 128 and 127 of 255. Behind the last column and row they are repeated.
  const std::vector<Pixel> twice = {200, 200, 200, 200, 200, 200, 200, 200,  // from the top
                                    200, 175, 150, 150, 200, 150, 100, 100};
  EXPECT_EQ(twice, TestDib(ScaleDIB(page.handle(), 0, 4, 4)).Pixels());
  // Halfway between two rows cubic convolution takes 159 / 255 of both and takes away 31 / 255 of the ones
  // beyond them: black below the bottom row, and the lower of the two instead of one above the top row.
  page.Fill(0, 0, 2, 1, 200);
  page.Fill(0, 1, 2, 1, 0);
  EXPECT_EQ((std::vector<Pixel>{226, 200, 125, 0}), TestDib(ScaleDIB(page.handle(), 1, 1, 4)).Pixels());
}

// Black at the beginning of a row is index 0, whatever entry 0 is; after another colour it is the nearest.
TEST(ScaleDIB, TakesLeadingBlackForIndexZero) {
  for (const int bits : {4, 8}) {
    for (const bool isGrey : {false, true}) {
      std::vector<RGBQUAD> table(size_t{1} << bits, RGBQUAD{90, 90, isGrey ? uint8_t{90} : uint8_t{0}, 0});
      table[3] = {0, 0, 0, 0};
      TestDib page(MakeHeader(bits, 6, 2), table);
      page.Fill(0, 0, 6, 2, 3);
      page.Set(2, 0, 1);
      EXPECT_EQ((std::vector<Pixel>{0, 0, 0, 3, 3, 3, 0, 0, 0, 0, 0, 0}),
                TestDib(ScaleDIB(page.handle(), 0, 6, 2)).Pixels());
    }
  }
}

TEST(ScaleDIB, CountsSizesModulo65536) {
  const TestDib page = Page(8, 65536 + 9, 5, Colours::kRandom, 1);
  ExpectPlainScale(page, 1, 12, 7);
  ExpectPlainScale(Page(24, 9, 65536 + 5, Colours::kRandom, 1), 0, 65536 + 12, 7);
  ExpectPlainScale(Page(24, 1, 2, Colours::kRandom, 1), 0, -1, 1);
  const TestDib wide = Page(4, 65535, 1, Colours::kGreys, 1);
  ExpectPlainScale(wide, 1, 65534, 1);
  ExpectPlainScale(wide, 0, 3, 65535);
}

TEST(ScaleDIB, RefusesBadPagesAndSizes) {
  const auto expectRefusal = [](const TestDib& page, int width, int height, int error) {
    SetRastrelError(kErrorBefore);
    EXPECT_EQ(nullptr, ScaleDIB(page.handle(), 0, width, height));
    EXPECT_EQ(error, RastrelError()) << page.width() << " x " << page.height() << " to " << width << " x "
                                     << height;
    EXPECT_TRUE(page.Unchanged());
  };
  const auto scale = [](HGLOBAL dib) { return ScaleDIB(dib, 1, 20, 10); };
  ExpectRefusals({ErrParameter, ErrNoMemory, ErrDIBSize}, {}, scale);
  for (const int bits : {4, 8, 24}) {
    for (const Bytes& block : LyingBlocks(bits)) {
      const reference::View view(block);
      const bool isWhole = block.size() >= reference::kHeader;
      const bool isEmpty = isWhole && ((view.width & 0xFFFF) == 0 || (view.height & 0xFFFF) == 0);
      expectRefusal(TestDib(block), 20, 10, isEmpty ? ErrParameter : ErrDIBSize);
    }
    const TestDib page = TestDib::Random(bits, 9, 9, 1);
    for (const int none : {0, 0x10000, INT32_MIN}) {
      expectRefusal(page, none, 5, ErrParameter);
      expectRefusal(page, 5, none, ErrParameter);
    }
    const TestDib compressed = page.With([](BITMAPINFOHEADER& header) { header.biCompression = 1; });
    if (bits == 24) {
      EXPECT_TRUE(TestDib(ScaleDIB(compressed.handle(), 0, 5, 5)));
    } else {
      expectRefusal(compressed, 5, 5, ErrCompressed);
    }
    if (bits == 24) expectRefusal(page, 65535, 65535, ErrNoMemory);
    ExpectEveryFault(host::Fault::kAllocation, page, ErrNoMemory, scale);
    ExpectEveryFault(host::Fault::kLock, page, ErrNoMemory, scale);
  }
  ExpectEveryFault(host::Fault::kAllocation, Page(8, 9, 9, Colours::kRandom, 1), ErrNoMemory, scale);
  ExpectEveryFault(host::Fault::kLock, Page(4, 9, 9, Colours::kRandom, 1), ErrNoMemory, scale);
  for (const int bits : {0, 2, 16, 32, 65535}) {
    expectRefusal(TestDib::Random(8, 9, 9, 1).With([&](BITMAPINFOHEADER& header) {
      header.biBitCount = static_cast<uint16_t>(bits);
    }),
                  5, 5, ErrHeaderBitCount);
  }
}

}  // namespace
}  // namespace rastrel::testing
