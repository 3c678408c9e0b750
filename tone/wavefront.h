// Error diffusion over sixteen rows at once.
//
// A pixel waits for the one before it, so a row alone keeps a processor idle most of the time. A row does not
// wait for the whole row before it, though, only for its pixels up to one or two further right. Rows are
// therefore taken in strips of 16, each row a few pixels (the skew) behind the one before it:
//
//     step t      row 0 does pixel t
//                 row 1 does pixel t - skew
//                 row 2 does pixel t - 2 * skew ...
//
// and what a row leaves for its next one moves on by one lane each step. What the last row of a strip leaves
// is kept in memory for the first row of the next strip. Only cells of pixels 0 to width - 1 ever count:
// what a kernel leaves beyond them does no harm.
#ifndef RASTREL_TONE_WAVEFRONT_H
#define RASTREL_TONE_WAVEFRONT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "frame/dib.h"
#include "tone/lanes.h"

namespace rastrel {

// A Kernel has
//   kDelay     how many pixels behind its own it leaves a cell final
//   kKept      how many numbers a column keeps from row to row
//   Lanes Step(Lanes tone, Lanes inside, Lanes (&kept)[kKept])
// Step does the next pixel of each row: `tone` is its byte, `inside` has all bits where it is a pixel at all.
// `kept` comes in for this pixel and leaves for the one kDelay before it. What Step returns replaces the
// pixel's byte.
template <class Kernel>
constexpr int kSkew = Kernel::kDelay + 1;

constexpr int kMaxSkew = 3;
// What steps outside the picture touch before and behind a row.
constexpr int kRowMargin = (kLanes + 1) * kMaxSkew + kLanes;

// The memory of a wavefront: the rows of a strip, and what columns keep, for each channel.
class WavefrontMemory {
 public:
  WavefrontMemory(int width, int height, int channels, int kept)
      : stride_(uint64_t{static_cast<uint32_t>(width)} + 2 * kRowMargin),
        rows_(std::min(height, kLanes)),
        kept_(kept),
        keptBytes_(stride_ * sizeof(int16_t) * static_cast<uint64_t>(channels * kept)),
        block_(keptBytes_ + stride_ * static_cast<uint64_t>(channels * rows_ + 1), Content::kZeroed) {}
  explicit operator bool() const { return static_cast<bool>(block_); }

  // A row of the strip, a byte a pixel.
  uint8_t* Row(int channel, int row) const { return RowAt(1 + channel * rows_ + row); }
  // Stands for every row that a page or its last strip lacks.
  uint8_t* SpareRow() const { return RowAt(0); }
  int16_t* Kept(int channel, int index) const {
    return block_.As<int16_t>() +
           static_cast<size_t>(stride_) * static_cast<size_t>(channel * kept_ + index) + kRowMargin;
  }

 private:
  uint8_t* RowAt(int index) const {
    return block_.bytes() + static_cast<size_t>(keptBytes_ + stride_ * static_cast<uint64_t>(index)) +
           kRowMargin;
  }

  uint64_t stride_;
  int rows_;
  int kept_;
  uint64_t keptBytes_;
  NewBlock block_;
};

// One channel of a strip on its way from left to right.
template <class Kernel>
class Wavefront {
  static_assert(kSkew<Kernel> <= kMaxSkew);

 public:
  Wavefront(const WavefrontMemory& memory, int channel, int rows, int width) : width_(width) {
    for (int i = 0; i < kLanes; ++i) row_[i] = i < rows ? memory.Row(channel, i) : memory.SpareRow();
    for (int k = 0; k < Kernel::kKept; ++k) kept_[k] = memory.Kept(channel, k);
  }

  // Replaces the bytes of all rows by what the kernel makes of them.
  void Run() {
    constexpr int kReach = kSkew<Kernel> * (kLanes - 1);
    const ptrdiff_t end = ptrdiff_t{width_} + kReach + Kernel::kDelay;
    for (ptrdiff_t t = 0; t < end; t += kLanes) {
      const bool insideAll = t >= kReach && t + kLanes <= width_;
      insideAll ? RunTile<false>(t) : RunTile<true>(t);
    }
  }

 private:
  // Does 16 steps.
  template <bool kAtEdge>
  void RunTile(ptrdiff_t t) {
    Tile tile;
    for (int i = 0; i < kLanes; ++i) tile.SetRow(i, row_[i] + t - i * kSkew<Kernel>);
    tile.RowsToColumns();
    State state = state_;  // a copy, so that it stays in registers
    for (int pair = 0; pair < kLanes / 2; ++pair) {
      const Lanes even = Step<kAtEdge>(tile.EvenColumn(pair), t + 2 * pair, &state);
      const Lanes odd = Step<kAtEdge>(tile.OddColumn(pair), t + 2 * pair + 1, &state);
      tile.SetColumns(pair, even, odd);
    }
    state_ = state;
    tile.ColumnsToRows();
    for (int i = 0; i < kLanes; ++i) tile.GetRow(i, row_[i] + t - i * kSkew<Kernel>);
  }

  // What goes from step to step.
  struct State {
    Kernel kernel = {};
    Lanes kept[Kernel::kKept] = {};
  };

  template <bool kAtEdge>
  Lanes Step(Lanes tone, ptrdiff_t first, State* state) {
    for (int k = 0; k < Kernel::kKept; ++k) state->kept[k] = MovedOn(state->kept[k], kept_[k] + first);
    const Lanes level = state->kernel.Step(tone, kAtEdge ? Inside(first) : Lanes::Of(-1), state->kept);
    const ptrdiff_t last = first - kSkew<Kernel> * (kLanes - 1) - Kernel::kDelay;
    for (int k = 0; k < Kernel::kKept; ++k) kept_[k][last] = state->kept[k].last();
    return level;
  }

  // The lanes that stand on a pixel when lane 0 is at column `first`: 0 <= first - lane * skew < width.
  Lanes Inside(ptrdiff_t first) const {
    constexpr ptrdiff_t kFar = 1000;
    const Lanes behind = Lanes::Ramp(kSkew<Kernel>);
    const auto left = static_cast<int16_t>(std::min(first, kFar));
    const auto right = static_cast<int16_t>(std::max(first - width_, -kFar));
    return (Lanes::Of(static_cast<int16_t>(left + 1)) > behind) & (behind > Lanes::Of(right));
  }

  int width_;
  uint8_t* row_[kLanes];
  int16_t* kept_[Kernel::kKept];
  State state_;
};

// Does a strip of `rows` rows of one channel.
template <class Kernel>
void DiffuseStrip(const WavefrontMemory& memory, int channel, int rows, int width) {
  Wavefront<Kernel>(memory, channel, rows, width).Run();
}

}  // namespace rastrel

#endif
