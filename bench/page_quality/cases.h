// The pages that cleaning is measured on: what stands on each and what happened to it.
#ifndef RASTREL_BENCH_PAGE_QUALITY_CASES_H
#define RASTREL_BENCH_PAGE_QUALITY_CASES_H

#include <vector>

#include "bench/page_quality/soil.h"

namespace rastrel::quality {

struct Condition {
  const char* name;
  void (*apply)(Soil&);
};

struct Case {
  const char *condition, *content;
  int dpi, bits;
  double degrees;
};

extern const std::vector<Case> kCases;
const Condition& FindCondition(const char* name);

}  // namespace rastrel::quality

#endif
