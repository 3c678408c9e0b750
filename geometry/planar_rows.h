// The rows of a DIB when biPlanes counts: a page of two planes has rows twice as long.
#ifndef RASTREL_GEOMETRY_PLANAR_ROWS_H
#define RASTREL_GEOMETRY_PLANAR_ROWS_H

#include "frame/dib.h"

namespace rastrel {

constexpr uint64_t PlanarRowBytes(const Header& header, int32_t width) {
  return DIBRowBytes(static_cast<uint64_t>(width) * header.biPlanes, header.biBitCount);
}

// Finds the rows behind the header and colour table. Returns false when the width or height is negative or
// the block does not hold all rows. Either may be 0.
inline bool FindPlanarRows(const LockedDib& dib, ConstRows* rows) {
  if (dib.width() < 0 || dib.height() < 0) return false;
  const uint64_t head = kHeaderBytes + PaletteBytes(&dib.header());
  const uint64_t stride = PlanarRowBytes(dib.header(), dib.width());
  if (stride > kMaxBlockBytes) return false;
  if (!dib.Holds(head, stride * static_cast<uint32_t>(dib.height()))) return false;
  *rows = {dib.bytes() + head, static_cast<size_t>(stride), dib.width(), dib.height()};
  return true;
}

}  // namespace rastrel

#endif
