// A rectangle of a page of greys enlarged by whole factors, as levels of grey.
#ifndef RASTREL_TESTS_REFERENCE_GREY_SCALING_H
#define RASTREL_TESTS_REFERENCE_GREY_SCALING_H

#include "dib.h"
#include "scaling.h"

namespace reference {

// Mostly one below the entry that matches.
inline uint8_t IndexOfLevel(const View& page, int v) {
  const int n = 1 << page.bits;
  int k = 0, previous = 0, current = page.Entry(1).blue;
  while (current < v && k < n - 1) {
    ++k;
    previous = current;
    current = page.Entry(k + 1).blue;
  }
  if (k == n - 1) return static_cast<uint8_t>(n - 1);
  if (current == v) return static_cast<uint8_t>(k);
  if (v - previous > current - v) return static_cast<uint8_t>(k);
  return static_cast<uint8_t>(k - 1);
}

// In pixels; `top` counts stored rows. The result has a full table, whatever its header says.
inline Block ScaleGrayDIB(const Block& dib, int16_t left, int16_t top, int16_t width, int16_t height,
                          int16_t xFactor, int16_t yFactor, int mode) {
  const View source(dib);
  if (source.bits != 4 && source.bits != 8) return {};
  if (mode != 0 && mode != 1) return {};
  if (!HoldsItsRows(source)) return {};
  if (xFactor < 1 || yFactor < 1 || width < 1 || height < 1 || left < 0 || top < 0) return {};
  if (left + width > source.width || top + height > source.height) return {};
  const int newWidth = width * xFactor, newHeight = height * yFactor;
  if (newWidth > 32767 || newHeight > 32767) return {};

  const int64_t pixels = kHeader + 4 * (1 << source.bits), stride = Stride(newWidth, source.bits);
  Block result(static_cast<size_t>(pixels + stride * newHeight));
  for (int64_t i = 0; i < pixels; ++i) Byte(result, i) = ByteAt(dib, i);
  SetField(result, kWidth, 4, newWidth);
  SetField(result, kHeight, 4, newHeight);
  SetField(result, kSizeImage, 4, stride * newHeight);

  const auto unpacked = [&](uint32_t row) {
    Plane levels(width);
    for (int x = 0; x < width; ++x) {
      levels[x] = static_cast<uint8_t>(source.Entry(source.Pixel(left + x, top + row)).blue);
    }
    return std::vector<Plane>{levels};
  };
  const auto put = [&](uint16_t y, const std::vector<Line>& lines) {
    for (int x = 0; x < newWidth; ++x) {
      const int index = IndexOfLevel(source, lines[0][static_cast<size_t>(x)]) & ((1 << source.bits) - 1);
      OrPixel(result, pixels + y * stride, x, source.bits, index);
    }
  };
  ScaleRows(mode == 1, width, height, newWidth, newHeight, unpacked, put);
  return result;
}

}  // namespace reference

#endif
