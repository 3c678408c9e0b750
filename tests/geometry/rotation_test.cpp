#include <gtest/gtest.h>
#include <rastrel.h>

#include <limits>

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
