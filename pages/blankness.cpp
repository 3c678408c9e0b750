#include "pages/blankness.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <vector>

namespace rastrel::pages {
namespace {

constexpr int kSide = 64;          // of the squares, in pixels
constexpr int kStep = 32;          // from one square to the next, so that no word falls between two
constexpr int kMarginPercent = 3;  // along each side, where shadows, rims and punched holes are
constexpr int kMostPercent = 60;   // of a square covered: more is a dark area, not writing
// Of ink in a square from 150 dpi on: a small letter; specks have fewer. Strokes are a pixel wide on coarser
// pages, so that only their length shrinks.
constexpr int kFewestPixels = 24, kFewestOfAny = 8, kFewestPerScale = 48;
// That have ink: a letter is that high, a scratch or a fold along a row is not.
constexpr int kFewestRows = 4, kFewestRowsOfAny = 3;
constexpr int kFewestSquares = 1;  // a page number alone makes a page worth keeping
// An edge of print gets dark within three pixels by at least this share of the stroke's whole darkness; what
// shows through the paper is blurred by it.
// The second is asked of pale marks, of which stains and show-through make many.
constexpr int kSharpPercent = 45, kSharpPercentOfPale = 75;
constexpr int kEdgeReach = 3;    // pixels before an edge
constexpr int kFewestEdges = 4;  // in a square, to judge it by

// How much ink makes a square written, at a resolution.
struct Fewest {
  int pixels, rows;
  explicit Fewest(double pixelsPerPoint)
      : pixels(std::clamp(static_cast<int>(kFewestPerScale * pixelsPerPoint), kFewestOfAny, kFewestPixels)),
        rows(pixels <= kFewestPixels / 2 ? kFewestRowsOfAny : kFewestRows) {}
};

// Ink in one square, whose left is a multiple of kStep.
struct SquareOfInk {
  int pixels = 0, rows = 0;
  int inLine = 0;                   // pixels with ink on two opposite sides: of strokes, not of grain
  uint64_t through = ~uint64_t{0};  // columns that are ink in every row
  uint64_t columns = 0;             // columns that have ink
  SquareOfInk(const BitPlane& ink, int left, int top, int bottom) {
    const auto word = static_cast<size_t>(left) / kSide;
    const bool isWhole = left % kSide == 0;
    const auto bitsOf = [&](int y) {
      const uint64_t* row = ink.Row(y) + word;
      return isWhole ? row[0] : row[0] << kStep | row[1] >> kStep;
    };
    uint64_t above = 0, bits = bitsOf(top);
    for (int y = top; y < bottom; ++y) {
      const uint64_t below = y + 1 < bottom ? bitsOf(y + 1) : 0;
      const int count = std::popcount(bits);
      through &= bits;
      columns |= bits;
      pixels += count;
      inLine += std::popcount(bits & ((above & below) | (bits << 1 & bits >> 1)));
      rows += count > 0 ? 1 : 0;
      above = bits;
      bits = below;
    }
  }
  // A rule, or the rim of a surround.
  bool IsBar() const {
    constexpr int kThin = 3, kLong = 24;  // pixels
    return (through != 0 && rows == kSide) || (std::popcount(columns) <= kThin && rows >= kLong);
  }
  bool LooksWritten(const Fewest& fewest) const {
    constexpr int kInLinePercent = 60;  // of the fewest pixels
    return pixels >= fewest.pixels && rows >= fewest.rows && inLine * 100 >= fewest.pixels * kInLinePercent &&
           pixels * 100 <= kSide * kSide * kMostPercent && !IsBar();
  }
};

// Whether the edges of the ink in a square are as steep as print: along rows, how much of the darkness of a
// stroke is reached within a few pixels.
bool IsSharp(const BytePlane& grey, const PaperMap& paper, const BitPlane& ink, int left, int top, int bottom,
             int sharpPercent, bool isCoarse) {
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
      // Two pixels before the edge and two in it, so that grain evens out; fewer where strokes are thin and
      // close, as small letters on a coarse page are.
      const int before = isCoarse && ink.Get(x - 2, y)   ? 2 * row[x - 1]
                         : isCoarse && ink.Get(x - 3, y) ? 2 * row[x - 2]
                                                         : row[x - 3] + row[x - 2];
      const int within = isCoarse && end - x < 2 ? 2 * row[x] : row[x] + row[x + 1];
      const int climb = (before - within) / 2;
      steep += std::clamp(climb, 0, darkness);
      whole += darkness;
      ++edges;
    }
  }
  return edges >= kFewestEdges && steep * 100 >= whole * sharpPercent;
}

// Whether a square is for the most part paper, and not the rim of what lies around the sheet.
bool IsPaper(const PaperMap& paper, int left, int top, int bottom) {
  constexpr int kMostNotPaperPercent = 25;  // of its cells
  const int right = std::min(left + kSide, paper.width());
  int cells = 0, notPaper = 0;
  for (int row = top / paper.cell(); row <= (bottom - 1) / paper.cell(); ++row) {
    const uint8_t* confidence = paper.confidence().Row(row);
    for (int column = left / paper.cell(); column <= (right - 1) / paper.cell(); ++column, ++cells)
      notPaper += confidence[column] == PaperMap::kNotPaper ? 1 : 0;
  }
  return notPaper * 100 <= cells * kMostNotPaperPercent;
}

// Counts the squares off the margin for which `isWritten` says so.
template <class IsWritten>
Blankness CountSquares(const BitPlane& ink, double pixelsPerPoint, IsWritten isWritten) {
  Blankness result;
  const Fewest fewest(pixelsPerPoint);
  const int marginX = ink.width() * kMarginPercent / 100, marginY = ink.height() * kMarginPercent / 100;
  for (int top = marginY; top < ink.height() - marginY; top += kStep) {
    const int bottom = std::min(top + kSide, ink.height() - marginY);
    for (int left = (marginX + kStep - 1) / kStep * kStep; left + kSide <= ink.width() - marginX;
         left += kStep) {
      if (!SquareOfInk(ink, left, top, bottom).LooksWritten(fewest)) continue;
      if (isWritten(left, top, bottom)) ++result.writtenSquares;
    }
  }
  result.isBlank = result.writtenSquares < kFewestSquares;
  return result;
}

// ---- a second look
// ----------------------------------------------------------------------------------------

// The means of the squares of pixels up to `reach` around each, as far as they are on the page.
BytePlane MeanAround(const BytePlane& plane, int reach) {
  const int width = plane.width(), height = plane.height();
  BytePlane result(width, height);
  std::vector<int32_t> columns(static_cast<size_t>(width), 0);
  const auto add = [&](int y, int32_t sign) {
    if (y < 0 || y >= height) return;
    const uint8_t* row = plane.Row(y);
    for (int x = 0; x < width; ++x) columns[static_cast<size_t>(x)] += sign * row[x];
  };
  for (int y = 0; y < reach; ++y) add(y, 1);
  for (int y = 0; y < height; ++y) {
    add(y + reach, 1);
    add(y - reach - 1, -1);
    const int rows = std::min(y + reach, height - 1) - std::max(y - reach, 0) + 1;
    uint8_t* to = result.Row(y);
    int32_t sum = 0;
    for (int x = 0; x < std::min(reach, width); ++x) sum += columns[static_cast<size_t>(x)];
    for (int x = 0; x < width; ++x) {
      if (x + reach < width) sum += columns[static_cast<size_t>(x + reach)];
      if (x - reach - 1 >= 0) sum -= columns[static_cast<size_t>(x - reach - 1)];
      const int across = std::min(x + reach, width - 1) - std::max(x - reach, 0) + 1;
      to[x] = static_cast<uint8_t>(sum / (across * rows));
    }
  }
  return result;
}

// Marks that stand out of the grain of what is around them, however pale: the ink of a page is judged against
// all of the page, and a pale word says little beside a gutter's shadow or the noise of dark paper.
BitPlane FaintMarks(const BytePlane& smooth, double pixelsPerPoint) {
  constexpr double kAround = 16;    // points: more than a stroke, less than a shadow
  constexpr int kLeastPercent = 4;  // of the brightness around: the palest pencil
  constexpr int kAboveGrain = 6;    // medians of the differences: four times the spread of even grain
  const int width = smooth.width(), height = smooth.height();
  const BytePlane around = MeanAround(smooth, std::max(4, static_cast<int>(kAround * pixelsPerPoint)));
  int64_t counts[256] = {};
  for (size_t i = 0; i < smooth.bytes().size(); ++i)
    ++counts[std::abs(around.bytes()[i] - smooth.bytes()[i])];
  int grain = 0;
  for (int64_t below = counts[0]; 2 * below < int64_t{width} * height && grain < 255; below += counts[grain])
    ++grain;
  const int least = kAboveGrain * std::max(grain, 1);
  BitPlane marks(width, height);
  for (int y = 0; y < height; ++y) {
    const uint8_t *row = smooth.Row(y), *ground = around.Row(y);
    for (int x = 0; x < width; ++x) {
      if (ground[x] - row[x] >= std::max(least, ground[x] * kLeastPercent / 100)) marks.Set(x, y);
    }
  }
  return marks;
}

}  // namespace

Blankness FindBlankness(const BytePlane& grey, const PaperMap& paper, const BitPlane& ink,
                        double pixelsPerPoint) {
  // Strokes of a single pixel.
  const bool isCoarse = Fewest(pixelsPerPoint).pixels < kFewestPixels;
  const Blankness found = CountSquares(ink, pixelsPerPoint, [&](int left, int top, int bottom) {
    return IsPaper(paper, left, top, bottom) &&
           IsSharp(grey, paper, ink, left, top, bottom, kSharpPercent, isCoarse);
  });
  if (!found.isBlank) return found;
  const BytePlane smooth = MeanAround(grey, 1);
  const BitPlane marks = FaintMarks(smooth, pixelsPerPoint);
  return CountSquares(marks, pixelsPerPoint, [&](int left, int top, int bottom) {
    return IsPaper(paper, left, top, bottom) &&
           IsSharp(smooth, paper, marks, left, top, bottom, kSharpPercentOfPale, false);
  });
}

Blankness FindBlankness(const BitPlane& dark, double pixelsPerPoint) {
  return CountSquares(dark, pixelsPerPoint, [](int, int, int) { return true; });
}

}  // namespace rastrel::pages
