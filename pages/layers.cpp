#include "pages/layers.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>

#include "pages/check.h"
#include "pages/grow.h"
#include "pages/judgement.h"
#include "pages/model.h"
#include "pages/operations.h"
#include "pages/safeguards.h"

namespace rastrel::pages {
namespace {

// The background has about this many dots per inch: enough for photographs in print, and for what is too pale
// to be text.
constexpr int kBackgroundDpi = 130, kUsualDpi = 300, kMostTimes = 8;
// Ink of one colour differs from it by so much on average, inside of its edges; more is a picture. Letters
// and what has hardly an inside are blurred, and differ by more.
constexpr int kMostSpread = 10, kMostSpreadOfLetters = 45;
// Colours nearer than this, in the channel that differs most, are one; so many there are at most, and what
// is left over joins the nearest up to the second distance.
constexpr int kAlike = 40, kAlikeAtLast = 80;
constexpr size_t kMostColours = 6;
constexpr double kSoftRim = 2;  // points around ink that its edges darken

using Colour = std::array<int, 3>;  // blue, green, red as pages store them; greys thrice

int Apart(const Colour& a, const Colour& b) {
  int most = 0;
  for (size_t i = 0; i < 3; ++i) most = std::max(most, std::abs(a[i] - b[i]));
  return most;
}

class Parting {
 public:
  explicit Parting(const Dib& page)
      : view_(page),
        dpi_(static_cast<int>(DotsPerInch(view_.resolution().x) + 0.5)),
        model_(UnderstandPage(view_, /*isTextDark=*/true, dpi_)),
        text_(model_.width, model_.height) {}

  std::optional<PageLayers> Part() {
    times_ = std::min(((dpi_ > 0 ? dpi_ : kUsualDpi) + kBackgroundDpi / 2) / kBackgroundDpi, kMostTimes);
    if (times_ < 2) return std::nullopt;
    FindColours();
    if (layers_.texts.empty()) return std::nullopt;
    MakeBackground();
    if (LacksInk()) return std::nullopt;
    return std::move(layers_);
  }

 private:
  struct Piece {
    const Component* component;
    Colour colour;
  };

  Colour At(int x, int y) const {
    if (view_.bits() == 8) {
      const int grey = view_.PageRow(y)[x];
      return {grey, grey, grey};
    }
    const uint8_t* pixel = view_.PageRow(y) + 3 * static_cast<size_t>(x);
    return {pixel[0], pixel[1], pixel[2]};
  }

  template <class Visit>
  void ForEachPixel(const Component& component, Visit visit) const {
    for (const uint32_t index : model_.components->RunsOf(component)) {
      const InkRun& run = model_.components->runs()[index];
      for (int x = run.left; x < run.right; ++x) visit(x, int{run.row});
    }
  }

  bool IsInside(int x, int y) const {
    return x > 0 && y > 0 && x + 1 < model_.width && y + 1 < model_.height && model_.ink.Get(x - 1, y) &&
           model_.ink.Get(x + 1, y) && model_.ink.Get(x, y - 1) && model_.ink.Get(x, y + 1);
  }

  // The colour of a piece of ink within its edges, or, where it is too thin for that, of its darker half.
  // Nothing for pictures.
  std::optional<Colour> ColourOf(const Component& component) const {
    int64_t screened = 0, inside = 0, greys = 0;
    ForEachPixel(component, [&](int x, int y) {
      screened += model_.pictures.IsScreened(x, y);
      inside += IsInside(x, y);
      greys += model_.grey.Row(y)[x];
    });
    if (screened * 2 > component.pixelCount) return std::nullopt;
    const bool isThin = inside * 8 < component.pixelCount;
    const int64_t most = greys / component.pixelCount;
    const auto counts = [&](int x, int y) { return isThin ? model_.grey.Row(y)[x] <= most : IsInside(x, y); };
    int64_t sums[3] = {}, count = 0;
    ForEachPixel(component, [&](int x, int y) {
      if (!counts(x, y)) return;
      const Colour colour = At(x, y);
      for (size_t i = 0; i < 3; ++i) sums[i] += colour[i];
      ++count;
    });
    Colour mean = {};
    for (size_t i = 0; i < 3; ++i) mean[i] = static_cast<int>((sums[i] + count / 2) / count);
    int64_t spread = 0;
    ForEachPixel(component, [&](int x, int y) {
      if (counts(x, y)) spread += Apart(At(x, y), mean);
    });
    const double largest = letter::kMostHeight * model_.pixelsPerPoint;
    const bool isLetter = component.box.width() <= largest && component.box.height() <= largest;
    if (spread > (isThin || isLetter ? kMostSpreadOfLetters : kMostSpread) * count) return std::nullopt;
    return mean;
  }

  // Each piece joins the nearest colour, the largest first, so that the text's own colours come first.
  void FindColours() {
    std::vector<Piece> pieces;
    for (const Component& component : model_.components->all()) {
      if (const std::optional<Colour> colour = ColourOf(component)) pieces.push_back({&component, *colour});
    }
    std::stable_sort(pieces.begin(), pieces.end(), [](const Piece& a, const Piece& b) {
      return a.component->pixelCount > b.component->pixelCount;
    });
    struct Group {
      Colour first;
      int64_t sums[3] = {}, count = 0;
      BitPlane ink;
    };
    std::vector<Group> groups;
    for (const Piece& piece : pieces) {
      size_t nearest = 0;
      for (size_t i = 1; i < groups.size(); ++i) {
        if (Apart(piece.colour, groups[i].first) < Apart(piece.colour, groups[nearest].first)) nearest = i;
      }
      const int apart = groups.empty() ? 255 : Apart(piece.colour, groups[nearest].first);
      if (apart > kAlike && groups.size() < kMostColours) {
        nearest = groups.size();
        groups.push_back({.first = piece.colour, .ink = BitPlane(model_.width, model_.height)});
      } else if (apart > kAlikeAtLast) {
        continue;
      }
      Group& group = groups[nearest];
      DrawComponent(*model_.components, *piece.component, &group.ink);
      DrawComponent(*model_.components, *piece.component, &text_);
      for (size_t i = 0; i < 3; ++i) group.sums[i] += piece.colour[i] * piece.component->pixelCount;
      group.count += piece.component->pixelCount;
    }
    for (const Group& group : groups) {
      TextLayer layer{MakePage(model_.width, model_.height, 1, view_.resolution()), {}};
      PutInk(group.ink, PageView(layer.ink));
      for (size_t i = 0; i < 3; ++i)
        layer.colour[i] = static_cast<uint8_t>((group.sums[2 - i] + group.count / 2) / group.count);
      layers_.texts.push_back(std::move(layer));
    }
  }

  // The means of squares of pixels, of those apart from text. Squares that are all text become what is around
  // them.
  void MakeBackground() {
    const int rim = std::max(1, static_cast<int>(model_.pixelsPerPoint * kSoftRim + 0.5));
    const BitPlane covered = Widened(text_, rim);
    const auto up = [&](int size) { return (size + times_ - 1) / times_; };
    const int width = up(model_.width), height = up(model_.height);
    const auto down = [&](int32_t perMetre) { return std::max(1, perMetre / times_); };
    layers_.background =
        MakePage(width, height, view_.bits(), {down(view_.resolution().x), down(view_.resolution().y)});
    const PageView background(layers_.background);
    const auto channels = static_cast<size_t>(view_.bits() / 8);
    BitPlane known(width, height);
    struct Place {
      int x, y;
    };
    std::vector<Place> unknown;
    for (int y = 0; y < height; ++y) {
      uint8_t* row = background.PageRow(y);
      for (int x = 0; x < width; ++x) {
        int sums[3] = {}, count = 0;
        for (int py = y * times_; py < std::min((y + 1) * times_, model_.height); ++py) {
          for (int px = x * times_; px < std::min((x + 1) * times_, model_.width); ++px) {
            if (covered.Get(px, py)) continue;
            const uint8_t* pixel = view_.PageRow(py) + static_cast<size_t>(px) * channels;
            for (size_t i = 0; i < channels; ++i) sums[i] += pixel[i];
            ++count;
          }
        }
        if (count == 0) {
          unknown.push_back({x, y});
          continue;
        }
        known.Set(x, y);
        for (size_t i = 0; i < channels; ++i)
          row[static_cast<size_t>(x) * channels + i] = static_cast<uint8_t>((sums[i] + count / 2) / count);
      }
    }
    // From the edges inwards, a ring at a time.
    while (!unknown.empty()) {
      std::vector<Place> left, found;
      for (const Place& place : unknown) {
        int sums[3] = {}, count = 0;
        for (int y = std::max(place.y - 1, 0); y <= std::min(place.y + 1, height - 1); ++y) {
          for (int x = std::max(place.x - 1, 0); x <= std::min(place.x + 1, width - 1); ++x) {
            if (!known.Get(x, y)) continue;
            const uint8_t* pixel = background.PageRow(y) + static_cast<size_t>(x) * channels;
            for (size_t i = 0; i < channels; ++i) sums[i] += pixel[i];
            ++count;
          }
        }
        if (count == 0) {
          left.push_back(place);
          continue;
        }
        found.push_back(place);
        uint8_t* pixel = background.PageRow(place.y) + static_cast<size_t>(place.x) * channels;
        for (size_t i = 0; i < channels; ++i) pixel[i] = static_cast<uint8_t>(sums[i] / count);
      }
      if (found.empty()) break;  // nothing but text
      for (const Place& place : found) known.Set(place.x, place.y);
      unknown.swap(left);
    }
  }

  // Whether ink of the page is paler than it may be where the layers lie over one another.
  bool LacksInk() const {
    const BytePlane background = GreyOf(PageView(layers_.background));
    const Dib laid = MakePage(model_.width, model_.height, 8, view_.resolution());
    const PageView page(laid);
    for (int y = 0; y < model_.height; ++y) {
      const uint8_t* from = background.Row(y / times_);
      uint8_t* to = page.PageRow(y);
      for (int x = 0; x < model_.width; ++x) to[x] = from[x / times_];
    }
    for (const TextLayer& text : layers_.texts) {
      const BitPlane ink = InkOf1Bit(PageView(text.ink));
      const uint8_t grey = Luma(text.colour[0], text.colour[1], text.colour[2]);
      for (int y = 0; y < model_.height; ++y) {
        for (int x = 0; x < model_.width; ++x) {
          if (ink.Get(x, y)) page.PageRow(y)[x] = grey;
        }
      }
    }
    return !FindLost(model_.ink, model_.grey, {}, page, /*isTextDark=*/true, Movement()).isNothing();
  }

  PageView view_;
  int dpi_, times_ = 1;
  PageModel model_;
  BitPlane text_;
  PageLayers layers_;
};

}  // namespace

std::optional<PageLayers> PartIntoLayers(const Dib& page) {
  const PageView view(page);
  if (view.bits() == 1 || IsDarkPage(page)) return std::nullopt;
  if (view.bits() == 4 || (view.bits() == 8 && !HasGreyRamp(view))) return PartIntoLayers(To24(page));
  return Parting(page).Part();
}

}  // namespace rastrel::pages
