#include "frame/dib.h"

#include <gtest/gtest.h>

#include <cstring>

#include "platform/host/fault_injection.h"
#include "tests/support/faults.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

TEST(DIBImageBytes, OfNegativeOrHugePicturesFitNoBlock) {
  EXPECT_EQ(24u, DIBImageBytes(3, 2, 24));
  EXPECT_EQ(0u, DIBImageBytes(0, 5, 24));
  for (const int32_t huge : {-1, INT32_MIN, INT32_MAX}) {
    EXPECT_GT(DIBImageBytes(huge, INT32_MAX, 24), kMaxBlockBytes);
    EXPECT_GT(DIBImageBytes(INT32_MAX, huge, 0xFFFF), kMaxBlockBytes);
  }
}

TEST(DuplicateDIB, CopiesTheWholeBlock) {
  const TestDib page(
      Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11});  // neither a header nor its rows are looked at
  const TestDib copy(DuplicateDIB(page.handle()));
  EXPECT_EQ(page.block(), copy.block());
  EXPECT_NE(page.handle(), copy.handle());
  EXPECT_TRUE(page.Unchanged());
  SetRastrelError(7);
  EXPECT_EQ(nullptr, DuplicateDIB(nullptr));
  EXPECT_EQ(7, RastrelError());
}

TEST(DuplicateDIB, KeptReturnsAClearedCopyWhereALockFails) {
  const TestDib page = TestDib::Random(8, 20, 20, 1);
  ExpectEveryFault(host::Fault::kAllocation, page, kErrorBefore, DuplicateDIB);
  for (int lock = 1; lock <= 2; ++lock) {
    host::FailNth(host::Fault::kLock, lock);
    const HGLOBAL copy = DuplicateDIB(page.handle());
    host::FailNth(host::Fault::kLock, 0);
    EXPECT_EQ(Bytes(page.block().size()), TestDib(copy).block());
    EXPECT_TRUE(page.Unchanged());
  }
}

TEST(LockedDib, GivesRowsOnlyWhereTheBlockHoldsThem) {
  const TestDib page = TestDib::Random(8, 5, 3, 1);
  const uint64_t offset = kHeaderBytes + 1024;
  ConstRows rows = {};
  EXPECT_TRUE(LockedDib(page.handle()).FindRows(offset, &rows));
  EXPECT_EQ(rows.StoredRow(0), rows.PageRow(2));
  EXPECT_FALSE(LockedDib(page.handle()).FindRows(offset + 1, &rows));
  EXPECT_FALSE(LockedDib(page.handle()).FindRows(UINT64_MAX, &rows));
  for (const auto& [width, height] : {std::pair{9, 3}, std::pair{5, 4}, std::pair{0, 3}, std::pair{5, -3}}) {
    TestDib lying = TestDib::Random(8, 5, 3, 1);
    BITMAPINFOHEADER header = lying.header();
    header.biWidth = width;
    header.biHeight = height;
    lying.SetHeader(header);
    EXPECT_FALSE(LockedDib(lying.handle()).FindRows(offset, &rows)) << width << " " << height;
  }
  // A block that ends inside its header has zeros for the rest.
  const TestDib cut(Bytes{40, 0, 0, 0, 9, 0, 0, 0});
  EXPECT_EQ(9, LockedDib(cut.handle()).width());
  EXPECT_EQ(0, LockedDib(cut.handle()).height());
}

TEST(LockedDib, ReadsATablePastItsEndFromTheBlock) {
  Bytes block(40 + 4 + 4);
  for (size_t i = 40; i < block.size(); ++i) block[i] = static_cast<uint8_t>(i);
  RGBQUAD entries[3];
  const TestDib page(block);
  LockedDib(page.handle()).ReadPalette(3, kWhite, entries);
  EXPECT_EQ(45, entries[1].rgbGreen);
  EXPECT_EQ(255, entries[2].rgbGreen);
  EXPECT_FALSE(LockedDib(page.handle()).FirstColourIsBlack());
}

TEST(NewBlock, RefusesWhatNoBlockCanHoldAndFreesWhatIsNotReleased) {
  const size_t live = host::LiveBlocks();
  EXPECT_FALSE(NewBlock(kMaxBlockBytes + 1, Content::kUnset).allocated());
  { const NewBlock dropped(100, Content::kUnset); }
  EXPECT_EQ(live, host::LiveBlocks());
  NewBlock kept(9, Content::kUnset);
  std::memset(kept.bytes(), 1, 9);
  const TestDib block(kept.Release());
  EXPECT_EQ((Bytes{1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0}), block.block())
      << "the rounding is cleared";
}

}  // namespace
}  // namespace rastrel::testing
