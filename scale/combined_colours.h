// Combining images of any two depths, by way of colours.
#ifndef RASTREL_SCALE_COMBINED_COLOURS_H
#define RASTREL_SCALE_COMBINED_COLOURS_H

#include "scale/combination.h"

namespace rastrel {

// Returns false when there is no memory to work in.
bool CombineByColours(const Combination& task);

}  // namespace rastrel

#endif
