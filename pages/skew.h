// The skew of a page, as its lines of text have it.
#ifndef RASTREL_PAGES_SKEW_H
#define RASTREL_PAGES_SKEW_H

#include <string>
#include <vector>

#include "pages/planes.h"
#include "pages/text_lines.h"

namespace rastrel::pages {

struct PageSkew {
  double angle = 0;        // degrees counter-clockwise that the text is turned by; 0
                           // where confidence is 0
  double confidence = 0;   // from 0 to 1; from kSureOfSkew on it is right to 0.3 degrees
  bool isSeveral = false;  // parts of the page differ in skew, so that no single
                           // angle is right
  std::string reason;      // what the confidence rests on, in words
  double error = 0;        // degrees that the angle may be off, judged from how much
                           // the lines differ
  double spread = 0;       // degrees that lines differ by: more than the error where
                           // they bend or converge
};

constexpr double kSureOfSkew = 0.5;  // the least confidence that a page is turned with

// Looks for angles of up to `range` degrees, from 1 to 30.
PageSkew FindSkew(const BitPlane& ink, double range = 15);
// The same from lines that are known already.
PageSkew FindSkew(const BitPlane& ink, const TextLines& lines, double range = 15);

}  // namespace rastrel::pages

#endif
