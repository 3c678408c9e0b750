// Runs of bits within rows, at any offset. The first bit of a byte is its highest.
#ifndef RASTREL_PIXELS_BIT_RUNS_H
#define RASTREL_PIXELS_BIT_RUNS_H

#include <cstddef>
#include <cstdint>

namespace rastrel {

// Returns `count` (1 to 8) bits from `bit` on as the highest bits of a byte; the bits below are whatever
// follows. No byte is read that holds none of them.
inline uint8_t GatherBits(const uint8_t* row, uint64_t bit, unsigned count) {
  const uint8_t* at = row + static_cast<size_t>(bit / 8);
  const auto shift = static_cast<unsigned>(bit % 8);
  unsigned gathered = static_cast<unsigned>(at[0]) << shift;
  if (shift + count > 8) gathered |= at[1] >> (8 - shift);
  return static_cast<uint8_t>(gathered);
}

// Combines bytes of `to` with those that begin `shift` (1 to 7) bits into `from`. The shift is a product
// because compilers keep that in 16 bits.
template <class Combine>
void CombineShifted(uint8_t* __restrict to, const uint8_t* __restrict from, unsigned shift, size_t bytes,
                    Combine combine) {
  const auto factor = static_cast<uint16_t>(1u << shift);
  for (size_t i = 0; i < bytes; ++i) {
    const auto pair = static_cast<uint16_t>(from[i] << 8 | from[i + 1]);
    const auto shifted = static_cast<uint16_t>(uint32_t{pair} * factor);
    to[i] = combine(to[i], static_cast<uint8_t>(shifted >> 8));
  }
}

// Replaces `count` bits of `to` by what `combine(to, from)` makes of them, a byte at a time; other bits keep
// their values. The runs may be the same, but must not overlap otherwise.
template <class Combine>
void CombineBits(uint8_t* to, uint64_t toBit, const uint8_t* from, uint64_t fromBit, uint64_t count,
                 Combine combine) {
  const auto combinePart = [&](unsigned bits) {
    const auto shift = static_cast<unsigned>(toBit % 8);
    uint8_t& byte = to[static_cast<size_t>(toBit / 8)];
    const unsigned mask = (0xFF00u >> bits & 0xFF) >> shift;
    const auto source = static_cast<uint8_t>(GatherBits(from, fromBit, bits) >> shift);
    byte = static_cast<uint8_t>((byte & ~mask) | (combine(byte, source) & mask));
    toBit += bits;
    fromBit += bits;
    count -= bits;
  };

  if (toBit % 8 != 0 && count != 0) {
    const uint64_t untilByte = 8 - toBit % 8;
    combinePart(static_cast<unsigned>(count < untilByte ? count : untilByte));
  }

  uint8_t* const toBytes = to + static_cast<size_t>(toBit / 8);
  const uint8_t* const fromBytes = from + static_cast<size_t>(fromBit / 8);
  const auto bytes = static_cast<size_t>(count / 8);
  const auto shift = static_cast<unsigned>(fromBit % 8);
  if (shift == 0) {
    for (size_t i = 0; i < bytes; ++i) toBytes[i] = combine(toBytes[i], fromBytes[i]);
  } else {
    CombineShifted(toBytes, fromBytes, shift, bytes, combine);
  }
  toBit += uint64_t{bytes} * 8;
  fromBit += uint64_t{bytes} * 8;
  count -= uint64_t{bytes} * 8;

  if (count != 0) combinePart(static_cast<unsigned>(count));
}

}  // namespace rastrel

#endif
