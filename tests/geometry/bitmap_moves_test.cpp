// The mirror images, turns and inversion of device bitmaps.
#include <gtest/gtest.h>
#include <rastrel.h>

#include <algorithm>
#include <random>

#include "tests/reference/mirror.h"
#include "tests/support/faults.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

using reference::DeviceBitmap;

HBITMAP Make(const DeviceBitmap& from) {
  return CreateBitmap(from.width, from.height, static_cast<unsigned>(from.planes),
                      static_cast<unsigned>(from.bits), from.bytes.data());
}

Bytes BytesOf(HBITMAP bitmap) {
  Bytes bytes(static_cast<size_t>(GetBitmapBits(bitmap, 0, nullptr)));
  GetBitmapBits(bitmap, static_cast<int32_t>(bytes.size()), bytes.data());
  return bytes;
}

// Random bits, in the padding of the rows too where asked for.
DeviceBitmap RandomBits(int width, int height, int planes, int bits, bool isPaddingSet = false) {
  DeviceBitmap bitmap = {width, height, (width * bits + 15) / 16 * 2, planes, bits, {}};
  std::mt19937 random(static_cast<unsigned>(width * 1000 + height));
  bitmap.bytes.resize(static_cast<size_t>(bitmap.widthBytes * height * planes));
  for (size_t i = 0; i < bitmap.bytes.size(); ++i) {
    const int bitsLeft = width * bits - static_cast<int>(i % static_cast<size_t>(bitmap.widthBytes)) * 8;
    const int mask = isPaddingSet ? 0xFF : 0xFF00 >> std::clamp(bitsLeft, 0, 8);
    bitmap.bytes[i] = static_cast<uint8_t>(random() >> 8 & static_cast<unsigned>(mask));
  }
  return bitmap;
}

// Moves a bitmap in place, or makes a moved one; null when it fails.
template <int(RASTREL_CALL* operation)(HBITMAP)>
HBITMAP RASTREL_CALL InPlace(HBITMAP bitmap) {
  return operation(bitmap) == 1 ? bitmap : nullptr;
}
struct Move {
  HBITMAP(RASTREL_CALL* operation)(HBITMAP);
  DeviceBitmap (*plain)(const DeviceBitmap&);
};
constexpr Move kMoves[] = {{RotateBitmap90, reference::RotateBitmap90},
                           {RotateBitmap270, reference::RotateBitmap270},
                           {InPlace<RotateBitmap180>, reference::RotateBitmap180},
                           {InPlace<FlipBitmapVertical>, reference::FlipBitmapVertical},
                           {InPlace<FlipBitmapHorizontal>, reference::FlipBitmapHorizontal}};

void ExpectAsReference(const DeviceBitmap& bits) {
  for (const Move& move : kMoves) {
    HBITMAP bitmap = Make(bits);
    HBITMAP moved = move.operation(bitmap);
    const DeviceBitmap expected = move.plain(bits);
    BITMAP description = {};
    GetObjectA(moved, sizeof description, &description);
    EXPECT_EQ(std::pair(expected.width, expected.height),
              (std::pair<int, int>(description.bmWidth, description.bmHeight)));
    EXPECT_EQ(expected.planes, description.bmPlanes);
    ASSERT_EQ(expected.bytes, BytesOf(moved))
        << "move " << &move - kMoves << ", " << bits.width << " x " << bits.height << ", " << bits.planes
        << " planes of " << bits.bits << " bits";
    EXPECT_TRUE(moved == bitmap || bits.bytes == BytesOf(bitmap));
    for (HBITMAP made : {moved, bitmap}) DeleteObject(made);
  }
}

constexpr int kWidths[] = {1, 2, 7, 8, 9, 15, 16, 17, 31, 33, 63, 64, 65, 100};

TEST(BitmapMoves, EqualThePixelByPixelMoves) {
  for (const int bits : {1, 4, 8, 16, 24, 32}) {
    for (const int width : kWidths) ExpectAsReference(RandomBits(width, 1 + width * 7 % 90, 1, bits));
    // Around 65,536 bytes.
    const int rowBytes = (300 * bits + 15) / 16 * 2;
    for (const int more : {0, 1}) ExpectAsReference(RandomBits(300, 65535 / rowBytes + more, 1, bits));
    ExpectAsReference(RandomBits(2048 / bits, 256, 1, bits));
  }
}

TEST(BitmapMoves, TakePlanesAndPaddingAlong) {
  for (const int bits : {1, 4, 8, 16, 24, 32}) {
    for (int planes = 1; planes <= 4 && planes * bits <= 32; ++planes) {
      for (const int width : kWidths) {
        ExpectAsReference(RandomBits(width, 1 + width * 7 % 90, planes, bits, /*isPaddingSet=*/true));
      }
      const int rowBytes = (300 * bits + 15) / 16 * 2 * planes;
      for (const int more : {0, 1}) ExpectAsReference(RandomBits(300, 65535 / rowBytes + more, planes, bits));
      ExpectAsReference(RandomBits(2048 / bits, 256 / planes, planes, bits));
    }
  }
}

// 1 is a pixel that is set. The last row becomes the left column.
TEST(BitmapMoves, KeptRotateBitmap270LosesTheLastRowOfAMonochromeBitmap) {
  HBITMAP ones = Make({2, 2, 2, 1, 1, {0xC0, 0, 0xC0, 0}});
  HBITMAP turned = RotateBitmap270(ones);
  EXPECT_EQ((Bytes{0x40, 0, 0x40, 0}), BytesOf(turned));
  for (HBITMAP made : {turned, ones}) DeleteObject(made);
}

TEST(BitmapMoves, RefuseWhatIsNoBitmapAndSurviveFaults) {
  const LOGPALETTE oneColour = {0x300, 1, {}};
  HPALETTE palette = CreatePalette(&oneColour);
  const TestDib page = TestDib::Random(8, 3, 3, 1);
  HBITMAP bitmap = Make(RandomBits(50, 20, 1, 8));
  for (const Move& move : kMoves) {
    const size_t objects = host::LiveObjects();
    for (void* other : std::initializer_list<void*>{palette, page.handle(), nullptr}) {
      SetRastrelError(kErrorBefore);
      EXPECT_EQ(nullptr, move.operation(static_cast<HBITMAP>(other)));
      EXPECT_EQ(ErrBitmapParams, RastrelError());
    }
    const auto run = [&](HGLOBAL) {
      const Bytes before = BytesOf(bitmap);
      HBITMAP moved = move.operation(bitmap);
      if (moved != nullptr && moved != bitmap) DeleteObject(moved);
      EXPECT_TRUE(moved == bitmap || BytesOf(bitmap) == before);
      EXPECT_EQ(objects, host::LiveObjects());
      return moved;
    };
    for (const host::Fault fault : {host::Fault::kAllocation, host::Fault::kLock}) {
      ExpectEveryFault(fault, page, ErrNoMemory, run);
    }
    if (&move - kMoves < 2) ExpectEveryFault(host::Fault::kCreation, page, ErrCreateBitmap, run);
  }
  DeleteObject(bitmap);
  DeleteObject(palette);
}

void ExpectInverted(int bits) {
  const TestDib unused = TestDib::Random(8, 1, 1, 1);
  const DeviceBitmap before = RandomBits(48, 5, 1, bits);
  HBITMAP bitmap = Make(before);
  const size_t objects = host::LiveObjects();
  ExpectEveryFault(host::Fault::kCreation, unused, kErrorBefore, [&](HGLOBAL) {
    HBITMAP inverted = InPlace<InvertBitmap>(bitmap);
    EXPECT_EQ(inverted == nullptr, before.bytes == BytesOf(bitmap));
    EXPECT_EQ(objects, host::LiveObjects());
    return inverted;
  });
  Bytes inverted = before.bytes;
  for (uint8_t& byte : inverted) byte = static_cast<uint8_t>(~byte);
  EXPECT_EQ(inverted, BytesOf(bitmap)) << bits << " bits";
  EXPECT_EQ(1, DeleteObject(bitmap));
}

TEST(InvertBitmap, InvertsEveryPixelAndLetsTheBitmapGo) {
  for (const int bits : {1, 32}) ExpectInverted(bits);
  for (void* other : {TestDib::Random(8, 1, 1, 1).handle(), HGLOBAL{nullptr}})
    EXPECT_EQ(0, InvertBitmap(static_cast<HBITMAP>(other)));
}

TEST(InvertBitmap, TakesOtherDepthsThanTheScreens) {
  for (const int bits : {4, 8, 16, 24}) ExpectInverted(bits);
}

}  // namespace
}  // namespace rastrel::testing
