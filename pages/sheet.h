// The sheet on the scan: where its four sides run, and what lies around it.
//
// A scan shows a sheet and, on one side or on several, what lay around it: the black of the lid, a table, the
// shadow at the sheet's edge. A side of the sheet is believed only if what lies outside is dark as a whole,
// meets the paper along a sharp and steady boundary, and nothing printed stands in it. Everything else (dark
// paper, a vignette, the soft shadow of a gutter, a picture, a tab or a line of text that runs off the sheet)
// is the page's own: that side counts as not certain, with the reason, and nothing may be done by it.
#ifndef RASTREL_PAGES_SHEET_H
#define RASTREL_PAGES_SHEET_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "pages/planes.h"

namespace rastrel::pages {

enum class SheetSide : uint8_t { kLeft, kTop, kRight, kBottom };
inline constexpr SheetSide kSheetSides[] = {SheetSide::kLeft, SheetSide::kTop, SheetSide::kRight,
                                            SheetSide::kBottom};
std::string_view NameOf(SheetSide side);

enum class SideKind : uint8_t {
  kImageEdge,   // paper up to the image's edge
  kCertain,     // the sheet ends inside the image, all along the side or along a part of it
  kNotCertain,  // something dark stands there, which may belong to the page
};

// One side of the sheet. Places along a left or right side are rows, along the others columns; depths are
// pixels from the image's edge inwards.
struct SheetSideFit {
  SideKind kind = SideKind::kImageEdge;
  int confidence = 100;  // percent: that `kind` is right
  std::string reason;    // why it is not certain; empty otherwise
  // What is known of the boundary at every place along the side: the sheet's first pixel, 0 where it reaches
  // the image's edge. Empty for kImageEdge; what was measured, for kNotCertain.
  std::vector<int32_t> depth;
  // The straight line that fits the places with a depth best, in 1/16 pixel at the side's first and last
  // place.
  bool hasLine = false;
  int32_t lineAtFirst = 0, lineAtLast = 0;

  // The sheet's edge by the line, or the image's edge where there is none.
  int32_t LineDepthAt(int place, int places) const {
    if (!hasLine || places < 2) return 0;
    const int64_t rise = int64_t{lineAtLast} - lineAtFirst;
    return static_cast<int32_t>((lineAtFirst + rise * place / (places - 1)) / 16);
  }
};

// A dark area at the image's edge that was judged.
struct Surround {
  bool isCertain = false;
  int confidence = 0;                                // percent
  std::string reason;                                // what it is, or why it is not certain
  int32_t left = 0, top = 0, right = 0, bottom = 0;  // in pixels, the last two not included
  bool touches[4] = {};                              // by SheetSide
};

struct Sheet {
  int width = 0, height = 0;  // of the image
  SheetSideFit sides[4];      // by SheetSide
  std::vector<Surround> surrounds;
  // The page in square cells, and what of it lies outside the certain sides: 255 surround, 0 the sheet. Empty
  // where nothing does. Coarse: see borders.h.
  BytePlane cells, outside;
  int cell = 1;            // pixels
  uint8_t paper = 255;     // the brightness that most of the paper has
  int pixelsPerMm16 = 16;  // in sixteenths

  const SheetSideFit& side(SheetSide s) const { return sides[static_cast<size_t>(s)]; }
  bool HasOutside() const { return !outside.isEmpty(); }
  // Lengths in sixteenths of a millimetre, in pixels, at least 1.
  int Pixels(int mm16) const { return mm16 * pixelsPerMm16 < 256 ? 1 : mm16 * pixelsPerMm16 / 256; }
};

// `dpi` is the resolution, 0 when nobody knows; values that no sheet has are not believed.
Sheet FindSheet(const BytePlane& grey, int dpi = 0);
// Of a 1-bit page; set bits are ink.
Sheet FindSheet(const BitPlane& ink, int dpi = 0);

// The page with the sheet drawn on it, divided by `factor`: hatched white what is certain to lie outside, in
// grey what is not certain; the sides' lines in dashes, and in numbers how sure each side is, in percent.
BytePlane PictureOfSheet(const Sheet& sheet, const BytePlane& grey, int factor);

}  // namespace rastrel::pages

#endif
