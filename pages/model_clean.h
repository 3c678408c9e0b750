// The chain by which pages are cleaned: the page is understood, each step plans what it would take away or
// move, the plan is carried out, and the result is compared with the page that came in.
#ifndef RASTREL_PAGES_MODEL_CLEAN_H
#define RASTREL_PAGES_MODEL_CLEAN_H

#include "pages/check.h"
#include "pages/clean.h"

namespace rastrel::pages {

// What the page that goes out is compared with: the ink of the page that came in.
struct InkBefore {
  BitPlane ink;
  BytePlane grey;
  BitPlane named;     // what was removed of it
  Movement movement;  // to the page that goes out
};

// CleanPage up to the reduction.
Dib CleanByModel(Dib page, const CleanOptions& options, CleanRecord* record, Dib* overlay, InkBefore* before);

}  // namespace rastrel::pages

#endif
