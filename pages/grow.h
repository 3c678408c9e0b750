// Bit planes that grow.
#ifndef RASTREL_PAGES_GROW_H
#define RASTREL_PAGES_GROW_H

#include "pages/planes.h"

namespace rastrel::pages {

// Grows `seeds` to the whole connected parts (8 neighbours) of `mask` that they touch. Seeds outside `mask`
// stay as they are and touch what lies beside them. Both planes are of one size.
void GrowInto(const BitPlane& mask, BitPlane& seeds);

// Every pixel of a plane with the pixels up to `reach` around it, along rows, columns and between.
BitPlane Widened(BitPlane plane, int reach);

}  // namespace rastrel::pages

#endif
