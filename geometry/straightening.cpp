// Turning a page by any angle, smoothly.
//
// Every pixel of the new page takes what lies where it came from. Quarters of a turn come first, as a move of
// whole pixels; the rest is at most an eighth of a turn. There a source position is the sum of a part that
// the column decides and one that the row decides, both in fixed point, so that all builds make the same
// bytes and a tile of the new page needs them once.
//
// Between its pixels the page is taken to be what bilinear interpolation makes of it, with the background all
// around. That is also the mean of what a square of a pixel's size covers there. A pixel of 1 bit takes the
// nearest source pixel, unless that is unlike the three others around and covers little of the square:
// corners are rounded, and nothing else changes. Strokes keep their weight, as outer corners lose what inner
// ones gain. Dots and hairlines have outer ones only and would fade, so that they keep theirs; for thin
// strokes, which are a little of both, "little" is not half but 42 %, which costs no type 1 % of its ink.
//
// The new page is filled in tiles. The source pixels that one needs are first laid out in a buffer, with
// background where the page ends, so that nothing behind has to look for edges.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <optional>
#include <utility>

#include "frame/dib.h"
#include "frame/rastrel.h"
#include "frame/thread_state.h"
#include "geometry/reversal.h"
#include "geometry/rows_to_turn.h"
#include "geometry/straightening_bits.h"
#include "geometry/straightening_bytes.h"
#include "geometry/straightening_walk.h"
#include "geometry/transposition.h"

namespace rastrel::straightening {
namespace {

// ---- the pass over the page -------------------------------------------------------------------------------

Columns ColumnsFrom(const Walk& walk, int64_t left) {
  const Position first = walk.OfColumn(left);
  Columns columns;
  for (int n = 0; n < kColumns; ++n) {
    const Position column = walk.OfColumn(left + n);
    columns.x[n] = static_cast<int32_t>(column.x - first.x);
    columns.y[n] = static_cast<int32_t>(column.y - first.y);
    columns.shortX[n + 1] = static_cast<uint16_t>(columns.x[n]);
    columns.shortY[n + 1] = static_cast<uint16_t>(columns.y[n]);
  }
  columns.shortX[0] = columns.shortY[0] = 0;
  return columns;
}

// `rows` are those of the tile, all kRows of them, even if the page ends before.
template <class Tile>
void FillTile(const Walk& walk, int64_t left, const Position* rows, bool isRoomy, Tile* tile,
              const Rows& to) {
  // Coordinates go one way along rows and columns, so that the corners bound the tile's.
  const Position first = walk.OfColumn(left), last = walk.OfColumn(left + kColumns - 1);
  const Position lowest = rows[0], highest = rows[kRows - 1];
  const auto bound = [](int64_t a, int64_t b, int64_t c, int64_t d) {
    const int64_t low = (std::min(a, b) + std::min(c, d)) >> kFraction;
    const int64_t high = (std::max(a, b) + std::max(c, d)) >> kFraction;
    return Interval<int64_t>{low, high + 2};
  };
  const Box<int64_t> box = {bound(first.x, last.x, lowest.x, highest.x),
                            bound(first.y, last.y, lowest.y, highest.y)};
  const Position origin = Tile::Origin(box);
  tile->Load(box);
  std::array<Place, kRows> places;
  for (int i = 0; i < to.height; ++i) {
    places[i] = {static_cast<int32_t>(rows[i].x + first.x - origin.x * kPixel),
                 static_cast<int32_t>(rows[i].y + first.y - origin.y * kPixel)};
  }
  tile->Fill(places.data(), to, isRoomy);
}

template <class Tile>
void FillPage(const Walk& walk, unsigned bits, Tile tile, const Rows& result) {
  // Tiles above each other share their columns; of more rows than these the source would leave the caches.
  constexpr int kBandRows = 8 * kRows;
  const auto usedBytes = static_cast<size_t>(uint64_t{static_cast<uint32_t>(result.width)} * bits / 8);
  std::array<Position, kBandRows> positions;
  for (int64_t band = 0; band < result.height; band += kBandRows) {
    for (int i = 0; i < kBandRows; ++i) positions[i] = walk.OfRow(band + i);
    const int64_t end = std::min<int64_t>(band + kBandRows, result.height);
    for (int64_t y = band; y < end; ++y) {
      std::memset(result.StoredRow(static_cast<int>(y)) + usedBytes, 0, result.stride - usedBytes);
    }
    for (int64_t left = 0; left < result.width; left += kColumns) {
      tile.SetColumns(ColumnsFrom(walk, left));
      const auto count = static_cast<int>(std::min<int64_t>(kColumns, result.width - left));
      const bool isRoomy = left + kColumns + kAtOnce <= result.width;
      for (int64_t y = band; y < end; y += kRows) {
        const auto bottom = static_cast<int>(y);
        uint8_t* const to = result.StoredRow(bottom) + static_cast<size_t>(left * bits / 8);
        const auto rows = static_cast<int>(std::min<int64_t>(kRows, end - y));
        FillTile(walk, left, &positions[static_cast<size_t>(y - band)], isRoomy, &tile,
                 Rows{to, result.stride, count, rows});
      }
    }
  }
}

// ---- the operation ----------------------------------------------------------------------------------------

bool HasOnlyGreys(const ColourTable& table) {
  return std::all_of(table.colours.begin(), table.colours.begin() + table.count, IsGrey);
}

// Whether index i is the grey i.
bool IsRamp(const ColourTable& table) {
  for (unsigned i = 0; i < 256; ++i) {
    if (table.colours[i] != RgbOf(i, i, i)) return false;
  }
  return true;
}

GreyTable GreysOf(const ColourTable& table) {
  GreyTable greys;
  for (unsigned i = 0; i < 256; ++i) {
    greys.greys[i] = static_cast<uint8_t>(RedOf(table.colours[i]));
    greys.indices[i] = static_cast<uint8_t>(NearestIndex(table, RgbOf(i, i, i)));
  }
  return greys;
}

void StraightenRows(const LockedDib& page, const ConstRows& source, const Turn& turn, bool isSmooth,
                    Rgb background, const Rows& result) {
  const Walk walk(turn, source, {result.width, result.height});
  const ColourTable colours = page.ReadColourTable();
  const auto nearest = static_cast<uint8_t>(NearestIndex(colours, background));
  if (page.bits() == 1) return FillPage(walk, 1, BitTile(source, isSmooth, nearest != 0), result);
  if (page.bits() == 24) {
    const RGBQUAD pixel = QuadOf(background);
    return FillPage(walk, 24, ByteTile<24>(source, isSmooth, nullptr, &pixel.rgbBlue), result);
  }
  const bool isMixed = isSmooth && HasOnlyGreys(colours);
  const GreyTable greys = isMixed ? GreysOf(colours) : GreyTable();
  const GreyTable* table = isMixed && !IsRamp(colours) ? &greys : nullptr;
  if (page.bits() == 4) {
    FillPage(walk, 4, ByteTile<4>(source, isMixed, table, &nearest), result);
  } else {
    FillPage(walk, 8, ByteTile<8>(source, isMixed, table, &nearest), result);
  }
}

// Stored rows go up, so that this is the reverse of what it is on rows that go down.
void TurnQuarters(int quarters, const ConstRows& from, unsigned bits, const Rows& to) {
  if (quarters == 2) return ReverseRows(from, bits, to.UpsideDown());
  if (quarters == 1) return Transpose(from.UpsideDown(), bits, to);
  Transpose(from, bits, to.UpsideDown());
}

HGLOBAL Straighten(HGLOBAL dib, double angleDegrees, int quality, COLORREF background) {
  ThreadState& state = GetThreadState();
  const WaitCursor cursor;
  state.lastError = ErrSuccess;

  const bool isKnownQuality = (quality & ~(1 | STRAIGHTEN_SAME_SIZE)) == 0;
  if (dib == nullptr || !std::isfinite(angleDegrees) || !isKnownQuality) return state.Fail(ErrParameter);
  const LockedDib page(dib);
  if (!page) return state.Fail(ErrLockMemory);
  ConstRows source;
  const PageSize size = {page.width(), page.height()};
  if (const ErrorCode refused = FindRowsToTurn(page, size, IsTurnedByAngle, &source))
    return state.Fail(refused);
  const size_t rowsOffset = page.OffsetOf(source.first);

  const Turn turn(angleDegrees);
  Header header = page.header();
  Size turnedPage = {source.width, source.height};
  if (turn.quarters % 2 != 0) {
    std::swap(turnedPage.width, turnedPage.height);
    std::swap(header.biXPelsPerMeter, header.biYPelsPerMeter);
  }
  if ((quality & STRAIGHTEN_SAME_SIZE) == 0) {
    const Size whole = SizeOfWhole(turn, turnedPage);
    if (std::max(whole.width, whole.height) > INT32_MAX) return state.Fail(ErrNoMemory);
    header.biWidth = static_cast<int32_t>(whole.width);
    header.biHeight = static_cast<int32_t>(whole.height);
  }
  const uint64_t imageBytes = DIBImageBytes(header.biWidth, header.biHeight, header.biBitCount);
  header.biSizeImage = static_cast<uint32_t>(imageBytes);
  NewBlock result(rowsOffset + imageBytes, Content::kUnset, Retry::kWhenCompacted);
  if (const ErrorCode failure = result.Failure()) return state.Fail(failure);

  std::optional<NewBlock> turned;
  if (turn.quarters != 0) {
    const auto width = static_cast<int32_t>(turnedPage.width);
    const auto height = static_cast<int32_t>(turnedPage.height);
    const auto stride = static_cast<size_t>(DIBRowBytes(turnedPage.width, page.bits()));
    turned.emplace(DIBImageBytes(width, height, page.bits()), Content::kUnset, Retry::kWhenCompacted);
    if (const ErrorCode failure = turned->Failure()) return state.Fail(failure);
    const Rows turnedRows = {turned->bytes(), stride, width, height};
    TurnQuarters(turn.quarters, source, page.bits(), turnedRows);
    source = turnedRows;
  }

  std::memcpy(result.bytes(), page.bytes(), rowsOffset);
  std::memcpy(result.bytes(), &header, sizeof(header));
  const Rows to = {result.bytes() + rowsOffset,
                   static_cast<size_t>(DIBRowBytes(static_cast<uint32_t>(header.biWidth), page.bits())),
                   header.biWidth, header.biHeight};
  const bool isSmooth = (quality & 1) != 0 && turn.sine != 0;
  StraightenRows(page, source, turn, isSmooth, RgbOfReversed(background), to);
  return result.Release();
}

}  // namespace
}  // namespace rastrel::straightening

HGLOBAL RASTREL_CALL StraightenDIB(HGLOBAL dib, double angleDegrees, int quality, COLORREF background) {
  return rastrel::straightening::Straighten(dib, angleDegrees, quality, background);
}
