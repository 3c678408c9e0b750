// What the turns of a page begin with.
#ifndef RASTREL_GEOMETRY_PAGE_TO_TURN_H
#define RASTREL_GEOMETRY_PAGE_TO_TURN_H

#include "frame/dib.h"
#include "frame/rastrel.h"

namespace rastrel {

struct PageToTurn {
  ConstRows rows;
  size_t rowsOffset;  // in the block
};

// Finds the rows of a page of a depth that `isTurned` takes. Returns the first reason not to turn it, if
// there is one.
inline ErrorCode FindPageToTurn(const LockedDib& page, bool (*isTurned)(unsigned bits), PageToTurn* found) {
  const Header& header = page.header();
  if (header.biSize != kHeaderBytes) return ErrFileFormat;
  if (header.biCompression != BI_RGB) return ErrCompressed;
  // Sizes are 16 bits wide here, so a width of 65536 reads as 0. Kept: callers compare the code.
  const int width = header.biWidth & 0xFFFF;
  const int height = header.biHeight & 0xFFFF;
  if (width == 0 || height == 0) return ErrDIBSize;
  if (!isTurned(header.biBitCount)) return ErrBitsPerPixel;
  const uint64_t offset = kHeaderBytes + PaletteBytes(&header);
  const uint64_t stride = DIBRowBytes(static_cast<uint32_t>(width), header.biBitCount);
  if (!page.Holds(offset, stride * static_cast<uint32_t>(height))) return ErrDIBSize;

  found->rowsOffset = static_cast<size_t>(offset);
  found->rows = {page.bytes() + found->rowsOffset, static_cast<size_t>(stride), width, height};
  return ErrSuccess;
}

}  // namespace rastrel

#endif
