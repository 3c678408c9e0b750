#include "tests/reference/grey_scaling.h"

#include <gtest/gtest.h>
#include <rastrel.h>

#include <random>

#include "tests/support/faults.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

struct Part {
  int16_t left, top, width, height, xFactor, yFactor, mode;
};

HGLOBAL Enlarged(HGLOBAL page, const Part& part) {
  return ScaleGrayDIB(page, part.left, part.top, part.width, part.height, part.xFactor, part.yFactor,
                      part.mode);
}

int16_t Pick(std::mt19937& random, int first, int last) {
  return static_cast<int16_t>(first + static_cast<int>(random() % static_cast<unsigned>(last - first + 1)));
}

TEST(ScaleGrayDIB, EqualsThePlainVersion) {
  std::mt19937 random(1);
  for (unsigned round = 0; round < 400; ++round) {
    const int bits = round % 2 == 0 ? 8 : 4;
    BITMAPINFOHEADER header = MakeHeader(bits, Pick(random, 1, 50), Pick(random, 1, 20));
    if (round % 3 == 0) header.biClrUsed = 0;
    if (round % 7 == 0) header.biClrUsed = static_cast<uint32_t>(Pick(random, 1, 300));
    TestDib page = TestDib::Random(header, round);
    Bytes block = page.block();
    const size_t entries = bits == 8 ? 256 : 16;
    for (size_t i = 0; i < entries && round % 5 < 3; ++i) {  // ramps of other shapes, or none
      const size_t level = round % 5 == 0 ? i * 255 / entries : round % 5 == 1 ? i * i / 260 : random();
      if (40 + 4 * i < block.size()) block[40 + 4 * i] = static_cast<uint8_t>(level);
    }
    page.SetBlock(block);
    const int16_t left = Pick(random, 0, header.biWidth - 1), top = Pick(random, 0, header.biHeight - 1);
    const Part part = {left,
                       top,
                       Pick(random, 1, header.biWidth - left),
                       Pick(random, 1, header.biHeight - top),
                       Pick(random, 1, 5),
                       Pick(random, 1, 5),
                       Pick(random, 0, 1)};
    const Bytes expected = reference::ScaleGrayDIB(page.block(), part.left, part.top, part.width, part.height,
                                                   part.xFactor, part.yFactor, part.mode);
    ASSERT_FALSE(expected.empty());
    ASSERT_EQ(Rounded(expected), TestDib(Enlarged(page.handle(), part)).block()) << "round " << round;
    ASSERT_TRUE(page.Unchanged());
  }
}

TEST(ScaleGrayDIB, GivesMostGreysOneIndexLower) {
  TestDib page(MakeHeader(8, 256, 1));
  for (int x = 0; x < 256; ++x) page.Set(x, 0, static_cast<Pixel>(x));
  const std::vector<Pixel> pixels = TestDib(Enlarged(page.handle(), {0, 0, 256, 1, 1, 1, 0})).Pixels();
  for (size_t x = 0; x < 256; ++x) EXPECT_EQ(x == 0 ? 255 : x - 1, pixels[x]);
}

TEST(ScaleGrayDIB, RefusesWithoutAnError) {
  const auto refuses = [](const TestDib& page, const Part& part) {
    SetRastrelError(kErrorBefore);
    return Enlarged(page.handle(), part) == nullptr && RastrelError() == kErrorBefore && page.Unchanged();
  };
  const Part whole = {0, 0, 9, 5, 2, 2, 1};
  for (const int bits : {4, 8}) {
    const TestDib page = TestDib::Random(bits, 9, 5, 1);
    const Part bad[] = {{-1, 0, 9, 5, 2, 2, 1},   {1, 0, 9, 5, 2, 2, 1},    {0, 0, 10, 5, 2, 2, 1},
                        {0, -1, 9, 5, 2, 2, 1},   {0, 1, 9, 5, 2, 2, 1},    {0, 0, 9, 6, 2, 2, 1},
                        {0, 0, 0, 5, 2, 2, 1},    {0, 0, 9, 0, 2, 2, 1},    {0, 0, 9, 5, 0, 2, 1},
                        {0, 0, 9, 5, 2, -1, 1},   {0, 0, 9, 5, 3641, 2, 1}, {0, 0, 9, 5, 2, 6554, 1},
                        {0, 0, 9, 5, 2, 2, 2},    {0, 0, 9, 5, 2, 2, -1},   {32767, 32767, 9, 5, 2, 2, 0},
                        {0, 0, 8, 5, 4096, 1, 0}, {0, 0, 9, 4, 1, 8192, 0}};
    for (const Part& part : bad) EXPECT_TRUE(refuses(page, part)) << &part - bad;
    EXPECT_FALSE(refuses(page, {0, 0, 7, 5, 4681, 1, 0}));  // 32,767
  }
  for (const int bits : {1, 24}) EXPECT_TRUE(refuses(TestDib::Random(bits, 9, 5, 1), whole));
  const auto enlarge = [&](HGLOBAL dib) { return Enlarged(dib, whole); };
  ExpectRefusals({}, {4, 8}, enlarge);
  const TestDib page = TestDib::Random(8, 9, 5, 1);
  ExpectEveryFault(host::Fault::kAllocation, page, kErrorBefore, enlarge);
  ExpectEveryFault(host::Fault::kLock, page, kErrorBefore, enlarge);
}

}  // namespace
}  // namespace rastrel::testing
