// How much ink there is on a page.
#ifndef RASTREL_PAGES_BLANK_H
#define RASTREL_PAGES_BLANK_H

#include "pages/page.h"

namespace rastrel::pages {

// Whether less than `percent` of the page is ink: what is darker than four fifths of its paper's brightness.
// Changes the padding of a page of 1 bit for a while.
bool IsBlank(const Dib& page, bool isTextDark, double percent);
// The ink of the whole page, by the same measure.
double InkPercent(const Dib& page, bool isTextDark);

}  // namespace rastrel::pages

#endif
