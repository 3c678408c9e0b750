// How pixels of every depth and plane layout lie in a row, and the conversion of rows by colour.
#ifndef RASTREL_PLATFORM_HOST_PIXEL_FORMATS_H
#define RASTREL_PLATFORM_HOST_PIXEL_FORMATS_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>

#include "pixels/colours.h"

namespace rastrel::host {

struct PixelFormat {
  unsigned planes;
  unsigned bits;  // of a pixel in each plane: 1, 4, 8, 16, 24 or 32

  constexpr unsigned valueBits() const { return planes * bits; }
  constexpr bool isIndexed() const { return valueBits() <= 8; }
  // The depth whose meaning the values have: the least of 1, 4, 8, 16, 24 and 32 that holds them.
  constexpr unsigned depth() const {
    for (const unsigned depth : {1u, 4u, 8u, 16u, 24u}) {
      if (valueBits() <= depth) return depth;
    }
    return 32;
  }
  bool operator==(const PixelFormat&) const = default;
};

template <class Byte>
struct PlanarRow {
  Byte* first;
  size_t planeStep;

  Byte* Plane(unsigned plane) const { return first + plane * planeStep; }
};

// Whether a conversion keeps every pixel's value, so that no colours are needed: indices of 4 and of 8 bits
// among themselves, and 24 bits.
constexpr bool KeepsValues(PixelFormat from, PixelFormat to) {
  if (from.depth() != to.depth() || from.valueBits() > to.valueBits()) return false;
  return from.depth() == 4 || from.depth() == 8 || from.depth() == 24;
}

// Turns rows of one format into rows of another, colour by colour.
class RowConverter {
 public:
  // The tables are looked at for indexed formats, unless the conversion keeps values.
  RowConverter(PixelFormat from, const ColourTable& fromColours, PixelFormat to,
               const ColourTable& toColours);

  // Copies bits as they lie.
  explicit RowConverter(PixelFormat format) : from_(format), to_(format), way_(Way::kCopyBits) {}

  bool copiesBits() const { return way_ == Way::kCopyBits; }

  // Writes `count` pixels from `firstPixel` on to the beginning of `to`. What remains of the last byte
  // becomes 0.
  void Convert(PlanarRow<const uint8_t> from, uint64_t firstPixel, uint64_t count, PlanarRow<uint8_t> to);

 private:
  enum class Way : uint8_t { kCopyBits, kInvertBits, kKeepValues, kLookUp, kNearest };

  void MapValues(uint32_t* values, unsigned count);

  PixelFormat from_;
  PixelFormat to_;
  Way way_;
  uint32_t lookUp_[256];                     // the value that each index becomes
  ColourTable toColours_;                    // where the nearest entries are looked for
  std::unique_ptr<NearestColours> nearest_;  // null without memory for it
};

}  // namespace rastrel::host

#endif
