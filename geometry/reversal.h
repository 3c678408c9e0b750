// Rows of pixels in the reverse order.
#ifndef RASTREL_GEOMETRY_REVERSAL_H
#define RASTREL_GEOMETRY_REVERSAL_H

#include "geometry/plane.h"

namespace rastrel {

// Writes each row of `from` into the row of `to` with its number, the last pixel first and padding 0. Known
// are pixels of 1, 2, 4, 8, 16, 24 and 32 bits, and of 15 as two bytes from the one in which they begin; of
// other depths all is 0. The planes have one size and do not overlap.
void ReverseRows(const ConstPlane& from, unsigned bits, const MutablePlane& to);

}  // namespace rastrel

#endif
