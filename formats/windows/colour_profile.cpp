// Colours where there is no library for profiles.
#include "formats/colour_profile.h"

namespace rastrel::formats {

std::unique_ptr<ToRgb> NewInkToRgb(std::span<const uint8_t> /*profile*/) { return NewIdealInkToRgb(); }

std::unique_ptr<ToRgb> NewLabToRgb(const WhitePoint& /*white*/) {
  throw PageError("cannot be read: L*a*b* needs a library that is not here", ErrUnsupported);
}

std::vector<uint8_t> GreyProfileFor(std::span<const uint8_t> /*rgbProfile*/) { return {}; }

}  // namespace rastrel::formats
