// The chain by which pages are cleaned: the page is understood, each step plans what it would take away or
// move, the plan is carried out, and the result is compared with the page that came in.
#ifndef RASTREL_PAGES_MODEL_CLEAN_H
#define RASTREL_PAGES_MODEL_CLEAN_H

#include "pages/clean.h"

namespace rastrel::pages {

// CleanPage up to the reduction.
Dib CleanByModel(Dib page, const CleanOptions& options, CleanRecord* record, Dib* overlay);

}  // namespace rastrel::pages

#endif
