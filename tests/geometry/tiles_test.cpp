#include <gtest/gtest.h>
#include <rastrel.h>

#include "tests/support/faults.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

// An array block of tiles; all are freed at the end of its life.
struct Tiles {
  HGLOBAL array = reinterpret_cast<HGLOBAL>(uintptr_t{0x1234});  // of no block
  int counts[2] = {-1, -1};

  Tiles() = default;
  explicit Tiles(const std::vector<Bytes>& tiles)
      : array(GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, tiles.size() * sizeof(HGLOBAL))) {
    for (size_t i = 0; i < tiles.size(); ++i) At(i) = TestDib(tiles[i]).Release();
  }
  ~Tiles() {
    for (size_t i = 0; i < GlobalSize(array) / sizeof(HGLOBAL); ++i) GlobalFree(At(i));
    GlobalFree(array);
  }
  bool Split(const TestDib& page, int tileWidth, int tileHeight) {
    return SplitDIB(page.handle(), tileWidth, tileHeight, &array, counts) != 0;
  }
  HGLOBAL& At(size_t index) const {
    auto* handles = static_cast<HGLOBAL*>(GlobalLock(array));
    GlobalUnlock(array);
    return handles[index];
  }
  // No tile may have been left locked.
  Bytes BlockAt(size_t index) const {
    EXPECT_EQ(0u, GlobalFlags(At(index)));
    return TestDib(DuplicateDIB(At(index))).block();
  }
};

TEST(SplitDIB, CutsAGridFromTheBottomUp) {
  const TestDib page = TestDib::Random(8, 100, 50, 1);
  Tiles tiles;
  ASSERT_TRUE(tiles.Split(page, 32, 32));
  EXPECT_EQ(std::pair(4, 2), std::pair(tiles.counts[0], tiles.counts[1]));
  const TestDib topRight(tiles.BlockAt(7));  // 4 x 18
  EXPECT_EQ(page.At(99, 17), topRight.At(topRight.width() - 1, topRight.height() - 1));
  EXPECT_EQ(page.block(), TestDib(MergeDIBs(tiles.array, 4, 2)).block());
}

TEST(MergeDIBs, TakesTilesWithoutRowsForNothing) {
  const TestDib page = TestDib::Random(8, 8, 4, 1), empty(MakeHeader(8, 8, 0));
  for (const bool isFirst : {true, false}) {
    const Tiles tiles(isFirst ? std::vector{empty.block(), page.block()}
                              : std::vector{page.block(), empty.block()});
    EXPECT_EQ(page.block(), TestDib(MergeDIBs(tiles.array, 1, 2)).block()) << "first " << isFirst;
  }
}

TEST(MergeDIBs, RefusesWhatIsNoGrid) {
  const TestDib page = TestDib::Random(8, 8, 4, 1);
  const Tiles tiles(std::vector<Bytes>(4, page.block()));
  EXPECT_EQ(nullptr, MergeDIBs(nullptr, 1, 1));
  for (const auto& [columns, rows] :
       {std::pair{0, 2}, {2, 0}, {-2, -2}, {2, 3}, {INT32_MAX, INT32_MAX}, {65536, 65536}}) {
    EXPECT_EQ(nullptr, MergeDIBs(tiles.array, columns, rows)) << columns << " x " << rows;
  }
  for (const size_t index : {0, 1, 2, 3}) {
    const HGLOBAL good = tiles.At(index);
    const auto expectRefusal = [&](HGLOBAL bad) {
      tiles.At(index) = bad;
      EXPECT_EQ(nullptr, MergeDIBs(tiles.array, 2, 2)) << index;
    };
    expectRefusal(nullptr);
    expectRefusal(reinterpret_cast<HGLOBAL>(uintptr_t{0x1234}));
    for (const Bytes& lying : LyingBlocks(8)) {
      const TestDib tile(lying);
      const bool isEmpty = lying.size() >= 40 && (tile.width() == 0 || tile.height() == 0);
      if (!isEmpty) expectRefusal(tile.handle());
    }
    tiles.At(index) = good;
  }
  // The third begins above the pixels.
  std::vector<Bytes> climbing;
  for (const auto& [width, height] : {std::pair{44, 0}, {4, 0}, {44, 1}}) {
    BITMAPINFOHEADER header = MakeHeader(8, width, height);
    header.biClrUsed = 1;
    climbing.push_back(TestDib::Random(header, 1).block());
  }
  EXPECT_EQ(nullptr, MergeDIBs(Tiles(climbing).array, 1, 3));
  const auto merge = [&](HGLOBAL) { return MergeDIBs(tiles.array, 2, 2); };
  ExpectEveryFault(host::Fault::kAllocation, page, kErrorBefore, merge);
  ExpectEveryFault(host::Fault::kLock, page, kErrorBefore, merge);
}

TEST(SplitDIB, RefusesAndLeavesNothingBehind) {
  const TestDib page = TestDib::Random(8, 64, 64, 1);
  Tiles none;
  for (const auto& [width, height] : {std::pair{0, 1}, {1, 0}, {-1, 1}, {1, INT32_MIN}}) {
    EXPECT_FALSE(none.Split(page, width, height));
  }
  EXPECT_EQ(0, SplitDIB(nullptr, 1, 1, &none.array, none.counts));
  EXPECT_EQ(0, SplitDIB(page.handle(), 1, 1, nullptr, none.counts));
  EXPECT_EQ(0, SplitDIB(page.handle(), 1, 1, &none.array, nullptr));
  EXPECT_FALSE(none.Split(page.With([](BITMAPINFOHEADER& h) { h.biPlanes = 0; }), 3, 3));
  EXPECT_EQ(-1, none.counts[0]);
  for (const Bytes& lying : LyingBlocks(8)) EXPECT_FALSE(none.Split(TestDib(lying), 3, 3));
  for (const host::Fault fault : {host::Fault::kAllocation, host::Fault::kLock}) {
    bool struck = true;
    for (int n = 1; struck; ++n) {
      Tiles tiles;
      const size_t blocks = host::LiveBlocks();
      host::FailNth(fault, n);
      const bool done = tiles.Split(page, 32, 16);
      struck = host::FaultStruck(fault);
      host::FailNth(fault, 0);
      EXPECT_EQ(struck, !done);
      const bool isLockOfPage = fault == host::Fault::kLock && n == 1;  // the counts come next
      EXPECT_EQ(done || isLockOfPage, tiles.array != nullptr);
      EXPECT_TRUE(done || blocks == host::LiveBlocks());
      EXPECT_EQ(isLockOfPage ? -1 : 4, tiles.counts[1]);
    }
  }
  EXPECT_TRUE(page.Unchanged());
}

}  // namespace
}  // namespace rastrel::testing
