// Turning by any angle, smoothly: every pixel on its own, in whole numbers.
#ifndef RASTREL_TESTS_REFERENCE_STRAIGHTENING_H
#define RASTREL_TESTS_REFERENCE_STRAIGHTENING_H

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "dib.h"

namespace reference {

// A page after quarter turns, with background around it.
struct QuarterTurned {
  const View& page;
  int quarters;
  int background;  // as a pixel

  bool isAcross() const { return quarters % 2 != 0; }
  int64_t width() const { return isAcross() ? page.height : page.width; }
  int64_t height() const { return isAcross() ? page.width : page.height; }
  int Pixel(int64_t x, int64_t y) const {
    if (x < 0 || y < 0 || x >= width() || y >= height()) return background;
    // What is at (x, y), y up, was a quarter clockwise of it before each turn.
    int64_t w = width(), h = height();
    for (int i = 0; i < quarters; ++i) {
      const int64_t before = y;
      y = w - 1 - x;
      x = before;
      std::swap(w, h);
    }
    return page.Pixel(static_cast<int>(x), y);
  }
};

// Whether a pixel of 1 bit is in a square of four that are alike.
inline bool IsInSquare(const QuarterTurned& page, int64_t x, int64_t y) {
  const int pixel = page.Pixel(x, y);
  for (const int64_t right : {-1, 1}) {
    for (const int64_t up : {-1, 1}) {
      if (page.Pixel(x + right, y) == pixel && page.Pixel(x, y + up) == pixel &&
          page.Pixel(x + right, y + up) == pixel) {
        return true;
      }
    }
  }
  return false;
}

inline Block Straighten(const Block& block, double angle, int quality, uint32_t background) {
  const View page(block);
  const bool sameSize = (quality & 0x100) != 0;
  bool isSmooth = (quality & 1) != 0;

  angle = std::fmod(angle, 360.0);
  int quarters = 0;
  for (; angle >= 45; angle -= 90) ++quarters;
  for (; angle < -45; angle += 90) --quarters;
  const double radians = angle * 0.017453292519943295, scale = 2147483648.0;
  const auto sine = static_cast<int64_t>(std::floor(std::sin(radians) * scale + 0.5));
  const auto cosine = static_cast<int64_t>(std::floor(std::cos(radians) * scale + 0.5));
  if (sine == 0) isSmooth = false;

  const Colour ground = {static_cast<int>(background >> 16 & 255), static_cast<int>(background >> 8 & 255),
                         static_cast<int>(background & 255)};
  const int groundPixel =
      page.bits == 24 ? ground.red << 16 | ground.green << 8 | ground.blue : NearestEntry(page, ground);
  const QuarterTurned source = {page, quarters & 3, groundPixel};
  const int64_t sourceWidth = source.width(), sourceHeight = source.height();

  int64_t width = page.width, height = page.height;
  if (!sameSize) {
    width = sourceWidth, height = sourceHeight;
    const auto holds = [&](int64_t size, int64_t along, int64_t across) {
      return (size + 1) * (int64_t{1} << 31) >= along * cosine + across * std::abs(sine);
    };
    while (width > 2 && holds(width - 2, sourceWidth, sourceHeight)) width -= 2;
    while (!holds(width, sourceWidth, sourceHeight)) width += 2;
    while (height > 2 && holds(height - 2, sourceHeight, sourceWidth)) height -= 2;
    while (!holds(height, sourceHeight, sourceWidth)) height += 2;
  }

  const int64_t stride = Stride(width, page.bits);
  Block result = WithHeadOf(page, page.pixels + stride * height);
  SetField(result, kWidth, 4, width);
  SetField(result, kHeight, 4, height);
  SetField(result, kSizeImage, 4, stride * height);
  if (source.isAcross()) {
    SetField(result, kXPelsPerMeter, 4, SignedField(block, kYPelsPerMeter));
    SetField(result, kYPelsPerMeter, 4, SignedField(block, kXPelsPerMeter));
  }

  const int64_t entries = std::min<int64_t>(page.colours, 256);
  if (page.bits == 4 || page.bits == 8) {
    for (int i = 0; i < std::min<int64_t>(entries, int64_t{1} << page.bits); ++i) {
      isSmooth = isSmooth && page.Entry(i).IsGrey();
    }
  }

  std::vector<int> nearestToGrey;
  for (int grey = 0; isSmooth && page.bits <= 8 && grey < 256; ++grey) {
    nearestToGrey.push_back(NearestEntry(page, {grey, grey, grey}));
  }

  // In units of 2^-15 pixels. With sizes that differ by an odd number, the result's counts one more.
  constexpr int64_t kOne = 1 << 15;
  const int64_t evenWidth = width + (width + sourceWidth) % 2,
                evenHeight = height + (height + sourceHeight) % 2;
  const auto part = [](int64_t halves, int64_t factor) { return (halves * factor) >> 17; };
  for (int64_t row = 0; row < height; ++row) {
    const int64_t up = 2 * row + 1 - evenHeight;
    for (int column = 0; column < width; ++column) {
      const int64_t right = 2 * column + 1 - evenWidth;
      const int64_t exactX = part(right, cosine) + part(up, sine) + (sourceWidth - 1) * kOne / 2;
      const int64_t exactY = part(right, -sine) + part(up, cosine) + (sourceHeight - 1) * kOne / 2;
      const bool isMixed = isSmooth && page.bits != 1;
      const int64_t x = exactX + (isMixed ? kOne / 512 : 0), y = exactY + (isMixed ? kOne / 512 : 0);
      const int64_t left = x >> 15, below = y >> 15, fx = x - left * kOne, fy = y - below * kOne;
      const int nearest = source.Pixel((exactX + kOne / 2) >> 15, (exactY + kOne / 2) >> 15);
      int pixel = nearest;
      const int four[] = {source.Pixel(left, below), source.Pixel(left + 1, below),
                          source.Pixel(left, below + 1), source.Pixel(left + 1, below + 1)};
      if (isSmooth && page.bits == 1) {
        const int ones = four[0] + four[1] + four[2] + four[3];
        const bool isLone = (ones == 1 && nearest == 1) || (ones == 3 && nearest == 0);
        const int64_t share = std::max(fx, kOne - fx) * std::max(fy, kOne - fy);
        bool areInSquares = true;
        for (const int64_t i : {0, 1, 2, 3}) {
          areInSquares = areInSquares && IsInSquare(source, left + i % 2, below + i / 2);
        }
        if (isLone && areInSquares && share / 65536 < 16384 * 42 / 100) pixel = 1 - nearest;
      } else if (isSmooth) {
        pixel = 0;
        const int64_t r = fx / 128, u = fy / 128;
        for (int shift = 0; shift < (page.bits == 24 ? 24 : 8); shift += 8) {
          const auto value = [&](int i) {
            if (page.bits == 24) return four[i] >> shift & 255;
            return four[i] < entries ? page.Entry(four[i]).red : 0;
          };
          const int64_t low = value(0) * (256 - r) + value(1) * r, high = value(2) * (256 - r) + value(3) * r;
          pixel |= static_cast<int>((low - low * u / 256 + high * u / 256 + 128) / 256) << shift;
        }
        if (page.bits != 24) pixel = nearestToGrey[static_cast<size_t>(pixel)];
      }
      OrPixel(result, page.pixels + row * stride, column, page.bits, pixel);
    }
  }
  return result;
}

}  // namespace reference

#endif
