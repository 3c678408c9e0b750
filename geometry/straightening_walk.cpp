#include "geometry/straightening_walk.h"

#include <cmath>
#include <cstdlib>

namespace rastrel::straightening {
namespace {

constexpr double kRadiansPerDegree = 0.017453292519943295;  // pi / 180

// The series, as far as counts within an eighth of a turn. The system's functions differ in last digits.
double Sine(double x) {
  const double q = x * x;
  return x * (1 - q / 6 * (1 - q / 20 * (1 - q / 42 * (1 - q / 72 * (1 - q / 110)))));
}
double Cosine(double x) {
  const double q = x * x;
  return 1 - q / 2 * (1 - q / 12 * (1 - q / 30 * (1 - q / 56 * (1 - q / 90 * (1 - q / 132)))));
}

// In units of 2^-31.
int64_t InUnits(double value) { return static_cast<int64_t>(std::floor(value * 2147483648.0 + 0.5)); }

}  // namespace

Turn::Turn(double degrees) {
  const double withinTurn = std::fmod(degrees, 360.0);
  const double nearest = std::floor((withinTurn + 45) / 90);
  const double radians = (withinTurn - 90 * nearest) * kRadiansPerDegree;  // the difference is exact
  quarters = static_cast<int>(nearest) & 3;
  sine = InUnits(Sine(radians));
  cosine = InUnits(Cosine(radians));
}

Size SizeOfWhole(const Turn& turn, Size page) {
  const auto whole = [](int64_t along, int64_t across, int64_t size) {  // both in units of 2^-31
    const int64_t growth = along - (size << 31) + across - (int64_t{1} << 31);
    constexpr int64_t kTwo = int64_t{2} << 31;
    return size + 2 * ((growth + kTwo - 1) >> 32);
  };
  const int64_t sine = std::abs(turn.sine);
  return {whole(turn.cosine * page.width, sine * page.height, page.width),
          whole(turn.cosine * page.height, sine * page.width, page.height)};
}

}  // namespace rastrel::straightening
