// What stands on the pages that the accuracy of MeasureSkew is measured on.
#ifndef RASTREL_BENCH_SKEW_ACCURACY_SHEETS_H
#define RASTREL_BENCH_SKEW_ACCURACY_SHEETS_H

#include "bench/drawing/painter.h"

namespace rastrel::accuracy {

using drawing::Fonts;
using drawing::Painter;
using drawing::Random;
using drawing::Screen;

struct Kind {
  const char* name;
  bool hasSkew;  // or else there is nothing to find
  void (*draw)(Painter&, Random&);
};

extern const Kind kKinds[];
extern const int kKindCount;

}  // namespace rastrel::accuracy

#endif
