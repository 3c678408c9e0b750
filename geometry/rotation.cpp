// Turning a page by any angle.
//
// Every pixel of the new page takes the source pixel that lies where it came from. Only the corners of the
// new page are mapped back in floating point. In between, the first pixel of each row is found by adding a
// constant step to that of the row below, and the other pixels of a row by two integer error accumulators,
// one a coordinate, that start anew in each row. So the way from a row's first source pixel to its n-th
// depends on n alone: it is worked out once for a tile of columns and serves all rows of the tile. Where the
// page is turned a little, the way is cut into runs, stretches of columns that lie side by side in one source
// row, and these are copied as bytes or as the bits of a word.
//
// The new page is filled in tiles that are small enough for the source pixels they need to stay in the cache
// at any angle.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "frame/dib.h"
#include "frame/rastrel.h"
#include "frame/thread_state.h"
#include "geometry/rotation_tiles.h"
#include "geometry/rotation_walk.h"
#include "geometry/rows_to_turn.h"

namespace rastrel::rotation {
namespace {

// ---- the pass over the page -------------------------------------------------------------------------------

template <class Tile>
class PageTurner {
 public:
  PageTurner(const Source& source, const Walk& walk, uint8_t* result)
      : source_(source),
        walk_(walk),
        result_(result),
        stride_(static_cast<int>(DIBRowBytes(static_cast<uint32_t>(walk.width), Tile::kBits))),
        at_(walk.start),
        tile_(source) {}

  void Run() {
    for (int bottom = 0; bottom < walk_.height; bottom += Tile::kRows) {
      const Columns used = StartRows(bottom);
      Columns columns = ColumnsOfTile(used.first / Tile::kColumns * Tile::kColumns);
      Box<int> box = BoxOf(columns);
      while (columns.first < used.end) {
        tile_.MoveTo(walk_, columns, box);
        const Columns next = ColumnsOfTile(columns.end);
        box = BoxOf(next);
        for (int i = 0; i < count_; ++i) {
          if constexpr (Tile::kPrefetch) Prefetch(box, next, i);
          const Columns part = rows_[i].inside.And(columns);
          if (!part.empty()) tile_.Copy(rows_[i], part, stride_);
        }
        columns = next;
      }
    }
  }

 private:
  // Finds where the rows of the next tiles come from and clears what no tile writes of them. Returns the
  // columns that have a source pixel in some row.
  Columns StartRows(int bottom) {
    count_ = std::min(Tile::kRows, walk_.height - bottom);
    Columns used = {walk_.width, 0};
    for (int i = 0; i < count_; ++i) {
      uint8_t* bytes = result_ + static_cast<size_t>(bottom + i) * static_cast<size_t>(stride_);
      const int x = Round(at_.x);
      const int y = Round(at_.y);
      at_ = {at_.x + walk_.rowStep.x, at_.y + walk_.rowStep.y};
      const Columns inside =
          walk_.x.Inside(x, source_.rows.width).And(walk_.y.Inside(y, source_.rows.height));
      Columns written = {stride_, stride_};
      if (!inside.empty()) {
        written = Tile::BytesOf(inside, stride_);
        used = {std::min(used.first, inside.first), std::max(used.end, inside.end)};
      }
      std::memset(bytes, 0, static_cast<size_t>(written.first));
      std::memset(bytes + written.end, 0, static_cast<size_t>(stride_ - written.end));
      rows_[i] = {bytes, x, y, inside};
    }
    return used;
  }

  Columns ColumnsOfTile(int first) const { return {first, std::min(first + Tile::kColumns, walk_.width)}; }

  // Positions go one way along rows and columns, so that the corners of a tile bound it.
  Box<int> BoxOf(Columns columns) const {
    const auto bound = [&](const Stepper& stepper, int firstRow, int lastRow, int size) {
      const auto left = static_cast<int>(stepper.sign() * stepper.Steps(columns.first));
      const auto right = static_cast<int>(stepper.sign() * stepper.Steps(columns.end - 1));
      const auto [low, high] =
          std::minmax({firstRow + left, firstRow + right, lastRow + left, lastRow + right});
      return Columns{std::max(low, 0), std::min(high + 1, size)};
    };
    const TurnedRow& first = rows_[0];
    const TurnedRow& last = rows_[count_ - 1];
    return {bound(walk_.x, first.x, last.x, source_.rows.width),
            bound(walk_.y, first.y, last.y, source_.rows.height)};
  }

  // While row i of a tile is done, asks for a share of the next tile's source pixels and for where that row
  // goes on. The processor cannot guess either: a tile is short pieces of many rows, and waiting for them
  // would take longer than copying. Inlined, since a function that only asks may be dropped as having no
  // effect.
  [[gnu::always_inline]] void Prefetch(const Box<int>& box, Columns columns, int i) const {
    const int rows = box.rows.end - box.rows.first;
    const int firstByte = box.columns.first * Tile::kBits / 8;
    const int endByte = (box.columns.end * Tile::kBits + 7) / 8;
    for (int y = box.rows.first + rows * i / count_; y < box.rows.first + rows * (i + 1) / count_; ++y) {
      const uint8_t* row = source_.rows.StoredRow(y);
      for (int byte = firstByte; byte < endByte; byte += kCacheLine) __builtin_prefetch(row + byte);
    }
    const Columns next = rows_[i].inside.And(columns);
    for (int byte = next.first * Tile::kBits / 8; byte < next.end * Tile::kBits / 8; byte += kCacheLine) {
      __builtin_prefetch(rows_[i].bytes + byte, kForWriting);
    }
  }

  static constexpr int kCacheLine = 64;
  static constexpr int kForWriting = 1;

  const Source& source_;
  const Walk& walk_;
  uint8_t* result_;
  int stride_;
  Position at_;  // source position of the next row's first pixel
  int count_ = 0;
  std::array<TurnedRow, Tile::kRows> rows_;
  Tile tile_;
};

// Where runs are shorter than this on average, picking pixels one by one is faster.
constexpr int kShortestRunPacked = 4;
constexpr int kShortestRunBytes = 7;

template <class RunTile, class PixelTile>
void TurnPage(const Source& source, const Walk& walk, int shortestRun, uint8_t* result) {
  if (walk.MeanRun() >= shortestRun) {
    PageTurner<RunTile>(source, walk, result).Run();
  } else {
    PageTurner<PixelTile>(source, walk, result).Run();
  }
}

void TurnPage(unsigned bits, const Source& source, const Walk& walk, uint8_t* result) {
  switch (bits) {
    case 1:
      return TurnPage<WordRunTile<1>, UnpackedTile<1>>(source, walk, kShortestRunPacked, result);
    case 4:
      return TurnPage<WordRunTile<4>, UnpackedTile<4>>(source, walk, kShortestRunPacked, result);
    case 8:
      return TurnPage<ByteRunTile<1>, BytePixelTile<1>>(source, walk, kShortestRunBytes, result);
    default:
      return TurnPage<ByteRunTile<3>, BytePixelTile<3>>(source, walk, kShortestRunBytes, result);
  }
}

// Returns the resolution along an axis on which two source axes lie with these lengths in pixels. What is no
// number that fits, as with a source resolution of 0, becomes 0.
int32_t MixedResolution(double sinePixels, double sineResolution, double cosinePixels,
                        double cosineResolution) {
  const double inches = sinePixels / sineResolution + cosinePixels / cosineResolution;
  const double rounded = (sinePixels + cosinePixels) / inches + 0.5;
  return rounded > -2147483649.0 && rounded < 2147483648.0 ? static_cast<int32_t>(rounded) : 0;
}

Header TurnedHeader(Header header, const Turn& back, const Walk& walk, const ConstRows& source) {
  const double cosineWidth = back.cosine() * source.width;
  const double cosineHeight = back.cosine() * source.height;
  const double sineWidth = back.sine() * source.width;
  const double sineHeight = back.sine() * source.height;
  const double x = header.biXPelsPerMeter;
  const double y = header.biYPelsPerMeter;
  header.biWidth = walk.width;
  header.biHeight = walk.height;
  header.biSizeImage = static_cast<uint32_t>(DIBImageBytes(walk.width, walk.height, header.biBitCount));
  header.biXPelsPerMeter = MixedResolution(sineHeight, y, cosineWidth, x);
  header.biYPelsPerMeter = MixedResolution(sineWidth, x, cosineHeight, y);
  return header;
}

HGLOBAL RotateBy(HGLOBAL dib, double angle) {
  ThreadState& state = GetThreadState();
  const WaitCursor cursor;
  state.lastError = ErrSuccess;

  if (dib == nullptr || !std::isfinite(angle)) return state.Fail(ErrParameter);
  const LockedDib page(dib);
  if (!page) return state.Fail(ErrLockMemory);
  ConstRows rows;
  const PageSize size = ShortSizeOf(page.header());
  if (const ErrorCode refused = FindRowsToTurn(page, size, IsTurnedByAngle, &rows))
    return state.Fail(refused);
  const size_t rowsOffset = page.OffsetOf(rows.first);
  const Source source = {rows, page.size() - rowsOffset};

  const double radians = RadiansOf(angle);
  const HalfSize half(Turn(radians), source.rows);
  const Turn back(-radians);
  const Walk walk(back, half.width, half.height, source.rows);

  const uint64_t bytes = rowsOffset + DIBImageBytes(walk.width, walk.height, page.bits());
  NewBlock result(bytes, Content::kUnset, Retry::kWhenCompacted);
  if (const ErrorCode failure = result.Failure(ErrCreateBitmap)) return state.Fail(failure);

  const Header header = TurnedHeader(page.header(), back, walk, source.rows);
  std::memcpy(result.bytes(), page.bytes(), rowsOffset);
  std::memcpy(result.bytes(), &header, sizeof(header));
  TurnPage(page.bits(), source, walk, result.bytes() + rowsOffset);
  return result.Release();
}

}  // namespace
}  // namespace rastrel::rotation

HGLOBAL RASTREL_CALL RotateDIB(HGLOBAL dib, double angle) { return rastrel::rotation::RotateBy(dib, angle); }

// Turns like any other: a page of even size loses a line of pixels, which a transpose would not. Kept:
// callers of RotateDIB90 and its like compare their pages with stored ones, and have TurnDIB for the other.
HGLOBAL RASTREL_CALL RotateDIB90(HGLOBAL dib) { return rastrel::rotation::RotateBy(dib, 90.0); }
HGLOBAL RASTREL_CALL RotateDIB180(HGLOBAL dib) { return rastrel::rotation::RotateBy(dib, 180.0); }
HGLOBAL RASTREL_CALL RotateDIB270(HGLOBAL dib) { return rastrel::rotation::RotateBy(dib, 270.0); }
