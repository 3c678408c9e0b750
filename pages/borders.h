// What lies outside the sheet, as a plan, and its replacement by paper.
#ifndef RASTREL_PAGES_BORDERS_H
#define RASTREL_PAGES_BORDERS_H

#include <cstdint>
#include <string>
#include <vector>

#include "pages/planes.h"
#include "pages/sheet.h"

namespace rastrel::pages {

// One area that is to be replaced, or one side on which something is left alone.
struct BorderRegion {
  std::string reason;
  int confidence = 0;                                // percent
  int32_t left = 0, top = 0, right = 0, bottom = 0;  // in pixels, the last two not included
};
struct SideLeftAlone {
  SheetSide side = SheetSide::kLeft;
  std::string reason;
};

struct BorderPlan {
  std::vector<BorderRegion> regions;
  std::vector<SideLeftAlone> leftAlone;
  BitPlane mask;       // the pixels to replace; empty when there are none
  int64_t pixels = 0;  // set in `mask`

  bool IsEmpty() const { return pixels == 0; }
};

BorderPlan PlanBorders(const Sheet& sheet, const BytePlane& grey);
// Of a 1-bit page; set bits are ink.
BorderPlan PlanBorders(const Sheet& sheet, const BitPlane& ink);

// ---- carrying out ----------------------------------------------------------------------------------------

// A page that is painted: as it is looked at and as it is written, which may be the same pixels. Each has its
// top left byte, the bytes from row to row, and one byte of grey for a pixel, or three of colours.
struct PaintedPage {
  const uint8_t* from = nullptr;
  ptrdiff_t fromStride = 0;
  uint8_t* to = nullptr;
  ptrdiff_t toStride = 0;
  int channels = 0;
  bool isFromNegative = false, isNegative = false;  // dark paper: looked at, and painted, turned round
};
inline PaintedPage PageOfGrey(BytePlane* grey) {
  return {grey->Row(0), grey->width(), grey->Row(0), grey->width(), 1};
}

// How far from `mask` PaintPaper looks at the page and at `avoid`, in pixels.
constexpr int kPaperReach = 240;

// Replaces the pixels of `mask` by paper: brightness and colour of the paper next to them, its grain copied
// from clean paper of the page. Pixels outside `mask` are not changed. `avoid` are pixels that are no paper
// (ink and what else the page shows), or empty. On a page of clean white paper the result is clean white.
void PaintPaper(const PaintedPage& page, const BitPlane& mask, const BitPlane& avoid = {});

}  // namespace rastrel::pages

#endif
