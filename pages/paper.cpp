// How the paper is found
//
// The page is shrunk to blocks of 1, 2, 4 or 8 pixels, about a third of a millimetre. Averaging takes the
// grain out, and a block between two letters still shows the bare paper. Two by two blocks are a cell.
//
//  1. Bright: the brightest block of each cell.
//  2. Closed: what is darker than its surroundings on both sides and narrow is raised to them, once for
//  narrow things
//     (strokes: kFineReach) and once for wide ones (bold letters, bars: kWideReach). Where the two differ
//     little, the narrow map is right: shadows, stains, a glued slip are paper, and the text on them is
//     judged by them. Where they differ by as much as ink does, what stands there is ink, and the wide map is
//     right.
//  3. Seen: blocks within a tolerance of that map are paper. Their mean around a cell is its brightness: the
//  middle
//     of the grain, of which 1 and 2 give the upper end.
//  4. Dark and plain: cells far darker than the usual paper, with no writing on them, are not paper (a dark
//     surround, a black area). Dark paper has writing on it.
//  5. Cells with nothing seen are filled in from the paper around them, and the map is smoothed.
#include "pages/paper.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "pages/dividing.h"
#include "pages/parting.h"
#include "pages/shrink.h"
#include "pixels/kernels.h"
#include "pixels/thresholds.h"

namespace rastrel::pages {
namespace {

constexpr int kBlocksInCell = 2;  // along each side
constexpr int kFineReach = 2;  // cells to each side: 5 of them, 3 mm, are wider than strokes of text and pens
constexpr int kWideReach = 8;  // 17 cells, 12 mm: wider than the strokes of titles
constexpr int kInkPercent = 65;  // of the ink's usual darkness: what hides as much is ink, a stain hides less
constexpr int kRimOfInk = 1;     // cells
constexpr int kMinTolerance = 6;     // grey levels: grain of paper averaged over a block
constexpr int kToleranceShare = 10;  // or a tenth of the brightness, for uneven paper
constexpr int kPlainContrast = 14;   // grey levels between bright and dark blocks; writing differs by more
constexpr int kDarkShare = 3;        // a plain cell under a third of the usual brightness is no paper
constexpr int kShareUnit = 256;      // darkness as a share of the paper's brightness
constexpr int kSmoothRounds = 2;

// A map with one number a cell, in as few bits as its sums need.
template <class Number>
struct Grid {
  Grid(int columnCount, int rowCount, PlaneContent content = PlaneContent::kZeroed)
      : columns(columnCount),
        rows(rowCount),
        numbers(static_cast<size_t>(columnCount) * static_cast<size_t>(rowCount), content),
        cells(numbers.data(), numbers.size()) {}
  Grid(Grid&&) = default;
  Grid& operator=(Grid&&) = delete;
  Number& At(int c, int r) {
    return cells[static_cast<size_t>(r) * static_cast<size_t>(columns) + static_cast<size_t>(c)];
  }
  Number At(int c, int r) const {
    return cells[static_cast<size_t>(r) * static_cast<size_t>(columns) + static_cast<size_t>(c)];
  }
  Number* Row(int r) { return &At(0, r); }
  const Number* Row(int r) const {
    return cells.data() + static_cast<size_t>(r) * static_cast<size_t>(columns);
  }

  int columns, rows;
  PlaneNumbers<Number> numbers;
  std::span<Number> cells;
};
using SmallGrid = Grid<uint16_t>;  // 36 blocks of 255 at most, or 9 levels

using TakeBytes = void (*)(const uint8_t*, const uint8_t*, size_t, uint8_t*);
void TakeGreater(const uint8_t* one, const uint8_t* other, size_t count, uint8_t* __restrict taken) {
  for (size_t i = 0; i < count; ++i) taken[i] = std::max(one[i], other[i]);
}
void TakeLess(const uint8_t* one, const uint8_t* other, size_t count, uint8_t* __restrict taken) {
  for (size_t i = 0; i < count; ++i) taken[i] = std::min(one[i], other[i]);
}

// Each cell takes the greatest or smallest value up to `reach` cells away along rows and columns. Windows of
// 1, 2, 4 ... cells are put together from two of half the width.
void SpreadAlong(std::vector<uint8_t>& line, std::vector<uint8_t>& half, size_t unit, size_t reach,
                 TakeBytes take) {
  // line[i] covers line[i .. i + covered); the line is padded by `reach` units on both sides with neutral
  // values.
  const size_t wanted = 2 * reach + 1;
  size_t covered = 1;
  while (covered < wanted) {
    const size_t shift = std::min(covered, wanted - covered);
    const size_t count = line.size() - shift * unit;
    take(line.data(), line.data() + shift * unit, count, half.data());
    std::copy(line.begin() + static_cast<ptrdiff_t>(count), line.end(),
              half.begin() + static_cast<ptrdiff_t>(count));
    line.swap(half);
    covered += shift;
  }
}

void Spread(BytePlane& plane, int reach, uint8_t neutral, TakeBytes take) {
  const auto width = static_cast<size_t>(plane.width()), height = static_cast<size_t>(plane.height());
  const auto pad = static_cast<size_t>(reach);
  std::vector<uint8_t> line(width + 2 * pad), half(line.size());
  for (int y = 0; y < plane.height(); ++y) {
    std::fill(line.begin(), line.end(), neutral);
    std::copy_n(plane.Row(y), width, line.begin() + static_cast<ptrdiff_t>(pad));
    SpreadAlong(line, half, 1, pad, take);
    std::copy_n(line.begin(), width, plane.Row(y));
  }
  // Down the columns: the whole plane as one line, a row being the unit.
  std::vector<uint8_t> all((height + 2 * pad) * width, neutral), other(all.size());
  std::copy(plane.bytes().begin(), plane.bytes().end(), all.begin() + static_cast<ptrdiff_t>(pad * width));
  SpreadAlong(all, other, width, pad, take);
  std::copy_n(all.begin(), width * height, plane.bytes().begin());
}

void SpreadGreatest(BytePlane& plane, int reach) { Spread(plane, reach, 0, Widest<TakeGreater>.Best()); }
void SpreadLeast(BytePlane& plane, int reach) { Spread(plane, reach, 255, Widest<TakeLess>.Best()); }

// Raises what is darker than its surroundings and narrower than 2 * reach + 1 cells.
BytePlane Closed(BytePlane bright, int reach) {
  SpreadGreatest(bright, reach);
  SpreadLeast(bright, reach);
  return bright;
}

template <class Number>
void AddThrees(const Number* __restrict row, int count, Number* __restrict sums) {
  for (int i = 0; i < count; ++i) sums[i] = static_cast<Number>(row[i - 1] + row[i] + row[i + 1]);
}
template <class Number>
void AddRows(const Number* a, const Number* b, const Number* c, int count, Number* __restrict sums) {
  for (int i = 0; i < count; ++i) sums[i] = static_cast<Number>(a[i] + b[i] + c[i]);
}

// Visits each row of the sums over 3 x 3 cells, of which what lies beyond counts 0.
template <class Number, class Visit>
void ForEachRowOfSums(const Grid<Number>& grid, Visit visit) {
  const auto columns = static_cast<size_t>(grid.columns);
  // With a column of 0 on either side; sums along three rows, and the sums of those.
  std::vector<Number> padded(columns + 2), along[3], sums(columns);
  for (std::vector<Number>& row : along) row.assign(columns, 0);
  const auto put = [&](int r) {
    std::vector<Number>& row = along[(r + 1) % 3];
    if (r >= grid.rows) {
      std::fill(row.begin(), row.end(), Number{0});
      return;
    }
    std::copy_n(grid.Row(r), columns, padded.begin() + 1);
    Widest<AddThrees<Number>>(padded.data() + 1, grid.columns, row.data());
  };
  put(0);
  for (int r = 0; r < grid.rows; ++r) {
    put(r + 1);
    Widest<AddRows<Number>>(along[0].data(), along[1].data(), along[2].data(), grid.columns, sums.data());
    visit(r, sums.data());
  }
}

// Sums over a cell and the eight around it.
template <class Number>
Grid<Number> SumAround(const Grid<Number>& grid) {
  Grid<Number> around(grid.columns, grid.rows, PlaneContent::kUnset);
  ForEachRowOfSums(grid, [&](int r, const Number* sums) { std::copy_n(sums, grid.columns, around.Row(r)); });
  return around;
}

// Pixels along the side of a block.
int BlockFor(int width, int height, int dpi) {
  constexpr std::array<int, 3> kFinestDpi = {110, 220, 440};      // up to here, blocks of 1, 2 and 4 pixels
  constexpr std::array<int, 3> kLongestSide = {900, 1800, 4400};  // where nobody knows the resolution
  const int longer = std::max(width, height);
  int shift = 0;
  while (shift < 3 && (dpi > 0 ? dpi > kFinestDpi[static_cast<size_t>(shift)]
                               : longer > kLongestSide[static_cast<size_t>(shift)])) {
    ++shift;
  }
  while (shift > 0 && std::min(width, height) < (kBlocksInCell << shift)) --shift;
  return 1 << shift;
}

void PutEnds(const uint8_t* __restrict upper, const uint8_t* __restrict lower, int cells,
             uint8_t* __restrict most, uint8_t* __restrict least) {
  for (int c = 0; c < cells; ++c) {
    most[c] = std::max(std::max(upper[2 * c], upper[2 * c + 1]), std::max(lower[2 * c], lower[2 * c + 1]));
    least[c] = std::min(std::min(upper[2 * c], upper[2 * c + 1]), std::min(lower[2 * c], lower[2 * c + 1]));
  }
}

// The brightest and the darkest block of each cell.
struct Ends {
  explicit Ends(const BytePlane& blocks)
      : bright((blocks.width() + 1) / kBlocksInCell, (blocks.height() + 1) / kBlocksInCell), dark(bright) {
    for (int r = 0; r < bright.height(); ++r) {
      const uint8_t* upper = blocks.Row(2 * r);
      const uint8_t* lower = blocks.Row(std::min(2 * r + 1, blocks.height() - 1));
      uint8_t* most = bright.Row(r);
      uint8_t* least = dark.Row(r);
      const int whole = blocks.width() / kBlocksInCell;
      Widest<PutEnds>(upper, lower, whole, most, least);
      if (whole < bright.width()) {
        most[whole] = std::max(upper[2 * whole], lower[2 * whole]);
        least[whole] = std::min(upper[2 * whole], lower[2 * whole]);
      }
    }
  }
  BytePlane bright, dark;
};

// How dark ink usually is against the paper, of kShareUnit: the middle of what is darker than the threshold
// that parts the cells' darkest blocks best (Otsu).
int UsualDarkness(const BytePlane& closed, const BytePlane& dark) {
  std::array<int64_t, kShareUnit> counts{};
  const Dividing<256> divided;
  const uint8_t *grounds = closed.Row(0), *darkest = dark.Row(0);
  for (size_t i = 0, cells = dark.bytes().size(); i < cells; ++i) {
    const int ground = std::max<int>(grounds[i], 1);
    ++counts[static_cast<size_t>(divided(std::max(ground - darkest[i], 0) * (kShareUnit - 1), ground))];
  }
  const int parting = PartingValue(counts);
  int64_t total = 0;
  for (int i = parting; i < kShareUnit; ++i) total += counts[static_cast<size_t>(i)];
  int64_t seen = 0;
  int darkness = parting;
  while (darkness < kShareUnit - 1 && (seen += counts[static_cast<size_t>(darkness)]) * 2 < total) ++darkness;
  return darkness;
}

void MarkInk(const uint8_t* __restrict fine, const uint8_t* __restrict wide, size_t count, int inkDarkness,
             uint8_t* __restrict isInk) {
  for (size_t i = 0; i < count; ++i) {
    const int ground = wide[i];
    isInk[i] = (ground - fine[i]) * kShareUnit * 100 > ground * inkDarkness * kInkPercent ? 1 : 0;
  }
}
void PutWhere(const uint8_t* __restrict isInk, const uint8_t* __restrict wide, size_t count,
              uint8_t* __restrict fine) {
  for (size_t i = 0; i < count; ++i) fine[i] = isInk[i] != 0 ? wide[i] : fine[i];
}

// Puts the wide map where the fine one is lower by as much as ink is, and beside it: the rims of a bold
// letter are only half as dark.
void TakeInkOut(BytePlane& fine, const BytePlane& wide, const BytePlane& dark) {
  const size_t count = wide.bytes().size();
  BytePlane isInk(fine.width(), fine.height(), PlaneContent::kUnset);
  Widest<MarkInk>(fine.Row(0), wide.Row(0), count, UsualDarkness(wide, dark), isInk.Row(0));
  SpreadGreatest(isInk, kRimOfInk);
  Widest<PutWhere>(isInk.Row(0), wide.Row(0), count, fine.Row(0));
}

// Between what blocks look like the paper around them.
void PutLimits(const uint8_t* __restrict ground, int count, uint8_t* __restrict least,
               uint8_t* __restrict most) {
  for (int c = 0; c < count; ++c) {
    const int tolerance = std::max(kMinTolerance, ground[c] / kToleranceShare);
    least[c] = static_cast<uint8_t>(std::max(0, ground[c] - tolerance));
    most[c] = static_cast<uint8_t>(std::min(255, ground[c] + tolerance));
  }
}

// Adds the blocks of a row that look like paper, and how many they are, to those of their cells.
static_assert(kBlocksInCell == 2);
void AddLikePaper(const uint8_t* __restrict blocks, const uint8_t* __restrict least,
                  const uint8_t* __restrict most, int cells, uint16_t* __restrict sums,
                  uint16_t* __restrict counts) {
  for (int c = 0; c < cells; ++c) {
    const int left = blocks[2 * c], right = blocks[2 * c + 1];
    const int isLeft = (left >= least[c] ? 1 : 0) & (left <= most[c] ? 1 : 0);
    const int isRight = (right >= least[c] ? 1 : 0) & (right <= most[c] ? 1 : 0);
    sums[c] = static_cast<uint16_t>(sums[c] + isLeft * left + isRight * right);
    counts[c] = static_cast<uint16_t>(counts[c] + isLeft + isRight);
  }
}

void MarkWritten(const uint8_t* __restrict closed, const uint8_t* __restrict dark, size_t count,
                 uint16_t* __restrict written) {
  for (size_t i = 0; i < count; ++i) written[i] = closed[i] - dark[i] >= kPlainContrast ? 1 : 0;
}

// A row of cells as they were seen: their closed brightness, and sums around them.
struct SeenCells {
  const uint8_t* closed;
  const uint16_t *written, *sums, *counts, *ownCounts;
};
// Their brightness, its weight, and how sure it is. The quotients are exact: they are far smaller than what a
// float tells from the next whole number.
void JudgeCells(SeenCells seen, int count, int level, uint16_t* __restrict brightness,
                uint16_t* __restrict weights, uint8_t* __restrict confidence) {
  for (int c = 0; c < count; ++c) {
    const int blocks = seen.counts[c], ground = seen.closed[c];
    const bool isDarkAndPlain = (ground * kDarkShare < level) & (seen.written[c] == 0);
    const auto mean = static_cast<int>(static_cast<float>(seen.sums[c] + blocks / 2) /
                                       static_cast<float>(std::max(blocks, 1)));
    brightness[c] = static_cast<uint16_t>(blocks > 0 ? mean : ground);
    weights[c] = isDarkAndPlain | (blocks == 0) ? 0 : 1;
    const int sure = std::min(255, 1 + seen.ownCounts[c] * 254 / (kBlocksInCell * kBlocksInCell));
    confidence[c] = static_cast<uint8_t>(isDarkAndPlain ? PaperMap::kNotPaper : sure);
  }
}
void PutLevels(const uint16_t* __restrict brightness, size_t count, uint8_t* __restrict levels) {
  for (size_t i = 0; i < count; ++i)
    levels[i] = static_cast<uint8_t>(std::clamp<uint16_t>(brightness[i], 1, 255));
}

// The brightness that most cells with writing on them have; of all cells, where there is no writing.
int UsualLevel(const BytePlane& closed, const SmallGrid& written) {
  const auto median = [&](bool all) {
    std::array<int, 256> counts{};
    int total = 0;
    for (size_t i = 0; i < written.cells.size(); ++i) {
      if (!all && written.cells[i] == 0) continue;
      ++counts[static_cast<size_t>(closed.bytes()[i])];
      ++total;
    }
    int below = 0, level = 0;
    while (level < 255 && (below += counts[static_cast<size_t>(level)]) * 2 < total) ++level;
    return total * 50 < static_cast<int>(written.cells.size()) && !all ? -1 : level;
  };
  const int ofWritten = median(false);
  return ofWritten >= 0 ? ofWritten : median(true);
}

// Sums of the values and counts of the cells that have any, over all cells above and left of a corner.
class SumsToCorners {
 public:
  template <class Number>
  SumsToCorners(const Grid<Number>& values, const Grid<Number>& weights)
      : columns_(values.columns), rows_(values.rows), sums_((size_t(columns_) + 1) * (size_t(rows_) + 1)) {
    for (int r = 0; r < rows_; ++r) {
      const Number *value = values.Row(r), *weight = weights.Row(r);
      const uint64_t* const above = &At(0, r);
      uint64_t* const here = &At(0, r + 1);
      uint64_t sum = 0;
      for (int c = 0; c < columns_; ++c) {
        sum += weight[c] > 0 ? static_cast<uint64_t>(value[c]) << 32 | 1 : 0;
        here[c + 1] = above[c + 1] + sum;
      }
    }
  }
  struct Around {
    uint32_t sum, count;
  };
  // Of the cells up to `reach` away.
  Around Of(int c, int r, int reach) {
    const int left = std::max(c - reach, 0), right = std::min(c + reach + 1, columns_);
    const int top = std::max(r - reach, 0), bottom = std::min(r + reach + 1, rows_);
    const uint64_t all = At(right, bottom) - At(left, bottom) - At(right, top) + At(left, top);
    return {static_cast<uint32_t>(all >> 32), static_cast<uint32_t>(all)};
  }

 private:
  uint64_t& At(int c, int r) { return sums_[size_t(r) * (size_t(columns_) + 1) + size_t(c)]; }

  int columns_, rows_;
  std::vector<uint64_t> sums_;  // the values' sum in the upper half
};

// Fills cells of weight 0 from those around them that have a weight of 1, nearest ones first: windows double
// until all are met.
template <class Number>
void FillIn(Grid<Number>& values, Grid<Number>& weights) {
  std::vector<size_t> open, left;
  for (size_t i = 0; i < weights.cells.size(); ++i) {
    if (weights.cells[i] == 0) open.push_back(i);
  }
  if (open.size() == weights.cells.size()) return;
  for (int reach = 1; !open.empty(); reach *= 2) {
    SumsToCorners sums(values, weights);
    left.clear();
    for (const size_t i : open) {
      const auto columns = static_cast<size_t>(values.columns);
      const auto around = sums.Of(static_cast<int>(i % columns), static_cast<int>(i / columns), reach);
      if (around.count == 0) {
        left.push_back(i);
        continue;
      }
      values.cells[i] = static_cast<Number>(around.sum / around.count);
      weights.cells[i] = 1;  // the next round builds on it
    }
    open.swap(left);
  }
}

// The quotients of sums of levels by what is at most 3 x 3, rounded.
template <class Number>
void DivideBy(const Number* __restrict sums, int count, int divisor, Number* __restrict quotients) {
  constexpr int kBits = 20;  // exact, as no sum times the divisor comes near 2^kBits
  const auto factor = (uint32_t{1} << kBits) / static_cast<uint32_t>(divisor) + 1;
  const auto half = static_cast<uint32_t>(divisor) / 2;
  for (int i = 0; i < count; ++i)
    quotients[i] = static_cast<Number>((static_cast<uint32_t>(sums[i]) + half) * factor >> kBits);
}

// Makes levels up to 255 the means over 3 x 3 cells. A row is summed up before the one above it is written.
template <class Number>
void Smooth(Grid<Number>& grid) {
  const int last = grid.columns - 1;
  ForEachRowOfSums(grid, [&](int r, const Number* sums) {
    const int rows = std::min(r + 1, grid.rows - 1) - std::max(r - 1, 0) + 1;
    Number* const to = grid.Row(r);
    if (last > 1) Widest<DivideBy<Number>>(sums + 1, last - 1, 3 * rows, to + 1);
    const int outer = rows * std::min(2, grid.columns);
    DivideBy(sums, 1, outer, to);
    DivideBy(sums + last, 1, outer, to + last);
  });
}

// Between two neighbouring cells the map runs straight from middle to middle. Where a pixel lies: the two
// cells, and the share of the second in parts of 2 cell(), as pixels lie half a step off the middles.
struct Between {
  int first, second;
  int share;
};
Between CellsAround(int pixel, int cellShift, int cellCount) {
  const int parts = 2 << cellShift;
  const int place = 2 * pixel + 1 + parts / 2;  // from the middle of the cell before the first
  const int second = place / parts;
  return {std::max(second - 1, 0), std::min(second, cellCount - 1), place % parts};
}

// Between an upper and a lower cell, with as many bits after the point as leave room for the parts across:
// the sums over both directions fill 16 bits, the upper eight of them whole levels.
int BetweenRows(int upper, int lower, int share, int cellShift) {
  const int parts = 2 << cellShift;
  const int pointBits = 7 - cellShift;
  return ((upper * (parts - share) + lower * share) << pointBits) >> (cellShift + 1);
}

constexpr int kHalfLevel = 128;  // of 256 parts: what is rounded

// BetweenRows of rows of cells, in 16 bits, which the sums fill.
void PutBetween(const uint8_t* __restrict upper, const uint8_t* __restrict lower, int count, int share,
                int cellShift, uint16_t* __restrict values) {
  const int left = 7 - cellShift, right = cellShift + 1;
  const auto lowers = static_cast<uint16_t>(share << left);
  const auto uppers = static_cast<uint16_t>(((2 << cellShift) - share) << left);
  for (int i = 0; i < count; ++i) {
    const uint16_t above = upper[i], below = lower[i];
    const auto sum =
        static_cast<uint16_t>(static_cast<uint16_t>(above * uppers) + static_cast<uint16_t>(below * lowers));
    values[i] = static_cast<uint16_t>(sum >> right);
  }
}

// Where the stretches from each value to the next begin, and by how much they climb from pixel to pixel.
void PutSlopes(const uint16_t* __restrict values, size_t count, uint16_t twoSides,
               uint16_t* __restrict starts, uint16_t* __restrict steps) {
  for (size_t i = 0; i < count; ++i) {
    const auto climb = static_cast<uint16_t>(values[i + 1] - values[i]);
    starts[i] = static_cast<uint16_t>(values[i] * twoSides + climb + kHalfLevel);
    steps[i] = static_cast<uint16_t>(2 * climb);
  }
}

}  // namespace

uint8_t PaperMap::BrightnessAt(int x, int y) const {
  const Between across = CellsAround(x, cellShift_, columns());
  const Between down = CellsAround(y, cellShift_, rows());
  const auto atColumn = [&](int c) {
    return BetweenRows(brightness_.Row(down.first)[c], brightness_.Row(down.second)[c], down.share,
                       cellShift_);
  };
  const int parts = 2 << cellShift_;
  const int sum = atColumn(across.first) * (parts - across.share) + atColumn(across.second) * across.share;
  return static_cast<uint8_t>((sum + kHalfLevel) >> 8);
}

void PaperMap::BrightnessRow(int y, std::span<uint8_t> row) const { SpreadRow(brightness_, y, row); }

void PaperMap::SpreadRow(const BytePlane& cells, int y, std::span<uint8_t> row) const {
  SpreadCells spread(*this);
  spread.SetRow(cells, y);
  const size_t count = std::min(row.size(), static_cast<size_t>(width_));
  std::memcpy(row.data(), spread.Pixels(0, static_cast<int>(count)), count);
}

void PaperMap::BoundRow(const BytePlane& cells, int y, std::span<uint8_t> most) const {
  const Between down = CellsAround(y, cellShift_, rows());
  // With the cells before and after, towards whose middles the map runs. Beyond the page nothing is high.
  const size_t inWord = size_t{64} >> cellShift_, window = inWord + 2;
  std::vector<uint8_t> highest(most.size() * inWord + window, 0), wider(highest.size());
  Widest<TakeGreater>(cells.Row(down.first), cells.Row(down.second), static_cast<size_t>(columns()),
                      highest.data() + 1);
  for (size_t covered = 1; covered < window;) {
    const size_t shift = std::min(covered, window - covered);
    Widest<TakeGreater>(highest.data(), highest.data() + shift, highest.size() - shift, wider.data());
    highest.swap(wider);
    covered += shift;
  }
  for (size_t i = 0; i < most.size(); ++i) most[i] = highest[i * inWord];
}

// Stretches are made in groups, as that is faster. What is beyond the last one does not matter.
constexpr size_t kStretchGroup = 8;

SpreadCells::SpreadCells(const PaperMap& paper)
    : columns_(paper.columns()),
      rows_(paper.rows()),
      cellShift_(std::countr_zero(static_cast<unsigned>(paper.cell()))),
      values_(static_cast<size_t>(columns_) + 2),
      starts_(static_cast<size_t>(columns_) + 1 + kStretchGroup),
      steps_(starts_.size()),
      bytes_(starts_.size() << cellShift_) {}

void SpreadCells::SetRow(const BytePlane& cells, int y) {
  const Between down = CellsAround(y, cellShift_, rows_);
  Widest<PutBetween>(cells.Row(down.first), cells.Row(down.second), columns_, down.share, cellShift_,
                     &values_[1]);
  values_.front() = values_[1];
  values_.back() = values_[static_cast<size_t>(columns_)];
  Widest<PutSlopes>(values_.data(), static_cast<size_t>(columns_) + 1, static_cast<uint16_t>(2 << cellShift_),
                    starts_.data(), steps_.data());
}

const uint8_t* SpreadCells::Pixels(int left, int right) {
  const int side = 1 << cellShift_;
  const auto first = static_cast<size_t>((left + side / 2) >> cellShift_);
  const auto end = static_cast<size_t>((right + side / 2 + side - 1) >> cellShift_);
  const size_t count = (end - first + kStretchGroup - 1) / kStretchGroup * kStretchGroup;
  const uint16_t *starts = starts_.data() + first, *steps = steps_.data() + first;
  uint8_t* const bytes = bytes_.data() + (first << cellShift_);
  switch (cellShift_) {
    case 1:
      kRunStretches<2>(starts, steps, count, bytes);
      break;
    case 2:
      kRunStretches<4>(starts, steps, count, bytes);
      break;
    case 3:
      kRunStretches<8>(starts, steps, count, bytes);
      break;
    default:
      kRunStretches<16>(starts, steps, count, bytes);
  }
  return bytes_.data() + side / 2 + left;
}

PaperColour PaperMap::ColourOfCell(int column, int row) const {
  const BytePlane& grey = brightness_;
  const auto of = [&](const BytePlane& plane) { return (plane.isEmpty() ? grey : plane).Row(row)[column]; };
  return {of(red_), of(green_), of(blue_)};
}

PaperColour PaperMap::ColourAt(int x, int y) const {
  return ColourOfCell(std::min(x >> cellShift_, columns() - 1), std::min(y >> cellShift_, rows() - 1));
}

PaperMap FindPaper(const BytePlane& grey, int dpi) {
  PaperMap paper;
  if (grey.isEmpty()) return paper;
  const int block = BlockFor(grey.width(), grey.height(), dpi);
  const BytePlane blocks = ShrinkByMean(grey, block);
  const Ends ends(blocks);
  const int columns = ends.bright.width(), rows = ends.bright.height();
  BytePlane closed = Closed(ends.bright, kFineReach);
  TakeInkOut(closed, Closed(ends.bright, kWideReach), ends.dark);

  // Blocks that look like the paper around them.
  SmallGrid sums(columns, rows), counts(columns, rows);
  std::vector<uint8_t> least(static_cast<size_t>(columns)), most(least.size());
  for (int r = 0; r < rows; ++r) {
    Widest<PutLimits>(closed.Row(r), columns, least.data(), most.data());
    const int bottom = std::min((r + 1) * kBlocksInCell, blocks.height());
    for (int y = r * kBlocksInCell; y < bottom; ++y) {
      const int whole = blocks.width() / kBlocksInCell;
      const uint8_t* row = blocks.Row(y);
      Widest<AddLikePaper>(row, least.data(), most.data(), whole, sums.Row(r), counts.Row(r));
      if (whole == columns) continue;
      // The last cell has one block.
      const int value = row[whole * kBlocksInCell];
      if (value < least.back() || value > most.back()) continue;
      sums.At(whole, r) = static_cast<uint16_t>(sums.At(whole, r) + value);
      ++counts.At(whole, r);
    }
  }

  // Writing near by, and cells too dark and too plain to be paper.
  SmallGrid written(columns, rows, PlaneContent::kUnset);
  Widest<MarkWritten>(closed.Row(0), ends.dark.Row(0), written.cells.size(), written.Row(0));
  const int level = UsualLevel(closed, written);
  const SmallGrid writtenAround = SumAround(written);
  const SmallGrid countsAround = SumAround(counts);
  const SmallGrid sumsAround = SumAround(sums);
  BytePlane confidence(columns, rows, PlaneContent::kUnset);
  SmallGrid brightness(columns, rows, PlaneContent::kUnset), weights(columns, rows, PlaneContent::kUnset);
  for (int r = 0; r < rows; ++r) {
    Widest<JudgeCells>(
        {closed.Row(r), writtenAround.Row(r), sumsAround.Row(r), countsAround.Row(r), counts.Row(r)}, columns,
        level, brightness.Row(r), weights.Row(r), confidence.Row(r));
  }
  FillIn(brightness, weights);
  for (int i = 0; i < kSmoothRounds; ++i) Smooth(brightness);

  paper.width_ = grey.width();
  paper.height_ = grey.height();
  paper.cellShift_ = 0;
  while ((1 << paper.cellShift_) < block * kBlocksInCell) ++paper.cellShift_;
  paper.level_ = static_cast<uint8_t>(std::max(level, 1));
  paper.brightness_ = BytePlane(columns, rows, PlaneContent::kUnset);
  Widest<PutLevels>(brightness.Row(0), brightness.cells.size(), paper.brightness_.Row(0));
  paper.confidence_ = std::move(confidence);
  return paper;
}

void FindPaperColour(PaperMap& paper, const BytePlane& grey, const ColourRows& colours) {
  if (paper.isEmpty()) return;
  const int columns = paper.columns(), rows = paper.rows();
  const int cell = paper.cell();
  const int step = std::max(cell / 8, 1);  // an eighth of a cell apart: 64 samples of each
  Grid<int> blues(columns, rows), greens(columns, rows), reds(columns, rows), counts(columns, rows);
  Grid<int>* const sums[] = {&blues, &greens, &reds};
  for (int y = 0; y < paper.height(); y += step) {
    const uint8_t* greyRow = grey.Row(y);
    const uint8_t* row = colours.topRow + y * colours.stride;
    for (int x = 0; x < paper.width(); x += step) {
      const int c = x / cell, r = y / cell;
      const int ground = paper.brightness_.Row(r)[c];
      if (paper.confidence_.Row(r)[c] == PaperMap::kNotPaper) continue;
      if (std::abs(greyRow[x] - ground) > std::max(kMinTolerance, ground / kToleranceShare)) continue;
      const uint8_t* pixel = row + static_cast<ptrdiff_t>(x) * colours.bytesPerPixel;
      for (size_t i = 0; i < 3; ++i) sums[i]->At(c, r) += pixel[i];
      ++counts.At(c, r);
    }
  }
  const Grid<int> countsAround = SumAround(counts);
  std::array<BytePlane*, 3> planes{&paper.blue_, &paper.green_, &paper.red_};
  for (size_t i = 0; i < 3; ++i) {
    const Grid<int> sumsAround = SumAround(*sums[i]);
    Grid<int> colour(columns, rows, PlaneContent::kUnset), weights(columns, rows, PlaneContent::kUnset);
    for (size_t j = 0; j < colour.cells.size(); ++j) {
      const int seen = countsAround.cells[j];
      colour.cells[j] = seen > 0 ? (sumsAround.cells[j] + seen / 2) / seen : paper.level_;
      weights.cells[j] = seen > 0 ? 1 : 0;
    }
    FillIn(colour, weights);
    for (int round = 0; round < kSmoothRounds; ++round) Smooth(colour);
    *planes[i] = BytePlane(columns, rows);
    for (size_t j = 0; j < colour.cells.size(); ++j)
      planes[i]->bytes()[j] = static_cast<uint8_t>(colour.cells[j]);
  }
}

BytePlane PictureOfPaper(const PaperMap& paper, int factor) {
  BytePlane picture((paper.width() + factor - 1) / factor, (paper.height() + factor - 1) / factor);
  for (int y = 0; y < picture.height(); ++y) {
    for (int x = 0; x < picture.width(); ++x) {
      const int pageX = x * factor, pageY = y * factor;
      const bool isPaper =
          paper.confidence().Row(pageY / paper.cell())[pageX / paper.cell()] != PaperMap::kNotPaper;
      picture.Row(y)[x] = isPaper ? paper.BrightnessAt(pageX, pageY) : uint8_t{0};
    }
  }
  return picture;
}

}  // namespace rastrel::pages
