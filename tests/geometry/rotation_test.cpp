#include "tests/reference/rotation.h"

#include <gtest/gtest.h>
#include <rastrel.h>

#include <cmath>
#include <limits>
#include <random>

#include "tests/support/faults.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

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
    EXPECT_EQ(c.expected, TestDib(c.turned).Pixels());
  }
  EXPECT_TRUE(page.Unchanged());
}

TEST(RotateDIB, KeptLosesALineOfEvenPagesAtHalfATurn) {
  const TestDib page = Numbered(2, 2);  // 1 2, 3 4: the column left of 1 and the row above 2 are not there
  EXPECT_EQ((std::vector<Pixel>{0, 2, 0, 0}), TestDib(RotateDIB180(page.handle())).Pixels());
}

TEST(RotateDIB, GivesBackAnEvenPageAtNoAngle) {
  for (const int bits : {1, 4, 8, 24}) {
    const TestDib page = TestDib::Random(bits, 514, 300, 1);
    EXPECT_EQ(page.Pixels(), TestDib(RotateDIB(page.handle(), 0)).Pixels()) << bits << " bits";
  }
}

TEST(RotateDIB, SizesTheResultForTheWholePage) {
  struct Case {
    int width, height;
    double angle;
    int newWidth, newHeight;
  };
  // Half sizes are rounded: 50 * sqrt(2) = 70.7 to 71, 0.707 to 1.
  for (const Case& c : {Case{101, 51, 90, 52, 102}, Case{1, 1, 45, 2, 2}, Case{200, 100, -30, 224, 186},
                        Case{5, 1, 0, 6, 2}, Case{100, 100, 45, 142, 142}}) {
    const TestDib turned(RotateDIB(TestDib::Plain(MakeHeader(1, c.width, c.height), 1).handle(), c.angle));
    EXPECT_EQ(c.newWidth, turned.width()) << c.width << " at " << c.angle;
    EXPECT_EQ(c.newHeight, turned.height()) << c.width << " at " << c.angle;
    if (c.width != 100) continue;
    for (const int x : {0, 141}) EXPECT_EQ(0u, turned.At(x, 0) | turned.At(x, 141));
    EXPECT_EQ(1u, turned.At(70, 70));
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

// All are taken modulo a full turn.
constexpr double kAngles[] = {0,   1e-9, 0.4, 3.7,  -3.7, 12,   20,     45,    60,          89.9,
                              90,  91,   135, 177,  180,  -180, 183.7,  225,   266.3,       270,
                              -90, 315,  360, -360, 450,  -0.0, -1e-20, 1e300, 360000033.5, -359999966.5};

TEST(RotateDIB, EqualsThePixelByPixelWalk) {
  std::mt19937 engine(7);
  const auto random = [&engine] { return static_cast<uint32_t>(engine()); };
  for (const int bits : {1, 4, 8, 24}) {
    for (const double angle : kAngles) {
      for (const int width : {1, 2, 7, 8, 9, 15, 31, 32, 33, 63, 64, 65, 100}) {
        const auto height = static_cast<int>(1 + random() % 90);
        ExpectAsReference(TestDib::Random(bits, width, height, random()), angle);
        ExpectAsReference(TestDib::Random(bits, width, 40, random()), random() % 360000 / 1000.0);
      }
      ExpectAsReference(TestDib::Random(bits, 1211, 643, 5), angle);  // across tiles
      if (HasFatalFailure()) return;
    }
    ExpectAsReference(TestDib::Random(bits, 3000, 1, 5), 30);
    ExpectAsReference(TestDib::Random(bits, 1, 3000, 5), 50);
  }
  for (const double angle : {0.0, 0.01, 180.0}) {
    ExpectAsReference(TestDib::Random(1, 65535, 2, 5), angle);
    ExpectAsReference(TestDib::Random(8, 2, 65535, 5), angle);
  }
  // Row starts of these fall on halves, where adding step by step and multiplying part ways.
  for (const double angle : {5.1990286326297879, 14.035824647388736, 38.156069257459954}) {
    ExpectAsReference(TestDib::Random(8, 64, 64, 5), angle);
  }
}

TEST(RotateDIB, ReadsTablesOfAnyLengthAndKeepsToTheBlock) {
  // Blocks end with the last row (sanitizers see a read beyond) or have slack behind it.
  for (const int bits : {1, 4, 8, 24}) {
    for (const unsigned colours : {1u, 3u, 300u}) {
      for (const size_t slack : {0, 8, 64}) {
        BITMAPINFOHEADER header = MakeHeader(bits, 48, 31);
        header.biClrUsed = colours;
        Bytes block = TestDib(header).block();
        block.resize(40 + colours * 4 + header.biSizeImage + slack);
        for (size_t i = 40; i < block.size(); ++i) block[i] = static_cast<uint8_t>(i * i >> 3);
        for (const double angle : {0.0, 5.0, 45.0, 90.0, 181.0}) ExpectAsReference(TestDib(block), angle);
      }
    }
  }
}

TEST(RotateDIB, KeptReadsSizesAsSixteenBits) {
  const TestDib page = TestDib::Random(8, 20, 10, 1);
  const TestDib wide = page.With([](BITMAPINFOHEADER& header) {
    header.biWidth += 0x30000;
    header.biHeight -= 0x10000;
  });
  EXPECT_EQ(TestDib(RotateDIB(page.handle(), 10)).block(), TestDib(RotateDIB(wide.handle(), 10)).block());
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
        Case{0, kMost, -5, kMost, -4}, Case{-1e-20, 3000, 1, 3000, 1}, Case{315, kMost, -kMost, 0, 0}}) {
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
  const TestDib page = TestDib::Random(8, 16, 16, 1);
  struct Case {
    int error;
    void (*spoil)(BITMAPINFOHEADER&);
  };
  for (const Case& c :
       {Case{ErrFileFormat, [](BITMAPINFOHEADER& h) { h.biSize = 12, h.biCompression = 1; }},
        Case{ErrCompressed, [](BITMAPINFOHEADER& h) { h.biCompression = 1, h.biWidth = 0; }},
        Case{ErrDIBSize, [](BITMAPINFOHEADER& h) { h.biHeight = 0, h.biBitCount = 16; }},
        Case{ErrBitsPerPixel, [](BITMAPINFOHEADER& h) { h.biBitCount = 2; }},
        Case{ErrBitsPerPixel, [](BITMAPINFOHEADER& h) { h.biBitCount = 32, h.biHeight++; }}}) {
    const TestDib spoilt = page.With(c.spoil);
    EXPECT_EQ(nullptr, RotateDIB(spoilt.handle(), 5));
    EXPECT_EQ(c.error, RastrelError());
    EXPECT_TRUE(spoilt.Unchanged());
  }
  ExpectRefusals({ErrParameter, ErrLockMemory, ErrDIBSize}, {1, 4, 8, 24},
                 [](HGLOBAL dib) { return RotateDIB(dib, 5); });
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  for (const double angle : {std::nan(""), kInfinity, -kInfinity}) {
    EXPECT_EQ(nullptr, RotateDIB(page.handle(), angle));
    EXPECT_EQ(ErrParameter, RastrelError());
  }
  EXPECT_TRUE(page.Unchanged());
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
  const std::string outcomes = DrawOutcomes(host::Fault::kAllocation, page, 0, turn);
  EXPECT_EQ(std::string(outcomes.size(), 'o'), outcomes);
  EXPECT_GT(outcomes.size(), 1u);
  ExpectEveryFault(host::Fault::kLock, page, ErrLockMemory, turn);
}

TEST(LongOperations, ShowTheWaitCursor) {
  const TestDib page = TestDib::Random(8, 9, 9, 1);
  HBITMAP bitmap = CreateBitmap(9, 9, 1, 8, nullptr);
  const auto expectCursor = [](auto operation, auto of) {
    std::vector<int> shown;
    RastrelHostSetCursor(
        [](void* context, int cursor) { static_cast<std::vector<int>*>(context)->push_back(cursor); },
        &shown);
    const auto result = operation(of);
    RastrelHostSetCursor(nullptr, nullptr);
    EXPECT_EQ((std::vector<int>{32514, 0}), shown);
    return result;
  };
  expectCursor([](HGLOBAL dib) { return RotateDIB(dib, 1); }, nullptr);
  for (const auto operation : {FlipDIBVertical, FlipDIBHorizontal})
    GlobalFree(expectCursor(operation, page.handle()));
  GlobalFree(expectCursor([](HGLOBAL dib) { return TurnDIB(dib, 1); }, page.handle()));
  for (const auto operation : {RotateBitmap90, ConvertToMonochromeBitmap})
    DeleteObject(expectCursor(operation, bitmap));
  expectCursor(RotateBitmap180, bitmap);
  DeleteObject(bitmap);
}

}  // namespace
}  // namespace rastrel::testing
