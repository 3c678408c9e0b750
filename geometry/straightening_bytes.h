// Tiles of a straightened page of 4, 8 or 24 bits.
#ifndef RASTREL_GEOMETRY_STRAIGHTENING_BYTES_H
#define RASTREL_GEOMETRY_STRAIGHTENING_BYTES_H

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <type_traits>

#include "frame/dib.h"
#include "geometry/straightening_columns.h"
#include "pixels/mixing.h"

namespace rastrel::straightening {

// Bytes of a run are made so many at once; those that are too many are made again as parts of what follows.
constexpr int kAtOnce = kMixedAtOnce;

template <int kChannels>
struct ByteColumns {
  std::array<uint16_t, kColumns * kChannels + kAtOnce> x, y;  // as the short ones, for each byte
};

struct TakeNearest {};

// Makes a row of a tile, and up to kAtOnce - 1 bytes more. By TakeNearest or one of the ways to mix.
template <int kChannels, class Way>
void TurnRow(const uint8_t* box, ptrdiff_t stride, uint64_t starts, const Columns& columns,
             const ByteColumns<kChannels>& bytes, Place row, int count, uint8_t* to) {
  while (starts != 0) {
    const int n = std::countl_zero(starts);
    if (n >= count) return;
    starts &= kOnes >> n >> 1;
    const int end = std::min(std::countl_zero(starts), count) * kChannels;
    const uint8_t* from =
        box + PixelAt(row.y + columns.y[n]) * stride + PixelAt(row.x + columns.x[n]) * kChannels;
    for (int i = n * kChannels; i < end; i += kAtOnce, from += kAtOnce) {
      if constexpr (std::is_same_v<Way, TakeNearest>) {
        std::memcpy(to + i, from, kAtOnce);
      } else {
        Way::Run(from, from + stride, kChannels,
                 {&bytes.x[i], &bytes.y[i], static_cast<uint16_t>(row.x), static_cast<uint16_t>(row.y)},
                 to + i);
      }
    }
  }
}

template <int kChannels>
inline constexpr Kernel kMixRow = Kernel(TurnRow<kChannels, MixPlainly>)
                                      .With(Processor::kAvx2,
                                            kernels::Wide<TurnRow<kChannels, MixByAvx2>>::Run);

// What a page with a colour table is mixed by: the greys of its indices, and the indices nearest to greys.
struct GreyTable {
  std::array<uint8_t, 256> greys, indices;
};

// 4, 8 or 24 bits. The buffer has the bytes of pixels, or with a table their greys; tiles inside the page do
// without it.
template <int kBits>
class ByteTile {
 public:
  ByteTile(const ConstRows& page, bool isSmooth, const GreyTable* table, const uint8_t* background)
      : page_(page), isSmooth_(isSmooth), table_(table) {
    std::memcpy(background_.data(), background, kChannels);
    if (table_ != nullptr) background_[0] = table_->greys[background_[0]];
  }

  static Position Origin(const Box<int64_t>& box) { return {box.columns.first, box.rows.first}; }

  void SetColumns(const Columns& columns) {
    columns_ = columns;
    starts_.Forget();
    for (int i = 0; i < kColumns * kChannels; ++i) {
      bytes_.x[i] = columns.shortX[1 + i / kChannels];
      bytes_.y[i] = columns.shortY[1 + i / kChannels];
    }
  }

  void Load(const Box<int64_t>& box) {
    const auto width = static_cast<int>(box.columns.size());
    const auto left = static_cast<int>(std::clamp<int64_t>(-box.columns.first, 0, width));
    const auto right = static_cast<int>(std::clamp<int64_t>(page_.width - box.columns.first, left, width));
    // What lies inside the page as a whole, with room for what is too many, needs no copy.
    const bool isInside = left == 0 && box.columns.first + width + kAtOnce <= page_.width &&
                          box.rows.first >= 0 && box.rows.first + box.rows.size() <= page_.height;
    if (kBits != 4 && table_ == nullptr && isInside) {
      box_ = page_.StoredRow(static_cast<int>(box.rows.first)) + box.columns.first * kChannels;
      stride_ = static_cast<ptrdiff_t>(page_.stride);
      return;
    }
    box_ = buffer_.data();
    stride_ = kStride;
    for (int row = 0; row < box.rows.size(); ++row) {
      const int64_t y = box.rows.first + row;
      uint8_t* const to = buffer_.data() + row * kStride;
      if (y < 0 || y >= page_.height || left == right) {
        FillBackground(to, width);
        continue;
      }
      const uint8_t* const from = page_.StoredRow(static_cast<int>(y));
      FillBackground(to, left);
      LoadPixels(from, box.columns.first + left, right - left, to + left * kChannels);
      FillBackground(to + right * kChannels, width - right);
    }
  }

  // `to` has room for more bytes behind its pixels where `isRoomy`.
  void Fill(const Place* places, const Rows& to, bool isRoomy) {
    const int half = isSmooth_ ? kPixel / 512 : kPixel / 2;  // of what positions are rounded to
    // Copies of 16 bytes are no faster with wider registers.
    const auto turnRow = isSmooth_ ? kMixRow<kChannels>.Best() : TurnRow<kChannels, TakeNearest>;
    for (int i = 0; i < to.height; ++i) {
      const Place place = {places[i].x + half, places[i].y + half};
      uint8_t* const bytes = kBits == 4 || !isRoomy ? row_.data() : to.StoredRow(i);
      starts_.Find(columns_, place);
      turnRow(box_, stride_, starts_.columns(), columns_, bytes_, place, to.width, bytes);
      if constexpr (kChannels == 1) {
        if (table_ != nullptr) LookUp(table_->indices, to.width, bytes);
      }
      if constexpr (kBits == 4) {
        Pack(to.width, to.StoredRow(i));
      } else if (!isRoomy) {
        std::memcpy(to.StoredRow(i), bytes, static_cast<size_t>(to.width) * kChannels);
      }
    }
  }

 private:
  static constexpr int kChannels = kBits == 24 ? 3 : 1;
  static constexpr int kStride = kBoxSide * kChannels;

  void FillBackground(uint8_t* to, int count) const {
    for (int i = 0; i < count * kChannels; ++i) to[i] = background_[i % kChannels];
  }

  void LoadPixels(const uint8_t* row, int64_t first, int count, uint8_t* to) const {
    if constexpr (kBits == 4) {
      for (int n = 0; n < count; ++n) {
        const int64_t x = first + n;
        to[n] = row[x / 2] >> (x % 2 == 0 ? 4 : 0) & 0xF;
      }
    } else {
      std::memcpy(to, row + first * kChannels, static_cast<size_t>(count) * kChannels);
    }
    if constexpr (kChannels == 1) {
      if (table_ != nullptr) LookUp(table_->greys, count, to);
    }
  }

  static void LookUp(const std::array<uint8_t, 256>& table, int count, uint8_t* bytes) {
    for (int n = 0; n < count; ++n) bytes[n] = table[bytes[n]];
  }

  void Pack(int count, uint8_t* to) {
    row_[count] = 0;
    for (int n = 0; n < count; n += 2) to[n / 2] = static_cast<uint8_t>(row_[n] << 4 | row_[n + 1]);
  }

  ConstRows page_;
  bool isSmooth_;
  const GreyTable* table_;
  std::array<uint8_t, kChannels> background_;
  Columns columns_;
  RunStarts starts_;
  ByteColumns<kChannels> bytes_ = {};
  std::array<uint8_t, kColumns * kChannels + kAtOnce> row_;
  std::array<uint8_t, kBoxSide* kStride + 2 * kAtOnce> buffer_ = {};
  const uint8_t* box_ = nullptr;  // what the tile needs, in the buffer or the page
  ptrdiff_t stride_ = 0;
};

}  // namespace rastrel::straightening

#endif
