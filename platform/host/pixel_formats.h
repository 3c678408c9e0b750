// How pixels of every depth and plane layout lie in a row, and the conversion of rows by colour.
#ifndef RASTREL_PLATFORM_HOST_PIXEL_FORMATS_H
#define RASTREL_PLATFORM_HOST_PIXEL_FORMATS_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>

namespace rastrel::host {

using Rgb = uint32_t;  // 0x00RRGGBB

constexpr Rgb RgbOf(unsigned red, unsigned green, unsigned blue) { return red << 16 | green << 8 | blue; }
constexpr unsigned RedOf(Rgb colour) { return colour >> 16 & 0xFF; }
constexpr unsigned GreenOf(Rgb colour) { return colour >> 8 & 0xFF; }
constexpr unsigned BlueOf(Rgb colour) { return colour & 0xFF; }

constexpr int SquaredDistance(Rgb a, Rgb b) {
  const int red = static_cast<int>(RedOf(a)) - static_cast<int>(RedOf(b));
  const int green = static_cast<int>(GreenOf(a)) - static_cast<int>(GreenOf(b));
  const int blue = static_cast<int>(BlueOf(a)) - static_cast<int>(BlueOf(b));
  return red * red + green * green + blue * blue;
}

// 16-bit pixels: red, green, blue of 5 bits each.
constexpr unsigned PackedTo555(Rgb colour) {
  return (colour >> 9 & 0x7C00) | (colour >> 6 & 0x3E0) | (colour >> 3 & 0x1F);
}
constexpr Rgb ExpandedFrom555(unsigned pixel) {
  const Rgb high = (pixel & 0x7C00) << 9 | (pixel & 0x3E0) << 6 | (pixel & 0x1F) << 3;
  return high | (high >> 5 & 0x070707);
}

// What indices mean. Those from `count` on are black, and no colour is mapped to them.
struct ColourTable {
  unsigned count = 0;
  Rgb colours[256] = {};
};

// Returns the index of the nearest entry, the lowest of several, 0 in an empty table.
unsigned NearestIndex(const ColourTable& table, Rgb colour);

// The colours of 1, 4 and 8 bits where no palette names others.
const ColourTable& StandardColours(unsigned depth);

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

constexpr bool IsKnownDepth(unsigned bits) {
  return bits == 1 || bits == 4 || bits == 8 || bits == 16 || bits == 24 || bits == 32;
}

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
  enum class Way : uint8_t { kCopyBits, kInvertBits, kKeepValues, kLookUp, kNearerOfTwo, kNearest };
  static constexpr unsigned kCacheEntries = 4096;

  void MapValues(uint32_t* values, unsigned count);
  void MapToNearerOfTwo(uint32_t* values, unsigned count) const;
  void MapToNearest(uint32_t* values, unsigned count);

  PixelFormat from_;
  PixelFormat to_;
  Way way_;
  uint32_t lookUp_[256];  // the value that each index becomes
  ColourTable toColours_;
  // Colours met last and their nearest entries.
  Rgb cachedColours_[kCacheEntries];
  uint8_t cachedIndices_[kCacheEntries];
};

}  // namespace rastrel::host

#endif
