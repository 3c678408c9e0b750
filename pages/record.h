// A record as JSON.
#ifndef RASTREL_PAGES_RECORD_H
#define RASTREL_PAGES_RECORD_H

#include <string>

#include "pages/clean.h"

namespace rastrel::pages {

// The whole of what was found and done, as the command prints it. Of a page that was only looked at, what was
// found.
std::string JsonOf(const CleanRecord& record);

}  // namespace rastrel::pages

#endif
