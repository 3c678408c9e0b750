// The geometry of a rotation: where the pixels of the new page come from.
#ifndef RASTREL_GEOMETRY_ROTATION_WALK_H
#define RASTREL_GEOMETRY_ROTATION_WALK_H

#include <cmath>
#include <cstdint>

#include "frame/dib.h"
#include "geometry/places.h"

namespace rastrel::rotation {

using Position = Point<double>;
using Columns = Interval<int>;

// A counter-clockwise turn about the origin; y points up.
class Turn {
 public:
  explicit Turn(double radians) : sine_(std::sin(radians)), cosine_(std::cos(radians)) {}

  double sine() const { return sine_; }
  double cosine() const { return cosine_; }
  Position operator()(Position p) const { return {p.x * cosine_ - p.y * sine_, p.x * sine_ + p.y * cosine_}; }

 private:
  double sine_, cosine_;
};

// Returns the angle within a full turn, in radians.
double RadiansOf(double degrees);

// Half away from zero.
inline int Round(double value) { return static_cast<int>(value < 0 ? value - 0.5 : value + 0.5); }

// How one source coordinate moves along a row: each column adds twice the row's whole change to an error that
// starts at 0, and an error above the number of the last column, D, is a step of one pixel that takes 2 D
// off. After n columns that makes floor((2 n change + D - 1) / 2 D) steps.
class Stepper {
 public:
  Stepper() = default;
  // `change` is that of the coordinate from the first to the last of `columns` columns, at least 2.
  Stepper(double change, int columns)
      : change_(Round(std::fabs(change))), last_(columns - 1), sign_(change < 0 ? -1 : 1) {}

  int sign() const { return sign_; }
  int64_t change() const { return change_; }

  int64_t Steps(int64_t column) const { return (2 * column * change_ + last_ - 1) / (2 * last_); }

  // Returns the first column at which at least `steps` steps have been made, or the number of columns.
  int FirstColumn(int64_t steps) const {
    if (steps <= 0) return 0;
    if (steps > change_) return static_cast<int>(last_ + 1);
    // The smallest n with 2 n change + D - 1 >= 2 D steps.
    return static_cast<int>((2 * last_ * steps - last_ + 2 * change_) / (2 * change_));
  }

  // Returns the columns at which a coordinate that starts at `start` is one of `size` pixels. Steps go one
  // way only, so they are an interval: from where the coordinate has entered to where it leaves.
  Columns Inside(int start, int size) const {
    if (sign_ > 0) return {FirstColumn(-start), FirstColumn(size - start)};
    return {FirstColumn(start - size + 1), FirstColumn(start + 1)};
  }

  // Writes the signed steps at `count` columns from `first` on.
  void Tabulate(int first, int count, int32_t* steps) const {
    const int64_t before = Steps(first);
    auto position = static_cast<int32_t>(sign_ * before);
    auto error = static_cast<int32_t>(2 * first * change_ - 2 * last_ * before);
    for (int n = 0; n < count; ++n) {
      steps[n] = position;
      error += static_cast<int32_t>(2 * change_);
      if (error > last_) {
        error -= static_cast<int32_t>(2 * last_);
        position += sign_;
      }
    }
  }

 private:
  int64_t change_ = 0;
  int64_t last_ = 1;
  int sign_ = 1;
};

// Where the pixels of the new page come from.
struct Walk {
  int width, height;  // of the new page
  Position start;     // source position of its first pixel
  Position rowStep;
  Stepper x, y;

  Walk(const Turn& back, int halfWidth, int halfHeight, const ConstRows& source);

  // Columns that lie side by side in one source row, on average, and left to right there; 0 when turned the
  // other way.
  int64_t MeanRun() const {
    if (x.sign() < 0) return 0;
    return width / (y.change() + (width - 1 - x.change()) + 1);
  }
};

// Half the new width and height: where the farthest corner lies, rounded. At least 1, as |sine| + |cosine|
// is.
struct HalfSize {
  int width = 0, height = 0;

  HalfSize(const Turn& turn, const ConstRows& source);
};

}  // namespace rastrel::rotation

#endif
