// The single operations for callers of the C interface.
#include <algorithm>
#include <climits>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "pages/interface.h"
#include "pages/operations.h"

namespace rastrel::pages {
namespace {

constexpr double kMostDegrees = 360;
constexpr int kMostShift = 10000, kMostSide = 65535, kMostBrightness = 255;

// Runs an operation that makes a page of a page.
template <class Work>
HGLOBAL Made(HGLOBAL page, Work work) {
  return Guarded<HGLOBAL>(nullptr, [&] {
    const InputPage input(page);
    return work(input.dib()).Release();
  });
}

Ground GroundFrom(int ground) {
  return static_cast<Ground>(InRange(ground, 0, 1, "there is no such ground"));
}
Direction DirectionFrom(int direction) {
  return static_cast<Direction>(InRange(direction, 0, 1, "there is no such direction"));
}
bool IsCubic(int interpolation) {
  return InRange(interpolation, 0, 1, "there is no such interpolation") != 0;
}
double Degrees(double degrees) {
  return InRange(degrees, -kMostDegrees, kMostDegrees, "an angle is -360 to 360 degrees");
}
int Depth(int bits, std::initializer_list<int> depths) {
  Require(std::find(depths.begin(), depths.end(), bits) != depths.end(), "there is no such depth");
  return bits;
}

// Several pages of the caller's.
class InputPages {
 public:
  InputPages(const HGLOBAL* pages, int32_t count) {
    Require(pages != nullptr && count > 0, "there are no pages");
    for (int32_t i = 0; i < count; ++i) inputs_.push_back(std::make_unique<InputPage>(pages[i]));
    dibs_.reserve(inputs_.size());  // from here on nothing throws: a borrowed page would be freed
    for (const auto& input : inputs_) dibs_.push_back(Dib(input->dib().handle()));
  }
  ~InputPages() {
    for (Dib& dib : dibs_) dib.Release();
  }
  InputPages(const InputPages&) = delete;
  InputPages& operator=(const InputPages&) = delete;
  std::span<const Dib> dibs() const { return dibs_; }

 private:
  std::vector<std::unique_ptr<InputPage>> inputs_;
  std::vector<Dib> dibs_;  // borrowed
};

}  // namespace
}  // namespace rastrel::pages

using namespace rastrel;
using namespace rastrel::pages;

HGLOBAL RASTREL_CALL FlipPage(HGLOBAL page, int direction) {
  return Made(page, [&](const Dib& dib) { return Flip(dib, DirectionFrom(direction)); });
}

HGLOBAL RASTREL_CALL TurnPage(HGLOBAL page, int quarters) {
  return Made(page, [&](const Dib& dib) { return Turn(dib, quarters % 4); });
}

HGLOBAL RASTREL_CALL RotatePage(HGLOBAL page, double degrees, int ground) {
  return Made(
      page, [&](const Dib& dib) { return Rotate(dib, Degrees(degrees), GroundOf(dib, GroundFrom(ground))); });
}

HGLOBAL RASTREL_CALL StraightenPage(HGLOBAL page, double degrees, int isSmooth, int keepsSize, int ground) {
  return Made(page, [&](const Dib& dib) {
    return Straighten(dib, Degrees(degrees), GroundOf(dib, GroundFrom(ground)),
                      {.isSmooth = isSmooth != 0, .keepsSize = keepsSize != 0});
  });
}

HGLOBAL RASTREL_CALL SkewPage(HGLOBAL page, int direction, int shift, int ground) {
  return Made(page, [&](const Dib& dib) {
    InRange(shift, -kMostShift, kMostShift, "a shift is -10000 to 10000 pixels");
    return Skew(dib, DirectionFrom(direction), shift, GroundOf(dib, GroundFrom(ground)));
  });
}

HGLOBAL RASTREL_CALL DeskewPage(HGLOBAL page, int isTextLight) {
  return Made(page, [&](const Dib& dib) { return Deskew(dib, isTextLight == 0); });
}

HGLOBAL RASTREL_CALL CropPage(HGLOBAL page, int left, int top, int width, int height) {
  return Made(page, [&](const Dib& dib) {
    const PageView view(dib);
    const auto end = [](int from, int length, int side) {
      return length == 0 ? side : static_cast<int>(std::min<int64_t>(int64_t{from} + length, INT_MAX));
    };
    return Crop(dib, {left, top, end(left, width, view.width()), end(top, height, view.height())});
  });
}

HGLOBAL RASTREL_CALL CropPageSheet(HGLOBAL page, double sharePercent, int margin, int isSheetDark) {
  return Made(page, [&](const Dib& dib) {
    InRange(sharePercent, 1.0, 100.0, "a share is 1 to 100 percent");
    InRange(margin, -1000, 1000, "a margin is -1000 to 1000 pixels");
    return Crop(dib, SheetArea(dib, {.share = sharePercent, .margin = margin, .isLight = isSheetDark == 0}));
  });
}

int RASTREL_CALL CutPage(HGLOBAL page, int rows, HGLOBAL* upper, HGLOBAL* lower) {
  return Guarded(0, [&] {
    Require(upper != nullptr && lower != nullptr, "there is no room for the result");
    const InputPage input(page);
    std::vector<Dib> pieces = Cut(input.dib(), rows);
    *upper = pieces[0].Release();
    *lower = pieces[1].Release();
    return 1;
  });
}

int32_t RASTREL_CALL SplitPage(HGLOBAL page, int width, int height, HGLOBAL* tiles, int32_t capacity) {
  return Guarded<int32_t>(0, [&] {
    const InputPage input(page);
    const PageView view(input.dib());
    const int32_t count = CountTiles(view.width(), view.height(), width, height);
    if (tiles == nullptr) return count;
    Require(capacity >= count, "there is no room for all tiles");
    std::vector<Dib> made = Split(input.dib(), width, height);
    for (size_t i = 0; i < made.size(); ++i) tiles[i] = made[i].Release();
    return static_cast<int32_t>(made.size());
  });
}

HGLOBAL RASTREL_CALL MergePages(const HGLOBAL* pages, int32_t count, int32_t columns) {
  return Guarded<HGLOBAL>(nullptr, [&] {
    Require(columns > 0, "there are no columns");
    const InputPages inputs(pages, count);
    return Merge(inputs.dibs(), static_cast<size_t>(columns)).Release();
  });
}

HGLOBAL RASTREL_CALL TrimPage(HGLOBAL page) {
  return Made(page, [](const Dib& dib) { return Trim(dib); });
}

HGLOBAL RASTREL_CALL FillPageHoles(HGLOBAL page, int size) {
  return Made(page, [&](const Dib& dib) {
    InRange<int>(size, HolesAny, 40, "a size of holes is -4 to 40");
    return FillHoles(dib, size == HolesAny ? std::nullopt : std::optional(size));
  });
}

HGLOBAL RASTREL_CALL DespecklePage(HGLOBAL page, int level, int filtersFully) {
  return Made(page, [&](const Dib& dib) {
    return Despeckle(dib, InRange(level, 20, 100, "a level is 20 to 100"), filtersFully != 0);
  });
}

HGLOBAL RASTREL_CALL DitherPage(HGLOBAL page, int method, int bits) {
  return Made(page, [&](const Dib& dib) {
    const auto kernel = static_cast<Diffusion>(InRange(method, 0, 1, "there is no such dither"));
    return Dither(dib, kernel, Depth(bits, {1, 4, 8}));
  });
}

HGLOBAL RASTREL_CALL DitherPageSmoothly(HGLOBAL page, int bits) {
  return Made(page, [&](const Dib& dib) { return DitherBlocksSmoothly(dib, Depth(bits, {1, 4})); });
}

HGLOBAL RASTREL_CALL DitherPageSharply(HGLOBAL page, int bits) {
  return Made(page, [&](const Dib& dib) { return DitherBlocksSharply(dib, Depth(bits, {1, 4})); });
}

HGLOBAL RASTREL_CALL HalftonePage(HGLOBAL page, int method, int brightness) {
  return Made(page, [&](const Dib& dib) {
    InRange(brightness, -kMostBrightness, kMostBrightness, "brightness is -255 to 255");
    return pages::Halftone(dib, static_cast<Halftoning>(InRange(method, 0, 2, "there is no such halftone")),
                           brightness);
  });
}

HGLOBAL RASTREL_CALL BinarizePage(HGLOBAL page, int quality, int isDoubled, int dithersPictures) {
  return Made(page, [&](const Dib& dib) {
    return ToBlackAndWhite(dib, {.isBest = InRange(quality, 0, 1, "there is no such quality") == 1,
                                 .timesAcross = isDoubled != 0 ? 2.0 : 1.0,
                                 .timesDown = isDoubled != 0 ? 2.0 : 1.0,
                                 .dithersPictures = dithersPictures != 0});
  });
}

HGLOBAL RASTREL_CALL GreyPage(HGLOBAL page, int formula, int smoothing) {
  return Made(page, [&](const Dib& dib) {
    return Grey(dib, static_cast<GreyFormula>(InRange(formula, 0, 1, "there is no such formula")),
                InRange(smoothing, 0, 2, "smoothing is 0 to 2"));
  });
}

HGLOBAL RASTREL_CALL InvertPage(HGLOBAL page) {
  return Made(page, [](const Dib& dib) { return Invert(dib); });
}

HGLOBAL RASTREL_CALL ColourPage(HGLOBAL page) {
  return Made(page, [](const Dib& dib) { return To24(dib); });
}

HGLOBAL RASTREL_CALL ExpandPage(HGLOBAL page) {
  return Guarded<HGLOBAL>(nullptr, [&] { return InputPage(page).Copy().Release(); });
}

HGLOBAL RASTREL_CALL ScalePage(HGLOBAL page, int width, int height, double percent, double dpi,
                               int interpolation) {
  return Made(page, [&](const Dib& dib) {
    InRange(width, 0, kMostSide, "sides are 0 to 65535 pixels");
    InRange(height, 0, kMostSide, "sides are 0 to 65535 pixels");
    InRange(percent, 0.0, 6400.0, "a percentage is 0 to 6400");
    InRange(dpi, 0.0, 20000.0, "a resolution is 0 to 20000 dots per inch");
    Require((width > 0 || height > 0) + (percent > 0) + (dpi > 0) == 1,
            "scaling needs one of a size, a percentage and dots per inch");
    return Scale(dib, {double(width), double(height), percent, dpi, IsCubic(interpolation)});
  });
}

HGLOBAL RASTREL_CALL ScaleGreyPage(HGLOBAL page, int across, int down, int interpolation) {
  return Made(page, [&](const Dib& dib) {
    return ScaleGrey(dib, InRange(across, 1, 1000, "a factor is 1 to 1000"),
                     InRange(down, 0, 1000, "a factor is 0 to 1000"), IsCubic(interpolation));
  });
}

HGLOBAL RASTREL_CALL CombinePages(HGLOBAL page, HGLOBAL other, HGLOBAL mask, int x, int y, int how) {
  return Made(page, [&](const Dib& dib) {
    InRange(x, -kMostSide, kMostSide, "x is -65535 to 65535");
    InRange(y, -kMostSide, kMostSide, "y is -65535 to 65535");
    const CombineOptions options = {
        .x = x, .y = y, .how = static_cast<Combination>(InRange(how, 0, 1, "there is no such combination"))};
    const InputPage laidOn(other);
    if (mask == nullptr) return Combine(dib, laidOn.dib(), Dib(), options);
    const InputPage stencil(mask);
    return Combine(dib, laidOn.dib(), stencil.dib(), options);
  });
}
