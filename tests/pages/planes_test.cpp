#include "pages/planes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace rastrel::pages {
namespace {

// Memory of the planes before is used again, whole or in part.
TEST(Planes, AreBlankWhateverStoodInTheirMemory) {
  for (const int side : {1024, 900, 1500, 2999}) {
    std::vector<BytePlane> used;
    for (int i = 0; i < 14; ++i) used.emplace_back(side, side, uint8_t{0xAB});
    used.clear();
    const BytePlane bytes(side - 100, side);
    const BitPlane bits(3 * side, 2 * side);
    EXPECT_TRUE(std::all_of(bytes.bytes().begin(), bytes.bytes().end(), [](uint8_t b) { return b == 0; }));
    EXPECT_TRUE(std::all_of(bits.words().begin(), bits.words().end(), [](uint64_t w) { return w == 0; }));
  }
}

}  // namespace
}  // namespace rastrel::pages
