// Black-and-white pages in a new size, by their nearest pixels.
#ifndef RASTREL_SCALE_MONO_SCALING_H
#define RASTREL_SCALE_MONO_SCALING_H

#include "frame/dib.h"

namespace rastrel {

// Returns a rectangle of a 1-bit page as a new page of the new size, with the page's colour table and its
// biSizeImage. `left` and `top`, which counts from the top row, lie inside the page. The rectangle may reach
// beyond: below the page its last row goes on, to its right stands what pads the row. Returns null, and sets
// no error, for other places, for sizes below 1, when the page is cut short or when there is no memory.
HGLOBAL ScaleMonoRect(const LockedDib& source, int left, int top, int width, int height, int newWidth,
                      int newHeight);

}  // namespace rastrel

#endif
