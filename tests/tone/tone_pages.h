// Pages that bring out how tones are reduced.
#ifndef RASTREL_TESTS_TONE_TONE_PAGES_H
#define RASTREL_TESTS_TONE_TONE_PAGES_H

#include <rastrel.h>

#include <vector>

#include "tests/support/test_dib.h"

namespace rastrel::testing {

// A page of 8 bits, greys as given: rows as stored, the first one at the bottom.
TestDib GreyPage(const std::vector<std::vector<int>>& storedRows);

// A page of 24 bits, pixels 0xRRGGBB, rows as stored.
TestDib ColourPage(const std::vector<std::vector<Pixel>>& storedRows);

// The pixels of a page, rows as stored.
std::vector<std::vector<Pixel>> StoredRows(const TestDib& page);

}  // namespace rastrel::testing

#endif
