// Bits of rows, from any place on.
#ifndef RASTREL_PIXELS_BIT_ROWS_H
#define RASTREL_PIXELS_BIT_ROWS_H

#include <cstddef>
#include <cstdint>

namespace rastrel {

// Copies `count` bits of a row, from `bit` on, to the start of `to`, of which the rest up to `stride` bytes
// becomes 0. They fit there. Reads no byte that holds none of them.
void CopyBits(const uint8_t* row, uint64_t bit, uint64_t count, uint8_t* to, size_t stride);

}  // namespace rastrel

#endif
