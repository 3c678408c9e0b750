#include "cleanup/darkness.h"

#include <cstring>

#include "pixels/kernels.h"
#include "pixels/words.h"

namespace rastrel {
namespace {

constexpr unsigned kMiddleTone = 128;
constexpr unsigned kMaxTone = 255;

// Packs 64 flags of 0 or 1.
inline uint64_t PackFlags(const uint8_t flags[64]) {
  uint64_t word = 0;
  for (int i = 0; i < 64; i += 8) {
    word |= uint64_t{GatherFlags(LoadWord(flags + i))} << i;
  }
  return word;
}

// Packs the pixels 0 .. pixels - 1 for which `isForeground` gives 1.
template <class IsForeground>
inline void PackPixels(int pixels, uint64_t* words, IsForeground isForeground) {
  int x = 0;
  for (; x + 64 <= pixels; x += 64) {
    uint8_t flags[64];
    for (int k = 0; k < 64; ++k) flags[k] = isForeground(x + k);
    *words++ = PackFlags(flags);
  }
  if (x == pixels) return;
  uint8_t flags[64] = {};
  for (int k = 0; x + k < pixels; ++k) flags[k] = isForeground(x + k);
  *words = PackFlags(flags);
}

void PackBits(const uint8_t* row, size_t rowBytes, uint64_t flip, int pixels, uint64_t* words) {
  const size_t count = (static_cast<size_t>(pixels) + 63) / 64;
  words[count - 1] = 0;
  std::memcpy(words, row, std::min(rowBytes, count * sizeof(uint64_t)));
  for (size_t i = 0; i < count; ++i) words[i] ^= flip;
}

void PackIndexRange(const uint8_t* row, uint8_t first, uint8_t last, int pixels, uint64_t* words) {
  const auto span = static_cast<uint8_t>(last - first);
  PackPixels(pixels, words,
             [=](int x) { return static_cast<uint8_t>(static_cast<uint8_t>(row[x] - first) <= span); });
}

void PackIndices(const uint8_t* row, const IndexSet& indices, int pixels, uint64_t* words) {
  PackPixels(pixels, words, [&](int x) { return static_cast<uint8_t>(indices[row[x]]); });
}

// Groups of three bytes vectorise for AVX2 only.
void PackTrueColour(const uint8_t* row, uint16_t firstSum, uint16_t lastSum, int pixels, uint64_t* words) {
  const auto span = static_cast<uint16_t>(lastSum - firstSum);
  PackPixels(pixels, words, [=](int x) {
    const int sum = row[3 * x] + row[3 * x + 1] + row[3 * x + 2];
    return static_cast<uint8_t>(static_cast<uint16_t>(sum - firstSum) <= span);
  });
}

}  // namespace

IndexSet IndicesOfTones(const LockedDib& dib, RGBQUAD beyond, unsigned firstTone, unsigned lastTone) {
  RGBQUAD colours[256];
  dib.ReadPalette(256, beyond, colours);
  IndexSet indices;
  for (unsigned i = 0; i < 256; ++i) {
    const unsigned tone = ToneOf(colours[i].rgbBlue, colours[i].rgbGreen, colours[i].rgbRed);
    indices[i] = firstTone <= tone && tone <= lastTone;
  }
  return indices;
}

ForegroundTest::ForegroundTest(const LockedDib& dib, Foreground foreground, RGBQUAD beyond)
    : bits_(dib.bits()) {
  const bool dark = foreground == Foreground::kDark;
  const unsigned firstTone = dark ? 0 : kMiddleTone + 1;
  const unsigned lastTone = dark ? kMiddleTone - 1 : kMaxTone;
  flip_ = dib.FirstColourIsBlack() == dark ? ~uint64_t{0} : 0;
  firstSum_ = static_cast<uint16_t>(3 * firstTone);
  lastSum_ = static_cast<uint16_t>(3 * lastTone + 2);
  if (bits_ != 8) return;
  indices_ = IndicesOfTones(dib, beyond, firstTone, lastTone);
  const auto first = std::find(indices_.begin(), indices_.end(), true);
  const auto end = std::find(first, indices_.end(), false);
  isRange_ = first != end && std::find(end, indices_.end(), true) == indices_.end();
  firstIndex_ = static_cast<uint8_t>(first - indices_.begin());
  lastIndex_ = static_cast<uint8_t>(end - indices_.begin() - 1);
}

void ForegroundTest::PackRow(const uint8_t* row, size_t stride, int column, int pixels,
                             uint64_t* words) const {
  const auto offset = static_cast<size_t>(static_cast<uint64_t>(column) * bits_ / 8);
  row += offset;
  if (bits_ == 1) return PackBits(row, stride - offset, flip_, pixels, words);
  if (bits_ == 24) return Widest<PackTrueColour>(row, firstSum_, lastSum_, pixels, words);
  if (isRange_) return PackIndexRange(row, firstIndex_, lastIndex_, pixels, words);
  PackIndices(row, indices_, pixels, words);
}

}  // namespace rastrel
