// Single pixels by their coordinates. Both operations have an idea of their own of where pixels lie: behind a
// colour table of the depth's full size, whatever biClrUsed says, and at 1 bit with the leftmost pixel of a
// byte in its lowest bit. Kept: callers read with one what they wrote with the other.
#include <cstring>

#include "frame/dib.h"
#include "frame/rastrel.h"

namespace rastrel {
namespace {

unsigned FullTable(unsigned bits) { return bits == 1 ? 2 : bits == 8 ? 256 : 0; }

RGBQUAD ColourAt(const uint8_t* bytes) { return {bytes[0], bytes[1], bytes[2], 0}; }
const uint8_t* EntryOf(const LockedDib& dib, unsigned index) {
  return dib.bytes() + kHeaderBytes + index * sizeof(RGBQUAD);
}

// Returns the first byte of the pixel in column x of page row y, null where there is none: no such pixel, a
// depth other than 1, 8 and 24 bits, or a block that ends before it. The full table is in the block then.
uint8_t* FindPixel(const LockedDib& dib, unsigned x, unsigned y) {
  const Header& header = dib.header();
  const unsigned bits = dib.bits();
  const auto width = static_cast<uint32_t>(header.biWidth);
  const auto height = static_cast<uint32_t>(header.biHeight);
  if (header.biSize != sizeof(Header) || x >= width || y >= height) return nullptr;
  if (header.biCompression != BI_RGB || (bits != 1 && bits != 8 && bits != 24)) return nullptr;

  const uint64_t stride = DIBRowBytes(width, bits);
  const uint64_t row = height - 1 - y;
  if (row > dib.size() / stride) return nullptr;  // the product might not fit 64 bits
  const uint64_t offset =
      kHeaderBytes + FullTable(bits) * sizeof(RGBQUAD) + row * stride + uint64_t{x} * bits / 8;
  return dib.Holds(offset, bits == 24 ? 3 : 1) ? dib.bytes() + offset : nullptr;
}

// Returns the first of `count` entries with the red, green and blue of `colour`, or -1.
int FindColorIndex(const LockedDib& dib, unsigned count, COLORREF colour) {
  const RGBQUAD wanted = QuadOf(RgbOfReversed(colour));
  for (unsigned i = 0; i < count; ++i) {
    if (std::memcmp(EntryOf(dib, i), &wanted, 3) == 0) return static_cast<int>(i);
  }
  return -1;
}

}  // namespace
}  // namespace rastrel

int RASTREL_CALL GetDIBPixelColor(HGLOBAL dib, unsigned x, unsigned y, COLORREF* colour) {
  using namespace rastrel;
  if (dib == nullptr || colour == nullptr) return 0;
  const LockedDib page(dib);
  if (!page) return 0;
  const uint8_t* pixel = FindPixel(page, x, y);
  if (pixel == nullptr) return 0;

  if (page.bits() == 1) {
    pixel = EntryOf(page, *pixel >> x % 8 & 1);
  } else if (page.bits() == 8) {
    pixel = EntryOf(page, *pixel);
  }
  *colour = RgbOfReversed(RgbOf(ColourAt(pixel)));
  return 1;
}

int RASTREL_CALL SetDIBPixelColor(HGLOBAL dib, unsigned x, unsigned y, COLORREF colour) {
  using namespace rastrel;
  if (dib == nullptr) return 0;
  LockedDib page(dib);
  if (!page) return 0;
  uint8_t* pixel = FindPixel(page, x, y);
  if (pixel == nullptr) return 0;

  if (page.bits() == 24) {
    const RGBQUAD bytes = QuadOf(RgbOfReversed(colour));
    std::memcpy(pixel, &bytes, 3);
    return 1;
  }
  const int index = FindColorIndex(page, FullTable(page.bits()), colour);
  if (index < 0) {
    page.KeepLocked();  // Kept: callers unlock the page once when a colour is not in the table.
    return 0;
  }
  if (page.bits() == 8) {
    *pixel = static_cast<uint8_t>(index);
  } else {
    *pixel = static_cast<uint8_t>((*pixel & ~(1 << x % 8)) | index << x % 8);
  }
  return 1;
}
