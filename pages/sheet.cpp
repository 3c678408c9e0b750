#include "pages/sheet.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <tuple>

#include "pixels/kernels.h"

namespace rastrel::pages {
namespace {

// Lengths are in sixteenths of a millimetre unless they say otherwise, shares in percent.
constexpr int kMm = 16;

// The side that is taken for an A4 sheet's short one where the resolution is not known or cannot be true.
constexpr int kAssumedShortSideMm = 210;
constexpr int kLeastShortSideMm = 50, kMostShortSideMm = 900;

// Cells are as coarse as leaves this many along the image's short side: bars half a millimetre thick still
// fill their cells.
constexpr int kLeastCellsAcross = 360;
constexpr int kLargestCell = 8;

// Dark of a surround, by the paper's brightness. The higher are tried first; the lower tell a surround from
// paper that a vignette darkens.
constexpr int kDarkShares[] = {52, 36, 22};
// What of paper a surround that reaches along a part of a side only may be bright: black, not merely dark.
constexpr int kBlackShare = 20;
// Paper as scanners see it. Below, it is tinted or photographed: there dark parts of a side may be anything.
constexpr int kWhitePaper = 200;
// Marks at the edge that are smaller than this (square millimetres) are not worth a word.
constexpr int kWordArea = 25;

constexpr int kEdgeGap = kMm * 3 / 2;  // between the image's edge and what counts as touching it
constexpr int kLeastArea = 3;          // square millimetres that are worth a judgement
constexpr int kFleckGap = 3 * kMm;     // light that a walk in from the edge goes across
constexpr int kInkShare = 78;          // of the paper: darker cells have ink in them
constexpr int kSolid = 96;             // of what a surround encloses, dark
constexpr int kSolidFlecked = 85;      // the same with flecks all over it
constexpr int kLetterMin = kMm, kLetterMax = 10 * kMm;  // heights of light letters on black
constexpr int kMostLetters = 3;                         // enclosed light marks of that height
constexpr int kBump = kMm * 3 / 2;  // what stands out by more is attached to the surround, not of it
constexpr int kTornShare = 20;      // from the surround's brightness to the paper's: what is still surround
constexpr int kMedianReach = 12 * kMm;  // along the side, to either hand
constexpr int kRough = kMm;             // off the running median
constexpr int kMostRough = 25;          // of places
constexpr int kSharpWidth = kMm * 5 / 4;
constexpr int kSharpRise = 65;        // of the step from surround to paper, within kSharpWidth
constexpr int kLeastSharp = 75;       // of places
constexpr int kPaperReach = 8 * kMm;  // inwards, where the paper's brightness is looked for
constexpr int kPaperShare = 60;       // of the page's paper level, which the paper inside has at least
constexpr int kLeastPaper = 70;       // of places with paper inside
constexpr int kLeastPartly = 90;      // of places with paper inside and sharp, where a part of a side is dark
constexpr int kDeepest = 45;          // of the image across, to which a side's depth is followed
constexpr int kWholeSide = 88;        // of a side that a surround runs along
constexpr int kHalfSide = 45;
constexpr int kLineOff = kMm;   // tolerance around a fitted line
constexpr int kLineShare = 85;  // of places within it
constexpr int kLeastDark = kMm * 3 / 2;
constexpr int kCornerDepth = 15 * kMm;  // deeper blocks in a corner are pictures
constexpr int kSliverRatio = 8, kSliverDepth = 6 * kMm;
constexpr int kThin = kMm * 3 / 2;     // of a printed rule or frame, at most
constexpr int kRuleOff = kMm / 2;      // how far a printed rule is off the parallel to the image's edge
constexpr int kAtEdge = 10;            // of places, that lie at the image's very edge where a surround is:
constexpr int kEdgePad = kMm * 3 / 4;  // no further than this, as some programs put white around

// ---- the grid ---------------------------------------------------------------------------------------------

int CellFor(int width, int height) {
  int cell = 1;
  while (cell < kLargestCell && std::min(width, height) / (cell * 2) >= kLeastCellsAcross) cell *= 2;
  return cell;
}

int PixelsPerMm16(int width, int height, int dpi) {
  const int shortSide = std::min(width, height);
  const int byDpi = dpi * 160 / 254;  // 16 * dpi / 25.4
  if (byDpi > 0 && shortSide * 16 >= kLeastShortSideMm * byDpi && shortSide * 16 <= kMostShortSideMm * byDpi)
    return byDpi;
  return std::max(1, shortSide * 16 / kAssumedShortSideMm);
}

// Sums `kRows` rows that follow each other, column by column; 8 x 255 at most.
template <int kRows>
void SumRows(const uint8_t* __restrict first, int width, uint16_t* __restrict sums) {
  for (int x = 0; x < width; ++x) {
    uint16_t sum = 0;
    for (int i = 0; i < kRows; ++i)
      sum = static_cast<uint16_t>(sum + first[i * static_cast<ptrdiff_t>(width) + x]);
    sums[x] = sum;
  }
}
void SumPairs(const uint16_t* __restrict from, int count, uint16_t* __restrict to) {
  for (int i = 0; i < count; ++i) to[i] = static_cast<uint16_t>(from[2 * i] + from[2 * i + 1]);
}

// Means of square cells. The last cells of a row or column may reach beyond the image and count what lies in
// it.
BytePlane Shrink(const BytePlane& grey, int cell) {
  if (cell == 1) return grey;
  const int columns = (grey.width() + cell - 1) / cell, rows = (grey.height() + cell - 1) / cell;
  BytePlane grid(columns, rows);
  std::vector<uint16_t> sums(static_cast<size_t>(columns) * static_cast<size_t>(cell), uint16_t{0});
  std::vector<uint16_t> pairs(sums.size() / 2);
  const int shift = 2 * std::countr_zero(static_cast<unsigned>(cell));
  const int wholeColumns = grey.width() / cell;
  for (int r = 0; r < rows; ++r) {
    const int top = r * cell, bottom = std::min(grey.height(), top + cell);
    if (bottom - top == 8) {
      Widest<SumRows<8>>(grey.Row(top), grey.width(), sums.data());
    } else if (bottom - top == 4) {
      Widest<SumRows<4>>(grey.Row(top), grey.width(), sums.data());
    } else {
      Widest<SumRows<1>>(grey.Row(top), grey.width(), sums.data());
      for (int y = top + 1; y < bottom; ++y) {
        const uint8_t* row = grey.Row(y);
        for (int x = 0; x < grey.width(); ++x)
          sums[static_cast<size_t>(x)] = static_cast<uint16_t>(sums[static_cast<size_t>(x)] + row[x]);
      }
    }
    const uint16_t* from = sums.data();
    for (int part = cell / 2; part >= 1; part /= 2) {
      uint16_t* to = from == sums.data() ? pairs.data() : sums.data();
      const int count = columns * part;
      Widest<SumPairs>(from, count, to);
      from = to;
    }
    uint8_t* out = grid.Row(r);
    if (bottom - top == cell) {
      for (int c = 0; c < wholeColumns; ++c) out[c] = static_cast<uint8_t>(from[c] >> shift);
    } else {
      for (int c = 0; c < wholeColumns; ++c) out[c] = static_cast<uint8_t>(from[c] / (cell * (bottom - top)));
    }
    if (wholeColumns < columns)
      out[wholeColumns] =
          static_cast<uint8_t>(from[wholeColumns] / ((grey.width() - wholeColumns * cell) * (bottom - top)));
    std::fill(sums.begin() + grey.width(), sums.end(), uint16_t{0});
  }
  return grid;
}

// How many bits are set in each byte.
uint64_t CountInBytes(uint64_t word) {
  word -= word >> 1 & 0x5555555555555555u;
  word = (word & 0x3333333333333333u) + (word >> 2 & 0x3333333333333333u);
  return (word + (word >> 4)) & 0x0F0F0F0F0F0F0F0Fu;
}

// The brightness of whole cells of 4 x 4 pixels, 16 to a word. `even` and `odd` are for work: how many pixels
// of ink the cells have, as bytes.
void ShrinkFourRows(const uint64_t* __restrict rows, size_t words, uint64_t* __restrict even,
                    uint64_t* __restrict odd, uint8_t* __restrict brightness) {
  constexpr uint64_t kPairs = 0x5555555555555555u, kNibbles = 0x3333333333333333u;
  constexpr uint64_t kBytes = 0x0F0F0F0F0F0F0F0Fu;
  for (size_t w = 0; w < words; ++w) {
    uint64_t evens = 0, odds = 0;
    for (size_t i = 0; i < 4; ++i) {
      uint64_t counts = rows[i * words + w];
      counts -= counts >> 1 & kPairs;
      counts = (counts & kNibbles) + (counts >> 2 & kNibbles);
      evens += counts >> 4 & kBytes;
      odds += counts & kBytes;
    }
    // So that the leftmost is the first in memory.
    even[w] = std::endian::native == std::endian::little ? __builtin_bswap64(evens) : evens;
    odd[w] = std::endian::native == std::endian::little ? __builtin_bswap64(odds) : odds;
  }
  const auto* const evenBytes = reinterpret_cast<const uint8_t*>(even);
  const auto* const oddBytes = reinterpret_cast<const uint8_t*>(odd);
  for (size_t i = 0; i < words * 8; ++i) {
    brightness[2 * i] = static_cast<uint8_t>(255 - (255 * evenBytes[i] >> 4));
    brightness[2 * i + 1] = static_cast<uint8_t>(255 - (255 * oddBytes[i] >> 4));
  }
}

BytePlane Shrink(const BitPlane& ink, int cell) {
  const int columns = (ink.width() + cell - 1) / cell, rows = (ink.height() + cell - 1) / cell;
  BytePlane grid(columns, rows, 255);
  // Every 8 / cell-th cell of a word is counted in a byte of its own.
  const int lanes = 8 / cell, cellsInWord = 64 / cell;
  const uint64_t mask = 0x0101010101010101u * ((1u << cell) - 1);
  const int wholeColumns = ink.width() / cell;
  uint8_t brightness[kLargestCell * kLargestCell + 1] = {};
  std::vector<uint64_t> even(ink.wordsPerRow()), odd(even.size());
  std::vector<uint8_t> bright(even.size() * 16);
  for (int r = 0; r < rows; ++r) {
    const int top = r * cell, bottom = std::min(ink.height(), top + cell);
    if (const int area = cell * (bottom - top); r == 0 || bottom - top < cell) {
      for (int count = 0; count <= area; ++count)
        brightness[count] = static_cast<uint8_t>(255 - 255 * count / area);
    }
    uint8_t* out = grid.Row(r);
    size_t w = 0;
    if (cell == 4 && bottom - top == 4) {
      Widest<ShrinkFourRows>(ink.Row(top), ink.wordsPerRow(), even.data(), odd.data(), bright.data());
      std::memcpy(out, bright.data(), static_cast<size_t>(wholeColumns));
      if (wholeColumns == columns) continue;
      w = ink.wordsPerRow() - 1;  // the last cell is not whole
    }
    for (; w < ink.wordsPerRow(); ++w) {
      const uint64_t* word = ink.Row(top) + w;
      uint64_t any = 0, every = ~uint64_t{0}, counts[8] = {};
      for (int y = top; y < bottom; ++y, word += ink.wordsPerRow()) any |= *word, every &= *word;
      if (any == 0) continue;
      const int first = static_cast<int>(w) * cellsInWord;
      const int end = std::min(cellsInWord, wholeColumns - first);
      if (every == ~uint64_t{0}) {
        std::memset(out + first, 0, static_cast<size_t>(end));
        continue;
      }
      word = ink.Row(top) + w;
      for (int y = top; y < bottom; ++y, word += ink.wordsPerRow()) {
        for (int lane = 0; lane < lanes; ++lane)
          counts[lane] += CountInBytes(*word >> (cell * (lanes - 1 - lane)) & mask);
      }
      for (int i = 0; i < end; ++i)
        out[first + i] = brightness[counts[i % lanes] >> (56 - 8 * (i / lanes)) & 0xFF];
      if (const int i = wholeColumns - first; i >= 0 && i < cellsInWord && wholeColumns < columns) {
        const int count = static_cast<int>(counts[i % lanes] >> (56 - 8 * (i / lanes)) & 0xFF);
        out[wholeColumns] =
            static_cast<uint8_t>(255 - 255 * count / ((ink.width() - wholeColumns * cell) * (bottom - top)));
      }
    }
  }
  return grid;
}

// The brightness of which `percent` of the cells in the middle of the image stay below.
uint8_t PaperLevel(const BytePlane& grid) {
  constexpr int kPercent = 80, kMargin = 6;  // 1 / kMargin of the image at each side is left out
  // Neighbours are mostly alike: counting them apart does not wait for the count before.
  constexpr int kApart = 4;
  uint32_t counts[kApart][256] = {};
  const int left = grid.width() / kMargin, right = grid.width() - left;
  const int top = grid.height() / kMargin, bottom = grid.height() - top;
  for (int r = top; r < bottom; ++r) {
    const uint8_t* row = grid.Row(r);
    int c = left;
    for (; c + kApart <= right; c += kApart) {
      for (int i = 0; i < kApart; ++i) ++counts[i][row[c + i]];
    }
    for (; c < right; ++c) ++counts[0][row[c]];
  }
  const int64_t all = int64_t{right - left} * (bottom - top);
  int64_t below = 0;
  for (int value = 0; value < 256; ++value) {
    for (const auto& part : counts) below += part[value];
    if (below * 100 >= all * kPercent) return static_cast<uint8_t>(value);
  }
  return 255;
}

// ---- a side, turned so that depth counts from the image's edge
// ----------------------------------------------

struct SideAxis {
  SheetSide side;
  int places, across;  // along the side, and from it to the one across

  SideAxis(const BytePlane& grid, SheetSide s)
      : side(s),
        places(IsUpright() ? grid.height() : grid.width()),
        across(IsUpright() ? grid.width() : grid.height()) {}
  bool IsUpright() const { return side == SheetSide::kLeft || side == SheetSide::kRight; }
  int X(int place, int depth) const {
    switch (side) {
      case SheetSide::kLeft:
        return depth;
      case SheetSide::kRight:
        return across - 1 - depth;
      default:
        return place;
    }
  }
  int Y(int place, int depth) const {
    switch (side) {
      case SheetSide::kTop:
        return depth;
      case SheetSide::kBottom:
        return across - 1 - depth;
      default:
        return place;
    }
  }
  // From one depth to the next in a plane of the grid's size.
  ptrdiff_t Step(const BytePlane& plane) const {
    const ptrdiff_t step = IsUpright() ? 1 : plane.width();
    return side == SheetSide::kLeft || side == SheetSide::kTop ? step : -step;
  }
  uint8_t At(const BytePlane& plane, int place, int depth) const {
    return plane.Row(Y(place, depth))[X(place, depth)];
  }
  uint8_t& At(BytePlane& plane, int place, int depth) const {
    return plane.Row(Y(place, depth))[X(place, depth)];
  }
};

// ---- dark areas at the edge -------------------------------------------------------------------------------

constexpr uint8_t kMember = 255, kSeen = 1;

struct Area {
  BytePlane* member;  // kMember where it is
  int left = 0, top = 0, right = 0, bottom = 0;
  int64_t cells = 0;
  int64_t sum = 0;  // of brightness

  bool Has(int x, int y) const { return member->Row(y)[x] == kMember; }
  void Forget() const {
    for (int y = top; y < bottom; ++y)
      std::memset(member->Row(y) + left, 0, static_cast<size_t>(right - left));
  }
};

// Follows dark cells from a first one, run by run. `seen` keeps what belongs to an area already; `member` is
// all 0.
Area Follow(const BytePlane& grid, uint8_t darkBelow, int x, int y, BytePlane* seen, BytePlane* member) {
  Area area{member, x, y, x + 1, y + 1};
  struct Run {
    int32_t left, right, row;
  };
  std::vector<Run> open;
  const auto take = [&](int column, int row) {
    const uint8_t* cells = grid.Row(row);
    uint8_t* known = seen->Row(row);
    const auto isOpen = [&](int c) { return known[c] == 0 && cells[c] < darkBelow; };
    int left = column, right = column + 1;
    while (left > 0 && isOpen(left - 1)) --left;
    while (right < grid.width() && isOpen(right)) ++right;
    std::memset(known + left, kSeen, static_cast<size_t>(right - left));
    std::memset(member->Row(row) + left, kMember, static_cast<size_t>(right - left));
    area.cells += right - left;
    for (int c = left; c < right; ++c) area.sum += cells[c];
    area.left = std::min(area.left, left);
    area.right = std::max(area.right, right);
    area.top = std::min(area.top, row);
    area.bottom = std::max(area.bottom, row + 1);
    open.push_back({left, right, row});
    return right;
  };
  take(x, y);
  while (!open.empty()) {
    const Run run = open.back();
    open.pop_back();
    for (const int row : {run.row - 1, run.row + 1}) {
      if (row < 0 || row >= grid.height()) continue;
      const uint8_t* cells = grid.Row(row);
      const uint8_t* known = seen->Row(row);
      const int end = std::min(grid.width(), run.right + 1);
      for (int c = std::max(0, run.left - 1); c < end; ++c) {
        if (known[c] == 0 && cells[c] < darkBelow) c = take(c, row);
      }
    }
  }
  return area;
}

// Takes the light between an area and the near image's edges into its box.
void WidenToEdges(int gap, Area* area) {
  const int width = area->member->width(), height = area->member->height();
  if (area->left <= gap) area->left = 0;
  if (area->top <= gap) area->top = 0;
  if (area->right >= width - gap) area->right = width;
  if (area->bottom >= height - gap) area->bottom = height;
}

// The first place from `from` on that holds `value`, or `end`.
int FirstLike(const uint8_t* row, int from, int end, uint8_t value) {
  const void* at = std::memchr(row + from, value, static_cast<size_t>(end - from));
  return at == nullptr ? end : static_cast<int>(static_cast<const uint8_t*>(at) - row);
}

// Fills what an area encloses, alone or together with the image's edge, unless it is as large as a piece of a
// sheet. Tells how much that was, and how many pieces are as tall as letters.
struct Enclosed {
  int64_t cells = 0;
  int letters = 0;
  bool isFlecks = false;  // what a bad lid shows: scattered, and many more small ones than large ones
};

// The most pieces one after the other on a line, across or down, as letters stand: alike in height and not
// far apart. `pieces` are sorted by their left sides.
struct Span {
  int left, right, top, bottom;
};
int LongestRow(const std::vector<Span>& pieces) {
  std::vector<int> rows(pieces.size(), 1);
  int longest = 0;
  for (size_t i = 0; i < pieces.size(); ++i) {
    const Span& piece = pieces[i];
    const int height = piece.bottom - piece.top;
    for (size_t k = i; k-- > 0;) {
      const Span& before = pieces[k];
      const int otherHeight = before.bottom - before.top;
      const int apart = piece.left - before.right,
                off = piece.top + piece.bottom - before.top - before.bottom;
      const bool isNext = apart * 2 <= 3 * std::max(height, otherHeight) && std::abs(off) <= height &&
                          std::max(height, otherHeight) * 5 <= 8 * std::min(height, otherHeight);
      if (isNext) rows[i] = std::max(rows[i], rows[k] + 1);
    }
    longest = std::max(longest, rows[i]);
  }
  return longest;
}
bool AreFlecks(std::vector<Span> letters, int small) {
  constexpr int kSmallPerLarge = 2, kLeastRow = 4;
  constexpr size_t kMostLooked = 3000;
  if (letters.size() > kMostLooked || small < kSmallPerLarge * static_cast<int>(letters.size())) return false;
  for (int direction = 0; direction < 2; ++direction) {
    std::sort(letters.begin(), letters.end(), [](const Span& a, const Span& b) {
      return std::tie(a.left, a.top, a.right, a.bottom) < std::tie(b.left, b.top, b.right, b.bottom);
    });
    if (LongestRow(letters) >= kLeastRow) return false;
    for (Span& piece : letters) piece = {piece.top, piece.bottom, piece.left, piece.right};
  }
  return true;
}

Enclosed FillEnclosed(const BytePlane& grid, uint8_t inkBelow, int letterMin, int letterMax, int gap,
                      Area* whole) {
  Area& area = *whole;
  WidenToEdges(gap, &area);
  struct Run {
    int row, left, right, parent;
  };
  const int width = area.member->width(), height = area.member->height();
  std::vector<Run> runs;
  const auto rootOf = [&runs](int i) {
    while (runs[static_cast<size_t>(i)].parent != i) {
      int& parent = runs[static_cast<size_t>(i)].parent;
      parent = runs[static_cast<size_t>(parent)].parent;
      i = parent;
    }
    return i;
  };
  size_t above = 0, aboveEnd = 0;
  for (int y = area.top; y < area.bottom; ++y) {
    const size_t first = runs.size();
    const uint8_t* member = area.member->Row(y);
    for (int x = area.left; x < area.right;) {
      x = FirstLike(member, x, area.right, 0);
      if (x == area.right) break;
      const int end = FirstLike(member, x, area.right, kMember);
      const int number = static_cast<int>(runs.size());
      runs.push_back({y, x, end, number});
      while (above < aboveEnd && runs[above].right <= x) ++above;
      for (size_t i = above; i < aboveEnd && runs[i].left < end; ++i) {
        const int a = rootOf(static_cast<int>(i)), b = rootOf(number);
        runs[static_cast<size_t>(std::max(a, b))].parent = std::min(a, b);
      }
      x = end;
    }
    above = first;
    aboveEnd = runs.size();
  }
  struct Piece {
    int64_t cells = 0, inked = 0;
    int top = INT32_MAX, bottom = 0, left = INT32_MAX, right = 0;
  };
  std::vector<Piece> pieces(runs.size());
  for (size_t i = 0; i < runs.size(); ++i) {
    Piece& piece = pieces[static_cast<size_t>(rootOf(static_cast<int>(i)))];
    piece.cells += runs[i].right - runs[i].left;
    // Apart from the cells next to the area, which are dark in part.
    const uint8_t* row = grid.Row(runs[i].row);
    for (int x = runs[i].left + 1; x < runs[i].right - 1; ++x) piece.inked += row[x] < inkBelow;
    piece.top = std::min(piece.top, runs[i].row);
    piece.bottom = std::max(piece.bottom, runs[i].row + 1);
    piece.left = std::min(piece.left, runs[i].left);
    piece.right = std::max(piece.right, runs[i].right);
  }
  Enclosed enclosed;
  std::vector<Span> letters;
  int small = 0;
  constexpr int kStripRatio = 8, kInkedStrip = 100;  // 1 / kInkedStrip of its cells
  constexpr int kSheetPiece = 30;                    // 1 / kSheetPiece of the image is more than a fleck
  const int64_t mostCells = std::max<int64_t>(int64_t{width} * height / kSheetPiece, 4);
  for (size_t i = 0; i < runs.size(); ++i) {
    const auto root = static_cast<size_t>(rootOf(static_cast<int>(i)));
    const Piece& piece = pieces[root];
    const bool isOpen = (piece.left == area.left && area.left > 0) ||
                        (piece.top == area.top && area.top > 0) ||
                        (piece.right == area.right && area.right < width) ||
                        (piece.bottom == area.bottom && area.bottom < height);
    if (isOpen || piece.cells > mostCells) continue;
    // A strip along the image's edge, outside of a line, may show the next page.
    const auto [shorter, longer] = std::minmax({piece.right - piece.left, piece.bottom - piece.top});
    const bool isStrip = longer > kStripRatio * shorter;
    if (isStrip && piece.inked * kInkedStrip > piece.cells) continue;
    std::memset(area.member->Row(runs[i].row) + runs[i].left, kMember,
                static_cast<size_t>(runs[i].right - runs[i].left));
    if (i != root) continue;
    // Light that lies along the image's edge, outside of a bar, is not in the bar.
    const int tall = piece.bottom - piece.top;
    const bool isAtEdge = piece.left == 0 || piece.top == 0 || piece.right == width || piece.bottom == height;
    if (isAtEdge) continue;
    enclosed.cells += piece.cells;
    if (tall >= letterMin && tall <= letterMax && piece.cells * 8 >= int64_t{tall} * tall) {
      ++enclosed.letters;
      letters.push_back({piece.left, piece.right, piece.top, piece.bottom});
    }
    small += tall < letterMin;
  }
  enclosed.isFlecks = AreFlecks(std::move(letters), small);
  return enclosed;
}

// How far an area reaches in from a side at each place: the first depth that is not of it. 0 where it does
// not touch the side, -1 where it reaches across the image.
std::vector<int32_t> Profile(const Area& area, const SideAxis& axis, int gap, int fleck) {
  const int first = axis.IsUpright() ? area.top : area.left,
            end = axis.IsUpright() ? area.bottom : area.right;
  const int deepest = axis.across * kDeepest / 100;
  const ptrdiff_t step = axis.Step(*area.member);
  std::vector<int32_t> depths(static_cast<size_t>(axis.places), 0);
  for (int place = first; place < end; ++place) {
    const uint8_t* edge = area.member->Row(axis.Y(place, 0)) + axis.X(place, 0);
    int depth = 0, light = 0, last = 0;
    while (depth < deepest && light <= (last == 0 ? gap : fleck)) {
      if (edge[depth * step] == kMember) {
        last = depth + 1;
        light = 0;
      } else {
        ++light;
      }
      ++depth;
    }
    depths[static_cast<size_t>(place)] = last >= deepest ? -1 : last;
  }
  return depths;
}

std::vector<int32_t> RunningMedian(const std::vector<int32_t>& depths, int reach) {
  std::vector<int32_t> medians(depths.size()), window;
  const int count = static_cast<int>(depths.size());
  const int step = std::max(1, reach / 8);
  for (int i = 0; i < count; ++i) {
    if (depths[static_cast<size_t>(i)] == 0) continue;
    window.clear();
    for (int k = std::max(0, i - reach); k <= std::min(count - 1, i + reach); k += step) {
      if (depths[static_cast<size_t>(k)] > 0) window.push_back(depths[static_cast<size_t>(k)]);
    }
    if (window.empty()) continue;
    const auto middle = window.begin() + static_cast<ptrdiff_t>(window.size() / 2);
    std::nth_element(window.begin(), middle, window.end());
    medians[static_cast<size_t>(i)] = *middle;
  }
  return medians;
}

// The line that fits most depths: the median of slopes between places half the side apart, in 1/16 cells.
struct Line {
  bool isFound = false;
  int64_t atFirst = 0, atLast = 0;
  int share = 0;  // of the places with a depth, that lie within the tolerance
  int64_t At(int place, int places) const {
    return atFirst + (atLast - atFirst) * place / std::max(1, places - 1);
  }
};
Line FitLine(const std::vector<int32_t>& depths, int tolerance16) {
  std::vector<int32_t> at;
  for (size_t i = 0; i < depths.size(); ++i) {
    if (depths[i] > 0) at.push_back(static_cast<int32_t>(i));
  }
  Line line;
  if (at.size() < 8) return line;
  const size_t half = at.size() / 2;
  // Slopes in 1/65536 cells per place.
  std::vector<int64_t> values;
  for (size_t i = 0; i + half < at.size(); ++i) {
    const int64_t run = at[i + half] - at[i];
    values.push_back(
        (int64_t{depths[static_cast<size_t>(at[i + half])]} - depths[static_cast<size_t>(at[i])]) * 65536 /
        run);
  }
  std::nth_element(values.begin(), values.begin() + static_cast<ptrdiff_t>(values.size() / 2), values.end());
  const int64_t slope = values[values.size() / 2];
  values.clear();
  for (const int32_t place : at)
    values.push_back(int64_t{depths[static_cast<size_t>(place)]} * 65536 - slope * place);
  std::nth_element(values.begin(), values.begin() + static_cast<ptrdiff_t>(values.size() / 2), values.end());
  const int64_t start = values[values.size() / 2];
  line.isFound = true;
  line.atFirst = start / 4096;
  line.atLast = (start + slope * (static_cast<int64_t>(depths.size()) - 1)) / 4096;
  int64_t near = 0;
  for (const int32_t place : at) {
    const int64_t off = int64_t{depths[static_cast<size_t>(place)]} * 16 - (start + slope * place) / 4096;
    near += std::llabs(off) <= tolerance16;
  }
  line.share = static_cast<int>(near * 100 / static_cast<int64_t>(at.size()));
  return line;
}

// ---- judgement --------------------------------------------------------------------------------------------

struct Units {
  int cell, pixelsPerMm16;
  // Lengths of sixteenths of a millimetre, in cells, at least 1.
  int Cells(int mm16) const { return std::max(1, (mm16 * pixelsPerMm16 / 16 + cell * 8) / (cell * 16)); }
};

// An area along a side, before anything that it encloses is filled.
struct Rim {
  int places = 0;     // where it lies near the image's edge
  int atEdge = 0;     // of these, where at its very edge
  int64_t thick = 0;  // cells, summed over these
};
Rim RimAlong(const Area& area, const SideAxis& axis, const Units& units) {
  const int first = axis.IsUpright() ? area.top : area.left,
            end = axis.IsUpright() ? area.bottom : area.right;
  const int gap = units.Cells(kEdgeGap), edgePad = units.Cells(kEdgePad) - 1;
  Rim rim;
  for (int place = first; place < end; ++place) {
    int depth = 0;
    while (depth <= gap && axis.At(*area.member, place, depth) != kMember) ++depth;
    if (depth > gap) continue;
    ++rim.places;
    rim.atEdge += depth <= edgePad;
    // A corner, where the other side's run begins, counts no more than twice what is thin.
    for (int run = 0; run < 2 * units.Cells(kThin) && depth < axis.across &&
                      axis.At(*area.member, place, depth) == kMember;
         ++run)
      ++depth, ++rim.thick;
  }
  return rim;
}

struct SideEvidence {
  int touched = 0;  // places
  Rim rim;
  int64_t depthSum = 0;
  int rough = 0;             // percent
  int sharp = 0, paper = 0;  // percent
  int reached = 0;           // places that were followed to their end
  std::vector<int32_t> depths, medians;
  Line line;
};

int FloorOf(int number, int divisor) { return number / divisor - (number % divisor < 0); }

SideEvidence LookAtSide(const BytePlane& grid, const Area& area, const SideAxis& axis, const Units& units,
                        uint8_t paperLevel) {
  SideEvidence evidence;
  evidence.depths = Profile(area, axis, units.Cells(kEdgeGap), units.Cells(kFleckGap));
  std::vector<int32_t>& depths = evidence.depths;
  evidence.medians = RunningMedian(depths, units.Cells(kMedianReach));
  const int sharpWidth = units.Cells(kSharpWidth), paperReach = units.Cells(kPaperReach);
  int rough = 0, sharp = 0, paper = 0;
  std::vector<uint8_t> inside(static_cast<size_t>(paperReach) + 1);
  for (int place = 0; place < axis.places; ++place) {
    const int depth = depths[static_cast<size_t>(place)];
    if (depth == 0) continue;
    ++evidence.touched;
    if (depth < 0) continue;
    ++evidence.reached;
    evidence.depthSum += depth;
    rough += std::abs(depth - evidence.medians[static_cast<size_t>(place)]) > units.Cells(kRough);
    const uint8_t* edge = grid.Row(axis.Y(place, 0)) + axis.X(place, 0);
    const ptrdiff_t step = axis.Step(grid);
    int outside = 0, count = 0;
    for (int d = std::max(0, depth - sharpWidth - 2); d < std::max(1, depth - 1); ++d, ++count)
      outside += edge[d * step];
    outside /= std::max(1, count);
    const int cells = std::min(axis.across, depth + 2 + paperReach) - (depth + 1);
    if (cells <= 0) continue;
    int nearest = 0, paperCells = 0;
    for (int i = 0; i < cells; ++i) {
      const uint8_t cell = edge[(depth + 1 + i) * step];
      inside[static_cast<size_t>(i)] = cell;
      if (i < sharpWidth) nearest = std::max<int>(nearest, cell);
      paperCells += cell * 100 >= paperLevel * kPaperShare;
    }
    // Of the step up to the brightness that three quarters stay at or below, enough is taken at once.
    const int bright = outside + FloorOf((nearest - outside) * 100, kSharpRise);
    int atMost = 0;
    for (int i = 0; i < cells; ++i) atMost += inside[static_cast<size_t>(i)] <= bright;
    sharp += atMost > cells * 3 / 4;
    // Half of them are paper.
    paper += cells - paperCells <= cells / 2;
  }
  const int reached = std::max(1, evidence.reached);
  evidence.rough = rough * 100 / reached;
  evidence.sharp = sharp * 100 / reached;
  evidence.paper = paper * 100 / reached;
  evidence.line = FitLine(depths, std::max(16, units.Cells(kLineOff) * 16));
  return evidence;
}

struct Judgement {
  bool isCertain = false, isWorthAWord = true;
  int confidence = 0;
  const char* reason = "";
};

Judgement Judge(const Area& area, const Enclosed& enclosed, const SideEvidence (&sides)[4], int brightness,
                uint8_t paperLevel, const Units& units, bool isBlackAndWhite) {
  const int64_t all = area.cells + enclosed.cells;
  int touching = 0, best = 0;
  int64_t bestShare = -1;
  bool isOnSide[4] = {};
  for (int s = 0; s < 4; ++s) {
    isOnSide[s] = sides[s].touched >= units.Cells(kMm);
    touching += isOnSide[s];
    const int64_t share = int64_t{sides[s].touched} * 1000 / static_cast<int64_t>(sides[s].depths.size());
    if (share > bestShare) bestShare = share, best = s;
  }
  if (touching == 0) return {false, false, 0, ""};
  const bool isBlack =
      isBlackAndWhite || (paperLevel >= kWhitePaper && brightness * 100 <= paperLevel * kBlackShare);
  const bool isFlecked = isBlack && enclosed.isFlecks;
  if (area.cells * 100 < all * (isFlecked ? kSolidFlecked : kSolid))
    return {false, true, 60, "light areas inside, as of a picture"};
  if (enclosed.letters > kMostLetters && !isFlecked) return {false, true, 60, "light letters on dark inside"};

  // Sharp, steady and with paper inside, all along the sides that it follows.
  int64_t reached = 0, sharp = 0, paper = 0, rough = 0;
  for (const SideEvidence& side : sides) {
    reached += side.reached;
    sharp += int64_t{side.sharp} * side.reached;
    paper += int64_t{side.paper} * side.reached;
    rough += int64_t{side.rough} * side.reached;
  }
  if (reached == 0) return {false, true, 50, "no sheet beside it"};
  if (paper < reached * kLeastPaper) return {false, true, 60, "no paper beside it"};
  if (!isBlackAndWhite && sharp < reached * kLeastSharp)
    return {false, true, 60, "its boundary is soft, as of a shadow"};

  const SideEvidence& main = sides[best];
  // Thin, clear of the image's edge and parallel to it: a printed rule, or with corners a frame.
  const bool isThin = main.rim.thick <= int64_t{main.rim.places} * units.Cells(kThin);
  if (isThin && main.rim.atEdge * 100 < main.rim.places * kAtEdge) {
    const int64_t rise = std::llabs(main.line.atLast - main.line.atFirst);
    int framed = 0;
    for (const SideEvidence& side : sides)
      framed += side.rim.places * 100 >= static_cast<int>(side.depths.size()) * kHalfSide;
    if (framed >= 3) return {false, true, 70, "a frame near the image's edge"};
    if (main.line.isFound && rise <= int64_t{16} * units.Cells(kRuleOff))
      return {false, true, 60, "a rule along the image's edge"};
  }
  const int places = static_cast<int>(main.depths.size());
  const int meanDepth = static_cast<int>(main.depthSum / std::max(1, main.reached));
  const bool isCorner = (isOnSide[0] || isOnSide[2]) && (isOnSide[1] || isOnSide[3]);
  if (isBlack) {
    if (rough > reached * 2 * kMostRough) return {false, true, 50, "its boundary is ragged"};
    if (main.touched * 100 >= places * kWholeSide) return {true, true, 95, "surround along the side"};
    // Along a part of a side a black picture may stand: on grey pages every place has to show the sheet's
    // edge.
    if (!isBlackAndWhite && (paper < reached * kLeastPartly || sharp < reached * kLeastPartly))
      return {false, true, 60, "dark along a part of the side, as of a picture"};
    if (main.touched * 100 >= places * kHalfSide && rough <= reached * kMostRough)
      return {true, true, 85, "surround along a part of the side"};
    if (isCorner && meanDepth <= units.Cells(kCornerDepth)) return {true, true, 85, "surround at a corner"};
    if (main.touched >= kSliverRatio * meanDepth && meanDepth <= units.Cells(kSliverDepth))
      return {true, true, 80, "sliver of the surround"};
    return {false, true, 50, "runs off the image, as a picture or a tab does"};
  }
  // Merely dark: only whole sides along a line count.
  for (int s = 0; s < 4; ++s) {
    if (!isOnSide[s]) continue;
    const bool isWhole = sides[s].touched * 100 >= static_cast<int>(sides[s].depths.size()) * kWholeSide;
    // Next to a corner the side of a sheet that is dark around shows, too.
    if (!isWhole && touching == 1) return {false, true, 60, "dark along a part of the side only"};
    if (isWhole && sides[s].line.share < kLineShare) return {false, true, 60, "its boundary is no line"};
  }
  // On a tinted page a thin dark strip may as well be the shadow of what is bound there.
  if (meanDepth < units.Cells(kLeastDark)) return {false, true, 60, "too thin to be told from a shadow"};
  if (bestShare < kWholeSide * 10) return {false, true, 60, "dark along a part of the side only"};
  return {true, true, 80, "dark surround"};
}

// ---- the sheet --------------------------------------------------------------------------------------------

class SheetFinder {
 public:
  SheetFinder(BytePlane grid, const Sheet& frame, bool isBlackAndWhite)
      : grid_(std::move(grid)), sheet_(frame), isBlackAndWhite_(isBlackAndWhite) {
    units_ = {sheet_.cell, sheet_.pixelsPerMm16};
    sheet_.paper = PaperLevel(grid_);
    member_ = BytePlane(grid_.width(), grid_.height());
  }

  Sheet Find() {
    constexpr int kLeastCells = 24;  // of an image that has an edge and a middle
    if (grid_.width() < kLeastCells || grid_.height() < kLeastCells) return std::move(sheet_);
    const BytePlane none(grid_.width(), grid_.height());
    for (const int share : kDarkShares) {
      BytePlane seen = sheet_.HasOutside() ? sheet_.outside : none;
      const bool isLast = isBlackAndWhite_ || share == kDarkShares[std::size(kDarkShares) - 1];
      LookFrom(static_cast<uint8_t>(sheet_.paper * share / 100), isLast, &seen);
      if (isBlackAndWhite_) break;
    }
    DescribeSides();
    // Where there is a surround, pieces of its shadow may stand apart from it.
    if (isBlackAndWhite_ && sheet_.HasOutside()) TakeStreaks();
    sheet_.cells = std::move(grid_);
    return std::move(sheet_);
  }

 private:
  void LookFrom(uint8_t darkBelow, bool isLast, BytePlane* seen) {
    const int gap = units_.Cells(kEdgeGap);
    for (const SheetSide side : kSheetSides) {
      const SideAxis axis(grid_, side);
      for (int place = 0; place < axis.places; ++place) {
        for (int depth = 0; depth <= gap; ++depth) {
          if (axis.At(grid_, place, depth) >= darkBelow || axis.At(*seen, place, depth) != 0) continue;
          LookAt(axis.X(place, depth), axis.Y(place, depth), darkBelow, isLast, seen);
        }
      }
    }
  }

  void LookAt(int x, int y, uint8_t darkBelow, bool isLast, BytePlane* seen) {
    Area area = Follow(grid_, darkBelow, x, y, seen, &member_);
    JudgeArea(&area, isLast);
    area.Forget();
  }

  void JudgeArea(Area* followed, bool isLast) {
    Area& area = *followed;
    const int64_t leastCells = int64_t{kLeastArea} * units_.Cells(kMm) * units_.Cells(kMm);
    if (area.cells < leastCells) return;
    const bool isEdgeLine = IsEdgeLine(area);
    Rim rims[4];
    for (const SheetSide side : kSheetSides)
      rims[static_cast<size_t>(side)] = RimAlong(area, SideAxis(grid_, side), units_);
    const Enclosed enclosed =
        FillEnclosed(grid_, static_cast<uint8_t>(sheet_.paper * kInkShare / 100), units_.Cells(kLetterMin),
                     units_.Cells(kLetterMax), units_.Cells(kEdgeGap), &area);
    SideEvidence sides[4];
    if (isEdgeLine) {
      AddSurround(area, {true, true, 80, "the line of the sheet's edge"}, sides);
      for (int y = area.top; y < area.bottom; ++y) {
        for (int x = area.left; x < area.right; ++x) {
          if (area.Has(x, y)) sheet_.outside.Row(y)[x] = kMember;
        }
      }
      return;
    }
    for (const SheetSide side : kSheetSides) {
      sides[static_cast<size_t>(side)] = LookAtSide(grid_, area, SideAxis(grid_, side), units_, sheet_.paper);
      sides[static_cast<size_t>(side)].rim = rims[static_cast<size_t>(side)];
    }
    const int brightness = static_cast<int>(area.sum / area.cells);
    const Judgement judgement =
        Judge(area, enclosed, sides, brightness, sheet_.paper, units_, isBlackAndWhite_);
    if (!judgement.isCertain) {
      const bool isSmall = area.cells * kLeastArea < leastCells * kWordArea;
      if (!isLast || isSmall || !judgement.isWorthAWord) return;
    }
    AddSurround(area, judgement, sides);
    if (judgement.isCertain) Take(area, sides, brightness);
  }

  void AddSurround(const Area& area, const Judgement& judgement, const SideEvidence (&sides)[4]) {
    const int cell = sheet_.cell;
    Surround surround{judgement.isCertain,
                      judgement.confidence,
                      judgement.reason,
                      area.left * cell,
                      area.top * cell,
                      std::min(sheet_.width, area.right * cell),
                      std::min(sheet_.height, area.bottom * cell),
                      {}};
    for (size_t s = 0; s < 4; ++s) surround.touches[s] = sides[s].touched > 0;
    sheet_.surrounds.push_back(std::move(surround));
    if (judgement.isCertain && !sheet_.HasOutside())
      sheet_.outside = BytePlane(grid_.width(), grid_.height());
  }

  // A thin line that runs from one edge of the image to the one across, right beside a third, with empty
  // paper on its inner side: where sheet and neighbour meet. No rule of a page does that.
  bool IsEdgeLine(const Area& area) const {
    constexpr int kBeside = 32;                    // 1 / kBeside of the image
    constexpr int kInner = 3 * kMm, kMostInk = 8;  // percent of the cells there
    for (const SheetSide side : kSheetSides) {
      const SideAxis axis(grid_, side);
      const int first = axis.IsUpright() ? area.top : area.left,
                end = axis.IsUpright() ? area.bottom : area.right;
      const int most = axis.across / kBeside;
      if (first > 0 || end < axis.places || area.cells < axis.places ||
          area.cells > int64_t{axis.places} * units_.Cells(kThin))
        continue;
      int64_t inner = 0, inked = 0;
      bool isWhole = true;
      for (int place = 0; place < axis.places && isWhole; ++place) {
        int depth = most;
        while (depth >= 0 && axis.At(*area.member, place, depth) != kMember) --depth;
        isWhole = depth >= 0;
        for (int d = depth + 2; isWhole && d < depth + 2 + units_.Cells(kInner); ++d, ++inner)
          inked += axis.At(grid_, place, d) * 100 < sheet_.paper * kInkShare;
      }
      if (isWhole && inked * 100 <= inner * kMostInk) return true;
    }
    return false;
  }

  void TakeStreaks() {
    constexpr int kBand = 8 * kMm;  // from the image's edge
    const auto darkBelow = static_cast<uint8_t>(sheet_.paper * kDarkShares[0] / 100);
    BytePlane seen = sheet_.outside;
    for (const SheetSide side : kSheetSides) {
      const SideAxis axis(grid_, side);
      const int deepest = std::min(axis.across, units_.Cells(kBand));
      const ptrdiff_t step = axis.Step(grid_);
      for (int place = 0; place < axis.places; ++place) {
        const uint8_t* const edge = &axis.At(grid_, place, 0);
        for (int depth = 0; depth < deepest; ++depth) {
          if (edge[depth * step] >= darkBelow || axis.At(seen, place, depth) != 0) continue;
          const Area area =
              Follow(grid_, darkBelow, axis.X(place, depth), axis.Y(place, depth), &seen, &member_);
          if (IsStreak(area, axis)) {
            SideEvidence sides[4];
            sides[static_cast<size_t>(side)].touched = 1;
            AddSurround(area, {true, true, 75, "a streak of shadow in the margin"}, sides);
            for (int y = area.top; y < area.bottom; ++y) {
              for (int x = area.left; x < area.right; ++x) {
                if (area.Has(x, y)) sheet_.outside.Row(y)[x] = kMember;
              }
            }
          }
          area.Forget();
        }
      }
    }
  }

  // A long dark mark in parallel to a side, in the empty margin, that swells and thins out. What is printed
  // or drawn there is as thick all along.
  bool IsStreak(const Area& area, const SideAxis& axis) const {
    constexpr int kLeastLength = 25 * kMm, kSlender = 12;  // and this many times as long as thick
    constexpr int kDeepestEnd = 11 * kMm, kLeastThick = kMm * 3 / 4, kSwell = 2;
    constexpr int kInner = 3 * kMm, kMostInk = 3;  // percent of the cells to either side
    const int first = axis.IsUpright() ? area.top : area.left,
              end = axis.IsUpright() ? area.bottom : area.right;
    const int length = end - first;
    if (length < units_.Cells(kLeastLength) || area.cells * kSlender > int64_t{length} * length ||
        area.cells < int64_t{length} * units_.Cells(kLeastThick))
      return false;
    std::vector<int> thickness;
    int64_t around = 0, inked = 0;
    const auto look = [&](int place, int depth) {
      if (depth < 0 || depth >= axis.across || axis.At(sheet_.outside, place, depth) != 0) return;
      ++around;
      inked += axis.At(grid_, place, depth) * 100 < sheet_.paper * kInkShare;
    };
    const int deepest = std::min(axis.across, units_.Cells(kDeepestEnd));
    for (int place = first; place < end; ++place) {
      int outer = -1, inner = -1, thick = 0;
      for (int depth = 0; depth < deepest; ++depth) {
        if (axis.At(*area.member, place, depth) != kMember) continue;
        if (outer < 0) outer = depth;
        inner = depth;
        ++thick;
      }
      if (thick == 0) return false;
      thickness.push_back(thick);
      for (int depth = 0; depth < outer - 1; ++depth) look(place, depth);
      for (int depth = inner + 2; depth < inner + 2 + units_.Cells(kInner); ++depth) look(place, depth);
    }
    // All of it lies in the band.
    int64_t cells = 0;
    for (const int thick : thickness) cells += thick;
    if (cells < area.cells || inked * 100 > around * kMostInk) return false;
    std::sort(thickness.begin(), thickness.end());
    const int thin = thickness[thickness.size() / 8], thickest = thickness[thickness.size() * 7 / 8];
    return thickest >= kSwell * thin && thickest >= thin + kSwell;
  }

  // Takes the area as outside, without what is attached to it and stands out of its sides' run. Beyond a
  // straight side a tear or a folded corner shows what lies around the sheet; what is lighter than that is a
  // picture, which bleeds off the sheet there.
  void Take(const Area& area, const SideEvidence (&sides)[4], int brightness) {
    const int bump = units_.Cells(kBump);
    const int blur = std::max(24, units_.Cells(kMm / 2) * 16);  // of the side, in 1/16 cells
    const int lightest = brightness + (sheet_.paper - brightness) * kTornShare / 100;
    for (int y = area.top; y < area.bottom; ++y) {
      const uint8_t* member = area.member->Row(y);
      for (int x = FirstLike(member, area.left, area.right, kMember); x < area.right;
           x = FirstLike(member, x + 1, area.right, kMember)) {
        bool isOutside = false;
        for (const SheetSide side : kSheetSides) {
          const SideEvidence& evidence = sides[static_cast<size_t>(side)];
          const bool isUpright = side == SheetSide::kLeft || side == SheetSide::kRight;
          const int place = isUpright ? y : x;
          const int depth = side == SheetSide::kLeft    ? x
                            : side == SheetSide::kRight ? grid_.width() - 1 - x
                            : side == SheetSide::kTop   ? y
                                                        : grid_.height() - 1 - y;
          const auto at = static_cast<size_t>(place);
          if (evidence.depths[at] == 0) continue;
          const int64_t line = evidence.line.At(place, static_cast<int>(evidence.depths.size()));
          const bool isBeyond =
              evidence.line.isFound && evidence.line.share >= kLineShare && depth * 16 > line + blur;
          isOutside |= evidence.depths[at] < 0 ||
                       (depth < evidence.medians[at] + bump && (!isBeyond || grid_.Row(y)[x] <= lightest));
        }
        if (isOutside) sheet_.outside.Row(y)[x] = kMember;
      }
    }
  }

  void DescribeSides() {
    for (const SheetSide side : kSheetSides) {
      SheetSideFit& fit = sheet_.sides[static_cast<size_t>(side)];
      for (const Surround& surround : sheet_.surrounds) {
        if (!surround.touches[static_cast<size_t>(side)] || surround.isCertain) continue;
        fit.kind = SideKind::kNotCertain;
        fit.confidence = surround.confidence;
        fit.reason = surround.reason;
      }
      if (!sheet_.HasOutside()) continue;
      const SideAxis axis(grid_, side);
      const Area area{&sheet_.outside, 0, 0, grid_.width(), grid_.height()};
      const std::vector<int32_t> depths =
          Profile(area, axis, units_.Cells(kEdgeGap), units_.Cells(kFleckGap));
      const int places =
          static_cast<int>(std::count_if(depths.begin(), depths.end(), [](int d) { return d > 0; }));
      if (places == 0) continue;
      fit.kind = SideKind::kCertain;
      fit.reason.clear();
      fit.confidence = 0;
      for (const Surround& surround : sheet_.surrounds) {
        if (surround.isCertain && surround.touches[static_cast<size_t>(side)])
          fit.confidence = std::max(fit.confidence, surround.confidence);
      }
      const int pixels = axis.IsUpright() ? sheet_.height : sheet_.width;
      fit.depth.resize(static_cast<size_t>(pixels));
      for (int i = 0; i < pixels; ++i) {
        const int32_t depth = depths[static_cast<size_t>(i / sheet_.cell)];
        fit.depth[static_cast<size_t>(i)] = depth * sheet_.cell;
      }
      constexpr int kLeastLineShare = 60;
      const Line line = FitLine(depths, std::max(16, units_.Cells(kLineOff) * 16));
      fit.hasLine = line.isFound && line.share >= kLeastLineShare && places * 2 >= axis.places;
      fit.lineAtFirst = static_cast<int32_t>(line.atFirst * sheet_.cell);
      fit.lineAtLast = static_cast<int32_t>(line.atLast * sheet_.cell);
    }
  }

  BytePlane grid_, member_;
  Sheet sheet_;
  Units units_ = {};
  bool isBlackAndWhite_;
};

// ---- the picture ------------------------------------------------------------------------------------------

// Digits of three by five dots, the upper left one in the highest of 15 bits.
constexpr uint16_t kDigits[] = {0x7B6F, 0x2C97, 0x73E7, 0x73CF, 0x5BC9,
                                0x79CF, 0x79EF, 0x7292, 0x7BEF, 0x7BCF};
constexpr int kDigitWidth = 3, kDigitHeight = 5, kDigitStep = 4;  // dots

void DrawDot(BytePlane* picture, int x, int y, int size, uint8_t value) {
  for (int dy = std::max(0, y); dy < std::min(picture->height(), y + size); ++dy) {
    for (int dx = std::max(0, x); dx < std::min(picture->width(), x + size); ++dx)
      picture->Row(dy)[dx] = value;
  }
}

// A number about a middle, dark on a light ground.
void DrawNumber(BytePlane* picture, int x, int y, int dot, int number) {
  int digits[3], count = 0;
  for (; count < 3 && (number > 0 || count == 0); number /= 10) digits[count++] = number % 10;
  const int left = x - count * kDigitStep * dot / 2, top = y - kDigitHeight * dot / 2;
  for (int row = -1; row <= kDigitHeight; ++row) {
    for (int column = -1; column < count * kDigitStep; ++column) {
      const int digit = column / kDigitStep, inDigit = column % kDigitStep;
      const bool isOn = column >= 0 && row >= 0 && row < kDigitHeight && inDigit < kDigitWidth &&
                        (kDigits[digits[count - 1 - digit]] >> (14 - row * kDigitWidth - inDigit) & 1) != 0;
      DrawDot(picture, left + column * dot, top + row * dot, dot, isOn ? 0 : 255);
    }
  }
}

// The side's line, in dashes, and how sure its kind is, next to the middle.
void DrawSide(const Sheet& sheet, SheetSide side, int factor, BytePlane* picture) {
  constexpr int kDash = 12, kDot = 2, kFromEdge = 24;  // pixels of the picture
  const SheetSideFit& fit = sheet.side(side);
  const SideAxis axis(*picture, side);
  const int places = axis.IsUpright() ? sheet.height : sheet.width;
  for (int place = 0; fit.hasLine && place < axis.places; ++place) {
    const int depth = fit.LineDepthAt(place * factor, places) / factor;
    if (depth < 0 || depth >= axis.across) continue;
    axis.At(*picture, place, depth) = place % kDash < kDash / 2 ? 0 : 255;
  }
  const int middle = axis.places / 2;
  const int depth = std::max(0, fit.LineDepthAt(middle * factor, places) / factor) + kFromEdge;
  if (depth < axis.across)
    DrawNumber(picture, axis.X(middle, depth), axis.Y(middle, depth), kDot, fit.confidence);
}

template <class Plane>
Sheet Frame(const Plane& page, int dpi) {
  Sheet sheet;
  sheet.width = page.width();
  sheet.height = page.height();
  sheet.cell = CellFor(page.width(), page.height());
  sheet.pixelsPerMm16 = PixelsPerMm16(page.width(), page.height(), dpi);
  return sheet;
}

}  // namespace

std::string_view NameOf(SheetSide side) {
  constexpr std::string_view kNames[] = {"left", "top", "right", "bottom"};
  return kNames[static_cast<size_t>(side)];
}

Sheet FindSheet(const BytePlane& grey, int dpi) {
  Sheet sheet = Frame(grey, dpi);
  if (grey.isEmpty()) return sheet;
  return SheetFinder(Shrink(grey, sheet.cell), sheet, /*isBlackAndWhite=*/false).Find();
}

Sheet FindSheet(const BitPlane& ink, int dpi) {
  Sheet sheet = Frame(ink, dpi);
  if (ink.isEmpty()) return sheet;
  return SheetFinder(Shrink(ink, sheet.cell), sheet, /*isBlackAndWhite=*/true).Find();
}

BytePlane PictureOfSheet(const Sheet& sheet, const BytePlane& grey, int factor) {
  BytePlane picture = Shrink(grey, factor);
  constexpr uint8_t kCertain = 255, kNotCertain = 128;
  if (sheet.HasOutside()) {
    for (int y = 0; y < picture.height(); ++y) {
      for (int x = 0; x < picture.width(); ++x) {
        const int c = std::min(sheet.outside.width() - 1, x * factor / sheet.cell);
        const int r = std::min(sheet.outside.height() - 1, y * factor / sheet.cell);
        if (sheet.outside.Row(r)[c] != 0 && (x + y) % 8 < 2) picture.Row(y)[x] = kCertain;
      }
    }
  }
  for (const Surround& surround : sheet.surrounds) {
    if (surround.isCertain) continue;
    for (int y = surround.top / factor; y < std::min(picture.height(), surround.bottom / factor); ++y) {
      for (int x = surround.left / factor; x < std::min(picture.width(), surround.right / factor); ++x) {
        if ((x - y) % 8 == 0) picture.Row(y)[x] = kNotCertain;
      }
    }
  }
  for (const SheetSide side : kSheetSides) DrawSide(sheet, side, factor, &picture);
  return picture;
}

}  // namespace rastrel::pages
