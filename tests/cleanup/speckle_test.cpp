#include <gtest/gtest.h>
#include <rastrel.h>

#include <algorithm>
#include <random>

#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

constexpr RGBQUAD kBlackEntry = {0, 0, 0, 0};
constexpr RGBQUAD kWhiteEntry = {255, 255, 255, 0};

uint32_t Next(std::mt19937& random) { return static_cast<uint32_t>(random()); }

std::vector<RGBQUAD> GreyTable(bool blackFirst) {
  std::vector<RGBQUAD> table(256);
  for (size_t i = 0; i < table.size(); ++i) {
    const auto grey = static_cast<uint8_t>(blackFirst ? i : 255 - i);
    table[i] = {grey, grey, grey, 0};
  }
  return table;
}

std::vector<std::string> Cleaned(const TestDib& page, int level, int fullFilter) {
  return TestDib(CleanImage(page.handle(), level, fullFilter)).Drawing();
}

// The lowest levels of thresholds 1 to 8 and ranks 1 to 9.
constexpr int kThresholdLevels[] = {20, 25, 38, 50, 63, 75, 88, 100};
constexpr int kRankLevels[] = {20, 23, 34, 45, 56, 67, 78, 89, 100};

TEST(CleanImage, RemovesASpeckAndFillsAHole) {
  const TestDib page = TestDib::Drawn({".........",  //
                                       "..#......",  //
                                       ".....###.",  //
                                       ".....#.#.",  //
                                       ".....###.",  //
                                       "........."});
  // Of the black ring, white pixels around the corners number five and around the sides three; 4 is the
  // threshold.
  const std::vector<std::string> everywhere = {".........", ".........", "......#..",
                                               ".....###.", "......#..", "........."};
  EXPECT_EQ(everywhere, Cleaned(page, 70, 1));  // 120 - 70 = 50 percent of 8
  // White counts as set: only where fewer than four neighbours are white may a pixel change, and there it
  // turns black.
  const std::vector<std::string> holes = {".........", "..#......", ".....###.",
                                          ".....###.", ".....###.", "........."};
  EXPECT_EQ(holes, Cleaned(page, 70, 0));
  EXPECT_TRUE(page.Unchanged());
}

TEST(CleanImage, KeptFiltersTheLastPixelWhenTheRowEndsWithAByte) {
  // Nothing but specks: only those inside go, and none in the first and last row and column.
  EXPECT_EQ((std::vector<std::string>{"#.#.#", ".....", "#...#", ".....", "#.#.#"}),
            Cleaned(TestDib::Drawn({"#.#.#", ".....", "#.#.#", ".....", "#.#.#"}), 70, 1));
  // Five of its neighbours are white, three lie in the padding, which is 0.
  EXPECT_EQ("........", Cleaned(TestDib::Drawn({"........", ".......#", "........"}), 70, 1)[1]);
}

TEST(CleanImage, CountsEveryNeighbourhoodAgainstEveryThreshold) {
  for (const bool blackFirst : {false, true}) {
    const RGBQUAD entry = blackFirst ? kBlackEntry : kWhiteEntry;
    TestDib page(MakeHeader(1, 3, 3), {entry, kWhiteEntry});
    for (int pattern = 0; pattern < 512; ++pattern) {
      int set = 0;
      for (int i = 0; i < 9; ++i) {
        const int pixel = pattern >> i & 1;
        page.Set(i % 3, i / 3, static_cast<Pixel>(pixel));
        if (i != 4) set += pixel;
      }
      const int own = pattern >> 4 & 1;
      int threshold = 0;
      for (const int percent : kThresholdLevels) {
        ++threshold;
        const int filtered = set > threshold ? 1 : set < threshold ? 0 : own;
        for (const int full : {0, 1}) {
          const TestDib cleaned(CleanImage(page.handle(), blackFirst ? 120 - percent : percent, full));
          ASSERT_EQ(full != 0 || set < 4 ? filtered : own, static_cast<int>(cleaned.At(1, 1)))
              << "pattern " << pattern << ", threshold " << threshold << ", full " << full;
        }
      }
    }
  }
}

TEST(CleanImage, KeptTakesTheRankOfGreysFromTheLevelTheOtherWayRound) {
  std::mt19937 random(3);
  for (const bool blackFirst : {true, false}) {
    TestDib page(MakeHeader(8, 3, 3), GreyTable(blackFirst));
    for (int round = 0; round < 300; ++round) {
      // Few values, for ties; 255 is where the search for the darkest starts.
      const unsigned values = 1 + Next(random) % 9;
      std::vector<Pixel> neighbours;
      for (int i = 0; i < 9; ++i) {
        const Pixel pixel = 255 - Next(random) % values * 31;
        page.Set(i % 3, i / 3, pixel);
        if (i != 4) neighbours.push_back(pixel);
      }
      std::sort(neighbours.begin(), neighbours.end());
      for (size_t rank = 1; rank <= 9; ++rank) {
        const int percent = kRankLevels[rank - 1];
        const TestDib cleaned(CleanImage(page.handle(), blackFirst ? percent : 120 - percent, 1));
        ASSERT_EQ(neighbours[std::min<size_t>(rank, 8) - 1], cleaned.At(1, 1)) << "rank " << rank;
      }
    }
  }
}

TEST(CleanImage, ChangesOnlyNearlyBlackOrWhiteGreysUnlessAskedForAll) {
  TestDib page = TestDib::Plain(MakeHeader(8, 3, 3), 77);
  for (const Pixel own : {0u, 4u, 5u, 100u, 250u, 251u, 255u}) {
    page.Set(1, 1, own);
    EXPECT_EQ(own < 5 || own > 250 ? 77 : own, TestDib(CleanImage(page.handle(), 60, 0)).At(1, 1));
    EXPECT_EQ(77u, TestDib(CleanImage(page.handle(), 60, -1)).At(1, 1));
  }
}

}  // namespace
}  // namespace rastrel::testing
