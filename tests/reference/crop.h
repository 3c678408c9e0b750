// Pieces of pages: the sheet that a scan shows, a rectangle, a page cut in two.
#ifndef RASTREL_TESTS_REFERENCE_CROP_H
#define RASTREL_TESTS_REFERENCE_CROP_H

#include <algorithm>
#include <cstdlib>

#include "dib.h"

namespace reference {

// Copies whole pixels, given where they begin and how many bits they take. The rest of the row stays.
inline void CopyBits(const Block& from, int64_t fromBit, Block& to, int64_t toBit, int64_t count) {
  for (int64_t i = 0; i < count; ++i) CopyBit(from, fromBit + i, to, toBit + i);
}

// The error of a page or argument that is refused at once, else 0.
inline int SheetRefusal(const View& page, double fraction, uint32_t x, int margin) {
  if (!(fraction >= 0 && fraction <= 1)) return 8;
  if (Field(page.block, 0, 4) != kHeader) return 15;
  if (Field(page.block, kPlanes, 2) != 1 || page.bits != 1) return 21;
  if (Field(page.block, kCompression, 4) != 0) return 18;
  if (static_cast<uint32_t>(page.width) <= x) return 8;
  const int64_t size = std::abs(int64_t{margin});
  if (size >= page.width / 4 || size >= page.height / 4) return 8;
  return HoldsItsRows(page) ? 0 : 19;
}

// straightened: what straightening the page gave, an empty block if nothing; null: not to be straightened.
// x: as the operation leaves it. error: the thread's; 0 or what it was before if there is a result.
inline Block CropToEdges(const Block& dib, double fraction, uint32_t& x, int margin, bool darkForeground,
                         const Block* straightened, int& error) {
  const View page(dib);
  const auto fail = [&](int code) {
    error = code;
    return Block{};
  };
  if (const int refusal = SheetRefusal(page, fraction, x, margin)) return fail(refusal);
  const Block& copy = straightened == nullptr ? dib : *straightened;
  if (copy.empty()) return fail(error == 0 ? 1 : error);
  const View sheet(copy);
  const int64_t w = page.width, h = page.height;
  const int64_t dx = (sheet.width - w + 1) >> 1, dy = (sheet.height - h + 1) >> 1;
  const int64_t width = sheet.width - dx, height = sheet.height - dy;
  x += static_cast<uint32_t>(dx);
  if (sheet.width < w || sheet.height < h) return fail(32);

  const auto counts = [&](int64_t column, int64_t row) {
    return (sheet.Pixel(static_cast<int>(column), row) == 1) == !darkForeground;
  };
  const auto share = [&](int64_t pixels) {
    return static_cast<int64_t>(static_cast<double>(pixels) * fraction + 0.5);
  };
  const auto isSheetColumn = [&](int64_t column) {
    int64_t found = 0;
    for (int64_t row = dy; row < dy + h; ++row) found += counts(column, row);
    return found >= share(h);
  };

  int64_t first = x;
  while (first < width && !isSheetColumn(first)) ++first;
  if (first >= width) return fail(32);
  const int64_t left = std::max<int64_t>(first - margin, 0);

  int64_t right;
  if (straightened != nullptr) {
    int64_t last = width - 1;
    while (last >= left && !isSheetColumn(last)) --last;
    if (last < left) return fail(32);
    right = std::min(width, last + 1 + margin);
  } else {
    int64_t behind = first + 1;
    while (behind < width && isSheetColumn(behind)) ++behind;
    right = std::min(width, behind + margin);
  }
  x = static_cast<uint32_t>(right - dx);
  if (right <= left) return fail(32);

  const auto isSheetRow = [&](int64_t row) {
    int64_t found = 0;
    for (int64_t column = left; column < right; ++column) found += counts(column, row);
    return found >= share(right - left);
  };
  int64_t lowest = dy + 5;
  while (lowest < height && !isSheetRow(lowest)) ++lowest;
  if (lowest >= height) return fail(32);
  const int64_t bottom = std::max<int64_t>(lowest - margin, 0);
  int64_t highest = height - 1;
  while (highest >= bottom && !isSheetRow(highest)) --highest;
  if (highest < bottom) return fail(32);
  const int64_t top = std::min(height, highest + 1 + margin);
  if (top <= bottom) return fail(32);

  const int64_t head = kHeader + 4 * 2, stride = Stride(right - left, 1);
  Block result(static_cast<size_t>(head + stride * (top - bottom)));
  for (int64_t i = 0; i < head; ++i) Byte(result, i) = ByteAt(copy, i);
  SetField(result, kWidth, 4, right - left);
  SetField(result, kHeight, 4, top - bottom);
  SetField(result, kSizeImage, 4, stride * (top - bottom));
  for (int64_t row = bottom; row < top; ++row) {
    CopyBits(copy, 8 * sheet.Row(row) + left, result, 8 * (head + (row - bottom) * stride), right - left);
  }
  return result;
}

// The rectangle's top and bottom count from the top row; all four sides belong to it.
inline Block CropDIB(const Block& dib, int left, int top, int right, int bottom) {
  const View page(dib);
  if (left < 0 || left > right || right >= page.width) return {};
  if (top < 0 || top > bottom || bottom >= page.height) return {};
  if (Field(dib, 0, 4) != kHeader || !HoldsItsRows(page)) return {};
  if (page.bits != 24 && (page.bits == 0 || 32 % page.bits != 0)) return {};

  const int64_t width = int64_t{right} - left + 1, height = int64_t{bottom} - top + 1;
  const int64_t stride = Stride(width, page.bits);
  Block result = WithHeadOf(page, page.pixels + height * stride);
  SetField(result, kWidth, 4, width);
  SetField(result, kHeight, 4, height);
  SetField(result, kSizeImage, 4, height * stride);
  for (int64_t row = 0; row < height; ++row) {
    const int64_t from = page.Row(int64_t{page.height} - 1 - bottom + row);
    CopyBits(dib, 8 * from + int64_t{left} * page.bits, result, 8 * (page.pixels + row * stride),
             width * page.bits);
  }
  return result;
}

}  // namespace reference

#endif
