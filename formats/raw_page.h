// A page with the samples that its file has, and the moves of it.
#ifndef RASTREL_FORMATS_RAW_PAGE_H
#define RASTREL_FORMATS_RAW_PAGE_H

#include <cstdint>
#include <span>
#include <vector>

#include "pages/page.h"

namespace rastrel::formats {

using namespace pages;

// Of light, as TIFF tells it; 0 where that is not told.
struct WhitePoint {
  float x = 0, y = 0;
  bool isKnown() const { return x > 0 && y > 0 && x + y <= 1; }
};

// What colours, numbers and further samples are, as TIFF numbers them, which knows all kinds.
enum : uint16_t { kWhiteIsZero, kBlackIsZero, kRedGreenBlue, kIndexed, kInks = 5, kCieLab = 8, kIccLab };
enum : uint16_t { kUnsignedNumber = 1, kSignedNumber, kFloatNumber };
enum : uint16_t { kMultipliedAlpha = 1, kPlainAlpha };

// Samples take whole bytes of this machine's order, a pixel's one after the other, rows from the top.
struct Raw {
  int32_t width = 0, height = 0;
  int bits = 8;     // of a sample in its file
  int samples = 1;  // of a pixel
  Resolution resolution;
  uint16_t photometric = kBlackIsZero, sampleFormat = kUnsignedNumber;
  std::vector<uint16_t> extras;   // what the last samples of a pixel are
  std::vector<uint16_t> colours;  // of a palette: reds, greens, blues
  WhitePoint white;               // of L*a*b*
  std::vector<uint8_t> bytes;

  size_t sampleBytes() const { return bits <= 8 ? 1 : bits <= 16 ? 2 : bits <= 32 ? 4 : 8; }
  size_t rowSamples() const { return static_cast<size_t>(width) * static_cast<size_t>(samples); }
  size_t rowBytes() const { return rowSamples() * sampleBytes(); }
  uint8_t* Row(int32_t y) { return bytes.data() + static_cast<size_t>(y) * rowBytes(); }
  const uint8_t* Row(int32_t y) const { return bytes.data() + static_cast<size_t>(y) * rowBytes(); }
};

// The page but for its pixels, with room for those of another size.
Raw RawLike(const Raw& page, int32_t width, int32_t height);

Raw Flipped(const Raw& page, bool isVertical);
// By quarters counter-clockwise.
Raw Turned(const Raw& page, int quarters);
// A width or height of 0 goes up to the edge. Throws PageError where the rectangle is not on the page.
Raw Cropped(const Raw& page, int left, int top, int width, int height);
// Undoes an orientation as TIFF and EXIF number it.
Raw Upright(Raw page, int orientation);

// Whether the first sample behind the colours tells how much of the pixel there is.
bool HasAlpha(const Raw& page);
// The depth of what Reduced gives, for which the page's fields are enough.
int ReducedBits(const Raw& page);
void SetPalette(const Raw& page, std::span<RGBQUAD> table);
// A page of 1, 8 or 24 bits; alpha goes over white, inks by `profile` where it is one for inks.
Dib Reduced(const Raw& page, std::span<const uint8_t> profile);

}  // namespace rastrel::formats

#endif
