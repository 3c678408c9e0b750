// Squares of 64 x 64 bits.
#ifndef RASTREL_PIXELS_BIT_SQUARE_H
#define RASTREL_PIXELS_BIT_SQUARE_H

#include <cstdint>

namespace rastrel {

// Turns 64 rows, the top one first, as 1-bit rows lie in memory (eight pixels in each byte of a word, from
// the lowest byte on, the leftmost in the byte's highest bit) into 64 columns, the leftmost first, the
// topmost pixel in the lowest bit. With the columns in their places ^ 7 it turns columns back into rows,
// which then stand in their places ^ 7.
void TransposeBits(uint64_t square[64]);

}  // namespace rastrel

#endif
