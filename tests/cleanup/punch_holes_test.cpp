#include <gtest/gtest.h>
#include <rastrel.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "platform/host/fault_injection.h"
#include "platform/platform.h"
#include "tests/cleanup/progress_recorder.h"
#include "tests/reference/punch_holes.h"
#include "tests/support/faults.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

// 25 dots per inch: the band is 19 columns, the probe 3 x 3 and all of it must be dark, a 4 mm hole 3.9
// pixels, discs have a radius of 4 and their middle 2 right of and 1 below the probe's corner. Runs of more
// than 15 rows or 7 columns are lines.
constexpr int kDots25 = 1000;

// 8 bits: dark is 0, the light ground 200, and what is painted 255.
constexpr Pixel kGround = 200;

TestDib SmallPage(int width, int height, int dotsPerMetre = kDots25) {
  BITMAPINFOHEADER header = MakeHeader(8, width, height);
  header.biXPelsPerMeter = header.biYPelsPerMeter = dotsPerMetre;
  TestDib page(header);
  page.Fill(0, 0, width, height, kGround);
  page.Settle();
  return page;
}

// The page as a drawing: '#' dark, 'o' painted, '.' ground.
std::vector<std::string> Picture(const TestDib& page) {
  std::vector<std::string> rows;
  for (int y = 0; y < page.height(); ++y) {
    std::string row;
    for (int x = 0; x < page.width(); ++x)
      row += page.At(x, y) == 0 ? '#' : page.At(x, y) == kGround ? '.' : 'o';
    rows.push_back(row);
  }
  return rows;
}

TestDib Remove(const TestDib& page, int holeSize) {
  return TestDib(PunchHoleRemover(page.handle(), holeSize, 0, nullptr));
}

struct Box {
  int left, top, width, height;
};

TestDib WithBoxes(int width, int height, std::initializer_list<Box> boxes, int dotsPerMetre = kDots25) {
  TestDib page = SmallPage(width, height, dotsPerMetre);
  for (const Box& box : boxes) page.Fill(box.left, box.top, box.width, box.height, 0);
  page.Settle();
  return page;
}

TEST(PunchHoleRemover, PaintsADiscWhereTheProbeIsDark) {
  // The middle is at (8, 6); a cell of the square that the disc does not reach stays, as does all beyond.
  const TestDib page = WithBoxes(24, 14, {{6, 5, 3, 3}, {10, 8, 2, 2}, {20, 5, 3, 3}});
  EXPECT_EQ((std::vector<std::string>{"........................",  //
                                      "........................",  //
                                      "........................",  //
                                      "......ooooo.............",  //
                                      ".....ooooooo............",  //
                                      ".....ooooooo........###.",  //
                                      ".....ooooooo........###.",  //
                                      ".....ooooooo........###.",  //
                                      ".....ooooooo............",  //
                                      "......ooooo#............",  //
                                      "........................",  //
                                      "........................",  //
                                      "........................",  //
                                      "........................"}),
            Picture(Remove(page, 0)));
  EXPECT_TRUE(page.Unchanged());
}

TEST(PunchHoleRemover, KeptMovesADiscAtTheEdgeInward) {
  // The middle would be (2, 1). The box 1 .. 6, 1 .. 5 that is left of the disc has its middle at (3, 3),
  // too far from the corner.
  EXPECT_EQ((std::vector<std::string>{"#ooooo......",  //
                                      "ooooooo.....",  //
                                      "ooooooo.....",  //
                                      "ooooooo.....",  //
                                      "ooooooo.....",  //
                                      "ooooooo.....",  //
                                      ".ooooo......",  //
                                      "............"}),
            Picture(Remove(WithBoxes(12, 8, {{0, 0, 3, 3}}), 0)));
}

TEST(PunchHoleRemover, LeavesLinesAndWhatLiesOutsideTheBand) {
  struct Case {
    const char* what;
    int width, height;
    Box box;
    bool erased;
  };
  for (const Case& c : {Case{"7 wide", 40, 20, {2, 5, 7, 3}, true},
                        {"8 wide", 40, 20, {2, 5, 8, 3}, false},
                        {"8 wide from the last column but two of the band", 40, 20, {16, 5, 8, 3}, false},
                        {"8 wide of which 7 count", 26, 20, {17, 5, 8, 3}, false},
                        {"15 high", 40, 40, {6, 5, 3, 15}, true},
                        {"16 high", 40, 40, {6, 5, 3, 16}, false},
                        {"16 high of which 15 count", 40, 24, {6, 8, 3, 16}, true},
                        {"two rows", 40, 20, {6, 5, 7, 2}, false},
                        {"last column of the search", 40, 20, {15, 5, 3, 3}, true},
                        {"beyond the search", 40, 20, {16, 5, 3, 3}, false},
                        {"last row of the search", 40, 20, {6, 16, 3, 3}, true},
                        {"below the search", 40, 20, {6, 17, 3, 3}, false}}) {
    const TestDib page = WithBoxes(c.width, c.height, {c.box});
    EXPECT_EQ(c.erased, Picture(Remove(page, 0)) != Picture(page)) << c.what;
  }
}

TEST(PunchHoleRemover, KeptEndsTheWalkDownAColumnAfterHeightMinusFourSteps) {
  // 8 dots per inch: a probe and a disc are one cell, and 3 rows are a line. The walk's 6 steps do not come
  // to row 6 unless a run before it takes two rows in one step.
  EXPECT_EQ((std::vector<std::string>{"........",  //
                                      "........",  //
                                      "....o...",  //
                                      "....o...",  //
                                      "........",  //
                                      "........",  //
                                      "..o.#...",  //
                                      "..o.#...",  //
                                      "..o.#...",  //
                                      "........"}),
            Picture(Remove(WithBoxes(8, 10, {{2, 6, 1, 3}, {4, 2, 1, 2}, {4, 6, 1, 3}}, 315), 1)));
}

TEST(PunchHoleRemover, ProtectedCellsSurviveADisc) {
  // A line of one row across the disc, from the band to beyond it.
  const TestDib result = Remove(WithBoxes(40, 20, {{6, 5, 3, 3}, {2, 9, 30, 1}}), 0);
  EXPECT_EQ("..##############################........", Picture(result)[9]);
  EXPECT_EQ(".....ooooooo............................", Picture(result)[8]);
}

TEST(PunchHoleRemover, SizeCodesGiveMillimetres) {
  struct Case {
    int code;
    int radius;  // at 25 dots per inch as many pixels as the hole has millimetres; 0 for no result
  };
  for (const Case& c : {Case{-4, 0},
                        {INT32_MIN, 0},
                        {-3, 9},
                        {-2, 7},
                        {-1, 5},
                        {0, 4},
                        {1, 2},
                        {2, 3},
                        {3, 3},
                        {4, 4},
                        {10, 7}}) {
    const TestDib result = Remove(WithBoxes(40, 60, {{9, 30, 3, 3}}), c.code);
    ASSERT_EQ(c.radius != 0, static_cast<bool>(result)) << c.code;
    if (!result) continue;
    const std::vector<std::string> picture = Picture(result);
    const auto painted = std::count_if(picture.begin(), picture.end(), [](const std::string& row) {
      return row.find('o') != std::string::npos;
    });
    EXPECT_EQ(2 * c.radius - 1, painted) << c.code;
  }
  // However large a disc is said to be, it ends with the page.
  const std::string all(40, 'o');
  EXPECT_EQ(std::vector<std::string>(60, all),
            Picture(Remove(WithBoxes(40, 60, {{9, 30, 3, 3}}), INT32_MAX)));
}

TEST(PunchHoleRemover, PaintsTheLightColourOfEachDepth) {
  struct Case {
    int bits;
    std::vector<RGBQUAD> table;
    Pixel light, dark, painted;
  };
  for (const Case& c : {Case{1, {}, 1, 0, 1}, Case{1, {{255, 255, 255, 0}, {0, 0, 0, 0}}, 0, 1, 0},
                        Case{8, {}, 128, 127, 255}, Case{24, {}, 0x808080, 0x7F7F80, 0xFFFFFF}}) {
    BITMAPINFOHEADER header = MakeHeader(c.bits, 40, 20);
    header.biXPelsPerMeter = header.biYPelsPerMeter = kDots25;
    TestDib page(header, c.table);
    page.Fill(0, 0, 40, 20, c.light);
    page.Fill(6, 5, 3, 3, c.dark);
    page.Fill(20, 5, 3, 3, c.dark);
    TestDib expected(page.block());
    expected.Fill(6, 5, 3, 3, c.painted);
    if (c.bits != 1) {
      // The whole disc around (8, 6) shows.
      for (int y = 3; y <= 9; ++y) {
        const int half = y == 3 || y == 9 ? 2 : 3;
        expected.Fill(8 - half, y, 2 * half + 1, 1, c.painted);
      }
    }
    EXPECT_EQ(expected.block(), Remove(page, 0).block()) << c.bits << " bits, light " << c.light;
  }
}

TEST(PunchHoleRemover, ErasesHolesOfAScannedPage) {
  // 300 dots per inch: the probe of 35 x 35 needs 1091 dark cells. 1090 are 31 rows of 35 and one of 5.
  for (const int extra : {5, 6}) {
    TestDib page = SmallPage(300, 200, 11811);
    page.Fill(60, 60, 35, 31, 0);
    page.Fill(60, 91, extra, 1, 0);
    EXPECT_EQ(extra == 6 ? 255 : 0, Remove(page, 0).At(75, 75)) << extra;
  }
}

TEST(PunchHoleRemover, CopiesAPageWhereThereIsNothingToSearch) {
  for (const int dotsPerMetre : {0, 100, -11811, 11811}) {
    const TestDib page = WithBoxes(30, 20, {{0, 0, 9, 9}});
    BITMAPINFOHEADER header = page.header();
    header.biXPelsPerMeter = header.biYPelsPerMeter = dotsPerMetre;
    TestDib other(page.block());
    other.SetHeader(header);
    EXPECT_EQ(other.block(), Remove(other, 0).block()) << dotsPerMetre;
  }
}

// Dark blobs, bars and specks near the left edge.
Bytes BlottedBlock(int bits, int width, int height, int dotsPerMetre, unsigned seed) {
  std::mt19937 engine(seed);
  const auto below = [&engine](int n) { return static_cast<int>(engine() % static_cast<unsigned>(n)); };
  BITMAPINFOHEADER header = MakeHeader(bits, width, height);
  header.biXPelsPerMeter = header.biYPelsPerMeter = dotsPerMetre;
  TestDib page = TestDib::Random(bits, width, height, seed);
  page.SetHeader(header);
  const Pixel light = bits == 1 ? 1 : bits == 8 ? 250 : 0xF0F0F0;
  page.Fill(0, 0, width, height, light);
  for (int i = 0; i < 12; ++i) {
    const int boxWidth = 1 + below(std::min(width, 24));
    const int boxHeight = 1 + below(std::min(height, 40));
    page.Fill(below(width - boxWidth + 1), below(height - boxHeight + 1), boxWidth, boxHeight,
              i % 5 == 4 ? light : 0);
  }
  for (int i = width * height / 50; i > 0; --i)
    page.Set(below(width), below(height), below(2) == 0 ? light : 0);
  Bytes block = page.block();
  if (bits == 1 && seed % 2 == 0)
    std::swap_ranges(block.begin() + 40, block.begin() + 44, block.begin() + 44);
  if (bits == 8 && seed % 4 == 0) {  // a table of 16; entries beyond it are the rows or lie beyond the block
    block.erase(block.begin() + 40 + 4 * 16, block.begin() + 40 + 4 * 256);
    block[32] = 16;
    block[33] = 0;
  }
  block.resize((block.size() + 7) / 8 * 8 + 8 * (seed % 3));
  return block;
}

TEST(PunchHoleRemover, EqualsTheReference) {
  int changed = 0;
  unsigned seed = 0;
  // 5, 8, 10, 13, 25, 40, 76 and 90 dots per inch.
  for (const int dotsPerMetre : {197, 315, 394, 512, 1000, 1575, 3000, 3543}) {
    for (const int width : {1, 2, 7, 9, 18, 31, 33, 63, 65, 130}) {
      for (const int height : {1, 4, 6, 20, 63, 65, 131}) {
        ++seed;
        const int bits = seed % 3 == 0 ? 1 : seed % 3 == 1 ? 8 : 24;
        const int holeSize = static_cast<int>(seed % 8) - 3;
        SCOPED_TRACE(::testing::Message() << bits << " bits, " << width << " x " << height << ", "
                                          << dotsPerMetre << " dots, size " << holeSize);
        const Bytes block = BlottedBlock(bits, width, height, dotsPerMetre, seed);
        const TestDib page(block);
        const Bytes result = Remove(page, holeSize).block();
        EXPECT_EQ(reference::RemovePunchHoles(block, holeSize), result);
        EXPECT_TRUE(page.Unchanged());
        if (result != block) ++changed;
      }
    }
  }
  EXPECT_GT(changed, 100);
}

TEST(PunchHoleRemover, GivesNothingAndNoErrorForWhatItCannotTake) {
  SetRastrelError(kErrorBefore);
  EXPECT_EQ(nullptr, PunchHoleRemover(nullptr, 0, 0, nullptr));
  EXPECT_EQ(nullptr, PunchHoleRemover(reinterpret_cast<HGLOBAL>(uintptr_t{0x1234}), 0, 0, nullptr));
  const TestDib page = WithBoxes(40, 20, {{6, 5, 3, 3}});
  const auto refuses = [&page](auto change) {
    TestDib other(page.block());
    BITMAPINFOHEADER header = other.header();
    change(header);
    other.SetHeader(header);
    EXPECT_FALSE(Remove(other, 0));
    EXPECT_TRUE(other.Unchanged());
  };
  refuses([](BITMAPINFOHEADER& header) { header.biYPelsPerMeter++; });
  refuses([](BITMAPINFOHEADER& header) { header.biBitCount = 4; });
  refuses([](BITMAPINFOHEADER& header) { header.biBitCount = 0; });
  refuses([](BITMAPINFOHEADER& header) { header.biXPelsPerMeter = header.biYPelsPerMeter = INT32_MAX; });
  refuses([](BITMAPINFOHEADER& header) { header.biClrUsed = 0xFFFFFFFF; });
  for (const int side : {-20, 0, 41, INT32_MAX}) {
    refuses([side](BITMAPINFOHEADER& header) { header.biWidth = side; });
    refuses([side](BITMAPINFOHEADER& header) { header.biHeight = side; });
  }
  Bytes block = page.block();
  for (const size_t size : {block.size() - 8, size_t{40}, size_t{8}}) {
    block.resize(size);
    EXPECT_FALSE(Remove(TestDib(block), 0)) << size;
  }
  EXPECT_EQ(kErrorBefore, RastrelError());
}

TEST(PunchHoleRemover, GivesNothingWhenMemoryOrTheWindowFails) {
  const TestDib page = WithBoxes(40, 20, {{6, 5, 3, 3}});
  ExpectEveryFault(host::Fault::kAllocation, page, kErrorBefore,
                   [](HGLOBAL dib) { return PunchHoleRemover(dib, 0, 0, nullptr); });
  ExpectEveryFault(host::Fault::kCreation, page, kErrorBefore,
                   [](HGLOBAL dib) { return PunchHoleRemover(dib, 0, 1, nullptr); });
}

TEST(PunchHoleRemover, KeptLeavesACopyThatCannotBeLocked) {
  const TestDib page = WithBoxes(40, 20, {{6, 5, 3, 3}});
  const std::vector<FaultOutcome> outcomes = RunWithFaults(
      host::Fault::kLock, page, [](HGLOBAL dib) { return PunchHoleRemover(dib, 0, 0, nullptr); });
  // The page, the work block, the two locks of the duplication (which then gives a blank block), the copy.
  ASSERT_EQ(6u, outcomes.size());
  const bool failed[] = {true, true, false, false, true, false};
  for (size_t i = 0; i < outcomes.size(); ++i) {
    EXPECT_EQ(failed[i], outcomes[i].failed) << outcomes[i];
    EXPECT_EQ(i == 4 ? 1u : 0u, outcomes[i].leakedBlocks) << outcomes[i];
    EXPECT_EQ(kErrorBefore, outcomes[i].error) << outcomes[i];
    EXPECT_EQ(0u, outcomes[i].locks) << outcomes[i];
  }
}

// ---- the progress window ----------------------------------------------------------------------------

// 40 x 16: a step at rows 10, 5 and 0 of the page (not at the bottom row, 15) and at columns 0, 5, 10 and 15
// of the search.
constexpr int kSteps = 7;
TestDib ProgressPage() { return WithBoxes(40, 16, {{6, 5, 3, 3}}); }

TEST(PunchProgress, ShowsAStepForEveryFifthRowAndColumn) {
  const TestDib page = ProgressPage();
  ProgressRecorder progress;
  const TestDib result(PunchHoleRemover(page.handle(), 0, 1, ProgressRecorder::kParent));
  EXPECT_EQ(Remove(page, 0).block(), result.block());
  EXPECT_EQ("Punch Hole Removal...", progress.caption);
  EXPECT_EQ(kSteps, progress.position);
  EXPECT_EQ((16 + 19 - 3 + 1) / 5 + 1, progress.end);
  EXPECT_FALSE(progress.isOpen);
  EXPECT_TRUE(progress.parentEnabled);
}

TEST(PunchProgress, CancelAtAnyStepClosesTheWindowAndEndsTheWork) {
  const TestDib page = ProgressPage();
  for (int step = 1; step <= kSteps; ++step) {
    const size_t blocks = host::LiveBlocks();
    ProgressRecorder progress(step);
    EXPECT_EQ(nullptr, PunchHoleRemover(page.handle(), 0, 1, ProgressRecorder::kParent));
    EXPECT_EQ(step, progress.asked);
    EXPECT_FALSE(progress.isOpen);
    EXPECT_TRUE(progress.parentEnabled);
    EXPECT_EQ(blocks, host::LiveBlocks());
  }
  EXPECT_TRUE(Remove(page, 0)) << "what one call left behind does not stop the next";
}

TEST(PunchProgress, KeptStaysOpenForAnotherDepthOrWithoutACopy) {
  const TestDib page = ProgressPage();
  const TestDib otherDepth(MakeHeader(4, 40, 16));
  struct Case {
    const TestDib* dib;
    host::Fault fault;
    int n;
  };
  for (const Case& c : {Case{&otherDepth, host::Fault::kLock, 0}, Case{&page, host::Fault::kAllocation, 2},
                        Case{&page, host::Fault::kLock, 5}}) {
    ProgressRecorder progress;
    host::FailNth(c.fault, c.n);
    EXPECT_EQ(nullptr, PunchHoleRemover(c.dib->handle(), 0, 1, ProgressRecorder::kParent));
    host::FailNth(c.fault, 0);
    EXPECT_TRUE(progress.isOpen);
    EXPECT_FALSE(progress.parentEnabled);
    DestroyWindow(progress.window);
  }
}

}  // namespace
}  // namespace rastrel::testing
