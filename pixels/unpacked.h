// Bytes of packed pixels as their pixels.
#ifndef RASTREL_PIXELS_UNPACKED_H
#define RASTREL_PIXELS_UNPACKED_H

#include <array>
#include <cstdint>

namespace rastrel {

// The pixels of each byte, of 1 or 4 bits, a byte each and the leftmost first.
template <unsigned kBits>
inline constexpr auto kUnpacked = [] {
  constexpr unsigned kPerByte = 8 / kBits;
  std::array<std::array<uint8_t, kPerByte>, 256> table{};
  for (unsigned byte = 0; byte < 256; ++byte) {
    for (unsigned i = 0; i < kPerByte; ++i) {
      table[byte][i] = static_cast<uint8_t>(byte >> (8 - kBits - i * kBits) & ((1u << kBits) - 1));
    }
  }
  return table;
}();

}  // namespace rastrel

#endif
