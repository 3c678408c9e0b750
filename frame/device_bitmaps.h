// Between DIBs and the platform's device bitmaps.
#ifndef RASTREL_FRAME_DEVICE_BITMAPS_H
#define RASTREL_FRAME_DEVICE_BITMAPS_H

#include "frame/rastrel.h"
#include "platform/platform.h"

namespace rastrel {

// Fills the colour table behind a 40-byte header: from `palette` as many entries as it has, when the table
// has room for all of them; else, and without a palette, with the standard colours of the depth.
void FillDIBColorTable(HPALETTE palette, BITMAPINFO* info);

}  // namespace rastrel

#endif
