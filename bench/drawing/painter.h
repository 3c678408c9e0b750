// Paints pages of print that are turned by a known angle: everything is drawn at that angle, each pixel by
// how much of it is covered, so that the angle is exact.
#ifndef RASTREL_BENCH_DRAWING_PAINTER_H
#define RASTREL_BENCH_DRAWING_PAINTER_H

#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_OUTLINE_H

#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/test_dib.h"

namespace rastrel::drawing {

class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed * 0x9E3779B97F4A7C15u + 1) {}
  uint32_t Next() {
    state_ = state_ * 6364136223846793005u + 1442695040888963407u;
    auto x = static_cast<uint32_t>((state_ ^ state_ >> 22) >> 29);
    return x ^ x >> 15;
  }
  int Below(int bound) { return static_cast<int>(uint64_t{Next()} * static_cast<unsigned>(bound) >> 32); }
  double In(double from, double to) { return from + (to - from) * Next() / 4294967296.0; }
  bool Chance(double p) { return In(0, 1) < p; }

 private:
  uint64_t state_;
};

struct Point {
  double x, y;
};

// Serif, sans serif, a second sans serif, typewriter, italic, bold.
extern const std::span<const char* const> kPrintFaces;

// The typefaces, loaded once.
class Fonts {
 public:
  explicit Fonts(std::span<const char* const> files = kPrintFaces);
  ~Fonts();
  FT_Library library() const { return library_; }
  FT_Face Face(int index) const { return faces_[static_cast<size_t>(index) % faces_.size()]; }
  int count() const { return static_cast<int>(faces_.size()); }

 private:
  FT_Library library_ = nullptr;
  std::vector<FT_Face> faces_;
};

enum class Screen { kOrdered, kDiffused, kLines };  // how pictures become black and white

// How far the image reaches beyond the sheet on each side, in millimetres; less than 0 where it cuts the
// sheet.
struct Margins {
  double left = 0, top = 0, right = 0, bottom = 0;
};

// A sheet measured in millimetres, y downward, turned counter-clockwise about the middle of the image.
class Painter {
 public:
  Painter(const Fonts& fonts, double widthMm, double heightMm, int dpi, double degrees,
          const Margins& margins = {});

  int width() const { return width_; }
  int height() const { return height_; }
  double widthMm() const { return widthMm_; }
  double heightMm() const { return heightMm_; }
  int dpi() const { return dpi_; }
  const Fonts& fonts() const { return fonts_; }
  // What is drawn from now on is seen from behind the sheet.
  void Mirror() { isMirrored_ = true; }

  Point ToPixels(double x, double y) const;
  Point ToSheet(double px, double py) const;
  // A byte a pixel, row by row: how dark it is, 255 is ink; whether it belongs to a picture.
  const std::vector<uint8_t>& dark() const { return dark_; }
  const std::vector<uint8_t>& isPicture() const { return isPicture_; }

  // Text from `x` on, with its baseline at `y`. Returns where it ends; which is all when it is not drawn.
  double Text(double x, double y, const std::string& text, int font, double points, bool isDrawn = true);
  // One glyph of a face by its index, for text that was shaped elsewhere.
  void Glyph(double x, double y, unsigned glyph, int font, double points);
  void Polygon(const std::vector<Point>& corners);
  void Rule(double x0, double y0, double x1, double y1, double thickness);
  void Disc(double x, double y, double radius);
  // A picture of soft shapes, with a few hard edges, in a rectangle.
  void Picture(double x, double y, double width, double height, Random& random);

  // In pixels, not turned.
  void Blacken(int left, int top, int right, int bottom);
  void BlackenAroundSheet();
  void Speckle(Random& random, double share, int largest);
  void Unsteady(Random& random, int depth);  // adds grain
  void Fade(int ground, int ink);            // what white and black become
  void Negate();

  testing::TestDib Page(int bits, Screen screen) const;

 private:
  void SetSize(FT_Face face, double points) const;
  void CoverGlyph(FT_Face face, double x, double y);
  void Cover(FT_Outline* outline);
  uint8_t& At(int x, int y) { return dark_[static_cast<size_t>(y) * static_cast<size_t>(width_) + x]; }

  const Fonts& fonts_;
  double widthMm_, heightMm_;
  Margins margins_;
  double scale_, cosine_, sine_;
  int dpi_, width_, height_;
  int ground_ = 255, ink_ = 0;
  bool isMirrored_ = false;
  std::vector<uint8_t> dark_;       // 255 is ink
  std::vector<uint8_t> isPicture_;  // becomes black and white by a screen
};

}  // namespace rastrel::drawing

#endif
