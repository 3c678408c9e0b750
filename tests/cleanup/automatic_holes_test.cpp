#include "tests/reference/automatic_holes.h"

#include <gtest/gtest.h>
#include <rastrel.h>

#include <array>
#include <random>

#include "tests/cleanup/progress_recorder.h"
#include "tests/cleanup/punched_pages.h"
#include "tests/support/faults.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

// At 25 dots per inch blobs begin in 18 columns, have 4 cells and more in both directions, and are no taller
// than wide by halves. Runs of one cell are specks, of more than 14 lines. Discs reach one cell farther.
constexpr Box kHole = {6, 5, 6, 6};

HGLOBAL RemoveHoles(HGLOBAL dib) { return AutoPunchHoleRemover(dib, 0, nullptr); }
TestDib Remove(const TestDib& page) { return TestDib(RemoveHoles(page.handle())); }

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

// A page with discs, bars, gaps and noise of sizes that matter at its resolution.
Bytes BlottedBlock(unsigned seed) {
  std::mt19937 engine(seed);
  const auto below = [&engine](int n) { return static_cast<int>(engine() % static_cast<unsigned>(n)); };
  const int dpi = seed % 9 == 0 ? 127 : 3 + below(90), width = 1 + below(3 * dpi),
            height = 1 + below(4 * dpi);
  const int bits = std::array{1, 8, 24}[seed % 3];
  const Pixel light = std::array{1u, 250u, 0xF0F0F0u}[seed % 3];
  TestDib page = TestDib::Random(HeaderWithDots(bits, width, height, static_cast<int>(dpi * 39.37)), seed);
  page.Fill(0, 0, width, height, light);
  for (int i = 4 + below(12); i > 0; --i) {
    const int x = below(std::min(width, 2 * dpi)), y = below(height), kind = below(8);
    const int across = 1 + below(kind == 5 ? dpi / 8 + 2 : dpi);
    const int down = kind < 4 ? across - across / 3 * (kind % 2) + below(dpi / 10 + 1)
                              : 1 + below(kind == 6 ? dpi / 8 + 2 : dpi);
    for (int dy = std::max(-down / 2, -y); dy <= std::min(down / 2, height - 1 - y); ++dy) {
      const double share = kind < 4 ? std::sqrt(1 - 4.0 * dy * dy / (down * down)) : 1;
      const int half = static_cast<int>(across / 2 * share), left = std::max(x - half, 0);
      page.Fill(left, y + dy, std::min(x + half, width - 1) - left + 1, 1, kind == 7 ? light : 0);
    }
  }
  for (int i = width * height / (20 << seed % 4 * 3); i > 0; --i)
    page.Set(below(width), below(height), below(3) == 0 ? light : 0);
  Bytes block = page.block();
  if (bits == 1 && seed % 2 == 0) std::swap_ranges(&block[40], &block[44], &block[44]);
  return block;
}

TEST(AutoPunchHoleRemover, EqualsThePlainVersion) {
  int changed = 0;
  for (unsigned seed = 1; seed <= 1500; ++seed) {
    const Bytes block = BlottedBlock(seed);
    const Bytes result = Remove(TestDib(block)).block();
    ASSERT_EQ(reference::AutoPunchHoleRemover(block), result) << seed;
    if (result != block) ++changed;
  }
  EXPECT_GT(changed, 500);
  // A row of a blob that goes as far as it can, another one below from its middle on, and a line where the
  // disc around them ends.
  for (int dpi = 3; dpi < 150; ++dpi) {
    const int longest = dpi * 150 / 254, half = longest / 2;
    const int left = static_cast<int>(dpi * 0.7480314960629921 + 0.5) - 2, right = left + half;
    const Box line = {right + 2 * half + static_cast<int>(dpi * 0.0433 + 0.5) - 1, 10, longest + 1, longest};
    const TestDib page = WithBoxes(
        4 * dpi, 3 * dpi + 10, {{left, 10, longest, half}, {right, 10 + half, longest, longest - half}, line},
        1 + 3937 * dpi / 100);
    ASSERT_EQ(reference::AutoPunchHoleRemover(page.block()), Remove(page).block()) << dpi;
  }
}

TEST(AutoPunchHoleRemover, GivesNothingAndNoErrorForWhatItCannotTake) {
  const TestDib page = WithBoxes(40, 16, {kHole}), otherDepth(MakeHeader(4, 40, 16));
  ExpectRefusals({}, {1, 8, 24}, RemoveHoles);
  EXPECT_FALSE(Remove(page.With([](BITMAPINFOHEADER& header) { header.biYPelsPerMeter++; })));
  EXPECT_FALSE(Remove(otherDepth));
  ExpectEveryFault(host::Fault::kAllocation, page, kErrorBefore, RemoveHoles);
  // Kept: the copy is lost when it cannot be locked. The page, the map, the duplication's locks, the copy.
  EXPECT_EQ("xxoolo", DrawOutcomes(host::Fault::kLock, page, kErrorBefore, RemoveHoles));
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
