// Error diffusion to 1, 4 and 8 bits on rows of 16-bit cells that are copied up from row to row.
#ifndef RASTREL_TESTS_REFERENCE_ERROR_DIFFUSION_H
#define RASTREL_TESTS_REFERENCE_ERROR_DIFFUSION_H

#include <algorithm>

#include "dib.h"

namespace reference {

// One row of error cells with room left and right of its pixels.
template <class Cell>
class ErrorRow {
 public:
  explicit ErrorRow(int length) : cells_(static_cast<size_t>(length + 26)) {}
  Cell& operator[](int x) { return cells_[static_cast<size_t>(x + 6)]; }
  void Add(int x, int share) { (*this)[x] = static_cast<Cell>((*this)[x] + share); }
  void Store(int x, int share) { (*this)[x] = static_cast<Cell>(share); }
  // The row that is copied from keeps its contents.
  void CopyFrom(ErrorRow& other, int length) {
    for (int x = 0; x < length; ++x) (*this)[x] = other[x];
  }

 private:
  std::vector<Cell> cells_;
};

// A zeroed picture of the source's size and resolution, its colour table still black.
inline Block MakeDithered(const View& source, int bits) {
  Block result = MakeResult(source, bits, 4 << bits);
  SetField(result, kClrUsed, 4, 1 << bits);
  return result;
}

inline void FillDitherTable(Block& result, int bits) {
  for (int i = 0; i < 1 << bits; ++i) {
    int red = i * 255, green = red, blue = red, reserved = 0;
    if (bits == 4) {
      red = i & 8 ? 255 : 0;
      green = i & 4 ? 255 : 0;
      blue = i & 2 ? 255 : 0;
      reserved = i & 1 ? 255 : 0;
    } else if (bits == 8) {
      red = i / 32 * 36;
      green = i / 4 % 8 * 36;
      blue = i % 4 * 85;
    }
    SetField(result, kHeader + 4 * i, 4, blue | green << 8 | red << 16 | int64_t{reserved} << 24);
  }
}

using Errors = ErrorRow<int16_t>;

inline void DiffuseFloydSteinberg(Errors& current, Errors& next, int x, int e, int bits) {
  const int left = bits == 8 ? 1 : 0;  // at 8 bits the next row's shares lie one pixel further left
  current.Add(x + 1, e * 7 / 16);
  next.Store(x - 1 - left, e * 3 / 16);
  next.Store(x - left, e * 5 / 16);
  next.Store(x + 1 - left, e / 16);
}

// The next row's shares add, those of the row after it replace, with weights that the operations choose.
template <class Cell>
void DiffuseJarvis(ErrorRow<Cell>& current, ErrorRow<Cell>& next, ErrorRow<Cell>& afterNext, int x, int e,
                   const int (&afterNextWeights)[5]) {
  const int nextWeights[5] = {3, 5, 7, 5, 3};
  current.Add(x + 1, e * 7 / 48);
  current.Add(x + 2, e * 5 / 48);
  for (int i = 0; i < 5; ++i) {
    next.Add(x - 2 + i, e * nextWeights[i] / 48);
    afterNext.Store(x - 2 + i, e * afterNextWeights[i] / 48);
  }
}

inline Block Dither(const Block& block, int bits, bool jarvis) {
  const View source(block);
  if (bits != 1 && bits != 4 && bits != 8) return {};
  if (bits >= source.bits || (source.bits != 4 && source.bits != 8 && source.bits != 24)) return {};

  const int w = source.width;
  const int length = static_cast<int>(source.bits == 4 ? Stride(w, 4) * 2 : Stride(w, 8));
  const int channels = bits == 1 ? 1 : 3;  // grey, or red, green, blue
  std::vector<Errors> current(3, Errors(length)), next = current, afterNext = current;

  Block result = MakeDithered(source, bits);
  FillDitherTable(result, bits);
  for (int row = 0; row < source.height; ++row) {
    const int64_t out = kHeader + (4 << bits) + row * Stride(w, bits);
    for (int channel = 0; channel < channels; ++channel) {
      const size_t c = static_cast<size_t>(channel);
      for (int x = 0; x < w; ++x) {
        const Colour colour = source.ColourOf(x, row);
        int value = channel == 0 ? colour.red : channel == 1 ? colour.green : colour.blue;
        // The first pixel of the first row stays red in the Jarvis dither.
        if (bits == 1 && !(jarvis && row == 0 && x == 0)) value = std::min(colour.Grey(), 255);
        current[c].Add(x, value);
      }
      for (int x = 0; x < w; ++x) {
        const int v = current[c][x];
        int e = v;
        if (bits == 8) {
          const int level = channel == 2 ? 64 : 32;
          const int highest = channel != 2 ? 7 : jarvis ? 4 : 3;
          const int q = std::clamp(v / level, 0, highest);
          const int place[] = {5, 2, 0};
          OrPixel(result, out, x, bits, q << place[channel]);  // a blue 4 falls into the green field
          e = v - level * q;
        } else if (v > 128) {
          OrPixel(result, out, x, bits, bits == 1 ? 1 : 8 >> channel);
          e = v - 255;
        }
        if (e == 0) continue;
        if (jarvis) {
          DiffuseJarvis(current[c], next[c], afterNext[c], x, e, {1, 3, 5, 1, 3});
        } else {
          DiffuseFloydSteinberg(current[c], next[c], x, e, bits);
        }
      }
      current[c].CopyFrom(next[c], length);
      if (jarvis) next[c].CopyFrom(afterNext[c], length);
    }
  }
  return result;
}

inline Block DitherFS4(const Block& block, int bits) { return Dither(block, bits, false); }
inline Block DitherJJN(const Block& block, int bits) { return Dither(block, bits, true); }

}  // namespace reference

#endif
