#include <gtest/gtest.h>
#include <rastrel.h>

#include "tests/cleanup/progress_recorder.h"
#include "tests/cleanup/punched_pages.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

// At 25 dots per inch blobs begin in 18 columns, have 4 cells and more in both directions, and are no taller
// than wide by halves. Runs of one cell are specks, of more than 14 lines. Discs reach one cell farther.
constexpr Box kHole = {6, 5, 6, 6};

TestDib Remove(const TestDib& page) { return TestDib(AutoPunchHoleRemover(page.handle(), 0, nullptr)); }

TEST(AutoPunchHoleRemover, PaintsADiscOverABlobAndSparesLines) {
  // Lines down to row 19, with the light cell below, and of two rows. Kept: a line of one row is a speck in
  // each column, and part of the blob that it touches. The middle is at (9, 19).
  const TestDib page = WithBoxes(22, 27, {{6, 17, 6, 6}, {12, 3, 1, 17}, {2, 23, 17, 2}, {2, 16, 16, 1}});
  const std::vector<std::string> rows = DrawnBoxes(Remove(page));
  EXPECT_EQ((std::vector<std::string>{"..#####ooooo######....",  // row 16
                                      "......oooooo#.........",  //
                                      "......oooooo#.........",  //
                                      "......oooooo#.........",  //
                                      "......oooooo..........",  //
                                      "......ooooooo.........",  //
                                      "......#ooooo..........",  //
                                      "..#################..."}),
            std::vector<std::string>(rows.begin() + 16, rows.begin() + 24));
}

TEST(AutoPunchHoleRemover, PaintsTheLargestHoleFarthestFromTheEdge) {
  // At 300 dots per inch blobs begin in 223 columns and are up to 177 wide; the disc goes beyond that, and
  // through its middle nothing stays dark.
  constexpr Box kFarthest = {222, 30, 177, 177};
  const TestDib page = WithBoxes(800, 240, {kFarthest}, 11811);
  EXPECT_EQ(std::string::npos, DrawnBoxes(Remove(page))[30 + 177 / 2].find('#'));
}

TEST(AutoPunchHoleRemover, TellsHolesByTheirSizeAndPlace) {
  struct Case {
    const char* what;
    Box erased, left;
    int dotsPerMetre = kDots25;
  };
  for (const Case& c : {Case{"wide, not tall", {6, 5, 8, 5}, {6, 5, 5, 8}},
                        Case{"the last row does not count", {4, 225, 14, 15}, {4, 224, 14, 15}},
                        Case{"the last column of the search", {17, 5, 6, 6}, {18, 5, 6, 6}},
                        Case{"kept: column 0 is of no blob", {1, 5, 6, 6}, {0, 5, 6, 6}},
                        Case{"kept: row 0 is of no blob", {6, 0, 6, 5}, {6, 0, 6, 4}},
                        Case{"kept: left end at the number of the row", {8, 5, 6, 6}, {9, 5, 6, 6}},
                        Case{"over 47.2 wide", {20, 30, 48, 48}, {20, 30, 47, 48}, 11811},
                        Case{"over 47.2 tall", {20, 30, 60, 48}, {20, 30, 60, 47}, 11811},
                        Case{"7 taller by halves, not 8", {20, 30, 48, 63}, {20, 30, 48, 64}, 11811},
                        Case{"up to 177 wide", {20, 30, 177, 177}, {20, 30, 178, 177}, 11811},
                        Case{"up to 177 tall", {20, 30, 177, 177}, {20, 30, 177, 178}, 11811}}) {
    const TestDib erased = WithBoxes(300, 240, {c.erased}, c.dotsPerMetre);
    const TestDib left = WithBoxes(300, 240, {c.left}, c.dotsPerMetre);
    EXPECT_NE(erased.block(), Remove(erased).block()) << c.what;
    EXPECT_EQ(left.block(), Remove(left).block()) << c.what;
  }
  for (const int dotsPerMetre : {INT32_MIN, -11811, 0, 100, INT32_MAX}) {
    const TestDib page = WithBoxes(40, 30, {kHole}, dotsPerMetre);
    EXPECT_EQ(page.block(), Remove(page).block()) << dotsPerMetre;
  }
}

TEST(AutoPunchHoleRemover, TakesAStepForEveryFifthRowTwice) {
  const TestDib page = WithBoxes(40, 16, {kHole}), otherDepth(MakeHeader(4, 40, 16));
  const auto remove = [](const TestDib& from) {
    return static_cast<bool>(TestDib(AutoPunchHoleRemover(from.handle(), 1, ProgressRecorder::kParent)));
  };
  // Rows 10, 5 and 0 of the page (not the bottom row, 15), then 0, 5, 10 and 15 of the search.
  ExpectProgress("Punch Hole Removal...", 7, (19 + 2 * 16 + 1) / 5 + 1, [&] { return remove(page); });
  // Kept: the window stays open without a copy, without a lock on it and at other depths.
  ExpectLeftOpen(host::Fault::kAllocation, 2, [&] { return remove(page); });
  ExpectLeftOpen(host::Fault::kLock, 5, [&] { return remove(page); });
  ExpectLeftOpen(host::Fault::kLock, 0, [&] { return remove(otherDepth); });
}

}  // namespace
}  // namespace rastrel::testing
