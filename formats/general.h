// The rarer formats, through libvips, which is loaded when the first such file turns up.
#ifndef RASTREL_FORMATS_GENERAL_H
#define RASTREL_FORMATS_GENERAL_H

#include "formats/format.h"

namespace rastrel::formats {

extern const Format kJp2, kWebp, kHeif, kJxl, kGif;

// A picture of JPEG 2000, in a file or bare.
Dib ReadJpeg2000(std::span<const uint8_t> bytes, const Reading& reading, Metadata* metadata);

}  // namespace rastrel::formats

#endif
