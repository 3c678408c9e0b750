// Even light, white paper and weaker show-through: what can be done to a grey or colour page once its paper
// is known.
#ifndef RASTREL_PAGES_FLATTEN_H
#define RASTREL_PAGES_FLATTEN_H

#include <cstddef>
#include <cstdint>

#include "pages/paper.h"
#include "pages/planes.h"

namespace rastrel::pages {

// Pixels of 8, 24 or 32 bits to be changed in place, as a DIB has them; a fourth byte is left alone.
struct PixelRows {
  uint8_t* topRow = nullptr;
  ptrdiff_t stride = 0;  // bytes from a row to the one below it
  int bytesPerPixel = 1;
};

// In all three the page has the size of `paper`. `pictures` marks what must stay as it is; null where nothing
// must.

// Evens the light: the shadow of a gutter, a vignette, a lamp to one side. Each pixel is brightened or
// darkened by what its paper lacks to the page's usual brightness; tint stays.
void EvenLight(const PixelRows& page, const PaperMap& paper, const BitPlane* pictures = nullptr);

// Makes paper white and leaves ink as it is. With the paper's colour known (FindPaperColour) tint goes as
// well.
void WhitenPaper(const PixelRows& page, const PaperMap& paper, const BitPlane* pictures = nullptr);

// Weakens what shows through from behind, stains and creases: what is darker than the paper and no ink
// (FindInk) comes nearer to the paper. Ink and its rims stay.
void WeakenShowThrough(const PixelRows& page, const PaperMap& paper, const BitPlane& ink,
                       const BitPlane* pictures = nullptr);

}  // namespace rastrel::pages

#endif
