// Words of 64 bits full of pixels: how they come from memory, and how bits change places in them.
#ifndef RASTREL_PIXELS_WORDS_H
#define RASTREL_PIXELS_WORDS_H

#include <cstdint>
#include <cstring>

namespace rastrel {

inline uint64_t LoadWord(const uint8_t* bytes) {
  uint64_t word;
  std::memcpy(&word, bytes, sizeof(word));
  return word;
}
inline void StoreWord(uint8_t* bytes, uint64_t word) { std::memcpy(bytes, &word, sizeof(word)); }

// Between the order of memory, where the first byte is the lowest, and that in which pixels are seen, the
// leftmost in the highest bits.
constexpr uint64_t SwapLeftFirst(uint64_t word) { return __builtin_bswap64(word); }
inline uint64_t LoadLeftFirst(const uint8_t* bytes) { return SwapLeftFirst(LoadWord(bytes)); }

// The lower one of each two neighbours of `kBits` bits.
template <int kBits>
inline constexpr uint64_t kLowNeighbours = ~uint64_t{0} / ((uint64_t{1} << kBits) + 1);

// Exchanges neighbours of `kBits` bits.
template <int kBits>
constexpr uint64_t ExchangeNeighbours(uint64_t word) {
  return (word >> kBits & kLowNeighbours<kBits>) | (word & kLowNeighbours<kBits>) << kBits;
}

// Of two rows of squares of twice `kBits` bits, exchanges what lies off the diagonal: the higher neighbours
// of the upper row and the lower ones of the lower row. Words are uint64_t or vectors of it.
template <int kBits, class Words>
[[gnu::always_inline]] inline void ExchangeOffDiagonal(Words& upper, Words& lower) {
  const Words exchanged = (upper >> kBits ^ lower) & kLowNeighbours<kBits>;
  lower ^= exchanged;
  upper ^= exchanged << kBits;
}

// As a factor it brings bit 0 of byte k to bit 63 - k, each at a place of its own; as a mask it keeps another
// bit of each byte, the lowest of the first.
constexpr uint64_t kDiagonalBits = 0x8040201008040201;
constexpr uint64_t kLowestBits = 0x0101010101010101;

// Packs eight bytes of 0 or 1, as they lie in memory: the first becomes the highest bit.
constexpr uint8_t GatherFlags(uint64_t eight) { return static_cast<uint8_t>(eight * kDiagonalBits >> 56); }

// The other way from the lowest bit on: that becomes the first byte, 1 where it is set.
constexpr uint64_t SpreadFlags(uint8_t bits) {
  const uint64_t kept = bits * kLowestBits & kDiagonalBits;
  return (kept + 0x7F * kLowestBits) >> 7 & kLowestBits;
}

}  // namespace rastrel

#endif
