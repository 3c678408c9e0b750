// A rectangle of a page of greys, enlarged.
#include <cstring>

#include "frame/dib.h"
#include "frame/rastrel.h"
#include "scale/indexed_rows.h"
#include "scale/resampling.h"

namespace rastrel {
namespace {

constexpr int kMostPixels = 32767;  // in a direction of the result

struct Rectangle {
  int left, top, width, height;  // `top` counts stored rows

  bool IsIn(const ConstRows& rows) const {
    return left >= 0 && top >= 0 && width >= 1 && height >= 1 && left + width <= rows.width &&
           top + height <= rows.height;
  }
};

// The indices of all levels, as they are found in a ramp of `count` levels. Most come out one below the entry
// that matches; level 0 comes out as 255 where entry 1 is above 0. Kept: callers of ScaleGrayDIB compare
// its pages with stored ones.
ByteMap::Table IndicesOf(const RGBQUAD* table, int count) {
  ByteMap::Table indices;
  for (int level = 0; level < 256; ++level) {
    int k = 0;
    int previous = 0;
    int current = table[1].rgbBlue;
    while (current < level && k < count - 1) {
      ++k;
      previous = current;
      if (k + 1 < count) current = table[k + 1].rgbBlue;
    }
    const bool isHere = current == level || level - previous > current - level;
    indices[static_cast<size_t>(level)] = static_cast<uint8_t>(isHere ? k : k - 1);
  }
  return indices;
}

HGLOBAL Enlarge(const LockedDib& page, const Rectangle& part, int xFactor, int yFactor,
                Interpolation interpolation) {
  const unsigned bits = page.bits();
  if (!page.Holds(0, kHeaderBytes) || (bits != 4 && bits != 8)) return nullptr;
  ConstRows source = {};
  if (!page.FindRows(kHeaderBytes + PaletteBytes(&page.header()), &source)) return nullptr;
  if (!part.IsIn(source) || xFactor < 1 || yFactor < 1) return nullptr;
  const int width = part.width * xFactor;
  const int height = part.height * yFactor;
  if (width > kMostPixels || height > kMostPixels) return nullptr;

  // The header keeps its number of colours, though the table is full. Kept: callers of ScaleGrayDIB
  // compare headers with stored ones.
  const int colours = 1 << bits;
  RGBQUAD table[256] = {};
  page.ReadPalette(static_cast<unsigned>(colours), kBlack, table);
  const size_t tableBytes = static_cast<size_t>(colours) * sizeof(RGBQUAD);
  const uint64_t imageBytes = DIBImageBytes(width, height, bits);
  NewBlock result(kHeaderBytes + tableBytes + imageBytes, Content::kUnset);
  if (!result) return nullptr;
  Header header = page.header();
  header.biWidth = width;
  header.biHeight = height;
  header.biSizeImage = static_cast<uint32_t>(imageBytes);
  std::memcpy(result.bytes(), &header, sizeof(header));
  std::memcpy(result.bytes() + kHeaderBytes, table, tableBytes);

  const auto newWidth = static_cast<size_t>(width);
  const auto oldWidth = static_cast<size_t>(part.width);
  Resampler resampler(interpolation, 1,
                      {static_cast<uint32_t>(part.width), static_cast<uint32_t>(part.height)},
                      {static_cast<uint32_t>(width), static_cast<uint32_t>(height)});
  const NewBlock samples(oldWidth, Content::kUnset);
  const NewBlock line(newWidth, Content::kUnset);
  if (!resampler || !samples || !line) return nullptr;

  ByteMap::Table blues;
  for (size_t i = 0; i < blues.size(); ++i) blues[i] = table[i].rgbBlue;
  const ByteMap levels(blues);
  const ByteMap indices(IndicesOf(table, colours));
  const auto levelsOf = [&](uint32_t r) {
    ReadLevels(source.StoredRow(part.top + static_cast<int>(r)), bits, static_cast<size_t>(part.left),
               oldWidth, levels, samples.bytes());
    return samples.bytes();
  };
  const auto stride = static_cast<size_t>(DIBRowBytes(newWidth, bits));
  uint8_t* row = result.bytes() + kHeaderBytes + tableBytes;
  for (uint32_t y = 0; y < static_cast<uint32_t>(height); ++y, row += stride) {
    resampler.MakeRow(y, levelsOf, line.bytes());
    WriteIndices(line.bytes(), newWidth, bits, indices, stride, row);
  }
  return result.Release();
}

}  // namespace
}  // namespace rastrel

HGLOBAL RASTREL_CALL ScaleGrayDIB(HGLOBAL dib, int16_t left, int16_t top, int16_t width, int16_t height,
                                  int16_t xFactor, int16_t yFactor, int16_t mode) {
  using namespace rastrel;
  if (mode != 0 && mode != 1) return nullptr;
  const LockedDib page(dib);
  if (!page) return nullptr;
  return Enlarge(page, {left, top, width, height}, xFactor, yFactor,
                 mode == 1 ? Interpolation::kCubic : Interpolation::kBilinear);
}
