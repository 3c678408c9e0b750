#include "formats/colour_profile.h"

#include <lcms2.h>

#include <algorithm>
#include <array>

#include "formats/format.h"

namespace rastrel::formats {
namespace {

struct ProfileCloser {
  void operator()(void* profile) const { cmsCloseProfile(profile); }
};
using Profile = std::unique_ptr<void, ProfileCloser>;
struct TransformDeleter {
  void operator()(void* transform) const { cmsDeleteTransform(transform); }
};
using Transform = std::unique_ptr<void, TransformDeleter>;

// Null for what is none, or for other colours.
Profile Opened(std::span<const uint8_t> bytes, cmsColorSpaceSignature space) {
  if (bytes.empty() || bytes.size() > UINT32_MAX) return nullptr;
  Profile profile(cmsOpenProfileFromMem(bytes.data(), static_cast<cmsUInt32Number>(bytes.size())));
  if (profile && cmsGetColorSpace(profile.get()) != space) profile.reset();
  return profile;
}

class ByProfile : public ToRgb {
 public:
  explicit ByProfile(Transform transform) : transform_(std::move(transform)) {}
  void Convert(const uint8_t* in, size_t pixels, uint8_t* out) override {
    cmsDoTransform(transform_.get(), in, out, static_cast<cmsUInt32Number>(pixels));
  }

 private:
  Transform transform_;
};

class ByWhite : public ToRgb {
 public:
  ByWhite(Transform fromXyz, const cmsCIEXYZ& white) : fromXyz_(std::move(fromXyz)), white_(white) {
    const cmsCIEXYZ axes[3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    for (size_t i = 0; i < 3; ++i) cmsAdaptToIlluminant(&adapted_[i], &white, cmsD50_XYZ(), &axes[i]);
  }
  void Convert(const uint8_t* in, size_t pixels, uint8_t* out) override {
    colours_.resize(pixels);
    const auto& [x, y, z] = adapted_;
    for (cmsCIEXYZ& colour : colours_) {
      const cmsCIELab lab = {in[0] * 100 / 255.0, in[1] - 128.0, in[2] - 128.0};
      cmsCIEXYZ seen;
      cmsLab2XYZ(&white_, &seen, &lab);
      colour = {x.X * seen.X + y.X * seen.Y + z.X * seen.Z, x.Y * seen.X + y.Y * seen.Y + z.Y * seen.Z,
                x.Z * seen.X + y.Z * seen.Y + z.Z * seen.Z};
      in += 3;
    }
    cmsDoTransform(fromXyz_.get(), colours_.data(), out, static_cast<cmsUInt32Number>(pixels));
  }

 private:
  Transform fromXyz_;
  cmsCIEXYZ white_;
  cmsCIEXYZ adapted_[3];  // what the axes of X, Y and Z become under D50
  std::vector<cmsCIEXYZ> colours_;
};

}  // namespace

std::unique_ptr<ToRgb> NewInkToRgb(std::span<const uint8_t> profile) {
  const Profile from = Opened(profile, cmsSigCmykData), to(cmsCreate_sRGBProfile());
  if (from && to) {
    Transform transform(cmsCreateTransform(from.get(), TYPE_CMYK_8, to.get(), TYPE_BGR_8,
                                           INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_BLACKPOINTCOMPENSATION));
    if (transform) return std::make_unique<ByProfile>(std::move(transform));
  }
  return NewIdealInkToRgb();
}

std::unique_ptr<ToRgb> NewLabToRgb(const WhitePoint& white) {
  const Profile from(cmsCreateXYZProfile()), to(cmsCreate_sRGBProfile());
  Transform transform(from && to ? cmsCreateTransform(from.get(), TYPE_XYZ_DBL, to.get(), TYPE_BGR_8,
                                                      INTENT_RELATIVE_COLORIMETRIC, 0)
                                 : nullptr);
  if (!transform) throw PageError("out of memory", ErrNoMemory);
  cmsCIEXYZ seen = *cmsD50_XYZ();
  if (white.isKnown()) {
    const cmsCIExyY chromaticity = {white.x, white.y, 1};
    cmsxyY2XYZ(&seen, &chromaticity);
  }
  return std::make_unique<ByWhite>(std::move(transform), seen);
}

bool IsInkProfile(std::span<const uint8_t> profile) { return Opened(profile, cmsSigCmykData) != nullptr; }

std::vector<uint8_t> GreyProfileFor(std::span<const uint8_t> rgbProfile) {
  const Profile from = Opened(rgbProfile, cmsSigRgbData);
  const Profile to(cmsCreateXYZProfile());
  if (!from || !to) return {};
  const Transform transform(
      cmsCreateTransform(from.get(), TYPE_RGB_16, to.get(), TYPE_XYZ_DBL, INTENT_RELATIVE_COLORIMETRIC, 0));
  if (!transform) return {};
  // How light each grey is, from 0 to 1 and never falling, as a curve must be.
  std::array<cmsUInt16Number, 256> lightness{};
  double most = 0;
  for (size_t i = 0; i < lightness.size(); ++i) {
    const auto grey = static_cast<cmsUInt16Number>(i * 257);
    const cmsUInt16Number rgb[3] = {grey, grey, grey};
    cmsCIEXYZ colour = {};
    cmsDoTransform(transform.get(), rgb, &colour, 1);
    most = std::max(most, std::clamp(colour.Y, 0.0, 1.0));
    lightness[i] = static_cast<cmsUInt16Number>(most * 65535 + 0.5);
  }
  cmsToneCurve* curve = cmsBuildTabulatedToneCurve16(nullptr, lightness.size(), lightness.data());
  if (curve == nullptr) return {};
  const Profile grey(cmsCreateGrayProfile(cmsD50_xyY(), curve));
  cmsFreeToneCurve(curve);
  cmsUInt32Number size = 0;
  if (!grey || cmsSaveProfileToMem(grey.get(), nullptr, &size) == 0) return {};
  std::vector<uint8_t> bytes(size);
  if (cmsSaveProfileToMem(grey.get(), bytes.data(), &size) == 0) return {};
  // The day on which it was made would make every file another.
  constexpr size_t kDateAt = 24, kDateBytes = 12, kIdAt = 84, kIdBytes = 16;
  std::fill_n(bytes.begin() + kDateAt, kDateBytes, uint8_t{0});
  std::fill_n(bytes.begin() + kIdAt, kIdBytes, uint8_t{0});
  return bytes;
}

}  // namespace rastrel::formats
