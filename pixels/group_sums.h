// Sums of the pixels in groups of eight, by which pages are reduced. Each sum is added to what is there, in
// 16 bits.
#ifndef RASTREL_PIXELS_GROUP_SUMS_H
#define RASTREL_PIXELS_GROUP_SUMS_H

#include <cstdint>

namespace rastrel {

constexpr int kGroupPixels = 8;

// The set bits of each byte.
void AddBitGroups(const uint8_t* bytes, int groups, uint16_t* sums);

// The bytes of each group.
void AddByteGroups(const uint8_t* bytes, int groups, uint16_t* sums);

// A third of the 24 bytes of each group, rounded down.
void AddTripleGroups(const uint8_t* bytes, int groups, uint16_t* sums);

}  // namespace rastrel

#endif
