// Sums of a page's ink along lines of one slope. A slope is the rise to the right, over the distance.
#ifndef RASTREL_CLEANUP_LINE_SUMS_H
#define RASTREL_CLEANUP_LINE_SUMS_H

#include <cmath>
#include <cstddef>
#include <cstdint>

#include "cleanup/page_strips.h"

namespace rastrel {

// Strips of ink that can be shifted by parts of a cell: of each there are several, its phases, smoothed
// alike, each standing for places a little further down. Above and below a strip are as many cells of 0 as
// the steepest slope needs.
class ShiftedStrips {
 public:
  // Slopes may go beyond the steepest by as many rows, at the ends of the page's lines.
  static constexpr int kRowsBeyondSteepest = 8;

  // As many strips as the grid has, in four phases.
  static ShiftedStrips Fine(const StripGrid& grid, double steepest);
  // Half as many, of cells of twice the size, in two. For steep slopes only the height of the cells doubles.
  static ShiftedStrips Coarse(const StripGrid& grid, double steepest);

  uint64_t BytesNeeded() const {
    return uint64_t{cells_.stride} * static_cast<unsigned>(strips_ * phases_ + 1);
  }
  // Fills that many bytes from the same ink. They are 0 before.
  void Fill(const StripCells& ink, uint8_t* bytes);

  int rows() const { return cells_.rows; }
  // From the middle to the ends, in rows.
  double Arm() const { return pitch_ * strips_ / 2; }

  // Sums the ink of one of `sections` equal parts of the page's width. sums[y] is of the line through row y
  // in the middle of the page.
  void Sum(double slope, int section, int sections, int16_t* sums) const;

 private:
  ShiftedStrips(int strips, int rows, int phases, double pitch, double steepest);
  const uint8_t* Shifted(int strip, double slope) const;

  StripCells cells_;  // one for each phase of each strip
  int strips_;
  int phases_;
  double pitch_;
  int pad_;
};

void AddSums(const int16_t* other, int rows, int16_t* sums);

// How abruptly the sums change: the sum of squared differences. They are taken over two rows, which leaves
// out what alternates from row to row, as the grain of the cells does.
double Sharpness(const int16_t* sums, int rows);

}  // namespace rastrel

#endif
