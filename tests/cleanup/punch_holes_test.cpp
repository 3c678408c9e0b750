#include <gtest/gtest.h>
#include <rastrel.h>

#include "tests/cleanup/progress_recorder.h"
#include "tests/cleanup/punched_pages.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

// At 25 dots per inch the band is 19 columns, the probe 3 x 3 and all of it must be dark, a 4 mm hole 3.9
// pixels, discs have a radius of 4 and their middle 2 right of and 1 below the probe's corner. Runs of more
// than 15 rows or 7 columns are lines.
constexpr Box kHole = {6, 5, 3, 3};

TestDib Remove(const TestDib& page, int holeSize) {
  return TestDib(PunchHoleRemover(page.handle(), holeSize, 0, nullptr));
}

std::vector<std::string> Removed(const TestDib& page, int holeSize = 0) {
  return DrawnBoxes(Remove(page, holeSize));
}

TEST(PunchHoleRemover, PaintsADiscWhereTheProbeIsDarkAndSparesLines) {
  // The middle is at (8, 6); a cell of the square that the disc does not reach stays, as do all beyond and a
  // line of one row across the disc.
  const TestDib page = WithBoxes(28, 12, {kHole, {10, 9, 2, 2}, {20, 4, 3, 3}, {2, 8, 24, 1}});
  EXPECT_EQ((std::vector<std::string>{"............................",  //
                                      "............................",  //
                                      "............................",  //
                                      "......ooooo.................",  //
                                      ".....ooooooo........###.....",  //
                                      ".....ooooooo........###.....",  //
                                      ".....ooooooo........###.....",  //
                                      ".....ooooooo................",  //
                                      "..########################..",  //
                                      "......ooooo#................",  //
                                      "..........##................",  //
                                      "............................"}),
            Removed(page));
}

TEST(PunchHoleRemover, KeptMovesADiscAtTheEdgeInward) {
  // The middle would be (2, 1). The box 1 .. 6, 1 .. 5 that is left of the disc has its middle at (3, 3),
  // too far from the corner.
  EXPECT_EQ((std::vector<std::string>{"#ooooo......", "ooooooo.....", "ooooooo.....", "ooooooo.....",
                                      "ooooooo.....", "ooooooo.....", ".ooooo......", "............"}),
            Removed(WithBoxes(12, 8, {{0, 0, 3, 3}})));
}

TEST(PunchHoleRemover, NeedsMoreDarkCellsThanTheProductAsRounded) {
  // At 762 dots per inch the probe is 90 x 90, and 90 * 0.89 * 90 comes out just below 7209.
  for (const int extra : {8, 9}) {
    const TestDib page = WithBoxes(120, 100, {{5, 5, 90, 80}, {5, 85, extra, 1}}, 30000);
    EXPECT_EQ(extra == 9, Remove(page, 0).block() != page.block()) << extra;
  }
}

TEST(PunchHoleRemover, LeavesLinesAndWhatLiesOutsideTheBand) {
  struct Case {
    const char* what;
    int height;
    Box erased, left;
  };
  for (const Case& c : {Case{"a width of 7, not 8", 20, {2, 5, 7, 3}, {2, 5, 8, 3}},
                        Case{"a height of 15, not 16", 40, {6, 5, 3, 15}, {6, 5, 3, 16}},
                        Case{"16 rows of which 15 count, not 2 rows", 24, {6, 8, 3, 16}, {6, 5, 7, 2}},
                        Case{"the last column of the search", 20, {15, 5, 3, 3}, {16, 5, 3, 3}},
                        Case{"the last row of the search", 20, {6, 16, 3, 3}, {6, 17, 3, 3}}}) {
    const TestDib erased = WithBoxes(40, c.height, {c.erased}), left = WithBoxes(40, c.height, {c.left});
    EXPECT_NE(erased.block(), Remove(erased, 0).block()) << c.what;
    EXPECT_EQ(left.block(), Remove(left, 0).block()) << c.what;
  }
}

TEST(PunchHoleRemover, KeptEndsTheWalkDownAColumnAfterHeightMinusFourSteps) {
  // 8 dots per inch: a probe and a disc are one cell, and 3 rows are a line. The walk's 6 steps do not come
  // to row 6 unless a run before it takes two rows in one step.
  EXPECT_EQ((std::vector<std::string>{"........", "........", "....o...", "....o...", "........", "........",
                                      "..o.#...", "..o.#...", "..o.#...", "........"}),
            Removed(WithBoxes(8, 10, {{2, 6, 1, 3}, {4, 2, 1, 2}, {4, 6, 1, 3}}, 315), 1));
}

TEST(PunchProgress, IsAStepForEveryFifthRowAndColumn) {
  // Steps at rows 10, 5 and 0 of the page (not at the bottom row, 15) and columns 0, 5, 10 and 15 of the
  // search.
  const TestDib page = WithBoxes(40, 16, {kHole});
  const Bytes expected = Remove(page, 0).block();
  const auto remove = [&] {
    const TestDib result(PunchHoleRemover(page.handle(), 0, 1, ProgressRecorder::kParent));
    EXPECT_TRUE(!result || expected == result.block());
    return static_cast<bool>(result);
  };
  ExpectProgress("Punch Hole Removal...", 7, (16 + 19 - 3 + 1) / 5 + 1, remove);
  EXPECT_TRUE(remove()) << "what one call left behind does not stop the next";
  // Kept: the window stays open without a copy, without a lock on it and at other depths.
  ExpectLeftOpen(host::Fault::kAllocation, 2, remove);
  ExpectLeftOpen(host::Fault::kLock, 5, remove);
  const TestDib otherDepth(MakeHeader(4, 40, 16));
  ExpectLeftOpen(host::Fault::kLock, 0, [&] {
    return PunchHoleRemover(otherDepth.handle(), 0, 1, ProgressRecorder::kParent) != nullptr;
  });
}

}  // namespace
}  // namespace rastrel::testing
