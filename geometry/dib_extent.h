// Where the rows of a DIB lie when biPlanes counts: a page of two planes has rows twice as long.
#ifndef RASTREL_GEOMETRY_DIB_EXTENT_H
#define RASTREL_GEOMETRY_DIB_EXTENT_H

#include "frame/dib.h"

namespace rastrel {

constexpr uint64_t PlanarRowBytes(const Header& header, int32_t width) {
  return DIBRowBytes(static_cast<uint64_t>(width) * header.biPlanes, header.biBitCount);
}

struct DibExtent {
  uint64_t headBytes;  // header and colour table
  uint64_t stride;
  uint64_t imageBytes;
};

// Returns false when the width or height is negative or the block does not hold all rows. Either may be 0.
inline bool FindExtent(const LockedDib& dib, DibExtent* extent) {
  if (dib.width() < 0 || dib.height() < 0) return false;
  const uint64_t head = kHeaderBytes + PaletteBytes(&dib.header());
  const uint64_t stride = PlanarRowBytes(dib.header(), dib.width());
  if (stride > kMaxBlockBytes) return false;
  const uint64_t image = stride * static_cast<uint32_t>(dib.height());
  if (!dib.Holds(head, image)) return false;
  *extent = {head, stride, image};
  return true;
}

}  // namespace rastrel

#endif
