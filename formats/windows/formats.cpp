#include "formats/format.h"

namespace rastrel::formats {

// The libraries of the others cannot be had here.
std::span<const Format* const> Formats() {
  static constexpr const Format* kFormats[] = {&kBmp};
  return kFormats;
}

}  // namespace rastrel::formats
