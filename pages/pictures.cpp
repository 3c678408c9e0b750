#include "pages/pictures.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include "pages/judgement.h"
#include "pixels/kernels.h"

namespace rastrel::pages {
namespace {

struct Place {
  int32_t x, y;
};

// A map of counts, a cell each.
class Counts {
 public:
  Counts(int columns, int rows)
      : columns_(columns),
        rows_(rows),
        counts_(static_cast<size_t>(columns) * static_cast<size_t>(rows), 0) {}
  int columns() const { return columns_; }
  int rows() const { return rows_; }
  int32_t& At(int column, int row) { return counts_[Index(column, row)]; }
  int32_t At(int column, int row) const { return counts_[Index(column, row)]; }
  // Of each cell and the eight around it.
  Counts Around() const {
    Counts sums(columns_, rows_);
    for (int row = 0; row < rows_; ++row) {
      for (int column = 0; column < columns_; ++column) {
        const int32_t count = At(column, row);
        if (count == 0) continue;
        ForEachAround(column, row, [&](int c, int r) { sums.At(c, r) += count; });
      }
    }
    return sums;
  }
  template <class Visit>
  void ForEachAround(int column, int row, Visit visit) const {
    for (int r = std::max(row - 1, 0); r <= std::min(row + 1, rows_ - 1); ++r) {
      for (int c = std::max(column - 1, 0); c <= std::min(column + 1, columns_ - 1); ++c) visit(c, r);
    }
  }

 private:
  size_t Index(int column, int row) const {
    return static_cast<size_t>(row) * static_cast<size_t>(columns_) + static_cast<size_t>(column);
  }

  int columns_, rows_;
  std::vector<int32_t> counts_;
};

// ---- dots
// -------------------------------------------------------------------------------------------------------

// Small marks by the cell that they stand in, their middles given twice as large.
struct Dots {
  Dots(const Components& components, int cell, int largest, int columns, int rows) : counts(columns, rows) {
    std::vector<uint32_t> cellOf;
    for (const Component& component : components.all()) {
      const Box& box = component.box;
      if (std::max(box.width(), box.height()) > largest) continue;
      const Place middle = {box.left + box.right, box.top + box.bottom};
      const int column = middle.x / 2 / cell, row = middle.y / 2 / cell;
      ++counts.At(column, row);
      unsorted.push_back(middle);
      cellOf.push_back(static_cast<uint32_t>(row * columns + column));
    }
    starts.assign(static_cast<size_t>(columns) * static_cast<size_t>(rows) + 1, 0);
    for (const uint32_t index : cellOf) ++starts[index + 1];
    for (size_t i = 1; i < starts.size(); ++i) starts[i] += starts[i - 1];
    places.resize(unsorted.size());
    std::vector<uint32_t> next(starts.begin(), starts.end() - 1);
    for (size_t i = 0; i < unsorted.size(); ++i) places[next[cellOf[i]]++] = unsorted[i];
  }

  std::span<const Place> In(int column, int row) const {
    const auto index =
        static_cast<size_t>(row) * static_cast<size_t>(counts.columns()) + static_cast<size_t>(column);
    return {places.data() + starts[index], starts[index + 1] - starts[index]};
  }

  Counts counts;
  std::vector<Place> unsorted, places;
  std::vector<uint32_t> starts;
};

// Whether the dots of a cell stand as evenly as those of a screen do. The squares of the distances to the
// nearest and to the fourth nearest are compared.
bool AreEven(const Dots& dots, int column, int row) {
  std::vector<Place> around;
  dots.counts.ForEachAround(column, row, [&](int c, int r) {
    const std::span<const Place> cell = dots.In(c, r);
    around.insert(around.end(), cell.begin(), cell.end());
  });
  int64_t percents = 0, asked = 0;
  for (const Place& dot : dots.In(column, row)) {
    std::array<int64_t, 5> nearest;  // the first is the dot itself
    nearest.fill(INT64_MAX);
    for (const Place& other : around) {
      const int64_t dx = other.x - dot.x, dy = other.y - dot.y;
      int64_t distance = dx * dx + dy * dy;
      for (int64_t& kept : nearest) {
        if (distance < kept) std::swap(distance, kept);
      }
    }
    if (nearest[4] == INT64_MAX) return false;
    percents += nearest[1] * 100 / std::max<int64_t>(nearest[4], 1);
    ++asked;
  }
  return percents >= picture::kEvenPercent * asked;
}

// Where a screen grows dark its dots join, and what can be counted are the holes between them. A piece has as
// many holes as pairs of runs that touch, less its runs, plus one; place by place that is where the pairs
// close.
void CountHoles(const Components& components, const Component& component, int cell, Counts* counts) {
  const std::span<const InkRun> runs = components.runs();
  const std::span<const uint32_t> order = components.RunsOf(component);
  size_t above = 0, first = 0;  // of the row above, and of this row
  for (size_t i = 0; i < order.size(); ++i) {
    const InkRun& run = runs[order[i]];
    if (run.row != runs[order[first]].row) {
      above = run.row == runs[order[first]].row + 1 ? first : i;
      first = i;
    }
    int links = 0;
    while (above < first && runs[order[above]].right < run.left) ++above;
    for (size_t k = above; k < first && runs[order[k]].left <= run.right; ++k) ++links;
    if (links > 1) counts->At(run.left / cell, run.row / cell) += links - 1;
  }
}

void MarkHalftones(const Components& components, double pixelsPerPoint, int cell, BytePlane* cells) {
  const int largest = std::max(2, static_cast<int>(picture::kLargestDot * pixelsPerPoint));
  const Dots dots(components, cell, largest, cells->width(), cells->height());
  Counts counts = dots.counts;
  for (const Component& component : components.all()) {
    // Two runs a row, on average, or there are hardly any holes.
    const bool isLarge = component.box.width() > 2 * cell && component.box.height() > 2 * cell;
    if (isLarge && component.runCount >= 2 * static_cast<uint32_t>(component.box.height())) {
      CountHoles(components, component, cell, &counts);
    }
  }
  const Counts around = counts.Around();
  std::vector<Place> found;
  const auto mark = [&](int column, int row) {
    cells->Row(row)[column] = static_cast<uint8_t>(PictureKind::kHalftone);
    found.push_back({column, row});
  };
  for (int row = 0; row < cells->height(); ++row) {
    for (int column = 0; column < cells->width(); ++column) {
      if (counts.At(column, row) == 0) continue;
      const int32_t count = around.At(column, row);
      const bool isDense = count >= picture::kDenseDots;
      if (isDense ||
          (count >= picture::kEvenDots && !dots.In(column, row).empty() && AreEven(dots, column, row))) {
        mark(column, row);
      }
    }
  }
  for (size_t i = 0; i < found.size(); ++i) {
    const Place from = found[i];
    counts.ForEachAround(from.x, from.y, [&](int column, int row) {
      if (cells->Row(row)[column] == 0 && around.At(column, row) >= picture::kPaleDots) mark(column, row);
    });
  }
}

// ---- ink in one piece, and lines
// -----------------------------------------------------------------------------------

// Visits the cells that a piece of ink reaches into, with the pixels of each.
template <class Visit>
void ForEachCellOf(const Components& components, const Component& component, int cell, Visit visit) {
  const Box& box = component.box;
  const int left = box.left / cell, columns = (box.right - 1) / cell - left + 1;
  std::vector<int32_t> counts(static_cast<size_t>(columns), 0);
  int row = box.top / cell;
  const auto flush = [&] {
    for (int i = 0; i < columns; ++i) {
      if (counts[static_cast<size_t>(i)] != 0) visit(left + i, row, counts[static_cast<size_t>(i)]);
    }
    std::fill(counts.begin(), counts.end(), 0);
  };
  for (const uint32_t index : components.RunsOf(component)) {
    const InkRun& run = components.runs()[index];
    if (run.row / cell != row) {
      flush();
      row = run.row / cell;
    }
    for (int32_t x = run.left; x < run.right;) {
      const int column = x / cell;
      const int32_t end = std::min(run.right, (column + 1) * cell);
      counts[static_cast<size_t>(column - left)] += end - x;
      x = end;
    }
  }
  flush();
}

void MarkSolidsAndLines(const Components& components, double pixelsPerPoint, int cell, BytePlane* cells) {
  for (const Component& component : components.all()) {
    const int64_t width = component.box.width(), height = component.box.height();
    const int64_t percent = component.pixelCount * 100 / (width * height);
    const auto shorter = static_cast<double>(std::min(width, height));
    const auto longer = static_cast<double>(std::max(width, height));
    PictureKind kind = PictureKind::kNone;
    int32_t least = 1;
    if (shorter >= picture::kLeastSolid * pixelsPerPoint && percent >= picture::kSolidPercent) {
      kind = PictureKind::kSolid;
      least = cell * cell / 4;  // a soft edge: not every cell that it touches
    } else if (longer >= picture::kLeastRule * pixelsPerPoint &&
               (percent <= picture::kRulePercent || shorter <= picture::kThickestRule * pixelsPerPoint)) {
      kind = PictureKind::kLineArt;
    }
    if (kind == PictureKind::kNone) continue;
    ForEachCellOf(components, component, cell, [&](int column, int row, int32_t pixels) {
      uint8_t& there = cells->Row(row)[column];
      if (there == 0 && pixels >= least) there = static_cast<uint8_t>(kind);
    });
  }
}

// ---- tone
// -----------------------------------------------------------------------------------------------------------

// What a pixel of tone is between, and how much it may differ from the one two further on, on a paper.
struct ToneLimits {
  explicit ToneLimits(size_t width) : least(width), most(width), step(width) {}
  void SetFor(const std::vector<uint8_t>& white) {
    for (size_t x = 0; x < white.size(); ++x) {
      least[x] = static_cast<uint8_t>((picture::kToneLeast * white[x] + 99) / 100);
      most[x] = static_cast<uint8_t>(picture::kToneMost * white[x] / 100);
      step[x] = static_cast<uint8_t>(picture::kFlatPercent * white[x] / 100);
    }
  }
  std::vector<uint8_t> least, most, step;
};

// Adds 1 where a pixel is neither paper nor ink, and like the one two further on.
void AddTone(const uint8_t* __restrict row, const uint8_t* __restrict least, const uint8_t* __restrict most,
             const uint8_t* __restrict step, int count, uint8_t* __restrict counts) {
  for (int x = 0; x < count; ++x) {
    // Each comparison as a byte, or compilers widen them all.
    const uint8_t level = row[x], next = row[x + 2];
    const auto off = static_cast<uint8_t>(level > next ? level - next : next - level);
    const uint8_t isNoInk = level >= least[x] ? 1 : 0, isNoPaper = level <= most[x] ? 1 : 0;
    const uint8_t isFlat = off <= step[x] ? 1 : 0;
    counts[x] = static_cast<uint8_t>(counts[x] + (isNoInk & isNoPaper & isFlat));
  }
}

void MarkTones(const BytePlane& grey, const PaperMap& paper, int cell, BytePlane* cells) {
  const int columns = cells->width();
  BytePlane isTone(columns, cells->height());
  std::vector<uint8_t> white(static_cast<size_t>(grey.width()));
  ToneLimits limits(white.size());
  std::vector<uint8_t> counts(white.size());  // of up to 255 rows
  const int compared = std::max(grey.width() - 2, 0);
  for (int row = 0; row < cells->height(); ++row) {
    const int top = row * cell, bottom = std::min(top + cell, grey.height());
    paper.BrightnessRow((top + bottom) / 2, white);  // the paper's map is smoother than a cell is high
    limits.SetFor(white);
    // Every other row; and of the columns every other, too, in the end.
    std::vector<int> sums(static_cast<size_t>(columns), 0);
    for (int y = top; y < bottom;) {
      std::fill(counts.begin(), counts.end(), uint8_t{0});
      for (int i = 0; i < 255 && y < bottom; ++i, y += 2) {
        Widest<AddTone>(grey.Row(y), limits.least.data(), limits.most.data(), limits.step.data(), compared,
                        counts.data());
      }
      for (int column = 0; column < columns; ++column) {
        const int left = column * cell, right = std::min(left + cell, compared);
        for (int x = left; x < right; x += 2)
          sums[static_cast<size_t>(column)] += counts[static_cast<size_t>(x)];
      }
    }
    const int asked = ((bottom - top + 1) / 2) * ((cell + 1) / 2);
    for (int column = 0; column < columns; ++column) {
      isTone.Row(row)[column] = sums[static_cast<size_t>(column)] * 100 >= picture::kTonePercent * asked;
    }
  }
  // Only where enough of them touch.
  std::vector<Place> group;
  for (int row = 0; row < isTone.height(); ++row) {
    for (int column = 0; column < columns; ++column) {
      if (isTone.Row(row)[column] != 1) continue;
      group.assign(1, {column, row});
      isTone.Row(row)[column] = 2;
      for (size_t i = 0; i < group.size(); ++i) {
        const Place from = group[i];
        for (int r = std::max(from.y - 1, 0); r <= std::min(from.y + 1, isTone.height() - 1); ++r) {
          for (int c = std::max(from.x - 1, 0); c <= std::min(from.x + 1, columns - 1); ++c) {
            if (isTone.Row(r)[c] != 1) continue;
            isTone.Row(r)[c] = 2;
            group.push_back({c, r});
          }
        }
      }
      if (group.size() < picture::kLeastToneCells) continue;
      for (const Place& place : group) {
        cells->Row(place.y)[place.x] = static_cast<uint8_t>(PictureKind::kTone);
      }
    }
  }
}

// ---- regions
// --------------------------------------------------------------------------------------------------------

std::vector<PictureRegion> RegionsOf(const BytePlane& cells, int cell, int width, int height) {
  std::vector<PictureRegion> regions;
  BytePlane isSeen(cells.width(), cells.height());
  std::vector<Place> group;
  for (int row = 0; row < cells.height(); ++row) {
    for (int column = 0; column < cells.width(); ++column) {
      const uint8_t kind = cells.Row(row)[column];
      if (kind == 0 || isSeen.Row(row)[column] != 0) continue;
      Box box = {column, row, column + 1, row + 1};
      group.assign(1, {column, row});
      isSeen.Row(row)[column] = 1;
      for (size_t i = 0; i < group.size(); ++i) {
        const Place from = group[i];
        box = {std::min(box.left, from.x), box.top, std::max(box.right, from.x + 1),
               std::max(box.bottom, from.y + 1)};
        for (int r = std::max(from.y - 1, 0); r <= std::min(from.y + 1, cells.height() - 1); ++r) {
          for (int c = std::max(from.x - 1, 0); c <= std::min(from.x + 1, cells.width() - 1); ++c) {
            if (cells.Row(r)[c] != kind || isSeen.Row(r)[c] != 0) continue;
            isSeen.Row(r)[c] = 1;
            group.push_back({c, r});
          }
        }
      }
      regions.push_back({static_cast<PictureKind>(kind),
                         {box.left * cell, box.top * cell, std::min(box.right * cell, width),
                          std::min(box.bottom * cell, height)},
                         static_cast<int64_t>(group.size())});
    }
  }
  return regions;
}

}  // namespace

Pictures FindPictures(const BitPlane& ink, const Components& components, const BytePlane* grey,
                      const PaperMap* paper, double pixelsPerPoint) {
  Pictures pictures;
  if (ink.isEmpty()) return pictures;
  // An even number, so that rows and columns of tone are counted alike in each cell.
  const int cell = std::max(picture::kLeastCell, static_cast<int>(picture::kCell * pixelsPerPoint) / 2 * 2);
  pictures.cell_ = cell;
  pictures.cells_ = BytePlane((ink.width() + cell - 1) / cell, (ink.height() + cell - 1) / cell);
  if (grey != nullptr && paper != nullptr) MarkTones(*grey, *paper, cell, &pictures.cells_);
  MarkHalftones(components, pixelsPerPoint, cell, &pictures.cells_);
  MarkSolidsAndLines(components, pixelsPerPoint, cell, &pictures.cells_);
  pictures.regions_ = RegionsOf(pictures.cells_, cell, ink.width(), ink.height());
  return pictures;
}

}  // namespace rastrel::pages
