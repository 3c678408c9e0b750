// Cutting a page into a grid of tiles, and joining one.
//
// Both go by bytes of rows, not by pixels: a column of tiles begins at a multiple of the padded row length of
// a tile, and a joined row is the tiles' padded rows one after another.
#include <algorithm>
#include <cstring>
#include <optional>

#include "frame/dib.h"
#include "frame/rastrel.h"
#include "geometry/planar_rows.h"

namespace rastrel {
namespace {

void CopyRows(const uint8_t* from, size_t fromStep, uint8_t* to, size_t toStep, size_t bytes, uint32_t rows) {
  for (uint32_t y = 0; y < rows; ++y) std::memcpy(to + y * toStep, from + y * fromStep, bytes);
}

// Puts a header in front of a block that has room for it: `model` with another size.
void WriteHeader(Header model, int64_t width, int64_t height, uint64_t imageBytes, uint8_t* block) {
  model.biWidth = static_cast<int32_t>(width);
  model.biHeight = static_cast<int32_t>(height);
  model.biSizeImage = static_cast<uint32_t>(imageBytes);
  std::memcpy(block, &model, sizeof(model));
}

// The handles of a grid's tiles, which may be null; freed at the end of its life unless released.
class TileHandles {
 public:
  explicit TileHandles(uint64_t count) : block_(count * sizeof(HGLOBAL), Content::kZeroed) {}
  ~TileHandles() {
    for (uint64_t i = count_; i-- > 0;) GlobalFree(handles()[i]);
  }
  TileHandles(const TileHandles&) = delete;
  TileHandles& operator=(const TileHandles&) = delete;
  explicit operator bool() const { return static_cast<bool>(block_); }

  void Add(HGLOBAL tile) { handles()[count_++] = tile; }
  HGLOBAL Release() {
    count_ = 0;
    return block_.Release();
  }

 private:
  HGLOBAL* handles() const { return block_.As<HGLOBAL>(); }

  NewBlock block_;
  uint64_t count_ = 0;
};

struct Grid {
  uint64_t tileStride;
  uint64_t columns, rows;
};

// Returns false when pixels have no bits. A tile takes at least four bytes of the page, so the counts are
// small enough to be multiplied.
bool LayGrid(const LockedDib& page, const ConstRows& rows, int tileWidth, int tileHeight, Grid* grid) {
  grid->tileStride = PlanarRowBytes(page.header(), tileWidth);
  if (grid->tileStride == 0) return false;
  grid->columns = (rows.stride + grid->tileStride - 1) / grid->tileStride;
  const auto height = static_cast<uint64_t>(tileHeight);
  grid->rows = (static_cast<uint64_t>(page.height()) + height - 1) / height;
  return true;
}

struct TileSize {
  int width, height;
};

// Returns the tile in a column and row of the grid, or null.
HGLOBAL CutTile(const LockedDib& page, const ConstRows& rows, const Grid& grid, TileSize size,
                uint64_t column, uint64_t row) {
  const auto left = static_cast<int64_t>(column) * size.width;  // within the page, since tiles are padded
  const auto bottom = static_cast<int64_t>(row) * size.height;
  const int64_t width = std::min<int64_t>(size.width, page.width() - left);
  const int64_t height = std::min<int64_t>(size.height, page.height() - bottom);
  const uint64_t at = column * grid.tileStride;
  const auto stride = static_cast<size_t>(std::min(grid.tileStride, rows.stride - at));
  const uint64_t imageBytes = static_cast<uint64_t>(height) * stride;
  const size_t headBytes = page.OffsetOf(rows.first);
  NewBlock tile(headBytes + imageBytes, Content::kUnset);
  if (!tile) return nullptr;

  std::memcpy(tile.bytes(), page.bytes(), headBytes);
  WriteHeader(page.header(), width, height, imageBytes, tile.bytes());
  CopyRows(rows.StoredRow(static_cast<int>(bottom)) + at, rows.stride, tile.bytes() + headBytes, stride,
           stride, static_cast<uint32_t>(height));
  return tile.Release();
}

// The tiles of a grid, as a block holds their handles.
struct TileGrid {
  const HGLOBAL* handles;
  uint64_t columns, rows;

  HGLOBAL At(uint64_t column, uint64_t row) const { return handles[row * columns + column]; }
};

// What becomes of a grid when it is joined.
struct Joined {
  uint64_t headBytes = 0;
  uint64_t stride = 0;
  int64_t width = 0;
  int64_t height = 0;
  bool fills = true;  // the tiles fill the page: in each row they are of one height, and as wide as the page

  uint64_t bytes() const { return headBytes + stride * static_cast<uint64_t>(height); }
};

// Returns nothing when a tile is no page that its block holds, or the page's size cannot be told in a header.
std::optional<Joined> SurveyTiles(const TileGrid& grid) {
  Joined joined;
  for (uint64_t row = 0; row < grid.rows; ++row) {
    uint64_t rowBytes = 0;
    int height = 0;
    for (uint64_t column = 0; column < grid.columns; ++column) {
      const LockedDib tile(grid.At(column, row));
      ConstRows rows;
      if (!tile || !FindPlanarRows(tile, &rows)) return std::nullopt;
      if (row == 0 && column == 0) joined.headBytes = tile.OffsetOf(rows.first);
      if (row == 0) joined.width += tile.width();
      if (column == 0) height = tile.height();
      joined.fills = joined.fills && tile.height() == height;
      rowBytes += rows.stride;
      if (rowBytes > kMaxBlockBytes) return std::nullopt;
    }
    if (row == 0) joined.stride = rowBytes;
    joined.height += height;
    joined.fills = joined.fills && rowBytes == joined.stride;
    if (joined.width > INT32_MAX || joined.height > INT32_MAX) return std::nullopt;
  }
  return joined;
}

// Copies a tile's rows to where they belong from byte `at` of the page's block on. Returns false where they
// would leave its rows.
bool PlaceTile(const ConstRows& tile, const Joined& joined, uint64_t at, uint8_t* block) {
  if (tile.bytes() == 0) return true;
  const auto height = static_cast<uint32_t>(tile.height);
  const uint64_t needed = (height - 1) * joined.stride + tile.stride;
  if (at < joined.headBytes || at > joined.bytes() || needed > joined.bytes() - at) return false;
  CopyRows(tile.first, tile.stride, block + at, static_cast<size_t>(joined.stride), tile.stride, height);
  return true;
}

// Returns false when a tile cannot be had any more or does not fit.
bool PlaceTiles(const TileGrid& grid, const Joined& joined, uint8_t* block) {
  uint64_t at = joined.headBytes;
  for (uint64_t row = 0; row < grid.rows; ++row) {
    uint64_t lastHeight = 0;
    for (uint64_t column = 0; column < grid.columns; ++column) {
      const LockedDib tile(grid.At(column, row));
      ConstRows rows;
      if (!tile || !FindPlanarRows(tile, &rows)) return false;
      if (!PlaceTile(rows, joined, at, block)) return false;
      at += rows.stride;
      lastHeight = static_cast<uint64_t>(tile.height());
    }
    // The next row of tiles begins where the last tile of this one says; without rows that is further down,
    // and what then lies in the head or has wrapped around is refused.
    at += (lastHeight - 1) * joined.stride;
  }
  return true;
}

}  // namespace
}  // namespace rastrel

int RASTREL_CALL SplitDIB(HGLOBAL dib, int tileWidth, int tileHeight, HGLOBAL* tileArray, int* gridCounts) {
  using namespace rastrel;
  if (dib == nullptr || tileWidth < 1 || tileHeight < 1) return 0;
  if (tileArray == nullptr || gridCounts == nullptr) return 0;
  const LockedDib page(dib);
  ConstRows pageRows;
  Grid grid;
  if (!page || !FindPlanarRows(page, &pageRows)) return 0;
  if (!LayGrid(page, pageRows, tileWidth, tileHeight, &grid)) return 0;

  gridCounts[0] = static_cast<int>(grid.columns);
  gridCounts[1] = static_cast<int>(grid.rows);
  *tileArray = nullptr;
  TileHandles tiles(grid.columns * grid.rows);
  if (!tiles) return 0;
  for (uint64_t row = 0; row < grid.rows; ++row) {
    for (uint64_t column = 0; column < grid.columns; ++column) {
      HGLOBAL tile = CutTile(page, pageRows, grid, {tileWidth, tileHeight}, column, row);
      if (tile == nullptr) return 0;
      tiles.Add(tile);
    }
  }
  *tileArray = tiles.Release();
  return 1;
}

HGLOBAL RASTREL_CALL MergeDIBs(HGLOBAL tileArray, int columns, int rows) {
  using namespace rastrel;
  if (tileArray == nullptr || columns < 1 || rows < 1) return nullptr;
  const LockedBlock array(tileArray);
  const auto count = static_cast<uint64_t>(columns) * static_cast<uint64_t>(rows);
  if (!array || !array.Holds(0, count * sizeof(HGLOBAL))) return nullptr;
  const TileGrid grid = {reinterpret_cast<const HGLOBAL*>(array.bytes()), static_cast<uint64_t>(columns),
                         static_cast<uint64_t>(rows)};

  const std::optional<Joined> joined = SurveyTiles(grid);
  if (!joined) return nullptr;
  NewBlock result(joined->bytes(), joined->fills ? Content::kUnset : Content::kZeroed);
  const LockedDib first(grid.At(0, 0));
  if (!result || !first || !first.Holds(0, joined->headBytes)) return nullptr;
  std::memcpy(result.bytes(), first.bytes(), static_cast<size_t>(joined->headBytes));
  WriteHeader(first.header(), joined->width, joined->height, joined->bytes() - joined->headBytes,
              result.bytes());
  return PlaceTiles(grid, *joined, result.bytes()) ? result.Release() : nullptr;
}
