// Two-colour pages, worked on as black and white.
#ifndef RASTREL_PAGES_BLACK_AND_WHITE_H
#define RASTREL_PAGES_BLACK_AND_WHITE_H

#include <optional>
#include <utility>

#include "pages/overlay.h"
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

// Runs a chain of steps on a page in a form that the steps know: 4 bits widened to 8, two colours as black
// and white. `chain` takes the page and the overlay to paint in, null where nobody asks, and returns the
// page.
template <class Chain>
Dib InWorkingForm(Dib page, Dib* overlay, Chain chain) {
  const bool isWidened = PageView(page).bits() == 4;
  if (isWidened) page = WidenTo8(page);
  const AsBlackAndWhite colours(page);
  std::optional<Overlay> removed;
  if (overlay != nullptr) removed.emplace(page);
  page = chain(std::move(page), removed ? &*removed : nullptr);
  if (overlay != nullptr) *overlay = removed->Take();
  colours.Restore(page);
  return isWidened ? NarrowTo4(page) : std::move(page);
}

}  // namespace rastrel::pages

#endif
