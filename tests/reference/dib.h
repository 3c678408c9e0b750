// Plain, slow versions of the operations, which the tests compare with the library byte for byte.
// Everything here goes pixel by pixel in the order in which the results are defined; nothing is shared
// with the library.
#ifndef RASTREL_TESTS_REFERENCE_DIB_H
#define RASTREL_TESTS_REFERENCE_DIB_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace reference {

// A whole memory block: 40-byte header, colour table, stored rows and any slack. Empty: no result.
using Block = std::vector<uint8_t>;

// Offsets of the header fields.
constexpr int kWidth = 4, kHeight = 8, kPlanes = 12, kBits = 14, kCompression = 16, kSizeImage = 20,
              kXPelsPerMeter = 24, kYPelsPerMeter = 28, kClrUsed = 32, kHeader = 40;

// What the block holds at an offset, 0 outside it.
inline uint8_t ByteAt(const Block& block, int64_t offset) {
  const bool inside = offset >= 0 && offset < static_cast<int64_t>(block.size());
  return inside ? block[static_cast<size_t>(offset)] : uint8_t{0};
}

inline uint8_t& Byte(Block& block, int64_t offset) { return block[static_cast<size_t>(offset)]; }

inline uint32_t Field(const Block& block, int64_t offset, int bytes) {
  uint32_t value = 0;
  for (int i = bytes - 1; i >= 0; --i) value = value << 8 | ByteAt(block, offset + i);
  return value;
}

inline int32_t SignedField(const Block& block, int64_t offset) {
  return static_cast<int32_t>(Field(block, offset, 4));
}

inline void SetField(Block& block, int64_t offset, int bytes, int64_t value) {
  for (int i = 0; i < bytes; ++i) Byte(block, offset + i) = static_cast<uint8_t>(value >> (8 * i));
}

inline int64_t Stride(int64_t width, int64_t bits) { return (width * bits + 31) / 32 * 4; }

struct Colour {
  int blue, green, red;
  bool IsGrey() const { return blue == green && green == red; }
  bool IsBlack() const { return blue == 0 && green == 0 && red == 0; }
  int Mean() const { return (blue + green + red) / 3; }
  int Grey() const { return (30 * red + 59 * green + 11 * blue) / 100; }
};

// Reads a block as it stands at the time of each call: later changes of the block are seen.
struct View {
  const Block& block;
  int width, height, bits;
  int64_t colours;  // entries stored
  int64_t pixels;   // offset of stored row 0
  int64_t stride;

  explicit View(const Block& dib)
      : block(dib),
        width(SignedField(dib, kWidth)),
        height(SignedField(dib, kHeight)),
        bits(static_cast<int>(Field(dib, kBits, 2))),
        colours(Field(dib, kClrUsed, 4)),
        pixels(0),
        stride(Stride(width, bits)) {
    if (colours == 0) colours = bits == 1 ? 2 : bits == 4 ? 16 : bits == 8 ? 256 : 0;
    pixels = kHeader + 4 * colours;
  }

  int64_t Row(int64_t y) const { return pixels + y * stride; }  // offset of stored row y

  // Three bytes from an offset on, those behind the block 0.
  Colour ColourAt(int64_t offset) const {
    return {ByteAt(block, offset), ByteAt(block, offset + 1), ByteAt(block, offset + 2)};
  }
  // Entries at and beyond `colours` are what lies there in the block.
  Colour Entry(int index) const { return ColourAt(kHeader + 4 * index); }

  // The pixel in column x of stored row y: an index, or 0xRRGGBB at 24 bits.
  int Pixel(int x, int64_t y) const {
    const int64_t bit = int64_t{x} * bits, at = Row(y) + bit / 8;
    if (bits == 24) return static_cast<int>(Field(block, at, 3));
    return ByteAt(block, at) >> (8 - bits - bit % 8) & ((1 << bits) - 1);
  }
  // Colour of a pixel, 4, 8 or 24 bits.
  Colour ColourOf(int x, int64_t y) const {
    return bits == 24 ? ColourAt(Row(y) + 3 * int64_t{x}) : Entry(Pixel(x, y));
  }
  // At 1 bit entry 0 alone says which index is dark.
  bool IsDarkBit(int bit) const { return (bit == 0) == Entry(0).IsBlack(); }
};

// Whether the sizes are at least 1 and the block is long enough for its table and rows.
inline bool HoldsItsRows(const View& page) {
  const int64_t room = static_cast<int64_t>(page.block.size()) - page.pixels;
  if (page.width < 1 || page.height < 1 || room < 0) return false;
  return page.stride == 0 || page.height <= room / page.stride;
}

// Bits are counted from the most significant one of byte 0 on.
inline void CopyBit(const Block& from, int64_t fromBit, Block& to, int64_t toBit) {
  const int mask = 0x80 >> (toBit % 8);
  const bool set = (ByteAt(from, fromBit / 8) & 0x80 >> (fromBit % 8)) != 0;
  uint8_t& byte = Byte(to, toBit / 8);
  byte = static_cast<uint8_t>(set ? byte | mask : byte & ~mask);
}

// Sets bits of a pixel in the row that begins at an offset; whole pixels when they were 0.
inline void OrPixel(Block& block, int64_t row, int x, int bits, int value) {
  const int64_t bit = int64_t{x} * bits, at = row + bit / 8;
  const int64_t all = bits == 24 ? value : int64_t{value} << (8 - bits - bit % 8);
  const int bytes = bits == 24 ? 3 : 1;
  SetField(block, at, bytes, all | Field(block, at, bytes));
}

// A new block of `size` bytes that begins with the header and colour table of `source`.
inline Block WithHeadOf(const View& source, int64_t size) {
  Block result(static_cast<size_t>(size));
  for (int64_t i = 0; i < source.pixels; ++i) Byte(result, i) = ByteAt(source.block, i);
  return result;
}

// Cells of a page, one array a column; y = 0 is the top of the page.
template <class Cell>
class PageMap {
 public:
  PageMap(int width, int height)
      : columns_(static_cast<size_t>(width), std::vector<Cell>(static_cast<size_t>(height))) {}
  Cell& operator()(int x, int y) { return columns_[static_cast<size_t>(x)][static_cast<size_t>(y)]; }

 private:
  std::vector<std::vector<Cell>> columns_;
};

// A page of zeros with the source's size and resolution; `spare` bytes stand before or behind its rows.
inline Block MakeResult(const View& source, int bits, int64_t spare) {
  const int64_t image = Stride(source.width, bits) * source.height;
  Block result(static_cast<size_t>(kHeader + image + spare));
  SetField(result, 0, 4, kHeader);
  SetField(result, kWidth, 4, source.width);
  SetField(result, kHeight, 4, source.height);
  SetField(result, kPlanes, 2, 1);
  SetField(result, kBits, 2, bits);
  SetField(result, kSizeImage, 4, image);
  SetField(result, kXPelsPerMeter, 4, SignedField(source.block, kXPelsPerMeter));
  SetField(result, kYPelsPerMeter, 4, SignedField(source.block, kYPelsPerMeter));
  return result;
}

// The lowest of the equally near entries.
inline int NearestEntry(const View& page, Colour wanted) {
  const auto distance = [&](int index) {
    const Colour c = page.Entry(index);
    const int blue = c.blue - wanted.blue, green = c.green - wanted.green, red = c.red - wanted.red;
    return blue * blue + green * green + red * red;
  };
  int best = 0;
  for (int i = 1; i < std::min<int64_t>(page.colours, int64_t{1} << page.bits); ++i) {
    if (distance(i) < distance(best)) best = i;
  }
  return best;
}

}  // namespace reference

#endif
