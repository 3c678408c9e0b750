// Colours by ICC profiles, through Little CMS.
#ifndef RASTREL_FORMATS_COLOUR_PROFILE_H
#define RASTREL_FORMATS_COLOUR_PROFILE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "formats/raw_page.h"

namespace rastrel::formats {

// Pixels of other colour spaces, 8 bits a sample, as blue, green and red of sRGB.
class ToRgb {
 public:
  virtual ~ToRgb() = default;
  virtual void Convert(const uint8_t* in, size_t pixels, uint8_t* out) = 0;
};
// By the profile where it is for inks; else these are mixed as if they were ideal. 0 is none of an ink.
std::unique_ptr<ToRgb> NewInkToRgb(std::span<const uint8_t> profile);
// Where a profile says nothing of use.
std::unique_ptr<ToRgb> NewIdealInkToRgb();
// L*a*b* with an offset of 128 for its colour axes, seen by this white; D50, as in ICC profiles, where it is
// not known.
std::unique_ptr<ToRgb> NewLabToRgb(const WhitePoint& white);

// Whether a profile is for inks.
bool IsInkProfile(std::span<const uint8_t> profile);

// The profile of grey pages whose greys look like those (red = green = blue) of pages with this RGB profile;
// empty where that cannot be told. No pixel has to change for it.
std::vector<uint8_t> GreyProfileFor(std::span<const uint8_t> rgbProfile);

}  // namespace rastrel::formats

#endif
