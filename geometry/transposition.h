// Columns of pixels turned into rows.
#ifndef RASTREL_GEOMETRY_TRANSPOSITION_H
#define RASTREL_GEOMETRY_TRANSPOSITION_H

#include "frame/dib.h"

namespace rastrel {

// Writes column x of `from` into row x of `to`, for all columns, and 0 into the padding. Known are pixels of
// 1, 2, 4, 8, 16, 24 and 32 bits; of other depths all is 0. Width and height are exchanged;
// they do not overlap. With either one upside down this is a quarter turn.
void Transpose(const ConstRows& from, unsigned bits, const Rows& to);

}  // namespace rastrel

#endif
