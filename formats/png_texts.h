// What PNG files say beside their pixels as items, whoever reads the file.
#ifndef RASTREL_FORMATS_PNG_TEXTS_H
#define RASTREL_FORMATS_PNG_TEXTS_H

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "formats/format.h"

namespace rastrel::formats {

// Of texts with other keywords: keywords and texts, each with a 0 after it.
inline constexpr const char* kPngOtherTexts = "texts";
inline constexpr const char* kPngMetadata =
    "icc,xmp,exif,iptc,photoshop,description,artist,copyright,date,document,software,history,comment,make,"
    "model,"
    "texts,calibration";
inline constexpr const char* kPngExifTexts = "make,model";  // that have no keyword of their own

// Takes one text, in UTF-8 or Latin-1: as the item that its keyword means, else into `others`.
void TakePngText(std::string_view keyword, std::string_view text, bool isUtf8, Metadata* metadata,
                 std::string* others);

// What the samples mean as colours: gamma, and where white, red, green and blue lie (x and y of each), in
// 100,000ths; 0 where that is not told.
struct PngCalibration {
  uint32_t gamma = 0;
  std::array<uint32_t, 8> colours{};
  bool hasColours() const { return colours[0] != 0; }
};
// As an item, unless screens without a profile show the samples so, too.
void SetCalibration(const PngCalibration& calibration, Metadata* metadata);
// Nothing is told where there is a profile.
PngCalibration CalibrationOf(const Metadata& metadata);

// One to be written. UTF-8 wants a chunk of its own kind, and so does XMP by its rules.
struct PngText {
  std::string keyword, text;
  bool isUtf8;
};
std::vector<PngText> PngTextsOf(const Metadata& metadata);

}  // namespace rastrel::formats

#endif
