// Specks: what dust on the glass, a dirty original or a noisy scanner left on a page, told from dots that
// mean something by what stands around them.
#ifndef RASTREL_PAGES_SPECK_REMOVAL_H
#define RASTREL_PAGES_SPECK_REMOVAL_H

#include <cstdint>
#include <string>
#include <vector>

#include "pages/components.h"
#include "pages/pictures.h"

namespace rastrel::pages {

struct SpeckPlan {
  std::vector<uint32_t> components;  // of the ink, those that are specks, in their order
  int64_t pixelCount = 0;
  int64_t keptDots = 0;      // marks as small that fit a letter or a row of dots
  int64_t keptNearText = 0;  // that are near text and may be parts of it
  int64_t keptInPictures = 0;
  std::string leftAlone;  // why none of them is taken, where they are all left
};

// `grey` is the page with dark ink, empty for 1-bit pages: there a speck is seen clearly, on even ground.
// `largest` is the longest side of a speck in points; speck::kLargest unless somebody asks for another.
SpeckPlan PlanSpecks(const Components& components, const BitPlane& ink, const BytePlane& grey,
                     const Pictures& pictures, double pixelsPerPoint, double largest);

}  // namespace rastrel::pages

#endif
