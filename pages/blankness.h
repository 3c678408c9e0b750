// Whether a page is blank: by what is printed or written on it, not by how dark it is.
#ifndef RASTREL_PAGES_BLANKNESS_H
#define RASTREL_PAGES_BLANKNESS_H

#include "pages/paper.h"
#include "pages/planes.h"

namespace rastrel::pages {

struct Blankness {
  bool isBlank = false;
  // Squares of a line's height with sharp ink in them, away from the edges: a page number has two or three.
  int writtenSquares = 0;
};

// Faint print is no blank page; shadows, dark paper, stains, a dark surround and what shows through from
// behind leave it blank. `ink` is FindInk's; `pixelsPerPoint` as in judgement.h.
Blankness FindBlankness(const BytePlane& grey, const PaperMap& paper, const BitPlane& ink,
                        double pixelsPerPoint = 1);

// The same for a 1-bit page, 1 = dark. Scattered specks, and bars along the edges, leave it blank.
Blankness FindBlankness(const BitPlane& dark, double pixelsPerPoint = 1);

}  // namespace rastrel::pages

#endif
