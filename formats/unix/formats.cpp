#include "formats/format.h"

namespace rastrel::formats {

std::span<const Format* const> Formats() {
  static constexpr const Format* kFormats[] = {&kBmp, &kTiff, &kPng, &kJpeg, &kPdf,
                                               &kPbm, &kPgm,  &kPpm, &kPam};
  return kFormats;
}

}  // namespace rastrel::formats
