#include "platform/host/pixel_formats.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "pixels/bit_runs.h"
#include "pixels/pixel_runs.h"

namespace rastrel::host {
namespace {

constexpr unsigned kRun = 512;  // pixels converted at a time; whole bytes at every depth

// Reads indices or colours.
void UnpackRun(PixelFormat format, PlanarRow<const uint8_t> row, uint64_t firstPixel, unsigned count,
               uint32_t* values) {
  std::memset(values, 0, count * sizeof *values);
  ForBits(format.bits, [&]<unsigned Bits> {
    for (unsigned plane = 0; plane < format.planes; ++plane) {
      UnpackPixels<Bits>(row.Plane(plane), firstPixel, count,
                         [=](unsigned i, uint32_t value) { values[i] |= value << plane * Bits; });
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
      uint8_t* to = row.Plane(plane);
      if (count * Bits % 8 != 0) to[count * Bits / 8] = 0;
      PackPixels<Bits>(to, 0, count, [=](unsigned i) { return values[i] >> plane * Bits; });
    }
  });
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
    nearest_.reset(new (std::nothrow) NearestColours(toColours));
    way_ = Way::kNearest;
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
    case Way::kNearest:
      if (nearest_ != nullptr) return nearest_->Map(values, count);
      for (unsigned i = 0; i < count; ++i) values[i] = NearestIndex(toColours_, values[i]);
      return;
    default:
      return;
  }
}

}  // namespace rastrel::host
