// What stands on the pages that are cleaned for measurement.
#ifndef RASTREL_BENCH_PAGE_QUALITY_CONTENTS_H
#define RASTREL_BENCH_PAGE_QUALITY_CONTENTS_H

#include "bench/page_quality/typesetter.h"

namespace rastrel::quality {

// The sheets that a page is drawn on, one over the other: what is written, and marks in the margins that look
// like holes and are none.
struct Drawing {
  Typesetter& set;
  Painter& page;
  Painter& decoys;
  Random& random;
};

struct Content {
  const char* name;
  bool hasSkew;     // has lines to be straightened by
  bool isReadable;  // in English, so that a reader's words can be counted
  void (*draw)(Drawing&);
};

const Content& FindContent(const char* name);

}  // namespace rastrel::quality

#endif
