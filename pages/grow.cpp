#include "pages/grow.h"

#include <algorithm>
#include <vector>

#include "pixels/kernels.h"

namespace rastrel::pages {
namespace {

// Spreads seeds along the runs of a word of the mask.
uint64_t GrowInWord(uint64_t mask, uint64_t grown) {
  // Upwards a sum does it: from the lowest seed of a run on all its bits carry.
  grown |= ((mask + grown) ^ mask) & mask;
  // Downwards it is a pixel or two in most cases.
  for (int i = 0; i < 2; ++i) grown |= grown >> 1 & mask;
  if ((grown >> 1 & mask & ~grown) == 0) return grown;
  // By doubling steps, through pixels of which all on the way are in the mask.
  for (int step = 1; step < 64; step *= 2) {
    grown |= grown >> step & mask;
    mask &= mask >> step;
  }
  return grown;
}

// Spreads seeds along a row of the mask. Where a run goes on from word to word, it is taken along to the next
// word on the first way, and to the one before on the second.
void GrowAlong(const uint64_t* mask, uint64_t* seeds, size_t words) {
  uint64_t carry = 0;  // the highest bit, if the run before goes on into this word
  for (size_t i = 0; i < words; ++i) {
    const uint64_t reached = (seeds[i] | carry) & mask[i];
    const uint64_t grown = reached == 0 ? 0 : GrowInWord(mask[i], reached);
    seeds[i] |= grown;
    carry = grown << 63;
  }
  for (size_t i = words; i-- > 1;) {
    if (((seeds[i] & mask[i]) >> 63 & mask[i - 1] & ~seeds[i - 1]) == 0) continue;
    seeds[i - 1] |= ((mask[i - 1] + 1) ^ mask[i - 1]) & mask[i - 1];
  }
}

// Takes over seeds from the words of the row above or below that stand at a word and beside it; returns the
// new ones.
uint64_t TakeFrom(uint64_t before, uint64_t neighbour, uint64_t after, uint64_t mask, uint64_t* seeds) {
  const uint64_t near = neighbour | neighbour >> 1 | neighbour << 1 | before << 63 | after >> 63;
  const uint64_t fresh = near & mask & ~*seeds;
  *seeds |= fresh;
  return fresh;
}
// The same for words that all have others beside them.
uint64_t TakeFromMany(const uint64_t* __restrict neighbour, const uint64_t* __restrict mask, size_t words,
                      uint64_t* __restrict seeds) {
  uint64_t anyNew = 0;
  for (size_t i = 0; i < words; ++i)
    anyNew |= TakeFrom(neighbour[i - 1], neighbour[i], neighbour[i + 1], mask[i], seeds + i);
  return anyNew;
}

// Takes over seeds from the row above or below; tells whether there were new ones.
bool GrowFrom(const uint64_t* neighbour, const uint64_t* mask, uint64_t* seeds, size_t words) {
  uint64_t anyNew = TakeFrom(0, neighbour[0], words > 1 ? neighbour[1] : 0, mask[0], seeds);
  if (words > 1) {
    const size_t last = words - 1;
    anyNew |= Widest<TakeFromMany>(neighbour + 1, mask + 1, words - 2, seeds + 1);
    anyNew |= TakeFrom(neighbour[last - 1], neighbour[last], 0, mask[last], seeds + last);
  }
  if (anyNew != 0) GrowAlong(mask, seeds, words);
  return anyNew != 0;
}

// Each pixel with those beside it; the row has a word before and after.
void WidenAlong(const uint64_t* __restrict row, size_t words, uint64_t* __restrict wider) {
  for (size_t i = 0; i < words; ++i)
    wider[i] = row[i] | row[i] >> 1 | row[i] << 1 | row[i - 1] << 63 | row[i + 1] >> 63;
}
void UniteRows(const uint64_t* __restrict from, size_t words, uint64_t* __restrict to) {
  for (size_t i = 0; i < words; ++i) to[i] |= from[i];
}

}  // namespace

void GrowInto(const BitPlane& mask, BitPlane& seeds) {
  const size_t words = mask.wordsPerRow();
  const int height = mask.height();
  for (int y = 0; y < height; ++y) GrowAlong(mask.Row(y), seeds.Row(y), words);
  // Down and up by turns. Strokes that wind need more turns, but letters are done after two or three.
  bool grown = height > 1;
  for (bool down = true; grown; down = !down) {
    grown = false;
    for (int i = 1; i < height; ++i) {
      const int y = down ? i : height - 1 - i;
      if (GrowFrom(seeds.Row(down ? y - 1 : y + 1), mask.Row(y), seeds.Row(y), words)) grown = true;
    }
    if (down) grown = true;  // the way up is still to go
  }
}

BitPlane Widened(BitPlane plane, int reach) {
  if (plane.isEmpty() || reach < 1) return plane;
  const size_t words = plane.wordsPerRow();
  const int height = plane.height();
  // Along the rows pixel by pixel, with an empty word before and after.
  std::vector<uint64_t> row(words + 2, 0), wider(row);
  for (int y = 0; y < height; ++y) {
    std::copy_n(plane.Row(y), words, row.begin() + 1);
    for (int i = 0; i < reach; ++i) {
      Widest<WidenAlong>(row.data() + 1, words, wider.data() + 1);
      row.swap(wider);
    }
    std::copy_n(row.begin() + 1, words, plane.Row(y));
  }
  // Each row with those below it and then with those above it, by windows of doubling height.
  const auto unite = [&](int to, int from) { Widest<UniteRows>(plane.Row(from), words, plane.Row(to)); };
  for (const bool isDown : {true, false}) {
    for (int covered = 1; covered <= reach;) {
      const int shift = std::min(covered, reach + 1 - covered);
      for (int i = 0; i + shift < height; ++i) {
        isDown ? unite(i, i + shift) : unite(height - 1 - i, height - 1 - i - shift);
      }
      covered += shift;
    }
  }
  const auto bitsInLast = static_cast<unsigned>(plane.width()) % 64;
  const uint64_t insideLast = bitsInLast == 0 ? ~uint64_t{0} : ~uint64_t{0} << (64 - bitsInLast);
  for (int y = 0; y < height; ++y) plane.Row(y)[words - 1] &= insideLast;
  return plane;
}

}  // namespace rastrel::pages
