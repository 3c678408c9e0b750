#include <gtest/gtest.h>
#include <rastrel.h>

#include <cstring>

#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

// A run-length page of 4 or 8 bits with a full table.
TestDib RunLengths(int bits, int width, int height, const Bytes& stream) {
  BITMAPINFOHEADER header = MakeHeader(bits, width, height);
  header.biCompression = bits == 8 ? BI_RLE8 : BI_RLE4;
  header.biSizeImage = static_cast<uint32_t>(stream.size());
  Bytes block = TestDib(MakeHeader(bits, 0, 0)).block();
  std::memcpy(block.data(), &header, sizeof(header));
  block.insert(block.end(), stream.begin(), stream.end());
  return TestDib(block);
}

TEST(ExpandCompressedDIB, DrawsRunsLiteralsAndMoves) {
  struct Case {
    int bits, width;
    Bytes stream, rows;  // two rows of 4 bytes
  };
  for (const Case& c :
       {Case{8, 4, {3, 5, 0, 0, 0, 1}, {5, 5, 5, 0, 0, 0, 0, 0}},
        Case{8, 4, {9, 5, 1, 6, 0, 0, 2, 7, 0, 1, 4, 8}, {6, 5, 5, 5, 7, 7, 0, 0}},  // full: begins anew
        Case{8, 4, {1, 9, 0, 2, 9, 1, 2, 6, 1, 7}, {9, 0, 0, 0, 7, 0, 0, 0}},  // beyond: nothing, then anew
        Case{8, 4, {0, 3, 1, 2, 3, 99, 0, 5, 4}, {1, 2, 3, 4, 0, 0, 0, 0}},    // ends inside its literals
        Case{4, 8, {0, 3, 0x12, 0x30, 2, 0x45, 0, 0, 5, 0xAB}, {0x12, 0x34, 0x50, 0, 0xAB, 0xAB, 0xA0, 0}},
        Case{4, 3, {9, 0x12, 9, 0x34, 0, 0, 0, 2, 1, 0, 9, 0x56}, {0x12, 0x10, 0, 0, 0x05, 0x60, 0, 0}}}) {
    // A size of the image that is less than the data's cuts nothing off.
    for (const uint32_t size : {static_cast<uint32_t>(c.stream.size()), 1u}) {
      const TestDib page =
          RunLengths(c.bits, c.width, 2, c.stream).With([size](auto& header) { header.biSizeImage = size; });
      const Bytes block = TestDib(ExpandCompressedDIB(page.handle())).block();
      EXPECT_EQ(c.rows, Bytes(block.end() - 8, block.end())) << ::testing::PrintToString(c.stream);
    }
  }
}

TEST(Convert8to24, LooksEveryByteUp) {
  BITMAPINFOHEADER header = MakeHeader(8, 3, 1);
  header.biClrUsed = 2;
  TestDib page(header, {{1, 2, 3, 9}, {4, 5, 6, 9}});
  page.Set(1, 0, 1);
  const TestDib result(Convert8to24(page.handle()));
  EXPECT_EQ((std::vector<Pixel>{0x030201, 0x060504, 0x030201}), result.Pixels());
  EXPECT_EQ(0u, result.header().biClrUsed);
}

}  // namespace
}  // namespace rastrel::testing
