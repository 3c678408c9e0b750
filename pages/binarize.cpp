// The best quality
//
// Grey values are divided by the paper's, so that paper is 255 everywhere, and smoothed. Each pixel that
// could be ink (near anything darker than paper) then leans to ink or paper by two things:
//
//  - the Laplacian, how much darker the pixel is than those around it: it is positive inside of a stroke's
//  edge and
//    negative outside, however pale the stroke is;
//  - the darkness itself, against the one that parts the page's ink from its paper: for the inside of broad
//  strokes,
//    and against grain and show-through.
//
// Neighbours cost something if they end up different, the less the steeper the edge between them. The labels
// that cost least in all are a minimum cut (after Howe, 2013, who takes edges from Canny's detector and has
// no paper map).
#include "pages/binarize.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>
#include <vector>

#include "pages/components.h"
#include "pages/faint_strokes.h"
#include "pages/grow.h"
#include "pages/ink.h"
#include "pages/minimum_cut.h"
#include "pages/paper.h"
#include "pages/polarity.h"

namespace rastrel::pages {
namespace {

constexpr int kUsualDpi = 300;        // where nobody knows
constexpr int kLeastConfidence = 20;  // in the polarity

// The paper of blots and stains is wanted more closely than for finding ink: as on a page of two thirds the
// resolution.
constexpr int kFinerNumerator = 2, kFinerDenominator = 3;

// Specks of less than (dpi / 150) squared times 3 / 2 pixels go: 6 pixels at 300 dpi, where a full stop
// has 20.
constexpr int kSpeckDpi = 150;

// ---- best quality: parts of the darkness that parts ink from paper, in percent
// ---------------------------------

// Rounds of a 3 x 3 binomial: what grain and halftone dots need, less than a stroke. The Laplacian of
// smoothed strokes is positive beyond their edges, the further the thinner they are, so that quiet pages have
// one: such with a grain below this percentage of what parts ink from paper.
constexpr int kSmoothRounds = 3, kSmoothRoundsOfQuiet = 1;
constexpr int kQuietPercent = 5;
// What has less than this percentage of a stroke's darkness is its blurred rim; kRimReach pixels away is the
// stroke. Read from smoothed pixels where there is grain.
constexpr int kRimPercent = 40, kRimPercentOfQuiet = 42;
constexpr int kRimReach = 3;
constexpr int kCandidatePercent = 40;  // pixels that could be ink, with kCandidateRim around them
constexpr int kCandidateRim = 2;       // pixels
constexpr int kMiddlePercent = 90;     // where the darkness leans neither way
constexpr int kMostPercent = 50;       // beyond the middle by which darkness leans no further
constexpr int kMostLaplacian = 200;
constexpr int kEdgePercent = 25;   // a step between neighbours that parts them for nothing
constexpr int kSeedPercent = 130;  // a piece of ink gets that dark somewhere
// Weights, of a scale on which the parting darkness is kScale. Found on 24 pages of public contests, flat
// around.
constexpr int kScale = 64;
constexpr int kLaplacianWeight = 40, kDarknessWeight = 20;
constexpr int kTogetherCost = 600;

// Every pixel's brightness as a share of its paper's, 255 for paper and what is brighter.
BytePlane DividedByPaper(const BytePlane& grey, const PaperMap& paper) {
  std::array<uint32_t, 256> factors{};
  for (uint32_t i = 1; i < 256; ++i) factors[i] = (255 * 65536 + i / 2) / i;
  BytePlane divided(grey.width(), grey.height());
  std::vector<uint8_t> ground(static_cast<size_t>(grey.width()));
  for (int y = 0; y < grey.height(); ++y) {
    paper.BrightnessRow(y, ground);
    const uint8_t* from = grey.Row(y);
    uint8_t* to = divided.Row(y);
    for (int x = 0; x < grey.width(); ++x) {
      const uint32_t share = (from[x] * factors[ground[static_cast<size_t>(x)]] + 32768) >> 16;
      to[x] = static_cast<uint8_t>(std::min<uint32_t>(share, 255));
    }
  }
  return divided;
}

// Means weighted 1 2 1 along rows and columns; at the edges the last pixel goes on.
BytePlane Smoothed(const BytePlane& plane) {
  const int width = plane.width(), height = plane.height();
  BytePlane smooth(width, height);
  std::vector<uint16_t> sums(static_cast<size_t>(width) + 2);
  for (int y = 0; y < height; ++y) {
    const uint8_t* above = plane.Row(std::max(y - 1, 0));
    const uint8_t* row = plane.Row(y);
    const uint8_t* below = plane.Row(std::min(y + 1, height - 1));
    for (int x = 0; x < width; ++x) {
      sums[static_cast<size_t>(x) + 1] = static_cast<uint16_t>(above[x] + 2 * row[x] + below[x]);
    }
    sums.front() = sums[1];
    sums.back() = sums[static_cast<size_t>(width)];
    uint8_t* out = smooth.Row(y);
    const uint16_t* sum = sums.data();
    for (int x = 0; x < width; ++x) {
      out[x] = static_cast<uint8_t>((sum[x] + 2 * sum[x + 1] + sum[x + 2] + 8) >> 4);
    }
  }
  return smooth;
}

// The pixels darker than white by at least `darkness`.
BitPlane AtLeastAsDark(const BytePlane& plane, int darkness) {
  BitPlane mask(plane.width(), plane.height());
  for (int y = 0; y < plane.height(); ++y) {
    const uint8_t* row = plane.Row(y);
    uint64_t* bits = mask.Row(y);
    for (int x = 0; x < plane.width(); ++x) {
      bits[x / 64] |= static_cast<uint64_t>(255 - row[x] >= darkness ? 1 : 0) << (63 - x % 64);
    }
  }
  return mask;
}

// The greatest of each pixel and those up to `reach` around it, along rows and columns.
BytePlane GreatestAround(const BytePlane& plane, int reach) {
  const int width = plane.width(), height = plane.height();
  BytePlane across = plane, result(width, height);
  for (int y = 0; y < height; ++y) {
    const uint8_t* from = plane.Row(y);
    uint8_t* to = across.Row(y);
    for (int off = 1; off <= std::min(reach, width - 1); ++off) {
      for (int x = off; x < width; ++x) to[x] = std::max(to[x], from[x - off]);
      for (int x = 0; x < width - off; ++x) to[x] = std::max(to[x], from[x + off]);
    }
  }
  for (int y = 0; y < height; ++y) {
    uint8_t* to = result.Row(y);
    for (int row = std::max(y - reach, 0); row <= std::min(y + reach, height - 1); ++row) {
      const uint8_t* from = across.Row(row);
      for (int x = 0; x < width; ++x) to[x] = std::max(to[x], from[x]);
    }
  }
  return result;
}

// `divided` has 255 where paper is.
void TakeRimsAway(const BytePlane& divided, int percent, BitPlane& ink) {
  const int width = ink.width(), height = ink.height();
  BytePlane darkness(width, height);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      if (ink.Get(x, y)) darkness.Row(y)[x] = static_cast<uint8_t>(255 - divided.Row(y)[x]);
    }
  }
  const BytePlane strokes = GreatestAround(darkness, kRimReach);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      if (darkness.Row(y)[x] * 100 < strokes.Row(y)[x] * percent) ink.Clear(x, y);
    }
  }
}

// `dark` is what gets as dark as ink by itself.
BitPlane BestInk(const BytePlane& grey, const PaperMap& paper, BitPlane& dark) {
  const InkLevels levels = FindInkLevels(grey, paper);
  const int parting = levels.least * 255 / kDarknessUnit;
  const bool isQuiet = levels.grain * 100 < levels.least * kQuietPercent;
  const auto part = [&](int percent) { return std::max(parting * percent / 100, 1); };
  const BytePlane divided = DividedByPaper(grey, paper);
  const BytePlane little = Smoothed(divided);
  BytePlane smooth = little;
  for (int i = 1; i < (isQuiet ? kSmoothRoundsOfQuiet : kSmoothRounds); ++i) smooth = Smoothed(smooth);
  const BitPlane candidates = Widened(AtLeastAsDark(smooth, part(kCandidatePercent)), kCandidateRim);

  const int width = grey.width(), height = grey.height();
  // Nodes are counted row by row; of the row above their numbers are at hand.
  const Components pieces(candidates);
  int nodeCount = 0;
  for (const Component& piece : pieces.all()) nodeCount += static_cast<int>(piece.pixelCount);
  MinimumCut cut(nodeCount);
  std::vector<int> above(static_cast<size_t>(width), -1), row(above);
  const int middle = part(kMiddlePercent), most = part(kMostPercent), mostLaplacian = part(kMostLaplacian);
  const int edge = part(kEdgePercent);
  const auto together = [&](int one, int other) {
    return kTogetherCost * std::max(edge - std::abs(one - other), 0) / edge;
  };
  int node = 0;
  for (int y = 0; y < height; ++y) {
    const uint8_t* upper = smooth.Row(std::max(y - 1, 0));
    const uint8_t* here = smooth.Row(y);
    const uint8_t* lower = smooth.Row(std::min(y + 1, height - 1));
    std::fill(row.begin(), row.end(), -1);
    for (const InkRun& run : pieces.RunsOfRow(y)) {
      for (int x = run.left; x < run.right; ++x, ++node) {
        const auto column = static_cast<size_t>(x);
        row[column] = node;
        const int around = here[std::max(x - 1, 0)] + here[std::min(x + 1, width - 1)] + upper[x] + lower[x];
        const int laplacian = std::clamp(around - 4 * here[x], -mostLaplacian, mostLaplacian);
        const int darkness = std::clamp(255 - divided.Row(y)[x] - middle, -most, most);
        cut.SetLean(node, (kLaplacianWeight * laplacian + kDarknessWeight * darkness) * kScale / parting);
        if (x > run.left) cut.Join(node - 1, MinimumCut::kRight, node, together(here[x - 1], here[x]));
        if (above[column] >= 0) cut.Join(above[column], MinimumCut::kDown, node, together(upper[x], here[x]));
      }
    }
    above.swap(row);
  }
  cut.Solve();

  BitPlane all(width, height), ink(width, height);
  node = 0;
  for (int y = 0; y < height; ++y) {
    for (const InkRun& run : pieces.RunsOfRow(y)) {
      for (int x = run.left; x < run.right; ++x, ++node) {
        if (!cut.IsInk(node)) continue;
        all.Set(x, y);
        if (255 - divided.Row(y)[x] >= part(kSeedPercent)) ink.Set(x, y);
      }
    }
  }
  GrowInto(all, ink);
  TakeRimsAway(isQuiet ? divided : little, isQuiet ? kRimPercentOfQuiet : kRimPercent, ink);
  AddFaintStrokes(grey, paper, levels, &ink);
  dark = AtLeastAsDark(divided, parting);
  return ink;
}

// ---- around it
// -------------------------------------------------------------------------------------------------

// Where a pixel of a longer line lies on a shorter one: the pixel before it, and the weights of that, the one
// before and the two after by Catmull and Rom's curve, in parts that add up to kWhole.
struct Between {
  static constexpr int kShift = 14, kWhole = 1 << kShift;
  // Places are rounded to so many a pixel: the weights have 2 * 32^3 as their divisor, 4 * kWhole.
  static constexpr int64_t kSteps = 32;
  int first;
  int weights[4];
};
std::vector<Between> PlacesOf(int from, int to) {
  std::vector<Between> places(static_cast<size_t>(to));
  for (int i = 0; i < to; ++i) {
    // Middles of pixels lie on middles: (i + 1/2) from / to - 1/2, in steps from one pixel before the line.
    const int64_t steps =
        ((2 * int64_t{i} + 1) * from * Between::kSteps + to) / (2 * int64_t{to}) + Between::kSteps / 2;
    const auto t = static_cast<int>(steps % Between::kSteps);
    constexpr int kUnit = Between::kSteps, kSquare = kUnit * kUnit;
    const int cubic[4] = {-t * kSquare + 2 * t * t * kUnit - t * t * t,
                          2 * kUnit * kSquare - 5 * t * t * kUnit + 3 * t * t * t,
                          t * kSquare + 4 * t * t * kUnit - 3 * t * t * t, t * t * t - t * t * kUnit};
    Between& place = places[static_cast<size_t>(i)];
    place.first = static_cast<int>(steps / Between::kSteps) - 1;
    int sum = 0;
    for (int k = 0; k < 4; ++k) sum += place.weights[k] = (cubic[k] + 2) >> 2;
    place.weights[t < kUnit / 2 ? 1 : 2] += Between::kWhole - sum;
  }
  return places;
}

uint8_t Weighed(const int (&weights)[4], int a, int b, int c, int d) {
  const int sum = weights[0] * a + weights[1] * b + weights[2] * c + weights[3] * d;
  return static_cast<uint8_t>(std::clamp((sum + Between::kWhole / 2) >> Between::kShift, 0, 255));
}

// A larger page along a smooth curve through the pixels; at the edges the last pixel goes on.
BytePlane Enlarged(const BytePlane& plane, int width, int height) {
  BytePlane wide(width, plane.height()), result(width, height);
  const std::vector<Between> across = PlacesOf(plane.width(), width), down = PlacesOf(plane.height(), height);
  for (int y = 0; y < plane.height(); ++y) {
    const uint8_t* from = plane.Row(y);
    uint8_t* to = wide.Row(y);
    const auto at = [&](int x) { return from[std::clamp(x, 0, plane.width() - 1)]; };
    for (int x = 0; x < width; ++x) {
      const Between& place = across[static_cast<size_t>(x)];
      const int i = place.first;
      to[x] = Weighed(place.weights, at(i - 1), at(i), at(i + 1), at(i + 2));
    }
  }
  for (int y = 0; y < height; ++y) {
    const Between& place = down[static_cast<size_t>(y)];
    const auto row = [&](int i) { return wide.Row(std::clamp(place.first + i, 0, plane.height() - 1)); };
    const uint8_t *a = row(-1), *b = row(0), *c = row(1), *d = row(2);
    uint8_t* to = result.Row(y);
    for (int x = 0; x < width; ++x) to[x] = Weighed(place.weights, a[x], b[x], c[x], d[x]);
  }
  return result;
}

// The nearest pixels.
BitPlane Enlarged(const BitPlane& plane, int width, int height) {
  const auto nearest = [](int i, int from, int to) {
    return static_cast<int>((2 * int64_t{i} + 1) * from / (2 * int64_t{to}));
  };
  BitPlane result(width, height);
  for (int y = 0; y < height; ++y) {
    const int row = nearest(y, plane.height(), height);
    for (int x = 0; x < width; ++x) {
      if (plane.Get(nearest(x, plane.width(), width), row)) result.Set(x, y);
    }
  }
  return result;
}

// Specks are counted by their dark pixels: smoothing makes blobs of nine and more of single ones.
void TakeSpecksAway(const BitPlane& dark, int dpi, BitPlane& ink) {
  constexpr int64_t kMostOfBlob = 16;  // pixels of ink for one that is dark
  const int64_t fewest = int64_t{dpi} * dpi * 3 / (2 * kSpeckDpi * kSpeckDpi);
  const Components pieces(ink);
  for (const Component& piece : pieces.all()) {
    if (piece.pixelCount >= fewest * kMostOfBlob) continue;
    int64_t darkPixels = 0;
    for (const uint32_t place : pieces.RunsOf(piece)) {
      const InkRun& run = pieces.runs()[place];
      for (int x = run.left; x < run.right; ++x) darkPixels += dark.Get(x, run.row) ? 1 : 0;
    }
    if (darkPixels < fewest) EraseComponent(pieces, piece, &ink);
  }
}

// Floyd and Steinberg's error diffusion where `area` is set; errors stop at its edges.
void Dither(const BytePlane& grey, const BitPlane& area, BitPlane& ink) {
  const int width = grey.width();
  std::vector<int> errors(static_cast<size_t>(width) + 2), next(errors);
  for (int y = 0; y < grey.height(); ++y) {
    std::fill(next.begin(), next.end(), 0);
    int* error = errors.data() + 1;
    int* below = next.data() + 1;
    for (int x = 0; x < width; ++x) {
      if (!area.Get(x, y)) continue;
      const int value = grey.Row(y)[x] + error[x] / 16;
      const bool isBlack = value < 128;
      isBlack ? ink.Set(x, y) : ink.Clear(x, y);
      const int left = value - (isBlack ? 0 : 255);
      error[x + 1] += 7 * left;
      below[x - 1] += 3 * left;
      below[x] += 5 * left;
      below[x + 1] += left;
    }
    errors.swap(next);
  }
}

// Of a page with dark text.
BitPlane InkOf(const BytePlane& grey, int dpi, BinarizeQuality quality) {
  const PaperMap paper = FindPaper(grey, dpi * kFinerNumerator / kFinerDenominator);
  BitPlane ink, dark;
  if (quality == BinarizeQuality::kBest) {
    ink = BestInk(grey, paper, dark);
  } else {
    ink = dark = FindInk(grey, paper);
  }
  TakeSpecksAway(dark, dpi > 0 ? dpi : kUsualDpi, ink);
  return ink;
}

BytePlane Inverted(BytePlane plane) {
  for (uint8_t& value : plane.bytes()) value = static_cast<uint8_t>(255 - value);
  return plane;
}

}  // namespace

BitPlane Binarize(const BytePlane& grey, const BinarizeOptions& options) {
  if (grey.isEmpty()) return BitPlane(grey.width(), grey.height());
  if (options.width > grey.width() || options.height > grey.height()) {
    const int width = std::max(options.width, grey.width()), height = std::max(options.height, grey.height());
    BinarizeOptions enlarged = options;
    enlarged.width = enlarged.height = 0;
    enlarged.dpi = static_cast<int>((2 * int64_t{options.dpi} * width + grey.width()) / (2 * grey.width()));
    BitPlane pictures;
    if (options.pictures != nullptr) {
      pictures = Enlarged(*options.pictures, width, height);
      enlarged.pictures = &pictures;
    }
    return Binarize(Enlarged(grey, width, height), enlarged);
  }

  const Polarity polarity = FindPolarity(grey);
  const bool textIsLight = polarity.textIsLight && polarity.confidence >= kLeastConfidence;
  BitPlane black = InkOf(textIsLight ? Inverted(grey) : grey, options.dpi, options.quality);
  if (textIsLight) {
    for (int y = 0; y < black.height(); ++y) {
      uint64_t* row = black.Row(y);
      for (size_t word = 0; word < black.wordsPerRow(); ++word) row[word] = ~row[word];
      if (black.width() % 64 != 0) row[black.wordsPerRow() - 1] &= ~uint64_t{0} << (64 - black.width() % 64);
    }
  }
  if (options.pictures != nullptr) Dither(grey, *options.pictures, black);
  return black;
}

}  // namespace rastrel::pages
