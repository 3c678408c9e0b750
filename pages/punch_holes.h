// Punched holes and bindings at the sheet's margins, as a plan.
//
// A hole is round, of a size that punches have, solid, and stands at the sheet's margin beside nothing
// printed. Bullets, dots, logos and eyes can be all of that, too. So one alone is believed only when it is
// hardly anything else; otherwise holes come in rows: alike, as far from the sheet's edge, in spacings that
// punches make or evenly about the side's middle. Distances count from the sheet's edge, not the image's.
#ifndef RASTREL_PAGES_PUNCH_HOLES_H
#define RASTREL_PAGES_PUNCH_HOLES_H

#include <cstdint>
#include <string>
#include <vector>

#include "pages/planes.h"
#include "pages/sheet.h"

namespace rastrel::pages {

struct PunchHole {
  double x = 0, y = 0;  // its middle, in pixels
  double diameter = 0;  // pixels
  SheetSide side = SheetSide::kLeft;
  int confidence = 0;  // percent
  std::string reason;  // what it was believed by
};

struct HolePlan {
  std::vector<PunchHole> holes;
  BitPlane mask;       // the pixels to replace by paper; empty when there are none
  int64_t pixels = 0;  // set in `mask`

  bool IsEmpty() const { return pixels == 0; }
};

// `sheet` is that of the same page.
HolePlan PlanHoles(const Sheet& sheet, const BytePlane& grey);
// Of a 1-bit page; set bits are ink.
HolePlan PlanHoles(const Sheet& sheet, const BitPlane& ink);

}  // namespace rastrel::pages

#endif
