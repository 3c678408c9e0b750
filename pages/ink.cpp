#include "pages/ink.h"

#include <algorithm>
#include <array>
#include <cstring>
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
  // How often each grey stands on each paper.
  constexpr size_t kLevels = 256;
  std::vector<uint32_t> counts(kLevels * kLevels);
  std::vector<uint8_t> ground(static_cast<size_t>(grey.width()));
  const int step = std::max(grey.height() / kSampledRows, 1);
  for (int y = step / 2; y < grey.height(); y += step) {
    paper.BrightnessRow(y, ground);
    const uint8_t* row = grey.Row(y);
    const uint8_t* confidence = paper.confidence().Row(y / paper.cell());
    for (int left = 0, cell = 0; left < grey.width(); left += paper.cell(), ++cell) {
      if (confidence[cell] == PaperMap::kNotPaper) continue;
      const int right = std::min(left + paper.cell(), grey.width());
      for (int x = left; x < right; ++x) ++counts[ground[static_cast<size_t>(x)] * kLevels + row[x]];
    }
  }
  Sample sample;
  for (size_t bright = 1; bright < kLevels; ++bright) {
    const auto reciprocal = static_cast<uint32_t>((kDarknessUnit * 65536 + bright - 1) / bright);
    for (size_t value = 0; value < kLevels; ++value) {
      const uint32_t count = counts[bright * kLevels + value];
      if (count == 0) continue;
      const auto difference = static_cast<uint32_t>(value < bright ? bright - value : value - bright);
      const size_t share = std::min<size_t>(difference * reciprocal >> 16, kDarknessUnit - 1);
      sample.differences[share] += count;
      // What is not darker than the paper has no darkness.
      sample.darknesses[value < bright ? share : 0] += count;
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

// Marks the pixels of a row as dark as the thresholds or darker, in the words that are asked for. Others
// stay.
void MarkDark(const uint8_t* row, int width, const uint8_t* isAsked, SpreadCells* thresholds,
              uint64_t* mask) {
  const int words = (width + 63) / 64;
  for (int first = 0, end = 0; first < words; first = end + 1) {
    for (end = first; end < words && isAsked[end] != 0;) ++end;
    if (end == first) continue;
    const int left = first * 64, right = std::min(end * 64, width);
    kMarkUpTo(row + left, thresholds->Pixels(left, right), static_cast<size_t>(right - left), mask + first);
  }
}

// Asks for no words in which all that may be dark is left out.
void LeaveOut(const uint8_t* row, int width, const uint8_t* most, const uint64_t* except, uint8_t* isAsked) {
  for (int left = 0; left < width; left += 64, ++most, ++except, ++isAsked) {
    if (*isAsked == 0 || *except == 0) continue;
    uint8_t limits[64];
    std::memset(limits, *most, sizeof limits);
    uint64_t dark = 0;
    kMarkUpTo(row + left, limits, static_cast<size_t>(std::min(64, width - left)), &dark);
    if ((dark & ~*except) == 0) *isAsked = 0;
  }
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

BitPlane DarkerThanPaper(const BytePlane& grey, const PaperMap& paper, int darkness, const BitPlane* within,
                         const BitPlane* except) {
  BitPlane mask(grey.width(), grey.height());
  if (mask.isEmpty() || paper.isEmpty()) return mask;
  const BytePlane thresholds = ThresholdMap(paper, std::min(darkness, kDarknessUnit - 1));
  SpreadCells limits(paper);
  const size_t words = mask.wordsPerRow();
  std::vector<uint8_t> most(words), isAsked(words);
  for (int y = 0; y < grey.height(); ++y) {
    const uint8_t* row = grey.Row(y);
    if (y == 0 || y % paper.cell() == paper.cell() / 2) paper.BoundRow(thresholds, y, most);
    if (within != nullptr) {
      for (size_t i = 0; i < words; ++i) isAsked[i] = within->Row(y)[i] != 0 ? 1 : 0;
    } else {
      kFlagUpTo(row, most.data(), static_cast<size_t>(grey.width()), isAsked.data());
    }
    if (except != nullptr) LeaveOut(row, grey.width(), most.data(), except->Row(y), isAsked.data());
    if (std::memchr(isAsked.data(), 1, words) == nullptr) continue;
    limits.SetRow(thresholds, y);
    MarkDark(row, grey.width(), isAsked.data(), &limits, mask.Row(y));
    if (except == nullptr) continue;
    for (size_t i = 0; i < words; ++i) mask.Row(y)[i] &= ~except->Row(y)[i];
  }
  return mask;
}

BitPlane FindInk(const BytePlane& grey, const PaperMap& paper) {
  if (grey.isEmpty() || paper.isEmpty()) return BitPlane(grey.width(), grey.height());
  const InkLevels levels = FindInkLevels(grey, paper);
  const BitPlane all = DarkerThanPaper(grey, paper, levels.least);
  BitPlane ink = DarkerThanPaper(grey, paper, levels.least * kSeedPercent / 100, &all);
  GrowInto(all, ink);
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
