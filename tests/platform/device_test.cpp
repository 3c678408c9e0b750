#include <gtest/gtest.h>
#include <rastrel.h>

#include <algorithm>
#include <climits>
#include <random>
#include <vector>

#include "platform/host/fault_injection.h"
#include "platform/host/system.h"

namespace rastrel::testing {
namespace {

using Bytes = std::vector<uint8_t>;
using Words = std::vector<uint32_t>;  // colours are 0xRRGGBB
constexpr int kFormats[][2] = {{1, 1}, {1, 4}, {1, 8}, {1, 16}, {1, 24}, {1, 32}, {4, 1}, {2, 4}, {3, 8}};

// A bitmap or a DIB (rows from the bottom up), reached bit by bit, and what its pixels mean.
struct Picture {
  int planes, bits, width, height;
  bool isDib;
  Words table;
  Bytes bytes = Bytes(Stride() * height * planes);

  size_t Stride() const { return isDib ? (width * bits + 31) / 32 * 4 : (width * bits + 15) / 16 * 2; }
  int Depth() const { return planes * bits; }
  HBITMAP Create() const { return CreateBitmap(width, height, planes, bits, bytes.data()); }
  // Returns a pixel, and makes it `*set`.
  uint32_t At(int x, int y, const uint32_t* set = nullptr) {
    uint32_t value = 0;
    for (int i = 0; i < Depth(); ++i) {
      const int plane = i / bits, k = i % bits, row = isDib ? height - 1 - y : y;
      const int bit = x * bits + (bits < 8 ? bits - 1 - k : k / 8 * 8 + 7 - k % 8), shift = 7 - bit % 8;
      const size_t start = Stride() * (bytes.size() < 65536 ? row * planes + plane : plane * height + row);
      uint8_t& byte = bytes[start + bit / 8];
      value |= uint32_t(byte >> shift & 1) << i;
      if (set != nullptr) byte = uint8_t((byte & ~(1 << shift)) | (*set >> i & 1) << shift);
    }
    return value;
  }
};

uint32_t Turned(uint32_t value, const Picture& from, const Picture& to) {
  const int depth = from.Depth();
  if (depth == to.Depth() && (depth == 4 || depth == 8)) return value;
  if (depth <= 8) value = value < from.table.size() ? from.table[value] : 0;
  int rgb[3];
  for (int c = 0; c < 3; ++c) rgb[c] = depth == 16 ? (value >> 5 * c & 31) * 33 / 4 : value >> 8 * c & 255;
  if (to.Depth() == 16) return rgb[2] / 8 << 10 | rgb[1] / 8 << 5 | rgb[0] / 8;
  if (to.Depth() > 16) return rgb[2] << 16 | rgb[1] << 8 | rgb[0];
  const auto distance = [&](uint32_t colour) {
    const auto apart = [&](int c) { return int(colour >> 8 * c & 255) - rgb[c]; };
    return apart(0) * apart(0) + apart(1) * apart(1) + apart(2) * apart(2);
  };
  return uint32_t(std::ranges::min_element(to.table, {}, distance) - to.table.begin());
}

struct Place {
  int x, y, width, height, fromX, fromY;
};
Bytes Drawn(Picture to, Picture from, Place at, DWORD operation) {
  for (int i = 0; i < to.width * to.height; ++i) {
    const int x = i % to.width, y = i / to.width, fromX = x - at.x + at.fromX, fromY = y - at.y + at.fromY;
    if (x < at.x || y < at.y || x - at.x >= at.width || y - at.y >= at.height) continue;
    const bool isInside = fromX >= 0 && fromY >= 0 && fromX < from.width && fromY < from.height;
    if (!isInside && operation != DSTINVERT) continue;
    uint32_t value = isInside ? from.At(fromX, fromY) : 0;
    if (from.Depth() != to.Depth() || from.isDib != to.isDib) value = Turned(value, from, to);
    value = operation == DSTINVERT ? ~to.At(x, y) : operation == SRCAND ? value & to.At(x, y) : value;
    to.At(x, y, &value);
  }
  return to.bytes;
}

Bytes BitsOf(HBITMAP bitmap) {
  Bytes bits(GetBitmapBits(bitmap, 0, nullptr));
  EXPECT_EQ(bits.size(), size_t(GetBitmapBits(bitmap, INT_MAX, bits.data())));
  return bits;
}
HPALETTE PaletteOf(const Words& colours) {
  Words record = {0x300 | uint32_t(colours.size()) << 16};
  for (const uint32_t c : colours) record.push_back(c >> 16 | (c & 0xFF00) | (c & 0xFF) << 16);
  return CreatePalette(reinterpret_cast<const LOGPALETTE*>(record.data()));
}
Words Info(uint32_t width, uint32_t height, uint32_t bits, Words table = {}) {
  table.insert(table.begin(), {40, width, height, bits << 16 | 1, 0, 0, 0, 0, uint32_t(table.size()), 0});
  return table;
}
int PassRows(HDC context, HBITMAP bitmap, Words info, uint8_t* rows) {
  auto* const is = reinterpret_cast<BITMAPINFO*>(info.data());
  return GetDIBits(context, bitmap, 0, 2, rows, is, 0) + SetDIBits(context, bitmap, 0, 2, rows, is, 0);
}

// Leaves nothing alive.
struct Device : ::testing::Test {
  ~Device() override {
    EXPECT_EQ(1, ReleaseDC(nullptr, screen_));
    EXPECT_EQ(live_, host::LiveObjects());
  }
  const size_t live_ = host::LiveObjects();
  const HDC screen_ = GetDC(nullptr);
};

TEST_F(Device, TransfersAreWhatAWalkOverThePixelsGives) {
  std::mt19937 random(5);
  const auto within = [&](int first, int last) { return first + int(random() % (last - first + 1)); };
  Words colours(12);
  for (uint32_t& colour : colours) colour = random() & 0xFFFFFF;
  const auto noise = [&](const int* format, int widest, bool isDib) {
    Picture made = {format[0], format[1], within(1, widest), within(2, widest / 50 + 9), isDib, colours};
    for (uint8_t& byte : made.bytes) byte = uint8_t(random());
    if (made.Depth() == 1) made.table = isDib ? Words{colours[0], colours[within(0, 1)]} : Words{0, 0xFFFFFF};
    if (isDib) std::ranges::reverse(made.table);
    return made;
  };
  HPALETTE palette = PaletteOf(colours);
  for (int round = 0; round < 3000; ++round) {
    const bool isDib = round % 2 == 0, isSame = round % 6 == 1;
    const int widest = round % 240 < 6 ? 1500 : 40;
    const int* const format = kFormats[within(0, 8)];
    const Picture old = noise(format, widest, false);
    Picture other =
        isSame ? old : noise(round % 6 == 3 ? format : kFormats[within(0, isDib ? 5 : 8)], widest, isDib);
    HBITMAP bitmap = old.Create(), source = isSame ? bitmap : other.Create();
    HDC to = CreateCompatibleDC(screen_), from = isSame ? to : CreateCompatibleDC(nullptr);
    SelectPalette(from, palette, 0), SelectPalette(to, palette, 0);
    if (isDib) {
      Words info = Info(other.width, other.height, other.bits, other.table);
      auto* const is = reinterpret_cast<BITMAPINFO*>(info.data());
      const int start = within(0, 1), rows = std::min(old.height, other.height) - start;
      const int top = old.height - start - rows;
      other.bytes.resize(other.Stride() * (other.height = rows));
      EXPECT_EQ(rows, SetDIBits(to, bitmap, start, rows, other.bytes.data(), is, DIB_RGB_COLORS));
      ASSERT_EQ(Drawn(old, other, {0, top, other.width, rows, 0, 0}, SRCCOPY), BitsOf(bitmap)) << round;
      SetBitmapBits(bitmap, UINT32_MAX, old.bytes.data());
      EXPECT_EQ(rows, GetDIBits(to, bitmap, start, 99, other.bytes.data(), is, DIB_RGB_COLORS));
      const Picture blank = {1, other.bits, other.width, rows, true, other.table};
      ASSERT_EQ(Drawn(blank, old, {0, 0, other.width, rows, 0, top}, SRCCOPY), other.bytes) << round;
    } else {
      const int width = widest > 40 ? INT_MAX : within(-2, 99), fromX = within(-9, 40);
      const int y = within(-3, 9), fromY = round % 4 == 1 ? y : within(-3, 9);
      const Place at = {within(-9, 40), y, width, within(-1, 40), fromX, fromY};
      const DWORD operation = round % 7 == 0 ? DSTINVERT : round % 5 < 2 ? SRCAND : SRCCOPY;
      SelectObject(from, source), SelectObject(to, bitmap);
      HDC drawn = operation == DSTINVERT ? nullptr : from;
      EXPECT_TRUE(BitBlt(to, at.x, y, width, at.height, drawn, fromX, fromY, operation));
      ASSERT_EQ(Drawn(old, other, at, operation), BitsOf(bitmap)) << round;
    }
    DeleteDC(to), DeleteDC(from), DeleteObject(bitmap), DeleteObject(source);
  }
  DeleteObject(palette);
}

TEST_F(Device, ABitmapIsInOneContextAtATime) {
  uint8_t rows[24] = {};
  HBITMAP bitmap = CreateBitmap(3, 2, 1, 24, nullptr);
  HDC context = CreateCompatibleDC(screen_), other = CreateCompatibleDC(nullptr);
  HGDIOBJ stock = SelectObject(context, bitmap);
  EXPECT_FALSE(SelectObject(other, bitmap) || SelectObject(screen_, bitmap) || DeleteObject(bitmap) ||
               ReleaseDC(nullptr, context) || DeleteDC(screen_) ||
               PassRows(screen_, bitmap, Info(3, 2, 24), rows));
  EXPECT_EQ(20, SetBitmapBits(bitmap, 30, rows));
  EXPECT_TRUE(DeleteDC(context) && PassRows(screen_, bitmap, Info(3, 2, 24), rows) == 4);
  EXPECT_EQ(stock, SelectObject(other, bitmap));
  EXPECT_EQ(bitmap, SelectObject(other, stock));
  // All contexts share the first bitmap: nothing changes it, or deletes it.
  EXPECT_TRUE(BitBlt(other, 0, 0, 1, 1, nullptr, 0, 0, DSTINVERT) && DeleteObject(stock));
  EXPECT_EQ((Bytes{0, 0}), BitsOf(stock));
  EXPECT_TRUE(DeleteObject(bitmap) && DeleteDC(other));
}

TEST_F(Device, RefusesWhatIsDeadOrLies) {
  HBITMAP freed = CreateBitmap(1, 1, 1, 1, nullptr), good = CreateBitmap(0, 5, 1, 99, nullptr);
  HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE, 64);
  DeleteObject(freed);
  uint8_t room[64];
  const Words info = Info(1, 1, 1, {0, 0xFFFFFF});
  EXPECT_EQ(2, PassRows(screen_, good, info, room));
  for (void* dead : {HGLOBAL{}, block, freed, HGLOBAL(room), HGLOBAL(~uintptr_t{0})}) {
    EXPECT_FALSE(GetObjectA(dead, 64, room) || GetBitmapBits(dead, 64, room) || DeleteObject(dead) ||
                 SetBitmapBits(dead, 64, room) || PassRows(screen_, dead, info, room) || DeleteDC(dead) ||
                 SelectPalette(screen_, dead, 0) || BitBlt(screen_, 0, 0, 1, 1, dead, 0, 0, SRCCOPY));
  }
  const int lies[][2] = {{0, 12}, {1, 0}, {2, -1}, {3, 1 << 16 | 2}, {3, 2 << 16 | 1}, {4, 1}};
  for (const auto& [word, lie] : lies) {
    Words lying = info;
    lying[word] = lie;
    EXPECT_EQ(0, PassRows(screen_, good, lying, room));
  }
  const int sizes[][4] = {{-1, 0, 1, 1}, {1, 1, 1, 2}, {1, 1, 0, 8}, {1, 1, 2, 24}, {65536, 32768, 1, 8}};
  for (const auto& is : sizes) EXPECT_EQ(nullptr, CreateBitmap(is[0], is[1], is[2], is[3], nullptr));
  const auto armed = [] { return host::FailNth(host::Fault::kCreation, 1), true; };
  EXPECT_FALSE((armed() && CreateBitmap(1, 1, 1, 1, nullptr)) || (armed() && PaletteOf({1})) ||
               (armed() && GetDC(nullptr)) || (armed() && CreateCompatibleDC(nullptr)));
  EXPECT_TRUE(DeleteObject(good) && GlobalFree(block) == nullptr);
}

TEST_F(Device, GivesWhatThereIsRoomFor) {
  HBITMAP empty = CreateBitmap(0, 5, 1, 99, nullptr), wide = CreateBitmap(16, 2048, 2, 8, nullptr);
  BITMAP description;
  EXPECT_EQ(0, GetObjectA(empty, sizeof(BITMAP) - 1, &description));
  EXPECT_EQ(int(sizeof(BITMAP)), GetObjectA(empty, 99, &description));
  EXPECT_TRUE(description.bmWidth == 1 && description.bmHeight == 1 && description.bmBitsPixel == 1);
  HPALETTE palette = PaletteOf({0x010000, 0x030000, 0x030000, 0x050000});
  PALETTEENTRY entries[3] = {};
  EXPECT_EQ(2u, GetPaletteEntries(palette, 2, 9, entries));
  EXPECT_TRUE(entries[0].peRed == 3 && entries[1].peRed == 5 && entries[2].peRed == 0);
  EXPECT_EQ(1u, GetNearestPaletteIndex(palette, 0x03)) << "the first of equals";
  EXPECT_EQ(0u, GetNearestPaletteIndex(palette, 0x02)) << "and of equally near ones";
  Words record = {0x301 | 1 << 16, 0};
  EXPECT_EQ(nullptr, CreatePalette(reinterpret_cast<const LOGPALETTE*>(record.data())));
  // Two planes of 16 x 2,048 bytes are not interleaved any more.
  Bytes planes(65536);
  planes[32768] = 1;
  SetBitmapBits(wide, 65536, planes.data());
  Words info = Info(1, 2048, 24), pixels(2048);
  EXPECT_EQ(2048,
            GetDIBits(screen_, wide, 0, 2048, pixels.data(), reinterpret_cast<BITMAPINFO*>(info.data()), 0));
  EXPECT_EQ(66u << 8, pixels[2047]) << "8 of 31 greens";
  EXPECT_EQ(0u, pixels[0]);
  EXPECT_TRUE(DeleteObject(empty) && DeleteObject(wide) && DeleteObject(palette));
  EXPECT_TRUE(RastrelHostSetScreen(8, entries, 2));
  entries[1].peRed = 77;
  EXPECT_EQ(1u, GetSystemPaletteEntries(screen_, 0, 1, entries));
  EXPECT_TRUE(entries[0].peRed == 3 && entries[1].peRed == 77);
  EXPECT_TRUE(RastrelHostSetScreen(16, nullptr, 0));
  EXPECT_EQ(0u, GetSystemPaletteEntries(screen_, 0, 1, entries));
  EXPECT_EQ(1, RastrelHostSetScreen(32, nullptr, 0));
}

TEST_F(Device, ShowsTheScreensColours) {
  const PALETTEENTRY shown[] = {{255, 0, 0, 0}, {0, 200, 0, 0}, {0, 0, 9, 0}};
  EXPECT_FALSE(RastrelHostSetScreen(24, shown, 3) || RastrelHostSetScreen(1, shown, 3));
  EXPECT_TRUE(RastrelHostSetScreen(8, shown, 3) && GetDeviceCaps(screen_, SIZEPALETTE) == 3);
  HPALETTE palette = PaletteOf({0xFF8000, 0x00FF00}), none = SelectPalette(screen_, palette, 0);
  EXPECT_EQ(0x00C800u, GetNearestColor(screen_, PALETTEINDEX(1)));
  EXPECT_EQ(0x0000FFu, GetNearestColor(screen_, PALETTEINDEX(2)));  // as entry 0
  EXPECT_EQ(palette, SelectPalette(screen_, none, 0));
  EXPECT_EQ(0x090000u, GetNearestColor(screen_, PALETTEINDEX(2)));
  EXPECT_EQ(0x0000FFu, GetNearestColor(screen_, PALETTEINDEX(3)));
  EXPECT_TRUE(RastrelHostSetScreen(16, nullptr, 0) && DeleteObject(palette));
  EXPECT_EQ(0x523110u, GetNearestColor(screen_, 0x563412));
  EXPECT_EQ(1, RastrelHostSetScreen(32, nullptr, 0));
}

}  // namespace
}  // namespace rastrel::testing
