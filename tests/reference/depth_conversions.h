// Run-length decoding, and 8-bit pages to 24 bits.
#ifndef RASTREL_TESTS_REFERENCE_DEPTH_CONVERSIONS_H
#define RASTREL_TESTS_REFERENCE_DEPTH_CONVERSIONS_H

#include <algorithm>

#include "dib.h"

namespace reference {

// Ends where the stream does, whatever is missing, and on reaching a row above the picture.
inline void DrawRunLengths(const Block& stream, int64_t at, int64_t end, Block& result, int64_t pixels) {
  const bool nibbles = Field(result, kBits, 2) == 4;
  const int64_t width = SignedField(result, kWidth), height = SignedField(result, kHeight);
  const int64_t stride = Stride(width, nibbles ? 4 : 8);
  int64_t x = 0, row = 0;
  const auto draw = [&](int value) {
    if (x >= width) return;
    uint8_t& byte = Byte(result, pixels + row * stride + (nibbles ? x / 2 : x));
    if (nibbles) value = x % 2 == 0 ? (byte & 0x0F) | value << 4 : (byte & 0xF0) | value;
    byte = static_cast<uint8_t>(value);
    ++x;
  };
  while (row < height && at + 2 <= end) {
    const int count = ByteAt(stream, at), value = ByteAt(stream, at + 1);
    at += 2;
    if (count == 0 && value == 1) return;
    if (count == 0 && value == 0) {
      ++row;
      x = 0;
    } else if (count == 0 && value == 2) {
      if (at + 2 > end) return;
      x += ByteAt(stream, at);
      row += ByteAt(stream, at + 1);
      at += 2;
    } else {
      const int run = count > 0 ? count : value, bytes = nibbles ? (run + 1) / 2 : run;
      for (int i = 0; i < run; ++i) {
        const int64_t from = at + (nibbles ? i / 2 : i);
        if (count == 0 && from >= end) return;
        const int byte = count > 0 ? value : ByteAt(stream, from);
        draw(!nibbles ? byte : i % 2 == 0 ? byte >> 4 : byte & 15);
      }
      if (!nibbles && x >= width) x = 0;  // in the same row
      if (count == 0) at += bytes + bytes % 2;
    }
  }
}

inline Block ExpandCompressedDIB(const Block& dib) {
  const uint32_t compression = Field(dib, 16, 4), sizeImage = Field(dib, kSizeImage, 4);
  const uint32_t bits = Field(dib, kBits, 2);
  const bool known = (compression == 1 && bits == 8) || (compression == 2 && bits == 4);
  if (!known || sizeImage == 0) return {};
  const int head = kHeader + (4 << bits);
  const int64_t end = static_cast<int64_t>(dib.size()), height = SignedField(dib, kHeight);
  const int64_t width = SignedField(dib, kWidth), stride = Stride(width, bits);
  if (end < head || width < 0 || height < 0 || (stride > 0 && height > (0xFFFFFFF8 - head) / stride))
    return {};

  Block result(static_cast<size_t>(head + stride * height));
  std::copy_n(dib.begin(), head, result.begin());
  SetField(result, 16, 4, 0);
  SetField(result, kSizeImage, 4, stride * height);
  DrawRunLengths(dib, head, std::min(end, head + int64_t{sizeImage}), result, head);
  return result;
}

inline Block Convert8to24(const Block& dib) {
  const View source(dib);
  const int64_t width = Field(dib, kWidth, 2), height = Field(dib, kHeight, 2);
  const int64_t rowBytes = Stride(width, source.bits) % 65536, newStride = Stride(width, 24);
  const int64_t clrUsed = Field(dib, kClrUsed, 4), pixels = kHeader + 4 * (clrUsed == 0 ? 256 : clrUsed);
  if (Field(dib, 0, 4) != kHeader || Field(dib, 16, 4) != 0 || newStride > 65535) return {};
  if (source.bits == 1 || source.bits == 4 || source.bits == 24 || width == 0 || height == 0) return {};
  if (pixels + rowBytes * height > static_cast<int64_t>(dib.size())) return {};

  Block result(dib.begin(), dib.begin() + kHeader);
  result.resize(static_cast<size_t>(kHeader + newStride * height));
  SetField(result, kWidth, 4, width);
  SetField(result, kHeight, 4, height);
  SetField(result, kPlanes, 2, 1);
  SetField(result, kBits, 2, 24);
  SetField(result, kSizeImage, 4, newStride * height);
  SetField(result, kClrUsed, 8, 0);  // and biClrImportant
  for (int64_t y = 0; y < height; ++y) {
    for (int64_t x = 0; x < width; ++x) {
      const Colour colour = source.Entry(ByteAt(dib, pixels + y * rowBytes + x));
      const int64_t to = kHeader + y * newStride + 3 * x;
      SetField(result, to, 3, colour.blue | colour.green << 8 | colour.red << 16);
    }
  }
  return result;
}

}  // namespace reference

#endif
