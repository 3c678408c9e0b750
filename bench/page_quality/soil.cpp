#include "bench/page_quality/soil.h"

#include <algorithm>
#include <cmath>

namespace rastrel::quality {
namespace {

using drawing::Fonts;
using drawing::Margins;
using drawing::Point;

double Luma(const Colour& c) { return 0.299 * c.red + 0.587 * c.green + 0.114 * c.blue; }

// About normal, with a standard deviation of 1.
double Normal(Random& random) { return (random.In(-1, 1) + random.In(-1, 1) + random.In(-1, 1)); }

// Smooth unevenness in two dimensions: values on a grid, mixed between its points.
class Field {
 public:
  Field(Random& random, double pitchMm) : pitch_(pitchMm), values_(kSide * kSide) {
    for (double& value : values_) value = random.In(-1, 1);
  }
  double At(double x, double y) const {
    const double u = x / pitch_ + 1000, v = y / pitch_ + 1000;
    const int i = static_cast<int>(u), k = static_cast<int>(v);
    const double a = u - i, b = v - k;
    const auto value = [this](int column, int row) { return values_[row % kSide * kSide + column % kSide]; };
    return (value(i, k) * (1 - a) + value(i + 1, k) * a) * (1 - b) +
           (value(i, k + 1) * (1 - a) + value(i + 1, k + 1) * a) * b;
  }

 private:
  static constexpr int kSide = 64;
  double pitch_;
  std::vector<double> values_;
};

// A value between pixels; 0 outside.
double Sample(const std::vector<uint8_t>& plane, int width, int height, double x, double y) {
  const double fx = std::floor(x), fy = std::floor(y);
  const int i = static_cast<int>(fx), k = static_cast<int>(fy);
  if (i < 0 || k < 0 || i + 1 >= width || k + 1 >= height) return 0;
  const double a = x - fx, b = y - fy;
  const uint8_t* at = &plane[static_cast<size_t>(k) * static_cast<size_t>(width) + i];
  if (a == 0 && b == 0) return at[0];
  return (at[0] * (1 - a) + at[1] * a) * (1 - b) + (at[width] * (1 - a) + at[width + 1] * a) * b;
}

// Along the side, in mm from its start.
std::vector<double> PlacesOfHoles(Holes holes, double lengthMm) {
  const double middle = lengthMm / 2;
  const auto row = [&](double pitch) {
    std::vector<double> places;
    for (double at = 6; at < lengthMm - 5; at += pitch) places.push_back(at);
    return places;
  };
  switch (holes) {
    case Holes::kNone:
      return {};
    case Holes::kTwo:
      return {middle - 40, middle + 40};
    case Holes::kFour:
      return {middle - 120, middle - 40, middle + 40, middle + 120};
    case Holes::kThree:
      return {middle - 108, middle, middle + 108};
    case Holes::kSwedish:
      return {middle - 56, middle - 35, middle + 35, middle + 56};
    case Holes::kTopTwo:
      return {middle - 35, middle + 35};
    case Holes::kSixRings:
      return {middle - 57, middle - 38, middle - 19, middle + 19, middle + 38, middle + 57};
    case Holes::kOne:
      return {middle};
    case Holes::kSpiral:
    case Holes::kWire:
      return row(8.47);
    case Holes::kComb:
      return row(14.29);
  }
  return {};
}

class Composer {
 public:
  Composer(const Fonts& fonts, const Content& content, const Soil& soil, double widthMm, double heightMm,
           int dpi, double degrees, uint64_t seed)
      : soil_(soil),
        random_(seed),
        ink_(fonts, widthMm, heightMm, dpi, degrees, soil.around),
        decoys_(fonts, widthMm, heightMm, dpi, degrees, soil.around),
        holes_(fonts, widthMm, heightMm, dpi, degrees, soil.around),
        shadows_(fonts, widthMm, heightMm, dpi, degrees, soil.around),
        channels_(soil.bits == 24 ? 3 : 1),
        width_(ink_.width()),
        height_(ink_.height()),
        dotsPerMm_(dpi / 25.4) {
    page_ = {width_, height_, dpi, soil.bits, soil.jpegQuality, degrees, {}, {}, {}, {}, 0, 0, {}};
    page_.truth.assign(static_cast<size_t>(width_) * static_cast<size_t>(height_), 0);
    values_.assign(page_.truth.size() * static_cast<size_t>(channels_), 0);
    Typesetter set(ink_, random_, &page_.words);
    Drawing drawing = {set, ink_, decoys_, random_};
    content.draw(drawing);
    page_.sheet = {ink_.ToPixels(0, 0), ink_.ToPixels(widthMm, 0), ink_.ToPixels(widthMm, heightMm),
                   ink_.ToPixels(0, heightMm)};
    DrawHoles();
    if (soil.bleed > 0) DrawBack(fonts, widthMm, heightMm, dpi, degrees);
    if (soil.neighbourMm > 0) DrawNeighbour(fonts, widthMm, heightMm, dpi, degrees);
  }

  Page Compose() {
    PaintSheet();
    Blur();
    ScatterSpecks();
    Develop();
    return std::move(page_);
  }

 private:
  size_t Place(int x, int y) const { return static_cast<size_t>(y) * static_cast<size_t>(width_) + x; }

  // A hole as the polygon of its outline; the shadow of a rim lies on the side away from the lamp.
  void DrawHoles() {
    const bool isUpright = soil_.holeSide == kLeft || soil_.holeSide == kRight;
    const double length = isUpright ? ink_.heightMm() : ink_.widthMm();
    const double across = isUpright ? ink_.widthMm() : ink_.heightMm();
    const bool isRow =
        soil_.holes == Holes::kSpiral || soil_.holes == Holes::kWire || soil_.holes == Holes::kComb;
    double diameter = isRow ? 4.2 : soil_.holes == Holes::kThree ? 7.1 : random_.In(5.4, 6.2);
    double depth = isRow ? 5 : random_.In(9, 13);
    if (soil_.holeLook == HoleLook::kCut) depth = diameter * random_.In(-0.05, 0.35);
    for (const double place : PlacesOfHoles(soil_.holes, length)) {
      const double along = place + random_.In(-0.4, 0.4), inward = depth + random_.In(-0.3, 0.3);
      if (along < diameter || along > length - diameter) continue;
      const double from = soil_.holeSide == kLeft || soil_.holeSide == kTop ? inward : across - inward;
      const Point middle = isUpright ? Point{from, along} : Point{along, from};
      std::vector<Point> outline;
      double wear[4] = {};
      if (soil_.holeLook == HoleLook::kSoiled)
        for (double& share : wear) share = random_.In(-0.05, 0.05);
      for (int i = 0; i < 48; ++i) {
        const double turn = i * 0.1308996938995747;
        double rx = diameter / 2, ry = rx;
        if (soil_.holes == Holes::kComb) (isUpright ? rx : ry) = 1.5, (isUpright ? ry : rx) = 4;
        if (soil_.holes == Holes::kWire) {
          const double square = 1 / std::max(std::abs(std::cos(turn)), std::abs(std::sin(turn)));
          rx *= square * 0.9;
          ry *= square * 0.9;
        }
        const double worn = 1 + wear[0] * std::sin(2 * turn) + wear[1] * std::cos(3 * turn) +
                            wear[2] * std::sin(5 * turn) + wear[3] * std::cos(7 * turn);
        outline.push_back({middle.x + rx * worn * std::cos(turn), middle.y + ry * worn * std::sin(turn)});
      }
      holes_.Polygon(outline);
      if (soil_.holeLook == HoleLook::kWhite) {
        for (Point& corner : outline) corner = {corner.x - 0.35, corner.y - 0.35};
        shadows_.Polygon(outline);
      }
      const Point at = ink_.ToPixels(middle.x, middle.y);
      page_.holes.push_back({at.x, at.y, diameter * dotsPerMm_, soil_.holeSide});
    }
  }

  void DrawBack(const Fonts& fonts, double widthMm, double heightMm, int dpi, double degrees) {
    Painter back(fonts, widthMm, heightMm, dpi, degrees, soil_.around);
    back.Mirror();
    Random words(random_.Next());
    Typesetter set(back, words, nullptr);
    set.Column(17, widthMm - 21, 24, heightMm - 20, {kSerif, 11, 5.2});
    back_ = back.dark();
  }

  void DrawNeighbour(const Fonts& fonts, double widthMm, double heightMm, int dpi, double degrees) {
    Margins margins = soil_.around;
    margins.left += widthMm;
    margins.right -= widthMm;
    Painter next(fonts, widthMm, heightMm, dpi, degrees, margins);
    Random words(random_.Next());
    Typesetter set(next, words, nullptr);
    set.Column(12, widthMm - 20, 22, heightMm - 20, {kSerif, 10, 4.9});
    neighbour_ = next.dark();
  }

  // How far down the sheet, in mm, the line that is seen at (x, y) was printed.
  double Sunk(double x, double y) const {
    return -soil_.curlMm * std::exp(-x / 22) +
           soil_.keystone * 0.01745 * (x - ink_.widthMm() / 2) * (y / ink_.heightMm() - 0.5);
  }

  double Light(double x, double y) const {
    const double u = x / ink_.widthMm(), v = y / ink_.heightMm();
    const double r2 = ((u - 0.5) * (u - 0.5) + (v - 0.5) * (v - 0.5)) * 2;
    return (1 - soil_.gradient * std::clamp(0.8 * u + 0.2 * v, 0.0, 1.0)) * (1 - soil_.vignette * r2) *
           (1 - soil_.gutter * std::exp(-std::max(x, 0.0) / soil_.gutterMm));
  }

  // The back, spread by the paper's fibres: the mean of nine places 0.15 mm apart.
  double ShownThrough(int x, int y) const {
    const double step = 0.15 * dotsPerMm_;
    double sum = 0;
    for (const int dy : {-1, 0, 1})
      for (const int dx : {-1, 0, 1}) sum += Sample(back_, width_, height_, x + dx * step, y + dy * step);
    return sum / (9 * 255);
  }

  // How dark a picture is where it is printed as dots, 85 to the inch at 45 degrees.
  double Screened(double dark, double xMm, double yMm) const {
    const double turn = 85 / 25.4 * 6.2832, u = (xMm + yMm) * 0.7071, v = (xMm - yMm) * 0.7071;
    const double level = 128 + 60 * (std::cos(u * turn) + std::cos(v * turn));
    return std::clamp(128 + (dark - level) * 6, 0.0, 255.0);
  }

  void PaintSheet() {
    const Field blotches(random_, 11), fine(random_, 1.3), torn(random_, 3), tornFinely(random_, 0.5);
    const auto flecks = ScatterFlecks();
    const bool hasDecoys = std::any_of(decoys_.dark().begin(), decoys_.dark().end(), [](int d) { return d; });
    for (int y = 0; y < height_; ++y) {
      for (int x = 0; x < width_; ++x) {
        const Point p = ink_.ToSheet(x + 0.5, y + 0.5);
        const size_t at = Place(x, y);
        const double inward = Inward(p, torn, tornFinely);
        const double onSheet = std::clamp(inward * dotsPerMm_ + 0.5, 0.0, 1.0);
        Point from = {static_cast<double>(x), static_cast<double>(y)};
        if (soil_.curlMm != 0 || soil_.keystone != 0) {
          const Point printed = ink_.ToPixels(p.x, p.y + Sunk(p.x, p.y));
          from = {printed.x - 0.5, printed.y - 0.5};
        }
        double dark = Sample(ink_.dark(), width_, height_, from.x, from.y);
        const bool isPicture = ink_.isPicture()[at] != 0;
        if (isPicture && soil_.isScreened) dark = Screened(dark, p.x, p.y);
        const double decoy = hasDecoys ? Sample(decoys_.dark(), width_, height_, from.x, from.y) : 0;
        const double hole = holes_.dark()[at] / 255.0;
        const double shade = shadows_.dark()[at] / 255.0;

        double paper = soil_.blotches * (blotches.At(p.x, p.y) + 0.4 * fine.At(p.x, p.y));
        paper += soil_.grain * Normal(random_);
        const double light = Light(p.x, p.y);
        const double covered = std::max(dark, decoy) / 255 * soil_.inkStrength;
        const double shown = back_.empty() ? 0 : ShownThrough(x, y) * soil_.bleed;
        const double outer = (1 - onSheet) > 0 ? Normal(random_) * soil_.surroundGrain : 0;
        for (int c = 0; c < channels_; ++c) {
          double value = std::max(0.0, Of(soil_.paper, c) + paper);
          value += (Of(soil_.ink, c) - value) * shown;
          value += (Of(soil_.ink, c) - value) * covered;
          value *= light;
          if (hole > 0) value += (HoleValue(c, shade, x, y) - value) * hole;
          if (onSheet < 1) {
            double around = Around(c, p, at, outer);
            if (!flecks.empty() && flecks[at] != 0) around = flecks[at];
            value = value * onSheet + around * (1 - onSheet);
          }
          values_[at * static_cast<size_t>(channels_) + c] = static_cast<float>(value);
        }

        uint8_t truth = 0;
        if (onSheet < 0.5) {
          truth = kOutside;
        } else {
          if (dark >= 128 && !isPicture) truth |= kInk;
          if (decoy >= 128) truth |= kInk | kDecoy;
          if (isPicture) truth |= kPicture;
          if (hole >= 0.5) truth = kHole;
        }
        page_.truth[at] = truth;
      }
    }
  }

  // How far inside the sheet a place is, in mm.
  double Inward(const Point& p, const Field& torn, const Field& tornFinely) const {
    double left = p.x, top = p.y, right = ink_.widthMm() - p.x, bottom = ink_.heightMm() - p.y;
    if (soil_.raggedMm > 0) {
      const auto tear = [&](double along, double side) {
        return soil_.raggedMm * (torn.At(along, side) + 0.3 * tornFinely.At(along, side) + 0.3);
      };
      left -= tear(p.y, 10);
      right -= tear(p.y, 50);
      top -= tear(p.x, 90);
      bottom -= tear(p.x, 130);
    }
    // Where the sheet goes on beyond the image there is nothing to be outside of.
    const Margins& around = soil_.around;
    double inward = 1e9;
    if (around.left > 0 || page_.degrees != 0) inward = std::min(inward, left);
    if (around.top > 0 || page_.degrees != 0) inward = std::min(inward, top);
    if (around.right > 0 || page_.degrees != 0) inward = std::min(inward, right);
    if (around.bottom > 0 || page_.degrees != 0) inward = std::min(inward, bottom);
    if (!HasSurround()) return 1e9;
    return inward;
  }

  // Without one the scanner's lid is as light as the paper and the corners that a turn uncovers do not show.
  bool HasSurround() const {
    const Margins& a = soil_.around;
    return a.left > 0 || a.top > 0 || a.right > 0 || a.bottom > 0;
  }

  static double Of(const Colour& colour, int channel) {
    return channel == 0 ? colour.red : channel == 1 ? colour.green : colour.blue;
  }

  double HoleValue(int channel, double shade, int x, int y) {
    switch (soil_.holeLook) {
      case HoleLook::kGrey:
        return 105 + 3 * Normal(random_);
      case HoleLook::kWhite:
        return shade > 0.5 ? 253 : 120;
      case HoleLook::kFlecked: {
        const uint32_t place =
            (static_cast<uint32_t>(x / 2) * 2654435761u) ^ (static_cast<uint32_t>(y / 2) * 40503u * 65537u);
        return (place >> 8) % 100 == 0 ? 240 : 15;
      }
      default:
        return soil_.bits == 24 ? Of(soil_.surround, channel) * 0.8 : 18 + 3 * Normal(random_);
    }
  }

  double Around(int channel, const Point& p, size_t at, double grain) const {
    if (soil_.neighbourMm > 0 && p.x > ink_.widthMm() && p.y > 0 && p.y < ink_.heightMm()) {
      const double inside = p.x - ink_.widthMm();
      if (inside < soil_.neighbourMm) {
        // The fold casts its shadow on both pages.
        const double light = 1 - 0.75 * std::exp(-inside / 3.5);
        const double dark = neighbour_[at] / 255.0;
        const double paper = Of(soil_.paper, channel);
        return (paper + (Of(soil_.ink, channel) - paper) * dark) * light + grain * 0.4;
      }
    }
    double value = std::max(0.0, Of(soil_.surround, channel) + grain);
    if (soil_.edgeShadowMm > 0) {
      const double out = std::max({-p.x, -p.y, p.x - ink_.widthMm(), p.y - ink_.heightMm()});
      value *= 1 - 0.6 * std::exp(-std::max(0.0, out) / soil_.edgeShadowMm);
    }
    return value;
  }

  // Light crumbs in the surround, 0.1 to 1.5 mm; some reach onto the sheet's edge. 0 where there is none.
  std::vector<uint8_t> ScatterFlecks() {
    std::vector<uint8_t> flecks;
    if (soil_.flecksPerSquareCm == 0) return flecks;
    flecks.assign(page_.truth.size(), 0);
    const double cm2 = static_cast<double>(page_.truth.size()) / (dotsPerMm_ * dotsPerMm_ * 100);
    for (int n = static_cast<int>(cm2 * soil_.flecksPerSquareCm); n > 0; --n) {
      const int cx = random_.Below(width_), cy = random_.Below(height_);
      const double r = random_.In(0.05, random_.Chance(0.1) ? 0.8 : 0.25) * dotsPerMm_;
      const auto tone = static_cast<uint8_t>(random_.In(150, 255));
      const int reach = static_cast<int>(r) + 1;
      for (int y = std::max(0, cy - reach); y < std::min(height_, cy + reach + 1); ++y)
        for (int x = std::max(0, cx - reach); x < std::min(width_, cx + reach + 1); ++x)
          if ((x - cx) * (x - cx) + (y - cy) * (y - cy) <= r * r) flecks[Place(x, y)] = tone;
    }
    return flecks;
  }

  // By a triangle of twice the given width, in both directions.
  void Blur() {
    if (soil_.blurPixels <= 0) return;
    std::vector<float> weights;
    const int reach = static_cast<int>(std::ceil(soil_.blurPixels * 2.45));
    float total = 0;
    for (int i = -reach; i <= reach; ++i) {
      weights.push_back(static_cast<float>(std::max(0.0, 1 - std::abs(i) / (soil_.blurPixels * 2.45))));
      total += weights.back();
    }
    for (float& weight : weights) weight /= total;
    std::vector<float> from(values_.size());
    for (const bool isAcross : {true, false}) {
      std::swap(from, values_);
      for (int y = 0; y < height_; ++y) {
        for (int x = 0; x < width_; ++x) {
          for (int c = 0; c < channels_; ++c) {
            float sum = 0;
            for (int i = -reach; i <= reach; ++i) {
              const int sx = isAcross ? std::clamp(x + i, 0, width_ - 1) : x;
              const int sy = isAcross ? y : std::clamp(y + i, 0, height_ - 1);
              sum += weights[static_cast<size_t>(i + reach)] *
                     from[Place(sx, sy) * static_cast<size_t>(channels_) + c];
            }
            values_[Place(x, y) * static_cast<size_t>(channels_) + c] = sum;
          }
        }
      }
    }
  }

  // Whether nothing but paper is within `gap` pixels of a square.
  bool IsFree(int left, int top, int size, int gap) const {
    if (left < gap || top < gap || left + size + gap > width_ || top + size + gap > height_) return false;
    for (int y = top - gap; y < top + size + gap; ++y)
      for (int x = left - gap; x < left + size + gap; ++x)
        if (page_.truth[Place(x, y)] != 0) return false;
    return true;
  }

  void ScatterSpecks() {
    const double unit = page_.dpi / 300.0;
    const double cm2 = static_cast<double>(page_.truth.size()) / (dotsPerMm_ * dotsPerMm_ * 100);
    for (int n = static_cast<int>(cm2 * soil_.specksPerSquareCm); n > 0; --n) {
      const bool isLarge = random_.Chance(soil_.largeSpecks);
      const int dots = isLarge ? 4 + random_.Below(5) : 1 + random_.Below(3);
      const int size = std::max(1, static_cast<int>(std::lround(dots * unit)));
      const int left = random_.Below(width_), top = random_.Below(height_);
      if (!IsFree(left, top, size, std::max(2, static_cast<int>(4 * unit)))) continue;
      (isLarge ? page_.largeSpecks : page_.specks) += 1;
      const double tone = random_.In(0, soil_.bits == 1 ? 40 : 90);
      const double wide = size * random_.In(0.5, 1),
                   tall = wide > size * 0.7 ? size * random_.In(0.5, 1) : size;
      for (int y = 0; y < size; ++y) {
        for (int x = 0; x < size; ++x) {
          if (x >= std::max(1.0, wide) || y >= std::max(1.0, tall)) continue;
          if (isLarge && std::hypot(x + 0.5 - wide / 2, y + 0.5 - tall / 2) > size * 0.52) continue;
          const size_t at = Place(left + x, top + y);
          page_.truth[at] = isLarge ? kLargeSpeck : kSpeck;
          for (int c = 0; c < channels_; ++c)
            values_[at * static_cast<size_t>(channels_) + c] = static_cast<float>(tone);
        }
      }
    }
  }

  // The scanner's bars, noise and depth.
  void Develop() {
    constexpr int kDots[4][4] = {{0, 8, 2, 10}, {12, 4, 14, 6}, {3, 11, 1, 9}, {15, 7, 13, 5}};
    page_.pixels.resize(values_.size());
    const int bars = static_cast<int>(soil_.barsMm * dotsPerMm_);
    for (int y = 0; y < height_; ++y) {
      for (int x = 0; x < width_; ++x) {
        const size_t at = Place(x, y);
        const bool isBar = bars > 0 && (y < bars - x / 160 || y >= height_ - bars - x / 200);
        if (isBar) page_.truth[at] = kOutside;
        for (int c = 0; c < channels_; ++c) {
          const size_t sample = at * static_cast<size_t>(channels_) + c;
          double value = isBar ? 8 : values_[sample];
          value += soil_.noise * Normal(random_);
          if (soil_.bits == 1) {
            double level = Luma(soil_.paper) * 0.55;
            if ((page_.truth[at] & kPicture) != 0 && !soil_.isScreened) level = kDots[y % 4][x % 4] * 16 + 8;
            value = value < level ? 0 : 255;
          }
          if (soil_.isNegative) value = 255 - value;
          page_.pixels[sample] = static_cast<uint8_t>(std::clamp(value + 0.5, 0.0, 255.0));
        }
      }
    }
  }

  const Soil& soil_;
  Random random_;
  Painter ink_, decoys_, holes_, shadows_;
  int channels_, width_, height_;
  double dotsPerMm_;
  std::vector<uint8_t> back_, neighbour_;
  std::vector<float> values_;
  Page page_;
};

}  // namespace

Page DrawPage(const Fonts& fonts, const Content& content, const Soil& soil, double widthMm, double heightMm,
              int dpi, double degrees, uint64_t seed) {
  Composer composer(fonts, content, soil, widthMm, heightMm, dpi, degrees, seed);
  return composer.Compose();
}

}  // namespace rastrel::quality
