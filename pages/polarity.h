// Whether the text of a page is dark on light, or light on dark as on negatives and blueprints.
//
// The text decides, not the paper: letters cover less than what is between and around them, so where there is
// writing, the side of the middle that has fewer pixels is the ink. Very dark paper with dark text on it is
// paper; the dark around a sheet, bars and pictures have no say.
#ifndef RASTREL_PAGES_POLARITY_H
#define RASTREL_PAGES_POLARITY_H

#include "pages/planes.h"

namespace rastrel::pages {

struct Polarity {
  bool textIsLight = false;
  // How clearly the text says so: 0 to 100. Under 20 there is hardly any text, or both kinds: leave the page
  // alone.
  int confidence = 0;
};

Polarity FindPolarity(const BytePlane& grey);
// Of a 1-bit page, 1 = dark.
Polarity FindPolarity(const BitPlane& dark);

}  // namespace rastrel::pages

#endif
