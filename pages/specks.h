// Specks on black-and-white and grey pages.
#ifndef RASTREL_PAGES_SPECKS_H
#define RASTREL_PAGES_SPECKS_H

#include <cstdint>

#include "pages/page.h"

namespace rastrel::pages {

struct SpeckCount {
  int64_t specks = 0;  // groups of dark pixels that touch each other
  int64_t pixels = 0;
};

// Lightens in `page` the groups of dark pixels that the speck filter has taken for the most part in
// `filtered`. Strokes keep their ends and corners, and groups stay that belong to something: dots beside
// strokes as thin as they are, rows of dots, and patterns of dots. For 1-bit black-and-white pages and 8-bit
// greys. `filtered` is freed as early as it can be.
SpeckCount EraseSpecks(const Dib& page, Dib filtered, Ink ground);

}  // namespace rastrel::pages

#endif
