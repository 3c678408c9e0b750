// Removing specks: every pixel is compared with its eight neighbours in the source page.
//
// The rows of a block lie end to end and are read so: behind a row's last byte comes the first of the next
// row, and padding is filtered like pixels. Kept: callers of CleanImage compare
// whole rows with stored ones, padding included. The rows between the first and
// the last are therefore one long stretch that is filtered in chunks, and the pixels at both ends of each row
// are put back afterwards.
#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "frame/dib.h"
#include "frame/rastrel.h"
#include "pixels/kernels.h"
#include "pixels/words.h"

namespace rastrel {
namespace {

constexpr int kLowestLevel = 20;
constexpr int kHighestLevel = 100;

constexpr size_t kChunkBytes = 512;
// Filters may read this much before and behind a chunk, in its own row and in those below and above.
constexpr size_t kMarginBytes = 8;

// Filters the chunk at `source` into `result`, which holds what the copy of the page has there. Rows lie
// `stride` bytes apart. Without `everyPixel` only pixels that look like specks are filtered.
using ChunkFilter = void (*)(const uint8_t* source, size_t stride, bool everyPixel, uint8_t* result);

// ---- black and white --------------------------------------------------------------------------------------
//
// 64 pixels at a time: the neighbour counts of a word's pixels are four words, one a binary digit.

constexpr size_t kWordBytes = sizeof(uint64_t);
constexpr size_t kWords = kChunkBytes / kWordBytes;

// The word at `at` with the left or right neighbour of each pixel in its place. In a byte the leftmost pixel
// is highest, so that this needs no order of bytes.
inline uint64_t LeftNeighbours(const uint8_t* at) {
  return (LoadWord(at) >> 1 & 0x7F7F7F7F7F7F7F7F) | (LoadWord(at - 1) << 7 & 0x8080808080808080);
}
inline uint64_t RightNeighbours(const uint8_t* at) {
  return (LoadWord(at) << 1 & 0xFEFEFEFEFEFEFEFE) | (LoadWord(at + 1) >> 7 & 0x0101010101010101);
}

// The sums of three bits.
struct TwoDigits {
  uint64_t ones, twos;
};
inline TwoDigits Add(uint64_t a, uint64_t b, uint64_t c) { return {a ^ b ^ c, (a & b) | ((a ^ b) & c)}; }

// Counts of 0 to 8.
struct Counts {
  uint64_t ones, twos, fours, eights;

  // The pixels with a count above the limit: the highest digit that differs decides.
  template <int kLimit>
  uint64_t Above() const {
    uint64_t above = kLimit & 1 ? 0 : ones;
    above = kLimit & 2 ? twos & above : twos | above;
    above = kLimit & 4 ? fours & above : fours | above;
    return kLimit & 8 ? eights & above : eights | above;
  }
};

// How many of each pixel and those above and below it are set, in a chunk and a word more on either side.
struct ColumnCounts {
  std::array<uint64_t, kWords + 2> ones, twos;
};

// A pixel with more set neighbours than the threshold is set, one with fewer is cleared. One with fewer than
// four looks like a speck.
template <int kThreshold, bool kEveryPixel>
[[gnu::always_inline]] inline void FilterWords(const ColumnCounts& columns, const uint8_t* source,
                                               size_t stride, uint8_t* result) {
  const auto* const ones = reinterpret_cast<const uint8_t*>(&columns.ones[1]);
  const auto* const twos = reinterpret_cast<const uint8_t*>(&columns.twos[1]);
  for (size_t at = 0; at < kChunkBytes; at += kWordBytes) {
    const uint64_t above = LoadWord(source + at + stride);
    const uint64_t below = LoadWord(source + at - stride);
    const TwoDigits one = Add(LeftNeighbours(ones + at), RightNeighbours(ones + at), above ^ below);
    const TwoDigits two = Add(LeftNeighbours(twos + at), RightNeighbours(twos + at), above & below);
    const uint64_t carry = two.ones & one.twos;
    const uint64_t fourOrMore = two.twos | carry;
    const uint64_t before = LoadWord(result + at);
    if constexpr (!kEveryPixel && kThreshold >= 4) {
      // All that look like specks are below the threshold: the pixel becomes clear, however few they are.
      const uint64_t cleared = before & fourOrMore;
      std::memcpy(result + at, &cleared, sizeof(cleared));
      continue;
    }
    const Counts set = {one.ones, two.ones ^ one.twos, two.twos ^ carry, two.twos & carry};
    uint64_t after = set.Above<kThreshold>() | (before & set.Above<kThreshold - 1>());
    if constexpr (!kEveryPixel) after = (after & ~fourOrMore) | (before & fourOrMore);
    std::memcpy(result + at, &after, sizeof(after));
  }
}

template <int kThreshold>
void FilterBits(const uint8_t* source, size_t stride, bool everyPixel, uint8_t* result) {
  ColumnCounts columns;
  for (size_t i = 0; i < kWords + 2; ++i) {
    const uint8_t* at = source - kWordBytes + i * kWordBytes;
    const TwoDigits column = Add(LoadWord(at - stride), LoadWord(at), LoadWord(at + stride));
    columns.ones[i] = column.ones;
    columns.twos[i] = column.twos;
  }
  if (everyPixel) {
    FilterWords<kThreshold, true>(columns, source, stride, result);
  } else {
    FilterWords<kThreshold, false>(columns, source, stride, result);
  }
}

// ---- grey -------------------------------------------------------------------------------------------------
//
// A pixel becomes the k-th darkest of its neighbours. Taking the darkest that is left k times, whichever of
// equals, is the same as sorting, and a ninth time finds none left.
//
// The k-th of two sorted lists is the least value that has i values of the one and k - i of the other up to
// it: min over i of max(a[i], b[k - i]). So the columns of three are sorted once, for the pixels on their
// left and right alike, and put together with the pair above and below.

constexpr int kDarkestUnsuspected = 5;
constexpr int kLightestUnsuspected = 250;

inline uint8_t Min(uint8_t a, uint8_t b) { return a < b ? a : b; }
inline uint8_t Max(uint8_t a, uint8_t b) { return a > b ? a : b; }

// Sorted lists of N values, counted from 1. What would stand before them is 0, behind them 255.
template <int N>
struct Sorted {
  std::array<uint8_t, N> values;

  template <int k>
  uint8_t At() const {
    if constexpr (k < 1) {
      return 0;
    } else if constexpr (k > N) {
      return 255;
    } else {
      return values[k - 1];
    }
  }
};

// The k-th of both lists, where the first gives up to i values.
template <int k, int i, class A, class B>
inline uint8_t KthOfBoth(const A& a, const B& b) {
  const uint8_t here = Max(a.template At<i>(), b.template At<k - i>());
  if constexpr (i == 0) {
    return here;
  } else {
    return Min(here, KthOfBoth<k, i - 1>(a, b));
  }
}

// The lists of the columns left and right, as one that is merged as far as it is asked for.
struct MergedColumns {
  Sorted<3> left, right;

  template <int k>
  uint8_t At() const {
    if constexpr (k < 1) {
      return 0;
    } else if constexpr (k > 6) {
      return 255;
    } else {
      return KthOfBoth<k, 3>(left, right);
    }
  }
};

inline Sorted<3> SortColumn(uint8_t a, uint8_t b, uint8_t c) {
  const uint8_t low = Min(a, b);
  const uint8_t high = Max(a, b);
  return {{Min(low, c), Max(low, Min(high, c)), Max(high, c)}};
}

template <int kRank>
void FilterGreys(const uint8_t* source, size_t stride, bool everyPixel, uint8_t* result) {
  constexpr size_t kColumns = kChunkBytes + 2;
  std::array<std::array<uint8_t, kColumns>, 3> columns;
  for (size_t i = 0; i < kColumns; ++i) {
    const uint8_t* at = source - 1 + i;
    const Sorted<3> column = SortColumn(at[-static_cast<ptrdiff_t>(stride)], *at, at[stride]);
    for (size_t k = 0; k < 3; ++k) columns[k][i] = column.values[k];
  }
  const uint8_t* const above = source + stride;
  const uint8_t* const below = source - stride;
  for (size_t i = 0; i < kChunkBytes; ++i) {
    const MergedColumns sides = {{{columns[0][i], columns[1][i], columns[2][i]}},
                                 {{columns[0][i + 2], columns[1][i + 2], columns[2][i + 2]}}};
    const Sorted<2> middle = {{Min(above[i], below[i]), Max(above[i], below[i])}};
    const uint8_t ranked = KthOfBoth<kRank, 2>(middle, sides);
    const bool isSpeck = source[i] < kDarkestUnsuspected || source[i] > kLightestUnsuspected;
    result[i] = everyPixel || isSpeck ? ranked : result[i];
  }
}

// ---- the filters for each level ---------------------------------------------------------------------------

// From 1 on. Compiled for wide registers they take half the time.
constexpr Kernel<ChunkFilter> kBitFilters[] = {
    Widest<FilterBits<1>>, Widest<FilterBits<2>>, Widest<FilterBits<3>>, Widest<FilterBits<4>>,
    Widest<FilterBits<5>>, Widest<FilterBits<6>>, Widest<FilterBits<7>>, Widest<FilterBits<8>>};
// Of nine ranks the ninth is the eighth.
constexpr Kernel<ChunkFilter> kGreyFilters[] = {
    Widest<FilterGreys<1>>, Widest<FilterGreys<2>>, Widest<FilterGreys<3>>,
    Widest<FilterGreys<4>>, Widest<FilterGreys<5>>, Widest<FilterGreys<6>>,
    Widest<FilterGreys<7>>, Widest<FilterGreys<8>>, Widest<FilterGreys<8>>};

// ---- the pass over the page -------------------------------------------------------------------------------

// The pixels at both ends of each row, which are not filtered.
struct RowEnds {
  uint8_t firstMask;  // in byte 0
  size_t lastByte;
  uint8_t lastMask;
};

// Kept: when a row of bits ends with a byte, its last pixel is filtered.
RowEnds EndsOfBits(int width) {
  const int used = width % 8;
  if (used == 0) return {0x80, 0, 0};
  return {0x80, static_cast<size_t>(width / 8), static_cast<uint8_t>(1 << (8 - used))};
}

RowEnds EndsOfGreys(int width) { return {0xFF, static_cast<size_t>(width - 1), 0xFF}; }

RowEnds EndsOf(const LockedDib& page) {
  return page.bits() == 1 ? EndsOfBits(page.width()) : EndsOfGreys(page.width());
}

// What a page is filtered with.
struct Filter {
  ChunkFilter chunk;
  bool everyPixel;
};

class PageFilter {
 public:
  // `copy` is as large as `source` and has its rows at the same place.
  PageFilter(const LockedDib& source, const ConstRows& rows, const LockedBlock& copy, const Filter& filter)
      : source_(source), rows_(rows), copy_(copy), filter_(filter), ends_(EndsOf(source)) {}

  void Run() {
    const int last = rows_.height - 1;
    for (int row = 1; row < last; row += kGroupRows) FilterRows(row, std::min(row + kGroupRows, last));
  }

 private:
  static constexpr int kGroupRows = 256;

  void FilterRows(int first, int end) {
    std::array<std::pair<uint8_t, uint8_t>, kGroupRows> ends;
    for (int row = first; row < end; ++row) ends[row - first] = {*FirstByte(row), *LastByte(row)};
    const size_t endOffset = OffsetOf(end);
    for (size_t at = OffsetOf(first); at < endOffset; at += kChunkBytes) {
      FilterChunk(at, std::min(kChunkBytes, endOffset - at));
    }
    for (int row = first; row < end; ++row) {
      Restore(FirstByte(row), ends[row - first].first, ends_.firstMask);
      Restore(LastByte(row), ends[row - first].second, ends_.lastMask);
    }
  }

  // Filters `count` bytes at an offset in the block.
  void FilterChunk(size_t at, size_t count) {
    const size_t stride = rows_.stride;
    if (count == kChunkBytes && source_.Holds(at + stride, kChunkBytes + kMarginBytes)) {
      filter_.chunk(source_.bytes() + at, stride, filter_.everyPixel, copy_.bytes() + at);
      return;
    }
    // What lies beyond the block reads as 0.
    std::array<uint8_t, 3 * kWindowBytes> window{};
    for (size_t i = 0; i < 3; ++i) {
      const size_t from = at + i * stride - stride - kMarginBytes;
      std::memcpy(&window[i * kWindowBytes], source_.bytes() + from,
                  std::min(kWindowBytes, source_.size() - from));
    }
    std::array<uint8_t, kChunkBytes> result{};
    std::memcpy(result.data(), copy_.bytes() + at, count);
    filter_.chunk(&window[kWindowBytes + kMarginBytes], kWindowBytes, filter_.everyPixel, result.data());
    std::memcpy(copy_.bytes() + at, result.data(), count);
  }

  static void Restore(uint8_t* byte, uint8_t before, uint8_t mask) {
    *byte = static_cast<uint8_t>((*byte & ~mask) | (before & mask));
  }

  size_t OffsetOf(int row) const { return static_cast<size_t>(rows_.StoredRow(row) - source_.bytes()); }
  uint8_t* FirstByte(int row) const { return copy_.bytes() + OffsetOf(row); }
  uint8_t* LastByte(int row) const { return FirstByte(row) + ends_.lastByte; }

  static constexpr size_t kWindowBytes = kChunkBytes + 2 * kMarginBytes;

  const LockedDib& source_;
  const ConstRows& rows_;
  const LockedBlock& copy_;
  const Filter filter_;
  const RowEnds ends_;
};

HGLOBAL FilteredCopy(HGLOBAL dib, const LockedDib& page, const Filter& filter) {
  // Kept: the table is taken to have biClrUsed entries, none when that is 0.
  const uint64_t offset = kHeaderBytes + uint64_t{page.header().biClrUsed} * sizeof(RGBQUAD);
  const bool hasInnerRows = page.height() > 2 && page.width() != 0;
  ConstRows rows{};
  if (hasInnerRows && !page.FindRows(offset, &rows)) return nullptr;

  const HGLOBAL copy = DuplicateDIB(dib);
  const LockedBlock locked(copy);
  if (!locked) return nullptr;  // Kept: a copy that cannot be locked is not freed
  if (hasInnerRows) PageFilter(page, rows, locked, filter).Run();
  return copy;
}

}  // namespace
}  // namespace rastrel

HGLOBAL RASTREL_CALL CleanImage(HGLOBAL dib, int level, int fullFilter) {
  using namespace rastrel;
  const LockedDib page(dib);
  if (!page || level < kLowestLevel || level > kHighestLevel) return nullptr;
  const bool everyPixel = fullFilter != 0;
  const int turned = kLowestLevel + kHighestLevel - level;
  const bool isBlackFirst = page.FirstColourIsBlack();

  if (page.bits() == 1 && page.HasGreyTable(2)) {
    const int threshold = (isBlackFirst ? turned : level) * 8 / 100;
    return FilteredCopy(dib, page, {kBitFilters[threshold - 1].Best(), everyPixel});
  }
  if (page.bits() == 8 && page.header().biPlanes == 1 && page.HasGreyTable(256)) {
    // Kept: the level counts the other way than for bits.
    const int rank = (isBlackFirst ? level : turned) * 9 / 100;
    return FilteredCopy(dib, page, {kGreyFilters[rank - 1].Best(), everyPixel});
  }
  return nullptr;
}
