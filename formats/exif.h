// EXIF blocks, which are small TIFF files beside the pixels of others.
#ifndef RASTREL_FORMATS_EXIF_H
#define RASTREL_FORMATS_EXIF_H

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "pages/metadata.h"
#include "pages/page.h"

namespace rastrel::formats {

using namespace pages;

// What stands before a block in JPEG and WebP files.
inline constexpr std::string_view kExifIntro{"Exif\0\0", 6};
// What stands before XMP in the same kind of marker, its 0 included.
inline constexpr std::string_view kXmpIntro{"http://ns.adobe.com/xap/1.0/", 29};
// The texts that a block has a place for, as formats list what they keep.
#define RASTREL_EXIF_TEXTS "description,artist,copyright,date,make,model,software"

// What it says of how the picture lies. A damaged block says nothing.
struct ExifLie {
  int orientation = 1;
  Resolution resolution;
};
ExifLie ReadExif(std::span<const uint8_t> block);

// The same block for a picture that has been turned upright.
void MakeExifUpright(std::span<uint8_t> block);

// Takes a block, with or without its intro, as the item "exif" of an upright page, and its texts as items
// where there are none yet.
void TakeExif(std::span<const uint8_t> block, Metadata* metadata);

// The block for a page of that resolution with what the metadata says, of texts those in the list `texts`.
// Without a block or texts it is empty, unless `isOnlyPlace` for the resolution.
std::vector<uint8_t> ExifFor(const Metadata& metadata, Resolution resolution, std::string_view texts,
                             bool isOnlyPlace = false);

}  // namespace rastrel::formats

#endif
