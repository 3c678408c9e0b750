// The promise that no page becomes worse: what was ink on the page that came in is on the page that goes out,
// moved as the page was moved, or belongs to something that was named as removed.
//
// Three questions, each answered from the pixels, not from what a step believes to have done.
#ifndef RASTREL_PAGES_CHECK_H
#define RASTREL_PAGES_CHECK_H

#include <cstdint>
#include <vector>

#include "pages/components.h"
#include "pages/page.h"
#include "pages/planes.h"

namespace rastrel::pages {

// Where the pixels of one page lie on another that was made of it: turned about its middle, then cut.
class Movement {
 public:
  Movement() = default;
  // Counter-clockwise; the turned page's size, and the left and top of what was cut out of it.
  Movement(int width, int height, double degrees, int turnedWidth, int turnedHeight, int left, int top);

  bool isIdentity() const { return isIdentity_; }
  // Followed by an enlargement.
  Movement Enlarged(double timesAcross, double timesDown) const;
  // Where the middle of a pixel goes.
  double XOf(double x, double y) const { return x_ + x * rightAcross_ + y * downAcross_; }
  double YOf(double x, double y) const { return y_ + x * rightDown_ + y * downDown_; }
  struct Place {
    double x, y;
  };
  // Where a place on the turned page was before; not for enlargements.
  Place Before(double x, double y) const {
    return {(x - x_) * rightAcross_ + (y - y_) * rightDown_, (x - x_) * downAcross_ + (y - y_) * downDown_};
  }
  // The same as XOf and YOf in two parts, whose sum it is to the last bit.
  Place ColumnOf(double x) const { return {x_ + x * rightAcross_, y_ + x * rightDown_}; }
  Place RowOf(double y) const { return {y * downAcross_, y * downDown_}; }

 private:
  bool isIdentity_ = true;
  // What a step to the right moves a pixel across and down, and a step down.
  double x_ = 0, y_ = 0, rightAcross_ = 1, rightDown_ = 0, downAcross_ = 0, downDown_ = 1;
};

// What is missing, in pixels of the page that came in, and around what.
struct Missing {
  int64_t pixels = 0;
  Box box = {0, 0, 0, 0};
  std::vector<Box> cells = {};  // of FindLost: each by itself
  bool isNothing() const { return pixels == 0; }
  void Add(int left, int top, int right, int bottom, int64_t count);
};

// Moving, smoothing and reducing: ink that is not as dark as before, near where it should be. `grey` is the
// page as the model sees it (empty for 1-bit pages), with dark ink; `named` may be empty, as may `ink`
// outside of it.
Missing FindLost(const BitPlane& ink, const BytePlane& grey, const BitPlane& named, const PageView& after,
                 bool isTextDark, const Movement& movement);

// Draws what FindLost missed on a 1-bit page, in black, or white where text is light.
void PutBack(const Missing& missing, const BitPlane& ink, const PageView& after, bool isTextDark,
             const Movement& movement);

// The plan itself: whether what it names takes letters of a line, or cuts pieces that are letters, of which
// the rest stays. `named` are pixels that would be removed as a border; `letterHeight` a usual letter's
// height in pixels. A letter stands
// on paper: pieces of a surround's grain, which differ from what is around them as noise does, are none.
// `grey` is empty for 1-bit pages; `paperLevel` is the brightness of most of the paper.
Missing FindCutText(const Components& components, const BitPlane& ink, const BytePlane& grey, int paperLevel,
                    const BitPlane& named, double letterHeight);

}  // namespace rastrel::pages

#endif
