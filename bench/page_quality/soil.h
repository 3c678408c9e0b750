// What happens to a sheet between the press and the file: light, paper, what shows through, what lies around
// it, holes, dirt, and the scanner. With the truth about every pixel.
#ifndef RASTREL_BENCH_PAGE_QUALITY_SOIL_H
#define RASTREL_BENCH_PAGE_QUALITY_SOIL_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "bench/page_quality/contents.h"

namespace rastrel::quality {

// Reflectance, 0 to 255.
struct Colour {
  double red, green, blue;
};

enum Side { kLeft, kTop, kRight, kBottom };

// Along the edge, by the middle of the side unless said otherwise.
enum class Holes {
  kNone,
  kTwo,       // 80 mm apart, the binder of most of the world
  kFour,      // three times 80 mm
  kThree,     // 108 mm apart, the binder of North America
  kSwedish,   // 21, 70, 21 mm
  kTopTwo,    // 70 mm apart
  kSixRings,  // a pocket diary's, in two groups
  kOne,       // for a tag
  kSpiral,    // round, 8.5 mm apart, along the whole side
  kWire,      // square, 8.5 mm apart
  kComb,      // oblong, 14.3 mm apart
};

enum class HoleLook {
  kDark,
  kGrey,
  kWhite,    // what lies behind is white; the rim casts a shadow
  kSoiled,   // worn, with an uneven outline
  kFlecked,  // light specks in the dark
  kCut,      // the edge of the image goes through
};

struct Soil {
  int bits = 8;
  Colour paper = {250, 250, 250}, ink = {25, 25, 25};
  double inkStrength = 1;
  double gradient = 0, vignette = 0;  // share of the light that is lost at the far side, in the corners
  double gutter = 0;                  // and at the left side, along `gutterMm`
  double gutterMm = 14;
  double blotches = 0;  // unevenness of the paper, in greys
  double grain = 1.5;   // of the paper, likewise
  double bleed = 0;     // share of the ink on the back that shows

  drawing::Margins around = {};  // what of the image lies beyond the sheet, in mm
  Colour surround = {22, 22, 22};
  double surroundGrain = 4;
  double flecksPerSquareCm = 0;
  double raggedMm = 0;
  double edgeShadowMm = 0;
  double neighbourMm = 0;  // of the next page, at the right, as part of `around`

  Holes holes = Holes::kNone;
  HoleLook holeLook = HoleLook::kDark;
  Side holeSide = kLeft;

  double specksPerSquareCm = 0;
  double largeSpecks = 0;  // share of them that are larger than 3 x 3 at 300 dpi
  double barsMm = 0;       // black bars of the scanner's at the top and bottom
  double blurPixels = 0;
  double noise = 0;  // of the sensor, in greys
  int jpegQuality = 0;
  double curlMm = 0;    // how far lines sink at the left edge
  double keystone = 0;  // how much the slope of lines changes from top to bottom, in degrees
  bool isNegative = false;
  bool isScreened = false;  // pictures are printed as dots
};

// What a pixel is, as bits of the truth.
enum Truth : uint8_t {
  kInk = 1,
  kPicture = 2,
  kOutside = 4,
  kHole = 8,
  kSpeck = 16,
  kDecoy = 32,
  kLargeSpeck = 64,
};

struct Hole {
  double x, y, diameter;  // in pixels
  Side side;
};

struct Page {
  int width, height, dpi, bits, jpegQuality;
  double degrees;
  std::vector<uint8_t> pixels;  // a byte a sample, rows from the top; red, green, blue at 24 bits
  std::vector<uint8_t> truth;   // Truth, a byte a pixel
  std::array<drawing::Point, 4> sheet;
  std::vector<Hole> holes;
  int specks = 0, largeSpecks = 0;
  std::vector<std::string> words;
};

Page DrawPage(const drawing::Fonts& fonts, const Content& content, const Soil& soil, double widthMm,
              double heightMm, int dpi, double degrees, uint64_t seed);

}  // namespace rastrel::quality

#endif
