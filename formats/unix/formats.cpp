#include "formats/format.h"
#include "formats/general.h"

namespace rastrel::formats {

std::span<const Format* const> Formats() {
  static constexpr const Format* kFormats[] = {&kBmp, &kTiff, &kPng, &kJpeg, &kPdf,  &kPbm, &kPgm,
                                               &kPpm, &kPam,  &kJp2, &kWebp, &kHeif, &kJxl, &kGif};
  return kFormats;
}

}  // namespace rastrel::formats
