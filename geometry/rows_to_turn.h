// What the turns of a page begin with.
#ifndef RASTREL_GEOMETRY_ROWS_TO_TURN_H
#define RASTREL_GEOMETRY_ROWS_TO_TURN_H

#include "frame/dib.h"
#include "frame/rastrel.h"
#include "frame/thread_state.h"

namespace rastrel {

struct PageSize {
  int width, height;
};

// Some turns count sizes in 16 bits, so that a width of 65536 reads as 0. Kept: programs tell by the code
// which pages to leave alone.
inline PageSize ShortSizeOf(const Header& header) {
  return {header.biWidth & 0xFFFF, header.biHeight & 0xFFFF};
}

// The depths of pages that are turned by any angle.
constexpr bool IsTurnedByAngle(unsigned bits) { return bits == 1 || bits == 4 || bits == 8 || bits == 24; }

// Finds the rows of a page that has this size, and a depth that `isTurned` takes. Returns the first reason
// not to turn it, if there is one.
inline ErrorCode FindRowsToTurn(const LockedDib& page, PageSize size, bool (*isTurned)(unsigned bits),
                                ConstRows* rows) {
  const Header& header = page.header();
  if (header.biSize != kHeaderBytes) return ErrFileFormat;
  if (header.biCompression != BI_RGB) return ErrCompressed;
  if (size.width <= 0 || size.height <= 0) return ErrDIBSize;
  if (!isTurned(page.bits())) return ErrBitsPerPixel;
  const uint64_t offset = kHeaderBytes + PaletteBytes(&header);
  if (!page.Holds(offset, DIBImageBytes(size.width, size.height, page.bits()))) return ErrDIBSize;
  const uint64_t stride = DIBRowBytes(static_cast<uint32_t>(size.width), page.bits());
  *rows = {page.bytes() + offset, static_cast<size_t>(stride), size.width, size.height};
  return ErrSuccess;
}

}  // namespace rastrel

#endif
