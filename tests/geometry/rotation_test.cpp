#include <gtest/gtest.h>
#include <rastrel.h>

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
