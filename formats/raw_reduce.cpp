// Raw pages as pages of 1, 8 or 24 bits.
#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>

#include "formats/colour_profile.h"
#include "formats/format.h"
#include "formats/raw_page.h"

namespace rastrel::formats {
namespace {

float HalfToFloat(uint16_t half) {
  const int exponent = half >> 10 & 31;
  const float fraction = static_cast<float>(half & 0x3FF) / 1024;
  const float size = exponent == 0 ? std::ldexp(fraction, -14) : std::ldexp(1 + fraction, exponent - 15);
  return (half & 0x8000) != 0 ? -size : size;
}

double FloatAt(const Raw& page, const uint8_t* at) {
  if (page.bits == 64) {
    double value;
    std::memcpy(&value, at, sizeof(value));
    return value;
  }
  if (page.bits == 32) {
    float value;
    std::memcpy(&value, at, sizeof(value));
    return value;
  }
  uint16_t half;
  std::memcpy(&half, at, sizeof(half));
  return HalfToFloat(half);
}

// Floating-point numbers reach from 0 to 1, or, where one is larger, to the end of 8 or 16 bits.
double WhiteOf(const Raw& page) {
  double most = 0;
  const size_t bytes = page.sampleBytes();
  for (size_t at = 0; at < page.bytes.size(); at += bytes) {
    const double value = FloatAt(page, &page.bytes[at]);
    if (value > most && std::isfinite(value)) most = value;
  }
  return most <= 1 ? 1 : most <= 255 ? 255 : 65535;
}

// Brings samples to 8 bits.
class Reducer {
 public:
  explicit Reducer(const Raw& page) : page_(page) {
    if (page.sampleFormat == kFloatNumber) {
      white_ = WhiteOf(page);
    } else {
      most_ = page.bits == 32 ? UINT32_MAX : (1u << page.bits) - 1;
      sign_ = page.sampleFormat == kSignedNumber ? 1u << (page.bits - 1) : 0;
    }
  }
  uint8_t Of(const uint8_t* sample) const {
    if (page_.sampleFormat == kFloatNumber) {
      const double share = FloatAt(page_, sample) / white_;
      return share > 0 ? static_cast<uint8_t>(std::floor(std::min(share, 1.0) * 255 + 0.5)) : uint8_t{0};
    }
    const uint64_t value = (Word(sample) ^ sign_) & most_;
    return static_cast<uint8_t>((value * 255 + most_ / 2) / most_);
  }
  uint32_t Word(const uint8_t* sample) const {
    if (page_.bits <= 8) return *sample;
    if (page_.bits > 16) {
      uint32_t value;
      std::memcpy(&value, sample, sizeof(value));
      return value;
    }
    uint16_t value;
    std::memcpy(&value, sample, sizeof(value));
    return value;
  }

 private:
  const Raw& page_;
  double white_ = 1;
  uint32_t most_ = 255, sign_ = 0;
};

uint8_t Over(uint8_t value, uint8_t alpha, bool isMultiplied) {
  if (isMultiplied) return static_cast<uint8_t>(std::min(255u, value + 255u - alpha));
  return OverWhite(value, alpha);
}

int ColourSamples(const Raw& page) {
  switch (page.photometric) {
    case kRedGreenBlue:
    case kCieLab:
    case kIccLab:
      return 3;
    case kInks:
      return 4;
    default:
      return 1;
  }
}

}  // namespace

bool HasAlpha(const Raw& page) {
  return !page.extras.empty() && (page.extras[0] == kMultipliedAlpha || page.extras[0] == kPlainAlpha);
}

int ReducedBits(const Raw& page) {
  switch (page.photometric) {
    case kWhiteIsZero:
    case kBlackIsZero:
      return page.bits == 1 && page.samples == 1 ? 1 : 8;
    case kIndexed:
      return 8;
    default:
      return 24;
  }
}

void SetPalette(const Raw& page, std::span<RGBQUAD> table) {
  const size_t colours = std::min(page.colours.size() / 3, table.size());
  // Some writers store bytes where 16 bits are due.
  const bool isWide =
      std::any_of(page.colours.begin(), page.colours.end(), [](uint16_t value) { return value > 255; });
  const auto byte = [&](size_t i) {
    return static_cast<uint8_t>(isWide ? (page.colours[i] * 255u + 32767) / 65535 : page.colours[i]);
  };
  for (RGBQUAD& entry : table) entry = {255, 255, 255, 0};
  for (size_t i = 0; i < colours; ++i) {
    table[i] = {byte(2 * page.colours.size() / 3 + i), byte(page.colours.size() / 3 + i), byte(i), 0};
  }
}

Dib Reduced(const Raw& page, std::span<const uint8_t> profile) {
  const int colours = ColourSamples(page), bits = ReducedBits(page);
  if (page.samples < colours || page.bytes.size() < page.rowBytes() * static_cast<size_t>(page.height)) {
    throw PageError("cannot be read: it has too few samples a pixel", ErrUnsupported);
  }
  Dib result = MakePage(page.width, page.height, bits, page.resolution);
  const PageView view(result);
  const Reducer reducer(page);
  const bool isLab = page.photometric == kCieLab || page.photometric == kIccLab;
  const bool hasAlpha = HasAlpha(page) && page.samples > colours && page.photometric != kIndexed;
  const bool isMultiplied = hasAlpha && page.extras[0] == kMultipliedAlpha;
  const size_t bytes = page.sampleBytes(), pixelBytes = bytes * static_cast<size_t>(page.samples);
  if (page.photometric == kIndexed) SetPalette(page, view.palette());
  const std::unique_ptr<ToRgb> toRgb = bits == 24 && page.photometric != kRedGreenBlue
                                           ? isLab ? NewLabToRgb(page.white) : NewInkToRgb(profile)
                                           : nullptr;
  std::vector<uint8_t> mixed(static_cast<size_t>(page.width) * static_cast<size_t>(colours));
  for (int32_t y = 0; y < page.height; ++y) {
    const uint8_t* in = page.Row(y);
    uint8_t* out = view.PageRow(y);
    std::memset(out, 0, view.stride());
    for (int32_t x = 0; x < page.width; ++x, in += pixelBytes) {
      const auto at = static_cast<size_t>(x);
      uint8_t values[4] = {};
      for (int i = 0; i < colours; ++i) {
        const uint8_t* sample = in + static_cast<size_t>(i) * bytes;
        values[i] = page.photometric == kIndexed ? *sample : reducer.Of(sample);
        // The two colour axes of CIE L*a*b* have a sign, those of ICC an offset.
        if (page.photometric == kCieLab && i > 0 && page.sampleFormat != kSignedNumber) values[i] ^= 0x80;
      }
      if (page.photometric == kWhiteIsZero) values[0] = static_cast<uint8_t>(255 - values[0]);
      if (hasAlpha && !toRgb) {
        const uint8_t alpha = reducer.Of(in + static_cast<size_t>(colours) * bytes);
        for (int i = 0; i < colours; ++i) values[i] = Over(values[i], alpha, isMultiplied);
      }
      if (toRgb) {
        std::memcpy(&mixed[at * static_cast<size_t>(colours)], values, static_cast<size_t>(colours));
      } else if (bits == 24) {
        out[3 * at] = values[2];
        out[3 * at + 1] = values[1];
        out[3 * at + 2] = values[0];
      } else if (bits == 8) {
        out[at] = values[0];
      } else if (values[0] != 0) {
        out[at / 8] = static_cast<uint8_t>(out[at / 8] | 0x80 >> at % 8);
      }
    }
    if (toRgb) toRgb->Convert(mixed.data(), static_cast<size_t>(page.width), out);
  }
  UseGreyRamp(view);
  return result;
}

}  // namespace rastrel::formats
