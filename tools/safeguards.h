// What keeps the cleaning of a page from making it worse. Each of these takes a page and what an operation
// made of it, and decides which of the changes are borders, holes or specks; the rest stays as it was.
#ifndef RASTREL_TOOLS_SAFEGUARDS_H
#define RASTREL_TOOLS_SAFEGUARDS_H

#include <cstdint>

#include "page.h"

namespace rastrel::tool {

// Whether the page is dark in the middle and all around: light text, or a negative. A picture on paper is
// light around, a sheet on a dark ground light in the middle.
bool IsDarkPage(const Dib& page);

struct BorderResult {
  int64_t left = 0, right = 0;  // pixels painted
  bool isPictureLeft = false;   // a dark margin was left alone because it looks like a picture
  bool isPictureRight = false;
};
// Paints in `page`, with `ground`, the margins that are dark in `before` and painted in `trimmed`, where they
// stand tall enough to be a border. A line of text or a rule that runs into the edge is not.
BorderResult PaintBorders(const Dib& page, const Dib& before, const Dib& trimmed, Ink ground);

}  // namespace rastrel::tool

#endif
