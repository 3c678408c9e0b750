// How far points lie from a line through the origin, in fixed point, many at a time.
#ifndef RASTREL_PIXELS_LINE_DISTANCES_H
#define RASTREL_PIXELS_LINE_DISTANCES_H

#include <cstdint>

#include "pixels/kernels.h"

namespace rastrel {

// The distance of (x, y) is x * (highX / 2^14 + lowX / 2^29) + y * (highY / 2^14 + lowY / 2^29).
struct LineNormal {
  int16_t highX, highY;
  int16_t lowX, lowY;
};

constexpr int kPointsAtOnce = 64;

// Writes the distances of kPointsAtOnce points, x and y in turn, in units of 2^-16 and with one half added,
// as
//
//     4 * (highX * x + highY * y)  +  (lowX * x + lowY * y) / 2^13  +  2^15
//
// of which the last division rounds down. Returns false when some distance is less than five units from a
// half, so that which whole number is nearest is not certain. Distances are below 2^15.
using DistanceFunction = bool (*)(const int16_t* points, const LineNormal& normal, int32_t* distances);
extern const Kernel<DistanceFunction> kLineDistances;

}  // namespace rastrel

#endif
