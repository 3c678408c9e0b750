#include "tests/reference/speckle.h"

#include <gtest/gtest.h>
#include <rastrel.h>

#include <algorithm>
#include <random>

#include "tests/support/faults.h"
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

void ExpectAsReference(const TestDib& page, int level, bool full) {
  SCOPED_TRACE(::testing::Message() << page.header().biBitCount << " bits, " << page.width() << " x "
                                    << page.height() << ", level " << level << ", full " << full);
  SetRastrelError(kErrorBefore);
  const TestDib cleaned(CleanImage(page.handle(), level, full));
  ASSERT_EQ(reference::CleanImage(page.block(), level, full), cleaned.block());
  EXPECT_EQ(kErrorBefore, RastrelError());
  EXPECT_EQ(0u, GlobalFlags(cleaned.handle()));
  EXPECT_TRUE(page.Unchanged());
}

// Random bytes of which many are equal, so that no count and no rank is rare.
TestDib SpeckledPage(int bits, int width, int height, bool blackFirst, size_t slack, std::mt19937& random) {
  TestDib plain(MakeHeader(bits, width, height),
                bits == 8 ? GreyTable(blackFirst)
                          : std::vector<RGBQUAD>{blackFirst ? kBlackEntry : kWhiteEntry, kWhiteEntry});
  Bytes block = plain.block();
  const size_t rows = 40 + (4u << bits);
  block.resize(rows + plain.pixelBytes() + slack);
  for (size_t i = rows; i < block.size(); ++i) {
    const uint32_t value = Next(random);
    block[i] = static_cast<uint8_t>(value >> 30 == 0 ? value : value >> 31 == 0 ? 0 : 255);
  }
  return TestDib(block);
}

TEST(CleanImage, EqualsThePixelByPixelFilter) {
  std::mt19937 random(11);
  for (const int bits : {1, 8}) {
    for (const int width : {1, 2, 7, 8, 9, 31, 32, 33, 64, 65, 500, 512, 2000, 4100, 4128}) {
      for (const int height : {1, 2, 3, 4, 5, 40}) {
        for (const size_t slack : {0, 4, 8, 16}) {
          const TestDib page = SpeckledPage(bits, width, height, Next(random) % 2 == 0, slack, random);
          ExpectAsReference(page, 20 + static_cast<int>(Next(random) % 81), Next(random) % 2 == 0);
          if (HasFatalFailure()) return;
        }
      }
    }
    // Kept: a missing table length is none. Rows start at the table, which must still be there and grey.
    const TestDib whole(MakeHeader(bits, 90, 30));
    ExpectAsReference(whole.With([](BITMAPINFOHEADER& header) { header.biClrUsed = 0; }), 60, true);
    const TestDib tall = SpeckledPage(bits, 50, 700, true, 0, random);
    for (const int level : kRankLevels) ExpectAsReference(tall, level, true);
    for (const int level : kThresholdLevels) ExpectAsReference(tall, level, false);
  }
}

TEST(CleanImage, RefusesWhatIsNotGreyOrNotHeld) {
  struct Case {
    int bits, level;
    bool accepted;
    void (*spoil)(BITMAPINFOHEADER&);
  };
  constexpr auto kAsIs = [](BITMAPINFOHEADER&) {};
  const Case cases[] = {
      {1, 20, true, kAsIs},
      {8, 100, true, kAsIs},
      {1, 19, false, kAsIs},
      {8, 101, false, kAsIs},
      {8, -50, false, kAsIs},
      {4, 50, false, kAsIs},
      {24, 50, false, kAsIs},
      {1, 50, true, [](BITMAPINFOHEADER& h) { h.biPlanes = 7; }},
      {8, 50, false, [](BITMAPINFOHEADER& h) { h.biPlanes = 2; }},
      {8, 50, true, [](BITMAPINFOHEADER& h) { h.biCompression = 1, h.biSize = 12; }},
      {8, 50, true, [](BITMAPINFOHEADER& h) { h.biHeight = 0; }},
      {8, 50, true, [](BITMAPINFOHEADER& h) { h.biHeight = -h.biHeight; }},
      {1, 50, true, [](BITMAPINFOHEADER& h) { h.biWidth = 0; }},
      {1, 50, false, [](BITMAPINFOHEADER& h) { h.biWidth = -9; }},
      {1, 50, false, [](BITMAPINFOHEADER& h) { h.biHeight += 2; }},
      {8, 50, false, [](BITMAPINFOHEADER& h) { h.biWidth = 0x7FFFFFFF; }},
      {8, 50, false, [](BITMAPINFOHEADER& h) { h.biClrUsed = 0xFFFFFFFF; }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << "case " << &c - cases);
    const TestDib page = TestDib(MakeHeader(c.bits, 9, 9)).With(c.spoil);
    SetRastrelError(kErrorBefore);
    const TestDib cleaned(CleanImage(page.handle(), c.level, 1));
    EXPECT_EQ(c.accepted, static_cast<bool>(cleaned));
    EXPECT_EQ(kErrorBefore, RastrelError());
    EXPECT_TRUE(page.Unchanged());
  }
}

TEST(CleanImage, RefusesBadHandlesColoursAndShortTables) {
  const auto clean = [](HGLOBAL dib) { return CleanImage(dib, 50, 1); };
  ExpectRefusals({}, {}, clean);
  for (const int bits : {1, 8}) {
    const Bytes block = TestDib::Random(bits, 1, 1, 1).block();
    const size_t tableEnd = 40 + (4u << bits);
    for (const size_t channel : {0, 1, 2}) {
      Bytes coloured = block;
      coloured[tableEnd - 4 + channel] ^= 1;
      EXPECT_EQ(nullptr, clean(TestDib(coloured).handle())) << bits;
    }
    for (const size_t bytes : {size_t{1}, size_t{40}, tableEnd - 8}) {
      const Bytes cut(block.begin(), block.begin() + static_cast<std::ptrdiff_t>(bytes));
      EXPECT_EQ(nullptr, clean(TestDib(cut).handle())) << bits << " bits, " << bytes << " bytes";
    }
  }
}

TEST(CleanImage, KeptLosesACopyThatCannotBeLocked) {
  const TestDib page = TestDib::Random(1, 50, 50, 1);
  const auto clean = [](HGLOBAL dib) { return CleanImage(dib, 50, 1); };
  ExpectEveryFault(host::Fault::kAllocation, page, kErrorBefore, clean);
  // The page is locked, copied with a lock on each side (where one fails the copy is blank), and the copy
  // locked.
  EXPECT_EQ("xoolo", DrawOutcomes(host::Fault::kLock, page, kErrorBefore, clean));
}

}  // namespace
}  // namespace rastrel::testing
