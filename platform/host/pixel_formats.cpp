#include "platform/host/pixel_formats.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>

#include "platform/host/bit_runs.h"
#include "platform/processor.h"

namespace rastrel::host {
namespace {

constexpr unsigned kRun = 512;  // pixels converted at a time; whole bytes at every depth

constexpr ColourTable kBlackAndWhite = {2, {0x000000, 0xFFFFFF}};
constexpr ColourTable kSixteenColours = {
    16,
    {0x000000, 0x800000, 0x008000, 0x808000, 0x000080, 0x800080, 0x008080, 0xC0C0C0, 0x808080, 0xFF0000,
     0x00FF00, 0xFFFF00, 0x0000FF, 0xFF00FF, 0x00FFFF, 0xFFFFFF}};

// Three bits of red, three of green, two of blue. Red and green end at 252.
constexpr ColourTable kColourCube = [] {
  ColourTable cube = {256, {}};
  for (unsigned i = 0; i < 256; ++i) {
    cube.colours[i] = RgbOf(i / 32 * 36, i / 4 % 8 * 36, i % 4 * 85);
  }
  return cube;
}();

constexpr unsigned MaskOf(unsigned bits) { return bits == 32 ? UINT_MAX : (1u << bits) - 1; }

template <class Value>
uint32_t LoadAs(const uint8_t* at) {
  Value value;
  std::memcpy(&value, at, sizeof(value));
  return value;
}

// ORs the values of one plane into `values`.
template <unsigned Bits>
void UnpackPlane(const uint8_t* row, uint64_t firstPixel, unsigned count, unsigned shift, uint32_t* values) {
  if constexpr (Bits < 8) {
    constexpr unsigned kPerByte = 8 / Bits;
    row += static_cast<size_t>(firstPixel / kPerByte);
    const auto phase = static_cast<unsigned>(firstPixel % kPerByte);
    for (unsigned i = 0; i < count; ++i) {
      const unsigned x = phase + i;
      const unsigned value = row[x / kPerByte] >> (kPerByte - 1 - x % kPerByte) * Bits & MaskOf(Bits);
      values[i] |= value << shift;
    }
  } else {
    row += static_cast<size_t>(firstPixel * (Bits / 8));
    for (unsigned i = 0; i < count; ++i) {
      const uint8_t* at = row + i * (Bits / 8);
      if constexpr (Bits == 8) values[i] |= uint32_t{*at} << shift;
      if constexpr (Bits == 16) values[i] |= LoadAs<uint16_t>(at) << shift;
      if constexpr (Bits == 24) values[i] = LoadAs<uint16_t>(at) | uint32_t{at[2]} << 16;
      if constexpr (Bits == 32) values[i] = LoadAs<uint32_t>(at);
    }
  }
}

template <unsigned Bits>
void PackPlane(const uint32_t* values, unsigned count, unsigned shift, uint8_t* row) {
  if constexpr (Bits < 8) {
    constexpr unsigned kPerByte = 8 / Bits;
    const auto packByte = [&](unsigned first, unsigned pixels) {
      unsigned byte = 0;
      for (unsigned k = 0; k < pixels; ++k) {
        byte |= (values[first + k] >> shift & MaskOf(Bits)) << (kPerByte - 1 - k) * Bits;
      }
      row[first / kPerByte] = static_cast<uint8_t>(byte);
    };
    const unsigned whole = count / kPerByte * kPerByte;
    for (unsigned i = 0; i < whole; i += kPerByte) packByte(i, kPerByte);
    if (whole != count) packByte(whole, count - whole);
  } else {
    const auto store = [&](unsigned i, size_t bytes) {
      const uint32_t value = values[i] >> shift;  // its low bytes come first
      std::memcpy(row + i * (Bits / 8), &value, bytes);
    };
    if constexpr (Bits == 24) {  // the next pixel covers the byte too many
      for (unsigned i = 0; i + 1 < count; ++i) store(i, 4);
      store(count - 1, 3);
    } else {
      for (unsigned i = 0; i < count; ++i) store(i, Bits / 8);
    }
  }
}

template <class Function>
void ForBits(unsigned bits, Function function) {
  switch (bits) {
    case 1:
      return function.template operator()<1>();
    case 4:
      return function.template operator()<4>();
    case 8:
      return function.template operator()<8>();
    case 16:
      return function.template operator()<16>();
    case 24:
      return function.template operator()<24>();
    default:
      return function.template operator()<32>();
  }
}

// Reads indices or colours.
void UnpackRun(PixelFormat format, PlanarRow<const uint8_t> row, uint64_t firstPixel, unsigned count,
               uint32_t* values) {
  std::memset(values, 0, count * sizeof *values);
  ForBits(format.bits, [&]<unsigned Bits> {
    for (unsigned plane = 0; plane < format.planes; ++plane) {
      UnpackPlane<Bits>(row.Plane(plane), firstPixel, count, plane * Bits, values);
    }
  });
  if (format.depth() == 16) {
    for (unsigned i = 0; i < count; ++i) values[i] = ExpandedFrom555(values[i]);
  } else if (format.depth() == 32) {
    for (unsigned i = 0; i < count; ++i) values[i] &= 0xFFFFFF;
  }
}

// Writes indices or colours to the beginning of `row`; changes them on the way.
void PackRun(PixelFormat format, uint32_t* values, unsigned count, PlanarRow<uint8_t> row) {
  if (format.depth() == 16) {
    for (unsigned i = 0; i < count; ++i) values[i] = PackedTo555(values[i]);
  }
  ForBits(format.bits, [&]<unsigned Bits> {
    for (unsigned plane = 0; plane < format.planes; ++plane) {
      PackPlane<Bits>(values, count, plane * Bits, row.Plane(plane));
    }
  });
}

// Distance and index in one number, so that the search is a plain minimum.
RASTREL_ALSO_AVX2 unsigned FindNearest(const Rgb* colours, int count, Rgb colour) {
  int best = INT_MAX;
  for (int i = 0; i < count; ++i) {
    const int rank = SquaredDistance(colours[i], colour) * 256 + i;
    best = rank < best ? rank : best;
  }
  return static_cast<unsigned>(best) % 256;
}

template <class Combine>
void CombinePlanes(PixelFormat format, PlanarRow<const uint8_t> from, uint64_t firstPixel, uint64_t count,
                   PlanarRow<uint8_t> to, Combine combine) {
  for (unsigned plane = 0; plane < format.planes; ++plane) {
    uint8_t* row = to.Plane(plane);
    const uint64_t bits = count * format.bits;
    if (bits % 8 != 0) row[static_cast<size_t>(bits / 8)] = 0;
    CombineBits(row, 0, from.Plane(plane), firstPixel * format.bits, bits, combine);
  }
}

}  // namespace

const ColourTable& StandardColours(unsigned depth) {
  if (depth == 1) return kBlackAndWhite;
  return depth == 4 ? kSixteenColours : kColourCube;
}

unsigned NearestIndex(const ColourTable& table, Rgb colour) {
  return table.count == 0 ? 0 : FindNearest(table.colours, static_cast<int>(table.count), colour);
}

RowConverter::RowConverter(PixelFormat from, const ColourTable& fromColours, PixelFormat to,
                           const ColourTable& toColours)
    : from_(from), to_(to), way_(Way::kKeepValues) {
  if (KeepsValues(from, to)) {
    if (from == to) way_ = Way::kCopyBits;
    return;
  }
  if (from.isIndexed()) {
    const unsigned indices = 1u << from.valueBits();
    for (unsigned i = 0; i < indices; ++i) {
      const Rgb colour = i < fromColours.count ? fromColours.colours[i] : 0;
      lookUp_[i] = to.isIndexed() ? NearestIndex(toColours, colour) : colour;
    }
    way_ = Way::kLookUp;
    if (from.valueBits() == 1 && to.valueBits() == 1 && lookUp_[0] != lookUp_[1]) {
      way_ = lookUp_[0] == 0 ? Way::kCopyBits : Way::kInvertBits;
    }
  } else if (to.isIndexed()) {
    toColours_ = toColours;
    way_ = toColours.count == 2 ? Way::kNearerOfTwo : Way::kNearest;
    std::fill(std::begin(cachedColours_), std::end(cachedColours_), UINT_MAX);  // no colour
  }
}

void RowConverter::Convert(PlanarRow<const uint8_t> from, uint64_t firstPixel, uint64_t count,
                           PlanarRow<uint8_t> to) {
  if (way_ == Way::kCopyBits) {
    return CombinePlanes(to_, from, firstPixel, count, to, [](uint8_t, uint8_t bits) { return bits; });
  }
  if (way_ == Way::kInvertBits) {
    return CombinePlanes(to_, from, firstPixel, count, to,
                         [](uint8_t, uint8_t bits) { return static_cast<uint8_t>(~bits); });
  }
  uint32_t values[kRun];
  while (count != 0) {
    const auto run = static_cast<unsigned>(std::min<uint64_t>(count, kRun));
    UnpackRun(from_, from, firstPixel, run, values);
    MapValues(values, run);
    PackRun(to_, values, run, to);
    firstPixel += run;
    to.first += kRun * to_.bits / 8;
    count -= run;
  }
}

void RowConverter::MapValues(uint32_t* values, unsigned count) {
  switch (way_) {
    case Way::kLookUp:
      for (unsigned i = 0; i < count; ++i) values[i] = lookUp_[values[i]];
      return;
    case Way::kNearerOfTwo:
      return MapToNearerOfTwo(values, count);
    case Way::kNearest:
      return MapToNearest(values, count);
    default:
      return;
  }
}

// The second of two entries is the nearer when the difference of the squared distances,
//
//     |c - a|^2 - |c - b|^2  =  2 c.(b - a) + |a|^2 - |b|^2,
//
// is positive: a plane through the colours c.
void RowConverter::MapToNearerOfTwo(uint32_t* values, unsigned count) const {
  const Rgb a = toColours_.colours[0];
  const Rgb b = toColours_.colours[1];
  const int red = 2 * (static_cast<int>(RedOf(b)) - static_cast<int>(RedOf(a)));
  const int green = 2 * (static_cast<int>(GreenOf(b)) - static_cast<int>(GreenOf(a)));
  const int blue = 2 * (static_cast<int>(BlueOf(b)) - static_cast<int>(BlueOf(a)));
  const int base = SquaredDistance(a, 0) - SquaredDistance(b, 0);
  for (unsigned i = 0; i < count; ++i) {
    const Rgb c = values[i];
    const int difference = base + red * static_cast<int>(RedOf(c)) + green * static_cast<int>(GreenOf(c)) +
                           blue * static_cast<int>(BlueOf(c));
    values[i] = difference > 0 ? 1 : 0;
  }
}

void RowConverter::MapToNearest(uint32_t* values, unsigned count) {
  for (unsigned i = 0; i < count; ++i) {
    const Rgb colour = values[i];
    const unsigned at = (colour * 0x9E3779B1u) >> 20;
    static_assert(kCacheEntries == 1u << (32 - 20));
    if (cachedColours_[at] != colour) {
      cachedColours_[at] = colour;
      cachedIndices_[at] = static_cast<uint8_t>(NearestIndex(toColours_, colour));
    }
    values[i] = cachedIndices_[at];
  }
}

}  // namespace rastrel::host
