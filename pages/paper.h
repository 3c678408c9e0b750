// The paper of a page: how bright it is, and of which colour, at every place, found from the page itself.
//
// Paper is the ground that text stands on: white, yellowed, coloured or very dark, evenly lit or under the
// shadow of a gutter. Its brightness is a smooth map in cells of a millimetre or two, in which ink, pictures
// and what lies around the sheet are left out and filled in from the paper around them. A second map says how
// far each cell is to be trusted, down to cells that are no paper at all.
//
// On pages with light text on dark ground, hand over the inverted page (see pages/polarity.h).
#ifndef RASTREL_PAGES_PAPER_H
#define RASTREL_PAGES_PAPER_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "pages/planes.h"

namespace rastrel::pages {

// Rows of blue, green and red bytes (24 bits) or blue, green, red and one more (32 bits), as DIBs have them.
struct ColourRows {
  const uint8_t* topRow = nullptr;
  ptrdiff_t stride = 0;  // bytes from a row to the one below it; negative in a DIB stored from the bottom
  int bytesPerPixel = 3;
};

struct PaperColour {
  uint8_t red = 0, green = 0, blue = 0;
};

class PaperMap {
 public:
  // How far a cell is paper: seen there, filled in from around, not paper at all.
  static constexpr uint8_t kNotPaper = 0;

  int width() const { return width_; }  // of the page, in pixels
  int height() const { return height_; }
  bool isEmpty() const { return brightness_.isEmpty(); }

  // Side of a cell in pixels, a power of two. Cell (c, r) covers the pixels from (c, r) * cell() on.
  int cell() const { return 1 << cellShift_; }
  int columns() const { return brightness_.width(); }
  int rows() const { return brightness_.height(); }

  // The brightness of the paper at the middle of each cell. Never 0, so that it can be divided by.
  const BytePlane& brightness() const { return brightness_; }
  // How sure the brightness of each cell is: 255 where all of the cell was seen to be paper, less where ink
  // or a picture covers some of it, kNotPaper where it is filled in and what stands there is too dark for
  // paper: a dark surround, a black area, the dark of a photograph.
  const BytePlane& confidence() const { return confidence_; }

  // The brightness that most of the paper has.
  uint8_t level() const { return level_; }

  // Brightness of the paper at one pixel, and along a whole row of width() pixels.
  uint8_t BrightnessAt(int x, int y) const;
  void BrightnessRow(int y, std::span<uint8_t> row) const;

  // Another map of bytes a cell, laid over the page in the same way: the row `y` of width() pixels.
  void SpreadRow(const BytePlane& cells, int y, std::span<uint8_t> row) const;
  // What none of each 64 pixels of that row is above. From half a cell into a row of cells to half a cell
  // into the next one it is the same.
  void BoundRow(const BytePlane& cells, int y, std::span<uint8_t> most) const;

  // Colour of the paper, known after FindPaperColour; grey before it.
  PaperColour ColourOfCell(int column, int row) const;
  PaperColour ColourAt(int x, int y) const;

 private:
  friend PaperMap FindPaper(const BytePlane& grey, int dpi);
  friend void FindPaperColour(PaperMap& paper, const BytePlane& grey, const ColourRows& colours);

  int width_ = 0, height_ = 0;
  int cellShift_ = 0;
  uint8_t level_ = 255;
  BytePlane brightness_, confidence_;
  BytePlane red_, green_, blue_;  // empty until the colour was asked for
};

// A map of bytes a cell, spread over parts of a row of pixels as they are asked for.
class SpreadCells {
 public:
  explicit SpreadCells(const PaperMap& paper);
  void SetRow(const BytePlane& cells, int y);
  // From `left` up to, not including, `right`, in the row that was set last; valid until the next call.
  const uint8_t* Pixels(int left, int right);

 private:
  int columns_, rows_, cellShift_;
  // Stretches of pixels, from the middle of one cell to the middle of the next: the first one begins half a
  // cell before the page. What they have at either end, where they begin, and how much they climb a pixel.
  std::vector<uint16_t> values_, starts_, steps_;
  std::vector<uint8_t> bytes_;
};

// Finds the paper of a page. `dpi` is the resolution, 0 when nobody knows; it only sets the size of the
// cells. A page without pixels has an empty map.
PaperMap FindPaper(const BytePlane& grey, int dpi = 0);

// Adds the paper's colour, from the same page in colours. `grey` is the page that FindPaper saw.
void FindPaperColour(PaperMap& paper, const BytePlane& grey, const ColourRows& colours);

// The map as a picture of the page's size divided by `factor` (1, 2, 4 or 8), black where there is no paper.
BytePlane PictureOfPaper(const PaperMap& paper, int factor = 1);

}  // namespace rastrel::pages

#endif
