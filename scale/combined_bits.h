// Combining images of one depth whose pixels can be combined as they lie: black-and-white pages with any
// colours, grey and colour pages of whole levels. That goes 64 bits at a time.
#ifndef RASTREL_SCALE_COMBINED_BITS_H
#define RASTREL_SCALE_COMBINED_BITS_H

#include "scale/combination.h"

namespace rastrel {

// Returns false, with nothing done, for other images and for rows of less than a word.
bool CombineAsBits(const Combination& task);

}  // namespace rastrel

#endif
