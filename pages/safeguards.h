// What keeps the cleaning of a page from making it worse. Each of these takes a page and what an operation
// made of it, and decides which of the changes are borders, holes or specks; the rest stays as it was.
#ifndef RASTREL_PAGES_SAFEGUARDS_H
#define RASTREL_PAGES_SAFEGUARDS_H

#include <cstdint>
#include <vector>

#include "pages/page.h"

namespace rastrel::pages {

// Whether the page is dark in the middle and all around: light text, or a negative. A picture on paper is
// light around, a sheet on a dark ground light in the middle.
bool IsDarkPage(const Dib& page);

struct BorderResult {
  int64_t left = 0, right = 0;  // pixels painted
  bool isPictureLeft = false;   // a dark margin was left alone because it looks like a picture
  bool isPictureRight = false;
  bool isTooMuch = false;  // nothing was painted: it would have been more than a third of the page
};
// How far trimming paints each row of a page, top row first, from its left and its right end.
struct PaintedRuns {
  std::vector<int> left, right;
};
// Adds those of some rows of `page`: rows `from` up to `to` of `before` and of `trimmed`, which are as wide
// or wider.
void AddPaintedRuns(const PageView& page, const Dib& before, const Dib& trimmed, int from, int to,
                    PaintedRuns* runs);

// Paints in `page`, with `ground`, the margins that trimming has painted, where they stand tall enough to be
// a border. A line of text or a rule that runs into the edge is not.
BorderResult PaintBorders(const Dib& page, const PaintedRuns& runs, Ink ground);

}  // namespace rastrel::pages

#endif
