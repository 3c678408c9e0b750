// The lines of text on a page's ink, each followed from strip to strip of the
// page's width by the band that its small letters fill. Lines may rise, curve
// and converge; what they are written in does not matter, and staves, rules and
// rows of a table are lines, too.
#ifndef RASTREL_PAGES_TEXT_LINES_H
#define RASTREL_PAGES_TEXT_LINES_H

#include <vector>

#include "pages/planes.h"

namespace rastrel::pages {

// The band's place in one strip of the page, in pixels. y counts downward.
struct LinePoint {
  double x;
  double top, bottom;
  double middle() const { return (top + bottom) / 2; }
};

struct TextLine {
  std::vector<LinePoint> points;  // from left to right, at even distances except
                                  // where a gap was crossed
  double height;                  // of the band, in pixels: about that of a small letter
  double slope;                   // of the straight line next to it: the rise to the right, over
                                  // the distance
  double bend;                    // the mean distance of the points from that line, in pixels
  double roughness;               // from a curve that follows it, in pixels
  double left() const { return points.front().x; }
  double right() const { return points.back().x; }
  double length() const { return right() - left(); }
};

struct TextLines {
  std::vector<TextLine> lines;  // those most certain first
  double height = 0;            // a usual line's; 0 where there are none
};

// Lines that rise or fall by no more than `mostSlope`.
TextLines FindTextLines(const BitPlane& ink, double mostSlope);

// The lines' bands over the ink, as a picture of the page's size: ink light grey, edges of bands dark, their
// middles black.
BytePlane PictureOfLines(const BitPlane& ink, const TextLines& lines);

}  // namespace rastrel::pages

#endif
