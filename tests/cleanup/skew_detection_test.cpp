#include <gtest/gtest.h>
#include <rastrel.h>

#include <cmath>
#include <cstring>
#include <random>

#include "platform/host/fault_injection.h"
#include "platform/platform.h"
#include "tests/cleanup/progress_recorder.h"
#include "tests/reference/skew_detection.h"
#include "tests/support/faults.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

constexpr Pixel kWhitePixel[] = {0, 1, 0, 0, 0, 0, 0, 0, 255};

// A page of one colour: index or 0xRRGGBB.
TestDib Plain(int bits, int width, int height, Pixel pixel) {
  TestDib page(MakeHeader(bits, width, height));
  page.Fill(0, 0, width, height, pixel);
  page.Settle();
  return page;
}

// Draws a rule through the middle of the page that rises by `degrees` toward the right.
void DrawRule(TestDib& page, double degrees, Pixel ink) {
  const double radians = degrees * 0.017453292519943295;
  for (int step = -200; step <= 200; ++step) {
    page.Fill(page.width() / 2 + static_cast<int>(std::lround(step * std::cos(radians))),
              page.height() / 2 - static_cast<int>(std::lround(step * std::sin(radians))), 2, 2, ink);
  }
}

int DetectDark(const TestDib& page) { return DetectSkewAngle(page.handle(), 1, 0, nullptr); }

TEST(DetectSkewAngle, FindsHowFarALineRises) {
  struct Case {
    double rise;
    int expected;
  };
  // Steeper lines count as upright ones that lean: 46 degrees are 44 short of upright.
  for (const Case& c : {Case{0, 0},
                        {3, 3},
                        {-3, -3},
                        {30, 30},
                        {45, 45},
                        {-44, -44},
                        {-45, 45},
                        {46, -44},
                        {87, -3},
                        {90, 0},
                        {93, 3}}) {
    TestDib page = Plain(1, 500, 500, 1);
    DrawRule(page, c.rise, 0);
    EXPECT_EQ(c.expected, DetectDark(page)) << c.rise;
  }
}

TEST(DetectSkewAngle, TakesForegroundByDepthAndPolarity) {
  const std::vector<RGBQUAD> whiteFirst = {{255, 255, 255, 0}, {0, 0, 0, 0}};
  const std::vector<RGBQUAD> almostBlack = {{0, 1, 0, 0}, {255, 255, 255, 0}};
  struct Case {
    int bits;
    std::vector<RGBQUAD> table;
    Pixel ground, ink;
    int dark;
    int expected;
  };
  for (const Case& c :
       {Case{1, {}, 1, 0, 1, 3}, Case{1, {}, 0, 1, 0, 3}, Case{1, whiteFirst, 0, 1, 1, 3},
        // Entry 0 is black or it is not; entry 1 says nothing.
        Case{1, almostBlack, 0, 1, 1, 3}, Case{1, almostBlack, 1, 0, 0, 3}, Case{8, {}, 255, 127, 1, 3},
        Case{8, {}, 0, 129, 0, 3},
        // A tone of 128 is neither dark nor light.
        Case{8, {}, 255, 128, 1, 0}, Case{8, {}, 0, 128, 0, 0}, Case{24, {}, 0xFFFFFF, 0x80807F, 1, 3},
        Case{24, {}, 0xFFFFFF, 0x808080, 1, 0}, Case{24, {}, 0x000000, 0x818181, 0, 3},
        Case{24, {}, 0x000000, 0x828180, 0, 3}, Case{24, {}, 0x000000, 0x828080, 0, 0}}) {
    SCOPED_TRACE(::testing::Message() << c.bits << " bits, ink " << c.ink << ", dark " << c.dark);
    TestDib page(MakeHeader(c.bits, 450, 450), c.table);
    page.Fill(0, 0, 450, 450, c.ground);
    DrawRule(page, 3, c.ink);
    EXPECT_EQ(c.expected, DetectSkewAngle(page.handle(), c.dark, 0, nullptr));
  }
}

TEST(DetectSkewAngle, WipesWhatTouchesTheTopOrBottomEdgeAcrossThreeGaps) {
  // A rule rising 3 degrees; each column is black from an edge down to `gaps` light cells before the rule.
  for (const int gaps : {3, 4}) {
    for (const bool fromTop : {true, false}) {
      SCOPED_TRACE(::testing::Message() << gaps << " gaps, from the top " << fromTop);
      TestDib page = Plain(1, 400, 400, 1);
      for (int x = 0; x < 400; ++x) {
        const int y = 200 - static_cast<int>(std::lround((x - 200) * 0.0524));
        page.Fill(x, y, 1, 2, 0);
        if (fromTop) page.Fill(x, 0, 1, y - gaps, 0);
        if (!fromTop) page.Fill(x, y + 2 + gaps, 1, 400 - (y + 2 + gaps), 0);
      }
      EXPECT_EQ(gaps == 3 ? 0 : 3, DetectDark(page));
    }
  }
  EXPECT_EQ(0, DetectDark(Plain(1, 400, 400, 0)));
}

TEST(DetectSkewAngle, KeptWrapsTheDiagonalAt32Bits) {
  // 46300 squared fits 31 bits, 46341 squared does not.
  for (const int width : {46300, 46341}) {
    TestDib page = Plain(1, width, 60, 1);
    for (int x = 0; x < 600; ++x) page.Fill(x, 40 - static_cast<int>(x * 0.0349), 1, 2, 0);
    EXPECT_EQ(width == 46300 ? 2 : 0, DetectDark(page)) << width;
  }
}

// Small clumps of foreground, as dense as `oneIn` says, over random padding, tables and slack.
Bytes SpeckledBlock(int bits, int width, int height, unsigned seed) {
  std::mt19937 engine(seed);
  const auto random = [&engine] { return static_cast<unsigned>(engine()); };
  TestDib page = TestDib::Random(bits, width, height, seed);
  const unsigned oneIn = 2 + random() % 60;
  const Pixel ground = bits == 24 ? 0xFFFFFF : kWhitePixel[bits];
  if (seed % 3 != 0) {
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) page.Set(x, y, random() % oneIn == 0 ? random() & ground : ground);
    }
  }
  Bytes block = page.block();
  const uint32_t colours = page.header().biClrUsed;
  if (seed % 2 == 0) {
    for (uint32_t i = 0; i < 4 * colours; ++i) block[40 + i] = static_cast<uint8_t>(random());
    if (bits == 1) block[40] = block[41] = block[42] = 0;
  }
  if (seed % 5 == 0 && bits == 8) {  // entries beyond the table are the rows themselves
    block.erase(block.begin() + 40 + 4 * 100, block.begin() + 40 + 4 * 256);
    block[32] = 100;
    block[33] = 0;
  }
  block.resize((block.size() + 8 * (seed % 3) + 7) / 8 * 8);
  return block;
}

TEST(DetectSkewAngle, EqualsTheReference) {
  struct Size {
    int width, height;
    int count;
  };
  int angles = 0;
  // Around words, the clump radii 0, 2, 4, 9 and 10, and coordinates of 16 bits.
  for (const Size& size : {Size{1, 1, 2},
                           {1, 70, 4},
                           {70, 1, 2},
                           {7, 9, 30},
                           {8, 12, 30},
                           {31, 40, 30},
                           {33, 63, 30},
                           {63, 64, 30},
                           {64, 65, 30},
                           {65, 128, 30},
                           {149, 150, 10},
                           {150, 150, 10},
                           {400, 333, 3},
                           {129, 1700, 1},
                           {1000, 900, 1},
                           {4100, 130, 1},
                           {66000, 14, 1}}) {
    for (int i = 0; i < size.count; ++i) {
      const int bits = i % 3 == 0 ? 1 : i % 3 == 1 ? 8 : 24;
      const unsigned seed = static_cast<unsigned>(size.width * 31 + size.height * 7 + i * 1009);
      SCOPED_TRACE(::testing::Message()
                   << bits << " bits, " << size.width << " x " << size.height << ", " << seed);
      const Bytes block = SpeckledBlock(bits, size.width, size.height, seed);
      const TestDib page(block);
      for (const int dark : {0, 1}) {
        const int angle = DetectSkewAngle(page.handle(), dark, 0, nullptr);
        EXPECT_EQ(reference::DetectSkewAngle(block, dark != 0), angle) << "dark " << dark;
        if (angle != 0) ++angles;
      }
      EXPECT_TRUE(page.Unchanged());
    }
  }
  EXPECT_GT(angles, 200);
}

TEST(DetectSkewAngle, GivesZeroAndNoErrorForWhatItCannotTake) {
  SetRastrelError(kErrorBefore);
  EXPECT_EQ(0, DetectSkewAngle(nullptr, 1, 0, nullptr));
  EXPECT_EQ(0, DetectSkewAngle(reinterpret_cast<HGLOBAL>(uintptr_t{0x1234}), 1, 0, nullptr));
  for (const int bits : {4, 16}) {
    TestDib page = Plain(8, 500, 500, 255);
    DrawRule(page, 3, 0);
    BITMAPINFOHEADER header = page.header();
    header.biBitCount = static_cast<uint16_t>(bits);
    header.biHeight = 200;
    page.SetHeader(header);
    EXPECT_EQ(0, DetectDark(page)) << bits;
  }
  for (const int bits : {1, 8, 24}) {
    for (const int side : {-1, 0, 99, 100, 0x7FFFFFFF}) {
      for (const bool wide : {true, false}) {
        TestDib page = Plain(bits, 64, 64, 0);
        BITMAPINFOHEADER header = page.header();
        (wide ? header.biWidth : header.biHeight) = side;
        page.SetHeader(header);
        EXPECT_EQ(0, DetectDark(page)) << bits << " bits, " << side;
      }
    }
    Bytes block = Plain(bits, 64, 64, 0).block();
    for (const size_t size : {size_t{8}, size_t{40}, size_t{64}, block.size() - 8}) {
      block.resize(size);
      EXPECT_EQ(0, DetectDark(TestDib(block))) << bits << " bits, " << size << " bytes";
    }
  }
  EXPECT_EQ(kErrorBefore, RastrelError());
}

TEST(DetectSkewAngle, GivesZeroWhenAnythingFails) {
  TestDib page = Plain(8, 500, 500, 255);
  DrawRule(page, 3, 0);
  page.Settle();
  // A dead handle stands for an angle that was found; freeing it does nothing.
  const auto found = [](int angle) { return angle == 3 ? reinterpret_cast<HGLOBAL>(uintptr_t{1}) : nullptr; };
  for (const host::Fault fault : {host::Fault::kAllocation, host::Fault::kLock}) {
    ExpectEveryFault(fault, page, kErrorBefore,
                     [&](HGLOBAL dib) { return found(DetectSkewAngle(dib, 1, 0, nullptr)); });
  }
  ExpectEveryFault(host::Fault::kCreation, page, kErrorBefore,
                   [&](HGLOBAL dib) { return found(DetectSkewAngle(dib, 1, 1, nullptr)); });
}

// ---- the progress window ----------------------------------------------------------------------------

// 23 x 16: a step at rows 10, 5 and 0 of the page (not at the bottom row, 15) and at columns 0, 5 ... 20.
constexpr int kSteps = 8;
TestDib SmallPage() { return Plain(1, 23, 16, 1); }

TEST(SkewProgress, ShowsAStepForEveryFifthRowAndColumn) {
  const TestDib page = SmallPage();
  for (const bool enabled : {true, false}) {
    ProgressRecorder progress;
    progress.parentEnabled = enabled;
    EXPECT_EQ(0, DetectSkewAngle(page.handle(), 1, 1, ProgressRecorder::kParent));
    EXPECT_EQ("Detect Skew Angle...", progress.caption);
    EXPECT_EQ(ProgressRecorder::kParent, progress.owner);
    EXPECT_EQ(kSteps, progress.position);
    EXPECT_EQ((23 + 16) / 5 + 1, progress.end);
    EXPECT_FALSE(progress.isOpen);
    EXPECT_EQ(enabled, progress.parentEnabled);
  }
}

TEST(SkewProgress, FindsTheSameAngleAsWithout) {
  TestDib page = Plain(8, 500, 500, 255);
  DrawRule(page, 7, 0);
  const ProgressRecorder progress;
  EXPECT_EQ(7, DetectSkewAngle(page.handle(), 1, 1, nullptr));
  EXPECT_EQ(200, progress.asked);
}

TEST(SkewProgress, CancelAtAnyStepClosesTheWindowAndEndsTheWork) {
  TestDib page = SmallPage();
  for (int step = 1; step <= kSteps; ++step) {
    const size_t blocks = host::LiveBlocks();
    ProgressRecorder progress(step);
    EXPECT_EQ(0, DetectSkewAngle(page.handle(), 1, 1, ProgressRecorder::kParent));
    EXPECT_EQ(step, progress.asked);
    EXPECT_EQ(step - 1, progress.position);
    EXPECT_FALSE(progress.isOpen);
    EXPECT_TRUE(progress.parentEnabled);
    EXPECT_EQ(blocks, host::LiveBlocks());
  }
  // What one call left behind does not stop the next.
  TestDib ruled = Plain(1, 500, 500, 1);
  DrawRule(ruled, 3, 0);
  EXPECT_EQ(3, DetectDark(ruled));
}

TEST(SkewProgress, KeptStaysOpenForAnotherDepthOrWithoutMemoryForTheVotes) {
  const TestDib page = SmallPage();
  const TestDib otherDepth = Plain(4, 23, 16, 1);
  for (const TestDib* dib : {&page, &otherDepth}) {
    ProgressRecorder progress;
    if (dib == &page) host::FailNth(host::Fault::kAllocation, 2);
    EXPECT_EQ(0, DetectSkewAngle(dib->handle(), 1, 1, ProgressRecorder::kParent));
    host::FailNth(host::Fault::kAllocation, 0);
    EXPECT_TRUE(progress.isOpen);
    EXPECT_FALSE(progress.parentEnabled);
    EXPECT_TRUE(dib->Unchanged());
    DestroyWindow(progress.window);
  }
}

TEST(SkewProgress, ARefusedWindowEndsTheCall) {
  const TestDib page = SmallPage();
  ProgressRecorder progress(0, /*refuses=*/true);
  const size_t blocks = host::LiveBlocks();
  EXPECT_EQ(0, DetectSkewAngle(page.handle(), 1, 1, ProgressRecorder::kParent));
  EXPECT_EQ(0, progress.asked);
  EXPECT_TRUE(progress.parentEnabled);
  EXPECT_EQ(blocks, host::LiveBlocks());
}

}  // namespace
}  // namespace rastrel::testing
