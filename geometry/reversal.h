// Rows of pixels in the reverse order.
#ifndef RASTREL_GEOMETRY_REVERSAL_H
#define RASTREL_GEOMETRY_REVERSAL_H

#include "frame/dib.h"

namespace rastrel {

// Writes each row of `from` into the row of `to` with its number, the last pixel first and padding 0. Known
// are pixels of 1, 2, 4, 8, 16, 24 and 32 bits, and of 15 as two bytes from the one in which they begin; of
// other depths all is 0. The rows are of one size and do not overlap.
void ReverseRows(const ConstRows& from, unsigned bits, const Rows& to);

// The depth that mirrors, and the turns of bitmaps, go by. Pixels of 2 bits are not moved, so that the image
// comes out blank. Kept: callers of FlipDIBHorizontal compare its pages with stored ones.
constexpr unsigned MovedDepth(unsigned bits) { return bits == 2 ? 0 : bits; }

}  // namespace rastrel

#endif
