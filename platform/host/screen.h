// The screen that device bitmaps are made for, and what indices mean on it.
#ifndef RASTREL_PLATFORM_HOST_SCREEN_H
#define RASTREL_PLATFORM_HOST_SCREEN_H

#include "platform/host/device_objects.h"
#include "platform/host/pixel_formats.h"

namespace rastrel::host {

unsigned ScreenBits();

// What the indices of a bitmap of that format mean in a context; an empty table for other formats.
ColourTable ColoursFor(const Context& context, PixelFormat format);

}  // namespace rastrel::host

#endif
