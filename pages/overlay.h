// A picture of what was removed from a page.
#ifndef RASTREL_PAGES_OVERLAY_H
#define RASTREL_PAGES_OVERLAY_H

#include <cstdint>

#include "pages/page.h"

namespace rastrel::pages {

struct Point {
  double x = 0, y = 0;  // from the top left, in pixels
};

// How a page was made of the one that came in: turned about its middle, and then cut.
struct Placement {
  int widthIn = 0, heightIn = 0;          // of the page that came in
  double degrees = 0;                     // counter-clockwise
  int widthTurned = 0, heightTurned = 0;  // of the turned page
  int left = 0, top = 0;                  // of what was cut out of that

  // Of a page that is as it came in.
  static Placement Of(const PageView& page);
  Point ToInput(Point point) const;
  Point FromInput(Point point) const;
  bool isMoved() const { return degrees != 0 || left != 0 || top != 0; }
};

enum class Removed : uint8_t { kBorder, kHole, kSpeck };

// The page as it came in, in light greys.
class Overlay {
 public:
  explicit Overlay(const Dib& page);

  // Paints in the colour of `what` the pixels in which two versions of a page differ; `place` tells where
  // they lie.
  void Paint(Removed what, const Dib& before, const Dib& after, const Placement& place);
  // The same for what a mask of the page that came in names.
  void Paint(Removed what, const BitPlane& mask);
  // The same for all that does not lie on the page.
  void PaintAround(Removed what, const Dib& page, const Placement& place);
  Dib Take() { return std::move(picture_); }

 private:
  Dib picture_;
};

}  // namespace rastrel::pages

#endif
