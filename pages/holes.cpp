#include "pages/holes.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "pages/operations.h"

namespace rastrel::pages {
namespace {

// Lengths are in millimetres, shares of a hole's diameter are called so.
constexpr double kBand = 34;        // discs of the largest holes reach no further in from the edge
constexpr double kFurthest = 19;    // a hole's middle from the edge
constexpr double kLeastHole = 2.8;  // sides of the box around a hole
constexpr double kMostHole = 11;
constexpr double kLeastFill = 0.62;  // of the box: a disc fills 0.79, a square all
constexpr double kMostFill = 0.93;
constexpr double kLongestSides = 1.6;  // one side of the box to the other
constexpr double kHalo = 0.4;          // of grey around a hole

// ---- a margin ---------------------------------------------------------------------------------------------

// One margin of a page, turned so that the page's edge is at the left.
class Margin {
 public:
  Margin(const Dib& dib, Side side) : side_(side) {
    const PageView page(dib);
    width_ = page.width();
    height_ = page.height();
    const bool isUpright = side == Side::kLeft || side == Side::kRight;
    const int depth =
        std::min(isUpright ? width_ : height_,
                 std::max(1, static_cast<int>(std::lround(kBand / 1000 * page.resolution().x))));
    const auto crop = [&](int left, int top, int width, int height) {
      return Crop(dib, {left, top, left + width, top + height});
    };
    switch (side) {
      case Side::kLeft:
        strip_ = crop(0, 0, depth, height_);
        break;
      case Side::kRight:
        strip_ = Flip(crop(width_ - depth, 0, depth, height_), Direction::kHorizontal);
        break;
      case Side::kTop:
        strip_ = Turn(crop(0, 0, width_, depth), 1);
        break;
      case Side::kBottom:
        strip_ = Turn(crop(0, height_ - depth, width_, depth), -1);
        break;
    }
  }

  const Dib& strip() const { return strip_; }
  Side side() const { return side_; }
  // From the edge to the one across the page.
  int across() const { return side_ == Side::kLeft || side_ == Side::kRight ? width_ : height_; }

  // Where a point of the strip lies on the page.
  template <class Number>
  std::pair<Number, Number> OnPage(Number x, Number y) const {
    switch (side_) {
      case Side::kLeft:
        return {x, y};
      case Side::kRight:
        return {static_cast<Number>(width_ - 1) - x, y};
      case Side::kTop:
        return {static_cast<Number>(width_ - 1) - y, x};
      default:
        return {y, static_cast<Number>(height_ - 1) - x};
    }
  }

 private:
  Side side_;
  int width_ = 0, height_ = 0;  // of the page
  Dib strip_;
};

// Which cells of a margin are dark, and which of them a disc covers. Rows are looked at when they are first
// asked for.
class HoleMap {
 public:
  HoleMap(const PageView& strip, const PageView& punched)
      : strip_(strip),
        punched_(punched),
        table_(BrightnessTable(strip)),
        brightness_(static_cast<size_t>(strip.width())),
        cells_(static_cast<size_t>(height())) {}

  static constexpr uint8_t kDark = 1, kCovered = 2, kSeen = 4;

  int width() const { return strip_.width(); }
  int height() const { return strip_.height(); }
  uint8_t& at(int x, int y) {
    std::vector<uint8_t>& row = cells_[static_cast<size_t>(y)];
    if (row.empty()) row = LookAt(y);
    return row[static_cast<size_t>(x)];
  }
  bool IsDark(int x, int y) {
    return x >= 0 && y >= 0 && x < width() && y < height() && (at(x, y) & kDark) != 0;
  }
  bool IsPainted(int y) const {
    return std::memcmp(strip_.PageRow(y), punched_.PageRow(y), strip_.stride()) != 0;
  }
  int ToPixels(double millimetres) const {
    return static_cast<int>(std::lround(millimetres / 1000 * strip_.resolution().x));
  }

 private:
  std::vector<uint8_t> LookAt(int y) {
    constexpr int kDarkBelow = 128;  // the brightness that the operations go by
    const bool isPainted = IsPainted(y);
    RowBrightness(strip_, table_, y, 0, width(), brightness_.data());
    std::vector<uint8_t> cells(static_cast<size_t>(width()));
    for (int x = 0; x < width(); ++x) {
      const bool isCovered = isPainted && !SamePixel(strip_, strip_.PageRow(y), punched_.PageRow(y), x);
      cells[static_cast<size_t>(x)] = static_cast<uint8_t>(
          (brightness_[static_cast<size_t>(x)] < kDarkBelow ? kDark : 0) | (isCovered ? kCovered : 0));
    }
    return cells;
  }

  const PageView& strip_;
  const PageView& punched_;
  std::vector<uint8_t> table_;
  std::vector<uint8_t> brightness_;
  std::vector<std::vector<uint8_t>> cells_;
};

// ---- what a hole looks like -------------------------------------------------------------------------------

struct Blob {
  int left = 0, top = 0, right = 0, bottom = 0;  // the last ones included
  int contacts = 0;                              // dark neighbours that no disc covers
  std::vector<std::pair<int, int>> places;

  int width() const { return right - left + 1; }
  int height() const { return bottom - top + 1; }
  double diameter() const { return (width() + height()) / 2.0; }
  double x() const { return (left + right) / 2.0; }
  double y() const { return (top + bottom) / 2.0; }
};

Blob FollowBlob(HoleMap& map, int startX, int startY) {
  Blob blob{startX, startY, startX, startY, 0, {{startX, startY}}};
  map.at(startX, startY) |= HoleMap::kSeen;
  for (size_t i = 0; i < blob.places.size(); ++i) {
    const auto [x, y] = blob.places[i];
    blob.left = std::min(blob.left, x);
    blob.right = std::max(blob.right, x);
    blob.top = std::min(blob.top, y);
    blob.bottom = std::max(blob.bottom, y);
    for (int ny = std::max(0, y - 1); ny <= std::min(map.height() - 1, y + 1); ++ny) {
      for (int nx = std::max(0, x - 1); nx <= std::min(map.width() - 1, x + 1); ++nx) {
        uint8_t& cell = map.at(nx, ny);
        if ((cell & HoleMap::kDark) == 0 || (cell & HoleMap::kSeen) != 0) continue;
        if ((cell & HoleMap::kCovered) == 0) {
          ++blob.contacts;
          continue;
        }
        cell |= HoleMap::kSeen;
        blob.places.push_back({nx, ny});
      }
    }
  }
  return blob;
}

// The first and last place of a profile without long low ends.
std::pair<int, int> Span(const std::vector<int>& profile) {
  constexpr double kLow = 0.12;   // of the highest
  constexpr double kLong = 0.05;  // of the profile
  const auto size = static_cast<int>(profile.size());
  const int least = static_cast<int>(kLow * *std::max_element(profile.begin(), profile.end()));
  const auto isHigh = [least](int count) { return count > least; };
  const auto before =
      static_cast<int>(std::find_if(profile.begin(), profile.end(), isHigh) - profile.begin());
  const auto behind =
      static_cast<int>(std::find_if(profile.rbegin(), profile.rend(), isHigh) - profile.rbegin());
  const auto isLong = [size](int end) { return end > 1 + kLong * size; };
  return {isLong(before) ? before : 0, size - 1 - (isLong(behind) ? behind : 0)};
}

// Takes away what the discs cover of thin lines that touch the blob: rules of lined paper.
void TrimLines(Blob* blob, int halo) {
  std::vector<int> columns(static_cast<size_t>(blob->width())), rows(static_cast<size_t>(blob->height()));
  for (const auto& [x, y] : blob->places) {
    ++columns[static_cast<size_t>(x - blob->left)];
    ++rows[static_cast<size_t>(y - blob->top)];
  }
  const auto [firstColumn, lastColumn] = Span(columns);
  const auto [firstRow, lastRow] = Span(rows);
  blob->right = blob->left + lastColumn;
  blob->left += firstColumn;
  blob->bottom = blob->top + lastRow;
  blob->top += firstRow;
  std::erase_if(blob->places, [&](const std::pair<int, int>& place) {
    return place.first < blob->left - halo || place.first > blob->right + halo ||
           place.second < blob->top - halo || place.second > blob->bottom + halo;
  });
}

// About as large and as round as a hole may be that is torn, worn or touched by a line.
bool MayBeHole(const Blob& blob, const HoleMap& map) {
  const auto [shorter, longer] = std::minmax({blob.width(), blob.height()});
  const double fill = static_cast<double>(blob.places.size()) / (static_cast<double>(shorter) * longer);
  return shorter >= map.ToPixels(kLeastHole) && longer <= map.ToPixels(kMostHole) &&
         longer <= kLongestSides * shorter && fill >= kLeastFill && fill <= kMostFill &&
         blob.contacts <= (shorter + longer) / 5;
}

// How much the blob differs from the ellipse in its box, as a share of that.
double Misfit(const Blob& blob) {
  const double a = blob.width() / 2.0, b = blob.height() / 2.0;
  const auto isInside = [&](int x, int y) {
    const double across = (x - blob.x()) / a, down = (y - blob.y()) / b;
    return across * across + down * down <= 1;
  };
  int64_t inside = 0, inBoth = 0;
  for (int y = blob.top; y <= blob.bottom; ++y) {
    for (int x = blob.left; x <= blob.right; ++x) inside += isInside(x, y);
  }
  for (const auto& [x, y] : blob.places) inBoth += isInside(x, y);
  const auto cells = static_cast<int64_t>(blob.places.size());
  return static_cast<double>(inside + cells - 2 * inBoth) / static_cast<double>(std::max<int64_t>(inside, 1));
}

// Whether something about as heavy as the blob stands reach it, and it is rather the dot of a large letter, a
// bullet or part of an ornament.
bool HasHeavyNeighbour(const Blob& blob, HoleMap& map) {
  constexpr double kNear = 1.5, kThick = 0.4;  // diameters
  const int reach = static_cast<int>(std::lround(kNear * blob.diameter()));
  const int half = std::max(1, static_cast<int>(std::lround(kThick * blob.diameter() / 2)));
  const int step = std::max(1, half / 3);
  const auto isHeavy = [&](int x, int y) {
    for (int i = half; i >= -half; --i) {
      if (!map.IsDark(x + i, y) || !map.IsDark(x, y + i)) return false;
    }
    return true;
  };
  for (int y = blob.top - reach; y <= blob.bottom + reach; y += step) {
    for (int x = blob.left; x <= blob.right + reach; x += step) {
      const bool isBeside = x > blob.right + half || y < blob.top - half || y > blob.bottom + half;
      if (isBeside && isHeavy(x, y)) return true;
    }
  }
  return false;
}

// Whether the margin is empty above and below the blob.
bool IsAlone(const Blob& blob, HoleMap& map) {
  constexpr double kFree = 2.5;   // diameters
  constexpr double kDirt = 0.01;  // of the pixels
  const int reach = static_cast<int>(std::lround(kFree * blob.diameter()));
  const int least = map.ToPixels(kHalo);
  int64_t dark = 0;
  for (int i = least + 1; i <= reach; ++i) {
    for (int x = blob.left; x <= blob.right; ++x) {
      dark += map.IsDark(x, blob.top - i) + map.IsDark(x, blob.bottom + i);
    }
  }
  return static_cast<double>(dark) <= kDirt * 2 * (reach - least) * blob.width();
}

// Whether the two are of one row of holes: as large and as far from the edge, allowing for some skew.
bool AreOfOneRow(const Blob& a, const Blob& b, const HoleMap& map) {
  constexpr double kLeastApart = 15, kOff = 1.5, kOffPerLength = 0.07, kLargest = 1.25;
  const double apart = std::abs(a.y() - b.y());
  const auto [smaller, larger] = std::minmax({a.diameter(), b.diameter()});
  return apart >= map.ToPixels(kLeastApart) && larger <= kLargest * smaller &&
         std::abs(a.x() - b.x()) <= map.ToPixels(kOff) + kOffPerLength * apart;
}

// The blobs that are holes. At the left, where pages are bound, what may be a hole is one. Elsewhere
// ornaments, seals and the dots of headings are more likely: there a hole is really round, and either one of
// a row or alone in its part of the margin.
std::vector<Blob> PickHoles(std::vector<Blob> blobs, HoleMap& map, const Margin& margin) {
  struct Roundness {
    double misfit, sides, least, most;
  };
  constexpr Roundness kInRow = {0.15, 1.35, 3, 11}, kByItself = {0.11, 1.2, 3.5, 9.5};
  const auto isRound = [&](const Blob& blob, const Roundness& wanted) {
    const auto [shorter, longer] = std::minmax({blob.width(), blob.height()});
    return longer <= wanted.sides * shorter && shorter >= map.ToPixels(wanted.least) &&
           longer <= map.ToPixels(wanted.most) && Misfit(blob) <= wanted.misfit;
  };
  std::erase_if(blobs, [&](const Blob& blob) {
    const double furthest = std::min<double>(map.ToPixels(kFurthest), margin.across() / 4.0);
    return !MayBeHole(blob, map) || blob.x() > furthest || HasHeavyNeighbour(blob, map) ||
           (margin.side() != Side::kLeft && !isRound(blob, kInRow));
  });
  if (margin.side() == Side::kLeft) return blobs;
  std::vector<Blob> holes;
  for (const Blob& blob : blobs) {
    const auto isPartner = [&](const Blob& other) { return AreOfOneRow(blob, other, map); };
    if (std::any_of(blobs.begin(), blobs.end(), isPartner) ||
        (isRound(blob, kByItself) && IsAlone(blob, map))) {
      holes.push_back(blob);
    }
  }
  return holes;
}

void PaintHole(const PageView& page, const Margin& margin, HoleMap& map, const Blob& blob, Ink ground) {
  const auto paint = [&](int x, int y) {
    const auto [pageX, pageY] = margin.OnPage(x, y);
    PaintRow(page, pageY, pageX, pageX + 1, ground);
  };
  for (const auto& [x, y] : blob.places) paint(x, y);
  if (page.bits() == 1) return;
  const int halo = map.ToPixels(kHalo);
  for (int y = std::max(0, blob.top - halo); y <= std::min(map.height() - 1, blob.bottom + halo); ++y) {
    for (int x = std::max(0, blob.left - halo); x <= std::min(map.width() - 1, blob.right + halo); ++x) {
      const uint8_t cell = map.at(x, y);
      if ((cell & HoleMap::kDark) == 0 && (cell & HoleMap::kCovered) != 0) paint(x, y);
    }
  }
}

void EraseInMargin(const Dib& dib, Side side, std::optional<int> size, Ink ground, std::vector<Hole>* holes) {
  const Margin margin(dib, side);
  const Dib punched = FillHoles(margin.strip(), size);
  const PageView before(margin.strip()), after(punched);
  if (std::memcmp(before.pixels().data(), after.pixels().data(), before.pixels().size()) == 0) return;
  HoleMap map(before, after);
  std::vector<Blob> blobs;
  for (int y = 0; y < map.height(); ++y) {
    if (!map.IsPainted(y)) continue;
    for (int x = 0; x < map.width(); ++x) {
      if ((map.at(x, y) & (HoleMap::kDark | HoleMap::kCovered | HoleMap::kSeen)) ==
          (HoleMap::kDark | HoleMap::kCovered)) {
        blobs.push_back(FollowBlob(map, x, y));
        TrimLines(&blobs.back(), map.ToPixels(kHalo));
      }
    }
  }
  const PageView page(dib);
  for (const Blob& blob : PickHoles(std::move(blobs), map, margin)) {
    PaintHole(page, margin, map, blob, ground);
    const auto [x, y] = margin.OnPage(blob.x(), blob.y());
    holes->push_back({x, y, blob.diameter(), side});
  }
}

}  // namespace

std::string_view NameOf(Side side) {
  constexpr std::string_view kNames[] = {"left", "right", "top", "bottom"};
  return kNames[static_cast<size_t>(side)];
}

std::vector<Hole> EraseHoles(const Dib& page, std::optional<int> size, Ink ground) {
  std::vector<Hole> holes;
  for (const Side side : {Side::kLeft, Side::kRight, Side::kTop, Side::kBottom}) {
    EraseInMargin(page, side, size, ground, &holes);
  }
  return holes;
}

}  // namespace rastrel::pages
