// Smaller copies of a page, for everything that needs no single pixel.
#ifndef RASTREL_PAGES_SHRINK_H
#define RASTREL_PAGES_SHRINK_H

#include "pages/planes.h"

namespace rastrel::pages {

// Means of squares of `factor` x `factor` pixels, rounded to the nearest; `factor` is 1, 2, 4 or 8. Squares
// over the right and the lower edge count the page's last column and row for what is missing.
BytePlane ShrinkByMean(const BytePlane& page, int factor);

}  // namespace rastrel::pages

#endif
