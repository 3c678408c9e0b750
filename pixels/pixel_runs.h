// Runs of pixels of 1, 4, 8, 16, 24 or 32 bits within rows.
#ifndef RASTREL_PIXELS_PIXEL_RUNS_H
#define RASTREL_PIXELS_PIXEL_RUNS_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace rastrel {

// Calls `function` with the depth as its template argument.
template <class Function>
void ForBits(unsigned bits, Function function) {
  switch (bits) {
    case 1:
      return function.template operator()<1>();
    case 4:
      return function.template operator()<4>();
    case 8:
      return function.template operator()<8>();
    case 16:
      return function.template operator()<16>();
    case 24:
      return function.template operator()<24>();
    default:
      return function.template operator()<32>();
  }
}

// Calls take(i, value) for `count` pixels, at least one, from column `first` on.
template <unsigned kBits, class Take>
void UnpackPixels(const uint8_t* row, uint64_t first, unsigned count, Take take) {
  row += static_cast<size_t>(first * kBits / 8);
  if constexpr (kBits < 8) {
    constexpr unsigned kPerByte = 8 / kBits;
    constexpr unsigned kOnes = (1u << kBits) - 1;
    const auto skipped = static_cast<unsigned>(first % kPerByte);
    unsigned i = 0;
    for (; i + kPerByte <= count; i += kPerByte) {
      const uint8_t* at = row + i / kPerByte;
      const unsigned byte =
          static_cast<unsigned>(at[0]) << skipped * kBits | at[skipped != 0 ? 1 : 0] >> (8 - skipped * kBits);
      for (unsigned k = 0; k < kPerByte; ++k) take(i + k, byte >> (kPerByte - 1 - k) * kBits & kOnes);
    }
    for (; i < count; ++i) {
      const unsigned x = skipped + i;
      take(i, row[x / kPerByte] >> (kPerByte - 1 - x % kPerByte) * kBits & kOnes);
    }
  } else {
    const auto load = [row](unsigned i, size_t bytes) {
      uint32_t value = 0;  // its low bytes come first
      std::memcpy(&value, row + size_t{i} * (kBits / 8), bytes);
      return value;
    };
    if constexpr (kBits == 24) {  // a word each, of which the last pixel has no more than its own bytes
      for (unsigned i = 0; i + 1 < count; ++i) take(i, load(i, 4) & 0xFFFFFF);
      take(count - 1, load(count - 1, 3));
    } else {
      for (unsigned i = 0; i < count; ++i) take(i, load(i, kBits / 8));
    }
  }
}

// Writes valueOf(i), of which the low bits count, to `count` pixels, at least one, from column `first` on.
// Other pixels keep their values.
template <unsigned kBits, class ValueOf>
void PackPixels(uint8_t* row, uint64_t first, unsigned count, ValueOf valueOf) {
  row += static_cast<size_t>(first * kBits / 8);
  if constexpr (kBits < 8) {
    constexpr unsigned kPerByte = 8 / kBits;
    constexpr unsigned kOnes = (1u << kBits) - 1;
    const auto skipped = static_cast<unsigned>(first % kPerByte);
    const auto put = [&](unsigned i) {
      const unsigned shift = (kPerByte - 1 - (skipped + i) % kPerByte) * kBits;
      uint8_t& byte = row[(skipped + i) / kPerByte];
      byte = static_cast<uint8_t>((byte & ~(kOnes << shift)) | (valueOf(i) & kOnes) << shift);
    };
    unsigned i = 0;
    for (; i < count && (skipped + i) % kPerByte != 0; ++i) put(i);
    for (; i + kPerByte <= count; i += kPerByte) {
      unsigned byte = 0;
      for (unsigned k = 0; k < kPerByte; ++k) byte = byte << kBits | (valueOf(i + k) & kOnes);
      row[(skipped + i) / kPerByte] = static_cast<uint8_t>(byte);
    }
    for (; i < count; ++i) put(i);
  } else {
    const auto store = [&](unsigned i, size_t bytes) {
      const uint32_t value = valueOf(i);  // its low bytes come first
      std::memcpy(row + size_t{i} * (kBits / 8), &value, bytes);
    };
    if constexpr (kBits == 24) {  // the next pixel covers the byte too many
      for (unsigned i = 0; i + 1 < count; ++i) store(i, 4);
      store(count - 1, 3);
    } else {
      for (unsigned i = 0; i < count; ++i) store(i, kBits / 8);
    }
  }
}

}  // namespace rastrel

#endif
