// Adaptive black and white: a grey page as one bit a pixel, text sharp under any light.
#ifndef RASTREL_PAGES_BINARIZE_H
#define RASTREL_PAGES_BINARIZE_H

#include "pages/planes.h"

namespace rastrel::pages {

enum class BinarizeQuality {
  kFast,  // a threshold that follows the paper; strokes are taken or left as a whole
  kBest,  // a minimum cut: each pixel leans to ink or paper, and neighbours stay together except at edges
};

struct BinarizeOptions {
  BinarizeQuality quality = BinarizeQuality::kFast;
  int dpi = 0;  // of `grey`; 0 when nobody knows
  // The size of the result where it is to be smoothed to a higher resolution; 0: as `grey` is.
  int width = 0, height = 0;
  // Areas to dither instead, of the size of `grey`; null where there are none.
  const BitPlane* pictures = nullptr;
};

// 1 = black. Light text on dark ground stays light on dark.
BitPlane Binarize(const BytePlane& grey, const BinarizeOptions& options = {});

}  // namespace rastrel::pages

#endif
