#include "tests/reference/rotation.h"

#include <gtest/gtest.h>
#include <rastrel.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "tests/support/faults.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

// What `reference` returned, as large as the platform makes such a block.
Bytes Rounded(Bytes block) {
  block.resize((block.size() + 7) / 8 * 8);
  return block;
}

TestDib Numbered(int width, int height) {
  TestDib page(MakeHeader(8, width, height));
  for (int i = 0; i < width * height; ++i) page.Set(i % width, i / width, static_cast<Pixel>(i + 1));
  page.Settle();
  return page;
}

// An odd size n is turned in the even size n + 1. The centre pixels meet there at (n + 1) / 2 from the left
// and the bottom, so the blank column is the first and the blank row the lowest.
TEST(RotateDIB, TurnsAnOddPageCounterClockwiseAndKeepsEveryPixel) {
  const TestDib page = Numbered(3, 3);  // 1 2 3, 4 5 6, 7 8 9
  struct Case {
    HGLOBAL turned;
    std::vector<Pixel> expected;
  };
  for (const Case& c :
       {Case{RotateDIB(page.handle(), 0), {0, 1, 2, 3, 0, 4, 5, 6, 0, 7, 8, 9, 0, 0, 0, 0}},
        Case{RotateDIB90(page.handle()), {0, 3, 6, 9, 0, 2, 5, 8, 0, 1, 4, 7, 0, 0, 0, 0}},
        Case{RotateDIB180(page.handle()), {0, 9, 8, 7, 0, 6, 5, 4, 0, 3, 2, 1, 0, 0, 0, 0}},
        Case{RotateDIB270(page.handle()), {0, 7, 4, 1, 0, 8, 5, 2, 0, 9, 6, 3, 0, 0, 0, 0}}}) {
    const TestDib turned(c.turned);
    EXPECT_EQ(4, turned.width());
    EXPECT_EQ(c.expected, turned.Pixels());
  }
  EXPECT_TRUE(page.Unchanged());
}

TEST(RotateDIB, KeptLosesALineOfEvenPagesAtHalfATurn) {
  const TestDib page = Numbered(2, 2);  // 1 2, 3 4: the column left of 1 and the row above 2 are not there
  const TestDib turned(RotateDIB180(page.handle()));
  EXPECT_EQ((std::vector<Pixel>{0, 2, 0, 0}), turned.Pixels());
}

TEST(RotateDIB, GivesBackAnEvenPageAtNoAngle) {
  for (const int bits : {1, 4, 8, 24}) {
    for (const int width : {2, 6, 30, 32, 34, 64, 130, 514}) {
      const TestDib page = TestDib::Random(bits, width, 300, width);
      const TestDib same(RotateDIB(page.handle(), 0));
      EXPECT_EQ(page.Pixels(), same.Pixels()) << bits << " bits, width " << width;
    }
  }
}

TEST(RotateDIB, SizesTheResultForTheWholePage) {
  struct Case {
    int width, height;
    double angle;
    int newWidth, newHeight;
  };
  // Half sizes are rounded: 50 * sqrt(2) = 70.7 to 71, 0.707 to 1.
  for (const Case& c : {Case{101, 51, 90, 52, 102}, Case{100, 100, 45, 142, 142}, Case{1, 1, 45, 2, 2},
                        Case{200, 100, -30, 224, 186}, Case{1, 1, 0, 2, 2}, Case{5, 1, 0, 6, 2}}) {
    TestDib page(MakeHeader(1, c.width, c.height));
    page.Fill(0, 0, c.width, c.height, 1);
    const TestDib turned(RotateDIB(page.handle(), c.angle));
    EXPECT_EQ(c.newWidth, turned.width()) << c.width << " at " << c.angle;
    EXPECT_EQ(c.newHeight, turned.height()) << c.width << " at " << c.angle;
    if (c.angle != 45 || c.width == 1) continue;
    for (const int corner : {0, 141}) {
      EXPECT_EQ(0u, turned.At(corner, 0));
      EXPECT_EQ(0u, turned.At(corner, 141));
    }
    EXPECT_EQ(1u, turned.At(70, 70));
  }
}

TEST(RotateDIB, TakesAnglesModuloAFullTurn) {
  const TestDib page = TestDib::Random(8, 37, 23, 1);
  struct Case {
    double angle, same;
  };
  for (const Case& c : {Case{-90, 270}, Case{450, 90}, Case{-0.0, 0}, Case{-1e-20, 0}, Case{-360, 0},
                        Case{33.5 + 360.0 * 1000000, 33.5}, Case{33.5 - 360.0 * 1000000, 33.5},
                        Case{1e300, std::fmod(1e300, 360.0)}, Case{360, 0}}) {
    const TestDib turned(RotateDIB(page.handle(), c.angle));
    const TestDib same(RotateDIB(page.handle(), c.same));
    EXPECT_EQ(same.block(), turned.block()) << c.angle;
  }
}

void ExpectAsReference(const TestDib& page, double angle) {
  SCOPED_TRACE(::testing::Message() << page.header().biBitCount << " bits, " << page.width() << " x "
                                    << page.height() << " by " << angle);
  SetRastrelError(kErrorBefore);
  const TestDib turned(RotateDIB(page.handle(), angle));
  ASSERT_EQ(Rounded(reference::Rotate(page.block(), angle)), turned.block());
  EXPECT_EQ(0, RastrelError());
  EXPECT_EQ(0u, GlobalFlags(turned.handle()));
  EXPECT_TRUE(page.Unchanged());
}

constexpr double kAngles[] = {0,  1e-9, 0.4, 3.7, -3.7, 12,    20,  45,    60,  89.9,
                              90, 91,   135, 177, 180,  183.7, 225, 266.3, 270, 315};

TEST(RotateDIB, EqualsThePixelByPixelWalk) {
  std::mt19937 engine(7);
  const auto random = [&engine] { return static_cast<uint32_t>(engine()); };
  for (const int bits : {1, 4, 8, 24}) {
    for (const int width : {1, 2, 7, 8, 9, 15, 31, 32, 33, 63, 64, 65, 100}) {
      for (const double angle : kAngles) {
        const auto height = static_cast<int>(1 + random() % 90);
        ExpectAsReference(TestDib::Random(bits, width, height, random()), angle);
        if (HasFatalFailure()) return;
      }
      ExpectAsReference(TestDib::Random(bits, width, 40, random()),
                        static_cast<double>(random() % 360000) / 1000);
    }
  }
}

TEST(RotateDIB, EqualsThePixelByPixelWalkAcrossTiles) {
  for (const int bits : {1, 4, 8, 24}) {
    for (const double angle : kAngles) {
      ExpectAsReference(TestDib::Random(bits, 1211, 643, 5), angle);
      if (HasFatalFailure()) return;
    }
    ExpectAsReference(TestDib::Random(bits, 3000, 1, 5), 30);
    ExpectAsReference(TestDib::Random(bits, 1, 3000, 5), 50);
  }
}

TEST(RotateDIB, ReadsTablesOfAnyLengthAndKeepsToTheBlock) {
  // Blocks end with the last row (sanitizers see a read beyond) or have slack behind it.
  for (const int bits : {1, 4, 8, 24}) {
    for (const unsigned colours : {1u, 3u, 300u}) {
      for (const size_t slack : {0, 8, 64}) {
        BITMAPINFOHEADER header = MakeHeader(bits, 48, 31);
        header.biClrUsed = colours;
        const TestDib plain(header);
        Bytes block = plain.block();
        block.resize(40 + colours * 4 + plain.pixelBytes() + slack);
        for (size_t i = 40; i < block.size(); ++i) block[i] = static_cast<uint8_t>(i * i >> 3);
        for (const double angle : {0.0, 5.0, 45.0, 90.0, 181.0}) ExpectAsReference(TestDib(block), angle);
      }
    }
  }
}

TEST(RotateDIB, KeptReadsSizesAsSixteenBits) {
  const TestDib page = TestDib::Random(8, 20, 10, 1);
  BITMAPINFOHEADER header = page.header();
  header.biWidth += 0x30000;
  header.biHeight -= 0x10000;
  TestDib wide(page.block());
  wide.SetHeader(header);
  const TestDib turned(RotateDIB(page.handle(), 10));
  const TestDib turnedWide(RotateDIB(wide.handle(), 10));
  EXPECT_EQ(turned.block(), turnedWide.block());
}

TEST(RotateDIB, TurnsResolutionsWithThePage) {
  struct Case {
    double angle;
    int x, y;
    int newX, newY;
  };
  constexpr int kMost = std::numeric_limits<int>::max();
  // By half a right angle both axes mix evenly: 2 / (1 / 3000 + 1 / 6000). Opposite signs cancel to more than
  // fits.
  for (const Case& c :
       {Case{0, 3000, 6000, 3000, 6000}, Case{90, 3000, 6000, 6000, 3000}, Case{270, 3000, 6000, 6000, 3000},
        Case{315, 3000, 6000, 4000, 4000}, Case{0, 0, 6000, 0, 0}, Case{30, 0, 0, 0, 0},
        Case{0, kMost, -5, kMost, -4}, Case{315, kMost, -kMost, 0, 0}}) {
    BITMAPINFOHEADER header = MakeHeader(1, 40, 40);
    header.biXPelsPerMeter = c.x;
    header.biYPelsPerMeter = c.y;
    const TestDib page(header);
    const TestDib turned(RotateDIB(page.handle(), c.angle));
    EXPECT_EQ(c.newX, turned.header().biXPelsPerMeter) << c.x << " at " << c.angle;
    EXPECT_EQ(c.newY, turned.header().biYPelsPerMeter) << c.y << " at " << c.angle;
  }
}

TEST(RotateDIB, RefusesInItsOrder) {
  struct Case {
    const char* name;
    int error;
    void (*spoil)(BITMAPINFOHEADER&);
  };
  const Case cases[] = {
      {"core header", ErrFileFormat, [](BITMAPINFOHEADER& h) { h.biSize = 12, h.biCompression = 1; }},
      {"run length", ErrCompressed, [](BITMAPINFOHEADER& h) { h.biCompression = 1, h.biWidth = 0; }},
      {"width wraps to 0", ErrDIBSize, [](BITMAPINFOHEADER& h) { h.biWidth = 65536; }},
      {"no height", ErrDIBSize, [](BITMAPINFOHEADER& h) { h.biHeight = 0, h.biBitCount = 16; }},
      {"2 bits", ErrBitsPerPixel, [](BITMAPINFOHEADER& h) { h.biBitCount = 2; }},
      {"32 bits", ErrBitsPerPixel, [](BITMAPINFOHEADER& h) { h.biBitCount = 32; }},
      {"more rows than the block", ErrDIBSize, [](BITMAPINFOHEADER& h) { h.biHeight += 1; }},
      {"top-down", ErrDIBSize, [](BITMAPINFOHEADER& h) { h.biHeight = -h.biHeight; }},
      {"more colours than the block", ErrDIBSize, [](BITMAPINFOHEADER& h) { h.biClrUsed = 0xFFFFFFFF; }}};
  for (const Case& c : cases) {
    BITMAPINFOHEADER header = MakeHeader(8, 16, 16);
    TestDib page(header);
    c.spoil(header);
    page.SetHeader(header);
    EXPECT_EQ(nullptr, RotateDIB(page.handle(), 5)) << c.name;
    EXPECT_EQ(c.error, RastrelError()) << c.name;
    EXPECT_TRUE(page.Unchanged()) << c.name;
  }
}

TEST(RotateDIB, RefusesBadHandlesAndAngles) {
  const TestDib page = TestDib::Random(1, 5, 5, 1);
  TestDib freed = TestDib::Random(1, 5, 5, 1);
  const HGLOBAL dead = freed.Release();
  GlobalFree(dead);
  struct Case {
    HGLOBAL dib;
    double angle;
    int error;
  };
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  for (const Case& c :
       {Case{nullptr, 1, ErrParameter}, Case{dead, 1, ErrLockMemory},
        Case{page.handle(), std::nan(""), ErrParameter}, Case{page.handle(), kInfinity, ErrParameter},
        Case{page.handle(), -kInfinity, ErrParameter}}) {
    EXPECT_EQ(nullptr, RotateDIB(c.dib, c.angle));
    EXPECT_EQ(c.error, RastrelError());
  }
  EXPECT_TRUE(page.Unchanged());
  for (const size_t bytes : {1, 12, 39, 40, 47}) {
    Bytes block = page.block();
    block.resize(bytes);
    const TestDib shortBlock(block);
    EXPECT_EQ(nullptr, RotateDIB(shortBlock.handle(), 1)) << bytes;
  }
}

TEST(RotateDIB, FailsWhereTheResultIsLargerThanABlock) {
  // 46340 * 46340 pixels of 3 bytes.
  const TestDib page(MakeHeader(24, 65535, 1));
  EXPECT_EQ(nullptr, RotateDIB(page.handle(), 45));
  EXPECT_EQ(ErrCreateBitmap, RastrelError());
}

TEST(RotateDIB, TriesAgainWhenMemoryRunsOutAndCleansUpWhenALockFails) {
  const TestDib page = TestDib::Random(8, 50, 50, 1);
  const auto turn = [](HGLOBAL dib) { return RotateDIB(dib, 30); };
  for (const FaultOutcome& outcome : RunWithFaults(host::Fault::kAllocation, page, turn)) {
    EXPECT_FALSE(outcome.failed) << outcome;
    EXPECT_EQ(0, outcome.error) << outcome;
    EXPECT_EQ(0u, outcome.leakedBlocks) << outcome;
  }
  ExpectEveryFault(host::Fault::kLock, page, ErrLockMemory, turn);
}

TEST(RotateDIB, ShowsTheWaitCursor) {
  std::vector<int> shown;
  RastrelHostSetCursor(
      [](void* context, int cursor) { static_cast<std::vector<int>*>(context)->push_back(cursor); }, &shown);
  EXPECT_EQ(nullptr, RotateDIB(nullptr, 1));
  RastrelHostSetCursor(nullptr, nullptr);
  EXPECT_EQ((std::vector<int>{32514, 0}), shown);
}

}  // namespace
}  // namespace rastrel::testing
