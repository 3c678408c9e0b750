// Pages turned grey: 1 bit expanded or smoothed, palettes turned grey, true colour reduced.
#ifndef RASTREL_TESTS_REFERENCE_GREY_H
#define RASTREL_TESTS_REFERENCE_GREY_H

#include <algorithm>

#include "dib.h"

namespace reference {

constexpr int kClrImportant = 36;
constexpr int kGreyRows = kHeader + 4 * 256;  // offset of stored row 0 in a page of 8 bits

// What both conversions check alike. Sizes that the block cannot hold are refused too.
inline bool CanTurnGrey(const View& source) {
  const auto size = static_cast<int64_t>(source.block.size());
  if (size < kHeader || Field(source.block, 0, 4) != kHeader) return false;
  if (Field(source.block, kCompression, 4) != 0 || source.width <= 0 || source.height <= 0) return false;
  const int64_t room = size - source.pixels;
  return room >= 0 && (source.stride == 0 || source.height <= room / source.stride);
}

inline void SetGreyEntry(Block& result, int index, int grey) {
  SetField(result, kHeader + 4 * index, 4, grey | grey << 8 | grey << 16);
}

// The same with entry i of the table at grey i, and room for five more rows.
inline Block MakeGreyRampPage(const View& source) {
  Block result = MakeResult(source, 8, 4 * 256 + 5 * Stride(source.width, 8));
  for (int i = 0; i < 256; ++i) SetGreyEntry(result, i, i);
  return result;
}

// A 1-bit page whose rows go on to both sides: each group of 4 pixels at an end (the last one with what pads
// it) comes again beyond that end. Rows before the first are the first.
struct MonoPage {
  const View& source;
  int white;  // the bit that is white

  int IsWhite(int x, int y) const {
    const int end = (source.width + 3) / 4 * 4;
    if (x < 0) x += 4;
    if (x >= end) x -= 4;
    return source.Pixel(x, std::max(y, 0)) == white;
  }
};

// Weights of the pixels around a pixel, by method.
constexpr int kSmoothing[3][5][5] = {
    {},
    {{0, 0, 0, 0, 0}, {0, 8, 31, 8, 0}, {0, 31, 99, 31, 0}, {0, 8, 31, 8, 0}, {0, 0, 0, 0, 0}},
    {{0, 3, 7, 3, 0}, {3, 16, 25, 16, 3}, {7, 25, 39, 25, 7}, {3, 16, 25, 16, 3}, {0, 3, 7, 3, 0}}};

inline uint8_t Smoothed(const MonoPage& page, uint32_t method, int x, int y) {
  int sum = 0;
  for (int j = 0; j < 5; ++j) {
    for (int i = 0; i < 5; ++i) sum += kSmoothing[method][j][i] * page.IsWhite(x + i - 2, y + j - 2);
  }
  return static_cast<uint8_t>(sum);
}

// Low pages fall back to a simpler method.
inline uint32_t MonoMethod(int height, uint32_t method) {
  if (height < 4 && method >= 2) return 0;
  if (height < 6 && method >= 2) return 1;
  return method;
}

inline Block MonoToGrey(const MonoPage& page, uint32_t askedMethod) {
  const int w = page.source.width, h = page.source.height;
  const int64_t stride = Stride(w, 8);
  const uint32_t method = MonoMethod(h, askedMethod);
  Block result = MakeGreyRampPage(page.source);
  for (int y = 0; y < h; ++y) {
    const int64_t row = kGreyRows + y * stride;
    // Method 0 expands whole bytes: the bits behind the last pixel too, as far as the row goes.
    for (int x = 0; method == 0 && x < (w + 7) / 8 * 8 && x < stride; ++x) {
      if (page.source.Pixel(x, y) == page.white) Byte(result, row + x) = 255;
    }
    // Smoothed rows come out as many rows late as the weights reach.
    const int lag = static_cast<int>(method);
    for (int x = 0; method != 0 && x < w; ++x) Byte(result, row + x) = Smoothed(page, method, x, y - lag);
  }
  return result;
}

inline Block ConvertMonoDIBtoGrayscale(const Block& dib, uint32_t method) {
  const View source(dib);
  if (!CanTurnGrey(source) || Field(dib, kPlanes, 2) != 1 || source.bits != 1 || method > 2) return {};
  const Colour first = source.Entry(0);
  const bool firstIsWhite = first.red > 127 && first.green > 127 && first.blue > 127;
  return MonoToGrey({source, firstIsWhite ? 0 : 1}, method);
}

inline Block ConvMonoDIBtoGrayscale(const Block& dib, uint32_t method) {
  return ConvertMonoDIBtoGrayscale(dib, method);
}

inline int GreyOf(const Colour& colour, bool weighted) {
  if (!weighted) return (colour.red + colour.green + colour.blue) / 3;
  return (8 * colour.red + 15 * colour.green + 3 * colour.blue) / 26;
}

// 4 and 8 bits: the same indices behind a table turned grey, which is black where the source's ends.
inline Block WithGreyTable(const View& source, bool weighted) {
  const int entries = 1 << source.bits;
  Block result = MakeResult(source, source.bits, 4 * entries);
  for (int i = 0; i < entries && i < source.colours; ++i) {
    SetGreyEntry(result, i, GreyOf(source.Entry(i), weighted));
  }
  for (int64_t i = 0; i < source.stride * source.height; ++i) {
    Byte(result, kHeader + 4 * entries + i) = ByteAt(source.block, source.pixels + i);
  }
  return result;
}

inline Block TrueColourToGrey(const View& source, bool weighted) {
  Block result = MakeGreyRampPage(source);
  for (int y = 0; y < source.height; ++y) {
    for (int x = 0; x < source.width; ++x) {
      const int grey = GreyOf(source.ColourOf(x, y), weighted);
      Byte(result, kGreyRows + y * Stride(source.width, 8) + x) = static_cast<uint8_t>(grey);
    }
  }
  return result;
}

inline Block ConvColorDIBtoGrayscale(const Block& dib, int weighted, uint32_t method) {
  const View source(dib);
  if (!CanTurnGrey(source) || (source.bits == 1 && method > 2)) return {};

  Block result;
  int colours = 256;
  if (source.bits == 1) {
    result = MonoToGrey({source, 1}, method);  // whatever the table says
  } else if (source.bits == 4 || source.bits == 8) {
    colours = 1 << source.bits;
    result = WithGreyTable(source, weighted != 0);
  } else if (source.bits == 24) {
    result = TrueColourToGrey(source, weighted != 0);
  } else {
    colours = 0;  // all zeros; who takes "none" for a full table still finds rows
    result = MakeResult(source, 8, 4 * 256);
  }
  SetField(result, kPlanes, 2, Field(dib, kPlanes, 2));
  SetField(result, kClrUsed, 4, colours);
  SetField(result, kClrImportant, 4, Field(dib, kClrImportant, 4));
  return result;
}

}  // namespace reference

#endif
