#include "formats/format.h"

namespace rastrel::formats {

// Those that need no library, and those that the system has a codec for.
std::span<const Format* const> Formats() {
  static constexpr const Format* kFormats[] = {&kBmp, &kTiff, &kPng, &kJpeg, &kPbm, &kPgm, &kPpm, &kPam};
  return kFormats;
}

}  // namespace rastrel::formats
