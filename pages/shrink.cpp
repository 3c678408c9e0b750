#include "pages/shrink.h"

#include <algorithm>
#include <bit>
#include <span>
#include <vector>

#include "pixels/kernels.h"

namespace rastrel::pages {
namespace {

void AddRow(const uint8_t* __restrict row, int count, uint16_t* __restrict sums) {
  for (int x = 0; x < count; ++x) sums[x] = static_cast<uint16_t>(sums[x] + row[x]);
}
void AddFourRows(const uint8_t* __restrict a, const uint8_t* __restrict b, const uint8_t* __restrict c,
                 const uint8_t* __restrict d, int count, uint16_t* __restrict sums) {
  for (int x = 0; x < count; ++x) sums[x] = static_cast<uint16_t>(sums[x] + a[x] + b[x] + c[x] + d[x]);
}
// The sums of `factor` rows from `y` on, column by column; 64 x 255 at most, with the columns added up too.
// Beyond the page its last row and column go on.
void AddRows(const BytePlane& page, int y, int factor, std::span<uint16_t> sums) {
  const int width = page.width();
  const auto row = [&](int i) { return page.Row(std::min(y + i, page.height() - 1)); };
  std::fill(sums.begin(), sums.end(), uint16_t{0});
  int i = 0;
  for (; i + 4 <= factor; i += 4)
    Widest<AddFourRows>(row(i), row(i + 1), row(i + 2), row(i + 3), width, sums.data());
  for (; i < factor; ++i) Widest<AddRow>(row(i), width, sums.data());
  for (size_t x = static_cast<size_t>(width); x < sums.size(); ++x) sums[x] = sums[x - 1];
}

void AddPairs(const uint16_t* __restrict from, uint16_t* __restrict to, int count) {
  for (int i = 0; i < count; ++i) to[i] = static_cast<uint16_t>(from[2 * i] + from[2 * i + 1]);
}

void PutMeans(const uint16_t* __restrict sums, int count, int shift, uint8_t* __restrict means) {
  const auto half = static_cast<uint16_t>((1 << shift) / 2);
  for (int i = 0; i < count; ++i)
    means[i] = static_cast<uint8_t>(static_cast<uint16_t>(sums[i] + half) >> shift);
}

}  // namespace

BytePlane ShrinkByMean(const BytePlane& page, int factor) {
  if (factor <= 1 || page.isEmpty()) return page;
  const int width = (page.width() + factor - 1) / factor;
  const int height = (page.height() + factor - 1) / factor;
  const unsigned area = static_cast<unsigned>(factor * factor);
  const int shift = std::countr_zero(area);
  BytePlane small(width, height);
  std::vector<uint16_t> sums(static_cast<size_t>(width) * static_cast<size_t>(factor));
  std::vector<uint16_t> pairs(sums.size());
  for (int y = 0; y < height; ++y) {
    AddRows(page, y * factor, factor, sums);
    for (int part = factor / 2; part >= 1; part /= 2) {
      Widest<AddPairs>(sums.data(), pairs.data(), width * part);
      sums.swap(pairs);
    }
    uint8_t* out = small.Row(y);
    Widest<PutMeans>(sums.data(), width, shift, out);
  }
  return small;
}

}  // namespace rastrel::pages
