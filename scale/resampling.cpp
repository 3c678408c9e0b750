#include "scale/resampling.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "pixels/byte_shuffle.h"
#include "pixels/kernels.h"

namespace rastrel {
namespace {

// ---- weights ----------------------------------------------------------------------------------------------

PixelWeights BilinearWeights(uint32_t x, uint32_t from, uint32_t to) {
  const uint32_t right = (x * from % to * 255 + to / 2) / to;
  return {x * from / to, {0, static_cast<uint8_t>(255 - right), static_cast<uint8_t>(right), 0}};
}

// The cubic convolution kernel with a = -1, at `s` pixels: up to 1, and from there to 2, where it is
// negative; its size is given. Powers are products, which are the same everywhere; in no size tried
// did what power functions give differ in a weight.
double InnerKernel(double s) { return s * s * s - 2 * (s * s) + 1; }
double OuterKernel(double s) { return s * s * s - 5 * (s * s) + 8 * s - 4; }

// The parts are cut to whole numbers one by one, so that they need not come to 255 together. Kept: callers
// of ScaleDIB compare its pages with stored ones.
PixelWeights CubicWeights(uint32_t x, uint32_t from, uint32_t to) {
  const uint32_t at = x * from / to;
  const double t = static_cast<double>(x) * from / to - at;
  const auto weight = [](double part) { return static_cast<uint8_t>(static_cast<int>(255 * part)); };
  return {at,
          {weight(OuterKernel(std::abs(t + 1))), weight(InnerKernel(std::abs(t))),
           weight(InnerKernel(std::abs(t - 1))), weight(OuterKernel(std::abs(t - 2)))}};
}

PixelWeights WeightsAt(Interpolation interpolation, uint32_t x, uint32_t from, uint32_t to) {
  return interpolation == Interpolation::kCubic ? CubicWeights(x, from, to) : BilinearWeights(x, from, to);
}

bool IsCopy(const PixelWeights& weights) { return weights.of == std::array<uint8_t, 4>{0, 255, 0, 0}; }

// ---- weighted sums ----------------------------------------------------------------------------------------

// Every product is rounded by itself. All that is in 16 bits.
[[gnu::always_inline]] inline uint16_t Weighted(uint16_t weight, uint16_t sample) {
  const auto product = static_cast<uint16_t>(weight * sample + 128);
  return static_cast<uint16_t>(product / 255);
}

[[gnu::always_inline]] inline uint16_t WeightedLow(uint16_t weights, uint16_t samples) {
  return Weighted(weights & 0xFF, samples & 0xFF);
}
[[gnu::always_inline]] inline uint16_t WeightedHigh(uint16_t weights, uint16_t samples) {
  return Weighted(weights >> 8, samples >> 8);
}

[[gnu::always_inline]] inline uint8_t Clamped(int sum) {
  auto value = static_cast<int16_t>(sum);
  value = value < 0 ? int16_t{0} : value;
  value = value > 255 ? int16_t{255} : value;
  return static_cast<uint8_t>(value);
}

void SumPairs(const uint16_t* __restrict pairs, const uint16_t* __restrict weights, size_t count,
              uint8_t* __restrict to) {
  for (size_t i = 0; i < count; ++i) {
    to[i] = static_cast<uint8_t>(WeightedLow(weights[i], pairs[i]) + WeightedHigh(weights[i], pairs[i]));
  }
}

void SumFours(const uint16_t* __restrict before, const uint16_t* __restrict behind,
              const uint16_t* __restrict weightsBefore, const uint16_t* __restrict weightsBehind,
              size_t count, uint8_t* __restrict to) {
  for (size_t i = 0; i < count; ++i) {
    to[i] = Clamped(WeightedHigh(weightsBefore[i], before[i]) - WeightedLow(weightsBefore[i], before[i]) +
                    WeightedLow(weightsBehind[i], behind[i]) - WeightedHigh(weightsBehind[i], behind[i]));
  }
}

void BlendTwo(const uint8_t* __restrict first, const uint8_t* __restrict second, uint16_t firstWeight,
              uint16_t secondWeight, size_t count, uint8_t* __restrict to) {
  for (size_t i = 0; i < count; ++i) {
    to[i] = static_cast<uint8_t>(Weighted(firstWeight, first[i]) + Weighted(secondWeight, second[i]));
  }
}

// Lines may be the same.
void BlendFour(const std::array<const uint8_t*, 4>& lines, const std::array<uint8_t, 4>& weights,
               size_t count, uint8_t* __restrict to) {
  const uint8_t* const before = lines[0];
  const uint8_t* const here = lines[1];
  const uint8_t* const next = lines[2];
  const uint8_t* const second = lines[3];
  const uint16_t w[] = {weights[0], weights[1], weights[2], weights[3]};
  for (size_t i = 0; i < count; ++i) {
    to[i] = Clamped(Weighted(w[1], here[i]) - Weighted(w[0], before[i]) + Weighted(w[2], next[i]) -
                    Weighted(w[3], second[i]));
  }
}

// ---- picking ----------------------------------------------------------------------------------------------

// Runs whose bytes all lie in the row.
struct InnerRuns {
  const uint32_t* starts;
  const uint8_t* offsets;
  size_t count;
  size_t bytesAtOnce;
};

void CopyRuns(InnerRuns runs, const uint8_t* row, ptrdiff_t shift, uint8_t* to) {
  for (size_t run = 0; run < runs.count; ++run) {
    const uint8_t* from = row + (static_cast<ptrdiff_t>(runs.starts[run]) + shift);
    const uint8_t* offsets = runs.offsets + run * BytePicker::kMostAtOnce;
    for (size_t i = 0; i < runs.bytesAtOnce; ++i) *to++ = from[offsets[i]];
  }
}

RASTREL_FOR_SSSE3 void ShuffleRuns(InnerRuns runs, const uint8_t* row, ptrdiff_t shift, uint8_t* to) {
  for (size_t run = 0; run < runs.count; ++run) {
    ShuffleBytes bytes;
    ShuffleBytes places;
    std::memcpy(&bytes, row + (static_cast<ptrdiff_t>(runs.starts[run]) + shift), sizeof(bytes));
    std::memcpy(&places, runs.offsets + run * sizeof(places), sizeof(places));
    bytes = Shuffled(bytes, places);
    std::memcpy(to + run * runs.bytesAtOnce, &bytes, sizeof(bytes));
  }
}

constexpr Kernel kPickRuns = Kernel(CopyRuns).With(Processor::kSsse3, ShuffleRuns);

struct Span {
  uint32_t least;
  uint32_t most;
};

Span SpanOf(const uint32_t* first, const uint32_t* end) {
  Span span = {*first, *first};
  for (; first != end; ++first) span = {std::min(span.least, *first), std::max(span.most, *first)};
  return span;
}

// The largest multiple of `unit` such that runs of that many places span less than kMostAtOnce.
size_t LengthOfRuns(const uint32_t* places, size_t count, size_t unit) {
  size_t length = BytePicker::kMostAtOnce / unit * unit;
  for (size_t i = 0; i < count && length > unit;) {
    const Span span = SpanOf(places + i, places + std::min(i + length, count));
    const bool fits = span.most - span.least < BytePicker::kMostAtOnce;
    i = fits ? i + length : 0;
    if (!fits) length -= unit;
  }
  return length;
}

}  // namespace

bool BytePicker::Prepare(const uint32_t* places, size_t count, size_t unit) {
  bytesAtOnce_ = LengthOfRuns(places, count, unit);
  runs_ = (count + bytesAtOnce_ - 1) / bytesAtOnce_;
  starts_.emplace(runs_ * sizeof(uint32_t), Content::kUnset);
  offsets_.emplace(runs_ * kMostAtOnce, Content::kZeroed);
  if (!*starts_ || !*offsets_) return false;

  const auto rowBytes = static_cast<ptrdiff_t>(rowBytes_);
  innerEnd_ = runs_;
  for (size_t run = 0; run < runs_; ++run) {
    const size_t first = run * bytesAtOnce_;
    const size_t end = std::min(first + bytesAtOnce_, count);
    const uint32_t start = SpanOf(places + first, places + end).least;
    starts_->As<uint32_t>()[run] = start;
    for (size_t i = first; i < end; ++i) {
      offsets_->bytes()[run * kMostAtOnce + i - first] = static_cast<uint8_t>(places[i] - start);
    }
    if (static_cast<ptrdiff_t>(start) < farthest_) innerFirst_ = run + 1;
    if (static_cast<ptrdiff_t>(start + kMostAtOnce) + farthest_ > rowBytes)
      innerEnd_ = std::min(innerEnd_, run);
  }
  innerEnd_ = std::max(innerFirst_, innerEnd_);
  return true;
}

void BytePicker::PickAtEdge(const uint8_t* row, size_t first, size_t end, ptrdiff_t shift,
                            uint8_t* to) const {
  const auto rowBytes = static_cast<ptrdiff_t>(rowBytes_);
  const auto pixelBytes = static_cast<ptrdiff_t>(channels_);
  for (size_t run = first; run < end; ++run) {
    const ptrdiff_t start = static_cast<ptrdiff_t>(starts_->As<uint32_t>()[run]) + shift;
    const uint8_t* offsets = offsets_->bytes() + run * kMostAtOnce;
    for (size_t i = 0; i < bytesAtOnce_; ++i) {
      ptrdiff_t place = start + offsets[i];
      if (place < 0) place += pixelBytes;
      if (place >= rowBytes) place = rowBytes - pixelBytes + place % pixelBytes;
      *to++ = row[place];
    }
  }
}

void BytePicker::Pick(const uint8_t* row, size_t first, size_t count, ptrdiff_t shift, uint8_t* to) const {
  const size_t end = first + count;
  const size_t innerFirst = std::clamp(innerFirst_, first, end);
  const size_t innerEnd = std::clamp(innerEnd_, first, end);
  const InnerRuns inner = {starts_->As<uint32_t>() + innerFirst, offsets_->bytes() + innerFirst * kMostAtOnce,
                           innerEnd - innerFirst, bytesAtOnce_};
  const auto place = [&](size_t run) { return to + (run - first) * bytesAtOnce_; };
  PickAtEdge(row, first, innerFirst, shift, to);
  kPickRuns(inner, row, shift, place(innerFirst));
  PickAtEdge(row, innerEnd, end, shift, place(innerEnd));
}

// ---- the resampler ----------------------------------------------------------------------------------------

Resampler::Resampler(Interpolation interpolation, size_t channels, Size from, Size to)
    : interpolation_(interpolation),
      channels_(channels),
      from_(from),
      to_(to),
      picker_(from.width * channels, channels,
              interpolation == Interpolation::kCubic ? static_cast<ptrdiff_t>(channels) : 0) {
  if (!PrepareColumns()) return;
  constexpr size_t kAlignment = 64;
  const size_t picked = picker_.runs() * picker_.bytesAtOnce() + BytePicker::kMostAtOnce;
  lineBytes_ = (picked + kAlignment - 1) / kAlignment * kAlignment;
  lines_.emplace(kLines * lineBytes_, Content::kZeroed);
  heldRows_.fill(kNone);
  isReady_ = static_cast<bool>(*lines_);
}

bool Resampler::PrepareColumns() {
  const NewBlock columnBlock(to_.width * sizeof(PixelWeights), Content::kUnset);
  if (!columnBlock) return false;
  auto* columns = columnBlock.As<PixelWeights>();
  for (uint32_t x = 0; x < to_.width; ++x) {
    columns[x] = WeightsAt(interpolation_, x, from_.width, to_.width);
    if (!IsCopy(columns[x])) copiesColumns_ = false;
  }

  const size_t unit = copiesColumns_ ? 1 : 2;
  const size_t count = unit * channels_ * to_.width;
  const NewBlock placeBlock(count * sizeof(uint32_t), Content::kUnset);
  if (!placeBlock) return false;
  auto* places = placeBlock.As<uint32_t>();
  for (size_t i = 0; i < count; ++i) {
    const size_t byte = i / unit;
    places[i] =
        static_cast<uint32_t>((columns[byte / channels_].at + i % unit) * channels_ + byte % channels_);
  }
  if (!picker_.Prepare(places, count, unit)) return false;
  if (copiesColumns_) return true;

  weightedPairs_ = picker_.runs() * picker_.bytesAtOnce() / 2;
  const bool isCubic = interpolation_ == Interpolation::kCubic;
  pairWeights_.emplace((isCubic ? 2 : 1) * weightedPairs_ * sizeof(uint16_t), Content::kZeroed);
  if (!*pairWeights_) return false;
  auto* weights = pairWeights_->As<uint16_t>();
  for (size_t i = 0; i < count / 2; ++i) {
    const std::array<uint8_t, 4>& of = columns[i / channels_].of;
    const auto pair = [&of](size_t k) { return static_cast<uint16_t>(of[k] | of[k + 1] << 8); };
    weights[i] = pair(isCubic ? 0 : 1);
    if (isCubic) weights[weightedPairs_ + i] = pair(2);
  }
  return true;
}

PixelWeights Resampler::WeightsOfRow(uint32_t y) const {
  PixelWeights weights = WeightsAt(interpolation_, y, from_.height, to_.height);
  if (interpolation_ == Interpolation::kCubic) {
    // Before the first row there is black, not the first row again. Kept as the weights are.
    if (weights.at == 0) weights.of[0] = 0;
  } else if (weights.at == from_.height - 1) {
    weights.of = {0, 255, 0, 0};
  }
  return weights;
}

// Where row `at` has too few behind it, they are row `at` again, not the last one. Kept as the weights
// are.
uint32_t Resampler::RowAt(uint32_t at, uint32_t i) const {
  return at + i - 1 < from_.height ? at + i - 1 : at;
}

void Resampler::ResampleRow(const uint8_t* row, uint8_t* line) const {
  if (copiesColumns_) return picker_.Pick(row, 0, picker_.runs(), 0, line);

  constexpr size_t kRuns = 128;
  constexpr size_t kMostPairs = (kRuns + 1) * BytePicker::kMostAtOnce / 2;
  uint16_t before[kMostPairs];
  uint16_t behind[kMostPairs];
  const auto pixel = static_cast<ptrdiff_t>(channels_);
  const size_t pairsOfRun = picker_.bytesAtOnce() / 2;
  for (size_t run = 0; run < picker_.runs(); run += kRuns) {
    const size_t runs = std::min(kRuns, picker_.runs() - run);
    const size_t first = run * pairsOfRun;
    const size_t pairs = runs * pairsOfRun;
    const uint16_t* weights = pairWeights_->As<uint16_t>() + first;
    if (interpolation_ == Interpolation::kBilinear) {
      picker_.Pick(row, run, runs, 0, reinterpret_cast<uint8_t*>(before));
      Widest<SumPairs>(before, weights, pairs, line + first);
    } else {
      picker_.Pick(row, run, runs, -pixel, reinterpret_cast<uint8_t*>(before));
      picker_.Pick(row, run, runs, pixel, reinterpret_cast<uint8_t*>(behind));
      Widest<SumFours>(before, behind, weights, weights + weightedPairs_, pairs, line + first);
    }
  }
}

void Resampler::Blend(const PixelWeights& weights, const std::array<const uint8_t*, 4>& lines,
                      uint8_t* to) const {
  const size_t count = channels_ * to_.width;
  if (IsCopy(weights)) {
    std::memcpy(to, lines[1], count);
  } else if (interpolation_ == Interpolation::kBilinear) {
    Widest<BlendTwo>(lines[1], lines[2], weights.of[1], weights.of[2], count, to);
  } else {
    Widest<BlendFour>(lines, weights.of, count, to);
  }
}

}  // namespace rastrel
