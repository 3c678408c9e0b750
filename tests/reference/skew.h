// Shear by whole pixels, and the dark side margins painted white.
#ifndef RASTREL_TESTS_REFERENCE_SKEW_H
#define RASTREL_TESTS_REFERENCE_SKEW_H

#include <cstdlib>

#include "dib.h"

namespace reference {

// Copies a stored row of the source so that its first pixel comes `offset` bits into the new row.
inline void ShearRow(const View& source, int row, int64_t offset, Block& result, int64_t newStride) {
  if (source.bits == 8 || source.bits == 24) offset = (offset + 7) / 8 * 8;
  int64_t first = offset / 8;
  int shift = static_cast<int>(offset % 8);
  if (source.bits == 24) first = first / 3 * 3;
  if (source.bits == 4) shift = shift < 4 ? 0 : 4;

  const int64_t bytes = (int64_t{source.width} * source.bits + 7) / 8;
  const int64_t newRow = source.pixels + row * newStride;
  for (int64_t i = 0; i < bytes; ++i) {
    const int value = ByteAt(source.block, source.Row(row) + i);
    const int64_t k = first + i;
    if (shift == 0) {
      Byte(result, newRow + k) = static_cast<uint8_t>(value);
    } else {
      uint8_t& byte = Byte(result, newRow + k);
      byte = static_cast<uint8_t>(byte | value >> shift);
      const int carried = (value & ((1 << shift) - 1)) << (8 - shift);
      if (k + 1 < newStride) Byte(result, newRow + k + 1) = static_cast<uint8_t>(carried);
    }
  }
}

// Copies column x of the source `rise` stored rows up; the stride is the same in both.
inline void ShearColumn(const View& source, int x, int64_t rise, Block& result) {
  if (source.bits != 1 && source.bits != 4 && source.bits != 8 && source.bits != 24) return;
  for (int row = 0; row < source.height; ++row) {
    OrPixel(result, source.Row(row + rise), x, source.bits, source.Pixel(x, row));
  }
}

// corners: x0, y0 top left, x1, y1 top right, x2, y2 bottom right, x3, y3 bottom left.
inline Block SkewDIB(const Block& block, bool horizontal, int shift, int32_t corners[8]) {
  const View source(block);
  const int w = source.width, h = source.height;
  if (w == 0 || h == 0) return {};

  const int32_t straight[8] = {0, 0, w, 0, w, h, 0, h};
  for (int i = 0; i < 8; ++i) {
    const bool isY = i % 2 == 1, isBottom = i >= 4;
    int64_t moved = straight[i];
    if (isY != horizontal) {
      if (shift >= 1 && !isBottom) moved += shift;
      if (shift <= 0 && isBottom) moved -= shift;
    }
    corners[i] = static_cast<int32_t>(moved);
  }

  const int64_t amount = std::llabs(shift);
  const int64_t newWidth = horizontal ? w + amount : w, newHeight = horizontal ? h : h + amount;
  const int64_t newStride = Stride(newWidth, source.bits);
  const int64_t limit = 0xFFFFFFFF;
  if (w < 0 || h < 0 || (newStride > 0 && newHeight > limit / newStride)) return {};
  const int64_t size = source.pixels + newStride * newHeight;
  if (size > limit) return {};

  Block result = WithHeadOf(source, size);
  SetField(result, kWidth, 4, newWidth);
  SetField(result, kHeight, 4, newHeight);
  SetField(result, kSizeImage, 4, newStride * newHeight);

  if (horizontal) {
    const int64_t shiftBits = amount * source.bits;
    for (int row = 0; row < h; ++row) {
      ShearRow(source, row, shiftBits * (shift >= 1 ? row : h - row) / h, result, newStride);
    }
  } else {
    for (int x = 0; x < w; ++x) ShearColumn(source, x, amount * (shift >= 1 ? x : w - x) / w, result);
  }
  return result;
}

// Trimming edits `copy` in place and reads `page`, a view of the same block, so what was painted counts.

inline void TrimBilevelRow(const View& page, int row, Block& copy) {
  // Whether the pixel was dark; if so it is painted.
  const auto paintDark = [&](int64_t offset, int bit) {
    uint8_t& byte = Byte(copy, offset);
    if (!page.IsDarkBit(byte >> bit & 1)) return false;
    byte = static_cast<uint8_t>(byte | 1 << bit);
    return true;
  };
  bool dark = true;
  for (int64_t i = 0; dark && i < page.stride; ++i) {
    for (int bit = 7; dark && bit >= 0; --bit) dark = paintDark(page.Row(row) + i, bit);
  }
  // When the rows have no padding, byte w / 8 is the first of the next row; behind the last row lies none.
  int64_t first = page.width / 8;
  if (first == page.stride && row == page.height - 1) --first;
  dark = true;
  for (int64_t i = first; dark && i >= 0; --i) {
    for (int bit = 0; dark && bit <= 7; ++bit) dark = paintDark(page.Row(row) + i, bit);
  }
}

inline void TrimIndexedRow(const View& page, int row, Block& copy) {
  const int64_t begin = page.Row(row);
  const auto isLight = [&](int64_t i) { return page.Entry(ByteAt(copy, begin + i)).Mean() >= 100; };
  for (int64_t i = 0; i < page.stride; ++i) {
    if (isLight(i)) {
      if (i == page.stride - 1) continue;
      if (isLight(i + 1)) break;
    }
    Byte(copy, begin + i) = 255;
  }
  for (int64_t i = page.width - 1; i >= 0; --i) {
    if (isLight(i)) {
      if (i == 0) continue;
      if (isLight(i - 1)) break;
    }
    Byte(copy, begin + i) = 255;
  }
}

inline void TrimTrueColourRow(const View& page, int row, Block& copy) {
  const int64_t begin = page.Row(row), end = page.Row(page.height);
  // A pixel that sticks out of the pixel area is dark, and only its inner bytes are painted.
  const auto isLight = [&](int64_t i) {
    return begin + i + 3 <= end && page.ColourAt(begin + i).Mean() >= 100;
  };
  const auto paint = [&](int64_t i) {
    for (int64_t k = begin + i; k < begin + i + 3 && k < end; ++k) Byte(copy, k) = 255;
  };
  for (int64_t i = 0; i < page.stride; i += 3) {  // the last one may reach into the next row
    if (isLight(i)) {
      if (i >= page.stride - 5) continue;
      if (isLight(i + 3)) break;
    }
    paint(i);
  }
  for (int64_t i = 3 * (int64_t{page.width} - 1); i >= 0; i -= 3) {
    if (isLight(i)) {
      if (i + 2 < 6) continue;
      if (isLight(i - 3)) break;
    }
    paint(i);
  }
}

inline Block TrimBlackBorder(const Block& block) {
  Block copy = block;
  const View page(copy);
  if (page.bits != 1 && page.bits != 8 && page.bits != 24) return {};
  for (int row = 0; row < page.height; ++row) {
    if (page.bits == 1) TrimBilevelRow(page, row, copy);
    if (page.bits == 8) TrimIndexedRow(page, row, copy);
    if (page.bits == 24) TrimTrueColourRow(page, row, copy);
  }
  return copy;
}

}  // namespace reference

#endif
