#include "formats/format.h"

namespace rastrel::formats {

// Those that need no library: the others' cannot be had here.
std::span<const Format* const> Formats() {
  static constexpr const Format* kFormats[] = {&kBmp, &kPbm, &kPgm, &kPpm, &kPam};
  return kFormats;
}

}  // namespace rastrel::formats
