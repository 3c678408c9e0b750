// What JPEG 2000 files say beside the picture, in boxes around it. libvips keeps but the picture and the
// profile.
#ifndef RASTREL_FORMATS_JP2_BOXES_H
#define RASTREL_FORMATS_JP2_BOXES_H

#include "formats/format.h"

namespace rastrel::formats {

struct Jp2Extras {
  Resolution resolution = {};
  int depth = 0;  // bits of a sample, or of a palette's colours; 0 where it is not told. Only read
  std::vector<uint8_t> xmp = {}, profile = {};
};

// Of a damaged file what there is of them. The profile stays with libvips.
Jp2Extras ReadJp2Extras(std::span<const uint8_t> file);

// A file with them instead of those that it has.
std::vector<uint8_t> WithJp2Extras(std::span<const uint8_t> file, const Jp2Extras& extras);

}  // namespace rastrel::formats

#endif
