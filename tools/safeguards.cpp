#include "safeguards.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>

namespace rastrel::tool {
namespace {

constexpr int kDark = 128;  // brightness below which the cleanup operations see a pixel as dark

int ToPixels(double millimetres, const PageView& page) {
  return static_cast<int>(std::lround(millimetres / 1000 * page.resolution().x));
}

// ---- borders ----------------------------------------------------------------------------------------------

// How far the painting reaches in from one end of a row. A lone light pixel in a margin may have been white
// before.
int PaintedRun(const PageView& page, const uint8_t* before, const uint8_t* after, bool fromLeft) {
  const int allowed = page.bits() == 1 ? 0 : 1;
  const int width = page.width();
  int run = 0;
  int unchanged = 0;
  for (int i = 0; i < width && unchanged <= allowed; ++i) {
    if (SamePixel(page, before, after, fromLeft ? i : width - 1 - i)) {
      ++unchanged;
    } else {
      unchanged = 0;
      run = i + 1;
    }
  }
  return run;
}

// How far in each row belongs to something at least `reach` rows tall. A border's rows may be cut short here
// and there by light specks, so three rows in ten of any `reach` may be shorter. Beyond the page's ends a
// margin counts as going on.
std::vector<int> TallRuns(const std::vector<int>& runs, int reach) {
  const int count = static_cast<int>(runs.size());
  std::vector<int> tall(runs.size(), 0);
  if (std::all_of(runs.begin(), runs.end(), [](int run) { return run == 0; })) return tall;
  std::vector<int> window;
  for (int first = 1 - reach; first < count; ++first) {
    const int from = std::max(0, first);
    const int to = std::min(count, first + reach);
    window.assign(runs.begin() + from, runs.begin() + to);
    const auto low = window.begin() + (to - from) * 3 / 10;
    std::nth_element(window.begin(), low, window.end());
    if (*low == 0) continue;
    for (int y = from; y < to; ++y)
      tall[static_cast<size_t>(y)] = std::max(tall[static_cast<size_t>(y)], *low);
  }
  return tall;
}

// The part of each painted run that is border: as far as it is tall, and a little beyond, where a slanted
// border grows from row to row. A few dark pixels in a corner are none.
std::vector<int> BorderRuns(const std::vector<int>& runs, const PageView& page) {
  constexpr double kLeastHeightMm = 6;  // taller than a line of text
  constexpr double kBeyondMm = 1.5;
  constexpr double kLeastSideMm = 0.7;  // of a square as large as the smallest border
  const int beyond = ToPixels(kBeyondMm, page);
  std::vector<int> border = TallRuns(runs, std::max(2, ToPixels(kLeastHeightMm, page)));
  for (size_t y = 0; y < runs.size(); ++y) {
    border[y] = border[y] == 0 ? 0 : std::min(runs[y], border[y] + beyond);
  }
  const int side = ToPixels(kLeastSideMm, page);
  for (auto first = border.begin(); first != border.end();) {
    const auto last = std::find(first, border.end(), 0);
    if (std::accumulate(first, last, int64_t{0}) < int64_t{side} * side) std::fill(first, last, 0);
    first = std::find_if(last, border.end(), [](int run) { return run != 0; });
  }
  return border;
}

// Lets borders take their soft edge along: what is neither as dark as they are nor as light as the ground.
// Where an edge is nearly level, rows beside the border have some of it as well.
void AddSoftEdge(const PageView& page, Ink ground, bool fromLeft, std::vector<int>* runs) {
  constexpr double kSoftMm = 0.6;
  constexpr double kAlongMm = 5;  // how far such a row may run along the edge
  constexpr int kNearGround = 12;
  if (page.bits() == 1) return;
  const std::vector<uint8_t> table = BrightnessTable(page);
  const int groundBrightness =
      page.bits() == 24 ? (ground.bytes[0] + ground.bytes[1] + ground.bytes[2]) / 3 : table[ground.bytes[0]];
  const int soft = std::max(3, ToPixels(kSoftMm, page));
  const int along = ToPixels(kAlongMm, page);
  const std::vector<int> borders = *runs;
  for (int y = 0; y < page.height(); ++y) {
    const auto first = borders.begin() + std::max(0, y - soft);
    const int nearest = *std::max_element(first, borders.begin() + std::min(page.height(), y + soft + 1));
    const int end = nearest == 0 ? 0 : std::min(page.width(), nearest + along);
    int& run = (*runs)[static_cast<size_t>(y)];
    for (int i = run; i < end; ++i) {
      const int x = fromLeft ? i : page.width() - 1 - i;
      uint8_t brightness = 0;
      RowBrightness(page, table, y, x, x + 1, &brightness);
      if (brightness >= groundBrightness - kNearGround) break;
      run = i + 1;
    }
  }
}

// A scanner's background is evenly dark. A picture that bleeds off the page is not, and what is deep enough
// for one is looked at. 1-bit pictures are not dark in one piece.
bool LooksLikePicture(const PageView& page, const std::vector<int>& runs, bool fromLeft) {
  constexpr double kDeep = 0.08;  // of the page's width, on average
  constexpr double kUneven = 20;  // standard deviation of brightness
  constexpr int kBorder = 100;    // the brightness below which margins are painted
  double depth = 0;
  for (const int run : runs) depth += run;
  if (page.bits() == 1 || depth < kDeep * page.width() * page.height()) return false;
  const std::vector<uint8_t> table = BrightnessTable(page);
  std::vector<uint8_t> row(static_cast<size_t>(page.width()));
  double count = 0, sum = 0, squares = 0;
  for (int y = 0; y < page.height(); y += 4) {
    const int run = runs[static_cast<size_t>(y)];
    const int from = fromLeft ? 0 : page.width() - run;
    RowBrightness(page, table, y, from, from + run, row.data());
    for (int i = 0; i < run; ++i) {
      const double value = row[static_cast<size_t>(i)];
      if (value >= kBorder) continue;
      ++count;
      sum += value;
      squares += value * value;
    }
  }
  if (count == 0) return false;
  const double mean = sum / count;
  return std::sqrt(std::max(0.0, squares / count - mean * mean)) > kUneven;
}

// ---- skew -------------------------------------------------------------------------------------------------

constexpr int kStripWidth = 16;   // pixels; a row of one strip is one count
constexpr double kMargin = 0.08;  // of the page, at each side: what is left of a border is no text

// How many pixels of text each row of each strip of columns has, strip by strip.
class StripCounts {
 public:
  StripCounts(const PageView& page, bool isTextDark)
      : strips_((page.width() + kStripWidth - 1) / kStripWidth),
        height_(page.height()),
        margin_(static_cast<int>(kMargin * height_)),
        counts_(static_cast<size_t>(strips_) * static_cast<size_t>(height_)) {
    const std::vector<uint8_t> table = BrightnessTable(page);
    if (page.bits() == 1) {
      CountBits(page, (table[1] < kDark) == isTextDark);
    } else {
      CountBrightness(page, table, isTextDark);
    }
  }

  // The squared differences of neighbouring row sums, along lines that rise by `degrees` to the right.
  double Sharpness(double degrees) const {
    const double slope = std::tan(degrees * 3.14159265358979323846 / 180);
    std::vector<uint16_t> sums(static_cast<size_t>(height_), 0);
    const auto sideStrips = static_cast<int>(kMargin * strips_);
    for (int strip = sideStrips; strip < strips_ - sideStrips; ++strip) {
      const double across = (strip - strips_ / 2) * double{kStripWidth};
      const int shift = static_cast<int>(std::lround(-slope * across));
      const uint8_t* counts = counts_.data() + static_cast<size_t>(strip) * static_cast<size_t>(height_);
      const int first = std::max(0, -shift);
      const int last = std::min(height_, height_ - shift);
      for (int y = first; y < last; ++y) {
        sums[static_cast<size_t>(y)] =
            static_cast<uint16_t>(sums[static_cast<size_t>(y)] + counts[y + shift]);
      }
    }
    double sharpness = 0;
    for (int y = margin_ + 1; y < height_ - margin_; ++y) {
      const double difference = sums[static_cast<size_t>(y)] - sums[static_cast<size_t>(y) - 1];
      sharpness += difference * difference;
    }
    return sharpness;
  }

 private:
  uint8_t& at(int strip, int y) {
    return counts_[static_cast<size_t>(strip) * static_cast<size_t>(height_) + static_cast<size_t>(y)];
  }

  // In parts of the word at once: std::popcount is a call on processors of the first generation.
  static uint8_t BitsOf(unsigned word) {
    word = word - (word >> 1 & 0x5555);
    word = (word & 0x3333) + (word >> 2 & 0x3333);
    word = (word + (word >> 4)) & 0x0F0F;
    return static_cast<uint8_t>((word + (word >> 8)) & 0x1F);
  }

  void CountBits(const PageView& page, bool isSetText) {
    const auto flip = static_cast<uint16_t>(isSetText ? 0 : 0xFFFF);
    const int rest = page.width() % kStripWidth;
    const auto lastMask = static_cast<uint16_t>(rest == 0 ? 0xFFFF : 0xFFFF << (kStripWidth - rest));
    for (int y = 0; y < height_; ++y) {
      const uint8_t* row = page.PageRow(y);
      for (int strip = 0; strip < strips_; ++strip, row += 2) {
        auto pixels = static_cast<uint16_t>((row[0] << 8 | row[1]) ^ flip);
        if (strip == strips_ - 1) pixels &= lastMask;
        at(strip, y) = BitsOf(pixels);
      }
    }
  }

  void CountBrightness(const PageView& page, const std::vector<uint8_t>& table, bool isTextDark) {
    std::vector<uint8_t> row(static_cast<size_t>(strips_) * kStripWidth, isTextDark ? 255 : 0);
    for (int y = 0; y < height_; ++y) {
      RowBrightness(page, table, y, 0, page.width(), row.data());
      const uint8_t* pixel = row.data();
      for (int strip = 0; strip < strips_; ++strip) {
        int count = 0;
        for (int i = 0; i < kStripWidth; ++i, ++pixel) count += *pixel < kDark;
        at(strip, y) = static_cast<uint8_t>(isTextDark ? count : kStripWidth - count);
      }
    }
  }

  int strips_;
  int height_;
  int margin_;  // rows at the top and bottom
  std::vector<uint8_t> counts_;
};

}  // namespace

bool IsDarkPage(const Dib& dib) {
  constexpr double kMostly = 0.6;
  const PageView page(dib);
  const std::vector<uint8_t> table = BrightnessTable(page);
  const int width = page.width(), height = page.height();
  std::vector<uint8_t> row(static_cast<size_t>(width));
  int64_t dark[2] = {}, all[2] = {};  // around, and in the middle
  for (int y = 0; y < height; y += 8) {
    RowBrightness(page, table, y, 0, width, row.data());
    for (int x = 0; x < width; x += 4) {
      const int fromEdge = std::min({x * 10 / width, (width - 1 - x) * 10 / width, y * 10 / height,
                                     (height - 1 - y) * 10 / height});  // in tenths of the page
      if (fromEdge == 1) continue;
      const size_t part = fromEdge == 0 ? 0 : 1;
      dark[part] += row[static_cast<size_t>(x)] < kDark;
      ++all[part];
    }
  }
  const auto isMostlyDark = [&](size_t part) {
    return static_cast<double>(dark[part]) > kMostly * static_cast<double>(all[part]);
  };
  return isMostlyDark(0) && isMostlyDark(1);
}

BorderResult PaintBorders(const Dib& dib, const Dib& source, const Dib& trimmed, Ink ground) {
  const PageView page(dib);
  const PageView before(source);
  const PageView after(trimmed);
  const auto height = static_cast<size_t>(page.height());
  std::vector<int> left(height), right(height);
  for (int y = 0; y < page.height(); ++y) {
    const uint8_t* old = before.PageRow(y);
    const uint8_t* painted = after.PageRow(y);
    if (std::memcmp(old, painted, page.stride()) == 0) continue;
    left[static_cast<size_t>(y)] = PaintedRun(page, old, painted, true);
    right[static_cast<size_t>(y)] = PaintedRun(page, old, painted, false);
  }
  left = BorderRuns(left, page);
  right = BorderRuns(right, page);
  BorderResult result;
  result.isPictureLeft = LooksLikePicture(page, left, true);
  result.isPictureRight = LooksLikePicture(page, right, false);
  if (result.isPictureLeft) left.assign(height, 0);
  if (result.isPictureRight) right.assign(height, 0);
  AddSoftEdge(page, ground, true, &left);
  AddSoftEdge(page, ground, false, &right);
  for (int y = 0; y < page.height(); ++y) {
    const int fromLeft = left[static_cast<size_t>(y)];
    const int fromRight = std::max(fromLeft, page.width() - right[static_cast<size_t>(y)]);
    PaintRow(page, y, 0, fromLeft, ground);
    PaintRow(page, y, fromRight, page.width(), ground);
    result.left += fromLeft;
    result.right += page.width() - fromRight;
  }
  return result;
}

Skew MeasureSkew(const Dib& dib, bool isTextDark, bool isFine) {
  constexpr int kWidest = 65535;      // sums of wider rows would overflow
  constexpr double kGain = 1.25;      // a turn must make the rows this much sharper
  constexpr double kLeastTurn = 0.2;  // degrees; less is not seen, and a turn costs some sharpness
  constexpr int kFurthest = 20;       // degrees looked at beside those that were found
  Skew skew;
  skew.found = DetectSkewAngle(dib.handle(), isTextDark, 0, nullptr);
  const PageView page(dib);
  if (page.width() > kWidest) {
    skew.degrees = skew.found;
    return skew;
  }
  const StripCounts counts(page, isTextDark);
  const double straight = counts.Sharpness(0);
  double best = straight;
  double bestDegrees = 0;
  const auto weigh = [&](double degrees) {
    const double sharpness = counts.Sharpness(degrees);
    if (sharpness <= best) return;
    best = sharpness;
    bestDegrees = degrees;
  };
  weigh(skew.found);
  for (int half = -2 * kFurthest; half <= 2 * kFurthest; ++half) {
    if (isFine || half % 2 == 0) weigh(half / 2.0);
  }
  if (isFine) {
    const double centre = bestDegrees;
    for (int tenth = -5; tenth <= 5; ++tenth) weigh(std::round(centre * 10 + tenth) / 10);
  }
  if (best > kGain * straight && std::abs(bestDegrees) > kLeastTurn - 0.01) skew.degrees = bestDegrees;
  return skew;
}

}  // namespace rastrel::tool
