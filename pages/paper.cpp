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

// A map with one number a cell.
struct Grid {
  Grid(int columnCount, int rowCount, int value = 0)
      : columns(columnCount),
        rows(rowCount),
        cells(static_cast<size_t>(columnCount) * static_cast<size_t>(rowCount), value) {}
  int& At(int c, int r) {
    return cells[static_cast<size_t>(r) * static_cast<size_t>(columns) + static_cast<size_t>(c)];
  }
  int At(int c, int r) const {
    return cells[static_cast<size_t>(r) * static_cast<size_t>(columns) + static_cast<size_t>(c)];
  }
  int* Row(int r) { return &At(0, r); }
  const int* Row(int r) const { return cells.data() + static_cast<size_t>(r) * static_cast<size_t>(columns); }

  int columns, rows;
  std::vector<int> cells;
};

// Each cell takes the greatest (Take = std::max) or smallest value up to `reach` cells away along rows and
// columns. Windows of 1, 2, 4 ... cells are put together from two of half the width.
template <class Take>
void SpreadAlong(std::vector<uint8_t>& line, std::vector<uint8_t>& half, size_t unit, size_t reach,
                 Take take) {
  // line[i] covers line[i .. i + covered); the line is padded by `reach` units on both sides with neutral
  // values.
  const size_t wanted = 2 * reach + 1;
  size_t covered = 1;
  while (covered < wanted) {
    const size_t shift = std::min(covered, wanted - covered);
    const size_t count = line.size() - shift * unit;
    const uint8_t* from = line.data();
    uint8_t* to = half.data();
    for (size_t i = 0; i < count; ++i) to[i] = take(from[i], from[i + shift * unit]);
    std::copy(line.begin() + static_cast<ptrdiff_t>(count), line.end(),
              half.begin() + static_cast<ptrdiff_t>(count));
    line.swap(half);
    covered += shift;
  }
}

template <class Take>
void Spread(BytePlane& plane, int reach, uint8_t neutral, Take take) {
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

// Raises what is darker than its surroundings and narrower than 2 * reach + 1 cells.
BytePlane Closed(BytePlane bright, int reach) {
  Spread(bright, reach, 0, [](uint8_t a, uint8_t b) { return a > b ? a : b; });
  Spread(bright, reach, 255, [](uint8_t a, uint8_t b) { return a < b ? a : b; });
  return bright;
}

void AddRow(const int* __restrict row, int count, int* __restrict sums) {
  for (int i = 0; i < count; ++i) sums[i] += row[i];
}
void TakeRow(const int* __restrict row, int count, int* __restrict sums) {
  for (int i = 0; i < count; ++i) sums[i] -= row[i];
}
void AddThrees(const int* __restrict row, int count, int* __restrict sums) {
  for (int i = 0; i < count; ++i) sums[i] = row[i - 1] + row[i] + row[i + 1];
}

// The sums along a row, of which what lies beyond counts 0.
void SumAlong(const int* from, int columns, int reach, int* to) {
  if (reach == 1 && columns > 2) {
    to[0] = from[0] + from[1];
    Widest<AddThrees>(from + 1, columns - 2, to + 1);
    to[columns - 1] = from[columns - 2] + from[columns - 1];
    return;
  }
  int sum = 0;
  for (int c = 0; c < std::min(reach, columns); ++c) sum += from[c];
  for (int c = 0; c < columns; ++c) {
    if (c + reach < columns) sum += from[c + reach];
    to[c] = sum;
    if (c >= reach) sum -= from[c - reach];
  }
}

// Sums over the cells up to `reach` away: along the rows, and then running sums of whole rows.
Grid SumAround(const Grid& grid, int reach) {
  Grid across(grid.columns, grid.rows), around(grid.columns, grid.rows);
  for (int r = 0; r < grid.rows; ++r) SumAlong(grid.Row(r), grid.columns, reach, across.Row(r));
  std::vector<int> sums(static_cast<size_t>(grid.columns));
  for (int r = 0; r < std::min(reach, grid.rows); ++r)
    Widest<AddRow>(across.Row(r), grid.columns, sums.data());
  for (int r = 0; r < grid.rows; ++r) {
    if (r + reach < grid.rows) Widest<AddRow>(across.Row(r + reach), grid.columns, sums.data());
    std::copy(sums.begin(), sums.end(), around.Row(r));
    if (r >= reach) Widest<TakeRow>(across.Row(r - reach), grid.columns, sums.data());
  }
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
      for (int c = 0; c < whole; ++c) {
        most[c] =
            std::max(std::max(upper[2 * c], upper[2 * c + 1]), std::max(lower[2 * c], lower[2 * c + 1]));
        least[c] =
            std::min(std::min(upper[2 * c], upper[2 * c + 1]), std::min(lower[2 * c], lower[2 * c + 1]));
      }
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
  for (size_t i = 0; i < dark.bytes().size(); ++i) {
    const int ground = std::max<int>(closed.bytes()[i], 1);
    ++counts[static_cast<size_t>(divided(std::max(ground - dark.bytes()[i], 0) * (kShareUnit - 1), ground))];
  }
  const int parting = PartingValue(counts);
  int64_t total = 0;
  for (int i = parting; i < kShareUnit; ++i) total += counts[static_cast<size_t>(i)];
  int64_t seen = 0;
  int darkness = parting;
  while (darkness < kShareUnit - 1 && (seen += counts[static_cast<size_t>(darkness)]) * 2 < total) ++darkness;
  return darkness;
}

// Puts the wide map where the fine one is lower by as much as ink is, and beside it: the rims of a bold
// letter are only half as dark.
void TakeInkOut(BytePlane& fine, const BytePlane& wide, const BytePlane& dark) {
  const int inkDarkness = UsualDarkness(wide, dark);
  BytePlane isInk(fine.width(), fine.height());
  for (size_t i = 0; i < wide.bytes().size(); ++i) {
    const int ground = wide.bytes()[i];
    isInk.bytes()[i] =
        (ground - fine.bytes()[i]) * kShareUnit * 100 > ground * inkDarkness * kInkPercent ? 1 : 0;
  }
  Spread(isInk, kRimOfInk, 0, [](uint8_t a, uint8_t b) { return a > b ? a : b; });
  for (size_t i = 0; i < wide.bytes().size(); ++i) {
    if (isInk.bytes()[i] != 0) fine.bytes()[i] = wide.bytes()[i];
  }
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
                  const uint8_t* __restrict most, int cells, int* __restrict sums, int* __restrict counts) {
  for (int c = 0; c < cells; ++c) {
    const int left = blocks[2 * c], right = blocks[2 * c + 1];
    const int isLeft = (left >= least[c] ? 1 : 0) & (left <= most[c] ? 1 : 0);
    const int isRight = (right >= least[c] ? 1 : 0) & (right <= most[c] ? 1 : 0);
    sums[c] += isLeft * left + isRight * right;
    counts[c] += isLeft + isRight;
  }
}

// The brightness that most cells with writing on them have; of all cells, where there is no writing.
int UsualLevel(const BytePlane& closed, const Grid& written) {
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
  SumsToCorners(const Grid& values, const Grid& weights)
      : columns_(values.columns), rows_(values.rows), sums_((size_t(columns_) + 1) * (size_t(rows_) + 1)) {
    for (int r = 0; r < rows_; ++r) {
      const int *value = values.Row(r), *weight = weights.Row(r);
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
void FillIn(Grid& values, Grid& weights) {
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
      values.cells[i] = static_cast<int>(around.sum / around.count);
      weights.cells[i] = 1;  // the next round builds on it
    }
    open.swap(left);
  }
}

// The quotients of sums of levels by what is at most 3 x 3, rounded.
void DivideBy(const int* __restrict sums, int count, int divisor, int* __restrict quotients) {
  constexpr int kBits = 20;  // exact, as no sum times the divisor comes near 2^kBits
  const auto factor = (uint32_t{1} << kBits) / static_cast<uint32_t>(divisor) + 1;
  const auto half = static_cast<uint32_t>(divisor) / 2;
  for (int i = 0; i < count; ++i)
    quotients[i] = static_cast<int>((static_cast<uint32_t>(sums[i]) + half) * factor >> kBits);
}

// Means over 3 x 3 cells, of levels up to 255.
Grid Smoothed(const Grid& grid) {
  const Grid sums = SumAround(grid, 1);
  Grid smooth(grid.columns, grid.rows);
  const int last = grid.columns - 1;
  for (int r = 0; r < grid.rows; ++r) {
    const int rows = std::min(r + 1, grid.rows - 1) - std::max(r - 1, 0) + 1;
    const int* from = sums.Row(r);
    int* const to = smooth.Row(r);
    if (last > 1) Widest<DivideBy>(from + 1, last - 1, 3 * rows, to + 1);
    const int outer = rows * std::min(2, grid.columns);
    DivideBy(from, 1, outer, to);
    DivideBy(from + last, 1, outer, to + last);
  }
  return smooth;
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

void PutHigher(const uint8_t* one, const uint8_t* other, size_t count, uint8_t* __restrict higher) {
  for (size_t i = 0; i < count; ++i) higher[i] = std::max(one[i], other[i]);
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
  Widest<PutHigher>(cells.Row(down.first), cells.Row(down.second), static_cast<size_t>(columns()),
                    highest.data() + 1);
  for (size_t covered = 1; covered < window;) {
    const size_t shift = std::min(covered, window - covered);
    Widest<PutHigher>(highest.data(), highest.data() + shift, highest.size() - shift, wider.data());
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
  Grid sums(columns, rows), counts(columns, rows);
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
      sums.At(whole, r) += value;
      ++counts.At(whole, r);
    }
  }

  // Writing near by, and cells too dark and too plain to be paper.
  Grid written(columns, rows);
  for (size_t i = 0; i < written.cells.size(); ++i) {
    written.cells[i] = closed.bytes()[i] - ends.dark.bytes()[i] >= kPlainContrast ? 1 : 0;
  }
  const int level = UsualLevel(closed, written);
  const Grid writtenAround = SumAround(written, 1);
  BytePlane confidence(columns, rows);
  const Grid countsAround = SumAround(counts, 1);
  const Grid sumsAround = SumAround(sums, 1);
  Grid brightness(columns, rows);
  std::copy(closed.bytes().begin(), closed.bytes().end(), brightness.cells.begin());
  Grid weights(columns, rows, 1);
  const Dividing<9 * kBlocksInCell * kBlocksInCell + 1> divided;
  for (int r = 0; r < rows; ++r) {
    for (int c = 0; c < columns; ++c) {
      const bool darkAndPlain = closed.Row(r)[c] * kDarkShare < level && writtenAround.At(c, r) == 0;
      const int seen = countsAround.At(c, r);
      if (seen > 0) brightness.At(c, r) = divided(sumsAround.At(c, r) + seen / 2, seen);
      if (darkAndPlain || seen == 0) {
        weights.At(c, r) = 0;
      }
      confidence.Row(r)[c] = static_cast<uint8_t>(
          darkAndPlain ? PaperMap::kNotPaper
                       : std::min(255, 1 + counts.At(c, r) * 254 / (kBlocksInCell * kBlocksInCell)));
    }
  }
  FillIn(brightness, weights);
  for (int i = 0; i < kSmoothRounds; ++i) brightness = Smoothed(brightness);

  paper.width_ = grey.width();
  paper.height_ = grey.height();
  paper.cellShift_ = 0;
  while ((1 << paper.cellShift_) < block * kBlocksInCell) ++paper.cellShift_;
  paper.level_ = static_cast<uint8_t>(std::max(level, 1));
  paper.brightness_ = BytePlane(columns, rows);
  for (size_t i = 0; i < brightness.cells.size(); ++i) {
    paper.brightness_.bytes()[i] = static_cast<uint8_t>(std::clamp(brightness.cells[i], 1, 255));
  }
  paper.confidence_ = std::move(confidence);
  return paper;
}

void FindPaperColour(PaperMap& paper, const BytePlane& grey, const ColourRows& colours) {
  if (paper.isEmpty()) return;
  const int columns = paper.columns(), rows = paper.rows();
  const int cell = paper.cell();
  const int step = std::max(cell / 8, 1);  // an eighth of a cell apart: 64 samples of each
  std::array<Grid, 3> sums{Grid(columns, rows), Grid(columns, rows), Grid(columns, rows)};
  Grid counts(columns, rows);
  for (int y = 0; y < paper.height(); y += step) {
    const uint8_t* greyRow = grey.Row(y);
    const uint8_t* row = colours.topRow + y * colours.stride;
    for (int x = 0; x < paper.width(); x += step) {
      const int c = x / cell, r = y / cell;
      const int ground = paper.brightness_.Row(r)[c];
      if (paper.confidence_.Row(r)[c] == PaperMap::kNotPaper) continue;
      if (std::abs(greyRow[x] - ground) > std::max(kMinTolerance, ground / kToleranceShare)) continue;
      const uint8_t* pixel = row + static_cast<ptrdiff_t>(x) * colours.bytesPerPixel;
      for (size_t i = 0; i < 3; ++i) sums[i].At(c, r) += pixel[i];
      ++counts.At(c, r);
    }
  }
  const Grid countsAround = SumAround(counts, 1);
  std::array<BytePlane*, 3> planes{&paper.blue_, &paper.green_, &paper.red_};
  for (size_t i = 0; i < 3; ++i) {
    const Grid sumsAround = SumAround(sums[i], 1);
    Grid colour(columns, rows, paper.level_), weights(columns, rows);
    for (size_t j = 0; j < colour.cells.size(); ++j) {
      const int seen = countsAround.cells[j];
      if (seen > 0) colour.cells[j] = (sumsAround.cells[j] + seen / 2) / seen;
      weights.cells[j] = seen > 0 ? 1 : 0;
    }
    FillIn(colour, weights);
    for (int round = 0; round < kSmoothRounds; ++round) colour = Smoothed(colour);
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
