#include <gtest/gtest.h>
#include <rastrel.h>

#include "tests/reference/mirror.h"
#include "tests/support/faults.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

TEST(TurnDIB, TurnsAPictureCounterClockwise) {
  const TestDib page = TestDib::Drawn({"##.", "..#"});
  const std::vector<std::string> pictures[] = {
      {"##.", "..#"}, {".#", "#.", "#."}, {"#..", ".##"}, {".#", ".#", "#."}};
  for (int turns = -4; turns < 8; ++turns) {
    EXPECT_EQ(pictures[(turns + 4) % 4], TestDib(TurnDIB(page.handle(), turns)).Drawing()) << turns;
  }
}

void ExpectAsReference(const TestDib& page, std::initializer_list<int> quarterTurns) {
  for (const int turns : quarterTurns) {
    SetRastrelError(kErrorBefore);
    const TestDib turned(TurnDIB(page.handle(), turns));
    ASSERT_EQ(Rounded(reference::TurnDIB(page.block(), turns)), turned.block())
        << page.header().biBitCount << " bits, " << page.width() << " x " << page.height() << " by " << turns;
    EXPECT_EQ(0u, RastrelError() + GlobalFlags(turned.handle()));
    EXPECT_TRUE(page.Unchanged());
  }
}

TEST(TurnDIB, EqualsThePixelByPixelMove) {
  for (const int bits : {1, 2, 4, 8, 16, 24, 32}) {
    for (const int width :
         {1, 3, 7, 8, 9, 15, 16, 17, 31, 32, 33, 63, 64, 65, 127, 128, 129, 255, 256, 257}) {
      BITMAPINFOHEADER header = MakeHeader(bits, width, 1 + width * 37 % 140);
      header.biXPelsPerMeter = 3000;
      header.biSizeImage = 7;  // is set anew
      header.biClrUsed = 5;
      ExpectAsReference(TestDib::Random(header, 1), {0, 1, 2, 3});
    }
    ExpectAsReference(TestDib::Random(bits, 530, 521, 1), {1, 2, 3});
  }
  ExpectAsReference(TestDib::Random(8, 65535, 2, 1), {1, INT32_MIN, INT32_MAX});
}

TEST(TurnDIB, ReadsSizesAsSixteenBits) {
  const TestDib page = TestDib::Random(4, 20, 10, 1);
  const TestDib wide = page.With([](BITMAPINFOHEADER& header) { header.biWidth += 0x30000; });
  EXPECT_EQ(TestDib(TurnDIB(page.handle(), 1)).block(), TestDib(TurnDIB(wide.handle(), 1)).block());
}

TEST(TurnDIB, RefusesInItsOrderAndSurvivesFaults) {
  const TestDib page = TestDib::Random(8, 16, 16, 1);
  const auto expectRefusal = [&](int error, void (*spoil)(BITMAPINFOHEADER&)) {
    EXPECT_EQ(nullptr, TurnDIB(page.With(spoil).handle(), 1));
    EXPECT_EQ(error, RastrelError());
  };
  expectRefusal(ErrFileFormat, [](BITMAPINFOHEADER& h) { h.biSize = 12, h.biCompression = 1; });
  expectRefusal(ErrCompressed, [](BITMAPINFOHEADER& h) { h.biCompression = 1, h.biWidth = 0; });
  expectRefusal(ErrDIBSize, [](BITMAPINFOHEADER& h) { h.biHeight = 0, h.biBitCount = 15; });
  expectRefusal(ErrBitsPerPixel, [](BITMAPINFOHEADER& h) { h.biBitCount = 15, h.biHeight = 999; });
  const auto turn = [](HGLOBAL dib) { return TurnDIB(dib, 1); };
  ExpectRefusals({ErrParameter, ErrLockMemory, ErrDIBSize}, {1, 2, 4, 8, 16, 24, 32}, turn);
  EXPECT_EQ("oo", DrawOutcomes(host::Fault::kAllocation, page, 0, turn));  // tried again
  ExpectEveryFault(host::Fault::kLock, page, ErrLockMemory, turn);
}

}  // namespace
}  // namespace rastrel::testing
