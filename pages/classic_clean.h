// The chain of operations by which pages are cleaned without a model of them: sheet, borders, holes, specks,
// skew, each on what the one before has left.
#ifndef RASTREL_PAGES_CLASSIC_CLEAN_H
#define RASTREL_PAGES_CLASSIC_CLEAN_H

#include "pages/clean.h"

namespace rastrel::pages {

// CleanPage up to the reduction.
Dib CleanClassically(Dib page, const CleanOptions& options, CleanRecord* record, Dib* overlay);

}  // namespace rastrel::pages

#endif
