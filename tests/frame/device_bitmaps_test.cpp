#include <gtest/gtest.h>
#include <rastrel.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/faults.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

HBITMAP const kDead = reinterpret_cast<HBITMAP>(uintptr_t{0x1234});

// The bits of a bitmap, which is deleted.
Bytes Taken(HBITMAP bitmap) {
  Bytes bits(static_cast<size_t>(GetBitmapBits(bitmap, 0, nullptr)));
  GetBitmapBits(bitmap, static_cast<int32_t>(bits.size()), bits.data());
  DeleteObject(bitmap);
  return bits;
}

// A bitmap of random bits.
HBITMAP AnyBitmap(int width, int height, int planes, int bits) {
  const Bytes random = TestDib::Random(8, width * 4 + 4, height * planes, 7).block();
  return CreateBitmap(width, height, planes, bits, random.data() + 1064);
}

void ExpectHeader(const TestDib& page, int bits) {
  BITMAPINFOHEADER header = MakeHeader(bits, 13, 3);
  header.biXPelsPerMeter = header.biYPelsPerMeter = 0;
  header.biClrImportant = header.biClrUsed;
  const Bytes expected = TestDib(header).block(), block = page.block();
  EXPECT_EQ(Bytes(expected.begin(), expected.begin() + 40), Bytes(block.begin(), block.begin() + 40));
  EXPECT_EQ(Rounded(Bytes(40 + 4 * header.biClrUsed + header.biSizeImage + 50)).size(), block.size());
}

TEST(ConvertBitmapToDIB, MakesAHeaderOfEveryDepth) {
  for (const auto& [bits, dibBits] : {std::pair(1, 1), {4, 4}, {8, 8}, {16, 24}, {24, 24}, {32, 24}}) {
    HBITMAP bitmap = AnyBitmap(13, 3, 1, bits);
    ExpectHeader(TestDib(ConvertBitmapToDIB(bitmap, nullptr)), dibBits);
    DeleteObject(bitmap);
  }
}

TEST(ConvertBitmapToDIB, MakesTheColourTable) {
  struct Case {
    int planes, bits, paletteEntries;  // reds from 1 on
    int dibBits, secondEntry, lastEntry;
  };
  for (const Case& c : {Case{1, 1, 0, 1, 0xFFFFFF, 0xFFFFFF},
                        {1, 1, 3, 1, 0xFFFFFF, 0xFFFFFF},
                        {1, 4, 0, 4, 0x800000, 0xFFFFFF},
                        {3, 1, 17, 4, 0x800000, 0xFFFFFF},
                        {1, 4, 16, 4, 0x020000, 0x100000},
                        {1, 8, 0, 8, 0x000055, 0xFCFCFF},
                        {2, 4, 20, 8, 0x020000, 0x000000},
                        {1, 16, 0, 24, 0, 0},
                        {1, 24, 9, 24, 0, 0},
                        {1, 32, 0, 24, 0, 0}}) {
    SCOPED_TRACE(::testing::Message() << c.planes << " x " << c.bits << " bits, " << c.paletteEntries);
    Bytes record = {0, 3, static_cast<uint8_t>(c.paletteEntries), 0};
    for (int i = 1; i <= c.paletteEntries; ++i)
      record.insert(record.end(), {static_cast<uint8_t>(i), 0, 0, 0});
    HPALETTE palette = CreatePalette(reinterpret_cast<const LOGPALETTE*>(record.data()));
    HBITMAP bitmap = AnyBitmap(13, 3, c.planes, c.bits);
    SetRastrelError(kErrorBefore);
    const TestDib page(ConvertBitmapToDIB(bitmap, palette));
    EXPECT_EQ(palette != nullptr || c.dibBits == 1 ? kErrorBefore : ErrCreatePalette, RastrelError())
        << "Kept: success leaves error 10 where the screen has no palette";
    ExpectHeader(page, c.dibBits);
    const Bytes block = page.block();
    const auto entry = [&](size_t at) { return block[at + 2] << 16 | block[at + 1] << 8 | block[at]; };
    EXPECT_TRUE(c.dibBits == 24 ||
                (entry(44) == c.secondEntry && entry(36u + 4 * (1u << c.dibBits)) == c.lastEntry));
    for (HGDIOBJ object : std::initializer_list<HGDIOBJ>{palette, bitmap}) DeleteObject(object);
  }
  EXPECT_EQ(nullptr, ConvertBitmapToDIB(nullptr, nullptr));
  EXPECT_EQ(nullptr, ConvertBitmapToDIB(kDead, reinterpret_cast<HPALETTE>(kDead)));
}

TEST(DeviceBitmaps, TakeThePaletteOfTheScreen) {
  const PALETTEENTRY shown[] = {{1, 2, 3, 0}, {250, 0, 7, 0}, {255, 255, 255, 0}};
  RastrelHostSetScreen(8, shown, 3);
  const uint8_t indices[] = {1, 2};
  HBITMAP bitmap = CreateBitmap(2, 1, 1, 8, indices);
  SetRastrelError(kErrorBefore);
  const Bytes block = TestDib(ConvertBitmapToDIB(bitmap, nullptr)).block();
  EXPECT_EQ((Bytes{3, 2, 1, 0, 7, 0, 250, 0, 255, 255, 255, 0, 0}),
            Bytes(block.begin() + 40, block.begin() + 53));
  EXPECT_EQ((Bytes{0x40, 0}), Taken(ConvertToMonochromeBitmap(bitmap)));
  EXPECT_EQ(kErrorBefore, RastrelError());
  DeleteObject(bitmap);
  TestDib colours(MakeHeader(24, 2, 1));
  colours.Set(0, 0, 0xE00000), colours.Set(1, 0, 0x00E000);
  EXPECT_EQ((Bytes{7, 56}), Taken(ConvertDIBToBitmap(colours.handle()))) << "of the fixed palette";
  RastrelHostSetScreen(32, nullptr, 0);
}

TEST(ConvertToMonochromeBitmap, IsWhiteWherePixelsAreNearerToIt) {
  const uint32_t pixels[] = {0x7F7F80, 0x80807F, 0xFFFFFF, 0};  // red + green + blue of 382 and 383
  HBITMAP bitmap = CreateBitmap(2, 2, 1, 32, pixels);
  EXPECT_EQ((Bytes{0x40, 0, 0x80, 0}), Taken(ConvertToMonochromeBitmap(bitmap)));
  DeleteObject(bitmap);
}

TEST(ConvertToMonochromeBitmap, TakesPlanesTogether) {
  const uint16_t planes[] = {0xFF, 0xFF, 0xFF, 0x7F};  // the first pixel is colour 7, light grey
  HBITMAP bitmap = CreateBitmap(8, 1, 4, 1, planes);
  EXPECT_EQ((Bytes{0xFF, 0}), Taken(ConvertToMonochromeBitmap(bitmap)));
  DeleteObject(bitmap);
}

TEST(ConvertDIBToBitmap, GoesThereAndBack) {
  const TestDib page = TestDib::Random(24, 150, 160, 1);
  HBITMAP bitmap = ConvertDIBToBitmap(page.handle());
  EXPECT_EQ(page.Pixels(), TestDib(ConvertBitmapToDIB(bitmap, nullptr)).Pixels());
  EXPECT_EQ(150u * 160 * 4, Taken(bitmap).size());
  TestDib bilevel(MakeHeader(1, 8, 2), {{127, 128, 128, 0}, {127, 127, 128, 0}});
  bilevel.Fill(0, 0, 4, 1, 1);
  for (const int screen : {8, 32}) {
    RastrelHostSetScreen(screen, nullptr, 0);
    EXPECT_EQ((Bytes{0x0F, 0, 0xFF, 0}), Taken(ConvertDIBToBitmap(bilevel.handle())))
        << "1 where nearer to white";
  }
  const auto convert = [](HGLOBAL dib) { return static_cast<HGLOBAL>(ConvertDIBToBitmap(dib)); };
  ExpectRefusals({.lying = ErrDIBSize}, {1, 4, 8, 16, 24, 32}, convert);
  for (const unsigned bits : {2u, 24u}) {
    EXPECT_EQ(nullptr, convert(page.With([=](auto& info) {
                                     info.biBitCount = static_cast<uint16_t>(bits);
                                     info.biCompression = bits / 24;
                                   })
                                   .handle()));
    EXPECT_EQ(ErrCreateBitmap, RastrelError());
  }
  EXPECT_EQ(nullptr, convert(page.With([](auto& info) { info.biSize = 108; }).handle()));
}

TEST(DuplicateBitmap, CopiesPlanesAndLargeBitmapsAndSaysWhatFailed) {
  for (const auto& [width, planes, bits] : {std::tuple(13, 3, 8), {300, 2, 4}, {300, 1, 32}}) {
    HBITMAP bitmap = AnyBitmap(width, 250, planes, bits);
    HBITMAP copy = DuplicateBitmap(bitmap);
    EXPECT_EQ(Taken(bitmap), Taken(copy));
  }
  EXPECT_EQ(nullptr, DuplicateBitmap(kDead));
  EXPECT_EQ(ErrCopyBits, RastrelError());
  HBITMAP bitmap = AnyBitmap(5, 5, 1, 8);
  for (const auto operation : {DuplicateBitmap, ConvertToMonochromeBitmap}) {
    host::FailNth(host::Fault::kAllocation, 1);
    EXPECT_EQ(nullptr, operation(bitmap));
    EXPECT_EQ(ErrNoMemory, RastrelError());
  }
  DeleteObject(bitmap);
  EXPECT_EQ(nullptr, ConvertToMonochromeBitmap(nullptr));
  EXPECT_EQ(ErrParameter, RastrelError());
  EXPECT_EQ(nullptr, ConvertToMonochromeBitmap(kDead));
}

TEST(DeviceBitmaps, SurviveEveryFault) {
  const TestDib page = TestDib::Random(8, 5, 5, 1);
  HBITMAP bitmap = AnyBitmap(5, 5, 1, 8);
  const std::function<void*()> operations[] = {
      [&] { return ConvertBitmapToDIB(bitmap, nullptr); }, [&] { return ConvertDIBToBitmap(page.handle()); },
      [&] { return DuplicateBitmap(bitmap); }, [&] { return ConvertToMonochromeBitmap(bitmap); }};
  const size_t alive = host::LiveBlocks() + host::LiveObjects();
  for (int i = 0; i < 12; ++i) {
    const auto fault = static_cast<host::Fault>(i % 3);
    for (int n = 1, struck = 1; struck != 0; ++n) {
      host::FailNth(fault, n);
      void* result = operations[i / 3]();
      struck = host::FaultStruck(fault) ? 1 : 0;
      host::FailNth(fault, 0);
      EXPECT_TRUE(struck != 0 || result != nullptr);
      GlobalFree(result);
      DeleteObject(result);
      EXPECT_EQ(alive, host::LiveBlocks() + host::LiveObjects()) << i << ", " << n;
      EXPECT_TRUE(page.Unchanged());
    }
  }
  DeleteObject(bitmap);
}

TEST(SaveBitmap, KeptNeverFreesThePageMadeOnTheWay) {
  const std::string path =
      (std::filesystem::temp_directory_path() / ("bitmap-" + std::to_string(getpid()))).string();
  const size_t blocks = host::LiveBlocks();
  HBITMAP bitmap = AnyBitmap(9, 4, 1, 32);
  EXPECT_EQ(1, SaveBitmap(path.c_str(), bitmap, nullptr));
  EXPECT_EQ(0, SaveBitmap("/nowhere/page.bmp", bitmap, nullptr));
  EXPECT_EQ(0, SaveBitmap(path.c_str(), kDead, nullptr));
  HBITMAP loaded = LoadBitmapFromFile(path.c_str());
  EXPECT_EQ(blocks + 2, host::LiveBlocks());
  const TestDib saved(ConvertBitmapToDIB(bitmap, nullptr)), again(ConvertBitmapToDIB(loaded, nullptr));
  EXPECT_EQ(saved.Pixels(), again.Pixels());
  for (HBITMAP object : {bitmap, loaded}) EXPECT_EQ(1, DeleteObject(object));
  std::filesystem::remove(path);
  EXPECT_EQ(nullptr, LoadBitmapFromFile(path.c_str()));
}

}  // namespace
}  // namespace rastrel::testing
