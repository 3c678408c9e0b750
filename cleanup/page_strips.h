// A page reduced to narrow columns of cells, which say how much ink each holds, for measuring its skew.
#ifndef RASTREL_CLEANUP_PAGE_STRIPS_H
#define RASTREL_CLEANUP_PAGE_STRIPS_H

#include <cstddef>
#include <cstdint>

#include "frame/dib.h"

namespace rastrel {

// How a page is divided. A strip is some groups of 8 pixels wide, a cell of it some pixel rows high.
struct StripGrid {
  int groupsPerStrip;
  int rowsPerCell;
  int left, top;  // the first pixel
  int strips;
  int rows;  // of cells
  int rowsPerInch;
  // The distance from strip to strip in heights of a cell.
  double Pitch() const { return 8.0 * groupsPerStrip / rowsPerCell; }
};

// Cells of about 1/150 inch in height, eight times as wide; what is left over at the right and at the bottom
// is left out, and so is what is far from the middle of a huge page. The header's resolution counts where it
// is likely.
StripGrid GridOfPage(const LockedDib& page, double steepest);

// Whether lines of such a slope want narrower strips, or else they are smeared into the gaps between them.
constexpr bool IsSteep(double slope) { return slope > 0.4; }

// Columns of cells that lie one behind the other.
struct StripCells {
  uint8_t* first;
  size_t stride;
  int strips;
  int rows;
  uint8_t* Strip(int index) const { return first + static_cast<size_t>(index) * stride; }
};

enum class Polarity { kFound = 0, kDarkInk = 1, kLightInk = 2 };

struct InkFound {
  Polarity polarity;
  bool any;
  double pictureShare;  // of the page, where the ground is not that of the page
};

// How much ink the cells of a page hold: how far each stands out, for dark or light, from the ground above
// and below it. What is higher than a line of text is ground, and so is what goes on beyond the page. There
// are few levels, up to kMostInk, so that heavy print does not count for much more than text does.
class PageInk {
 public:
  static constexpr int kMostInk = 63;

  explicit PageInk(const StripGrid& grid);
  uint64_t BytesNeeded() const;
  // Fills the cells, and 0 above and below each strip, in that many bytes. Pages of 1, 4, 8 and 24 bits.
  // With Polarity::kFound there is taken to be more ground than ink.
  InkFound Find(const LockedDib& page, const ConstRows& rows, Polarity polarity, uint8_t* bytes);
  const StripCells& cells() const { return cells_; }

 private:
  StripGrid grid_;
  int tallestLine_;  // in cells
  StripCells cells_;
};

}  // namespace rastrel

#endif
