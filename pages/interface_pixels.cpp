// Pages of pixels in the caller's memory, and back.
#include <algorithm>
#include <array>
#include <cstdlib>

#include "pages/interface.h"

namespace rastrel::pages {
namespace {

// What lies where in a pixel of the caller's; columns of no meaning are -1.
struct Layout {
  int bytes;  // 0: 1 bit
  int red, green, blue, alpha;
  uint8_t flip;  // of 1-bit rows, so that 0 is black
};

Layout LayoutOf(int format) {
  switch (format) {
    case PixelsBit0Black:
      return {0, -1, -1, -1, -1, 0x00};
    case PixelsBit1Black:
      return {0, -1, -1, -1, -1, 0xFF};
    case PixelsGrey8:
      return {1, 0, 0, 0, -1, 0};
    case PixelsRgb:
      return {3, 0, 1, 2, -1, 0};
    case PixelsBgr:
      return {3, 2, 1, 0, -1, 0};
    case PixelsRgba:
      return {4, 0, 1, 2, 3, 0};
    case PixelsBgra:
      return {4, 2, 1, 0, 3, 0};
    default:
      BadArgument("there is no such format of pixels");
  }
}

// Bytes of a row, of which those of the last column count whole.
size_t RowBytes(int width, const Layout& layout) {
  const auto columns = static_cast<size_t>(width);
  return layout.bytes == 0 ? (columns + 7) / 8 : columns * static_cast<size_t>(layout.bytes);
}

constexpr double kMostDpi = 1e6;
double DpiFrom(double dpi) {
  return InRange(dpi, 0.0, kMostDpi, "a resolution is 0 to 1000000 dots per inch");
}

void CheckRows(const void* pixels, int32_t width, int32_t height, ptrdiff_t stride, const Layout& layout) {
  Require(pixels != nullptr, "there are no pixels");
  Require(width > 0 && height > 0, "a page has a width and a height");
  Require(stride > PTRDIFF_MIN, "rows lie too far apart");
  Require(static_cast<size_t>(std::abs(stride)) >= RowBytes(width, layout) || height == 1,
          "rows lie closer than they are long");
}

uint8_t Over(int value, int ground, int alpha) {
  return static_cast<uint8_t>((value * alpha + ground * (255 - alpha) + 127) / 255);
}

void TakeRow(const uint8_t* in, const Layout& layout, COLORREF ground, int width, uint8_t* out) {
  const size_t bytes = RowBytes(width, layout);
  if (layout.bytes == 3 && layout.blue == 0) {
    std::memcpy(out, in, bytes);
    return;
  }
  if (layout.bytes <= 1) {
    std::transform(in, in + bytes, out,
                   [&](uint8_t byte) { return static_cast<uint8_t>(byte ^ layout.flip); });
    if (layout.bytes == 0 && width % 8 != 0) out[bytes - 1] &= static_cast<uint8_t>(0xFF << (8 - width % 8));
    return;
  }
  const int red = ground & 0xFF, green = ground >> 8 & 0xFF, blue = ground >> 16 & 0xFF;
  for (int x = 0; x < width; ++x, in += layout.bytes, out += 3) {
    const int alpha = layout.alpha < 0 ? 255 : in[layout.alpha];
    out[0] = alpha == 255 ? in[layout.blue] : Over(in[layout.blue], blue, alpha);
    out[1] = alpha == 255 ? in[layout.green] : Over(in[layout.green], green, alpha);
    out[2] = alpha == 255 ? in[layout.red] : Over(in[layout.red], red, alpha);
  }
}

Dib TakePixels(const void* pixels, int32_t width, int32_t height, ptrdiff_t stride, int format, double dpiX,
               double dpiY, COLORREF ground) {
  const Layout layout = LayoutOf(format);
  CheckRows(pixels, width, height, stride, layout);
  const int bits = layout.bytes == 0 ? 1 : layout.bytes == 1 ? 8 : 24;
  Dib page = MakePage(width, height, bits, {PixelsPerMetre(DpiFrom(dpiX)), PixelsPerMetre(DpiFrom(dpiY))});
  const PageView view(page);
  for (int y = 0; y < height; ++y) {
    uint8_t* row = view.PageRow(y);
    std::memset(row + view.stride() - 4, 0, 4);
    TakeRow(static_cast<const uint8_t*>(pixels) + y * stride, layout, ground, width, row);
  }
  return page;
}

// Rows of 1 bit: bits beyond the last column stay.
void GiveBits(const PageView& page, int y, uint8_t flip, uint8_t* out) {
  const uint8_t* row = page.PageRow(y);
  const auto whole = static_cast<size_t>(page.width() / 8);
  for (size_t i = 0; i < whole; ++i) out[i] = static_cast<uint8_t>(row[i] ^ flip);
  if (page.width() % 8 == 0) return;
  const int mask = 0xFF << (8 - page.width() % 8);
  out[whole] = static_cast<uint8_t>((out[whole] & ~mask) | ((row[whole] ^ flip) & mask));
}

void PutColour(RGBQUAD colour, const Layout& layout, uint8_t* out) {
  if (layout.bytes == 1) {
    out[0] = Luma(colour.rgbRed, colour.rgbGreen, colour.rgbBlue);
    return;
  }
  out[layout.red] = colour.rgbRed;
  out[layout.green] = colour.rgbGreen;
  out[layout.blue] = colour.rgbBlue;
  if (layout.alpha >= 0) out[layout.alpha] = 255;
}

void GiveRow(const PageView& page, int y, const Layout& layout, uint8_t* out) {
  const uint8_t* row = page.PageRow(y);
  if (page.bits() == 24) {
    for (int x = 0; x < page.width(); ++x, row += 3, out += layout.bytes) {
      PutColour({row[0], row[1], row[2], 0}, layout, out);
    }
    return;
  }
  std::array<std::array<uint8_t, 4>, 256> pixels{};  // of each index
  for (size_t i = 0; i < page.palette().size(); ++i) PutColour(page.palette()[i], layout, pixels[i].data());
  for (int x = 0; x < page.width(); ++x, out += layout.bytes) {
    std::memcpy(out, pixels[GetIndex(row, page.bits(), x)].data(), static_cast<size_t>(layout.bytes));
  }
}

// Whether rows go over as they are.
bool IsSame(const PageView& page, int format) {
  return format == (page.bits() == 24 ? PixelsBgr : PixelsGrey8) && page.bits() >= 8 &&
         (page.bits() == 24 || HasGreyRamp(page));
}

void GivePixels(const Dib& page, void* pixels, ptrdiff_t stride, int format) {
  const PageView view(page);
  const Layout layout = LayoutOf(format);
  CheckRows(pixels, view.width(), view.height(), stride, layout);
  if (layout.bytes == 0 && view.bits() != 1) throw PageError("the page has more than black and white");
  const bool isBlackZero = view.bits() != 1 || ExtremeInk(view, /*light=*/false).bytes[0] == 0;
  const auto flip = static_cast<uint8_t>(layout.flip ^ (isBlackZero ? 0 : 0xFF));
  const bool isSame = IsSame(view, format);
  for (int y = 0; y < view.height(); ++y) {
    uint8_t* out = static_cast<uint8_t*>(pixels) + y * stride;
    if (isSame) {
      std::memcpy(out, view.PageRow(y), RowBytes(view.width(), layout));
    } else {
      layout.bytes == 0 ? GiveBits(view, y, flip, out) : GiveRow(view, y, layout, out);
    }
  }
}

template <class Change>
void ChangeHeader(HGLOBAL page, Change change) {
  const InputPage checked(page);
  auto* header = static_cast<BITMAPINFOHEADER*>(GlobalLock(page));
  if (header == nullptr) BadArgument("there is no page");
  change(*header);
  GlobalUnlock(page);
}

}  // namespace
}  // namespace rastrel::pages

using namespace rastrel::pages;

HGLOBAL RASTREL_CALL PageFromPixels(const void* pixels, int32_t width, int32_t height, ptrdiff_t stride,
                                    int format, double dpiX, double dpiY) {
  constexpr COLORREF kWhite = 0x00FFFFFF;
  return PageFromPixelsOver(pixels, width, height, stride, format, dpiX, dpiY, kWhite);
}

HGLOBAL RASTREL_CALL PageFromPixelsOver(const void* pixels, int32_t width, int32_t height, ptrdiff_t stride,
                                        int format, double dpiX, double dpiY, COLORREF ground) {
  return Guarded<HGLOBAL>(nullptr, [&] {
    return TakePixels(pixels, width, height, stride, format, dpiX, dpiY, ground).Release();
  });
}

int RASTREL_CALL PixelsFromPage(HGLOBAL page, void* pixels, ptrdiff_t stride, int format) {
  return Guarded(0, [&] {
    const InputPage input(page);
    GivePixels(input.dib(), pixels, stride, format);
    return 1;
  });
}

int RASTREL_CALL DescribePage(HGLOBAL page, PageInfo* info) {
  return Guarded(0, [&] {
    const InputPage input(page);
    GiveStruct(InfoOf(PageView(input.dib())), info);
    return 1;
  });
}

int RASTREL_CALL SetPageResolution(HGLOBAL page, double dpiX, double dpiY) {
  return Guarded(0, [&] {
    const int32_t x = PixelsPerMetre(DpiFrom(dpiX)), y = PixelsPerMetre(DpiFrom(dpiY));
    ChangeHeader(page, [&](BITMAPINFOHEADER& header) {
      header.biXPelsPerMeter = x;
      header.biYPelsPerMeter = y;
    });
    return 1;
  });
}

int RASTREL_CALL CompletePageResolution(HGLOBAL page, double dpi, int32_t* isAssumed) {
  return Guarded(0, [&] {
    DpiFrom(dpi);
    bool wasAssumed = false;
    ChangeHeader(page, [&](BITMAPINFOHEADER& header) { wasAssumed = CompleteResolution(&header, dpi); });
    if (isAssumed != nullptr) *isAssumed = wasAssumed;
    return 1;
  });
}
