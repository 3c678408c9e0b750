#include "geometry/rotation_walk.h"

#include <algorithm>

namespace rastrel::rotation {
namespace {

// pi / 180. Kept: more digits would shift single pixels at some angles, and callers of RotateDIB compare its
// pages with stored ones.
constexpr double kRadiansPerDegree = 0.01745329;

}  // namespace

// The remainder is exact, as taking 360 away again and
// again would be.
double RadiansOf(double degrees) {
  degrees = std::fmod(degrees, 360.0);
  if (degrees < 0) degrees += 360.0;
  if (degrees >= 360.0) degrees -= 360.0;  // a tiny negative angle is a full turn after rounding
  return degrees * kRadiansPerDegree;
}

Walk::Walk(const Turn& back, int halfWidth, int halfHeight, const ConstRows& source)
    : width(2 * halfWidth), height(2 * halfHeight) {
  // The source's centre is taken in whole pixels: the centre pixels meet, and an odd-sized page loses none.
  const auto sourceOf = [&](int right, int up) {
    const Position p = back({static_cast<double>(right), static_cast<double>(up)});
    return Position{p.x + source.width / 2, p.y + source.height / 2};
  };
  start = sourceOf(-halfWidth, -halfHeight);
  const Position top = sourceOf(-halfWidth, halfHeight - 1);
  const Position right = sourceOf(halfWidth - 1, -halfHeight);
  rowStep = {(top.x - start.x) / (height - 1), (top.y - start.y) / (height - 1)};
  x = Stepper(right.x - start.x, width);
  y = Stepper(right.y - start.y, width);
}

HalfSize::HalfSize(const Turn& turn, const ConstRows& source) {
  const double right = source.width / 2.0;
  const double top = source.height / 2.0;
  for (const Position corner :
       {Position{-right, -top}, Position{right, -top}, Position{-right, top}, Position{right, top}}) {
    const Position turned = turn(corner);
    width = std::max(width, static_cast<int>(std::fabs(turned.x) + 0.5));
    height = std::max(height, static_cast<int>(std::fabs(turned.y) + 0.5));
  }
}

}  // namespace rastrel::rotation
