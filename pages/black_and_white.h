// Two-colour pages, worked on as black and white.
#ifndef RASTREL_PAGES_BLACK_AND_WHITE_H
#define RASTREL_PAGES_BLACK_AND_WHITE_H

#include <utility>

#include "pages/page.h"

namespace rastrel::pages {

// A two-colour page with the darker colour as entry 0 and black, the other white, which is what the
// operations know. Restores the colours at the end. Does nothing for other depths.
class AsBlackAndWhite {
 public:
  explicit AsBlackAndWhite(const Dib& dib) {
    const PageView page(dib);
    if (page.bits() != 1) return;
    if (ExtremeInk(page, /*light=*/false).bytes[0] == 1) {
      std::swap(page.palette()[0], page.palette()[1]);
      ExchangeWithZero(page, {{1, 0, 0}});
    }
    colours_[0] = std::exchange(page.palette()[0], {0, 0, 0, 0});
    colours_[1] = std::exchange(page.palette()[1], {255, 255, 255, 0});
    isActive_ = true;
  }
  void Restore(const Dib& dib) const {
    const PageView page(dib);
    if (!isActive_ || page.bits() != 1) return;
    page.palette()[0] = colours_[0];
    page.palette()[1] = colours_[1];
  }

 private:
  RGBQUAD colours_[2] = {};
  bool isActive_ = false;
};

}  // namespace rastrel::pages

#endif
