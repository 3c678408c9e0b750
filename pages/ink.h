// The ink of a page: what is printed or written on it, pixel by pixel, judged against the paper around it.
//
// On pages with light text on dark ground, hand over the inverted page (see pages/polarity.h). The ink of a
// 1-bit page is the page itself, its dark class.
#ifndef RASTREL_PAGES_INK_H
#define RASTREL_PAGES_INK_H

#include "pages/paper.h"
#include "pages/planes.h"

namespace rastrel::pages {

// Marks what is ink: darker than the paper around it by enough, as a whole stroke. Pale strokes stay where
// darker parts belong to them, where all of the page is pale, and where they are drawn as sharply as the rest
// (pages/faint_strokes.h); what shows through from behind, and stains, are left out as far as they are weaker
// and softer. Areas that are not paper (a dark surround, a black bar) count as ink, as they would on a 1-bit
// scan of the page.
BitPlane FindInk(const BytePlane& grey, const PaperMap& paper);

// Darkness against the paper: 0 is as bright as the paper, kDarknessUnit all of it black.
constexpr int kDarknessUnit = 256;
struct InkLevels {
  // From which darkness on pixels of this page are ink: it parts ink from paper best over the whole page, and
  // stays above the grain of a page without ink.
  int least;
  int grain;  // the median difference of pixels from their paper, 1 or more
};
InkLevels FindInkLevels(const BytePlane& grey, const PaperMap& paper);

// Marks the pixels that are darker than their paper by at least `darkness`, as far as they are wanted:
// `within` has all that are by at least a lower darkness, and what `except` has is left out. Either may be
// null.
BitPlane DarkerThanPaper(const BytePlane& grey, const PaperMap& paper, int darkness,
                         const BitPlane* within = nullptr, const BitPlane* except = nullptr);

// The mask as a picture, ink black, paper white.
BytePlane PictureOfInk(const BitPlane& ink);

}  // namespace rastrel::pages

#endif
