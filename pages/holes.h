// Punch holes in the margins of a page.
#ifndef RASTREL_PAGES_HOLES_H
#define RASTREL_PAGES_HOLES_H

#include <optional>
#include <string_view>
#include <vector>

#include "pages/page.h"

namespace rastrel::pages {

enum class Side { kLeft, kRight, kTop, kBottom };
std::string_view NameOf(Side side);

struct Hole {
  double x = 0, y = 0;  // its centre, in pixels from the top left of the page
  double diameter = 0;
  Side side = Side::kLeft;
};

// Paints, with `ground`, the punch holes in all four margins, and returns them. `size` is that of
// FillHoles, which is tried on each margin, turned to the left; of what it covers with discs the dark
// blobs go that are shaped like holes and touch nothing else. For pages of 1, 8 and 24 bits; throws PageError
// where resolutions differ.
std::vector<Hole> EraseHoles(const Dib& page, std::optional<int> size, Ink ground);

}  // namespace rastrel::pages

#endif
