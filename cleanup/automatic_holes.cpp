// Punch holes of any size: dark blobs near the left edge of a page that are left when specks and lines are
// taken away, and about as wide as tall.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>

#include "cleanup/darkness.h"
#include "cleanup/punched_page.h"
#include "frame/dib.h"
#include "frame/rastrel.h"
#include "pixels/words.h"

namespace rastrel {
namespace {

// ---- sizes ------------------------------------------------------------------------------------------

// In millimetres.
constexpr double kShortestRun = 2;
constexpr double kLongestRun = 15;
constexpr double kLeastHole = 4;
constexpr double kMostExcess = 0.6;
constexpr double kDiscMargin = 1.1;

// In pixels, of a resolution above 0.
struct BlobSizes {
  explicit BlobSizes(const PunchedPage& page)
      : search(page.band() - 1),
        shortest(static_cast<int>(std::ceil(Inches(kShortestRun) * page.dpi()))),
        longest(static_cast<int>(Inches(kLongestRun) * page.dpi())),
        least(page.dpi() * Inches(kLeastHole)),
        excess(page.dpi() * Inches(kMostExcess)),
        margin(static_cast<int>(page.dpi() * Inches(kDiscMargin) + 0.5)) {}

  int search;     // columns in which a blob's row may begin
  int shortest;   // shorter runs of dark cells are specks
  int longest;    // longer ones are lines
  double least;   // a hole has more than this in both directions
  double excess;  // half a hole's height exceeds half its width by less than this
  int margin;     // of a disc around the blob that it erases
};

// The columns that can come to matter, whole words of them unless the page ends there. A row of a blob has
// its middle up to half a line right of the search. From there another row goes on for up to a line and a
// pixel (the last column is not counted), and a disc, whose radius is half of that and the margin, has its
// middle no farther than the middle of that row. Right of that, runs need to be told from lines.
int ColumnsThatMatter(const BlobSizes& sizes, const ConstRows& rows) {
  if (sizes.search <= 0) return 0;
  const int64_t longest = sizes.longest;
  const int64_t erased = sizes.search + longest / 2 + longest + 2 + sizes.margin;
  const int64_t columns = erased + longest + 1;
  return static_cast<int>(std::min((columns + 63) / 64 * 64, int64_t{rows.width}));
}

// ---- the map ----------------------------------------------------------------------------------------

// The left columns of a page, in strips of 64: a word for the low bits of a row's cells and one for the high
// bits, the leftmost cell in a word's highest bit, strip by strip from the top.
class StripMap {
 public:
  StripMap(uint64_t* words, int columns, const ConstRows& page)
      : words_(words), columns_(columns), width_(page.width), height_(page.height) {}

  static uint64_t WordsOf(int columns, int height) {
    return Strips(columns) * 2 * static_cast<uint64_t>(height);
  }

  int columns() const { return columns_; }
  int width() const { return width_; }  // of the page
  int height() const { return height_; }
  int strips() const { return static_cast<int>(Strips(columns_)); }
  uint64_t* Low(int strip) const {
    return words_ + static_cast<size_t>(strip) * 2 * static_cast<size_t>(height_);
  }
  uint64_t* High(int strip) const { return Low(strip) + height_; }

  bool IsDark(int x, int y) const { return (Dark(x / 64, y) << x % 64 >> 63) != 0; }

  // The first column from x on that is dark, or is not; `end` when there is none before that.
  int FindDark(int x, int y, int end) const { return Find(x, y, end, 0); }
  int FindOther(int x, int y, int end) const { return Find(x, y, end, ~uint64_t{0}); }

  // The last column up to x that is not dark, 0 when there is none.
  int FindOtherLeft(int x, int y) const {
    uint64_t found = ~Dark(x / 64, y) & ~uint64_t{0} << (63 - x % 64);
    for (int strip = x / 64;; found = ~Dark(--strip, y)) {
      if (found != 0) return strip * 64 + 63 - std::countr_zero(found);
      if (strip == 0) return 0;
    }
  }

  // Makes columns `first` to `last` of a row light or a line.
  void Write(int y, int first, int last, Cell cell) const {
    ForEachWord(first, last, [=, this](int strip, uint64_t cells) {
      for (uint64_t* word : {Low(strip) + y, High(strip) + y})
        *word = cell == kLight ? *word & ~cells : *word | cells;
    });
  }

  // Erases them but for lines.
  void Erase(int y, int first, int last) const {
    ForEachWord(first, last, [=, this](int strip, uint64_t cells) {
      uint64_t& low = Low(strip)[y];
      uint64_t& high = High(strip)[y];
      cells &= ~(low & high);
      low &= ~cells;
      high |= cells;
    });
  }

 private:
  static uint64_t Strips(int columns) { return (static_cast<uint64_t>(columns) + 63) / 64; }

  uint64_t Dark(int strip, int y) const { return Low(strip)[y] & ~High(strip)[y]; }

  int Find(int x, int y, int end, uint64_t flip) const {
    if (x >= end) return end;
    int strip = x / 64;
    uint64_t found = (Dark(strip, y) ^ flip) & ~uint64_t{0} >> x % 64;
    while (found == 0) {
      if (++strip * 64 >= end) return end;
      found = Dark(strip, y) ^ flip;
    }
    return std::min(strip * 64 + std::countl_zero(found), end);
  }

  template <class Change>
  static void ForEachWord(int first, int last, Change change) {
    if (first > last) return;
    uint64_t cells = ~uint64_t{0} >> first % 64;
    for (int strip = first / 64; strip < last / 64; ++strip, cells = ~uint64_t{0}) change(strip, cells);
    change(last / 64, cells & ~uint64_t{0} << (63 - last % 64));
  }

  uint64_t* words_;
  int columns_;
  int width_;
  int height_;
};

// Marks the dark cells of a page in the low bits; what they hold beyond its columns does not matter. Returns
// false when the user cancelled.
bool MarkDarkCells(PunchedPage& page, const StripMap& map) {
  return GatherSquares(page.rows(), page.DarkPixels(), map.columns(), page.window(),
                       [&map](int left, int top, const uint64_t* square, uint64_t /*any*/) {
                         uint64_t* to = map.Low(left / 64) + top;
                         const int count = std::min(64, map.height() - top);
                         for (int i = 0; i < count; ++i) to[i] = SwapLeftFirst(square[i]);
                       });
}

// ---- specks and lines -------------------------------------------------------------------------------

// Of rows with bits where so many dark cells in a row, `from`, begin downward, keeps those where as many as
// `to` do.
void KeepLonger(uint64_t* rows, int count, int from, int to) {
  for (int length = from; length < to;) {
    const int step = std::min({length, to - length, count});
    for (int y = 0; y < count - step; ++y) rows[y] &= rows[y + step];
    std::fill(rows + count - step, rows + count, 0);
    if (step == count) return;
    length += step;
  }
}

// Clears the vertical runs of a strip that are specks and protects those that are lines. The last row is not
// counted. Kept: the cell below a speck or line goes with it, even a dark one in the last row. `longEnough`
// has room for a word for each row.
void FilterColumns(const StripMap& map, int strip, const BlobSizes& sizes, uint64_t* longEnough) {
  uint64_t* const low = map.Low(strip);
  uint64_t* const high = map.High(strip);
  const int counted = map.height() - 1;
  std::copy_n(low, counted, longEnough);
  KeepLonger(longEnough, counted, 1, sizes.shortest);
  uint64_t* const tooLong = high;
  std::copy_n(longEnough, counted, tooLong);
  KeepLonger(tooLong, counted, sizes.shortest, sizes.longest + 1);

  // From where they begin the runs go on as far as cells are dark.
  uint64_t dark = 0;
  uint64_t noSpeck = 0;
  uint64_t line = 0;
  for (int y = 0; y < counted; ++y) {
    const uint64_t lineAbove = line;
    dark = low[y];
    noSpeck = dark & (longEnough[y] | noSpeck);
    line = dark & (tooLong[y] | line);
    low[y] = noSpeck | lineAbove;
    high[y] = line | lineAbove;
  }
  low[counted] = (low[counted] & ~(dark & ~noSpeck)) | line;
  high[counted] = line;
}

// The same for the horizontal runs of a row, whose last column is not counted.
void FilterRow(const StripMap& map, int y, const BlobSizes& sizes) {
  const int counted = std::min(map.columns(), map.width() - 1);
  for (int x = 0, end; (x = map.FindDark(x, y, counted)) < counted; x = end) {
    end = map.FindOther(x, y, counted);
    const int run = end - x;
    if (sizes.shortest <= run && run <= sizes.longest) continue;
    map.Write(y, x, std::min(end, map.columns() - 1), run < sizes.shortest ? kLight : kLine);
  }
}

// ---- holes ------------------------------------------------------------------------------------------

struct Extent {
  int first;
  int size;
  int half() const { return size / 2; }
  int middle() const { return first + size / 2; }
};

class BlobSearch {
 public:
  BlobSearch(const StripMap& map, const BlobSizes& sizes)
      : map_(map), sizes_(sizes), searched_(std::min(sizes.search, map.columns())) {}

  // Looks at the blobs in a row, one below that of the call before.
  void SearchRow(int y) const {
    const int counted = std::min(map_.columns(), map_.width() - 1);
    for (int x = 0, end; (x = map_.FindDark(x, y, searched_)) < searched_; x = end) {
      end = std::max(map_.FindOther(x, y, counted), x + 1);
      if (end - x > sizes_.least) EraseHoleAt(x + (end - x) / 2, y);
    }
  }

 private:
  // Measures down through the cell, then across through the middle of that.
  void EraseHoleAt(int x, int y) const {
    const Extent down = ExtentDown(x, y);
    if (down.size <= sizes_.least) return;
    const Extent across = ExtentAcross(x, down.middle());
    // Kept: much wider blobs count as holes, taller ones do not.
    if (down.half() - across.half() >= sizes_.excess) return;
    EraseDisc(across.middle(), down.middle(), (down.half() + across.half()) / 2 + sizes_.margin);
  }

  // Kept: row 0 and column 0 belong to no blob.
  Extent ExtentDown(int x, int y) const {
    int above = y;
    while (above > 0 && map_.IsDark(x, above)) --above;
    int below = y;
    while (below < map_.height() && map_.IsDark(x, below)) ++below;
    return {above + 1, below - above - 1};
  }

  Extent ExtentAcross(int x, int y) const {
    const int left = map_.FindOtherLeft(x, y);
    // Kept: where the column left of the blob has the number of the row, the blob counts as no pixel wide.
    if (left == y) return {left, 0};
    return {left + 1, map_.FindOther(x, y, map_.columns()) - left - 1};
  }

  // Kept: the middle is taken anew from the box that is left of the disc inside the page, so that a disc at
  // an edge moves inward; the box still bounds it.
  void EraseDisc(int64_t x, int64_t y, int64_t radius) const {
    const int64_t left = std::max<int64_t>(x - radius, 0);
    const int64_t top = std::max<int64_t>(y - radius, 0);
    const int64_t right = std::min<int64_t>(x + radius, map_.width() - 1);
    const int64_t bottom = std::min<int64_t>(y + radius, map_.height() - 1);
    const int64_t middleX = (left + right) / 2;
    const int64_t middleY = (top + bottom) / 2;
    const int64_t lastColumn = std::min<int64_t>(right, map_.columns() - 1);
    for (int64_t row = top; row <= bottom; ++row) {
      const int64_t half = HalfChord(radius, middleY - row);
      if (half < 0) continue;
      map_.Erase(static_cast<int>(row), static_cast<int>(std::max(left, middleX - half)),
                 static_cast<int>(std::min(lastColumn, middleX + half)));
    }
  }

  const StripMap& map_;
  const BlobSizes& sizes_;
  int searched_;
};

// Calls paint(x, y) for each erased cell.
template <class Paint>
void ForEachErased(const StripMap& map, Paint paint) {
  for (int strip = 0; strip < map.strips(); ++strip) {
    for (int y = 0; y < map.height(); ++y) {
      uint64_t erased = map.High(strip)[y] & ~map.Low(strip)[y];
      for (; erased != 0; erased &= erased - 1) paint(strip * 64 + 63 - std::countr_zero(erased), y);
    }
  }
}

}  // namespace
}  // namespace rastrel

HGLOBAL RASTREL_CALL AutoPunchHoleRemover(HGLOBAL dib, int showProgress, HWND parent) {
  using namespace rastrel;
  PunchedPage page(dib);
  if (!page) return nullptr;
  const BlobSizes sizes(page);
  const int height = page.rows().height;
  const int columns = ColumnsThatMatter(sizes, page.rows());
  const uint64_t mapWords = StripMap::WordsOf(columns, height);
  // Behind the map there is room for a word for each row. No block is empty.
  const uint64_t scratchWords = columns == 0 ? 1 : static_cast<uint64_t>(height);
  const NewBlock block((mapWords + scratchWords) * sizeof(uint64_t), Content::kUnset);
  if (!block) return nullptr;
  const StripMap map(block.As<uint64_t>(), columns, page.rows());

  const uint32_t work = static_cast<uint32_t>(page.band()) + 2 * static_cast<uint32_t>(height) + 1;
  if (!page.Start(work, showProgress, parent)) return nullptr;
  if (!MarkDarkCells(page, map)) return nullptr;

  uint64_t* const scratch = block.As<uint64_t>() + mapWords;
  for (int strip = 0; strip < map.strips(); ++strip) FilterColumns(map, strip, sizes, scratch);
  for (int y = 0; y < height; ++y) FilterRow(map, y, sizes);
  const BlobSearch search(map, sizes);
  for (int y = 0; y < height; ++y) {
    if (y % ProgressWindow::kDivisor == 0) page.window().Step();
    if (page.window().cancelled()) return nullptr;
    search.SearchRow(y);
  }
  return page.PaintedCopy([&map](auto paint) { ForEachErased(map, paint); });
}
