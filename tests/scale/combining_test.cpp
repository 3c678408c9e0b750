#include <gtest/gtest.h>
#include <rastrel.h>

#include <climits>

#include "tests/support/faults.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

using Drawing = std::vector<std::string>;

HGLOBAL const kDead = reinterpret_cast<HGLOBAL>(uintptr_t{0x1234});

// Combines in place.
int CombineOn(TestDib& destination, int x, int y, HGLOBAL source, HGLOBAL mask, int andFlag) {
  HGLOBAL handle = destination.handle();
  const int result = CombineDIB(x, y, &handle, source, mask, andFlag);
  EXPECT_EQ(0u, GlobalFlags(handle) & GMEM_LOCKCOUNT);
  return result;
}

TEST(CombineDIB, CopiesOrDarkensThroughAMask) {
  const TestDib source = TestDib::Drawn({"##..", "#.#."}), mask = TestDib::Drawn({"...#", "#..."});
  TestDib copied = TestDib::Drawn({"#.#.#.",  //
                                   ".#.#.#",  //
                                   "..#.##"});
  TestDib darkened(copied.block());
  EXPECT_EQ(1, CombineOn(copied, 1, 1, source.handle(), mask.handle(), 0));
  EXPECT_EQ((Drawing{"#.#.#.", ".##.##", ".#.#.#"}), copied.Drawing());
  EXPECT_EQ(1, CombineOn(darkened, 1, 1, source.handle(), mask.handle(), 7));
  EXPECT_EQ((Drawing{"#.#.#.", ".#####", ".#####"}), darkened.Drawing());
}

TEST(CombineDIB, KeptMovesNoMoreThanTheDestinationsSize) {
  const TestDib black = TestDib::Plain(MakeHeader(1, 20, 20), 0);
  TestDib page = TestDib::Plain(MakeHeader(1, 6, 3), 1);
  EXPECT_EQ(1, CombineOn(page, -4, -2, black.handle(), nullptr, 0));
  EXPECT_EQ(Drawing({"##....", "......", "......"}), page.Drawing());
  page.Settle();
  for (const auto& [x, y] : {std::pair(6, 0), {0, 3}, {-6, 0}, {0, -3}, {INT_MAX, 0}, {INT_MIN, INT_MIN}}) {
    EXPECT_EQ(1, CombineOn(page, x, y, black.handle(), nullptr, 1)) << "clipped away";
    EXPECT_TRUE(page.Unchanged());
  }
}

TEST(CombineDIB, RefusesWhatIsNoPage) {
  const TestDib page = TestDib::Random(1, 9, 5, 1);
  HGLOBAL handle = page.handle(), none = nullptr;
  const auto refuses = [](HGLOBAL* destination, HGLOBAL source, HGLOBAL mask, int error) {
    SetRastrelError(kErrorBefore);
    EXPECT_EQ(0, CombineDIB(0, 0, destination, source, mask, 0));
    EXPECT_EQ(error, RastrelError());
  };
  refuses(&handle, nullptr, nullptr, ErrParameter);
  refuses(nullptr, handle, nullptr, ErrParameter);
  refuses(&handle, handle, TestDib::Random(1, 9, 4, 1).handle(), ErrDIBSize);

  std::vector<Bytes> blocks = {page.With([](auto& info) { info.biBitCount = 2; }).block(),
                               page.With([](auto& info) { info.biCompression = BI_RLE8; }).block(),
                               page.With([](auto& info) { info.biSize = 12; }).block()};
  for (const int bits : {1, 4, 8, 16, 24, 32}) {
    for (const Bytes& block : LyingBlocks(bits)) blocks.push_back(block);
  }
  const auto refusesAnywhere = [&](HGLOBAL dib) {
    refuses(&dib, handle, nullptr, ErrCreateBitmap);
    refuses(&handle, dib, nullptr, ErrCreateBitmap);
    refuses(&handle, handle, dib, ErrCreateBitmap);
  };
  refusesAnywhere(kDead);
  for (const Bytes& block : blocks) {
    const TestDib lying(block);
    refusesAnywhere(lying.handle());
    EXPECT_TRUE(lying.Unchanged());
  }
  host::FailNth(host::Fault::kAllocation, 1);
  refuses(&none, handle, nullptr, ErrCopyBits);
  EXPECT_EQ(1, CombineDIB(5, 5, &none, handle, kDead, 1)) << "the first call copies, whatever it is told";
  EXPECT_EQ(page.block(), TestDib(none).block());
  EXPECT_TRUE(page.Unchanged());
}

TEST(CombineDIB, TakesOverTheColoursOfAPaletteScreen) {
  const PALETTEENTRY screen[] = {{255, 255, 255, 0}, {255, 0, 0, 0}, {0, 0, 255, 0}, {0, 0, 0, 0}};
  ASSERT_EQ(1, RastrelHostSetScreen(8, screen, 4));
  BITMAPINFOHEADER header = MakeHeader(8, 4, 1);
  header.biClrUsed = 6;
  TestDib page(header, {{}, {}, {}, {}, {255, 0, 200, 0}, {0, 250, 0, 0}});
  for (int x = 0; x < 4; ++x) page.Set(x, 0, x == 3 ? 5 : 4);
  TestDib source = TestDib::Plain(MakeHeader(24, 3, 1), 0xFFFFFF);
  TestDib bilevel = TestDib::Drawn({".#"}), colours = TestDib::Random(24, 2, 1, 1);
  source.Set(1, 0, 0x0000FF);
  SetRastrelError(kErrorBefore);
  EXPECT_EQ(1, CombineOn(page, 1, 0, source.handle(), nullptr, 1));
  EXPECT_EQ(kErrorBefore, RastrelError());
  EXPECT_EQ((std::vector<Pixel>{4, 4, 2, 5}), page.Pixels()) << "what is left of violet is blue";
  const Bytes block = page.block();
  EXPECT_EQ((Bytes{255, 255, 255, 0, 0, 0, 255, 0, 255, 0, 0, 0, 0, 0, 0, 0, 255, 0, 200, 0}),
            Bytes(block.begin() + 40, block.begin() + 60));
  // The table is taken over even where nothing is drawn, and by whoever has one.
  EXPECT_EQ(1, CombineOn(bilevel, 2, 0, source.handle(), nullptr, 0));
  EXPECT_EQ(255, bilevel.block()[46]);
  EXPECT_EQ(1, CombineOn(colours, 2, 0, source.handle(), nullptr, 0));
  EXPECT_TRUE(colours.Unchanged());
  header.biBitCount = 24;
  TestDib tabled(header);
  EXPECT_EQ(1, CombineOn(tabled, 2, 0, source.handle(), nullptr, 0));
  EXPECT_EQ(255, tabled.block()[46]);
  RastrelHostSetScreen(32, nullptr, 0);
}

// A bitmap of 1 bit and two rows.
HBITMAP Bilevel(const Bytes& bits, int width) { return CreateBitmap(width, 2, 1, 1, bits.data()); }
Bytes BitsOf(HBITMAP bitmap) {
  Bytes bits(4);
  EXPECT_EQ(4, GetBitmapBits(bitmap, 4, bits.data()));
  return bits;
}

TEST(CombineBMP, DrawsTheMaskIntoTheSourceAndThatIntoTheDestination) {
  Bytes greys;  // just white or just black, by the sum of the channels
  for (int i = 0; i < 16; ++i)
    greys.insert(greys.end(), {0x80, 0x7F, uint8_t(0xCCFF << i & 0x8000 ? 128 : 127), 9});
  for (int round = 0; round < 4; ++round) {
    const bool isAnd = round % 2 != 0;
    HBITMAP mask = round < 2 ? CreateBitmap(8, 2, 1, 32, greys.data()) : Bilevel({0xCC, 0, 0xFF, 0}, 8);
    HBITMAP page = Bilevel({0xFF, 0x0F, 0xAA, 0xAA}, 16), source = Bilevel({0xF0, 0, 0x3C, 0}, 8);
    EXPECT_EQ(1, CombineBMP(4, 0, &page, source, mask, isAnd));
    EXPECT_EQ((Bytes{0xC0, 0, 0x3C, 0}), BitsOf(source));
    EXPECT_EQ(isAnd ? Bytes({0xFC, 0x0F, 0xA2, 0x8A}) : Bytes({0xFC, 0x0F, 0xA3, 0xCA}), BitsOf(page));
    // One bitmap in two parts or three: each transfer sees what the one before has left.
    EXPECT_EQ(1, CombineBMP(8, 0, &page, page, page, 0));
    EXPECT_EQ(isAnd ? Bytes({0xFC, 0xFC, 0xA2, 0xA2}) : Bytes({0xFC, 0xFC, 0xA3, 0xA3}), BitsOf(page));
    EXPECT_EQ(1, CombineBMP(-4, 0, &source, source, mask, 0));
    EXPECT_EQ((Bytes{0x00, 0, 0xCC, 0}), BitsOf(source));
    for (HBITMAP bitmap : {mask, page, source}) EXPECT_EQ(1, DeleteObject(bitmap));
  }
}

TEST(CombineBMP, RefusesWhatIsNoBitmap) {
  HBITMAP source = Bilevel({0xF0, 0, 0x3C, 0}, 8), narrow = Bilevel({0, 0, 0, 0}, 7), none = nullptr;
  HBITMAP page = Bilevel({0xFF, 0x0F, 0xAA, 0xAA}, 16), mask = CreateBitmap(8, 2, 1, 32, nullptr);
  HBITMAP dead = static_cast<HBITMAP>(kDead);
  const auto refuses = [&](HBITMAP* onto, HBITMAP from, HBITMAP through, int error) {
    SetRastrelError(kErrorBefore);
    EXPECT_EQ(0, CombineBMP(0, 0, onto, from, through, 0));
    EXPECT_EQ(error, RastrelError());
  };
  refuses(&page, nullptr, nullptr, ErrParameter);
  refuses(nullptr, source, nullptr, ErrParameter);
  for (HBITMAP other : {narrow, dead}) refuses(&page, source, other, ErrDIBSize);
  refuses(&dead, source, mask, kErrorBefore);
  refuses(&dead, source, nullptr, kErrorBefore);
  refuses(&page, dead, nullptr, kErrorBefore);
  refuses(&none, dead, nullptr, ErrCopyBits);
  EXPECT_EQ(1, CombineBMP(3, 3, &none, source, nullptr, 1));
  EXPECT_EQ(BitsOf(source), BitsOf(none));

  for (HBITMAP bitmap : {source, narrow, none, page, mask}) DeleteObject(bitmap);
}

TEST(Combining, SurvivesEveryFault) {
  const TestDib colours = TestDib::Random(24, 9, 5, 2);
  TestDib page = TestDib::Random(8, 9, 5, 3);
  HBITMAP bitmap = Bilevel({0xFF, 0, 0xAA, 0}, 8), mask = CreateBitmap(8, 2, 1, 32, nullptr);
  const std::function<int()> operations[] = {
      [&] { return CombineOn(page, 1, 1, colours.handle(), nullptr, 1); },
      [&] { return CombineOn(page, 1, 1, page.handle(), nullptr, 1); },
      [&] { return CombineBMP(0, 0, &bitmap, bitmap, mask, 1); }};
  const size_t alive = host::LiveObjects() + host::LiveBlocks();
  for (int i = 0; i < 8; ++i) {  // those on pages create nothing that they need
    const auto fault = static_cast<host::Fault>(i < 4 ? i % 2 : i % 3);
    const std::function<int()>& operation = operations[i < 4 ? i / 2 : 2];
    page.Settle();
    for (int n = 1, isDone = 0; isDone == 0; ++n) {
      SetRastrelError(kErrorBefore);
      host::FailNth(fault, n);
      isDone = operation();
      EXPECT_NE(host::FaultStruck(fault), isDone != 0) << i << ", " << n;
      host::FailNth(fault, 0);
      const int error = isDone != 0 ? ErrCreatePalette : ErrCreateBitmap;
      EXPECT_TRUE(i >= 4 || RastrelError() == error)
          << "Kept: success leaves error 10 where the screen has no palette";
      EXPECT_EQ(i >= 4 || isDone == 0, page.Unchanged());
      EXPECT_EQ(alive, host::LiveObjects() + host::LiveBlocks());
    }
  }
  EXPECT_TRUE(colours.Unchanged());
  for (HBITMAP object : {bitmap, mask}) DeleteObject(object);
}

}  // namespace
}  // namespace rastrel::testing
