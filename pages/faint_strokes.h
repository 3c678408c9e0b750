// Strokes much paler than the rest of a page's ink: pencil beside black print, text in grey or in a light
// colour.
#ifndef RASTREL_PAGES_FAINT_STROKES_H
#define RASTREL_PAGES_FAINT_STROKES_H

#include "pages/ink.h"
#include "pages/paper.h"
#include "pages/planes.h"

namespace rastrel::pages {

// Adds to `ink` what is paler than it and still was drawn on this side of the sheet: thin strokes, their
// edges as sharp as those of the page's own ink, on paper that is clean around them. What shows through from
// behind and stains are softer, come in all shades down to the paper's, and lie across the print.
void AddFaintStrokes(const BytePlane& grey, const PaperMap& paper, const InkLevels& levels, BitPlane* ink);

}  // namespace rastrel::pages

#endif
