// Reduction to black and white by threshold (0), error diffusion (1) or a 16 x 16 matrix (2).
#ifndef RASTREL_TESTS_REFERENCE_HALFTONE_H
#define RASTREL_TESTS_REFERENCE_HALFTONE_H

#include <algorithm>

#include "dib.h"
#include "error_diffusion.h"

namespace reference {

inline int MatrixEntry(int i, int j) {
  const int base[4][4] = {{0, 8, 2, 10}, {12, 4, 14, 6}, {3, 11, 1, 9}, {15, 7, 13, 5}};
  const int quadrant[2][2] = {{0, 2}, {3, 1}};
  const int m8 = 4 * base[i % 4][j % 4] + quadrant[i % 8 / 4][j % 8 / 4];
  return 4 * m8 + quadrant[i / 8][j / 8];
}

// The colour at a position of the planes, which are `length` pixels a row. True colour fills them in shorter
// rows, so the picture comes out compressed into the first third, and the rest is black.
inline Colour PlaneColour(const View& source, int64_t length, int row, int x) {
  if (source.bits != 24) return source.ColourOf(x, row);
  const int64_t filled = Stride(source.width, 8), at = row * length + x;
  if (at >= filled * source.height) return {0, 0, 0};
  return source.ColourAt(source.Row(at / filled) + 3 * (at % filled));
}

inline Block Halftone(const Block& block, int method, int brightness) {
  const View source(block);
  if (method < 0 || method > 2 || (source.bits != 4 && source.bits != 8 && source.bits != 24)) return {};

  const int length = static_cast<int>(source.bits == 4 ? source.stride * 2 : source.stride);
  ErrorRow<int32_t> current(length), next(length), afterNext(length);
  Block result = MakeDithered(source, 1);
  FillDitherTable(result, 1);
  for (int row = 0; row < source.height; ++row) {
    const int64_t out = kHeader + 8 + row * Stride(source.width, 1);
    const auto greyAt = [&](int x) {
      const int64_t grey = int64_t{PlaneColour(source, length, row, x).Grey()} + brightness;
      return static_cast<int>(std::clamp<int64_t>(grey, 0, 255));
    };
    if (method == 1) {
      for (int x = 0; x < source.width; ++x) current.Add(x, greyAt(x));
    }
    for (int x = 0; x < source.width; ++x) {
      if (method == 0) OrPixel(result, out, x, 1, greyAt(x) > 128);
      if (method == 2) OrPixel(result, out, x, 1, greyAt(x) > MatrixEntry(row % 16, x % 16));
      if (method != 1) continue;
      const int v = current[x];
      OrPixel(result, out, x, 1, v > 128);
      const int e = v > 128 ? v - 255 : v;
      if (e != 0) DiffuseJarvis(current, next, afterNext, x, e, {1, 3, 5, 3, 1});
    }
    current.CopyFrom(next, length);
    next.CopyFrom(afterNext, length);
  }
  return result;
}

}  // namespace reference

#endif
