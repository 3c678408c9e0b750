#include "operations.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <map>
#include <numeric>

#include <fmt/format.h>

#include "page_io.h"
#include "system.h"

namespace rastrel::tool {
namespace {

// ---- running ----------------------------------------------------------------------------------------------

std::string Count(int64_t number, std::string_view thing) {
  return fmt::format("{} {}{}", number, thing, number == 1 ? "" : "s");
}

// What the operations say no to without a reason is asked here, so that there is one to tell.
void RequireDepth(const Dib& page, std::initializer_list<int> depths) {
  const int bits = PageView(page).bits();
  if (std::find(depths.begin(), depths.end(), bits) == depths.end()) {
    throw PageError(fmt::format("pages of {} are not taken", Count(bits, "bit")));
  }
}

void RequireMoreBits(const Dib& page, int bits) {
  if (PageView(page).bits() <= bits) {
    throw PageError(fmt::format("the page has {} already", Count(PageView(page).bits(), "bit")));
  }
}

constexpr int kWhite = 0;

Ink GroundOf(const Dib& page, double fill) {
  return ExtremeInk(PageView(page), static_cast<int>(fill) == kWhite);
}

Dib RunRotate(const Dib& page, const Values& values) {
  const Ink ground = GroundOf(page, values[1]);
  return Rotate(page, values[0], ground);
}

Dib RunStraighten(const Dib& page, const Values& values) {
  const PageView view(page);
  const COLORREF ground = ColourOf(view, ExtremeInk(view, static_cast<int>(values[3]) == kWhite));
  const int quality = static_cast<int>(values[1]) | (values[2] == 1 ? STRAIGHTEN_SAME_SIZE : 0);
  return Checked(StraightenDIB(page.handle(), values[0], quality, ground));
}

// RotateDIB90 and its siblings are RotateDIB by that angle.
template <int Degrees>
Dib RunQuarterTurn(const Dib& page, const Values& values) {
  const Ink ground = GroundOf(page, values[0]);
  return Rotate(page, Degrees, ground);
}

Dib RunSkew(const Dib& page, const Values& values) {
  const Ink ground = GroundOf(page, values[2]);
  const int isHorizontal = values[0] == 0;
  return OnGround(page, ground, [&] {
    return Checked(SkewDIB(page.handle(), isHorizontal, static_cast<int>(values[1]), nullptr, nullptr));
  });
}

Dib RunDeskew(const Dib& page, const Values& values) {
  RequireDepth(page, {1, 8, 24});
  const bool isDark = values[0] == 0;
  const int degrees = DetectSkewAngle(page.handle(), isDark, 0, nullptr);
  if (degrees == 0) return Duplicate(page);
  const Ink ground = ExtremeInk(PageView(page), isDark);
  return Rotate(page, -degrees, ground);
}

Dib RunTrim(const Dib& page, const Values&) {
  RequireDepth(page, {1, 8, 24});
  return Checked(TrimBlackBorder(page.handle()), "no memory");
}

Dib RunHoles(const Dib& page, const Values& values) {
  RequireDepth(page, {1, 8, 24});
  const Resolution resolution = PageView(page).resolution();
  if (resolution.x != resolution.y) throw PageError("its resolutions across and down differ");
  return Checked(values[0] == kAutomaticHoles
                     ? AutoPunchHoleRemover(page.handle(), 0, nullptr)
                     : PunchHoleRemover(page.handle(), static_cast<int>(values[0]), 0, nullptr),
                 "no memory");
}

// On 1-bit pages the filter counts set bits: it takes specks away where those are the dark ones.
template <class Filter>
Dib WithLightFirst(const Dib& page, Filter filter) {
  const auto exchange = [](const Dib& dib) {
    const PageView view(dib);
    std::swap(view.palette()[0], view.palette()[1]);
    ExchangeWithZero(view, {{1, 0, 0}});
  };
  exchange(page);
  Dib filtered = filter();
  exchange(filtered);
  exchange(page);
  return filtered;
}

Dib RunClean(const Dib& page, const Values& values) {
  const auto filter = [&] {
    return Checked(CleanImage(page.handle(), static_cast<int>(values[0]), static_cast<int>(values[1])),
                   "only grey pages of 1 or 8 bits are taken; `grey` makes one");
  };
  const bool isDarkFirst = PageView(page).bits() == 1 && HasGreyRamp(PageView(page));
  return isDarkFirst ? WithLightFirst(page, filter) : filter();
}

Dib RunDither(const Dib& page, const Values& values) {
  constexpr int kDepths[] = {1, 4, 8};
  const int bits = kDepths[static_cast<int>(values[1])];
  const auto dither = values[0] == 0 ? DitherFS4 : DitherJJN;
  RequireMoreBits(page, bits);
  return Checked(dither(page.handle(), bits));
}

Dib RunHalftone(const Dib& page, const Values& values) {
  RequireDepth(page, {4, 8, 24});
  const Dib grey = PageView(page).bits() == 24 ? ToGrey(page) : Dib();
  uint16_t error = ErrSuccess;
  const HGLOBAL result = Halftone((grey ? grey : page).handle(), static_cast<uint16_t>(values[0]),
                                  static_cast<int>(values[1]), &error);
  if (result == nullptr) SetRastrelError(error);
  return Checked(result);
}

// SharpDither and its sibling.
template <auto Dither>
Dib RunBlockDither(const Dib& page, const Values& values) {
  RequireMoreBits(page, values[0] == 0 ? 1 : 4);
  return Checked(Dither(page.handle(), values[0] == 0 ? 1 : 4));
}

Dib RunGrey(const Dib& page, const Values& values) {
  Dib wide;
  {
    const PageView view(page);
    // Of a page of 1 bit the library does not look at the colours.
    if (view.bits() == 4 || (view.bits() == 1 && !HasGreyRamp(view))) wide = WidenTo8(page);
  }
  Dib grey = Checked(ConvColorDIBtoGrayscale((wide ? wide : page).handle(), values[0] == 0,
                                             static_cast<uint32_t>(values[1])));
  UseGreyRamp(PageView(grey));
  return grey;
}

Dib RunFlip(const Dib& page, const Values& values) {
  return Checked((values[0] == 0 ? FlipDIBHorizontal : FlipDIBVertical)(page.handle()), "no memory");
}

Dib RunTurn(const Dib& page, const Values& values) {
  return Checked(TurnDIB(page.handle(), static_cast<int>(values[0])));
}

Dib RunInvert(const Dib& page, const Values&) {
  Dib negative = Duplicate(page);
  const PageView view(negative);
  if (view.bits() == 24) {
    for (uint8_t& byte : view.pixels()) byte = static_cast<uint8_t>(~byte);
  } else {
    InvertDIBPalette(negative.handle());
    UseGreyRamp(view);
  }
  return negative;
}

// Pages are expanded as they are read.
Dib RunExpand(const Dib& page, const Values&) { return Duplicate(page); }

Dib RunTo24(const Dib& page, const Values&) {
  const int bits = PageView(page).bits();
  if (bits == 24) return Duplicate(page);
  const Dib wide = bits < 8 ? WidenTo8(page) : Dib();
  return Checked(Convert8to24((wide ? wide : page).handle()));
}

// Tiles are cut at whole groups of 32 bits in a row.
int64_t TileStep(const Dib& page) { return 32 / std::gcd(PageView(page).bits(), 32); }

std::vector<Dib> RunSplit(const Dib& page, const Values& values) {
  const int width = static_cast<int>(values[0]);
  const int height = values[1] == 0 ? width : static_cast<int>(values[1]);
  if (width % TileStep(page) != 0) {
    throw PageError(fmt::format("tiles of a page of {} are a multiple of {} pixels wide",
                                Count(PageView(page).bits(), "bit"), TileStep(page)));
  }
  HGLOBAL array = nullptr;
  int grid[2] = {};
  if (SplitDIB(page.handle(), width, height, &array, grid) == 0) throw PageError("no memory");
  const Dib owner(array);
  const auto* handles = static_cast<const HGLOBAL*>(GlobalLock(array));
  std::vector<Dib> tiles;
  // The library counts from the bottom, people read from the top.
  for (int row = grid[1] - 1; row >= 0; --row) {
    for (int column = 0; column < grid[0]; ++column) tiles.emplace_back(handles[row * grid[0] + column]);
  }
  return tiles;
}

// Throws where joining the tiles would not give a picture.
void CheckGrid(std::span<const Dib> tiles, size_t columns) {
  if (tiles.size() % columns != 0) {
    throw PageError(
        fmt::format("{} cannot fill rows of {}", Count(static_cast<int64_t>(tiles.size()), "page"), columns));
  }
  const PageView first(tiles[0]);
  for (size_t i = 0; i < tiles.size(); ++i) {
    const PageView tile(tiles[i]), above(tiles[i % columns]), left(tiles[i - i % columns]);
    const auto colours = tile.palette();
    const auto isSame = [](RGBQUAD a, RGBQUAD b) { return std::memcmp(&a, &b, 3) == 0; };
    if (tile.bits() != first.bits() ||
        !std::equal(colours.begin(), colours.end(), first.palette().begin(), first.palette().end(), isSame)) {
      throw PageError(fmt::format("page {} differs from the first in depth or colours", i + 1));
    }
    if (tile.width() != above.width() || tile.height() != left.height()) {
      throw PageError(fmt::format("page {} has another size than its row or column", i + 1));
    }
    if (i % columns != columns - 1 && tile.width() % TileStep(tiles[i]) != 0) {
      throw PageError(fmt::format("pages of {} are joined where they are a multiple of {} pixels wide",
                                  Count(tile.bits(), "bit"), TileStep(tiles[i])));
    }
  }
}

Dib RunMerge(std::span<const Dib> tiles, const Values& values) {
  const auto columns = static_cast<size_t>(values[0]);
  CheckGrid(tiles, columns);
  const size_t rows = tiles.size() / columns;
  const Dib array(GlobalAlloc(GMEM_MOVEABLE, tiles.size() * sizeof(HGLOBAL)));
  auto* handles = static_cast<HGLOBAL*>(GlobalLock(array.handle()));
  if (handles == nullptr) throw PageError("no memory");
  for (size_t i = 0; i < tiles.size(); ++i) {
    handles[(rows - 1 - i / columns) * columns + i % columns] = tiles[i].handle();
  }
  return Checked(MergeDIBs(array.handle(), static_cast<int>(columns), static_cast<int>(rows)), "no memory");
}

Dib FirstPage(const std::string& path) {
  try {
    const PageFile file = Inspect(path);
    if (file.pages.empty()) throw PageError(file.damage);
    return ReadPage(path, file.format, file.pages[0]);
  } catch (const PageError& error) {
    throw PageError(fmt::format("{} {}", path, error.what()));
  }
}

}  // namespace

class NamedPages {
 public:
  // The first page of the file, which stays as long as this object.
  const Dib& First(const std::string& path) {
    const Dib* first = nullptr;
    Exclusively([&] {
      Dib& page = pages_[path];
      if (!page) page = FirstPage(path);
      first = &page;
    });
    return *first;
  }

 private:
  std::map<std::string, Dib> pages_;
};

namespace {

Dib RunCombine(const Dib& page, const Values& values) {
  static const Dib kNoMask;
  const Dib& source = values.files->First(values.texts[0]);
  const Dib& mask = values.texts[4].empty() ? kNoMask : values.files->First(values.texts[4]);
  if (mask) {
    const PageView stencil(mask), other(source);
    if (stencil.width() != other.width() || stencil.height() != other.height()) {
      throw PageError(fmt::format("the mask has {} x {} pixels, the page laid on has {} x {}",
                                  stencil.width(), stencil.height(), other.width(), other.height()));
    }
  }
  Dib result = Duplicate(page);
  HGLOBAL destination = result.handle();
  if (CombineDIB(static_cast<int>(values[1]), static_cast<int>(values[2]), &destination, source.handle(),
                 mask.handle(), values[3] == 0) == 0) {
    throw PageError(LibraryError());
  }
  return result;
}

// A rectangle of a page, with the sides inclusive.
Dib Crop(const Dib& page, int left, int top, int right, int bottom) {
  Dib result = Checked(CropDIB(page.handle(), left, top, right, bottom));
  GlobalUnlock(result.handle());  // the lock that CropDIB leaves
  return result;
}

Dib RunCrop(const Dib& page, const Values& values) {
  const auto left = static_cast<int>(values[0]), top = static_cast<int>(values[1]);
  const PageView view(page);
  const int width = values[2] == 0 ? view.width() - left : static_cast<int>(values[2]);
  const int height = values[3] == 0 ? view.height() - top : static_cast<int>(values[3]);
  if (width < 1 || height < 1 || left + width > view.width() || top + height > view.height()) {
    throw PageError(fmt::format("the rectangle does not lie inside the {} x {} pixels of the page",
                                view.width(), view.height()));
  }
  return Crop(page, left, top, left + width - 1, top + height - 1);
}

// Black and white by a threshold in the middle.
Dib BlackAndWhite(const Dib& page) {
  constexpr double kThreshold = 0;
  return PageView(page).bits() == 1 ? Duplicate(page) : FindOperation("halftone")->run(page, {{kThreshold}});
}

// The page row at which the rows of `part` stand in `whole`, from column `left` on.
int FindRows(const Dib& whole, int left, const Dib& part) {
  const Dib columns = Crop(whole, left, 0, left + PageView(part).width() - 1, PageView(whole).height() - 1);
  const PageView rows(columns), wanted(part);
  const int last = rows.height() - wanted.height();
  int bottom = 0;  // counted from the bottom, as rows lie
  while (bottom < last && std::memcmp(rows.pixels().data() + static_cast<size_t>(bottom) * rows.stride(),
                                      wanted.pixels().data(), wanted.pixels().size()) != 0) {
    ++bottom;
  }
  return last - bottom;
}

// Where the sheet is, from its left edge to the first column that has too little of it.
Area FindSheet(const Dib& seen, double share, int margin, int isSheetZero) {
  uint32_t right = 0;
  const Dib sheet = Checked(CropToEdges(seen.handle(), share, &right, margin, isSheetZero, 1));
  const PageView view(sheet);
  const int left = static_cast<int>(right) - view.width();
  const int top = FindRows(seen, left, sheet);
  return {left, top, static_cast<int>(right), top + view.height()};
}

Dib RunCropSheet(const Dib& page, const Values& values) {
  const Area sheet = SheetArea(page, values);
  return Crop(page, sheet.left, sheet.top, sheet.right - 1, sheet.bottom - 1);
}

std::vector<Dib> RunCut(const Dib& page, const Values& values) {
  const auto rows = static_cast<int>(values[0]);
  const int height = PageView(page).height();
  if (rows >= height) throw PageError(fmt::format("the page has {}", Count(height, "row")));
  HGLOBAL lower = nullptr, upper = nullptr;
  if (CutDIB(page.handle(), rows, &lower, &upper) == 0) throw PageError("no memory");
  std::vector<Dib> pieces;
  pieces.emplace_back(upper);
  pieces.emplace_back(lower);
  for (const Dib& piece : pieces) {
    const PageView view(piece);
    view.header().biSizeImage = static_cast<uint32_t>(view.pixels().size());
  }
  return pieces;
}

int Scaled(int length, double factor) { return static_cast<int>(std::lround(length * factor)); }

void CheckScale(const Values& values) {
  const auto [width, height, percent, dpi, method] = values.numbers;
  if ((width > 0 || height > 0) + (percent > 0) + (dpi > 0) != 1) {
    throw UsageError("scale: needs one of a size, a percentage and dots per inch");
  }
}

Dib RunScale(const Dib& page, const Values& values) {
  const auto [width, height, percent, dpi, method] = values.numbers;
  const PageView view(page);
  const Resolution old = view.resolution();
  double across = percent / 100, down = percent / 100;
  if (dpi > 0) {
    across = dpi / DotsPerInch(old.x);
    down = dpi / DotsPerInch(old.y);
  } else if (percent == 0) {
    across = (width > 0 ? width / view.width() : height / view.height());
    down = height > 0 ? height / view.height() : across;
  }
  constexpr int kMostSide = 0xFFFF;
  const int newWidth = std::max(Scaled(view.width(), across), 1);
  const int newHeight = std::max(Scaled(view.height(), down), 1);
  if (std::max({view.width(), view.height(), newWidth, newHeight}) > kMostSide) {
    throw PageError(fmt::format("{} x {} pixels to {} x {}: sides of more than {} are not scaled",
                                view.width(), view.height(), newWidth, newHeight, kMostSide));
  }
  CheckSize(newWidth, newHeight, view.bits());
  const auto scale = [&, isCubic = method == 1] {
    SetRastrelError(ErrNoMemory);  // scaling of 1-bit pages sets none
    return Checked(ScaleDIB(page.handle(), isCubic, newWidth, newHeight));
  };
  // Enlarged pages of 1 bit may end in a row and a column of 0.
  Dib result = view.bits() == 1 ? OnGround(page, ExtremeInk(view, /*light=*/true), scale) : scale();
  BITMAPINFOHEADER& header = PageView(result).header();
  header.biSizeImage = static_cast<uint32_t>(PageView(result).pixels().size());
  if (dpi > 0) header.biXPelsPerMeter = header.biYPelsPerMeter = PixelsPerMetre(dpi);
  return result;
}

Dib RunScaleGrey(const Dib& page, const Values& values) {
  constexpr int kMostSide = 0x7FFF;
  const auto across = static_cast<int16_t>(values[0]);
  const auto down = values[1] == 0 ? across : static_cast<int16_t>(values[1]);
  const Dib grey = FindOperation("grey")->run(page, {});
  const PageView view(grey);
  if (int64_t{view.width()} * across > kMostSide || int64_t{view.height()} * down > kMostSide) {
    throw PageError(fmt::format("the result would be wider or taller than {} pixels", kMostSide));
  }
  Dib result = Checked(
      ScaleGrayDIB(grey.handle(), 0, 0, static_cast<int16_t>(view.width()),
                   static_cast<int16_t>(view.height()), across, down, static_cast<int16_t>(values[2])),
      "no memory");
  // On a full ramp the library's greys are all one too low, and black wraps to white.
  for (uint8_t& level : PageView(result).pixels()) ++level;
  return result;
}

// ---- the table --------------------------------------------------------------------------------------------

using namespace std::string_view_literals;
constexpr std::string_view kGrounds[] = {"white"sv, "black"sv};
constexpr std::string_view kDirections[] = {"h"sv, "v"sv};
constexpr std::string_view kCombinations[] = {"and"sv, "over"sv};
constexpr std::string_view kText[] = {"dark"sv, "light"sv};
constexpr std::string_view kNoYes[] = {"no"sv, "yes"sv};
constexpr std::string_view kDithers[] = {"fs"sv, "jjn"sv};
constexpr std::string_view kDitherDepths[] = {"1"sv, "4"sv, "8"sv};
constexpr std::string_view kFormulas[] = {"weighted"sv, "average"sv};
constexpr std::string_view kSheets[] = {"light"sv, "dark"sv};
constexpr std::string_view kInterpolations[] = {"bilinear"sv, "cubic"sv};
constexpr std::string_view kSmoothings[] = {"0"sv, "1"sv, "2"sv};
constexpr std::string_view kHalftones[] = {"threshold"sv, "diffusion"sv, "ordered"sv};

constexpr Parameter kFill = {
    .name = "fill", .help = "what the uncovered corners become", .choices = kGrounds};

constexpr Parameter kRotate[] = {{.name = "angle",
                                  .help = "degrees, counter-clockwise",
                                  .isRequired = true,
                                  .least = -360,
                                  .most = 360,
                                  .isWhole = false},
                                 kFill};
constexpr std::string_view kQualities[] = {"nearest"sv, "smooth"sv};
constexpr std::string_view kSizes[] = {"whole"sv, "same"sv};
constexpr Parameter kStraighten[] = {
    {.name = "angle",
     .help = "degrees, counter-clockwise",
     .isRequired = true,
     .least = -360,
     .most = 360,
     .isWhole = false},
    {.name = "quality",
     .help = "how a pixel is made of those where it came from",
     .defaultValue = 1,
     .choices = kQualities},
    {.name = "size", .help = "of the whole turned page, or the page's own", .choices = kSizes},
    kFill};
constexpr Parameter kQuarterTurn[] = {kFill};
constexpr Parameter kSkew[] = {
    {.name = "direction",
     .help = "h moves rows sideways, v moves columns up and down",
     .isRequired = true,
     .choices = kDirections},
    {.name = "shift",
     .help = "pixels; a positive shift moves the top edge to the right, or columns up",
     .isRequired = true,
     .least = -10000,
     .most = 10000},
    kFill};
constexpr Parameter kDeskew[] = {{.name = "text", .help = "which of the two is the text", .choices = kText}};
constexpr Parameter kHoles[] = {{.name = "size",
                                 .help = "auto measures each hole of more than 4 mm; -3, -2, -1, 0 for holes "
                                         "of 9, 7, 5, 4 mm, or n of 1 and more for n / 2 "
                                         "+ 2 mm",
                                 .defaultValue = kAutomaticHoles,
                                 .least = -3,
                                 .most = 40,
                                 .word = "auto",
                                 .wordValue = kAutomaticHoles}};
constexpr Parameter kClean[] = {
    {.name = "level",
     .help = "on 1-bit pages what has fewer than level x 8 / 100 dark neighbours goes; on grey pages the "
             "neighbour of rank level x 9 / 100, from the darkest, is taken",
     .defaultValue = 40,
     .least = 20,
     .most = 100},
    {.name = "full", .help = "filter every pixel, not only those that look like specks", .choices = kNoYes}};
constexpr Parameter kDither[] = {
    {.name = "method", .help = "Floyd-Steinberg or Jarvis-Judice-Ninke", .choices = kDithers},
    {.name = "bits", .help = "the new depth; less than the page has", .choices = kDitherDepths}};
constexpr Parameter kBlockDither[] = {{.name = "bits",
                                       .help = "the new depth; less than the page has",
                                       .choices = std::span(kDitherDepths).first(2)}};
constexpr Parameter kGrey[] = {
    {.name = "formula", .help = "(8 R + 15 G + 3 B) / 26, or (R + G + B) / 3", .choices = kFormulas},
    {.name = "smoothing",
     .help = "for black-and-white pages: none, or over 3 x 3 or 5 x 5 pixels",
     .choices = kSmoothings}};
constexpr Parameter kHalftone[] = {{.name = "method",
                                    .help = "a fixed threshold, error diffusion or a 16 x 16 pattern",
                                    .choices = kHalftones},
                                   {.name = "brightness",
                                    .help = "added to every grey first",
                                    .defaultValue = 0,
                                    .least = -255,
                                    .most = 255}};

constexpr Parameter kFlip[] = {{.name = "direction",
                                .help = "h exchanges left and right, v top and bottom",
                                .isRequired = true,
                                .choices = kDirections}};
constexpr Parameter kTurn[] = {{.name = "quarters",
                                .help = "quarter turns counter-clockwise; -1 is one clockwise",
                                .isRequired = true,
                                .least = -3,
                                .most = 3}};
constexpr Parameter kSplit[] = {
    {.name = "width", .help = "of a tile, in pixels", .isRequired = true, .least = 1, .most = 65535},
    {.name = "height", .help = "of a tile; 0: as the width", .least = 0, .most = 65535}};
constexpr Parameter kMerge[] = {
    {.name = "columns", .help = "pages in a row", .isRequired = true, .least = 1, .most = 65535}};
constexpr Parameter kCombine[] = {
    {.name = "file", .help = "the other page; the first one of its file", .isRequired = true, .isFile = true},
    {.name = "x", .help = "where its left edge goes, in pixels", .least = -65535, .most = 65535},
    {.name = "y", .help = "where its top edge goes", .least = -65535, .most = 65535},
    {.name = "how",
     .help = "and: what is dark in either stays dark; over: it covers",
     .choices = kCombinations},
    {.name = "mask",
     .help = "a page of the other's size; where it is dark the other counts as black",
     .isFile = true}};

constexpr Parameter kCrop[] = {
    {.name = "left", .help = "the first column", .isRequired = true, .least = 0, .most = 65535},
    {.name = "top", .help = "the first row", .isRequired = true, .least = 0, .most = 65535},
    {.name = "width", .help = "in pixels; 0: up to the edge", .least = 0, .most = 65535},
    {.name = "height", .help = "in pixels; 0: up to the edge", .least = 0, .most = 65535}};
constexpr Parameter kCropSheet[] = {
    {.name = "share",
     .help = "how many percent of a column or row must be sheet for it to belong to the sheet",
     .defaultValue = 50,
     .least = 1,
     .most = 100},
    {.name = "margin",
     .help = "pixels left around the sheet, less than a quarter of the page",
     .least = -1000,
     .most = 1000},
    {.name = "sheet", .help = "which of the two is the sheet", .choices = kSheets}};
constexpr Parameter kCut[] = {
    {.name = "rows", .help = "of the upper piece", .isRequired = true, .least = 1, .most = 1e6}};
constexpr Parameter kScale[] = {
    {.name = "width", .help = "in pixels", .least = 0, .most = 65535},
    {.name = "height", .help = "in pixels; 0: in proportion", .least = 0, .most = 65535},
    {.name = "percent", .help = "of the size that the page has", .least = 0, .most = 6400, .isWhole = false},
    {.name = "dpi",
     .help = "the new resolution; the page keeps its size in inches",
     .least = 0,
     .most = 20000,
     .isWhole = false},
    {.name = "method", .help = "what lies between pixels, but at 1 bit", .choices = kInterpolations}};
constexpr Parameter kScaleGrey[] = {
    {.name = "factor", .help = "how many pixels one becomes", .isRequired = true, .least = 1, .most = 1000},
    {.name = "down", .help = "the same for rows; 0: as across", .least = 0, .most = 1000},
    {.name = "method", .help = "what lies between pixels", .choices = kInterpolations}};

constexpr Operation kOperations[] = {
    {"flip", "Mirrors the page.", "", "1, 4, 8, 24", kFlip, RunFlip},
    {"turn", "Turns the page by quarters, keeping every pixel.", "", "1, 4, 8, 24", kTurn, RunTurn},
    {"rotate", "Turns the page by any angle.",
     "The result holds the whole turned page; its width and height are even numbers.", "1, 4, 8, 24", kRotate,
     RunRotate},
    {"straighten", "Turns the page by any angle, smoothly.",
     "Pages of 8 bits are smoothed when their colours are greys; strokes of black-and-white pages keep their "
     "weight.",
     "1, 4, 8, 24", kStraighten, RunStraighten},
    {"rotate90", "Turns the page by 90 degrees counter-clockwise.",
     "Sizes come out even, and a line of pixels may be lost.", "1, 4, 8, 24", kQuarterTurn,
     RunQuarterTurn<90>},
    {"rotate180", "Turns the page upside down.", "Sizes come out even, and a line of pixels may be lost.",
     "1, 4, 8, 24", kQuarterTurn, RunQuarterTurn<180>},
    {"rotate270", "Turns the page by 90 degrees clockwise.",
     "Sizes come out even, and a line of pixels may be lost.", "1, 4, 8, 24", kQuarterTurn,
     RunQuarterTurn<270>},
    {"skew", "Shears the page; it grows by the shift.", "", "1, 4, 8, 24", kSkew, RunSkew},
    {"deskew", "Turns the page back by the whole degrees that its lines are found to rise or fall.",
     "A page without skew stays as it is.", "1, 8, 24", kDeskew, RunDeskew},
    {"trim",
     "Whitens the dark margins at the left and right end of every row.",
     "Pages of 8 bits are painted with the last entry of their colour table.",
     "1, 8, 24",
     {},
     RunTrim},
    {"holes", "Whitens the punch holes at the left edge.",
     "The page needs the same resolution across and down. Whatever is as dark and as large as a hole in the "
     "left "
     "19 mm is taken for one.",
     "1, 8, 24", kHoles, RunHoles},
    {"clean", "Removes specks.",
     "Without `full`, 1-bit pages change only where fewer than 4 of the 8 neighbours are dark, grey pages "
     "only where "
     "they are nearly black or nearly white. Levels below 38 also darken what has 2 or 3 dark neighbours.",
     "1, 8 (grey)", kClean, RunClean},
    {"dither", "Reduces to 1, 4 or 8 bits by error diffusion.", "", "4, 8, 24", kDither, RunDither},
    {"halftone", "Reduces to black and white.", "Pages of 24 bits are turned to grey first.", "4, 8, 24",
     kHalftone, RunHalftone},
    {"smooth-dither", "Reduces to 1 or 4 bits by spreading the tone of small blocks, for photographs.", "",
     "4, 8, 24", kBlockDither, RunBlockDither<DitherSmooth>},
    {"sharp-dither", "The same with harder edges, for text and drawings.", "", "4, 8, 24", kBlockDither,
     RunBlockDither<DitherSharp>},
    {"grey", "Turns the page to 8-bit grey.",
     "Smoothing of 1 moves the picture up by a row, of 2 by two rows.", "1, 4, 8, 24", kGrey, RunGrey},
    {"invert", "Makes the page its negative.", "", "1, 4, 8, 24", {}, RunInvert},
    {"expand",
     "Gives a page whose rows are not compressed.",
     "Every page is: run-length compressed bitmap files are expanded as they are read.",
     "1, 4, 8, 24",
     {},
     RunExpand},
    {"to24", "Turns the page to 24-bit colour.", "", "1, 4, 8, 24", {}, RunTo24},
    {"crop", "Cuts a rectangle out of the page.", "", "1, 4, 8, 24", kCrop, RunCrop},
    {"crop-sheet", "Cuts the scanned sheet out of its surround.",
     "The sheet ends at the first column, from its left edge on, that has too little of it. Pages of more "
     "than "
     "1 bit are judged by a threshold of 128; what is cut out keeps its depth.",
     "1, 4, 8, 24", kCropSheet, RunCropSheet},
    {"cut", "Cuts the page across into an upper and a lower one.", "", "1, 4, 8, 24", kCut, nullptr, RunCut},
    {"scale", "Scales the page, as in scale:1240, scale:percent=50 or scale:dpi=150,method=cubic.",
     "Pixels are sampled, not averaged: make text pages grey before they become much smaller. With cubic the "
     "bottom row blends into black.",
     "1, 4, 8, 24", kScale, RunScale, nullptr, nullptr, CheckScale},
    {"scale-grey", "Turns the page to 8-bit grey and enlarges it by whole factors.", "", "1, 4, 8, 24",
     kScaleGrey, RunScaleGrey},
    {"split", "Cuts the page into tiles, a page each, row by row from the top left.",
     "Tiles are counted from the bottom and from the left, so what is left over is in the first row and the "
     "last "
     "column. Their width is a multiple of 32 pixels at 1 bit, 8 at 4 bits, 4 at 8 and 24 bits.",
     "1, 4, 8, 24", kSplit, nullptr, RunSplit},
    {"merge", "Joins pages into one, row by row from the top left.",
     "All pages that would go to one file are joined: those of all inputs, or, with a folder as output, "
     "those of each "
     "file. They have the depth and colours of the first, and widths that `split` would make.",
     "1, 4, 8, 24", kMerge, nullptr, nullptr, RunMerge},
    {"combine", "Lays another page onto this one.",
     "The page keeps its size and depth; colours become the nearest that it has. What does not lie on it is "
     "left out.",
     "1, 4, 8, 24", kCombine, RunCombine},
};

// ---- text -------------------------------------------------------------------------------------------------

std::string Number(double value) {
  return value == std::trunc(value) ? fmt::format("{}", static_cast<int64_t>(value))
                                    : fmt::format("{:g}", value);
}

std::string Upper(std::string_view text) {
  std::string upper;
  for (const char c : text) upper += c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  return upper;
}

std::vector<std::string_view> Split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  while (true) {
    const size_t end = text.find(separator);
    parts.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return parts;
    text.remove_prefix(end + 1);
  }
}

std::string Names() {
  std::vector<std::string_view> names;
  for (const Operation& operation : kOperations) names.push_back(operation.name);
  return fmt::format("{}", fmt::join(names, ", "));
}

}  // namespace

std::span<const Operation> Operations() { return kOperations; }

const Operation* FindOperation(std::string_view name) {
  for (const Operation& operation : kOperations) {
    if (operation.name == name) return &operation;
  }
  return nullptr;
}

const Parameter& FindParameter(std::string_view operation, std::string_view parameter) {
  const Operation* found = FindOperation(operation);
  for (const Parameter& candidate : found->parameters) {
    if (candidate.name == parameter) return candidate;
  }
  throw std::logic_error("no such parameter");
}

double ParseValue(const Parameter& parameter, std::string_view text, std::string_view what) {
  if (!parameter.choices.empty()) {
    const auto choice = std::find(parameter.choices.begin(), parameter.choices.end(), text);
    if (choice != parameter.choices.end()) return static_cast<double>(choice - parameter.choices.begin());
  } else if (!text.empty() && text == parameter.word) {
    return parameter.wordValue;
  } else {
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error == std::errc() && end == text.data() + text.size() && value >= parameter.least &&
        value <= parameter.most && (!parameter.isWhole || value == std::trunc(value))) {
      return value;
    }
  }
  throw UsageError(fmt::format("{}: '{}' is not {}", what, text, RangeText(parameter)));
}

Step ParseStep(std::string_view text) {
  const size_t colon = text.find(':');
  const std::string_view name = text.substr(0, colon);
  Step step{FindOperation(name)};
  if (step.operation == nullptr)
    throw UsageError(fmt::format("no operation '{}'; there are {}", name, Names()));
  const std::span<const Parameter> parameters = step.operation->parameters;
  std::array<bool, kMostParameters> isGiven{};
  for (size_t i = 0; i < parameters.size(); ++i) step.values.numbers[i] = parameters[i].defaultValue;

  size_t position = 0;
  if (colon != std::string_view::npos) {
    for (const std::string_view part : Split(text.substr(colon + 1), ',')) {
      std::string_view value = part;
      size_t place = position++;
      if (const size_t equals = part.find('='); equals != std::string_view::npos) {
        const std::string_view wanted = part.substr(0, equals);
        value = part.substr(equals + 1);
        place = 0;
        while (place < parameters.size() && parameters[place].name != wanted) ++place;
        if (place == parameters.size()) throw UsageError(fmt::format("{}: no parameter '{}'", name, wanted));
      }
      if (place >= parameters.size()) {
        throw UsageError(fmt::format("{}: too many values; it is {}", name, Synopsis(*step.operation)));
      }
      if (parameters[place].isFile) {
        if (!step.values.files) step.values.files = std::make_shared<NamedPages>();
        step.values.texts[place] = value;
      } else {
        step.values.numbers[place] =
            ParseValue(parameters[place], value, fmt::format("{}: {}", name, parameters[place].name));
      }
      isGiven[place] = true;
    }
  }
  for (size_t i = 0; i < parameters.size(); ++i) {
    const bool isEmpty = parameters[i].isFile && step.values.texts[i].empty();
    if (parameters[i].isRequired && (!isGiven[i] || isEmpty)) {
      throw UsageError(
          fmt::format("{}: {} is missing; it is {}", name, parameters[i].name, Synopsis(*step.operation)));
    }
  }
  if (step.operation->check != nullptr) step.operation->check(step.values);
  return step;
}

Area SheetArea(const Dib& page, const Values& values) {
  const Dib seen = BlackAndWhite(page);
  const auto margin = static_cast<int>(values[1]);
  const PageView view(seen);
  const int quarter = std::min(view.width(), view.height()) / 4;
  if (std::abs(margin) >= quarter) {
    throw PageError(quarter == 0 ? "the page is too small to show a sheet"
                                 : "the margin has to be less than a quarter of the page");
  }
  const bool isLight = values[2] == 0;
  const int isSheetZero = ExtremeInk(view, isLight).bytes[0] == 0 ? 1 : 0;
  const auto find = [&](const Dib& from) { return FindSheet(from, values[0] / 100, margin, isSheetZero); };
  // Upside down as well: a dark picture on the sheet is no edge, nor is the fifth row from the bottom, where
  // CropToEdges begins.
  const Area there = find(seen), back = find(Checked(TurnDIB(seen.handle(), 2)));
  return {std::min(there.left, view.width() - back.right), std::min(there.top, view.height() - back.bottom),
          std::max(there.right, view.width() - back.left), std::max(there.bottom, view.height() - back.top)};
}

std::vector<Dib> RunStep(const Step& step, std::span<const Dib> pages) {
  const Operation& operation = *step.operation;
  std::vector<Dib> results;
  if (operation.merge != nullptr) results.push_back(operation.merge(pages, step.values));
  for (const Dib& page : pages) {
    if (operation.run != nullptr) results.push_back(operation.run(page, step.values));
    if (operation.split == nullptr) continue;
    std::vector<Dib> parts = operation.split(page, step.values);
    std::move(parts.begin(), parts.end(), std::back_inserter(results));
  }
  return results;
}

std::string Wrapped(std::string_view text, size_t width, const std::string& indent) {
  std::string lines;
  std::string line = indent;
  for (const std::string_view word : Split(text, ' ')) {
    if (line.size() > indent.size() && line.size() + 1 + word.size() > width) {
      lines += line + '\n';
      line = indent + std::string(indent.empty() ? 0 : 2, ' ');
    } else if (line.size() > indent.size()) {
      line += ' ';
    }
    line += word;
  }
  return lines + line;
}

std::string Synopsis(const Operation& operation) {
  std::string text(operation.name);
  std::string closing;
  for (size_t i = 0; i < operation.parameters.size(); ++i) {
    if (!operation.parameters[i].isRequired) {
      text += '[';
      closing += ']';
    }
    text += i == 0 ? ':' : ',';
    text += Upper(operation.parameters[i].name);
  }
  return text + closing;
}

std::string RangeText(const Parameter& parameter) {
  if (parameter.isFile) return "a file";
  if (!parameter.choices.empty()) return fmt::format("one of {}", fmt::join(parameter.choices, ", "));
  return fmt::format("{}a {}number from {} to {}",
                     parameter.word.empty() ? "" : fmt::format("{} or ", parameter.word),
                     parameter.isWhole ? "whole " : "", Number(parameter.least), Number(parameter.most));
}

std::string DefaultText(const Parameter& parameter) {
  if (parameter.isRequired || parameter.isFile) return "";
  if (!parameter.word.empty() && parameter.defaultValue == parameter.wordValue) {
    return std::string(parameter.word);
  }
  if (parameter.choices.empty()) return Number(parameter.defaultValue);
  return std::string(parameter.choices[static_cast<size_t>(parameter.defaultValue)]);
}

std::string OperationsHelp() {
  constexpr size_t kWidth = 100;
  std::string text;
  for (const Operation& operation : kOperations) {
    text += Synopsis(operation) + '\n';
    text +=
        Wrapped(fmt::format("{} Depths: {}.", operation.summary, operation.depths), kWidth, "    ") + '\n';
    for (const Parameter& parameter : operation.parameters) {
      const std::string standard = DefaultText(parameter);
      text += Wrapped(fmt::format("{}: {}; {}{}", Upper(parameter.name), parameter.help, RangeText(parameter),
                                  standard.empty() ? "" : fmt::format(" ({})", standard)),
                      kWidth, "    ") +
              '\n';
    }
  }
  return text;
}

std::string OperationsMarkdown() {
  std::string text =
      "# Operations\n\n"
      "`rastrel apply IN... -o OUT OPERATION...` runs any of these on a page, in the order given. Values "
      "follow the\n"
      "name after a colon, by place (`rotate:3.5,black`) or by name (`rotate:angle=3.5,fill=black`).\n\n"
      "This page is what `rastrel apply --markdown` prints.\n";
  for (const Operation& operation : kOperations) {
    text += fmt::format("\n## {}\n\n`{}`\n\n{}{}{}\n\nDepths: {} bits.\n", operation.name,
                        Synopsis(operation), operation.summary, operation.details.empty() ? "" : " ",
                        operation.details, operation.depths);
    if (operation.parameters.empty()) continue;
    text += "\n| parameter | values | default | |\n|---|---|---|---|\n";
    for (const Parameter& parameter : operation.parameters) {
      const std::string standard = DefaultText(parameter);
      text += fmt::format("| {} | {} | {} | {} |\n", parameter.name, RangeText(parameter),
                          !standard.empty()      ? standard
                          : parameter.isRequired ? "none: required"
                                                 : "none",
                          parameter.help);
    }
  }
  return text;
}

}  // namespace rastrel::tool
