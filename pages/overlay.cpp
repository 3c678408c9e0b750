#include "pages/overlay.h"

#include <bit>
#include <cmath>
#include <cstring>

namespace rastrel::pages {
namespace {

// The last indices of the picture's colour table; the others are greys. The three colours are told apart with
// any kind of colour blindness.
constexpr int kColours = 3;
constexpr int kGreys = 256 - kColours;
constexpr RGBQUAD kColourOf[kColours] = {
    {178, 114, 0, 0},  // blue: borders
    {0, 159, 230, 0},  // orange: holes
    {0, 94, 213, 0},   // vermilion: specks
};
constexpr int kDarkestGrey = 80;  // so that black does not outshine the colours

uint8_t IndexOf(Removed what) { return static_cast<uint8_t>(kGreys + static_cast<int>(what)); }

Point Middle(int width, int height) { return {(width - 1) / 2.0, (height - 1) / 2.0}; }

// Turned counter-clockwise about `from`, which goes to `to`.
Point Turned(Point point, double degrees, Point from, Point to) {
  const double radians = degrees * 3.14159265358979323846 / 180;
  const double sine = std::sin(radians), cosine = std::cos(radians);
  const double x = point.x - from.x, y = point.y - from.y;
  return {to.x + x * cosine + y * sine, to.y - x * sine + y * cosine};
}

// Calls visit(x, y, pageX, pageY) with each pixel of the picture and where it lies on the page, which may be
// outside.
template <class Visit>
void ForEachPixel(const PageView& picture, const Placement& place, Visit visit) {
  for (int y = 0; y < picture.height(); ++y) {
    for (int x = 0; x < picture.width(); ++x) {
      if (!place.isMoved()) {
        visit(x, y, x, y);
        continue;
      }
      const Point point = place.FromInput({static_cast<double>(x), static_cast<double>(y)});
      visit(x, y, static_cast<int>(std::lround(point.x)), static_cast<int>(std::lround(point.y)));
    }
  }
}

bool IsOn(const PageView& page, int x, int y) {
  return x >= 0 && y >= 0 && x < page.width() && y < page.height();
}

}  // namespace

Placement Placement::Of(const PageView& page) {
  return {.widthIn = page.width(),
          .heightIn = page.height(),
          .widthTurned = page.width(),
          .heightTurned = page.height()};
}

Point Placement::ToInput(Point point) const {
  return Turned({point.x + left, point.y + top}, -degrees, Middle(widthTurned, heightTurned),
                Middle(widthIn, heightIn));
}

Point Placement::FromInput(Point point) const {
  const Point turned = Turned(point, degrees, Middle(widthIn, heightIn), Middle(widthTurned, heightTurned));
  return {turned.x - left, turned.y - top};
}

Overlay::Overlay(const Dib& dib) {
  const PageView page(dib);
  picture_ = MakePage(page.width(), page.height(), 8, page.resolution());
  const PageView picture(picture_);
  for (int i = 0; i < kGreys; ++i) {
    const auto grey = static_cast<uint8_t>(kDarkestGrey + i * (255 - kDarkestGrey) / (kGreys - 1));
    picture.palette()[static_cast<size_t>(i)] = {grey, grey, grey, 0};
  }
  std::copy_n(kColourOf, kColours, picture.palette().begin() + kGreys);
  const std::vector<uint8_t> table = BrightnessTable(page);
  for (int y = 0; y < page.height(); ++y) {
    uint8_t* row = picture.PageRow(y);
    std::memset(row, 0, picture.stride());
    RowBrightness(page, table, y, 0, page.width(), row);
    for (int x = 0; x < page.width(); ++x) row[x] = static_cast<uint8_t>(row[x] * (kGreys - 1) / 255);
  }
}

void Overlay::Paint(Removed what, const Dib& before, const Dib& after, const Placement& place) {
  const PageView picture(picture_), old(before), now(after);
  if (std::memcmp(old.pixels().data(), now.pixels().data(), old.pixels().size()) == 0) return;
  const auto isRemoved = [&](int x, int y) { return !SamePixel(old, old.PageRow(y), now.PageRow(y), x); };
  ForEachPixel(picture, place, [&](int x, int y, int pageX, int pageY) {
    if (IsOn(old, pageX, pageY) && isRemoved(pageX, pageY)) picture.PageRow(y)[x] = IndexOf(what);
  });
  if (!place.isMoved()) return;
  // A turn leaves single pixels out.
  for (int y = 0; y < old.height(); ++y) {
    for (int x = 0; x < old.width(); ++x) {
      if (!isRemoved(x, y)) continue;
      const Point point = place.ToInput({static_cast<double>(x), static_cast<double>(y)});
      const auto inX = static_cast<int>(std::lround(point.x)), inY = static_cast<int>(std::lround(point.y));
      if (IsOn(picture, inX, inY)) picture.PageRow(inY)[inX] = IndexOf(what);
    }
  }
}

void Overlay::Paint(Removed what, const BitPlane& mask) {
  const PageView picture(picture_);
  for (int y = 0; y < picture.height(); ++y) {
    uint8_t* row = picture.PageRow(y);
    for (size_t i = 0; i < mask.wordsPerRow(); ++i) {
      for (uint64_t bits = mask.Row(y)[i]; bits != 0; bits &= bits - 1) {
        row[i * 64 + 63 - static_cast<size_t>(std::countr_zero(bits))] = IndexOf(what);
      }
    }
  }
}

void Overlay::PaintAround(Removed what, const Dib& dib, const Placement& place) {
  const PageView picture(picture_), page(dib);
  ForEachPixel(picture, place, [&](int x, int y, int pageX, int pageY) {
    if (!IsOn(page, pageX, pageY)) picture.PageRow(y)[x] = IndexOf(what);
  });
}

}  // namespace rastrel::pages
