// Rows of pixels as the flips and turns walk them: of a page, or of one plane of a device bitmap.
#ifndef RASTREL_GEOMETRY_PLANE_H
#define RASTREL_GEOMETRY_PLANE_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace rastrel {

// Byte is uint8_t or const uint8_t.
template <class Byte>
struct Plane {
  Byte* first;      // row 0
  ptrdiff_t step;   // bytes from row to row; negative when row 0 is the last in memory
  size_t rowBytes;  // with the padding
  int width;        // in pixels; they fit in rowBytes
  int height;

  Byte* Row(int row) const { return first + row * step; }
  Plane UpsideDown() const { return {Row(height - 1), -step, rowBytes, width, height}; }
  void Clear() const {
    for (int y = 0; y < height; ++y) std::memset(Row(y), 0, rowBytes);
  }
  // `count` rows from row `top` on.
  Plane Part(int top, int count) const { return {Row(top), step, rowBytes, width, count}; }

  operator Plane<const Byte>() const { return {first, step, rowBytes, width, height}; }
};
using ConstPlane = Plane<const uint8_t>;
using MutablePlane = Plane<uint8_t>;

// The depth that mirrors, and the turns of bitmaps, go by. Pixels of 2 bits are not moved, so that the image
// comes out blank. Kept: callers compare bytes.
constexpr unsigned MovedDepth(unsigned bits) { return bits == 2 ? 0 : bits; }

}  // namespace rastrel

#endif
