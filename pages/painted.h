// A page that is painted on in place: what was there before, to compare with and to take it back.
#ifndef RASTREL_PAGES_PAINTED_H
#define RASTREL_PAGES_PAINTED_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "pages/check.h"
#include "pages/page.h"
#include "pages/planes.h"

namespace rastrel::pages {

// Parts of rows as they were. It takes a small part of the memory that a copy of the page would.
class Painted {
 public:
  bool isEmpty() const { return parts_.empty(); }
  // To be called before columns `first` up to `end` of a page row are painted.
  void Keep(const PageView& page, int y, int first, int end);
  // Pixels of ink of the page as it was that have changed and are not named.
  Missing PaintedOver(const PageView& page, const BitPlane& ink, const BitPlane& named) const;
  // Makes the page what it was, and forgets about it.
  void TakeBack(const PageView& page);

 private:
  struct Part {
    int row, first, end;
    size_t at;  // in bytes_
  };
  std::vector<Part> parts_;     // in the order of painting
  std::vector<uint8_t> bytes_;  // whole ones, from that of the first column to that of the last
};

}  // namespace rastrel::pages

#endif
