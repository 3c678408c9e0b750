#include <gtest/gtest.h>
#include <rastrel.h>

#include <array>
#include <bit>
#include <random>

#include "tests/reference/rotation.h"
#include "tests/reference/skew.h"
#include "tests/support/faults.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

constexpr int kWidths[] = {1, 2, 3, 7, 8, 9, 31, 32, 33, 63, 64, 65, 100};

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
       {Case{1, 0, {0, 0, 100, 0, 100, 50, 0, 50}}, Case{1, 5, {5, 0, 105, 0, 100, 50, 0, 50}},
        Case{1, -5, {0, 0, 100, 0, 105, 50, 5, 50}}, Case{0, 4, {0, 4, 100, 4, 100, 50, 0, 50}},
        Case{0, -4, {0, 0, 100, 0, 100, 54, 0, 54}}}) {
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

TEST(SkewDIB, EqualsThePixelByPixelShearAtEveryDepth) {
  for (const int bits : {1, 4, 8, 16, 24, 32}) {
    for (const int width : kWidths) {
      for (const int shift : {-200, -33, -8, -3, -1, 0, 1, 2, 5, 7, 31, 64, 97}) {
        const int height = 1 + (width * 7 + shift * shift) % 23;
        const TestDib page = TestDib::Random(bits, width, height, width);
        for (const bool horizontal : {true, false}) {
          SCOPED_TRACE(::testing::Message()
                       << bits << " bits, " << width << " x " << height << " by " << shift);
          SkewCorners corners = {};
          Corners expectedCorners;
          const TestDib sheared(SkewDIB(page.handle(), horizontal, shift, nullptr, &corners));
          ASSERT_EQ(Rounded(reference::SkewDIB(page.block(), horizontal, shift, expectedCorners.data())),
                    sheared.block());
          EXPECT_EQ(expectedCorners, std::bit_cast<Corners>(corners));
          ExpectOneLock(page);
        }
      }
    }
  }
}

TEST(SkewDIB, RefusesInItsOrder) {
  struct Case {
    uint32_t size, compression;
    int width, height, shift, error;
    bool corners;  // are written
  };
  for (const int horizontal : {0, 1}) {
    for (const Case& c :
         {Case{12, 1, 0, 0, 1, ErrParameter, false}, Case{40, 1, 0, 0, 1, ErrCompressed, false},
          Case{40, 0, 0, 4, 1, ErrDIBSize, false}, Case{40, 0, 4, 0, 1, ErrDIBSize, false},
          Case{40, 0, 4, -4, 1, ErrDIBSize, false}, Case{40, 0, 4, 5, 1, ErrDIBSize, true},
          Case{40, 0, 4, 4, INT32_MAX, ErrNoMemory, true}, Case{40, 0, 4, 4, INT32_MIN, ErrNoMemory, true}}) {
      SCOPED_TRACE(::testing::Message() << c.width << " x " << c.height << " by " << c.shift);
      const TestDib page = TestDib(MakeHeader(8, 4, 4)).With([&c](BITMAPINFOHEADER& header) {
        header.biSize = c.size;
        header.biCompression = c.compression;
        header.biWidth = c.width;
        header.biHeight = c.height;
      });
      uint32_t error = 77;
      SkewCorners corners = {9, 9, 9, 9, 9, 9, 9, 9};
      EXPECT_EQ(nullptr, SkewDIB(page.handle(), horizontal, c.shift, &error, &corners));
      EXPECT_EQ(static_cast<uint32_t>(c.error), error);
      EXPECT_EQ(c.error, RastrelError());
      EXPECT_EQ(c.corners, corners.x2 != 9);
      EXPECT_TRUE(page.Unchanged());
    }
    ExpectRefusals({ErrParameter, ErrLockMemory, ErrDIBSize}, {1, 8, 24}, [horizontal](HGLOBAL dib) {
      uint32_t error = 77;
      HGLOBAL result = SkewDIB(dib, horizontal, 1, &error, nullptr);
      EXPECT_EQ(static_cast<uint32_t>(RastrelError()), error);
      EXPECT_EQ(result, SkewDIB(dib, horizontal, 1, nullptr, nullptr));
      return result;
    });
  }
}

TEST(SkewDIB, SurvivesEveryFault) {
  const TestDib page = TestDib::Random(8, 20, 20, 1);
  const auto shear = [](HGLOBAL dib) {
    HGLOBAL result = SkewDIB(dib, 1, 5, nullptr, nullptr);
    if (result != nullptr) GlobalUnlock(dib);
    return result;
  };
  ExpectEveryFault(host::Fault::kAllocation, page, ErrNoMemory, shear);
  ExpectEveryFault(host::Fault::kLock, page, ErrLockMemory, shear);
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

// A page with noise that is mostly dark towards the sides, random padding, and slack behind it.
TestDib MarginPage(int bits, int width, int height, unsigned colours, unsigned seed) {
  BITMAPINFOHEADER header = MakeHeader(bits, width, height);
  if (bits == 8) header.biClrUsed = colours;
  Bytes block = Rounded(TestDib(header).block(), 16);
  std::mt19937 random(seed);
  for (size_t i = 40 + header.biClrUsed * 4; i < block.size(); ++i) {
    const auto noise = static_cast<unsigned>(random());
    const bool dark = noise % 16 != 0;
    const unsigned value = bits == 1   ? (dark ? 0 : noise >> 8)
                           : bits == 8 ? (noise >> 8) % (dark ? 90 : 256)
                                       : (dark ? 3 : 220);
    block[i] = static_cast<uint8_t>(value);
  }
  return TestDib(block);
}

TEST(TrimBlackBorder, EqualsThePixelByPixelTrim) {
  unsigned seed = 0;
  for (const int bits : {1, 8, 24}) {
    for (const int width : kWidths) {
      for (int round = 0; round < 20; ++round) {
        const unsigned colours = round % 3 == 0 ? 1 + seed % 255 : 256;
        const TestDib page = MarginPage(bits, width, 1 + round % 5, colours, ++seed);
        SCOPED_TRACE(::testing::Message() << bits << " bits, width " << width << ", seed " << seed);
        ASSERT_EQ(reference::TrimBlackBorder(page.block()), TestDib(TrimBlackBorder(page.handle())).block());
        ASSERT_TRUE(page.Unchanged());
      }
    }
  }
}

TEST(TrimBlackBorder, ReturnsNullAndSetsNoErrorForWhatItCannotTakeOrHold) {
  ExpectRefusals({}, {1, 8, 24}, TrimBlackBorder);
  for (const int bits : {4, 16, 32})
    EXPECT_EQ(nullptr, TrimBlackBorder(TestDib(MakeHeader(bits, 4, 4)).handle()));
  EXPECT_EQ(kErrorBefore, RastrelError());
  ExpectEveryFault(host::Fault::kAllocation, TestDib::Random(8, 20, 20, 1), kErrorBefore, TrimBlackBorder);
}

TEST(TrimBlackBorder, LeaksNothingWhereALockFails) {
  for (const FaultOutcome& outcome :
       RunWithFaults(host::Fault::kLock, TestDib::Random(8, 20, 20, 1), TrimBlackBorder)) {
    EXPECT_EQ(0u, outcome.leakedBlocks) << outcome;
    EXPECT_TRUE(outcome.inputUnchanged) << outcome;
  }
}

// ---- DeskewDIB --------------------------------------------------------------------------------------

TEST(DeskewDIB, TurnsAPageBackByItsSkew) {
  const TestDib page = TestDib::Ruled(8, 4);
  const TestDib straight(DeskewDIB(page.handle(), 1, 0, nullptr, 0));
  EXPECT_EQ(Rounded(reference::Rotate(page.block(), -4)), straight.block());
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
