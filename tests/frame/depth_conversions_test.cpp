#include "tests/reference/depth_conversions.h"

#include <gtest/gtest.h>
#include <rastrel.h>

#include <array>
#include <cstring>
#include <random>

#include "tests/support/faults.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

uint32_t Next(std::mt19937& random, uint32_t below) { return static_cast<uint32_t>(random()) % below; }

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

using Convert = HGLOBAL(RASTREL_CALL*)(HGLOBAL);

// An empty block is a refusal.
void ExpectResult(Convert convert, const TestDib& page, const Bytes& expected, int refusal) {
  SetRastrelError(kErrorBefore);
  EXPECT_EQ(Rounded(expected), TestDib(convert(page.handle())).block());
  EXPECT_EQ(expected.empty() ? refusal : 0, RastrelError());
  EXPECT_TRUE(page.Unchanged());
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
    const TestDib result(ExpandCompressedDIB(RunLengths(c.bits, c.width, 2, c.stream).handle()));
    const Bytes block = result.block();
    EXPECT_EQ(c.rows, Bytes(block.end() - 8, block.end())) << ::testing::PrintToString(c.stream);
  }
}

TEST(ExpandCompressedDIB, MatchesThePlainVersion) {
  std::mt19937 random(1);
  for (int i = 0; i < 20000 && !HasFailure(); ++i) {
    const int bits = i % 2 == 0 ? 8 : 4;
    Bytes stream(Next(random, 300));  // many zeros, for commands, and small numbers
    for (uint8_t& byte : stream)
      byte = static_cast<uint8_t>(Next(random, 3) == 0 ? 0 : Next(random, Next(random, 5) == 0 ? 256 : 12));
    const int width = static_cast<int>(Next(random, 40)), height = static_cast<int>(Next(random, 12));
    const TestDib page = RunLengths(bits, width, height, stream).With([&](auto& header) {
      if (i % 4 == 0) header.biClrUsed = static_cast<uint32_t>(random());
      if (i % 5 == 0) header.biSizeImage = Next(random, i % 3 == 0 ? 100 : UINT32_MAX);
    });
    Bytes cut = page.block();
    cut.resize(i % 16 == 0 ? 8 + Next(random, static_cast<uint32_t>(cut.size())) / 8 * 8 : cut.size());
    SCOPED_TRACE(::testing::Message() << i << ": " << bits << " bits, " << width << " x " << height);
    ExpectResult(ExpandCompressedDIB, TestDib(cut), reference::ExpandCompressedDIB(cut), ErrParameter);
  }
}

TEST(Convert8to24, MatchesThePlainVersion) {
  std::mt19937 random(1);
  for (int i = 0; i < 3000 && !HasFailure(); ++i) {
    Bytes block = TestDib(MakeHeader(8, 70, 5)).block();
    for (size_t k = 40; k < block.size(); ++k) {
      const bool isGrey = i % 4 == 0 && k < 1064;  // entries that are all shades of grey, in some order
      block[k] = static_cast<uint8_t>(isGrey ? (k - 40) / 4 ^ (i & 0xFF) : random());
    }
    if (i % 8 == 0) ++block[40 + Next(random, 1024)];  // but for one byte
    if (i % 5 == 0) block.resize(48 + Next(random, 1400) / 8 * 8);
    const TestDib page = TestDib(block).With([&](auto& header) {
      header.biBitCount = std::array<uint16_t, 10>{8, 8, 8, 8, 0, 2, 3, 16, 32, 9000}[random() % 10];
      header.biWidth = static_cast<int>(1 + Next(random, 70) + Next(random, 3) * 0x10000);
      header.biHeight = static_cast<int>(1 + Next(random, 5) + Next(random, 3) * 0x10000);
      header.biPlanes = static_cast<uint16_t>(random());
      header.biClrUsed = i % 2 == 0 ? 0 : Next(random, 300);
    });
    SCOPED_TRACE(i);
    ExpectResult(Convert8to24, page, reference::Convert8to24(page.block()), ErrDIBSize);
  }
  for (const int width : {21844, 21845}) {  // rows of 65532 bytes, and too long ones
    const TestDib wide = TestDib::Random(8, width, 1, 1);
    ExpectResult(Convert8to24, wide, reference::Convert8to24(wide.block()), ErrDIBSize);
  }
}

TEST(DepthConversions, RefuseWithTheFirstCodeThatFits) {
  struct Case {
    Convert convert;
    int error;
    std::function<void(BITMAPINFOHEADER&)> change;
  };
  const Convert expand = ExpandCompressedDIB, widen = Convert8to24;
  const TestDib run = RunLengths(8, 9, 5, {0, 1}), page = TestDib::Random(8, 9, 5, 1);
  for (const Case& c : {Case{expand, ErrParameter, [](auto& h) { h.biCompression = 0; }},
                        Case{expand, ErrParameter, [](auto& h) { h.biCompression = 2; }},
                        Case{expand, ErrParameter, [](auto& h) { h.biCompression = 3; }},
                        Case{expand, ErrParameter, [](auto& h) { h.biBitCount = 4; }},
                        Case{expand, ErrParameter, [](auto& h) { h.biSizeImage = 0, h.biWidth = -1; }},
                        Case{expand, ErrDIBSize, [](auto& h) { h.biWidth = -1; }},
                        Case{expand, ErrDIBSize, [](auto& h) { h.biHeight = INT32_MIN; }},
                        Case{expand, ErrNoMemory, [](auto& h) { h.biWidth = h.biHeight = INT32_MAX; }},
                        Case{widen, ErrParameter, [](auto& h) { h.biSize = 12, h.biCompression = 1; }},
                        Case{widen, ErrCompressed, [](auto& h) { h.biCompression = 1, h.biBitCount = 24; }},
                        Case{widen, ErrBitsPerPixel, [](auto& h) { h.biBitCount = 1, h.biWidth = 0; }},
                        Case{widen, ErrBitsPerPixel, [](auto& h) { h.biBitCount = 4; }},
                        Case{widen, ErrNothingToDo, [](auto& h) { h.biBitCount = 24, h.biHeight = 0; }},
                        Case{widen, ErrDIBSize, [](auto& h) { h.biWidth = 0x50000; }},
                        Case{widen, ErrDIBSize, [](auto& h) { h.biHeight = INT32_MIN; }}}) {
    ExpectResult(c.convert, (c.convert == widen ? page : run).With(c.change), {}, c.error);
  }
  ExpectRefusals({.noHandle = ErrParameter, .noBlock = ErrParameter}, {}, ExpandCompressedDIB);
  ExpectEveryFault(host::Fault::kAllocation, run, ErrNoMemory, ExpandCompressedDIB);
  EXPECT_EQ("x??", DrawOutcomes(host::Fault::kLock, run, ErrParameter, ExpandCompressedDIB));
  EXPECT_EQ("?x?", DrawOutcomes(host::Fault::kLock, run, ErrNoMemory, ExpandCompressedDIB));
  ExpectRefusals({.noHandle = ErrParameter, .noBlock = ErrLockMemory}, {}, Convert8to24);
  ExpectEveryFault(host::Fault::kLock, page, ErrLockMemory, Convert8to24);
  EXPECT_EQ("oo", DrawOutcomes(host::Fault::kAllocation, page, 0, Convert8to24)) << "tried once more";
}

}  // namespace
}  // namespace rastrel::testing
