#include "bench/drawing/painter.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace rastrel::drawing {
namespace {

constexpr const char* kFaces[] = {
    "/usr/share/fonts/truetype/liberation/LiberationSerif-Regular.ttf",
    "/usr/share/fonts/truetype/liberation/LiberationSans-Regular.ttf",
    "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf",
    "/usr/share/fonts/truetype/liberation/LiberationMono-Regular.ttf",
    "/usr/share/fonts/truetype/liberation/LiberationSerif-Italic.ttf",
    "/usr/share/fonts/truetype/dejavu/DejaVuSans-Bold.ttf",
};

FT_Pos ToFixed(double pixels) { return static_cast<FT_Pos>(std::lround(pixels * 64)); }

}  // namespace

const std::span<const char* const> kPrintFaces = kFaces;

Fonts::Fonts(std::span<const char* const> files) {
  if (FT_Init_FreeType(&library_) != 0) std::exit(2);
  for (const char* file : files) {
    FT_Face face = nullptr;
    if (FT_New_Face(library_, file, 0, &face) != 0) {
      std::fprintf(stderr, "%s is missing\n", file);
      std::exit(2);
    }
    faces_.push_back(face);
  }
}

Fonts::~Fonts() { FT_Done_FreeType(library_); }

Painter::Painter(const Fonts& fonts, double widthMm, double heightMm, int dpi, double degrees,
                 const Margins& margins)
    : fonts_(fonts),
      widthMm_(widthMm),
      heightMm_(heightMm),
      margins_(margins),
      scale_(dpi / 25.4),
      cosine_(std::cos(degrees * 3.14159265358979323846 / 180)),
      sine_(std::sin(degrees * 3.14159265358979323846 / 180)),
      dpi_(dpi),
      width_(static_cast<int>((margins.left + widthMm + margins.right) * scale_)),
      height_(static_cast<int>((margins.top + heightMm + margins.bottom) * scale_)),
      dark_(static_cast<size_t>(width_) * static_cast<size_t>(height_)),
      isPicture_(dark_.size()) {}

Point Painter::ToPixels(double x, double y) const {
  if (isMirrored_) x = widthMm_ - x;
  const double u = (x + margins_.left) * scale_ - width_ / 2.0;
  const double v = (y + margins_.top) * scale_ - height_ / 2.0;
  return {width_ / 2.0 + u * cosine_ + v * sine_, height_ / 2.0 - u * sine_ + v * cosine_};
}

Point Painter::ToSheet(double px, double py) const {
  const double u = px - width_ / 2.0, v = py - height_ / 2.0;
  const double x = (width_ / 2.0 + u * cosine_ - v * sine_) / scale_ - margins_.left;
  const double y = (height_ / 2.0 + u * sine_ + v * cosine_) / scale_ - margins_.top;
  return {isMirrored_ ? widthMm_ - x : x, y};
}

// The outline is in 1/64 pixel, y upward from the bottom of the page. What is covered twice adds up.
void Painter::Cover(FT_Outline* outline) {
  FT_Raster_Params params = {};
  params.flags = FT_RASTER_FLAG_AA | FT_RASTER_FLAG_DIRECT | FT_RASTER_FLAG_CLIP;
  params.clip_box = {0, 0, width_, height_};
  params.user = this;
  params.gray_spans = [](int y, int count, const FT_Span* spans, void* user) {
    auto* const painter = static_cast<Painter*>(user);
    for (int i = 0; i < count; ++i) {
      uint8_t* cell = &painter->At(spans[i].x, painter->height_ - 1 - y);
      for (int k = 0; k < spans[i].len; ++k)
        cell[k] = static_cast<uint8_t>(std::min(255, cell[k] + spans[i].coverage));
    }
  };
  FT_Outline_Render(fonts_.library(), outline, &params);
}

void Painter::SetSize(FT_Face face, double points) const {
  FT_Set_Char_Size(face, 0, ToFixed(points), static_cast<FT_UInt>(dpi_), static_cast<FT_UInt>(dpi_));
}

// The glyph that the face has loaded, with its origin at (x, y).
void Painter::CoverGlyph(FT_Face face, double x, double y) {
  const auto toFixed = [](double value) { return static_cast<FT_Fixed>(std::lround(value * 65536)); };
  const double side = isMirrored_ ? -1 : 1;
  const FT_Matrix turn = {toFixed(side * cosine_), toFixed(-sine_), toFixed(side * sine_), toFixed(cosine_)};
  const Point origin = ToPixels(x, y);
  FT_Outline_Transform(&face->glyph->outline, &turn);
  FT_Outline_Translate(&face->glyph->outline, ToFixed(origin.x), ToFixed(height_ - origin.y));
  Cover(&face->glyph->outline);
}

double Painter::Text(double x, double y, const std::string& text, int font, double points, bool isDrawn) {
  FT_Face face = fonts_.Face(font);
  SetSize(face, points);
  for (const char letter : text) {
    FT_Load_Char(face, static_cast<unsigned char>(letter), FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP);
    if (isDrawn) CoverGlyph(face, x, y);
    x += static_cast<double>(face->glyph->linearHoriAdvance) / 65536 / scale_;
  }
  return x;
}

void Painter::Glyph(double x, double y, unsigned glyph, int font, double points) {
  FT_Face face = fonts_.Face(font);
  SetSize(face, points);
  FT_Load_Glyph(face, glyph, FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP);
  CoverGlyph(face, x, y);
}

void Painter::Polygon(const std::vector<Point>& corners) {
  std::vector<FT_Vector> points;
  for (const Point& corner : corners) {
    const Point p = ToPixels(corner.x, corner.y);
    points.push_back({ToFixed(p.x), ToFixed(height_ - p.y)});
  }
  std::vector<char> tags(points.size(), FT_CURVE_TAG_ON);
  auto last = static_cast<short>(points.size() - 1);
  FT_Outline outline = {};
  outline.n_contours = 1;
  outline.n_points = static_cast<short>(points.size());
  outline.points = points.data();
  outline.tags = tags.data();
  outline.contours = &last;
  Cover(&outline);
}

// In pieces that abut: FreeType drops parts of shapes that are very long and thin.
void Painter::Rule(double x0, double y0, double x1, double y1, double thickness) {
  constexpr double kPieceMm = 4;
  const double length = std::hypot(x1 - x0, y1 - y0);
  const double nx = (y1 - y0) / length * thickness / 2, ny = (x0 - x1) / length * thickness / 2;
  const int pieces = 1 + static_cast<int>(length / kPieceMm);
  const auto at = [&](int i, int side) {
    const double part = static_cast<double>(i) / pieces;
    return Point{x0 + (x1 - x0) * part + side * nx, y0 + (y1 - y0) * part + side * ny};
  };
  for (int i = 0; i < pieces; ++i) Polygon({at(i, 1), at(i + 1, 1), at(i + 1, -1), at(i, -1)});
}

void Painter::Disc(double x, double y, double radius) {
  std::vector<Point> corners;
  for (int i = 0; i < 24; ++i)
    corners.push_back(
        {x + radius * std::cos(i * 0.2617993877991494), y + radius * std::sin(i * 0.2617993877991494)});
  Polygon(corners);
}

void Painter::Picture(double x, double y, double width, double height, Random& random) {
  struct Wave {
    double x, y, phase, depth;
  };
  std::vector<Wave> waves;
  for (int i = 0; i < 6; ++i)
    waves.push_back({random.In(-0.3, 0.3), random.In(-0.3, 0.3), random.In(0, 6.28), random.In(8, 26)});
  std::vector<std::pair<Wave, int>> edges;
  for (int i = random.Below(5); i > 0; --i)
    edges.push_back({{random.In(-1, 1), random.In(-1, 1), random.In(-20, 20), 0}, random.Below(90) - 45});
  for (int py = 0; py < height_; ++py) {
    for (int px = 0; px < width_; ++px) {
      const Point p = ToSheet(px + 0.5, py + 0.5);
      const double u = p.x - x, v = p.y - y;
      if (u < 0 || v < 0 || u >= width || v >= height) continue;
      double tone = 120;
      for (const Wave& wave : waves) tone += wave.depth * std::sin(wave.x * u + wave.y * v + wave.phase);
      for (const auto& [edge, step] : edges)
        tone += edge.x * (u - width / 2) + edge.y * (v - height / 2) > edge.phase ? step : 0;
      tone += static_cast<double>(random.Next() % 16) - 8;
      At(px, py) = static_cast<uint8_t>(std::clamp(tone, 0.0, 255.0));
      isPicture_[static_cast<size_t>(py) * static_cast<size_t>(width_) + px] = 1;
    }
  }
}

void Painter::Blacken(int left, int top, int right, int bottom) {
  for (int y = std::max(0, top); y < std::min(bottom, height_); ++y)
    for (int x = std::max(0, left); x < std::min(right, width_); ++x) At(x, y) = 255;
}

void Painter::BlackenAroundSheet() {
  for (int y = 0; y < height_; ++y) {
    for (int x = 0; x < width_; ++x) {
      const Point p = ToSheet(x, y);
      if (p.x < 0 || p.y < 0 || p.x > widthMm_ || p.y > heightMm_) At(x, y) = 240;
    }
  }
}

void Painter::Speckle(Random& random, double share, int largest) {
  for (auto n = static_cast<int64_t>(share * static_cast<double>(dark_.size())); n > 0; --n) {
    const int x = random.Below(width_), y = random.Below(height_), size = 1 + random.Below(largest);
    const auto value = static_cast<uint8_t>(At(x, y) < 128 ? 255 : 0);
    for (int i = y; i < std::min(height_, y + size); ++i)
      for (int k = x; k < std::min(width_, x + size); ++k) At(k, i) = value;
  }
}

void Painter::Unsteady(Random& random, int depth) {
  for (uint8_t& value : dark_) {
    const int grain = random.Below(depth) + random.Below(depth) - depth;
    value = static_cast<uint8_t>(std::clamp(value + grain, 0, 255));
  }
}

void Painter::Fade(int ground, int ink) {
  ground_ = ground;
  ink_ = ink;
}

void Painter::Negate() {
  for (uint8_t& value : dark_) value = static_cast<uint8_t>(255 - value);
}

testing::TestDib Painter::Page(int bits, Screen screen) const {
  BITMAPINFOHEADER header = testing::MakeHeader(bits, width_, height_);
  header.biXPelsPerMeter = header.biYPelsPerMeter = static_cast<int32_t>(std::lround(dpi_ / 0.0254));
  testing::TestDib page(header);
  auto* block = static_cast<uint8_t*>(GlobalLock(page.handle()));
  const size_t stride = page.pixelBytes() / static_cast<size_t>(height_);
  constexpr int kDots[4][4] = {{0, 8, 2, 10}, {12, 4, 14, 6}, {3, 11, 1, 9}, {15, 7, 13, 5}};
  std::vector<int> errors(static_cast<size_t>(width_) + 2);
  for (int y = 0; y < height_; ++y) {
    uint8_t* row = block + 40 + 4 * header.biClrUsed + stride * static_cast<size_t>(height_ - 1 - y);
    const size_t first = static_cast<size_t>(y) * static_cast<size_t>(width_);
    int carried = 0;
    for (int x = 0; x < width_; ++x) {
      const int dark = dark_[first + x];
      const int light = ground_ + (ink_ - ground_) * dark / 255;
      if (bits == 8) row[x] = static_cast<uint8_t>(light);
      if (bits == 24) {
        row[3 * x] = static_cast<uint8_t>(light * 9 / 10);
        row[3 * x + 1] = row[3 * x + 2] = static_cast<uint8_t>(light);
      }
      if (bits != 1) continue;
      bool isLight = dark < 100;
      if (isPicture_[first + x] != 0 && screen == Screen::kOrdered)
        isLight = dark < kDots[y % 4][x % 4] * 16 + 8;
      if (isPicture_[first + x] != 0 && screen == Screen::kLines) {
        const double u = (x + y) * 0.7071, v = (x - y) * 0.7071, turn = 85.0 / dpi_ * 6.2832;
        isLight = dark < 128 + 60 * (std::cos(u * turn) + std::cos(v * turn));
      }
      if (isPicture_[first + x] != 0 && screen == Screen::kDiffused) {
        const int wanted = dark + carried + errors[static_cast<size_t>(x)];
        isLight = wanted < 128;
        const int rest = wanted - (isLight ? 0 : 255);
        carried = rest / 2;
        errors[static_cast<size_t>(x)] = rest - carried;
      }
      if (isLight) row[x / 8] = static_cast<uint8_t>(row[x / 8] | 0x80 >> x % 8);
    }
  }
  GlobalUnlock(page.handle());
  return page;
}

}  // namespace rastrel::drawing
