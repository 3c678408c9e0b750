#include "pages/ink.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <vector>

#include "pages/faint_strokes.h"
#include "pages/grow.h"
#include "pages/parting.h"
#include "pixels/thresholds.h"

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
  // Of what is not darker than the paper, and of what is.
  std::array<std::array<int32_t, kDarknessUnit>, 2> counts{};
  std::vector<uint8_t> ground(static_cast<size_t>(grey.width()));
  const int step = std::max(grey.height() / kSampledRows, 1);
  for (int y = step / 2; y < grey.height(); y += step) {
    paper.BrightnessRow(y, ground);
    const uint8_t* row = grey.Row(y);
    const uint8_t* confidence = paper.confidence().Row(y / paper.cell());
    for (int left = 0, cell = 0; left < grey.width(); left += paper.cell(), ++cell) {
      if (confidence[cell] == PaperMap::kNotPaper) continue;
      const int right = std::min(left + paper.cell(), grey.width());
      for (int x = left; x < right; ++x) {
        const int bright = ground[static_cast<size_t>(x)];
        const int difference = bright - row[x];
        const auto share =
            static_cast<size_t>(std::abs(difference) * reciprocal[static_cast<size_t>(bright)] >> 16);
        const size_t bounded = std::min<size_t>(share, kDarknessUnit - 1);
        ++counts[difference > 0 ? 1 : 0][bounded];
      }
    }
  }
  for (size_t i = 0; i < kDarknessUnit; ++i) {
    sample.differences[i] = counts[0][i] + counts[1][i];
    sample.darknesses[i] += counts[1][i];
    sample.darknesses[0] += counts[0][i];
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

// For each cell the grey value that is `darkness` below its paper.
BytePlane ThresholdMap(const PaperMap& paper, int darkness) {
  BytePlane map = paper.brightness();
  for (uint8_t& value : map.bytes())
    value = static_cast<uint8_t>(value * (kDarknessUnit - darkness) / kDarknessUnit);
  return map;
}

}  // namespace

InkLevels FindInkLevels(const BytePlane& grey, const PaperMap& paper) {
  if (grey.isEmpty() || paper.isEmpty()) return {kLeastInk, 1};
  const Sample sample = TakeSample(grey, paper);
  const int parting = PartingValue(sample.darknesses);
  const int grain = std::max(MedianOf(sample.differences), 1);
  // Of a blank page the grain itself is parted in two, near its middle.
  return {std::max({parting, kLeastInk, parting < grain * kGrainOfBlank ? grain * kAboveGrain : 0}), grain};
}

BitPlane DarkerThanPaper(const BytePlane& grey, const PaperMap& paper, int darkness) {
  BitPlane mask(grey.width(), grey.height(), PlaneContent::kUnset);
  const BytePlane thresholds = ThresholdMap(paper, std::min(darkness, kDarknessUnit - 1));
  std::vector<uint8_t> room(static_cast<size_t>(grey.width()));
  for (int y = 0; y < grey.height(); ++y) {
    paper.SpreadRow(thresholds, y, room);
    kMarkUpTo(grey.Row(y), room.data(), room.size(), mask.Row(y));
  }
  return mask;
}

BitPlane FindInk(const BytePlane& grey, const PaperMap& paper) {
  if (grey.isEmpty() || paper.isEmpty()) return BitPlane(grey.width(), grey.height());
  const InkLevels levels = FindInkLevels(grey, paper);
  BitPlane ink = DarkerThanPaper(grey, paper, levels.least * kSeedPercent / 100);
  GrowInto(DarkerThanPaper(grey, paper, levels.least), ink);
  AddFaintStrokes(grey, paper, levels, &ink);
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
