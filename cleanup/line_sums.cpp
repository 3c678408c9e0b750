#include "cleanup/line_sums.h"

#include <algorithm>

#include "pixels/kernels.h"

namespace rastrel {
namespace {

constexpr int kFinePhases = 4;
constexpr int kCoarsePhases = 2;

void AddFour(const uint8_t* __restrict a, const uint8_t* __restrict b, const uint8_t* __restrict c,
             const uint8_t* __restrict d, int rows, int16_t* __restrict sums) {
  for (int y = 0; y < rows; ++y) sums[y] = static_cast<int16_t>(sums[y] + (a[y] + b[y] + c[y] + d[y]));
}

void AddOne(const uint8_t* __restrict strip, int rows, int16_t* __restrict sums) {
  for (int y = 0; y < rows; ++y) sums[y] = static_cast<int16_t>(sums[y] + strip[y]);
}

void AddMore(const int16_t* __restrict other, int rows, int16_t* __restrict sums) {
  for (int y = 0; y < rows; ++y) sums[y] = static_cast<int16_t>(sums[y] + other[y]);
}

double SquareDifferences(const int16_t* sums, int rows) {
  int64_t sharpness = 0;
  for (int y = 2; y < rows; ++y) {
    const int difference = sums[y] - sums[y - 2];
    sharpness += difference * difference;
  }
  return static_cast<double>(sharpness);
}

// Quadratic B-splines: values 3/8 and 1/8 of a cell above and below each cell. They blur by the same amount
// at any place, or else slopes that shift all strips by whole cells would look sharper than others.
void Interpolate(const uint8_t* __restrict ink, int rows, uint8_t* __restrict a, uint8_t* __restrict b,
                 uint8_t* __restrict c, uint8_t* __restrict d) {
  for (int y = 0; y < rows; ++y) {
    const int above = ink[y - 1], here = ink[y], below = ink[y + 1];
    a[y] = static_cast<uint8_t>((49 * above + 78 * here + below + 64) >> 7);
    b[y] = static_cast<uint8_t>((25 * above + 94 * here + 9 * below + 64) >> 7);
    c[y] = static_cast<uint8_t>((9 * above + 94 * here + 25 * below + 64) >> 7);
    d[y] = static_cast<uint8_t>((above + 78 * here + 49 * below + 64) >> 7);
  }
}

// The same at half the resolution: a cell from four rows of two strips, which may be the same.
void Reduce(const uint8_t* left, const uint8_t* right, int rows, uint8_t* __restrict reduced) {
  for (int y = 0; y < rows; ++y, left += 2, right += 2) {
    const int outer = left[-1] + right[-1] + left[2] + right[2];
    const int inner = left[0] + right[0] + left[1] + right[1];
    reduced[y] = static_cast<uint8_t>((outer + 3 * inner + 8) >> 4);
  }
}

}  // namespace

ShiftedStrips::ShiftedStrips(int strips, int rows, int phases, double pitch, double steepest)
    : strips_(strips), phases_(phases), pitch_(pitch) {
  pad_ = static_cast<int>(steepest * Arm() + kRowsBeyondSteepest) + 2;
  // An odd number of cache lines, so that the strips do not all fall into one set of the cache.
  const auto stride = (static_cast<size_t>(rows + 2 * pad_) / 64 + 1) | 1;
  cells_ = {nullptr, stride * 64, strips * phases, rows};
}

ShiftedStrips ShiftedStrips::Fine(const StripGrid& grid, double steepest) {
  return {grid.strips, grid.rows, kFinePhases, grid.Pitch(), steepest};
}

ShiftedStrips ShiftedStrips::Coarse(const StripGrid& grid, double steepest) {
  if (!IsSteep(steepest)) return {grid.strips / 2, grid.rows / 2, kCoarsePhases, grid.Pitch(), steepest};
  return {grid.strips, grid.rows / 2, kCoarsePhases, grid.Pitch() / 2, steepest};
}

void ShiftedStrips::Fill(const StripCells& ink, uint8_t* bytes) {
  const int merged = ink.strips / strips_;
  cells_.first = bytes + pad_;
  for (int i = 0; i < strips_; ++i) {
    const auto phase = [&](int k) { return cells_.Strip(i * phases_ + k); };
    if (phases_ == kFinePhases) {
      Widest<Interpolate>(ink.Strip(i), rows(), phase(0), phase(1), phase(2), phase(3));
    } else {
      for (int k = 0; k < kCoarsePhases; ++k)
        Reduce(ink.Strip(merged * i) + k, ink.Strip(merged * (i + 1) - 1) + k, rows(), phase(k));
    }
  }
}

// The strip moved down by as much as the line through its middle has risen.
const uint8_t* ShiftedStrips::Shifted(int strip, double slope) const {
  constexpr int kFar = 1 << 20;  // keeps places positive
  const double across = (strip - (strips_ - 1) / 2.0) * pitch_;
  const auto place = static_cast<int>((kFar - slope * across) * phases_);
  return cells_.Strip(strip * phases_ + place % phases_) + (place / phases_ - kFar);
}

void ShiftedStrips::Sum(double slope, int section, int sections, int16_t* sums) const {
  std::fill_n(sums, rows(), int16_t{0});
  int i = strips_ * section / sections;
  const int end = strips_ * (section + 1) / sections;
  for (; i + 4 <= end; i += 4) {
    Widest<AddFour>(Shifted(i, slope), Shifted(i + 1, slope), Shifted(i + 2, slope), Shifted(i + 3, slope),
                    rows(), sums);
  }
  for (; i < end; ++i) Widest<AddOne>(Shifted(i, slope), rows(), sums);
}

void AddSums(const int16_t* other, int rows, int16_t* sums) { Widest<AddMore>(other, rows, sums); }

double Sharpness(const int16_t* sums, int rows) { return Widest<SquareDifferences>(sums, rows); }

}  // namespace rastrel
