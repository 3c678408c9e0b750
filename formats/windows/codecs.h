// The system's own codecs, Windows Imaging Component, for pixels alone: what a file says beside them stands
// in headers that are read and written here. Loaded when the first file wants them.
#ifndef RASTREL_FORMATS_WINDOWS_CODECS_H
#define RASTREL_FORMATS_WINDOWS_CODECS_H

#include <cstdint>
#include <optional>
#include <vector>

#include "formats/format.h"

namespace rastrel::formats {

enum class Codec { Tiff, Png, Jpeg };

// What the header of a file says of its picture.
struct Claim {
  int64_t width = 0, height = 0;
  int bits = 0;  // of the page that becomes of it
  Resolution resolution = {};
  bool isSigned = false;
  uint64_t workBytes = 0;  // that the codec needs beside the page
};

// Both throw PageError. The picture is the first that the codec finds; `profile`, where it is wanted, its ICC
// profile, or none.
Dib DecodePage(Codec codec, Bytes* file, const Claim& claim, const Reading& reading,
               std::vector<uint8_t>* profile = nullptr);

// What a codec is asked for; it may know of less.
struct Wish {
  std::optional<uint8_t> tiffCompression = {};  // as WICTiffCompressionOption numbers them
  std::optional<float> jpegQuality = {};        // 0 to 1
};
// A file of that page alone.
std::vector<uint8_t> EncodePage(Codec codec, const PageView& page, const Wish& wish);

}  // namespace rastrel::formats

#endif
