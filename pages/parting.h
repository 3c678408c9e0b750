// Parting a histogram in two.
#ifndef RASTREL_PAGES_PARTING_H
#define RASTREL_PAGES_PARTING_H

#include <cstddef>
#include <cstdint>
#include <span>

namespace rastrel::pages {

// The first value of the upper class where a histogram is parted into two classes of least spread within
// (Otsu 1979); the middle of the range where there are no two classes.
int PartingValue(std::span<const int64_t> counts);

}  // namespace rastrel::pages

#endif
