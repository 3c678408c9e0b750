// Rotation by any angle: each output row is walked with integer steps through the source.
#ifndef RASTREL_TESTS_REFERENCE_ROTATION_H
#define RASTREL_TESTS_REFERENCE_ROTATION_H

#include <algorithm>
#include <cmath>

#include "dib.h"

namespace reference {

struct Position {
  double x, y;
};

// Half away from zero.
inline int RoundToPixel(double v) { return static_cast<int>(v >= 0 ? v + 0.5 : v - 0.5); }

inline int32_t RotatedResolution(double value) {
  value += 0.5;
  const bool inRange = value > -2147483649.0 && value < 2147483648.0;  // false for not-a-number
  return inRange ? static_cast<int32_t>(value) : 0;
}

inline Block Rotate(const Block& block, double angleDegrees) {
  View source(block);
  const int width = source.width & 0xFFFF, height = source.height & 0xFFFF, bits = source.bits;
  source.stride = Stride(width, bits);
  if (!std::isfinite(angleDegrees) || width == 0 || height == 0) return {};
  if (bits != 1 && bits != 4 && bits != 8 && bits != 24) return {};

  if (std::fabs(angleDegrees) > 360000.0) angleDegrees = std::fmod(angleDegrees, 360.0);  // exact
  while (angleDegrees < 0) angleDegrees += 360.0;
  while (angleDegrees >= 360) angleDegrees -= 360.0;
  const double a = angleDegrees * 0.01745329;

  int hx = 0, hy = 0;
  for (const double x : {-width / 2.0, width / 2.0}) {
    for (const double y : {-height / 2.0, height / 2.0}) {
      hx = std::max(hx, static_cast<int>(std::fabs(x * std::cos(a) - y * std::sin(a)) + 0.5));
      hy = std::max(hy, static_cast<int>(std::fabs(x * std::sin(a) + y * std::cos(a)) + 0.5));
    }
  }
  const int outWidth = 2 * hx, outHeight = 2 * hy;
  const int64_t outStride = Stride(outWidth, bits);

  Block result = WithHeadOf(source, source.pixels + outStride * outHeight);
  const double s = std::sin(-a), c = std::cos(-a);
  const double xPels = SignedField(block, kXPelsPerMeter), yPels = SignedField(block, kYPelsPerMeter);
  SetField(result, kWidth, 4, outWidth);
  SetField(result, kHeight, 4, outHeight);
  SetField(result, kSizeImage, 4, outStride * outHeight);
  SetField(result, kXPelsPerMeter, 4,
           RotatedResolution((s * height + c * width) / (s * height / yPels + c * width / xPels)));
  SetField(result, kYPelsPerMeter, 4,
           RotatedResolution((s * width + c * height) / (s * width / xPels + c * height / yPels)));

  const auto image = [&](double x, double y) {
    return Position{(x * c - y * s) + width / 2, (x * s + y * c) + height / 2};  // whole halves
  };
  const Position origin = image(-hx, -hy), top = image(-hx, hy - 1), right = image(hx - 1, -hy);
  const Position rowStep{(top.x - origin.x) / (outHeight - 1), (top.y - origin.y) / (outHeight - 1)};
  const double dx = right.x - origin.x, dy = right.y - origin.y;
  const int sx = dx / (outWidth - 1) < 0 ? -1 : 1, sy = dy / (outWidth - 1) < 0 ? -1 : 1;
  const int d = outWidth - 1;
  const int dx2 = 2 * static_cast<int>(std::fabs(dx) + 0.5), dy2 = 2 * static_cast<int>(std::fabs(dy) + 0.5);

  Position start = origin;
  for (int j = 0; j < outHeight; ++j) {
    int x = RoundToPixel(start.x), y = RoundToPixel(start.y), column = 0, ex = 0, ey = 0;
    const auto step = [&] {
      ++column;
      ex += dx2;
      if (ex > d) {
        ex -= 2 * d;
        x += sx;
      }
      ey += dy2;
      if (ey > d) {
        ey -= 2 * d;
        y += sy;
      }
    };
    const auto notYetInside = [&] { return (sx > 0 ? x < 0 : x >= width) || (sy > 0 ? y < 0 : y >= height); };
    const auto stillInside = [&] { return (sx > 0 ? x < width : x >= 0) && (sy > 0 ? y < height : y >= 0); };

    while (notYetInside() && column < outWidth) step();
    for (; stillInside() && column < outWidth; step()) {
      OrPixel(result, source.pixels + j * outStride, column, bits, source.Pixel(x, y));
    }
    start.x += rowStep.x;
    start.y += rowStep.y;
  }
  return result;
}

}  // namespace reference

#endif
