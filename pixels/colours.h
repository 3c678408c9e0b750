// Colours, tables of them, and the search for the nearest entry of a table.
#ifndef RASTREL_PIXELS_COLOURS_H
#define RASTREL_PIXELS_COLOURS_H

#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>

#include "pixels/kernels.h"

namespace rastrel {

using Rgb = uint32_t;  // 0x00RRGGBB, as in a DIB's colour table

constexpr Rgb RgbOf(unsigned red, unsigned green, unsigned blue) { return red << 16 | green << 8 | blue; }
constexpr unsigned RedOf(Rgb colour) { return colour >> 16 & 0xFF; }
constexpr unsigned GreenOf(Rgb colour) { return colour >> 8 & 0xFF; }
constexpr unsigned BlueOf(Rgb colour) { return colour & 0xFF; }
constexpr bool IsGrey(Rgb colour) { return colour == RgbOf(BlueOf(colour), BlueOf(colour), BlueOf(colour)); }

// The same of 0x00BBGGRR, as a COLORREF has them, and back.
constexpr Rgb RgbOfReversed(uint32_t reversed) {
  return RgbOf(reversed & 0xFF, reversed >> 8 & 0xFF, reversed >> 16 & 0xFF);
}

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

constexpr bool IsKnownDepth(unsigned bits) {
  return bits == 1 || bits == 4 || bits == 8 || bits == 16 || bits == 24 || bits == 32;
}

// What indices mean. Those from `count` on are black, and no colour is mapped to them.
struct ColourTable {
  unsigned count = 0;
  std::array<Rgb, 256> colours = {};
};

inline constexpr ColourTable kBlackAndWhite = {2, {0x000000, 0xFFFFFF}};
inline constexpr ColourTable kSixteenColours = {
    16,
    {0x000000, 0x800000, 0x008000, 0x808000, 0x000080, 0x800080, 0x008080, 0xC0C0C0, 0x808080, 0xFF0000,
     0x00FF00, 0xFFFF00, 0x0000FF, 0xFF00FF, 0x00FFFF, 0xFFFFFF}};

// Three bits of red, three of green, two of blue. Red and green end at 252 (7 * 36) while blue reaches 255
// (3 * 85). Kept: callers of dithers to 8 bits compare colour tables with stored ones.
inline constexpr ColourTable kColourCube = [] {
  ColourTable cube = {256, {}};
  for (unsigned i = 0; i < 256; ++i) {
    cube.colours[i] = RgbOf(i / 32 * 36, i / 4 % 8 * 36, i % 4 * 85);
  }
  return cube;
}();

// The colours of 1, 4 and 8 bits where no palette names others.
constexpr const ColourTable& StandardColours(unsigned depth) {
  if (depth == 1) return kBlackAndWhite;
  return depth == 4 ? kSixteenColours : kColourCube;
}

// Distance and index in one number, so that the search is a plain minimum.
inline unsigned FindNearest(const ColourTable& table, Rgb colour) {
  int best = INT_MAX;
  for (int i = 0; i < static_cast<int>(table.count); ++i) {
    const int rank = SquaredDistance(table.colours[static_cast<size_t>(i)], colour) * 256 + i;
    best = rank < best ? rank : best;
  }
  return static_cast<unsigned>(best) % 256;
}

// Returns the index of the nearest entry, the lowest of several, 0 in an empty table.
inline unsigned NearestIndex(const ColourTable& table, Rgb colour) {
  return table.count == 0 ? 0 : Widest<FindNearest>(table, colour);
}

// As NearestIndex, for many colours. Those met last are kept with their indices. For others there is a list
// for each cube of 16 x 16 x 16 colours, made when it is first needed: the entries that are nearest somewhere
// in the cube. Holds all of it itself: too much for a stack.
class NearestColours {
 public:
  explicit NearestColours(const ColourTable& table) : table_(table) { found_[0] = NearestIndex(table_, 0); }

  // Replaces colours by indices.
  void Map(Rgb* colours, unsigned count) {
    if (table_.count == 2) return MapToNearerOfTwo(colours, count);
    for (unsigned i = 0; i < count; ++i) {
      const Rgb colour = colours[i];
      uint32_t& found = found_[colour * 0x9E3779B1u >> (32 - kFoundBits)];
      if (found >> 8 != colour) found = colour << 8 | Search(colour);
      colours[i] = found & 0xFF;
    }
  }

 private:
  static constexpr unsigned kFoundBits = 16;
  static constexpr int kCubeSize = 16;
  static constexpr unsigned kCubes = 4096;
  static constexpr unsigned kLongest = 16;  // of the lists; where more entries compete, all are searched

  // The second of two entries is the nearer when the difference of the squared distances,
  //
  //     |c - a|^2 - |c - b|^2  =  2 c.(b - a) + |a|^2 - |b|^2,
  //
  // is positive: a plane through the colours c.
  void MapToNearerOfTwo(Rgb* colours, unsigned count) const {
    const Rgb a = table_.colours[0];
    const Rgb b = table_.colours[1];
    const int red = 2 * (static_cast<int>(RedOf(b)) - static_cast<int>(RedOf(a)));
    const int green = 2 * (static_cast<int>(GreenOf(b)) - static_cast<int>(GreenOf(a)));
    const int blue = 2 * (static_cast<int>(BlueOf(b)) - static_cast<int>(BlueOf(a)));
    const int base = SquaredDistance(a, 0) - SquaredDistance(b, 0);
    for (unsigned i = 0; i < count; ++i) {
      const Rgb c = colours[i];
      const int difference = base + red * static_cast<int>(RedOf(c)) + green * static_cast<int>(GreenOf(c)) +
                             blue * static_cast<int>(BlueOf(c));
      colours[i] = difference > 0 ? 1 : 0;
    }
  }

  unsigned Search(Rgb colour) {
    const unsigned cube = (colour >> 12 & 0xF00) | (colour >> 8 & 0xF0) | (colour >> 4 & 0xF);
    if (counts_[cube] == 0) Fill(cube, colour & 0xF0F0F0);
    if (counts_[cube] > kLongest) return NearestIndex(table_, colour);
    unsigned best = 0;
    int least = INT_MAX;
    for (unsigned i = 0; i < counts_[cube]; ++i) {
      const unsigned entry = lists_[cube][i];
      const int distance = SquaredDistance(table_.colours[entry], colour);
      best = distance < least ? entry : best;
      least = distance < least ? distance : least;
    }
    return best;
  }

  // Whether `rival` is taken rather than `entry` for every colour of the cube that begins at `corner`. The
  // difference of their distances is linear, so that its least value is at a corner of the cube.
  bool Loses(unsigned entry, unsigned rival, Rgb corner) const {
    int difference = rival < entry ? 1 : 0;
    for (const unsigned shift : {0u, 8u, 16u}) {
      const auto from = static_cast<int>(table_.colours[entry] >> shift & 0xFF);
      const auto to = static_cast<int>(table_.colours[rival] >> shift & 0xFF);
      const int worst = static_cast<int>(corner >> shift & 0xFF) + (from > to ? kCubeSize - 1 : 0);
      difference += (from - to) * (from + to - 2 * worst);
    }
    return difference > 0;
  }

  void Fill(unsigned cube, Rgb corner) {
    const unsigned likely = NearestIndex(table_, corner + 0x080808);
    std::array<uint8_t, 256> left;
    unsigned leftCount = 0;
    for (unsigned i = 0; i < table_.count; ++i) {
      if (i == likely || !Loses(i, likely, corner)) left[leftCount++] = static_cast<uint8_t>(i);
    }
    unsigned count = 0;
    for (unsigned i = 0; i < leftCount && count <= kLongest; ++i) {
      bool loses = false;
      for (unsigned k = 0; k < leftCount && !loses; ++k) loses = k != i && Loses(left[i], left[k], corner);
      if (loses) continue;
      if (count < kLongest) lists_[cube][count] = left[i];
      ++count;
    }
    counts_[cube] = static_cast<uint8_t>(count);
  }

  const ColourTable table_;
  // The last colour of each hash, above its index. An empty place could only be mistaken for black's, which
  // is never empty.
  std::array<uint32_t, 1u << kFoundBits> found_ = {};
  std::array<uint8_t, kCubes> counts_ = {};  // 0: no list yet
  std::array<std::array<uint8_t, kLongest>, kCubes> lists_;
};

}  // namespace rastrel

#endif
