#include "geometry/reversal.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "pixels/kernels.h"
#include "pixels/words.h"

namespace rastrel {
namespace {

constexpr int kWordBits = 64;

// Returns the bytes to store, in memory order, of a word's pixels in the reverse order. Loading left first
// has reversed the bytes already, so what is left is the order within a byte, or of the bytes of a pixel.
template <int Bits>
constexpr uint64_t ReversedForStore(uint64_t leftFirst) {
  uint64_t word = leftFirst;
  if constexpr (Bits >= 32) word = ExchangeNeighbours<16>(word);
  if constexpr (Bits >= 16) word = ExchangeNeighbours<8>(word);
  if constexpr (Bits <= 4) word = ExchangeNeighbours<4>(word);
  if constexpr (Bits <= 2) word = ExchangeNeighbours<2>(word);
  if constexpr (Bits <= 1) word = ExchangeNeighbours<1>(word);
  return word;
}

// Writes `words` words, beginning with the last of a row of `rowBits` bits, which need not end with a byte.
template <int Bits>
[[gnu::always_inline]] inline void ReverseWords(const uint8_t* from, uint64_t rowBits, size_t words,
                                                uint8_t* to) {
  const auto shift = static_cast<unsigned>(rowBits % 8);
  const size_t end = static_cast<size_t>(rowBits / 8);
  if (shift == 0) {
    for (size_t i = 0; i < words; ++i) {
      const uint64_t word = ReversedForStore<Bits>(LoadLeftFirst(from + end - 8 * (i + 1)));
      std::memcpy(to + 8 * i, &word, sizeof(word));
    }
  } else if constexpr (Bits < 8) {
    for (size_t i = 0; i < words; ++i) {
      const uint8_t* at = from + end - 8 * (i + 1);
      const uint64_t word =
          ReversedForStore<Bits>(LoadLeftFirst(at) << shift | LoadLeftFirst(at + 1) >> (8 - shift));
      std::memcpy(to + 8 * i, &word, sizeof(word));
    }
  }
}

// Reverses the pixels of a row's first, incomplete word: what is stored last, with the padding behind it.
template <int Bits>
inline uint64_t ReverseRest(uint64_t leftFirst, unsigned restBits) {
  return restBits == 0 ? 0 : ReversedForStore<Bits>(leftFirst >> (kWordBits - restBits));
}

template <int Bits>
void ReversePacked(const ConstRows& from, const Rows& to) {
  const uint64_t rowBits = static_cast<uint64_t>(from.width) * Bits;
  const auto words = static_cast<size_t>(rowBits / kWordBits);
  const auto restBits = static_cast<unsigned>(rowBits % kWordBits);
  const size_t restBytes = to.stride - 8 * words;
  for (int y = 0; y < from.height; ++y) {
    const uint8_t* source = from.StoredRow(y);
    uint8_t* row = to.StoredRow(y);
    if (words > 0 && restBytes - 1 < 8) {
      // Stored where it ends with the row; what it spoils before the rest is written next.
      const uint64_t word = ReverseRest<Bits>(LoadLeftFirst(source), restBits) << (kWordBits - 8 * restBytes);
      std::memcpy(row + to.stride - sizeof(word), &word, sizeof(word));
    } else {
      uint8_t start[8] = {};
      std::memcpy(start, source, (restBits + 7) / 8);
      const uint64_t word = ReverseRest<Bits>(LoadLeftFirst(start), restBits);
      std::memset(row + 8 * words, 0, restBytes);
      std::memcpy(row + 8 * words, &word, std::min(restBytes, sizeof(word)));
    }
    ReverseWords<Bits>(source, rowBits, words, row);
  }
}

// Bytes change places by one instruction for 32 of them where there is AVX2, else by one for 8.

// The pixels of a row but for the first and the last of the result, from number `x` of it on. Four bytes are
// moved faster than three; the next pixel overwrites the one too many.
inline void ReverseTriples(const uint8_t* last, size_t x, size_t pixels, uint8_t* to) {
  for (; x + 1 < pixels; ++x) std::memcpy(to + 3 * x, last - 3 * x, 4);
}

void ReverseTriplesOneByOne(const uint8_t* last, size_t pixels, uint8_t* to) {
  ReverseTriples(last, 1, pixels, to);
}

// Five at a time; as above one byte too many is moved.
RASTREL_FOR_AVX2 void ReverseTriplesByFive(const uint8_t* last, size_t pixels, uint8_t* to) {
  using Bytes = uint8_t __attribute__((vector_size(16)));
  size_t x = 1;
  for (; x + 5 < pixels; x += 5) {
    Bytes five;
    std::memcpy(&five, last - 3 * (x + 4), sizeof(five));
    five = __builtin_shufflevector(five, five, 12, 13, 14, 9, 10, 11, 6, 7, 8, 3, 4, 5, 0, 1, 2, 15);
    std::memcpy(to + 3 * x, &five, sizeof(five));
  }
  ReverseTriples(last, x, pixels, to);
}

constexpr Kernel kReverseInner = Kernel(ReverseTriplesOneByOne).With(Processor::kAvx2, ReverseTriplesByFive);

void Reverse24(const ConstRows& from, const Rows& to) {
  const auto reverseInner = kReverseInner.Best();
  const auto pixels = static_cast<size_t>(from.width);
  for (int y = 0; y < from.height; ++y) {
    const uint8_t* source = from.StoredRow(y);
    uint8_t* row = to.StoredRow(y);
    std::memcpy(row, source + 3 * (pixels - 1), 3);
    reverseInner(source + 3 * (pixels - 1), pixels, row);
    std::memcpy(row + 3 * (pixels - 1), source, 3);
    std::memset(row + 3 * pixels, 0, to.stride - 3 * pixels);
  }
}

// A pixel is the two bytes in which it begins; where two share a byte the one further to the left in the
// result wins. Kept: callers of FlipBitmapHorizontal compare its bits with stored ones.
void Reverse15(const ConstRows& from, const Rows& to) {
  constexpr int64_t kBits = 15;
  to.Clear();
  for (int y = 0; y < from.height; ++y) {
    for (int x = 0; x < from.width; ++x) {
      std::memcpy(to.StoredRow(y) + (from.width - 1 - x) * kBits / 8, from.StoredRow(y) + x * kBits / 8, 2);
    }
  }
}

}  // namespace

void ReverseRows(const ConstRows& from, unsigned bits, const Rows& to) {
  switch (bits) {
    case 1:
      return Widest<ReversePacked<1>>(from, to);
    case 2:
      return Widest<ReversePacked<2>>(from, to);
    case 4:
      return Widest<ReversePacked<4>>(from, to);
    case 8:
      return Widest<ReversePacked<8>>(from, to);
    case 15:
      return Reverse15(from, to);
    case 16:
      return Widest<ReversePacked<16>>(from, to);
    case 24:
      return Reverse24(from, to);
    case 32:
      return Widest<ReversePacked<32>>(from, to);
    default:
      return to.Clear();
  }
}

}  // namespace rastrel
