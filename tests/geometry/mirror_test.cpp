#include <gtest/gtest.h>
#include <rastrel.h>

#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

TEST(FlipDIB, MirrorsAPicture) {
  const TestDib page = TestDib::Drawn({"#........#.", "#.#.#....##"});
  EXPECT_EQ((std::vector<std::string>{".#........#", "##....#.#.#"}),
            TestDib(FlipDIBHorizontal(page.handle())).Drawing());
  EXPECT_EQ((std::vector<std::string>{"#.#.#....##", "#........#."}),
            TestDib(FlipDIBVertical(page.handle())).Drawing());
}

TEST(FlipDIB, KeptLeavesPagesOfTwoBitsBlankLeftToRight) {
  const TestDib page = TestDib::Random(2, 40, 4, 1);
  EXPECT_EQ(std::vector<Pixel>(160, 0), TestDib(FlipDIBHorizontal(page.handle())).Pixels());
}

TEST(TurnDIB, TurnsAPictureCounterClockwise) {
  const TestDib page = TestDib::Drawn({"##.", "..#"});
  const std::vector<std::string> pictures[] = {
      {"##.", "..#"}, {".#", "#.", "#."}, {"#..", ".##"}, {".#", ".#", "#."}};
  for (int turns = -4; turns < 8; ++turns) {
    EXPECT_EQ(pictures[(turns + 4) % 4], TestDib(TurnDIB(page.handle(), turns)).Drawing()) << turns;
  }
}

TEST(TurnDIB, ReadsSizesAsSixteenBits) {
  const TestDib page = TestDib::Random(4, 20, 10, 1);
  const TestDib wide = page.With([](BITMAPINFOHEADER& header) { header.biWidth += 0x30000; });
  EXPECT_EQ(TestDib(TurnDIB(page.handle(), 1)).block(), TestDib(TurnDIB(wide.handle(), 1)).block());
}

}  // namespace
}  // namespace rastrel::testing
