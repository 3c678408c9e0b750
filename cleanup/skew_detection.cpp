// The skew of a page: by how many whole degrees its lines are turned.
//
// Every clump of foreground, about a letter, is reduced to one anchor. Each anchor votes, for each of 180
// directions, for the line in that direction that it lies on; the line with the most votes tells the
// direction of the text.
#include <algorithm>
#include <bit>
#include <cstdint>
#include <optional>

#include "cleanup/darkness.h"
#include "cleanup/line_votes.h"
#include "cleanup/progress_window.h"
#include "frame/dib.h"
#include "frame/rastrel.h"

namespace rastrel {
namespace {

// ---- the page as cells ------------------------------------------------------------------------------

// Foreground that belongs to no clump yet, as bits: a word is 64 rows of a column, the topmost in the lowest
// bit, and stands beside the words of the neighbouring columns. Cells of 0 surround the page: at least 64
// rows above and below it and kBorder columns to the right.
class CellMap {
 public:
  static constexpr int kBorder = 16;

  CellMap(uint64_t* words, int width, int height)
      : stride_(Stride(width)),
        first_(words + stride_),
        wordRows_((height - 1) / 64 + 1),
        width_(width),
        height_(height) {
    std::fill_n(words, stride_, 0);
    for (int i = 0; i < wordRows_; ++i) std::fill(Row(i) + width, Row(i) + stride_, 0);
    std::fill_n(Row(wordRows_), stride_, 0);
  }
  static uint64_t BytesNeeded(int width, int height) {
    return Stride(width) * (static_cast<uint64_t>(height - 1) / 64 + 3) * sizeof(uint64_t);
  }

  int width() const { return width_; }
  int height() const { return height_; }
  int wordRows() const { return wordRows_; }
  size_t stride() const { return stride_; }
  uint64_t* Row(int index) const { return first_ + stride_ * static_cast<size_t>(index); }

 private:
  // An odd number of cache lines, so that the words of a column do not all fall into one set of the cache.
  static size_t Stride(int width) { return ((static_cast<size_t>(width) + kBorder + 7) / 8 | 1) * 8; }

  size_t stride_;
  uint64_t* first_;
  int wordRows_;
  int width_;
  int height_;
};

// The number of gaps (cells that are not foreground) that stripping walks over.
constexpr int kGapsCrossed = 3;

// Clears the foreground of a column from the top down to the fourth gap.
void StripFromTop(const CellMap& map, int x) {
  int gaps = 0;
  for (int y = 0; y < map.height();) {
    uint64_t& word = map.Row(y / 64)[x];
    const int run = std::countr_one(word >> y % 64);
    if (run > 0) {
      word &= ~(~uint64_t{0} >> (64 - run) << y % 64);
      y += run;
    } else {
      if (gaps++ == kGapsCrossed) return;
      ++y;
    }
  }
}

void StripFromBottom(const CellMap& map, int x) {
  int gaps = 0;
  for (int y = map.height() - 1; y >= 0;) {
    uint64_t& word = map.Row(y / 64)[x];
    const int run = std::countl_one(word << (63 - y % 64));
    if (run > 0) {
      y -= run;
      word &= ~(~uint64_t{0} >> (64 - run) << (y + 1) % 64);
    } else {
      if (gaps++ == kGapsCrossed) return;
      --y;
    }
  }
}

// ---- clumps -----------------------------------------------------------------------------------------

constexpr int kMaxRadius = 10;

int ClumpRadius(int width, int height) {
  const auto radius =
      static_cast<int>(std::min((width / 100.0 + height / 100.0) / 2.0 + 0.5, double{kMaxRadius}));
  return radius < 2 ? 0 : radius;
}

// Each clump starts from a cell that is more than the radius away, across or down, from where every other one
// started.
uint64_t MaxAnchors(int width, int height, int radius) {
  return (static_cast<uint64_t>(width) + radius) / (radius + 1) *
         ((static_cast<uint64_t>(height) + radius) / (radius + 1));
}

// Visits the cells column by column from the left, downwards. At a cell of foreground, all foreground up to
// `radius` columns and rows away is one clump: its anchor is noted, in its last column and the middle of its
// rows, and its box leaves the map. The box takes in all foreground of the neighbourhood, the visited cell
// too. So what was visited is never foreground again, and nothing of a neighbourhood lies left of the visited
// cell.
//
// Anchors are all different: a later clump with the same last column has nothing in the rows around an
// earlier start, and as it cannot reach across them, its middle lies outside of them too.
template <class Coordinate>
size_t FindAnchors(const CellMap& map, int radius, Anchor<Coordinate>* anchors) {
  const Anchor<Coordinate>* const first = anchors;
  const uint64_t rows = (uint64_t{1} << (2 * radius + 1)) - 1;
  for (int x = 0; x < map.width(); ++x) {
    for (int i = 0; i < map.wordRows(); ++i) {
      uint64_t* const word = map.Row(i) + x;
      while (*word != 0) {
        // The neighbourhood reaches over two words of each column.
        const int top = 64 * i + std::countr_zero(*word) - radius;
        uint64_t* const upper = top < 64 * i ? word - map.stride() : word;
        uint64_t* const lower = upper + map.stride();
        const int shift = top & 63;
        uint64_t cells[kMaxRadius + 1];
        uint64_t clump = 0;
        for (int dx = 0; dx <= radius; ++dx) {
          cells[dx] = (upper[dx] >> shift | lower[dx] << 1 << (63 - shift)) & rows;
          clump |= cells[dx];
        }
        for (int dx = 0; dx <= radius; ++dx) upper[dx] &= ~(rows << shift);
        for (int dx = 0; dx <= radius; ++dx) lower[dx] &= ~(rows >> 1 >> (63 - shift));
        int lastColumn = radius;
        while (cells[lastColumn] == 0) --lastColumn;
        const int firstRow = top + std::countr_zero(clump);
        const int lastRow = top + 63 - std::countl_zero(clump);
        *anchors++ = {static_cast<Coordinate>(x + lastColumn - map.width() / 2),
                      static_cast<Coordinate>((firstRow + lastRow) / 2 - map.height() / 2)};
      }
    }
  }
  return static_cast<size_t>(anchors - first);
}

// ---- votes ------------------------------------------------------------------------------------------

constexpr int kAngles = 180;

// The strongest line's direction in degrees, the smallest one where several are equal. Nothing when there is
// no memory or the user cancels. The progress window has a step for every few columns; each stands for its
// share of the directions.
template <class Counter, class Coordinate>
std::optional<int> StrongestDirection(const CellMap& map, const Anchor<Coordinate>* anchors, size_t count,
                                      ProgressWindow& window) {
  const Lines lines = LinesOfPage(map.width(), map.height());
  const int reach = std::max(lines.reach, 0);
  const uint64_t counters = 2 * static_cast<uint64_t>(reach) + 1;
  const NewBlock block(counters * sizeof(Counter), Content::kUnset);
  if (!block) return std::nullopt;
  Counter* const votes = block.As<Counter>() + reach;

  Counter most = 0;
  int strongest = 0;
  int degrees = 0;
  for (int64_t x = 0; x < map.width(); x += ProgressWindow::kDivisor) {
    window.Step();
    if (window.cancelled()) return std::nullopt;
    const int64_t end = std::min<int64_t>(kAngles, kAngles * (x + ProgressWindow::kDivisor) / map.width());
    for (; degrees < end; ++degrees) {
      std::fill(votes - reach, votes + reach + 1, Counter{0});
      Vote(anchors, count, Direction(degrees), lines, votes);
      Counter peak = 0;
      for (int i = -reach; i <= reach; ++i) peak = std::max(peak, votes[i]);
      if (peak > most) {
        most = peak;
        strongest = degrees;
      }
    }
  }
  return strongest;
}

// 0 to 45 stay, the others come to lie in -44 to 45: lines that stand upright say the same as lines that lie.
int Fold(int degrees) {
  if (degrees > 45) degrees -= 90;
  if (degrees > 45) degrees -= 90;
  return degrees;
}

// Both of a page's sides at most this, anchors have coordinates of 16 bits.
constexpr int kMaxShortSide = 0xFFFF;

// Kept: where this fails for its depth or for want of memory for the votes, the progress window stays open
// and its parent disabled. Callers clean up.
template <class Coordinate>
int DetectSkew(const LockedDib& page, const ConstRows& rows, Foreground foreground, bool showProgress,
               HWND parent) {
  const int radius = ClumpRadius(rows.width, rows.height);
  const uint64_t mapBytes = CellMap::BytesNeeded(rows.width, rows.height);
  const uint64_t anchorBytes = MaxAnchors(rows.width, rows.height, radius) * sizeof(Anchor<Coordinate>);
  const NewBlock block(mapBytes + anchorBytes, Content::kUnset);
  if (!block) return 0;
  const CellMap map(block.As<uint64_t>(), rows.width, rows.height);
  auto* anchors = reinterpret_cast<Anchor<Coordinate>*>(block.bytes() + mapBytes);

  ProgressWindow window(ProgressWindow::Kind::kSkew);
  const uint32_t work = static_cast<uint32_t>(rows.width) + static_cast<uint32_t>(rows.height);
  if (showProgress && !window.Open(static_cast<int>(work), parent)) return 0;
  if (!ForegroundTest::Takes(page.bits())) return 0;

  const auto put = [&map](int left, int top, const uint64_t* words, int count) {
    std::copy_n(words, count, map.Row(top / 64) + left);
  };
  if (!GatherColumns(rows, ForegroundTest(page, foreground, kBlack), rows.width, window, put)) return 0;
  for (int x = 0; x < rows.width; ++x) {
    StripFromTop(map, x);
    StripFromBottom(map, x);
  }
  const size_t count = FindAnchors(map, radius, anchors);
  const std::optional<int> direction = count <= UINT16_MAX
                                           ? StrongestDirection<uint16_t>(map, anchors, count, window)
                                           : StrongestDirection<uint32_t>(map, anchors, count, window);
  if (!direction) return 0;
  window.Close();
  return Fold(*direction);
}

}  // namespace
}  // namespace rastrel

int RASTREL_CALL DetectSkewAngle(HGLOBAL dib, int darkForeground, int showProgress, HWND parent) {
  using namespace rastrel;
  const LockedDib page(dib);
  ConstRows rows = {};
  if (!page || !page.FindRows(kHeaderBytes + PaletteBytes(&page.header()), &rows)) return 0;
  const Foreground foreground = darkForeground != 0 ? Foreground::kDark : Foreground::kLight;
  return std::max(rows.width, rows.height) <= kMaxShortSide
             ? DetectSkew<int16_t>(page, rows, foreground, showProgress != 0, parent)
             : DetectSkew<int32_t>(page, rows, foreground, showProgress != 0, parent);
}
