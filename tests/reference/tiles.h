// Cutting a DIB into a grid of tiles by bytes of its rows, and joining such a grid.
#ifndef RASTREL_TESTS_REFERENCE_TILES_H
#define RASTREL_TESTS_REFERENCE_TILES_H

#include <algorithm>

#include "dib.h"

namespace reference {

constexpr int64_t kLargestBlock = 0xFFFFFFF8;

// In bytes, all planes of a row counted.
inline int64_t TileStride(const Block& dib, int64_t width) {
  return Stride(width, int64_t{Field(dib, kBits, 2)} * Field(dib, kPlanes, 2));
}

// Tiles of the bottom band first, from the left. Empty: refused.
inline std::vector<Block> SplitDIB(const Block& dib, int tileWidth, int tileHeight, int* columns, int* rows) {
  const View source(dib);
  const int64_t sourceStride = TileStride(dib, source.width), tileStride = TileStride(dib, tileWidth);
  const auto size = static_cast<int64_t>(dib.size());
  if (tileWidth < 1 || tileHeight < 1 || source.width <= 0 || source.height <= 0) return {};
  if (sourceStride == 0 || source.height > (size - source.pixels) / sourceStride) return {};

  *columns = static_cast<int>((sourceStride + tileStride - 1) / tileStride);
  *rows = static_cast<int>((int64_t{source.height} + tileHeight - 1) / tileHeight);
  std::vector<Block> tiles;
  for (int64_t r = 0; r < *rows; ++r) {
    for (int64_t c = 0; c < *columns; ++c) {
      const int64_t height = std::min<int64_t>(tileHeight, source.height - r * tileHeight);
      const int64_t bytes = std::min(tileStride, sourceStride - c * tileStride);
      Block tile = WithHeadOf(source, source.pixels + height * bytes);
      SetField(tile, kWidth, 4, std::min<int64_t>(tileWidth, source.width - c * tileWidth));
      SetField(tile, kHeight, 4, height);
      SetField(tile, kSizeImage, 4, height * bytes);
      for (int64_t i = 0; i < height * bytes; ++i) {
        const int64_t from = (r * tileHeight + i / bytes) * sourceStride + c * tileStride + i % bytes;
        Byte(tile, source.pixels + i) = ByteAt(dib, source.pixels + from);
      }
      tiles.push_back(tile);
    }
  }
  return tiles;
}

// Tiles are whole blocks: what lies behind their pixels may be read. Empty: refused.
inline Block MergeDIBs(const std::vector<Block>& tiles, int columns, int rows) {
  const int64_t count = int64_t{columns} * rows;
  if (columns < 1 || rows < 1 || static_cast<int64_t>(tiles.size()) < count) return {};
  int64_t width = 0, height = 0, stride = 0;
  for (int64_t i = 0; i < count; ++i) {
    const Block& block = tiles[static_cast<size_t>(i)];
    const View tile(block);
    const int64_t bytes = TileStride(block, tile.width);
    if (block.size() < kHeader || tile.width < 0 || tile.height < 0 || bytes > kLargestBlock) return {};
    if (i % columns == 0) height += tile.height;
    if (i < columns) width += tile.width;
    if (i < columns) stride += bytes;
  }
  const View first(tiles[0]);
  if (first.pixels > static_cast<int64_t>(tiles[0].size())) return {};
  if (stride > 0 && height > (kLargestBlock - first.pixels) / stride) return {};

  const int64_t size = first.pixels + height * stride;
  Block result = WithHeadOf(first, size);
  SetField(result, kWidth, 4, width);
  SetField(result, kHeight, 4, height);
  SetField(result, kSizeImage, 4, height * stride);
  int64_t position = first.pixels;
  for (int64_t i = 0; i < count; ++i) {
    const Block& block = tiles[static_cast<size_t>(i)];
    const View tile(block);
    const int64_t bytes = TileStride(block, tile.width);
    for (int64_t k = 0; k < tile.height && bytes > 0; ++k) {
      const int64_t from = tile.pixels + k * bytes, to = position + k * stride;
      if (from + bytes > static_cast<int64_t>(block.size()) || to < first.pixels || to + bytes > size)
        return {};
      for (int64_t b = 0; b < bytes; ++b) Byte(result, to + b) = ByteAt(block, from + b);
    }
    position += bytes;
    if (i % columns == columns - 1) position += (int64_t{tile.height} - 1) * stride;
  }
  return result;
}

}  // namespace reference

#endif
