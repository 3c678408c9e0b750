// What fields of TIFF pages mean, without libtiff.
#ifndef RASTREL_FORMATS_TIFF_FIELDS_H
#define RASTREL_FORMATS_TIFF_FIELDS_H

#include <functional>
#include <string>

#include "formats/format.h"
#include "formats/tiff_directory.h"

namespace rastrel::formats {

// What a page's fields say of its rows, for CheckTiffClaim.
struct TiffClaim {
  uint64_t width, height, rowBytes;
  uint16_t compression;
  uint64_t tileBytes = 0, tiles = 0;  // 0 for strips
};
// Throws PageError where so few bytes cannot hold the page.
void CheckTiffClaim(uint64_t fileBytes, const TiffClaim& claim);

// What libtiff does not tell: the EXIF directory, as the block that other formats have, the history, and
// fields that only TIFF files have. `nameOf` names the others, which are told.
void ReadTiffExtras(Bytes* bytes, uint64_t directory, bool isLab,
                    const std::function<std::string(uint16_t)>& nameOf, Metadata* metadata);
// Adds them to a file of one page.
void WriteTiffExtras(MemoryBytes* bytes, const Metadata& metadata);

}  // namespace rastrel::formats

#endif
