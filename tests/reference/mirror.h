// Mirror images and quarter turns of DIBs and of device bitmaps.
#ifndef RASTREL_TESTS_REFERENCE_MIRROR_H
#define RASTREL_TESTS_REFERENCE_MIRROR_H

#include <utility>

#include "dib.h"

namespace reference {

// Other depths are not copied at all. 15-bit pixels are copied as the two bytes from where they begin.
inline void CopyPixel(const Block& from, int64_t fromBit, Block& to, int64_t toBit, int bits) {
  if (bits == 1 || bits == 4) {
    for (int i = 0; i < bits; ++i) CopyBit(from, fromBit + i, to, toBit + i);
  }
  if (bits == 8 || bits == 15 || bits == 16 || bits == 24 || bits == 32) {
    for (int i = 0; i < (bits + 7) / 8; ++i) Byte(to, toBit / 8 + i) = ByteAt(from, fromBit / 8 + i);
  }
}

// The flips count every plane of a row.
inline int64_t StrideOfAllPlanes(const View& page) {
  return Stride(page.width, int64_t{page.bits} * Field(page.block, kPlanes, 2));
}

inline Block FlipDIBVertical(const Block& dib) {
  const View source(dib);
  const int64_t stride = StrideOfAllPlanes(source);
  Block result = WithHeadOf(source, source.pixels + source.height * stride + 4);
  for (int64_t i = 0; i < source.height * stride; ++i) {
    const int64_t row = source.height - 1 - i / stride;
    Byte(result, source.pixels + row * stride + i % stride) = ByteAt(dib, source.pixels + i);
  }
  return result;
}

inline Block FlipDIBHorizontal(const Block& dib) {
  const View source(dib);
  const int64_t stride = StrideOfAllPlanes(source), width = source.width, bits = source.bits;
  Block result = WithHeadOf(source, source.pixels + source.height * stride + width + 4);
  for (int64_t x = 0; x < width; ++x) {
    for (int64_t y = 0; y < source.height; ++y) {
      const int64_t row = 8 * (source.pixels + y * stride);
      CopyPixel(dib, row + x * bits, result, row + (width - 1 - x) * bits, source.bits);
    }
  }
  return result;
}

// Counter-clockwise; stored rows go up, so the rightmost column becomes the highest row.
inline Block TurnDIB(const Block& dib, int quarterTurns) {
  const View source(dib);
  const int64_t w = source.width, h = source.height, bits = source.bits;
  const bool knownDepth = bits == 24 || (bits > 0 && 32 % bits == 0);
  const auto size = static_cast<int64_t>(dib.size());
  if (Field(dib, 0, 4) != kHeader || Field(dib, 16, 4) != 0 || !knownDepth) return {};
  if (w <= 0 || h <= 0 || w % 65536 == 0 || h % 65536 == 0) return {};
  if (size < source.pixels || h > (size - source.pixels) / source.stride) return {};

  const int turns = (quarterTurns % 4 + 4) % 4;
  const bool swaps = turns % 2 == 1;
  const int64_t newWidth = swaps ? h : w, newHeight = swaps ? w : h;
  const int64_t newStride = Stride(newWidth, bits);
  Block result = WithHeadOf(source, source.pixels + newStride * newHeight);
  SetField(result, kWidth, 4, newWidth);
  SetField(result, kHeight, 4, newHeight);
  SetField(result, kSizeImage, 4, newStride * newHeight);
  SetField(result, kXPelsPerMeter, 4, Field(dib, swaps ? kYPelsPerMeter : kXPelsPerMeter, 4));
  SetField(result, kYPelsPerMeter, 4, Field(dib, swaps ? kXPelsPerMeter : kYPelsPerMeter, 4));
  for (int64_t y = 0; y < h; ++y) {
    for (int64_t x = 0; x < w; ++x) {
      const int64_t toX[] = {x, h - 1 - y, w - 1 - x, y}, toY[] = {y, x, h - 1 - y, w - 1 - x};
      for (int64_t bit = 0; bit < bits; ++bit) {
        CopyBit(dib, 8 * source.Row(y) + x * bits + bit, result,
                8 * (source.pixels + toY[turns] * newStride) + toX[turns] * bits + bit);
      }
    }
  }
  return result;
}

// Rows from the top down. bytes: widthBytes * height * planes of them.
struct DeviceBitmap {
  int width, height, widthBytes, planes, bits;
  Block bytes;
};

struct Place {
  int x, y;
};

// target(x, y, right, bottom) is the place of a pixel in the result; (right, bottom) is the last pixel.
template <class Target>
DeviceBitmap Moved(const DeviceBitmap& from, bool swapsSides, Target target, int rowsLeftOut = 0) {
  DeviceBitmap to = from;
  if (swapsSides) {
    std::swap(to.width, to.height);
    to.widthBytes = (to.width * to.bits + 15) / 16 * 2;
  }
  to.bytes.assign(static_cast<size_t>(int64_t{to.widthBytes} * to.height * to.planes), 0);

  // Below 64 KiB of source the planes of a row follow each other in both, from there on whole planes do.
  const bool interleaved = int64_t{from.widthBytes} * from.height * from.planes < 65536;
  const auto rowBit = [&](const DeviceBitmap& bitmap, int64_t plane, int64_t y) {
    return 8 * bitmap.widthBytes * (interleaved ? y * bitmap.planes + plane : plane * bitmap.height + y);
  };
  for (int plane = 0; plane < from.planes; ++plane) {
    for (int y = 0; y < from.height - rowsLeftOut; ++y) {
      for (int x = 0; x < from.width; ++x) {
        const Place place = target(x, y, from.width - 1, from.height - 1);
        CopyPixel(from.bytes, rowBit(from, plane, y) + x * from.bits, to.bytes,
                  rowBit(to, plane, place.y) + place.x * from.bits, from.bits);
      }
    }
  }
  return to;
}

inline DeviceBitmap RotateBitmap90(const DeviceBitmap& from) {
  return Moved(from, true, [](int x, int y, int right, int) { return Place{y, right - x}; });
}

// The last row of a mono bitmap is not moved.
inline DeviceBitmap RotateBitmap270(const DeviceBitmap& from) {
  const auto target = [](int x, int y, int, int bottom) { return Place{bottom - y, x}; };
  return Moved(from, true, target, from.bits == 1 ? 1 : 0);
}

inline DeviceBitmap RotateBitmap180(const DeviceBitmap& from) {
  return Moved(from, false, [](int x, int y, int right, int bottom) { return Place{right - x, bottom - y}; });
}

inline DeviceBitmap FlipBitmapHorizontal(const DeviceBitmap& from) {
  return Moved(from, false, [](int x, int y, int right, int) { return Place{right - x, y}; });
}

// Whole rows, their padding too.
inline DeviceBitmap FlipBitmapVertical(const DeviceBitmap& from) {
  DeviceBitmap bytes = from, result = from;
  bytes.width = from.widthBytes;
  bytes.bits = 8;
  result.bytes = Moved(bytes, false, [](int x, int y, int, int last) { return Place{x, last - y}; }).bytes;
  return result;
}

}  // namespace reference

#endif
