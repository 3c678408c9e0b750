// Whether a page is blank: few enough ink pixels at 1 bit, enough background pixels at 8 and 24 bits.
//
// Counts only grow, so that the verdict is certain once a count has passed its limit: it does not matter
// after which pixel that is noticed. Whole rows are counted between two looks at the limit.
#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "frame/dib.h"
#include "frame/rastrel.h"
#include "pixels/colours.h"
#include "pixels/kernels.h"

namespace rastrel {
namespace {

constexpr int kNoImage = -1;
constexpr int kNotBlank = 0;
constexpr int kBlank = 1;

using Words = uint64_t __attribute__((vector_size(32)));

[[gnu::always_inline]] inline uint64_t SumOfBytes(const Words& bytes) {
  const Words pairs = (bytes & 0x00FF00FF00FF00FF) + (bytes >> 8 & 0x00FF00FF00FF00FF);
  uint64_t sum = 0;
  for (int i = 0; i < 4; ++i) sum += (pairs[i] * 0x0001000100010001) >> 48;
  return sum;
}

// ---- ink, 1 bit -------------------------------------------------------------------------------------------

// *ones + a + b as *ones and *twos, for each bit.
[[gnu::always_inline]] inline void AddBits(const Words& a, const Words& b, Words* ones, Words* twos) {
  const Words either = *ones ^ a;
  *twos = (*ones & a) | (either & b);
  *ones = either ^ b;
}

// How many bits are set in each byte.
[[gnu::always_inline]] inline void CountInBytes(const Words& bits, Words* counts) {
  const Words pairs = bits - (bits >> 1 & 0x5555555555555555);
  const Words nibbles = (pairs & 0x3333333333333333) + (pairs >> 2 & 0x3333333333333333);
  *counts = (nibbles + (nibbles >> 4)) & 0x0F0F0F0F0F0F0F0F;
}

[[gnu::always_inline]] inline uint64_t SumOfBits(const Words& bits) {
  Words counts;
  CountInBytes(bits, &counts);
  return SumOfBytes(counts);
}

// Returns how many bits are set. Four words are added up bit by bit, so that only one word of fours needs its
// bits counted.
[[gnu::always_inline]] inline uint64_t CountBits(const uint8_t* bytes, size_t count) {
  constexpr size_t kBlock = 4 * sizeof(Words);
  constexpr size_t kMostBlocks = 255 / 8;  // a byte of `counts` holds their fours
  uint64_t total = 0;
  while (count >= kBlock) {
    const size_t blocks = std::min(count / kBlock, kMostBlocks);
    Words ones{};
    Words twos{};
    Words counts{};
    for (size_t block = 0; block < blocks; ++block, bytes += kBlock) {
      Words a, b, c, d;
      std::memcpy(&a, bytes, sizeof(Words));
      std::memcpy(&b, bytes + sizeof(Words), sizeof(Words));
      std::memcpy(&c, bytes + 2 * sizeof(Words), sizeof(Words));
      std::memcpy(&d, bytes + 3 * sizeof(Words), sizeof(Words));
      Words twosA, twosB, fours;
      AddBits(a, b, &ones, &twosA);
      AddBits(c, d, &ones, &twosB);
      AddBits(twosA, twosB, &twos, &fours);
      Words foursInBytes;
      CountInBytes(fours, &foursInBytes);
      counts += foursInBytes;
    }
    total += 4 * SumOfBytes(counts) + 2 * SumOfBits(twos) + SumOfBits(ones);
    count -= blocks * kBlock;
  }
  // Rows are whole groups of four bytes.
  for (size_t at = 0; at < count; at += sizeof(uint32_t)) {
    uint32_t last;
    std::memcpy(&last, bytes + at, sizeof(last));
    total += static_cast<uint64_t>(std::popcount(last));
  }
  return total;
}

// The bits that count in a row. Where the last pixel ends a byte, the byte of padding behind it, if there is
// one, counts like pixels. Kept: callers compare verdicts of IsImageBlank with earlier ones.
uint64_t BitsSeen(int width) {
  const auto bits = static_cast<uint64_t>(width);
  return bits % 8 == 0 && bits % 32 != 0 ? bits + 8 : bits;
}

// Those that do not count: the last ones of the row's last four bytes.
uint32_t UnseenBits(int width, size_t stride) {
  const uint64_t unseen = uint64_t{stride} * 8 - BitsSeen(width);
  const uint32_t lowest = (uint32_t{1} << unseen) - 1;
  return lowest << 24 | (lowest >> 8 & 0xFF) << 16 | (lowest >> 16 & 0xFF) << 8 | lowest >> 24;
}

// Returns how many of the bits that count are set, in rows from `first` up to `end`.
uint64_t CountSeenBits(const ConstRows& rows, uint32_t unseen, int first, int end) {
  const uint8_t* row = rows.StoredRow(first);
  uint64_t total = CountBits(row, static_cast<size_t>(end - first) * rows.stride);
  if (unseen == 0) return total;
  for (int y = first; y < end; ++y, row += rows.stride) {
    uint32_t last;
    std::memcpy(&last, row + rows.stride - sizeof(last), sizeof(last));
    total -= static_cast<uint64_t>(std::popcount(last & unseen));
  }
  return total;
}

int TestInk(const ConstRows& rows, bool inkIsSet, double allowance) {
  constexpr size_t kChunkBytes = 16384;
  const int chunkRows = static_cast<int>(std::clamp<size_t>(kChunkBytes / rows.stride, 1, kChunkBytes));
  const uint32_t unseen = UnseenBits(rows.width, rows.stride);
  const uint64_t seen = BitsSeen(rows.width);
  uint64_t ink = 0;
  for (int y = 0; y < rows.height;) {
    const int end = rows.height - y > chunkRows ? y + chunkRows : rows.height;
    const uint64_t set = Widest<CountSeenBits>(rows, unseen, y, end);
    ink += inkIsSet ? set : static_cast<uint64_t>(end - y) * seen - set;
    if (allowance <= static_cast<double>(ink)) return kNotBlank;
    y = end;
  }
  return kBlank;
}

// ---- background, 8 and 24 bits ----------------------------------------------------------------------------

// 16 bytes, the width that every processor has: comparisons of wider vectors would be taken apart byte by
// byte where they are missing.
using Bytes = uint8_t __attribute__((vector_size(16)));

// Counts go side by side in bytes, which are added up before any can overflow.
constexpr size_t kMostRounds = 255;

[[gnu::always_inline]] inline uint64_t SumOf(const Bytes& counts) {
  uint64_t sum = 0;
  for (size_t i = 0; i < sizeof(Bytes); ++i) sum += counts[i];
  return sum;
}

// Indices from `first` up to `last`.
struct Run {
  uint8_t first;
  uint8_t last;
};

uint64_t CountRun(const uint8_t* pixels, size_t count, Run run) {
  const auto length = static_cast<uint8_t>(run.last - run.first);
  uint64_t total = 0;
  while (count >= sizeof(Bytes)) {
    const size_t rounds = std::min(count / sizeof(Bytes), kMostRounds);
    Bytes counts = {};
    for (size_t round = 0; round < rounds; ++round, pixels += sizeof(Bytes)) {
      Bytes indices;
      std::memcpy(&indices, pixels, sizeof(indices));
      counts -= reinterpret_cast<Bytes>(indices - run.first <= length);
    }
    total += SumOf(counts);
    count -= rounds * sizeof(Bytes);
  }
  for (size_t x = 0; x < count; ++x) total += static_cast<uint8_t>(pixels[x] - run.first) <= length ? 1 : 0;
  return total;
}

// The indices of background colours.
class BackgroundIndices {
 public:
  // In ascending order.
  void Add(unsigned index) {
    is_[index] = 1;
    if (index == 0 || is_[index - 1] == 0) runs_[runCount_++].first = static_cast<uint8_t>(index);
    runs_[runCount_ - 1].last = static_cast<uint8_t>(index);
  }

  uint64_t CountIn(const uint8_t* pixels, size_t count) const {
    if (runCount_ > kMostRuns) return LookUpIn(pixels, count);
    uint64_t total = 0;
    for (size_t i = 0; i < runCount_; ++i) total += Widest<CountRun>(pixels, count, runs_[i]);
    return total;
  }

 private:
  // With more of them it is faster to look every pixel up.
  static constexpr size_t kMostRuns = 12;

  uint64_t LookUpIn(const uint8_t* pixels, size_t count) const {
    uint64_t total = 0;
    for (size_t x = 0; x < count; ++x) total += is_[pixels[x]];
    return total;
  }

  std::array<uint64_t, 256> is_ = {};  // 1 or 0
  std::array<Run, 128> runs_ = {};
  size_t runCount_ = 0;
};

// Counts the pixels that are above all three limits, which are given for their bytes in turn.
uint64_t CountAbove(const uint8_t* pixels, size_t count, const uint8_t* limits) {
  constexpr size_t kPixels = sizeof(Bytes);
  uint64_t total = 0;
  while (count > kPixels) {
    const size_t rounds = std::min((count - 1) / kPixels, kMostRounds);
    // Every byte is taken for the first of a pixel, but only those that are one count. So two bytes of the
    // next pixel are read.
    Bytes counts[3] = {};
    for (size_t round = 0; round < rounds; ++round) {
      for (Bytes& count3 : counts) {
        Bytes first;
        Bytes second;
        Bytes third;
        std::memcpy(&first, pixels, sizeof(Bytes));
        std::memcpy(&second, pixels + 1, sizeof(Bytes));
        std::memcpy(&third, pixels + 2, sizeof(Bytes));
        count3 -=
            reinterpret_cast<Bytes>((first <= limits[0]) | (second <= limits[1]) | (third <= limits[2]));
        pixels += sizeof(Bytes);
      }
    }
    total += rounds * kPixels;
    for (size_t i = 0; i < sizeof(counts); i += 3) total -= counts[i / sizeof(Bytes)][i % sizeof(Bytes)];
    count -= rounds * kPixels;
  }
  for (size_t x = 0; x < count; ++x, pixels += 3) {
    if (pixels[0] > limits[0] && pixels[1] > limits[1] && pixels[2] > limits[2]) ++total;
  }
  return total;
}

// `countRow` returns how many of a row's pixels are background.
template <class CountRow>
int TestBackground(const ConstRows& rows, double needed, CountRow countRow) {
  uint64_t background = 0;
  for (int y = 0; y < rows.height; ++y) {
    background += countRow(rows.StoredRow(y), static_cast<size_t>(rows.width));
    if (needed < static_cast<double>(background)) return kBlank;
  }
  return kNotBlank;
}

// The colour table is read from the end of the header, by its own size. An entry beyond the block is none.
BackgroundIndices FindBackground(const LockedDib& page, Rgb colour) {
  BackgroundIndices indices;
  for (unsigned i = 0; i < 256; ++i) {
    const uint64_t offset = uint64_t{page.header().biSize} + i * sizeof(RGBQUAD);
    if (!page.Holds(offset, sizeof(RGBQUAD))) break;
    RGBQUAD entry;
    std::memcpy(&entry, page.bytes() + offset, sizeof(entry));
    const bool isLighter =
        entry.rgbBlue > BlueOf(colour) && entry.rgbGreen > GreenOf(colour) && entry.rgbRed > RedOf(colour);
    if (isLighter) indices.Add(i);
  }
  return indices;
}

int TestIndices(const ConstRows& rows, const BackgroundIndices& background, double needed) {
  return TestBackground(
      rows, needed, [&](const uint8_t* pixels, size_t count) { return background.CountIn(pixels, count); });
}

int TestTrueColour(const ConstRows& rows, Rgb colour, double needed) {
  // Blue is compared with the colour's red and red with its blue, unlike at 8 bits. Kept: callers
  // compare verdicts of IsImageBlank with earlier ones.
  const uint8_t limits[3] = {static_cast<uint8_t>(RedOf(colour)), static_cast<uint8_t>(GreenOf(colour)),
                             static_cast<uint8_t>(BlueOf(colour))};
  return TestBackground(rows, needed, [&](const uint8_t* pixels, size_t count) {
    return Widest<CountAbove>(pixels, count, limits);
  });
}

// ---- the operation ----------------------------------------------------------------------------------------

int TestPage(const LockedDib& page, int tolerance, Rgb colour) {
  const unsigned bits = page.bits();
  if (bits != 1 && bits != 8 && bits != 24) return kNotBlank;
  if (page.width() <= 0 || page.height() <= 0) {
    return bits == 1 && page.HasGreyTable(2) ? kBlank : kNotBlank;  // neither ink nor background
  }
  ConstRows rows = {};
  if (!page.FindRows(kHeaderBytes + PaletteBytes(&page.header()), &rows)) return kNoImage;

  // In doubles, and in this order.
  const auto pixels = static_cast<double>(int64_t{rows.width} * rows.height);
  const double allowance = std::clamp(tolerance, 0, 1000) / 10.0 / 100.0 * pixels;
  switch (bits) {
    case 1:
      return page.HasGreyTable(2) ? TestInk(rows, !page.FirstColourIsBlack(), allowance) : kNotBlank;
    case 8:
      return TestIndices(rows, FindBackground(page, colour), pixels - allowance);
    default:
      return TestTrueColour(rows, colour, pixels - allowance);
  }
}

}  // namespace
}  // namespace rastrel

int RASTREL_CALL IsImageBlank(HGLOBAL dib, int tolerance, COLORREF background) {
  using namespace rastrel;
  const LockedDib page(dib);
  if (!page || !page.Holds(0, kHeaderBytes)) return kNoImage;
  return TestPage(page, tolerance, RgbOfReversed(background));
}
