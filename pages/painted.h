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

// Parts of rows as they were: most often a small part of the page, and never more memory than a copy of it
// but for some bytes a row. Everything that is painted is to be kept before.
class Painted {
 public:
  bool isEmpty() const { return rows_.empty(); }
  // To be called before columns `first` up to `end` of a page row are painted.
  void Keep(const PageView& page, int y, int first, int end);
  // Pixels of ink of the page as it was that have changed and are not named.
  Missing PaintedOver(const PageView& page, const BitPlane& ink, const BitPlane& named) const;
  // Makes the page what it was, and forgets about it.
  void TakeBack(const PageView& page);

 private:
  struct Part {
    int first, end;
  };
  struct Row {
    std::vector<Part> parts;     // in the order of painting, or one of the whole width
    std::vector<uint8_t> bytes;  // whole ones, from that of a part's first column to that of its last

    // Puts the parts back, the last one first: of what was painted more than once the first part counts.
    void PutBack(const PageView& page, uint8_t* to) const;
  };
  std::vector<Row> rows_;  // as far down as anything was kept
};

}  // namespace rastrel::pages

#endif
