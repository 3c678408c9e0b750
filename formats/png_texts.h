// Texts of PNG files as items, whoever reads the file.
#ifndef RASTREL_FORMATS_PNG_TEXTS_H
#define RASTREL_FORMATS_PNG_TEXTS_H

#include <string>
#include <string_view>
#include <vector>

#include "formats/format.h"

namespace rastrel::formats {

// Of texts with other keywords: keywords and texts, each with a 0 after it.
inline constexpr const char* kPngOtherTexts = "texts";
inline constexpr const char* kPngMetadata =
    "icc,xmp,exif,description,artist,copyright,date,document,software,history,comment,make,model,texts";
inline constexpr const char* kPngExifTexts = "make,model";  // that have no keyword of their own

// Takes one text, in UTF-8 or Latin-1: as the item that its keyword means, else into `others`.
void TakePngText(std::string_view keyword, std::string_view text, bool isUtf8, Metadata* metadata,
                 std::string* others);

// One to be written. UTF-8 wants a chunk of its own kind, and so does XMP by its rules.
struct PngText {
  std::string keyword, text;
  bool isUtf8;
};
std::vector<PngText> PngTextsOf(const Metadata& metadata);

}  // namespace rastrel::formats

#endif
