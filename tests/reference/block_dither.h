// Dithers to 1 and 4 bits that hand the brightness of each block of 2 x 2 cells out again, brightest first.
#ifndef RASTREL_TESTS_REFERENCE_BLOCK_DITHER_H
#define RASTREL_TESTS_REFERENCE_BLOCK_DITHER_H

#include <algorithm>
#include <array>
#include <numeric>

#include "dib.h"
#include "error_diffusion.h"

namespace reference {

using Cells = std::array<int16_t, 4>;  // current x, current x + 1, next x, next x + 1

// Cells from the greatest to the least; of equal ones the earlier goes first.
inline std::array<size_t, 4> RankCells(const Cells& cells) {
  std::array<size_t, 4> order;
  std::iota(order.begin(), order.end(), size_t{0});
  std::stable_sort(order.begin(), order.end(), [&](size_t i, size_t j) { return cells[i] > cells[j]; });
  return order;
}

// The first n cells by rank become 255, the one after them gets the rest, the others become 0.
inline Cells HandOut(const Cells& cells, int n, int rest) {
  const std::array<size_t, 4> order = RankCells(cells);
  Cells result = {};
  for (int rank = 0; rank < 4; ++rank) {
    const int value = rank < n ? 255 : rank == n ? rest : 0;
    result[order[static_cast<size_t>(rank)]] = static_cast<int16_t>(value);
  }
  return result;
}

// One pass over a pair of rows. Returns which pixels are white.
inline std::vector<bool> DitherRowPair(Errors& current, Errors& next, int width, bool sharp) {
  std::vector<bool> white;
  int16_t carry = 0, deficit = 0;
  for (int x = 0; x < width; ++x) {
    Cells cells = {current[x], current[x + 1], next[x], next[x + 1]};
    auto sum = static_cast<int16_t>(cells[0] + cells[1] + cells[2] + cells[3] + carry + deficit);
    deficit = std::min<int16_t>(sum, 0);
    sum = std::max<int16_t>(sum, 0);
    cells = HandOut(cells, sum / 255, sum % 255);
    white.push_back(cells[0] == 255);
    carry = cells[0] == 255 ? int16_t{0} : cells[0];
    if (sharp) carry = static_cast<int16_t>(carry / 2);
    current.Store(x, cells[0]);
    current.Store(x + 1, cells[1]);
    next.Store(x, cells[2]);
    next.Store(x + 1, cells[3]);
  }
  return white;
}

// What a row's pixel is worth in a channel: 0 red (or grey, to 1 bit), 1 green, 2 blue.
inline int BlockDitherValue(const View& source, int x, int row, int channel, int bits, bool sharp) {
  const Colour colour = source.ColourOf(x, row);
  if (channel == 1) return colour.green;
  if (channel == 2) return colour.blue;
  // To 1 bit red stands for grey in the whole second row, and in the smooth dither's first pixel.
  if (bits == 4 || row == 1 || (row == 0 && x == 0 && !sharp)) return colour.red;
  return std::min(colour.Grey(), 255);
}

// Dithers one channel. Returns which pixels of each row are white.
inline std::vector<std::vector<bool>> DitherChannel(const View& source, int channel, int bits, bool sharp) {
  const int w = source.width, h = source.height;
  const int length = static_cast<int>(source.bits == 4 ? Stride(w, 4) * 2 : Stride(w, 8));
  std::vector<std::vector<bool>> white(static_cast<size_t>(h));
  Errors current(length), next(length);
  const auto storeRow = [&](Errors& cells, int row) {
    for (int x = 0; x < w; ++x) cells.Store(x, BlockDitherValue(source, x, row, channel, bits, sharp));
  };

  storeRow(current, 0);
  storeRow(next, 0);
  white[0] = DitherRowPair(current, next, w, sharp);  // soon replaced, but the cells stay
  current.CopyFrom(next, length);
  for (int y = 0; y < h; ++y) {
    if (y != h - 1) storeRow(next, y + 1);
    white[static_cast<size_t>(y)] = DitherRowPair(current, next, w, sharp);
    current.CopyFrom(next, length);
  }
  return white;
}

inline Block DitherBlocks(const Block& dib, int bits, bool sharp) {
  const View source(dib);
  if (bits != 1 && bits != 4) return {};
  if (bits >= source.bits || (source.bits != 4 && source.bits != 8 && source.bits != 24)) return {};
  const int64_t room = static_cast<int64_t>(dib.size()) - source.pixels;
  if (source.width <= 0 || source.height <= 0 || room < 0 || source.height > room / source.stride) return {};

  Block result = MakeDithered(source, bits);
  FillDitherTable(result, bits);
  for (int channel = 0; channel < (bits == 1 ? 1 : 3); ++channel) {
    const std::vector<std::vector<bool>> white = DitherChannel(source, channel, bits, sharp);
    for (int y = 0; y < source.height; ++y) {
      const int64_t row = kHeader + (4 << bits) + y * Stride(source.width, bits);
      for (int x = 0; x < source.width; ++x) {
        if (!white[static_cast<size_t>(y)][static_cast<size_t>(x)]) continue;
        OrPixel(result, row, x, bits, bits == 1 ? 1 : 8 >> channel);
      }
    }
  }
  return result;
}

inline Block DitherSmooth(const Block& dib, int bits) { return DitherBlocks(dib, bits, false); }
inline Block DitherSharp(const Block& dib, int bits) { return DitherBlocks(dib, bits, true); }

}  // namespace reference

#endif
