#include "pages/blankness.h"

#include <algorithm>
#include <bit>
#include <vector>

namespace rastrel::pages {
namespace {

constexpr int kSide = 64;          // of the squares, in pixels; one word of a row
constexpr int kMarginPercent = 3;  // along each side, where shadows, rims and punched holes are
constexpr int kFewestPixels = 24;  // of ink in a square: a small letter; specks have fewer
constexpr int kMostPercent = 60;   // of a square covered: more is a dark area, not writing
constexpr int kFewestRows =
    4;  // that have ink: a letter is that high, a scratch or a fold along a row is not
constexpr int kFewestSquares = 1;  // a page number alone makes a page worth keeping
// An edge of print gets dark within three pixels by at least this share of the stroke's whole darkness; what
// shows through the paper is blurred by it.
constexpr int kSharpPercent = 45;
constexpr int kEdgeReach = 3;    // pixels before an edge
constexpr int kFewestEdges = 4;  // in a square, to judge it by

// Ink in one square: 64 pixels of each of its rows.
struct SquareOfInk {
  int pixels = 0, rows = 0;
  SquareOfInk(const BitPlane& ink, size_t word, int top, int bottom) {
    for (int y = top; y < bottom; ++y) {
      const int count = std::popcount(ink.Row(y)[word]);
      pixels += count;
      rows += count > 0 ? 1 : 0;
    }
  }
  bool LooksWritten() const {
    return pixels >= kFewestPixels && rows >= kFewestRows && pixels * 100 <= kSide * kSide * kMostPercent;
  }
};

// Whether the edges of the ink in a square are as steep as print: along rows, how much of the darkness of a
// stroke is reached within a few pixels.
bool IsSharp(const BytePlane& grey, const PaperMap& paper, const BitPlane& ink, int left, int top,
             int bottom) {
  int edges = 0;
  int64_t steep = 0, whole = 0;
  const int right = std::min(left + kSide, grey.width() - kEdgeReach);
  for (int y = top; y < bottom; ++y) {
    const uint8_t* row = grey.Row(y);
    for (int x = std::max(left, kEdgeReach); x < right; ++x) {
      if (!ink.Get(x, y) || ink.Get(x - 1, y)) continue;
      int darkest = row[x];  // of the stroke
      int end = x;
      while (end < right && ink.Get(end, y)) darkest = std::min<int>(darkest, row[end++]);
      const int darkness = paper.BrightnessAt(x, y) - darkest;
      if (darkness <= 0) continue;
      // Two pixels before the edge and the two in it, so that grain evens out.
      const int climb = (row[x - kEdgeReach] + row[x - kEdgeReach + 1] - row[x] - row[x + 1]) / 2;
      steep += std::clamp(climb, 0, darkness);
      whole += darkness;
      ++edges;
    }
  }
  return edges >= kFewestEdges && steep * 100 >= whole * kSharpPercent;
}

// Counts the squares off the margin for which `isWritten` says so.
template <class IsWritten>
Blankness CountSquares(const BitPlane& ink, IsWritten isWritten) {
  Blankness result;
  const int marginX = ink.width() * kMarginPercent / 100, marginY = ink.height() * kMarginPercent / 100;
  for (int top = marginY; top < ink.height() - marginY; top += kSide) {
    const int bottom = std::min(top + kSide, ink.height() - marginY);
    for (size_t word = 0; word < ink.wordsPerRow(); ++word) {
      const int left = static_cast<int>(word) * kSide;
      if (left < marginX || left + kSide > ink.width() - marginX) continue;
      if (!SquareOfInk(ink, word, top, bottom).LooksWritten()) continue;
      if (isWritten(left, top, bottom)) ++result.writtenSquares;
    }
  }
  result.isBlank = result.writtenSquares < kFewestSquares;
  return result;
}

}  // namespace

Blankness FindBlankness(const BytePlane& grey, const PaperMap& paper, const BitPlane& ink) {
  return CountSquares(ink, [&](int left, int top, int bottom) {
    const int row = std::min((top + bottom) / 2 / paper.cell(), paper.rows() - 1);
    const int column = std::min((left + kSide / 2) / paper.cell(), paper.columns() - 1);
    if (paper.confidence().Row(row)[column] == PaperMap::kNotPaper) return false;
    return IsSharp(grey, paper, ink, left, top, bottom);
  });
}

Blankness FindBlankness(const BitPlane& dark) {
  return CountSquares(dark, [](int, int, int) { return true; });
}

}  // namespace rastrel::pages
