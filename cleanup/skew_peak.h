// Where the sharpness of a page's line sums has its peak, to a small part of a step in slope.
#ifndef RASTREL_CLEANUP_SKEW_PEAK_H
#define RASTREL_CLEANUP_SKEW_PEAK_H

#include "cleanup/line_sums.h"

namespace rastrel {

struct SkewPeak {
  double slope;
  double error;    // how far the slope may be off, judged from what leaving out parts of the page changes
  double breadth;  // of the peak, in slope, at half its height
};

constexpr int kPeakSections = 8;  // of the page's width

// Finds the peak near `slope`. `sums` has room for kPeakSections sums of every row.
SkewPeak FindSkewPeak(const ShiftedStrips& strips, double slope, double steepest, int16_t* sums);

}  // namespace rastrel

#endif
