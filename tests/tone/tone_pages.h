// Pages that bring out how tones are reduced.
#ifndef RASTREL_TESTS_TONE_TONE_PAGES_H
#define RASTREL_TESTS_TONE_TONE_PAGES_H

#include <rastrel.h>

#include <vector>

#include "tests/support/test_dib.h"

namespace rastrel::testing {

// A block with random padding and a few bytes of slack. By the seed, pixels are random, or long runs of black
// and white between some greys (where errors are 0 and cells keep what they hold); the colour table is a
// grey ramp, random, or shorter than the indices reach.
Bytes TonePage(int bits, int width, int height, unsigned seed);

// A page of 8 bits, greys as given: rows as stored, the first one at the bottom.
TestDib GreyPage(const std::vector<std::vector<int>>& storedRows);

// A page of 24 bits, pixels 0xRRGGBB, rows as stored.
TestDib ColourPage(const std::vector<std::vector<Pixel>>& storedRows);

// The pixels of a page, rows as stored.
std::vector<std::vector<Pixel>> StoredRows(const TestDib& page);

}  // namespace rastrel::testing

#endif
