// Rows of samples in a new size, by bilinear interpolation or cubic convolution.
//
// A source row is resampled along itself into a line of the new width; a new row is made of two lines, or of
// four with cubic convolution. A line is made once and kept as long as new rows need it.
#ifndef RASTREL_SCALE_RESAMPLING_H
#define RASTREL_SCALE_RESAMPLING_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "frame/dib.h"

namespace rastrel {

enum class Interpolation : bool { kBilinear, kCubic };

// The weights, in 255ths, of the pixels at -1, 0, 1 and 2 from `at`. Those of the outer two are taken away.
struct PixelWeights {
  uint32_t at;
  std::array<uint8_t, 4> of;
};

// Picks bytes from rows, each from a place of its own, near that of the byte before. As many as lie within 16
// bytes are moved at once.
class BytePicker {
 public:
  static constexpr size_t kMostAtOnce = 16;

  // Rows have `rowBytes` bytes, `channels` a pixel. `farthest` is the largest shift either way, one pixel at
  // most.
  BytePicker(size_t rowBytes, size_t channels, ptrdiff_t farthest)
      : rowBytes_(rowBytes), channels_(channels), farthest_(farthest) {}

  // Byte i will come from places[i]. Their number is a multiple of `unit`, and bytesAtOnce will be one, too;
  // the bytes of a unit lie within kMostAtOnce. Returns false when there is no memory.
  bool Prepare(const uint32_t* places, size_t count, size_t unit);

  size_t runs() const { return runs_; }
  size_t bytesAtOnce() const { return bytesAtOnce_; }  // in a run

  // Picks `count` runs from `first` on, `shift` bytes behind their places; for pixels beyond the row those at
  // its ends are taken. kMostAtOnce bytes are written from the beginning of the last run on.
  void Pick(const uint8_t* row, size_t first, size_t count, ptrdiff_t shift, uint8_t* to) const;

 private:
  void PickAtEdge(const uint8_t* row, size_t first, size_t end, ptrdiff_t shift, uint8_t* to) const;

  size_t rowBytes_;
  size_t channels_;
  ptrdiff_t farthest_;
  size_t bytesAtOnce_ = 0;
  size_t runs_ = 0;
  // The runs of which kMostAtOnce bytes from their starts on lie in the row.
  size_t innerFirst_ = 0;
  size_t innerEnd_ = 0;
  std::optional<NewBlock> starts_;   // the first place of each run
  std::optional<NewBlock> offsets_;  // kMostAtOnce of each run, from there on
};

class Resampler {
 public:
  // In pixels, 1 to 65,535.
  struct Size {
    uint32_t width;
    uint32_t height;
  };

  // A pixel is `channels` bytes, 1 or 3.
  Resampler(Interpolation interpolation, size_t channels, Size from, Size to);
  // False when there is no memory.
  explicit operator bool() const { return isReady_; }

  // Makes row y of the new size. rowOf(r) gives source row r, of which nothing beyond its pixels is read.
  // Fast when y rises by one from call to call.
  template <class RowOf>
  void MakeRow(uint32_t y, RowOf rowOf, uint8_t* to) {
    const PixelWeights weights = WeightsOfRow(y);
    std::array<const uint8_t*, 4> lines;
    for (uint32_t i = 0; i < 4; ++i) {
      lines[i] = anyLine();  // of weight 0
      if (weights.of[i] == 0) continue;
      const uint32_t row = RowAt(weights.at, i);
      uint8_t* line = LineOf(row);
      if (heldRows_[row % kLines] != row) ResampleRow(rowOf(row), line);
      heldRows_[row % kLines] = row;
      lines[i] = line;
    }
    Blend(weights, lines, to);
  }

 private:
  static constexpr size_t kLines = 4;
  static constexpr uint32_t kNone = UINT32_MAX;

  bool PrepareColumns();
  PixelWeights WeightsOfRow(uint32_t y) const;
  uint32_t RowAt(uint32_t at, uint32_t i) const;
  uint8_t* LineOf(uint32_t row) const { return lines_->bytes() + row % kLines * lineBytes_; }
  const uint8_t* anyLine() const { return lines_->bytes(); }
  void ResampleRow(const uint8_t* row, uint8_t* line) const;
  void Blend(const PixelWeights& weights, const std::array<const uint8_t*, 4>& lines, uint8_t* to) const;

  Interpolation interpolation_;
  size_t channels_;
  Size from_;
  Size to_;
  bool isReady_ = false;

  // Picks pairs for each byte of a line, or the byte itself where all columns are copies.
  BytePicker picker_;
  bool copiesColumns_ = true;
  std::optional<NewBlock> pairWeights_;
  size_t weightedPairs_ = 0;  // with cubic convolution as many follow, for the pairs behind
  size_t lineBytes_ = 0;
  std::optional<NewBlock> lines_;
  std::array<uint32_t, kLines> heldRows_;
};

}  // namespace rastrel

#endif
