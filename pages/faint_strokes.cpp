#include "pages/faint_strokes.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <optional>
#include <vector>

#include "pages/components.h"
#include "pages/dividing.h"
#include "pages/grow.h"

namespace rastrel::pages {
namespace {

// A faint stroke gets this dark somewhere, in percent of what the page's ink is at least, and is followed
// down to the second part of that; both stay so many medians above the grain.
constexpr int kLeastPercent = 45, kFollowedPercent = 70;
constexpr int kAboveGrain = 6, kFollowedAboveGrain = 4;
constexpr int kRim = 3;     // pixels around ink that are its own blurred rim
constexpr int kFewest = 6;  // pixels of a piece: less is grain
// How sharp a piece is at least, in percent of the page's own ink, and never asked to be sharper than the
// second, in percent of its darkness: an edge over four pixels.
constexpr int kSharpOfOwn = 75, kSharpEnough = 50;

// A page is judged in squares of about so many cells of the paper map (15 mm), each with so many around it.
constexpr int kSideInCells = 10, kSquaresAround = 3;
// There the faint pieces' edges rise on average by this percentage of what the page's own ink has, or of this
// one's darkness where its own is sharper; for each pixel that is neither paper nor near a faint stroke there
// are so many of faint strokes; and no more than this percentage of their pixels is in pieces that ink cuts.
constexpr int kMeanSharpness = 85, kOwnAtMost = 75;
constexpr int kStrokesToRest = 25;
constexpr int kMostTouching = 15;

// How dark a piece is, of 255 parts of its paper, and by how much of that its edges rise over two pixels, in
// percent: both as its darkest and steepest pixels are, but for the seventh part at the top.
struct Look {
  int darkness, sharpness;
};

int HighOf(const std::array<int32_t, 256>& counts, int64_t total) {
  int64_t above = 0;
  int value = 255;
  while (value > 0 && (above += counts[static_cast<size_t>(value)]) * 7 < total) --value;
  return value;
}

Look LookOf(const BytePlane& grey, const PaperMap& paper, const Components& pieces, const Component& piece) {
  std::array<int32_t, 256> darknesses{}, steps{};
  const int lastColumn = grey.width() - 1, lastRow = grey.height() - 1;
  static constexpr Dividing<256> kDivided;
  for (const uint32_t place : pieces.RunsOf(piece)) {
    const InkRun& run = pieces.runs()[place];
    const uint8_t* row = grey.Row(run.row);
    const uint8_t* above = grey.Row(std::max(run.row - 1, 0));
    const uint8_t* below = grey.Row(std::min(run.row + 1, lastRow));
    const int ground = paper.BrightnessAt((run.left + run.right) / 2, run.row);
    for (int x = run.left; x < run.right; ++x) {
      const int l = std::max(x - 1, 0), r = std::min(x + 1, lastColumn);
      const int across = std::abs(above[r] + 2 * row[r] + below[r] - above[l] - 2 * row[l] - below[l]) / 4;
      const int down = std::abs(above[l] + 2 * above[x] + above[r] - below[l] - 2 * below[x] - below[r]) / 4;
      ++darknesses[static_cast<size_t>(kDivided(std::max(ground - row[x], 0) * 255, ground))];
      ++steps[static_cast<size_t>(std::min(kDivided(std::max(across, down) * 255, ground), 255))];
    }
  }
  const int darkness = std::max(HighOf(darknesses, piece.pixelCount), 1);
  return {darkness, HighOf(steps, piece.pixelCount) * 100 / darkness};
}

// Neither a speck nor an area, as the shade of a table or the dark of a picture: strokes of pens are up to
// two cells of the paper map wide.
bool IsStroke(const Component& piece, const PaperMap& paper) {
  const int64_t longest = std::max<int64_t>(piece.runCount, piece.box.width());
  return piece.pixelCount >= kFewest && piece.pixelCount <= longest * paper.cell() * 2;
}

// The middle sharpness of the pieces of ink.
int SharpnessOf(const BytePlane& grey, const PaperMap& paper, const BitPlane& ink) {
  const Components pieces(ink);
  std::vector<int> all;
  for (const Component& piece : pieces.all()) {
    if (IsStroke(piece, paper)) all.push_back(LookOf(grey, paper, pieces, piece).sharpness);
  }
  if (all.empty()) return kOwnAtMost;
  const auto middle = all.begin() + static_cast<ptrdiff_t>(all.size() / 2);
  std::nth_element(all.begin(), middle, all.end());
  return *middle;
}

void TakeAway(const BitPlane& what, BitPlane* plane) {
  for (size_t i = 0; i < plane->words().size(); ++i) plane->words()[i] &= ~what.words()[i];
}

// What is known of faint pieces, by squares of whole words.
class Squares {
 public:
  Squares(const BitPlane& plane, int side)
      : wordsWide_(static_cast<size_t>(std::max((side + 32) / 64, 1))),
        side_(static_cast<int>(wordsWide_) * 64),
        columns_((plane.width() + side_ - 1) / side_),
        rows_((plane.height() + side_ - 1) / side_),
        squares_(static_cast<size_t>(columns_) * static_cast<size_t>(rows_)) {}

  struct Square {
    int64_t dark = 0, rest = 0;  // pixels surely faint, and those that are neither paper nor near them
    int64_t strokes = 0, touching = 0, sharpness = 0;  // pixels of pieces, and their sharpness times those
  };

  void Count(const BitPlane& plane, int64_t Square::*what) {
    for (int y = 0; y < plane.height(); ++y) {
      Square* row = &squares_[static_cast<size_t>(y / side_) * static_cast<size_t>(columns_)];
      for (size_t i = 0; i < plane.wordsPerRow(); ++i) {
        if (const uint64_t word = plane.Row(y)[i]; word != 0)
          row[i / wordsWide_].*what += std::popcount(word);
      }
    }
  }

  Square& Around(const Box& box) {
    return squares_[static_cast<size_t>((box.top + box.bottom) / 2 / side_) * static_cast<size_t>(columns_) +
                    static_cast<size_t>((box.left + box.right) / 2 / side_)];
  }

  // Each square becomes the sum of those around it.
  void Spread() {
    std::vector<Square> sums(squares_.size());
    for (int y = 0; y < rows_; ++y) {
      for (int x = 0; x < columns_; ++x) {
        Square& sum = sums[static_cast<size_t>(y * columns_ + x)];
        for (int row = std::max(y - kSquaresAround, 0); row <= std::min(y + kSquaresAround, rows_ - 1);
             ++row) {
          for (int column = std::max(x - kSquaresAround, 0);
               column <= std::min(x + kSquaresAround, columns_ - 1); ++column) {
            const Square& square = squares_[static_cast<size_t>(row * columns_ + column)];
            sum.dark += square.dark;
            sum.rest += square.rest;
            sum.strokes += square.strokes;
            sum.touching += square.touching;
            sum.sharpness += square.sharpness;
          }
        }
      }
    }
    squares_ = std::move(sums);
  }

 private:
  size_t wordsWide_;
  int side_, columns_, rows_;
  std::vector<Square> squares_;
};

// Whether there is paper on all sides of a piece. Where the paper map follows a shaded field, the field's own
// rim is darker than that, but only on one side of it.
bool StandsOnPaper(const BytePlane& grey, const PaperMap& paper, const BitPlane& all, const BitPlane& rims,
                   const Components& pieces, const Component& piece, int darkness) {
  constexpr int kBeside = 4;       // pixels from a stroke, more than its blur
  constexpr int kAsDark = 3;       // a third of its darkness
  constexpr int kMostAsDark = 25;  // percent
  int64_t seen = 0, asDark = 0;
  for (const uint32_t place : pieces.RunsOf(piece)) {
    const InkRun& run = pieces.runs()[place];
    const int ground = paper.BrightnessAt((run.left + run.right) / 2, run.row);
    const auto look = [&](int x, int y) {
      if (x < 0 || y < 0 || x >= grey.width() || y >= grey.height() || all.Get(x, y) || rims.Get(x, y))
        return;
      ++seen;
      asDark += (ground - grey.Row(y)[x]) * kAsDark * 255 >= darkness * ground ? 1 : 0;
    };
    look(run.left - kBeside, run.row);
    look(run.right - 1 + kBeside, run.row);
    for (int x = run.left; x < run.right; ++x) {
      look(x, run.row - kBeside);
      look(x, run.row + kBeside);
    }
  }
  return asDark * 100 <= seen * kMostAsDark;
}

struct FaintPiece {
  const Component* piece;
  Look look;
};

// The stroke is what has half of its darkness.
void Draw(const BytePlane& grey, const PaperMap& paper, const Components& pieces, const FaintPiece& faint,
          BitPlane* ink) {
  for (const uint32_t place : pieces.RunsOf(*faint.piece)) {
    const InkRun& run = pieces.runs()[place];
    const uint8_t* row = grey.Row(run.row);
    const int ground = paper.BrightnessAt((run.left + run.right) / 2, run.row);
    for (int x = run.left; x < run.right; ++x) {
      if ((ground - row[x]) * 2 * 255 >= faint.look.darkness * ground) ink->Set(x, run.row);
    }
  }
}

bool Touches(const Components& pieces, const Component& piece, const BitPlane& plane) {
  for (const uint32_t place : pieces.RunsOf(piece)) {
    const InkRun& run = pieces.runs()[place];
    for (int x = run.left; x < run.right; ++x) {
      if (plane.Get(x, run.row)) return true;
    }
  }
  return false;
}

}  // namespace

void AddFaintStrokes(const BytePlane& grey, const PaperMap& paper, const InkLevels& levels, BitPlane* ink) {
  const int least = std::max(levels.least * kLeastPercent / 100, levels.grain * kAboveGrain);
  if (least >= levels.least) return;
  const int followed = std::max(least * kFollowedPercent / 100, levels.grain * kFollowedAboveGrain);
  const BitPlane rims = Widened(*ink, kRim);
  BitPlane dark = DarkerThanPaper(grey, paper, least, nullptr, &rims);
  if (std::all_of(dark.words().begin(), dark.words().end(), [](uint64_t word) { return word == 0; })) return;
  const BitPlane all = DarkerThanPaper(grey, paper, followed, nullptr, &rims);

  Squares squares(all, paper.cell() * kSideInCells);
  using Square = Squares::Square;
  squares.Count(dark, &Square::dark);
  BitPlane rest = all;
  TakeAway(Widened(std::move(dark), kRim), &rest);
  squares.Count(rest, &Square::rest);

  const Components pieces(all);
  Squares counted = squares;
  counted.Spread();
  const auto isClear = [](const Square& around) { return around.rest * kStrokesToRest <= around.dark; };
  const auto mayBeDrawn = [&](const Component& piece) {
    return IsStroke(piece, paper) && isClear(counted.Around(piece.box));
  };
  if (std::none_of(pieces.all().begin(), pieces.all().end(), mayBeDrawn)) return;
  std::vector<FaintPiece> strokes;
  for (const Component& piece : pieces.all()) {
    if (!IsStroke(piece, paper)) continue;
    const Look look = LookOf(grey, paper, pieces, piece);
    if (look.darkness < least || !StandsOnPaper(grey, paper, all, rims, pieces, piece, look.darkness))
      continue;
    strokes.push_back({&piece, look});
  }
  if (std::none_of(strokes.begin(), strokes.end(),
                   [&](const FaintPiece& stroke) { return mayBeDrawn(*stroke.piece); }))
    return;
  // The page's own ink is only looked at where it matters.
  std::optional<int> known;
  const auto own = [&] {
    if (!known) known = SharpnessOf(grey, paper, *ink);
    return *known;
  };
  std::erase_if(strokes, [&](const FaintPiece& stroke) {
    return stroke.look.sharpness < kSharpEnough && stroke.look.sharpness < own() * kSharpOfOwn / 100;
  });
  const BitPlane beside = Widened(rims, 1);
  for (const FaintPiece& stroke : strokes) {
    const Component& piece = *stroke.piece;
    Square& square = squares.Around(piece.box);
    square.strokes += piece.pixelCount;
    square.sharpness += piece.pixelCount * stroke.look.sharpness;
    if (Touches(pieces, piece, beside)) square.touching += piece.pixelCount;
  }
  squares.Spread();
  std::erase_if(strokes, [&](const FaintPiece& stroke) {
    const Square& around = squares.Around(stroke.piece->box);
    const auto isAsSharpAs = [&](int sharpness) {
      return around.sharpness * 100 >= around.strokes * sharpness * kMeanSharpness;
    };
    return !isClear(around) || around.touching * 100 > around.strokes * kMostTouching ||
           !(isAsSharpAs(kOwnAtMost) || isAsSharpAs(std::min(own(), kOwnAtMost)));
  });
  for (const FaintPiece& stroke : strokes) Draw(grey, paper, pieces, stroke, ink);
}

}  // namespace rastrel::pages
