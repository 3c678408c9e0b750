#include "pages/ink.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "pages/grow.h"
#include "pages/parting.h"

namespace rastrel::pages {
namespace {

// How often each darkness occurs, and each difference from the paper to either side, on a sample of the
// page's rows.
struct Sample {
  std::array<int64_t, kDarknessUnit> darknesses{};
  std::array<int64_t, kDarknessUnit> differences{};
};

// A stroke is ink if it gets this much darker somewhere than what parts ink from paper, in percent:
// show-through and the grain of dark paper are even, and stay under it.
constexpr int kSeedPercent = 130;
constexpr int kLeastInk = 10;  // of kDarknessUnit, 4 %: paler than the palest pencil
// The median difference of pixels from their paper is the grain. Where ink and paper are parted at less than
// kGrainOfBlank times of it, there are not two classes, and only what stands out of the grain is ink.
constexpr int kGrainOfBlank = 3;
constexpr int kAboveGrain = 6;     // six medians are four times the spread of even grain
constexpr int kSampledRows = 256;  // enough for a histogram; spread over the page

Sample TakeSample(const BytePlane& grey, const PaperMap& paper) {
  std::array<uint32_t, 256> reciprocal{};
  for (uint32_t i = 1; i < 256; ++i) reciprocal[i] = (kDarknessUnit * 65536 + i - 1) / i;
  Sample sample;
  std::vector<uint8_t> ground(static_cast<size_t>(grey.width()));
  const int step = std::max(grey.height() / kSampledRows, 1);
  for (int y = step / 2; y < grey.height(); y += step) {
    paper.BrightnessRow(y, ground);
    const uint8_t* row = grey.Row(y);
    const uint8_t* confidence = paper.confidence().Row(y / paper.cell());
    for (int x = 0; x < grey.width(); ++x) {
      if (confidence[x / paper.cell()] == PaperMap::kNotPaper) continue;
      const int bright = ground[static_cast<size_t>(x)];
      const int difference = bright - row[x];
      const auto share =
          static_cast<size_t>(std::abs(difference) * reciprocal[static_cast<size_t>(bright)] >> 16);
      const size_t bounded = std::min<size_t>(share, kDarknessUnit - 1);
      ++sample.differences[bounded];
      ++sample.darknesses[difference > 0 ? bounded : 0];
    }
  }
  return sample;
}

int MedianOf(const std::array<int64_t, kDarknessUnit>& counts) {
  int64_t total = 0, below = 0;
  for (const int64_t count : counts) total += count;
  int median = 0;
  while (median < kDarknessUnit - 1 && (below += counts[static_cast<size_t>(median)]) * 2 < total) ++median;
  return median;
}

// Eight bytes of 0 or 1 as eight bits, the first in the highest: the factor moves byte i to bit 63 - i of the
// product.
uint64_t BitsOfBytes(const uint8_t* flags) {
  constexpr uint64_t kGather =
      std::endian::native == std::endian::little ? 0x8040201008040201u : 0x0102040810204080u;
  uint64_t bytes;
  std::memcpy(&bytes, flags, 8);
  return bytes * kGather >> 56;
}

// The pixels that are as dark as their threshold or darker. `flags` is room for a byte a pixel, in whole
// words.
void MarkDark(const uint8_t* row, const uint8_t* thresholds, std::span<uint8_t> flags, int width,
              uint64_t* bits) {
  uint8_t* flag = flags.data();
  for (int x = 0; x < width; ++x) flag[x] = row[x] <= thresholds[x] ? 1 : 0;
  for (size_t word = 0; word < flags.size() / 64; ++word) {
    uint64_t value = 0;
    for (size_t i = 0; i < 8; ++i) value = value << 8 | BitsOfBytes(flag + word * 64 + i * 8);
    bits[word] = value;
  }
}

BitPlane DarkerThan(const BytePlane& grey, const PaperMap& paper, const BytePlane& thresholds) {
  BitPlane mask(grey.width(), grey.height());
  std::vector<uint8_t> row(static_cast<size_t>(grey.width()));
  std::vector<uint8_t> flags(mask.wordsPerRow() * 64);  // those beyond the width stay 0
  for (int y = 0; y < grey.height(); ++y) {
    paper.SpreadRow(thresholds, y, row);
    MarkDark(grey.Row(y), row.data(), flags, grey.width(), mask.Row(y));
  }
  return mask;
}

// For each cell the grey value that is `darkness` below its paper.
BytePlane ThresholdMap(const PaperMap& paper, int darkness) {
  BytePlane map = paper.brightness();
  for (uint8_t& value : map.bytes())
    value = static_cast<uint8_t>(value * (kDarknessUnit - darkness) / kDarknessUnit);
  return map;
}

}  // namespace

int LeastDarkness(const BytePlane& grey, const PaperMap& paper) {
  if (grey.isEmpty() || paper.isEmpty()) return kLeastInk;
  const Sample sample = TakeSample(grey, paper);
  const int parting = PartingValue(sample.darknesses);
  const int grain = std::max(MedianOf(sample.differences), 1);
  // Of a blank page the grain itself is parted in two, near its middle.
  return std::max({parting, kLeastInk, parting < grain * kGrainOfBlank ? grain * kAboveGrain : 0});
}

BitPlane FindInk(const BytePlane& grey, const PaperMap& paper) {
  if (grey.isEmpty() || paper.isEmpty()) return BitPlane(grey.width(), grey.height());
  const int parting = LeastDarkness(grey, paper);
  const int seed = std::min(parting * kSeedPercent / 100, kDarknessUnit - 1);
  const BitPlane all = DarkerThan(grey, paper, ThresholdMap(paper, parting));
  BitPlane ink = DarkerThan(grey, paper, ThresholdMap(paper, seed));
  GrowInto(all, ink);
  return ink;
}

BytePlane PictureOfInk(const BitPlane& ink) {
  BytePlane picture(ink.width(), ink.height(), 255);
  for (int y = 0; y < ink.height(); ++y) {
    for (int x = 0; x < ink.width(); ++x) {
      if (ink.Get(x, y)) picture.Row(y)[x] = 0;
    }
  }
  return picture;
}

}  // namespace rastrel::pages
