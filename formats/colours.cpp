// What becomes of colours without a library for them.
#include "formats/colour_profile.h"
#include "formats/format.h"

namespace rastrel::formats {
namespace {

class ByMixing : public ToRgb {
 public:
  void Convert(const uint8_t* in, size_t pixels, uint8_t* out) override {
    for (size_t i = 0; i < pixels; ++i, in += 4, out += 3) {
      const unsigned light = 255u - in[3];
      for (size_t c = 0; c < 3; ++c) out[2 - c] = static_cast<uint8_t>(((255u - in[c]) * light + 127) / 255);
    }
  }
};

}  // namespace

std::unique_ptr<ToRgb> NewIdealInkToRgb() { return std::make_unique<ByMixing>(); }

Metadata FittingProfile(const Metadata& metadata, const PageView& page) {
  Metadata fitting = metadata;
  const Metadata::Item* item = metadata.Find("icc");
  if (item == nullptr) return fitting;
  const bool isGrey = page.bits() <= 8 && HasGreyRamp(page);
  constexpr size_t kSpaceAt = 16, kSpaceBytes = 4, kHeaderBytes = 128;  // of an ICC profile
  if (item->bytes.size() >= kHeaderBytes) {
    const std::string_view space(reinterpret_cast<const char*>(&item->bytes[kSpaceAt]), kSpaceBytes);
    if (space == (isGrey ? "GRAY" : "RGB ")) return fitting;
  }
  fitting.Remove("icc");
  // Black and white need none.
  const bool hasGreys = isGrey && page.bits() > 1;
  const std::vector<uint8_t> grey = hasGreys ? GreyProfileFor(item->bytes) : std::vector<uint8_t>{};
  if (!grey.empty()) fitting.Set("icc", grey);
  return fitting;
}

}  // namespace rastrel::formats
