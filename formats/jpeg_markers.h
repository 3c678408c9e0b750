// What JPEG files say beside their pixels, whoever decodes them.
#ifndef RASTREL_FORMATS_JPEG_MARKERS_H
#define RASTREL_FORMATS_JPEG_MARKERS_H

#include <vector>

#include "formats/exif.h"
#include "formats/format.h"

namespace rastrel::formats {

inline constexpr int kJpegExif = 0xE1, kJpegProfile = 0xE2, kJpegPhotoshop = 0xED, kJpegComment = 0xFE;
inline constexpr std::string_view kPhotoshopIntro{"Photoshop 3.0\0", 14};

inline constexpr const char* kJpegMetadata = "icc,xmp,exif,photoshop,comment," RASTREL_EXIF_TEXTS;
inline constexpr int kJpegQuality = 90;
inline constexpr OptionEntry kJpegOptions[] = {{.name = "quality",
                                                .help = "how close to the page it stays; 100 is closest",
                                                .least = 1,
                                                .most = 100,
                                                .standard = "90"}};

struct JpegMarker {
  int kind;
  std::vector<uint8_t> bytes;
};

// `bytesOf` gives what follows an intro in the first marker of a kind that begins with it.
template <class BytesOf>
void TakeJpegMarkers(BytesOf bytesOf, Metadata* metadata) {
  const auto set = [&](const char* name, std::span<const uint8_t> bytes) {
    if (!bytes.empty()) metadata->Set(name, bytes);
  };
  set("xmp", bytesOf(kJpegExif, kXmpIntro));
  set("photoshop", bytesOf(kJpegPhotoshop, kPhotoshopIntro));
  TakeExif(bytesOf(kJpegExif, kExifIntro), metadata);
  set("comment", bytesOf(kJpegComment, ""));
}

// Those of a page that is written, but for its profile. Throws PageError where one is too long.
std::vector<JpegMarker> JpegMarkersFor(const Metadata& metadata, Resolution resolution);

// Throws PageError for pages that are too large.
void CheckJpegSize(const PageView& page);

}  // namespace rastrel::formats

#endif
