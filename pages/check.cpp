#include "pages/check.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "pages/judgement.h"
#include "pixels/kernels.h"

namespace rastrel::pages {
namespace {

constexpr int kCell = check::kCell;
constexpr int CellsOf(int size) { return (size + kCell - 1) / kCell; }

// Sine and cosine of up to 45 degrees as sums of their series: exactly the same on every machine.
struct SineAndCosine {
  double sine, cosine;
};
SineAndCosine SineAndCosineOf(double degrees) {
  const double x = degrees * 0.017453292519943295;  // pi / 180
  double sine = 0, cosine = 0, term = 1;
  for (int n = 1; n <= 16; ++n) {
    // term is x^(n-1) / (n-1)!
    const bool isNegative = (n - 1) / 2 % 2 != 0;
    double& sum = n % 2 != 0 ? cosine : sine;
    sum += isNegative ? -term : term;
    term = term * x / n;
  }
  return {sine, cosine};
}

// ---- cells
// ------------------------------------------------------------------------------------------------------

void TakeLess(const uint8_t* __restrict row, int count, uint8_t* __restrict least) {
  for (int x = 0; x < count; ++x) least[x] = std::min(least[x], row[x]);
}
static_assert(kCell == 4);
void LeastOfFours(const uint8_t* __restrict from, int cells, uint8_t* __restrict least) {
  for (int i = 0; i < cells; ++i) {
    least[i] = std::min(std::min(from[4 * i], from[4 * i + 1]), std::min(from[4 * i + 2], from[4 * i + 3]));
  }
}
void LeastOfThree(const uint8_t* a, const uint8_t* b, const uint8_t* c, int count, uint8_t* __restrict to) {
  for (int i = 0; i < count; ++i) to[i] = std::min(std::min(a[i], b[i]), c[i]);
}

// The least of each cell's values, as far as they are in the rows: first of the rows of a cell, then along
// the row that is left.
class Darkest {
 public:
  Darkest(int width, int height)
      : width_(width),
        height_(height),
        least_(static_cast<size_t>(CellsOf(width)) * kCell, 255),
        cells_(CellsOf(width), CellsOf(height)) {}
  // Rows from the first to the last.
  void AddRow(int y, const uint8_t* row) {
    uint8_t* const least = least_.data();
    Widest<TakeLess>(row, width_, least);
    if (y % kCell != kCell - 1 && y != height_ - 1) return;
    Widest<LeastOfFours>(least, cells_.width(), cells_.Row(y / kCell));
    std::fill(least_.begin(), least_.end(), 255);
  }
  BytePlane Take() { return std::move(cells_); }

 private:
  int width_, height_;
  std::vector<uint8_t> least_;  // of the rows of a cell so far; 255 beyond the page
  BytePlane cells_;
};

// The least of each cell and the eight around it.
BytePlane LeastAround(const BytePlane& cells) {
  const int width = cells.width(), height = cells.height();
  BytePlane across(width, height, PlaneContent::kUnset), result(width, height, PlaneContent::kUnset);
  for (int y = 0; y < height; ++y) {
    const uint8_t* from = cells.Row(y);
    uint8_t* to = across.Row(y);
    to[0] = std::min(from[0], from[std::min(1, width - 1)]);
    to[width - 1] = std::min(from[std::max(0, width - 2)], from[width - 1]);
    if (width > 2) Widest<LeastOfThree>(from, from + 1, from + 2, width - 2, to + 1);
  }
  for (int y = 0; y < height; ++y) {
    const uint8_t* above = across.Row(std::max(y - 1, 0));
    const uint8_t* here = across.Row(y);
    const uint8_t* below = across.Row(std::min(y + 1, height - 1));
    Widest<LeastOfThree>(above, here, below, width, result.Row(y));
  }
  return result;
}

// The lowest bit of each cell along a row that has any, at the cell's first bit.
uint64_t AnyOfCells(uint64_t row) {
  row |= row >> 1;
  return (row | row >> 2) & 0x1111111111111111;
}

// 0 where a cell has ink, 255 where it has none.
BytePlane CellsWithInk(const BitPlane& ink) {
  BytePlane cells(CellsOf(ink.width()), CellsOf(ink.height()), 255);
  std::vector<uint64_t> rows(ink.wordsPerRow());
  for (int row = 0; row < cells.height(); ++row) {
    std::fill(rows.begin(), rows.end(), 0);
    for (int y = row * kCell; y < std::min((row + 1) * kCell, ink.height()); ++y) {
      for (size_t i = 0; i < rows.size(); ++i) rows[i] |= ink.Row(y)[i];
    }
    uint8_t* to = cells.Row(row);
    for (size_t i = 0; i < rows.size(); ++i) {
      uint64_t any = AnyOfCells(rows[i]);
      if (i + 1 == rows.size() && cells.width() % 16 != 0)
        any &= ~uint64_t{0} << (64 - cells.width() % 16 * 4);
      for (; any != 0; any &= any - 1) to[i * 16 + 15 - static_cast<size_t>(std::countr_zero(any)) / 4] = 0;
    }
  }
  return cells;
}

BytePlane DarkestOf(const BytePlane& grey) {
  Darkest darkest(grey.width(), grey.height());
  for (int y = 0; y < grey.height(); ++y) darkest.AddRow(y, grey.Row(y));
  return darkest.Take();
}

BytePlane DarknessOf(const PageView& page, bool isTextDark) {
  if (page.bits() == 1) {
    BitPlane ink = InkOf1Bit(page);
    if (!isTextDark) {
      for (uint64_t& word : ink.words()) word = ~word;
    }
    return CellsWithInk(ink);
  }
  Darkest darkest(page.width(), page.height());
  const GreyRows greys(page);
  std::vector<uint8_t> row(static_cast<size_t>(page.width()));
  for (int y = 0; y < page.height(); ++y) {
    greys.Read(y, row.data());
    if (!isTextDark) {
      for (uint8_t& byte : row) byte = static_cast<uint8_t>(255 - byte);
    }
    darkest.AddRow(y, row.data());
  }
  return darkest.Take();
}

// How many pixels of ink there are in each of the 16 cells of a word's four rows, the leftmost first. A cell
// has up to 16, so nibbles are added up in two words of bytes.
struct CellCounts {
  CellCounts(const uint64_t* const* rows, size_t word) {
    constexpr uint64_t kPairs = 0x5555555555555555, kNibbles = 0x3333333333333333;
    constexpr uint64_t kBytes = 0x0F0F0F0F0F0F0F0F;
    for (int i = 0; i < kCell; ++i) {
      if (rows[i] == nullptr) continue;
      uint64_t counts = rows[i][word];
      counts -= counts >> 1 & kPairs;
      counts = (counts & kNibbles) + (counts >> 2 & kNibbles);
      even_ += counts >> 4 & kBytes;
      odd_ += counts & kBytes;
    }
  }
  // The lowest bit of each cell with `least` (1 to 128) pixels or more.
  uint64_t AtLeast(int least) const {
    constexpr uint64_t kHighest = 0x8080808080808080;
    const uint64_t add = 0x0101010101010101 * static_cast<uint64_t>(128 - least);
    return ((even_ + add) & kHighest) >> 3 | ((odd_ + add) & kHighest) >> 7;
  }
  int Of(int cell) const {
    return static_cast<int>((cell % 2 == 0 ? even_ : odd_) >> (56 - cell / 2 * 8) & 255);
  }

 private:
  uint64_t even_ = 0, odd_ = 0;
};

// The four rows of a row of cells; those beyond the page are empty.
struct FourRows {
  FourRows(const BitPlane& plane, int row) {
    for (int i = 0; i < kCell; ++i) {
      const int y = row * kCell + i;
      rows[i] = !plane.isEmpty() && y < plane.height() ? plane.Row(y) : nullptr;
    }
  }
  uint64_t Any(size_t word) const {
    uint64_t any = 0;
    for (const uint64_t* row : rows) any |= row != nullptr ? row[word] : 0;
    return any;
  }
  const uint64_t* rows[kCell];
};

// The middle of a cell along a page of `size` pixels.
double MiddleOf(int cell, int size) { return (cell * kCell + std::min((cell + 1) * kCell, size) - 1) / 2.0; }

// The middle of the paper's brightness: what most of a page's pixels are, counting those without ink.
int PaperLevel(const BitPlane& ink, const BytePlane& grey) {
  constexpr int kStep = 7;  // every so many pixels both ways tell enough
  int64_t counts[256] = {}, all = 0;
  for (int y = 0; y < grey.height(); y += kStep) {
    for (int x = 0; x < grey.width(); x += kStep) {
      if (ink.Get(x, y)) continue;
      ++counts[grey.Row(y)[x]];
      ++all;
    }
  }
  int level = 0;
  for (int64_t below = counts[0]; 2 * below < all && level < 255; below += counts[level]) ++level;
  return level;
}

// Whether what is around a piece of ink, up to two pixels from its box, is paper: light, on 1-bit pages, and
// else lighter than the piece by more than grain is.
bool StandsOnPaper(const Components& components, const Component& component, const BitPlane& ink,
                   const BytePlane& grey, int paperLevel) {
  constexpr int kRing = 2;  // pixels
  const Box& box = component.box;
  const int left = std::max(0, box.left - kRing), right = std::min(ink.width(), box.right + kRing);
  const int top = std::max(0, box.top - kRing), bottom = std::min(ink.height(), box.bottom + kRing);
  int64_t light = 0, lightSum = 0, inkSum = 0;
  for (int y = top; y < bottom; ++y) {
    for (int x = left; x < right; ++x) {
      if (ink.Get(x, y)) continue;
      ++light;
      if (!grey.isEmpty()) lightSum += grey.Row(y)[x];
    }
  }
  const int64_t around = int64_t{right - left} * (bottom - top) - component.pixelCount;
  if (light * 100 < around * check::kLeastLightAround) return false;
  if (grey.isEmpty()) return true;
  for (const uint32_t index : components.RunsOf(component)) {
    const InkRun& run = components.runs()[index];
    for (int x = run.left; x < run.right; ++x) inkSum += grey.Row(run.row)[x];
  }
  const int64_t contrast = lightSum / light - inkSum / component.pixelCount;
  return contrast * 100 >= int64_t{paperLevel} * check::kLeastContrast;
}

}  // namespace

Movement::Movement(int width, int height, double degrees, int turnedWidth, int turnedHeight, int left,
                   int top)
    : isIdentity_(degrees == 0 && left == 0 && top == 0) {
  const auto [sine, cosine] = SineAndCosineOf(degrees);
  rightAcross_ = downDown_ = cosine;
  rightDown_ = -sine;
  downAcross_ = sine;
  const double middleX = (width - 1) / 2.0, middleY = (height - 1) / 2.0;
  x_ = (turnedWidth - 1) / 2.0 - left - (middleX * cosine + middleY * sine);
  y_ = (turnedHeight - 1) / 2.0 - top - (middleY * cosine - middleX * sine);
}

Movement Movement::Enlarged(double timesAcross, double timesDown) const {
  Movement result = *this;
  result.isIdentity_ = isIdentity_ && timesAcross == 1 && timesDown == 1;
  for (double* across : {&result.rightAcross_, &result.downAcross_}) *across *= timesAcross;
  for (double* down : {&result.rightDown_, &result.downDown_}) *down *= timesDown;
  // Middles of pixels lie half a pixel from their edges.
  result.x_ = (x_ + 0.5) * timesAcross - 0.5;
  result.y_ = (y_ + 0.5) * timesDown - 0.5;
  return result;
}

void Missing::Add(int left, int top, int right, int bottom, int64_t count) {
  box = isNothing() ? Box{left, top, right, bottom}
                    : Box{std::min(box.left, left), std::min(box.top, top), std::max(box.right, right),
                          std::max(box.bottom, bottom)};
  pixels += count;
}

Missing FindLost(const BitPlane& ink, const BytePlane& grey, const BitPlane& named, const PageView& after,
                 bool isTextDark, const Movement& movement) {
  Missing missing;
  if (ink.isEmpty()) return missing;
  using Middle = Movement::Place;
  const BytePlane there = LeastAround(DarknessOf(after, isTextDark));
  const bool isGrey = !grey.isEmpty();
  const int paper = isGrey ? PaperLevel(ink, grey) : 255;
  const BytePlane before = isGrey ? DarkestOf(grey) : BytePlane();
  // Where the middles of cells go: a part that is the same down each column of cells, and one along each row.
  std::vector<Middle> columns(static_cast<size_t>(CellsOf(ink.width())));
  for (size_t i = 0; i < columns.size(); ++i) {
    columns[i] = movement.ColumnOf(MiddleOf(static_cast<int>(i), ink.width()));
  }
  for (int row = 0; row < CellsOf(ink.height()); ++row) {
    const FourRows inked(ink, row), taken(named, row);
    const Middle along = movement.RowOf(MiddleOf(row, ink.height()));
    for (size_t i = 0; i < ink.wordsPerRow(); ++i) {
      if (inked.Any(i) == 0) continue;
      const CellCounts counts(inked.rows, i);
      uint64_t asked = counts.AtLeast(check::kLeastInk) & ~AnyOfCells(taken.Any(i));
      for (; asked != 0; asked &= asked - 1) {
        const int cell = 15 - std::countr_zero(asked) / kCell;
        const size_t column = i * 16 + static_cast<size_t>(cell);
        int dark = 0;
        if (isGrey) {
          dark = before.Row(row)[column];
          if ((paper - dark) * 100 < check::kPalePercent * paper) continue;
        }
        const double x = columns[column].x + along.x, y = columns[column].y + along.y;
        const bool isOnPage = x >= 0 && y >= 0 && x < after.width() && y < after.height();
        const int most = paper - (paper - dark) * check::kLeftPercent / 100;
        if (isOnPage && there.Row(static_cast<int>(y) / kCell)[static_cast<int>(x) / kCell] <= most) continue;
        const int left = static_cast<int>(column) * kCell, top = row * kCell;
        const Box box = {left, top, std::min(left + kCell, ink.width()), std::min(top + kCell, ink.height())};
        missing.Add(box.left, box.top, box.right, box.bottom, counts.Of(cell));
        missing.cells.push_back(box);
      }
    }
  }
  return missing;
}

void PutBack(const Missing& missing, const BitPlane& ink, const PageView& after, bool isTextDark,
             const Movement& movement) {
  const Ink drawn = GroundInk(after, !isTextDark);
  // A pixel from its edges on, in whole pixels of the page that goes out.
  const auto place = [&](int x, int y) {
    return std::pair(std::floor(movement.XOf(x - 0.5, y - 0.5) + 0.5),
                     std::floor(movement.YOf(x - 0.5, y - 0.5) + 0.5));
  };
  for (const Box& cell : missing.cells) {
    for (int y = cell.top; y < cell.bottom; ++y) {
      for (int x = cell.left; x < cell.right; ++x) {
        if (!ink.Get(x, y)) continue;
        const auto [left, top] = place(x, y);
        const auto [right, bottom] = place(x + 1, y + 1);
        // Turned by any angle, at least the pixel that its corner is in.
        for (int row = std::max(0, static_cast<int>(top));
             row < std::min(after.height() + 0.0, std::max(top + 1, bottom)); ++row) {
          PaintRow(after, row, std::max(0, static_cast<int>(left)),
                   static_cast<int>(std::min(after.width() + 0.0, std::max(left + 1, right))), drawn);
        }
      }
    }
  }
}

Missing FindCutText(const Components& components, const BitPlane& ink, const BytePlane& grey, int paperLevel,
                    const BitPlane& named, double letterHeight) {
  Missing missing;
  if (named.isEmpty() || letterHeight <= 0) return missing;
  struct Letter {
    Box box;
    int64_t taken;
    bool isTaken, isCut;
  };
  // All letters, taken or not, from left to right.
  std::vector<Letter> letters;
  bool isAnyTaken = false;
  for (const Component& component : components.all()) {
    const Box& box = component.box;
    const double height = box.height();
    if (height < check::kLeastLetter * letterHeight || height > check::kMostLetter * letterHeight ||
        box.width() > check::kLongestLetter * letterHeight) {
      continue;
    }
    Letter letter = {box, 0, false, false};
    const int x = (box.left + box.right) / 2, y = (box.top + box.bottom) / 2;
    if (named.Get(box.left, y) || named.Get(box.right - 1, y) || named.Get(x, box.top) ||
        named.Get(x, box.bottom - 1)) {
      for (const uint32_t index : components.RunsOf(component)) {
        const InkRun& run = components.runs()[index];
        for (int column = run.left; column < run.right; ++column) letter.taken += named.Get(column, run.row);
      }
      const int64_t percent = letter.taken * 100 / component.pixelCount;
      letter.isTaken =
          percent > check::kCutLeast && StandsOnPaper(components, component, ink, grey, paperLevel);
      letter.isCut = letter.isTaken && percent < check::kCutMost;
      isAnyTaken = isAnyTaken || letter.isTaken;
    }
    letters.push_back(letter);
  }
  if (!isAnyTaken) return missing;
  std::stable_sort(letters.begin(), letters.end(),
                   [](const Letter& a, const Letter& b) { return a.box.left < b.box.left; });
  const auto furthest =
      static_cast<int>((check::kNextLetter + check::kLongestLetter) * check::kMostLetter * letterHeight);
  int count = 0;
  for (size_t i = 0; i < letters.size(); ++i) {
    const Letter& letter = letters[i];
    if (!letter.isTaken) continue;
    const double height = letter.box.height();
    int alike = 0;
    const auto look = [&](const Letter& other) {
      const double otherHeight = other.box.height();
      const int off = std::abs(letter.box.top + letter.box.bottom - other.box.top - other.box.bottom);
      const int apart = std::max(other.box.left - letter.box.right, letter.box.left - other.box.right);
      alike += std::max(height, otherHeight) <= check::kAlikeHeights * std::min(height, otherHeight) &&
               off <= 2 * check::kOneLine * height && apart <= check::kNextLetter * height;
    };
    for (size_t k = i; k-- > 0 && letter.box.left - letters[k].box.left <= furthest;) look(letters[k]);
    for (size_t k = i + 1; k < letters.size() && letters[k].box.left - letter.box.left <= furthest; ++k)
      look(letters[k]);
    if (alike < 2) continue;
    ++count;
    missing.Add(letter.box.left, letter.box.top, letter.box.right, letter.box.bottom, letter.taken);
  }
  return count >= check::kLeastLetters ? missing : Missing{};
}

}  // namespace rastrel::pages
