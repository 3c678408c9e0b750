// Whether a page is blank: few ink pixels at 1 bit, enough background pixels at 8 and 24 bits.
#ifndef RASTREL_TESTS_REFERENCE_BLANK_PAGE_H
#define RASTREL_TESTS_REFERENCE_BLANK_PAGE_H

#include <algorithm>

#include "dib.h"

namespace reference {

enum Verdict : int { kNoImage = -1, kNotBlank = 0, kBlank = 1 };

// Bytes of the colour table; only a 40-byte header says how many colours it has, and has 4 bytes for each.
inline int64_t TableBytes(const Block& block) {
  const uint32_t headerSize = Field(block, 0, 4), used = Field(block, kClrUsed, 4);
  if (headerSize == kHeader && used != 0) return 4 * int64_t{used};
  const uint32_t bits = Field(block, headerSize == 12 ? 10 : kBits, 2);
  const int64_t colours = bits == 1 ? 2 : bits == 4 ? 16 : bits == 8 ? 256 : 0;
  return colours * (headerSize == kHeader ? 4 : 3);
}

// The bytes of all rows go by in one walk; r is a byte's place in its row.

inline Verdict TestInk(const View& page, int64_t rows, int64_t end, double allowance) {
  if (!page.HoldsEntry(1) || !page.Entry(0).IsGrey() || !page.Entry(1).IsGrey()) return kNotBlank;
  const int ink = page.Entry(0).IsBlack() ? 0 : 1;
  int64_t count = 0;
  for (int64_t at = rows; at < end; ++at) {
    const int64_t r = (at - rows) % page.stride;
    if (r > page.width / 8) continue;
    // Where no pixels are left over for the last byte it counts in full, although it is padding.
    const int last = r == page.width / 8 && page.width % 8 != 0 ? 8 - page.width % 8 : 0;
    for (int bit = 7; bit >= last; --bit) {
      if ((ByteAt(page.block, at) >> bit & 1) == ink) ++count;
    }
    if (allowance <= static_cast<double>(count)) return kNotBlank;
  }
  return kBlank;
}

// Whether the colour in the three bytes at an offset is lighter than these values throughout.
inline bool IsLighter(const Block& block, int64_t offset, int first, int second, int third) {
  return ByteAt(block, offset) > first && ByteAt(block, offset + 1) > second &&
         ByteAt(block, offset + 2) > third;
}

inline Verdict TestBackground(const View& page, int64_t rows, int64_t end, double pixels, double allowance,
                              uint32_t background) {
  const int red = background & 255, green = background >> 8 & 255, blue = background >> 16 & 255;
  int64_t count = 0;
  for (int64_t at = rows; at < end; ++at) {
    const int64_t r = (at - rows) % page.stride;
    if (page.bits == 8) {
      if (r >= page.width) continue;
      const int64_t entry = int64_t{Field(page.block, 0, 4)} + 4 * ByteAt(page.block, at);
      const bool isInside = entry + 4 <= static_cast<int64_t>(page.block.size());
      if (isInside && IsLighter(page.block, entry, blue, green, red)) ++count;
    } else {
      if (r >= 3 * int64_t{page.width} || r % 3 != 0) continue;
      // Blue is compared with the background's red and red with its blue.
      if (IsLighter(page.block, at, red, green, blue)) ++count;
    }
    if (pixels - allowance < static_cast<double>(count)) return kBlank;
  }
  return kNotBlank;
}

inline int IsImageBlank(const Block& dib, int tolerance, uint32_t background) {
  const auto size = static_cast<int64_t>(dib.size());
  if (size < kHeader) return kNoImage;
  const View page(dib);
  if (page.bits != 1 && page.bits != 8 && page.bits != 24) return kNotBlank;

  // A page without pixels has no rows to hold.
  const int64_t rows = kHeader + TableBytes(dib);
  const bool isEmpty = page.width <= 0 || page.height <= 0;
  if (!isEmpty && (size < rows || page.height > (size - rows) / page.stride)) return kNoImage;
  const int64_t end = isEmpty ? rows : rows + page.stride * page.height;

  const double percent = std::clamp(tolerance, 0, 1000) / 10.0;
  const double pixels = static_cast<double>(int64_t{page.width} * page.height);
  const double allowance = percent / 100.0 * pixels;
  if (page.bits == 1) return TestInk(page, rows, end, allowance);
  return TestBackground(page, rows, end, pixels, allowance, background);
}

}  // namespace reference

#endif
