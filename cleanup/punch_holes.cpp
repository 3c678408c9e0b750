// Punch holes: dark discs near the left edge of a page, measured in millimetres through the page's
// resolution.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "cleanup/darkness.h"
#include "cleanup/progress_window.h"
#include "cleanup/punched_page.h"
#include "frame/dib.h"
#include "frame/rastrel.h"
#include "pixels/words.h"

namespace rastrel {
namespace {

// ---- sizes ------------------------------------------------------------------------------------------

// The diameter in millimetres for a size code, 0 for a code that has none.
int HoleMillimetres(int holeSize) {
  switch (holeSize) {
    case -3:
      return 9;
    case -2:
      return 7;
    case -1:
      return 5;
    case 0:
      return 4;
    default:
      // Kept: 1 is a smaller hole than 0.
      return holeSize < 0 ? 0 : holeSize / 2 + 2;
  }
}

// A disc of this size covers the whole page wherever it lies; squares of it still fit 64 bits.
constexpr double kMaxHole = 3e9;

int64_t Rounded(double length) { return static_cast<int64_t>(length + 0.5); }

constexpr double kProbeMillimetres = 3;  // fits in the smallest hole, of 4 mm
constexpr double kProbeShare = 0.89;     // of its cells are dark where it lies in a hole

// In pixels.
struct HoleSizes {
  HoleSizes(const PunchedPage& page, int millimetres)
      : dpi(page.dpi()),
        band(page.band()),
        probe(static_cast<int>(dpi * Inches(kProbeMillimetres) + 0.5)),
        hole(std::min(Inches(millimetres) * dpi, kMaxHole)),
        longestColumn(Inches(4.0 * millimetres) * dpi),
        longestRow(Inches(2.0 * millimetres) * dpi) {}

  // Whether a probe square counts as a hole when it has more dark cells than this.
  int64_t Threshold() const { return static_cast<int64_t>(probe * kProbeShare * probe); }

  int dpi;
  int band;              // columns from the left edge
  int probe;             // side of the square that looks for holes
  double hole;           // diameter
  double longestColumn;  // longer vertical and horizontal runs of dark cells are lines. Kept: they differ.
  double longestRow;
};

// ---- the map ----------------------------------------------------------------------------------------

// The cells of the left columns of a page, column by column from the top.
struct HoleMap {
  uint8_t* cells;
  int columns;
  int width;  // of the page
  int height;

  uint8_t* Column(int x) const { return cells + static_cast<size_t>(x) * static_cast<size_t>(height); }
};

// The columns that can come to matter: those that decide whether a run which starts in the band is a line. No
// disc reaches farther, as that takes one and a half hole diameters from the band's end or two from the
// page's.
int ColumnsThatMatter(const HoleSizes& sizes, const ConstRows& rows) {
  if (sizes.probe <= 0 || sizes.band <= sizes.probe || rows.height <= sizes.probe) return 0;
  return static_cast<int>(std::min(sizes.band + Rounded(sizes.longestRow) + 1, int64_t{rows.width}));
}

// Writes `count` cells, dark where the bits, from the lowest on, are set.
void SpreadBits(uint64_t bits, int count, uint8_t* cells) {
  uint8_t spread[64];
  for (int i = 0; i < 64; i += 8, bits >>= 8) {
    StoreWord(spread + i, SpreadFlags(static_cast<uint8_t>(bits)));
  }
  std::memcpy(cells, spread, static_cast<size_t>(count));
}

// Marks the dark cells of a page. Returns false when the user cancelled.
bool MarkDarkCells(PunchedPage& page, const HoleMap& map) {
  return GatherColumns(page.rows(), page.DarkPixels(), map.columns, page.window(),
                       [&map](int left, int top, const uint64_t* words, int count) {
                         for (int i = 0; i < count; ++i) {
                           SpreadBits(words[i], std::min(64, map.height - top), map.Column(left + i) + top);
                         }
                       });
}

// ---- lines ------------------------------------------------------------------------------------------

// Protects long vertical runs in a column. The last row is never part of one. Kept: the walk ends after
// height - 4 steps, a light cell or a run each, so that a short run near the bottom may be missed.
void ProtectColumn(uint8_t* column, int height, double longest) {
  int y = 0;
  for (int steps = height - 4; y < height - 1; --steps) {
    const void* found = std::memchr(column + y, kDark, static_cast<size_t>(height - 1 - y));
    if (found == nullptr) return;
    const auto top = static_cast<int>(static_cast<const uint8_t*>(found) - column);
    steps -= top - y;
    if (steps <= 0) return;
    for (y = top; y < height - 1 && column[y] == kDark; ++y) {
    }
    if (y - top > longest) std::fill(column + top, column + y, kLine);
  }
}

// Protects long horizontal runs that start in the band, as far as the map reaches. The last two columns of
// the page are never part of one. `starts` has room for a number for each row.
class RowProtector {
 public:
  RowProtector(const HoleMap& map, const HoleSizes& sizes, int* starts)
      : map_(map),
        height_(map.height),
        starts_(starts),
        lastStart_(sizes.band - 2),
        longest_(static_cast<int>(std::clamp(sizes.longestRow, -1.0, 2e9))) {}

  void Run() {
    std::fill_n(starts_, height_, lastStart_ >= 0 ? 0 : kNone);
    const int end = std::min(map_.columns, map_.width - 2);
    int x = 0;
    for (bool alive = true; x < end && alive; ++x) {
      const uint8_t* column = map_.Column(x);
      if (x > longest_ && AnyLongRunEnds(x, column)) ProtectRunsThatEnd(x, column);
      alive = MoveOn(x, column);
    }
    if (x > 0) ProtectRunsThatEnd(x, nullptr);
  }

 private:
  // No run that started in the band goes on in this row. Far enough right for its runs to have a negative
  // length.
  static constexpr int kNone = INT32_MAX;

  // starts_[y] is where the run that reaches column x - 1 started, x when there is none.
  bool AnyLongRunEnds(int x, const uint8_t* column) const {
    int any = 0;
    for (int y = 0; y < height_; ++y)
      any |= (column[y] != kDark ? -1 : 0) & (x - starts_[y] > longest_ ? -1 : 0);
    return any != 0;
  }

  // With no column to look at all runs end.
  void ProtectRunsThatEnd(int x, const uint8_t* column) const {
    for (int y = 0; y < height_; ++y) {
      if ((column != nullptr && column[y] == kDark) || x - starts_[y] <= longest_) continue;
      for (int i = starts_[y]; i < x; ++i) map_.Column(i)[y] = kLine;
    }
  }

  // Returns whether the next column can matter.
  bool MoveOn(int x, const uint8_t* column) const {
    const int next = x + 1 <= lastStart_ ? x + 1 : kNone;
    int* const starts = starts_;
    const int height = height_;
    for (int y = 0; y < height; ++y) starts[y] = column[y] == kDark ? starts[y] : next;
    return next != kNone || std::any_of(starts, starts + height, [](int start) { return start != kNone; });
  }

  const HoleMap& map_;
  int height_;
  int* starts_;
  int lastStart_;
  int longest_;
};

// ---- holes ------------------------------------------------------------------------------------------

// Slides the probe over the band, down each column position, and erases a disc wherever it is dark enough.
// Every row has a running sum of the dark cells in the columns under the probe.
class HoleSearch {
 public:
  // `sums` has room for a number for each row; none exceeds the probe's side.
  HoleSearch(const HoleMap& map, const HoleSizes& sizes, uint16_t* sums)
      : map_(map), sizes_(sizes), threshold_(sizes.Threshold()), sums_(sums) {
    std::fill_n(sums_, map_.height, uint16_t{0});
    for (int x = 0; x < sizes_.probe - 1; ++x) AddColumn(x);
  }

  // Looks at the squares whose left column is `left`, one more than the call before.
  void SearchDown(int left) {
    left_ = left;
    AddColumn(left + sizes_.probe - 1);
    if (left > 0) RemoveColumn(left - 1);
    if (CountRows(0, map_.height) <= threshold_) return;
    int64_t count = CountRows(0, sizes_.probe);
    for (int top = 0;; ++top) {
      if (count > threshold_) {
        EraseHoleAt(top);
        count = CountRows(top, top + sizes_.probe);
      }
      if (top == map_.height - sizes_.probe - 1) return;
      count += sums_[top + sizes_.probe] - sums_[top];
    }
  }

  // The rows that have erased cells.
  int firstErased() const { return firstErased_; }
  int endErased() const { return endErased_; }

 private:
  // A square may hang outside a page that is narrower than the band.
  void AddColumn(int x) {
    if (x >= map_.columns) return;
    const uint8_t* column = map_.Column(x);
    for (int y = 0; y < map_.height; ++y) sums_[y] = static_cast<uint16_t>(sums_[y] + (column[y] == kDark));
  }
  void RemoveColumn(int x) {
    if (x >= map_.columns) return;
    const uint8_t* column = map_.Column(x);
    for (int y = 0; y < map_.height; ++y) sums_[y] = static_cast<uint16_t>(sums_[y] - (column[y] == kDark));
  }
  int64_t CountRows(int first, int end) const {
    int64_t count = 0;
    for (int y = first; y < end; ++y) count += sums_[y];
    return count;
  }

  // Kept: the disc has the diameter for its radius, and its middle is half a diameter right of the square's
  // corner but a third below it.
  void EraseHoleAt(int top) {
    EraseDisc(left_ + Rounded(sizes_.hole / 2), top + Rounded(sizes_.hole / 3), Rounded(sizes_.hole));
  }

  // Kept: the middle is taken anew from the box that is left of the disc inside the page, so that a disc at
  // an edge moves inward.
  void EraseDisc(int64_t x, int64_t y, int64_t radius) {
    const int64_t left = std::max<int64_t>(x - radius, 1);
    const int64_t top = std::max<int64_t>(y - radius, 1);
    const int64_t right = std::min<int64_t>(x + radius, map_.width - 1);
    const int64_t bottom = std::min<int64_t>(y + radius, map_.height - 1);
    const int64_t middleX = (left + right) / 2;
    const int64_t middleY = (top + bottom) / 2;
    const int64_t lastColumn = std::min<int64_t>(right + radius, map_.columns - 1);
    for (int64_t column = left - 1; column <= lastColumn; ++column) {
      const int64_t down = HalfChord(radius, middleX - column);
      if (down < 0) continue;
      EraseRows(static_cast<int>(column), std::max(top - 1, middleY - down),
                std::min({bottom + radius, middleY + down, int64_t{map_.height} - 1}));
    }
  }

  void EraseRows(int x, int64_t first, int64_t last) {
    if (first > last) return;
    uint8_t* column = map_.Column(x);
    const bool underProbe = left_ <= x && x < left_ + sizes_.probe;
    for (int64_t y = first; y <= last; ++y) {
      if (underProbe && column[y] == kDark) --sums_[y];
      if (column[y] != kLine) column[y] = kErased;
    }
    firstErased_ = std::min(firstErased_, static_cast<int>(first));
    endErased_ = std::max(endErased_, static_cast<int>(last) + 1);
  }

  const HoleMap& map_;
  const HoleSizes& sizes_;
  int64_t threshold_;
  uint16_t* sums_;
  int left_ = 0;
  int firstErased_ = INT32_MAX;
  int endErased_ = 0;
};

// ---- the result -------------------------------------------------------------------------------------

// Calls paint(x, y) for each erased cell of rows `first` to `end` (not included).
template <class Paint>
void ForEachErased(const HoleMap& map, int first, int end, Paint paint) {
  for (int x = 0; x < map.columns && first < end; ++x) {
    const uint8_t* column = map.Column(x);
    const uint8_t* cell = column + first;
    while ((cell = static_cast<const uint8_t*>(
                std::memchr(cell, kErased, static_cast<size_t>(column + end - cell)))) != nullptr) {
      paint(x, static_cast<int>(cell - column));
      ++cell;
    }
  }
}

}  // namespace
}  // namespace rastrel

HGLOBAL RASTREL_CALL PunchHoleRemover(HGLOBAL dib, int holeSize, int showProgress, HWND parent) {
  using namespace rastrel;
  const int millimetres = HoleMillimetres(holeSize);
  if (millimetres == 0) return nullptr;
  PunchedPage page(dib);
  if (!page) return nullptr;
  const ConstRows& rows = page.rows();

  const HoleSizes sizes(page, millimetres);
  if (sizes.probe > UINT16_MAX) return nullptr;  // a square that no block could hold
  const int columns = ColumnsThatMatter(sizes, rows);
  const auto height = static_cast<uint64_t>(rows.height);
  // The rows' numbers come first for the sake of their alignment.
  const NewBlock block(height * sizeof(int) + height * static_cast<uint64_t>(columns), Content::kUnset);
  if (!block) return nullptr;
  const HoleMap map = {block.bytes() + height * sizeof(int), columns, rows.width, rows.height};

  const uint32_t work =
      static_cast<uint32_t>(rows.height) + static_cast<uint32_t>(sizes.band - sizes.probe + 1);
  if (!page.Start(work, showProgress, parent)) return nullptr;
  if (!MarkDarkCells(page, map)) return nullptr;

  for (int x = 0; x < std::min(sizes.band, columns); ++x) {
    ProtectColumn(map.Column(x), map.height, sizes.longestColumn);
  }
  RowProtector(map, sizes, block.As<int>()).Run();
  HoleSearch search(map, sizes, block.As<uint16_t>());
  for (int x = 0; x <= sizes.band - sizes.probe - 1; ++x) {
    if (x % ProgressWindow::kDivisor == 0) page.window().Step();
    if (page.window().cancelled()) return nullptr;
    if (x < columns) search.SearchDown(x);
  }
  return page.PaintedCopy(
      [&](auto paint) { ForEachErased(map, search.firstErased(), search.endErased(), paint); });
}
