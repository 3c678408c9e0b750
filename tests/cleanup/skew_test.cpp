#include <gtest/gtest.h>
#include <rastrel.h>

#include <array>
#include <bit>

#include "tests/support/faults.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

using Corners = std::array<int32_t, 8>;

// Unlocks the lock that a successful shear leaves, having checked that it is there.
void ExpectOneLock(const TestDib& page) {
  EXPECT_EQ(1u, GlobalFlags(page.handle()));
  GlobalUnlock(page.handle());
  EXPECT_TRUE(page.Unchanged());
}

// ---- SkewDIB ----------------------------------------------------------------------------------------

TEST(SkewDIB, MovesRowsByARampThatStartsOneRowApartForTheTwoSigns) {
  const TestDib page = TestDib::Drawn({"#..", "#..", "#.."});
  // What the shear uncovers is 0, here black.
  for (const auto& [shift, expected] : {std::pair{3, std::vector<std::string>{"###..#", "##..##", "#..###"}},
                                        {-3, {"##..##", "###..#", "####.."}}}) {
    EXPECT_EQ(expected, TestDib(SkewDIB(page.handle(), 1, shift, nullptr, nullptr)).Drawing());
    ExpectOneLock(page);
  }
}

TEST(SkewDIB, MovesColumnsUp) {
  TestDib page(MakeHeader(8, 3, 1));
  for (int x = 0; x < 3; ++x) page.Set(x, 0, static_cast<Pixel>(x + 1));
  // Rises of 0, 1, 2 pixels from left to right, and of 3, 2, 1.
  for (const auto& [shift, expected] : {std::pair{3, std::vector<Pixel>{0, 0, 0, 0, 0, 3, 0, 2, 0, 1, 0, 0}},
                                        {-3, {1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0}}})
    EXPECT_EQ(expected, TestDib(SkewDIB(page.handle(), 0, shift, nullptr, nullptr)).Pixels());
}

TEST(SkewDIB, KeptReportsTheCornersOfAWholeEdge) {
  struct Case {
    int horizontal, shift;
    Corners corners;
  };
  const TestDib page = TestDib::Random(1, 100, 50, 1);
  for (const Case& c :
       {Case{1, 0, {0, 0, 100, 0, 100, 50, 0, 50}}, Case{1, 1, {1, 0, 101, 0, 100, 50, 0, 50}},
        Case{1, 5, {5, 0, 105, 0, 100, 50, 0, 50}}, Case{1, -5, {0, 0, 100, 0, 105, 50, 5, 50}},
        Case{0, 4, {0, 4, 100, 4, 100, 50, 0, 50}}, Case{0, -4, {0, 0, 100, 0, 100, 54, 0, 54}}}) {
    SkewCorners corners = {};
    uint32_t error = 77;
    SetRastrelError(kErrorBefore);
    const TestDib sheared(SkewDIB(page.handle(), c.horizontal, c.shift, &error, &corners));
    EXPECT_EQ(c.corners, std::bit_cast<Corners>(corners));
    EXPECT_EQ(77u, error);
    EXPECT_EQ(0, RastrelError());
    ExpectOneLock(page);
  }
}

// ---- TrimBlackBorder --------------------------------------------------------------------------------

TEST(TrimBlackBorder, WhitensTheDarkEndsOfEveryRow) {
  const TestDib page = TestDib::Drawn({"###.##.#...##",  //
                                       ".###.....###.",  //
                                       "############.",  //
                                       "..##.........",  //
                                       "#############"});
  const TestDib trimmed(TrimBlackBorder(page.handle()));
  EXPECT_EQ((std::vector<std::string>{"....##.#.....",  //
                                      ".###.....###.",  //
                                      ".............",  //
                                      "..##.........",  //
                                      "............."}),
            trimmed.Drawing());
  EXPECT_TRUE(page.Unchanged());
}

TEST(TrimBlackBorder, SwallowsALoneLightPixelAndStopsAtTwo) {
  // At 8 bits dark is below 100 in the mean; the rows have no padding.
  TestDib page(MakeHeader(8, 12, 1));
  const Pixel row[12] = {0, 99, 200, 0, 100, 100, 0, 7, 150, 0, 255, 0};
  for (int x = 0; x < 12; ++x) page.Set(x, 0, row[x]);
  EXPECT_EQ((std::vector<Pixel>{255, 255, 255, 255, 100, 100, 255, 255, 255, 255, 255, 255}),
            TestDib(TrimBlackBorder(page.handle())).Pixels());
  // At 24 bits a light pixel among the first two from the right, or that begins in the last five bytes of the
  // row, is skipped.
  TestDib colour(MakeHeader(24, 4, 1));
  const Pixel pixels[4] = {0x646464, 0x000000, 0x0000FF, 0x010101};
  for (int x = 0; x < 4; ++x) colour.Set(x, 0, pixels[x]);
  EXPECT_EQ((std::vector<Pixel>{0xFFFFFF, 0xFFFFFF, 0xFFFFFF, 0xFFFFFF}),
            TestDib(TrimBlackBorder(colour.handle())).Pixels());
}

TEST(TrimBlackBorder, KeptLeavesPagesWhoseFirstColourIsNotBlack) {
  const TestDib page(MakeHeader(1, 40, 3), {{255, 255, 255, 0}, {0, 0, 0, 0}});
  EXPECT_EQ(page.block(), TestDib(TrimBlackBorder(page.handle())).block());
}

// ---- DeskewDIB --------------------------------------------------------------------------------------

TEST(DeskewDIB, TurnsAPageBackByItsSkew) {
  const TestDib page = TestDib::Ruled(8, 4);
  const TestDib straight(DeskewDIB(page.handle(), 1, 0, nullptr, 0));
  EXPECT_EQ(TestDib(RotateDIB(page.handle(), -4)).block(), straight.block());
  EXPECT_TRUE(page.Unchanged());
}

TEST(DeskewDIB, TrimsOnlyDarkTextOnRequestAndFreesTheTurnedPage) {
  const size_t live = host::LiveBlocks();
  for (const bool isTextDark : {true, false}) {
    Bytes block = TestDib::Ruled(8, -3).block();
    for (size_t i = 40; i < 40 + 1024; ++i)
      if (!isTextDark && i % 4 != 3) block[i] = static_cast<uint8_t>(255 - block[i]);
    const TestDib page(block), turned(RotateDIB(page.handle(), 3));
    const TestDib trimmed(TrimBlackBorder(turned.handle()));
    EXPECT_NE(trimmed.block(), turned.block());
    EXPECT_EQ((isTextDark ? trimmed : turned).block(),
              TestDib(DeskewDIB(page.handle(), isTextDark, 0, nullptr, 1)).block());
  }
  EXPECT_EQ(live, host::LiveBlocks());
}

TEST(DeskewDIB, ReturnsNullForAStraightPageWhereTheSkewCannotBeToldAndWithoutMemory) {
  SetRastrelError(kErrorBefore);
  EXPECT_EQ(nullptr, DeskewDIB(TestDib::Ruled(8, 0).handle(), 1, 0, nullptr, 1));
  EXPECT_EQ(nullptr, DeskewDIB(TestDib(MakeHeader(4, 50, 50)).handle(), 1, 0, nullptr, 1));
  EXPECT_EQ(nullptr, DeskewDIB(nullptr, 1, 0, nullptr, 1));
  EXPECT_EQ(kErrorBefore, RastrelError());
  const auto deskew = [](HGLOBAL dib) { return DeskewDIB(dib, 1, 0, nullptr, 1); };
  const auto outcomes = RunWithFaults(host::Fault::kAllocation, TestDib::Ruled(1, 5), deskew);
  EXPECT_GT(outcomes.size(), 3u);
  EXPECT_TRUE(outcomes.front().failed);
  for (const FaultOutcome& outcome : outcomes)
    EXPECT_TRUE(outcome.inputUnchanged && outcome.leakedBlocks == 0) << outcome;
}

}  // namespace
}  // namespace rastrel::testing
