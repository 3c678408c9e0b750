#include "pages/polarity.h"

#include <algorithm>
#include <bit>
#include <cstdlib>

namespace rastrel::pages {
namespace {

constexpr int kSide = 64;           // of the squares that vote, in pixels: a line or two of text at 300 dpi
constexpr int kRowStep = 4;         // every fourth row is looked at
constexpr int kLeastContrast = 24;  // grey levels between the ends of a square; grain has less
// Changes between dark and light along a row of a square, in the mean. Text has several; an edge of a bar or
// a sheet has one; halftones have one every two or three pixels.
constexpr int kFewestChanges = 2;
constexpr int kMostChanges = 16;
constexpr int kFewestSquares = 3;  // with writing; fewer are no text to go by
constexpr int kEvenPercent = 4;    // a square this near to half and half has no vote

// What the squares say.
struct Votes {
  int dark = 0, light = 0, squares = 0;

  // `darkPixels` and `changes` of a square, in `rows` rows of `width` pixels.
  void Add(int darkPixels, int changes, int rows, int width) {
    if (changes < kFewestChanges * rows || changes > kMostChanges * rows) return;
    const int darkPercent = 100 * darkPixels / (rows * width);
    if (darkPercent <= 0 || darkPercent >= 100 || std::abs(darkPercent - 50) < kEvenPercent) return;
    ++squares;
    ++(darkPercent < 50 ? dark : light);
  }

  Polarity Result() const {
    Polarity result;
    if (squares < kFewestSquares) return result;
    result.textIsLight = light > dark;
    result.confidence = 100 * std::abs(light - dark) / (light + dark);
    return result;
  }
};

}  // namespace

Polarity FindPolarity(const BytePlane& grey) {
  Votes votes;
  for (int top = 0; top + kSide <= grey.height(); top += kSide) {
    for (int left = 0; left + kSide <= grey.width(); left += kSide) {
      uint8_t least = 255, most = 0;
      for (int y = top; y < top + kSide; y += kRowStep) {
        const uint8_t* row = grey.Row(y) + left;
        for (int x = 0; x < kSide; ++x) {
          least = std::min(least, row[x]);
          most = std::max(most, row[x]);
        }
      }
      if (most - least < kLeastContrast) continue;
      const int middle = (least + most) / 2;
      int darkPixels = 0, changes = 0;
      for (int y = top; y < top + kSide; y += kRowStep) {
        const uint8_t* row = grey.Row(y) + left;
        for (int x = 0; x < kSide; ++x) darkPixels += row[x] < middle ? 1 : 0;
        for (int x = 1; x < kSide; ++x) changes += (row[x] < middle) != (row[x - 1] < middle) ? 1 : 0;
      }
      votes.Add(darkPixels, changes, kSide / kRowStep, kSide);
    }
  }
  return votes.Result();
}

Polarity FindPolarity(const BitPlane& dark) {
  Votes votes;
  const size_t wholeWords = static_cast<size_t>(dark.width()) / 64;
  for (int top = 0; top + kSide <= dark.height(); top += kSide) {
    for (size_t word = 0; word < wholeWords; ++word) {
      int darkPixels = 0, changes = 0;
      for (int y = top; y < top + kSide; y += kRowStep) {
        const uint64_t bits = dark.Row(y)[word];
        darkPixels += std::popcount(bits);
        changes += std::popcount((bits ^ bits >> 1) & ~(uint64_t{1} << 63));
      }
      votes.Add(darkPixels, changes, kSide / kRowStep, kSide);
    }
  }
  return votes.Result();
}

}  // namespace rastrel::pages
