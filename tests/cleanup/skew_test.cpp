#include <gtest/gtest.h>
#include <rastrel.h>

#include <cmath>
#include <cstring>
#include <random>

#include "tests/reference/rotation.h"
#include "tests/reference/skew.h"
#include "tests/support/faults.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

constexpr int kWidths[] = {1, 2, 3, 7, 8, 9, 31, 32, 33, 63, 64, 65, 100};

// What `reference` returned, as large as the platform makes such a block.
Bytes Rounded(Bytes block) {
  block.resize((block.size() + 7) / 8 * 8);
  return block;
}

std::vector<int32_t> Flat(const SkewCorners& corners) {
  std::vector<int32_t> flat(8);
  std::memcpy(flat.data(), &corners, sizeof(corners));
  return flat;
}

// Unlocks the lock that a successful shear leaves, having checked that it is there.
void ExpectOneLock(const TestDib& page) {
  EXPECT_EQ(1u, GlobalFlags(page.handle()));
  GlobalUnlock(page.handle());
  EXPECT_TRUE(page.Unchanged());
}

// ---- SkewDIB
// -----------------------------------------------------------------------------------------------------

TEST(SkewDIB, MovesRowsByARampThatStartsOneRowApartForTheTwoSigns) {
  const TestDib page = TestDib::Drawn({"#..",  //
                                       "#..",  //
                                       "#.."});
  struct Case {
    int shift;
    std::vector<std::string> expected;
  };
  // What the shear uncovers is 0, here black.
  for (const Case& c : {Case{3, {"###..#", "##..##", "#..###"}}, Case{-3, {"##..##", "###..#", "####.."}},
                        Case{0, {"#..", "#..", "#.."}}}) {
    const TestDib sheared(SkewDIB(page.handle(), 1, c.shift, nullptr, nullptr));
    EXPECT_EQ(c.expected, sheared.Drawing()) << c.shift;
    ExpectOneLock(page);
  }
}

TEST(SkewDIB, MovesColumnsUp) {
  // Rises of 0, 1, 2 pixels from left to right, and of 3, 2, 1.
  TestDib page(MakeHeader(8, 3, 1));
  for (int x = 0; x < 3; ++x) page.Set(x, 0, static_cast<Pixel>(x + 1));
  page.Settle();
  const TestDib rising(SkewDIB(page.handle(), 0, 3, nullptr, nullptr));
  EXPECT_EQ((std::vector<Pixel>{0, 0, 0, 0, 0, 3, 0, 2, 0, 1, 0, 0}), rising.Pixels());
  ExpectOneLock(page);
  const TestDib falling(SkewDIB(page.handle(), 0, -3, nullptr, nullptr));
  EXPECT_EQ((std::vector<Pixel>{1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0}), falling.Pixels());
  ExpectOneLock(page);
}

TEST(SkewDIB, KeptReportsTheCornersOfAWholeEdge) {
  struct Case {
    int horizontal;
    int shift;
    int width, height;
    std::vector<int32_t> corners;
  };
  for (const Case& c : {Case{1, 0, 100, 50, {0, 0, 100, 0, 100, 50, 0, 50}},
                        Case{1, 5, 105, 50, {5, 0, 105, 0, 100, 50, 0, 50}},
                        Case{1, -5, 105, 50, {0, 0, 100, 0, 105, 50, 5, 50}},
                        Case{0, 4, 100, 54, {0, 4, 100, 4, 100, 50, 0, 50}},
                        Case{0, -4, 100, 54, {0, 0, 100, 0, 100, 54, 0, 54}}}) {
    const TestDib page = TestDib::Random(1, 100, 50, 1);
    SkewCorners corners = {};
    uint32_t error = 77;
    SetRastrelError(5);
    const TestDib sheared(SkewDIB(page.handle(), c.horizontal, c.shift, &error, &corners));
    EXPECT_EQ(c.width, sheared.width());
    EXPECT_EQ(c.height, sheared.height());
    EXPECT_EQ(c.corners, Flat(corners));
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
        const TestDib page = bits <= 8 || bits == 24 ? TestDib::Random(bits, width, height, width)
                                                     : TestDib(MakeHeader(bits, width, height));
        for (const bool horizontal : {true, false}) {
          SCOPED_TRACE(::testing::Message()
                       << bits << " bits, " << width << " x " << height << " by " << shift);
          SkewCorners corners = {};
          std::vector<int32_t> expectedCorners(8);
          const TestDib sheared(SkewDIB(page.handle(), horizontal, shift, nullptr, &corners));
          ASSERT_EQ(Rounded(reference::SkewDIB(page.block(), horizontal, shift, expectedCorners.data())),
                    sheared.block());
          EXPECT_EQ(expectedCorners, Flat(corners));
          ExpectOneLock(page);
        }
      }
    }
  }
}

TEST(SkewDIB, RefusesInItsOrder) {
  struct Case {
    const char* name;
    uint32_t size, compression;
    int width, height, shift;
    int error;
    bool corners;  // are written
  };
  for (const Case& c : {Case{"header size", 12, 1, 0, 0, 1, ErrParameter, false},
                        Case{"compressed", 40, 1, 0, 0, 1, ErrCompressed, false},
                        Case{"no width", 40, 0, 0, 4, 1, ErrDIBSize, false},
                        Case{"no height", 40, 0, 4, 0, 1, ErrDIBSize, false},
                        Case{"upside down", 40, 0, 4, -4, 1, ErrDIBSize, false},
                        Case{"more rows than the block", 40, 0, 4, 5, 1, ErrDIBSize, true},
                        Case{"longer rows than the block", 40, 0, 0x7FFFFFFF, 1, 1, ErrDIBSize, true},
                        Case{"too wide", 40, 0, 4, 4, INT32_MAX, ErrNoMemory, true},
                        Case{"too wide to the left", 40, 0, 4, 4, INT32_MIN, ErrNoMemory, true}}) {
    for (const int horizontal : {0, 1}) {
      SCOPED_TRACE(c.name);
      TestDib page(MakeHeader(8, 4, 4));
      BITMAPINFOHEADER header = page.header();
      header.biSize = c.size;
      header.biCompression = c.compression;
      header.biWidth = c.width;
      header.biHeight = c.height;
      page.SetHeader(header);
      uint32_t error = 77;
      SkewCorners corners = {9, 9, 9, 9, 9, 9, 9, 9};
      EXPECT_EQ(nullptr, SkewDIB(page.handle(), horizontal, c.shift, &error, &corners));
      EXPECT_EQ(static_cast<uint32_t>(c.error), error);
      EXPECT_EQ(c.error, RastrelError());
      EXPECT_EQ(c.corners, corners.x2 != 9);
      EXPECT_TRUE(page.Unchanged());
      EXPECT_EQ(nullptr, SkewDIB(page.handle(), horizontal, c.shift, nullptr, nullptr));
    }
  }
  uint32_t error = 77;
  EXPECT_EQ(nullptr, SkewDIB(nullptr, 1, 1, &error, nullptr));
  EXPECT_EQ(static_cast<uint32_t>(ErrParameter), error);
  EXPECT_EQ(nullptr, SkewDIB(reinterpret_cast<HGLOBAL>(uintptr_t{0x77}), 1, 1, &error, nullptr));
  EXPECT_EQ(static_cast<uint32_t>(ErrLockMemory), error);
  const TestDib tiny(Bytes{40, 0, 0, 0});
  EXPECT_EQ(nullptr, SkewDIB(tiny.handle(), 1, 1, &error, nullptr));
  EXPECT_EQ(static_cast<uint32_t>(ErrDIBSize), error);
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

// ---- TrimBlackBorder
// ---------------------------------------------------------------------------------------------

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
  Bytes block = TestDib(header).block();
  block.resize(block.size() + 16);
  std::mt19937 random(seed);
  const size_t first = 40 + header.biClrUsed * 4;
  for (size_t i = first; i < block.size(); ++i) {
    const auto noise = static_cast<unsigned>(random());
    const bool dark = noise % 16 != 0;
    if (bits == 1) {
      block[i] = dark ? 0 : static_cast<uint8_t>(noise >> 8);
    } else if (bits == 8) {
      block[i] = static_cast<uint8_t>((noise >> 8) % (dark ? 90 : 256));
    } else {
      block[i] = dark ? 3 : 220;
    }
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

TEST(TrimBlackBorder, ReturnsNullForOtherDepthsAndBadBlocksAndSetsNoError) {
  SetRastrelError(kErrorBefore);
  for (const int bits : {4, 16, 32})
    EXPECT_EQ(nullptr, TrimBlackBorder(TestDib(MakeHeader(bits, 4, 4)).handle()));
  EXPECT_EQ(nullptr, TrimBlackBorder(nullptr));
  EXPECT_EQ(nullptr, TrimBlackBorder(reinterpret_cast<HGLOBAL>(uintptr_t{0x77})));
  TestDib lying(MakeHeader(24, 4, 4));
  lying.SetHeader(MakeHeader(24, 4, 5));
  EXPECT_EQ(nullptr, TrimBlackBorder(lying.handle()));
  EXPECT_EQ(kErrorBefore, RastrelError());
}

TEST(TrimBlackBorder, SurvivesEveryAllocationFault) {
  const TestDib page = TestDib::Random(8, 20, 20, 1);
  ExpectEveryFault(host::Fault::kAllocation, page, kErrorBefore, TrimBlackBorder);
}

// ---- DeskewDIB
// ---------------------------------------------------------------------------------------------------

// A page of rules that rise to the right by `degrees`, dark on light.
TestDib RuledPage(int bits, int degrees) {
  constexpr int kSize = 500;
  TestDib page(MakeHeader(bits, kSize, kSize));
  page.Fill(0, 0, kSize, kSize, bits == 24 ? 0xFFFFFF : (1u << bits) - 1);
  for (int line = 100; line <= 400; line += 50) {
    for (int x = 100; x < 400; ++x) {
      page.Set(x, line - static_cast<int>((x - 250) * std::tan(degrees * 3.14159265 / 180) + 0.5), 0);
    }
  }
  page.Settle();
  return page;
}

TEST(DeskewDIB, TurnsAPageBackByItsSkew) {
  const TestDib page = RuledPage(8, 4);
  ASSERT_EQ(4, DetectSkewAngle(page.handle(), 1, 0, nullptr));
  const TestDib straight(DeskewDIB(page.handle(), 1, 0, nullptr, 0));
  EXPECT_EQ(Rounded(reference::Rotate(page.block(), -4)), straight.block());
  EXPECT_TRUE(page.Unchanged());
}

TEST(DeskewDIB, TrimsOnlyDarkTextOnRequestAndFreesTheTurnedPage) {
  const TestDib page = RuledPage(8, -3);
  const size_t live = host::LiveBlocks();
  {
    const TestDib turned(RotateDIB(page.handle(), 3));
    const TestDib trimmed(TrimBlackBorder(turned.handle()));
    EXPECT_EQ(trimmed.block(), TestDib(DeskewDIB(page.handle(), 1, 0, nullptr, 1)).block());
    EXPECT_NE(trimmed.block(), turned.block());

    Bytes negative = page.block();
    for (size_t i = 40; i < 40 + 1024; ++i)
      negative[i] = static_cast<uint8_t>(i % 4 == 3 ? 0 : 255 - negative[i]);
    const TestDib lightText(negative);
    const TestDib lightTurned(RotateDIB(lightText.handle(), 3));
    EXPECT_EQ(lightTurned.block(), TestDib(DeskewDIB(lightText.handle(), 0, 0, nullptr, 1)).block());
  }
  EXPECT_EQ(live, host::LiveBlocks());
}

TEST(DeskewDIB, ReturnsNullForAStraightPageAndWhereTheSkewCannotBeTold) {
  SetRastrelError(kErrorBefore);
  EXPECT_EQ(nullptr, DeskewDIB(RuledPage(8, 0).handle(), 1, 0, nullptr, 1));
  EXPECT_EQ(nullptr, DeskewDIB(TestDib(MakeHeader(4, 50, 50)).handle(), 1, 0, nullptr, 1));
  EXPECT_EQ(nullptr, DeskewDIB(nullptr, 1, 0, nullptr, 1));
  EXPECT_EQ(kErrorBefore, RastrelError());
}

TEST(DeskewDIB, SurvivesEveryAllocationFault) {
  const TestDib page = RuledPage(1, 5);
  const std::vector<FaultOutcome> outcomes = RunWithFaults(
      host::Fault::kAllocation, page, [](HGLOBAL dib) { return DeskewDIB(dib, 1, 0, nullptr, 1); });
  EXPECT_GT(outcomes.size(), 3u);
  for (const FaultOutcome& outcome : outcomes) {
    EXPECT_EQ(0u, outcome.leakedBlocks) << outcome;
    EXPECT_TRUE(outcome.inputUnchanged) << outcome;
  }
  EXPECT_TRUE(outcomes.front().failed);
}

}  // namespace
}  // namespace rastrel::testing
