// What stands behind the handles of bitmaps, palettes and device contexts. One object is used by one thread
// at a time; different ones by any.
#ifndef RASTREL_PLATFORM_HOST_DEVICE_OBJECTS_H
#define RASTREL_PLATFORM_HOST_DEVICE_OBJECTS_H

#include <cstddef>
#include <cstdint>

#include "platform/host/pixel_formats.h"
#include "platform/host/system.h"

namespace rastrel::host {

constexpr uint64_t kMaxBitmapBytes = INT32_MAX;

struct Bitmap {
  HBITMAP handle;
  int width;
  int height;
  PixelFormat format;
  size_t widthBytes;  // of a row in one plane
  uint8_t* bits;
  bool isSelected;  // into a memory context

  size_t size() const { return widthBytes * static_cast<size_t>(height) * format.planes; }
  PlanarRow<uint8_t> Row(int y) const;
};

struct Palette {
  unsigned count;
  PALETTEENTRY* entries;
};

struct Context {
  Bitmap* bitmap;    // null for the screen's
  HPALETTE palette;  // may have been deleted; null for none
};

// Return what a live handle, or one of the host's own, stands for, else null.
Bitmap* FindBitmap(const void* handle);
Palette* FindPalette(const void* handle);
Context* FindContext(const void* handle);

// The bitmap of every new memory context: one black pixel of 1 bit. All contexts of all threads share it, so
// nothing is drawn on it.
bool IsStockBitmap(const Bitmap* bitmap);

// The palette that stands for none: the 20 entries that the platform has there.
HPALETTE StockPalette();

}  // namespace rastrel::host

#endif
