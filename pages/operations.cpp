#include "pages/operations.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <numeric>

#include "pages/binarize.h"
#include "pages/model.h"
#include "pages/polarity.h"
#include "pages/text.h"

namespace rastrel::pages {
namespace {

constexpr int kMaxTurnedSide = 0xFFFF;  // RotateDIB takes the low 16 bits of a side
constexpr int kMaxScaledSide = 0xFFFF;  // as ScaleDIB
constexpr int kMaxGreySide = 0x7FFF;    // ScaleGrayDIB counts in 16 bits with a sign

// What the operations say no to without a reason is asked here, so that there is one to tell.
void RequireDepth(const Dib& page, std::initializer_list<int> depths) {
  const int bits = PageView(page).bits();
  if (std::find(depths.begin(), depths.end(), bits) == depths.end()) {
    throw PageError(Text("pages of ", Count(bits, "bit"), " are not taken"));
  }
}

void RequireMoreBits(const Dib& page, int bits) {
  if (PageView(page).bits() <= bits) {
    throw PageError(Text("the page has ", Count(PageView(page).bits(), "bit"), " already"));
  }
}

constexpr int kUsualDpi = 300;  // where nobody knows
constexpr double kMillimetresPerInch = 25.4;
constexpr double kMostKnownDpi = 20000;  // what a resolution is taken for at most

// Stains and large letters have some tone as well. What is dithered is as large as a photograph, and fills
// its box.
constexpr int kPictureSide = 30;    // mm
constexpr int kPictureFilled = 70;  // percent

// Where a page has photographs.
BitPlane PhotographsOf(const PageView& page, const BytePlane& grey, int dpi) {
  const PageModel model = UnderstandPage(page, !FindPolarity(grey).textIsLight, dpi);
  BitPlane mask(grey.width(), grey.height());
  const Pictures& pictures = model.pictures;
  const int side = pictures.cell();
  const double leastSide = kPictureSide * (dpi > 0 ? dpi : kUsualDpi) / kMillimetresPerInch;
  for (const PictureRegion& region : pictures.regions()) {
    const Box& box = region.box;
    if (region.kind != PictureKind::kTone || std::min(box.width(), box.height()) < leastSide) continue;
    const int64_t boxCells = int64_t{box.width() / side} * (box.height() / side);
    if (region.cellCount * 100 < boxCells * kPictureFilled) continue;
    for (int y = box.top; y < std::min(box.bottom, mask.height()); ++y) {
      for (int x = box.left; x < std::min(box.right, mask.width()); ++x) {
        if (pictures.At(x, y) == PictureKind::kTone) mask.Set(x, y);
      }
    }
  }
  return mask;
}

// ---- geometry ---------------------------------------------------------------------------------------------

// Tiles are cut at whole groups of 32 bits in a row.
int64_t TileStep(const Dib& page) { return 32 / std::gcd(PageView(page).bits(), 32); }

// Throws where joining the tiles would not give a picture.
void CheckGrid(std::span<const Dib> tiles, size_t columns) {
  if (tiles.size() % columns != 0) {
    throw PageError(
        Text(Count(static_cast<int64_t>(tiles.size()), "page"), " cannot fill rows of ", columns));
  }
  const PageView first(tiles[0]);
  for (size_t i = 0; i < tiles.size(); ++i) {
    const PageView tile(tiles[i]), above(tiles[i % columns]), left(tiles[i - i % columns]);
    const auto colours = tile.palette();
    const auto isSame = [](RGBQUAD a, RGBQUAD b) { return std::memcmp(&a, &b, 3) == 0; };
    if (tile.bits() != first.bits() ||
        !std::equal(colours.begin(), colours.end(), first.palette().begin(), first.palette().end(), isSame)) {
      throw PageError(Text("page ", i + 1, " differs from the first in depth or colours"));
    }
    if (tile.width() != above.width() || tile.height() != left.height()) {
      throw PageError(Text("page ", i + 1, " has another size than its row or column"));
    }
    if (i % columns != columns - 1 && tile.width() % TileStep(tiles[i]) != 0) {
      throw PageError(Text("pages of ", Count(tile.bits(), "bit"),
                           " are joined where they are a multiple of ", TileStep(tiles[i]), " pixels wide"));
    }
  }
}

// ---- the sheet --------------------------------------------------------------------------------------------

// The page row at which the rows of `part` stand in `whole`, from column `left` on.
int FindRows(const Dib& whole, int left, const Dib& part) {
  const Dib columns = Crop(whole, {left, 0, left + PageView(part).width(), PageView(whole).height()});
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

// ---- cleaning ---------------------------------------------------------------------------------------------

// On 1-bit pages the filter counts set bits: it takes specks away where those are the dark ones.
void ExchangeBlackAndWhite(const Dib& dib) {
  const PageView view(dib);
  std::swap(view.palette()[0], view.palette()[1]);
  ExchangeWithZero(view, {{1, 0, 0}});
}

// ---- scaling ----------------------------------------------------------------------------------------------

int Scaled(int length, double factor) {
  const double scaled = std::round(length * factor);
  return scaled <= kMaxScaledSide ? std::max(static_cast<int>(scaled), 1) : kMaxScaledSide + 1;
}

}  // namespace

Ink GroundOf(const Dib& page, Ground ground) { return ExtremeInk(PageView(page), ground == Ground::kWhite); }

// ---- geometry ---------------------------------------------------------------------------------------------

Dib Flip(const Dib& page, Direction direction) {
  const auto flip = direction == Direction::kHorizontal ? FlipDIBHorizontal : FlipDIBVertical;
  return Checked(flip(page.handle()), "no memory");
}

Dib Turn(const Dib& page, int quarters) { return Checked(TurnDIB(page.handle(), quarters)); }

Dib Rotate(const Dib& page, double degrees, Ink ground) {
  const PageView view(page);
  if (view.width() > kMaxTurnedSide || view.height() > kMaxTurnedSide) {
    throw PageError(Text("sides of more than ", kMaxTurnedSide, " pixels cannot be turned"));
  }
  return OnGround(page, ground, [&](const Dib& dib) { return Checked(RotateDIB(dib.handle(), degrees)); });
}

Dib Straighten(const Dib& page, double degrees, Ink ground, const StraightenOptions& options) {
  const int quality = (options.isSmooth ? 1 : 0) | (options.keepsSize ? STRAIGHTEN_SAME_SIZE : 0);
  return Checked(StraightenDIB(page.handle(), degrees, quality, ColourOf(PageView(page), ground)));
}

Dib Skew(const Dib& page, Direction direction, int shift, Ink ground) {
  return OnGround(page, ground, [&](const Dib& dib) {
    Dib result = Checked(SkewDIB(dib.handle(), direction == Direction::kHorizontal, shift, nullptr, nullptr));
    GlobalUnlock(dib.handle());  // the lock that SkewDIB leaves
    return result;
  });
}

Dib Deskew(const Dib& page, bool isTextDark) {
  RequireDepth(page, {1, 8, 24});
  const int degrees = DetectSkewAngle(page.handle(), isTextDark, 0, nullptr);
  if (degrees == 0) return Duplicate(page);
  return Rotate(page, -degrees, ExtremeInk(PageView(page), isTextDark));
}

Dib Crop(const Dib& page, const Area& area) {
  {
    const PageView view(page);
    if (area.left < 0 || area.top < 0 || area.left >= area.right || area.top >= area.bottom ||
        area.right > view.width() || area.bottom > view.height()) {
      throw PageError(Text("the rectangle does not lie inside the ", view.width(), " x ", view.height(),
                           " pixels of the page"));
    }
  }
  Dib result = Checked(CropDIB(page.handle(), area.left, area.top, area.right - 1, area.bottom - 1));
  GlobalUnlock(result.handle());  // the lock that CropDIB leaves
  return result;
}

std::vector<Dib> Cut(const Dib& page, int rows) {
  const int height = PageView(page).height();
  if (rows < 1 || rows >= height) throw PageError(Text("the page has ", Count(height, "row")));
  HGLOBAL lower = nullptr, upper = nullptr;
  if (CutDIB(page.handle(), rows, &lower, &upper) == 0) throw PageError("no memory");
  std::vector<Dib> pieces(2);
  pieces[0] = Dib(upper);
  pieces[1] = Dib(lower);
  for (const Dib& piece : pieces) {
    const PageView view(piece);
    view.header().biSizeImage = static_cast<uint32_t>(view.pixels().size());
  }
  return pieces;
}

Area SheetArea(const Dib& page, const SheetOptions& options) {
  const Dib seen = PageView(page).bits() == 1 ? Duplicate(page) : Halftone(page, Halftoning::kThreshold, 0);
  const PageView view(seen);
  const int quarter = std::min(view.width(), view.height()) / 4;
  if (std::abs(options.margin) >= quarter) {
    throw PageError(quarter == 0 ? "the page is too small to show a sheet"
                                 : "the margin has to be less than a quarter of the page");
  }
  const int isSheetZero = ExtremeInk(view, options.isLight).bytes[0] == 0 ? 1 : 0;
  const auto find = [&](const Dib& from) {
    return FindSheet(from, options.share / 100, options.margin, isSheetZero);
  };
  // Upside down as well: a dark picture on the sheet is no edge, nor is the fifth row from the bottom, where
  // CropToEdges begins.
  const Area there = find(seen), back = find(Turn(seen, 2));
  return {std::min(there.left, view.width() - back.right), std::min(there.top, view.height() - back.bottom),
          std::max(there.right, view.width() - back.left), std::max(there.bottom, view.height() - back.top)};
}

int CountTiles(int pageWidth, int pageHeight, int width, int height) {
  if (height == 0) height = width;
  if (width < 1 || height < 1) throw PageError("tiles have a width and a height", ErrParameter);
  const auto parts = [](int whole, int part) { return (int64_t{whole} + part - 1) / part; };
  const int64_t count = parts(pageWidth, width) * parts(pageHeight, height);
  constexpr int64_t kMostTiles = 1 << 24;  // handles of that many fill a table
  if (count > kMostTiles) throw PageError("tiles are too small for the page");
  return static_cast<int>(count);
}

std::vector<Area> TileAreas(int pageWidth, int pageHeight, int width, int height) {
  std::vector<Area> areas;
  areas.reserve(static_cast<size_t>(CountTiles(pageWidth, pageHeight, width, height)));
  if (height == 0) height = width;
  const int rest = pageHeight % height;  // the height of the top row, where there is one
  for (int64_t top = 0, bottom = rest > 0 ? rest : height; top < pageHeight; top = bottom, bottom += height) {
    for (int64_t left = 0; left < pageWidth; left += width) {
      const int64_t right = std::min<int64_t>(left + width, pageWidth);
      areas.push_back(
          {static_cast<int>(left), static_cast<int>(top), static_cast<int>(right), static_cast<int>(bottom)});
    }
  }
  return areas;
}

std::vector<Dib> Split(const Dib& page, int width, int height) {
  if (height == 0) height = width;
  {
    const PageView view(page);
    CountTiles(view.width(), view.height(), width, height);  // checks them
  }
  if (width % TileStep(page) != 0) {
    throw PageError(Text("tiles of a page of ", Count(PageView(page).bits(), "bit"), " are a multiple of ",
                         TileStep(page), " pixels wide"));
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

Dib Merge(std::span<const Dib> tiles, size_t columns) {
  if (tiles.empty() || columns == 0) throw PageError("there is nothing to join");
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

// ---- cleaning ---------------------------------------------------------------------------------------------

Dib Trim(const Dib& page) {
  RequireDepth(page, {1, 8, 24});
  return Checked(TrimBlackBorder(page.handle()), "no memory");
}

Dib FillHoles(const Dib& page, std::optional<int> size) {
  RequireDepth(page, {1, 8, 24});
  const Resolution resolution = PageView(page).resolution();
  if (resolution.x != resolution.y) throw PageError("its resolutions across and down differ");
  return Checked(size ? PunchHoleRemover(page.handle(), *size, 0, nullptr)
                      : AutoPunchHoleRemover(page.handle(), 0, nullptr),
                 "no memory");
}

Dib Despeckle(const Dib& page, int level, bool filtersFully) {
  const auto filter = [&](const Dib& dib) {
    return Checked(CleanImage(dib.handle(), level, filtersFully),
                   "only grey pages of 1 or 8 bits are taken; `grey` makes one");
  };
  const bool isDarkFirst = PageView(page).bits() == 1 && HasGreyRamp(PageView(page));
  if (!isDarkFirst) return filter(page);
  const Dib lightFirst = Duplicate(page);
  ExchangeBlackAndWhite(lightFirst);
  Dib filtered = filter(lightFirst);
  ExchangeBlackAndWhite(filtered);
  return filtered;
}

// ---- tone -------------------------------------------------------------------------------------------------

Dib Dither(const Dib& page, Diffusion kernel, int bits) {
  RequireMoreBits(page, bits);
  return Checked((kernel == Diffusion::kFloydSteinberg ? DitherFS4 : DitherJJN)(page.handle(), bits));
}

Dib DitherBlocksSmoothly(const Dib& page, int bits) {
  RequireMoreBits(page, bits);
  return Checked(DitherSmooth(page.handle(), bits));
}

Dib DitherBlocksSharply(const Dib& page, int bits) {
  RequireMoreBits(page, bits);
  return Checked(DitherSharp(page.handle(), bits));
}

Dib Halftone(const Dib& page, Halftoning method, int brightness) {
  RequireDepth(page, {4, 8, 24});
  const Dib grey = PageView(page).bits() == 24 ? ToGrey(page) : Dib();
  uint16_t error = ErrSuccess;
  const HGLOBAL result =
      ::Halftone((grey ? grey : page).handle(), static_cast<uint16_t>(method), brightness, &error);
  if (result == nullptr) SetRastrelError(error);
  return Checked(result);
}

Dib ToBlackAndWhite(const Dib& page, const BlackAndWhiteOptions& options) {
  RequireDepth(page, {4, 8, 24});
  const PageView view(page);
  const BytePlane grey = GreyOf(view);
  BinarizeOptions binarize;
  binarize.quality = options.isBest ? BinarizeQuality::kBest : BinarizeQuality::kFast;
  binarize.dpi = static_cast<int>(std::clamp(DotsPerInch(view.resolution().x), 0.0, kMostKnownDpi));
  const auto times = [](int32_t number, double factor) {
    return static_cast<int64_t>(number * factor + 0.5);
  };
  const int64_t width = times(view.width(), options.timesAcross);
  const int64_t height = times(view.height(), options.timesDown);
  CheckSize(width, height, 8);  // of the greys in between
  binarize.width = static_cast<int>(width);
  binarize.height = static_cast<int>(height);
  BitPlane pictures;
  if (options.dithersPictures) {
    pictures = PhotographsOf(view, grey, binarize.dpi);
    binarize.pictures = &pictures;
  }
  const BitPlane black = Binarize(grey, binarize);
  Resolution resolution = view.resolution();
  const auto enlarge = [&](int32_t* perMetre, double factor) {
    const int64_t enlarged = times(*perMetre, factor);
    if (enlarged <= INT32_MAX) *perMetre = static_cast<int32_t>(enlarged);
  };
  enlarge(&resolution.x, options.timesAcross);
  enlarge(&resolution.y, options.timesDown);
  Dib result = MakePage(black.width(), black.height(), 1, resolution);
  PutInk(black, PageView(result));
  return result;
}

Dib Grey(const Dib& page, GreyFormula formula, int smoothing) {
  Dib wide;
  {
    const PageView view(page);
    // Of a page of 1 bit the library does not look at the colours.
    if (view.bits() == 4 || (view.bits() == 1 && !HasGreyRamp(view))) wide = WidenTo8(page);
  }
  const HGLOBAL source = (wide ? wide : page).handle();
  Dib grey = Checked(
      ConvColorDIBtoGrayscale(source, formula == GreyFormula::kWeighted, static_cast<uint32_t>(smoothing)));
  GlobalUnlock(source);  // the lock that the conversion leaves
  UseGreyRamp(PageView(grey));
  return grey;
}

Dib Invert(const Dib& page) {
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

Dib To24(const Dib& page) {
  const int bits = PageView(page).bits();
  if (bits == 24) return Duplicate(page);
  const Dib wide = bits < 8 ? WidenTo8(page) : Dib();
  return Checked(Convert8to24((wide ? wide : page).handle()));
}

// ---- scaling ----------------------------------------------------------------------------------------------

Dib Scale(const Dib& page, const ScaleOptions& options) {
  const auto& [width, height, percent, dpi, isCubic] = options;
  const PageView view(page);
  const Resolution old = view.resolution();
  double across = percent / 100, down = percent / 100;
  if (dpi > 0) {
    if (old.x <= 0 || old.y <= 0) throw PageError("the page has no resolution");
    across = dpi / DotsPerInch(old.x);
    down = dpi / DotsPerInch(old.y);
  } else if (percent == 0) {
    across = (width > 0 ? width / view.width() : height / view.height());
    down = height > 0 ? height / view.height() : across;
  }
  const int newWidth = Scaled(view.width(), across);
  const int newHeight = Scaled(view.height(), down);
  if (std::max({view.width(), view.height(), newWidth, newHeight}) > kMaxScaledSide) {
    throw PageError(Text(view.width(), " x ", view.height(), " pixels to ", newWidth, " x ", newHeight,
                         ": sides of more than ", kMaxScaledSide, " are not scaled"));
  }
  CheckSize(newWidth, newHeight, view.bits());
  const auto scale = [&, isCubicScale = isCubic](const Dib& dib) {
    SetRastrelError(ErrNoMemory);  // scaling of 1-bit pages sets none
    return Checked(ScaleDIB(dib.handle(), isCubicScale, newWidth, newHeight));
  };
  // Enlarged pages of 1 bit may end in a row and a column of 0.
  Dib result = view.bits() == 1 ? OnGround(page, ExtremeInk(view, /*light=*/true), scale) : scale(page);
  BITMAPINFOHEADER& header = PageView(result).header();
  header.biSizeImage = static_cast<uint32_t>(PageView(result).pixels().size());
  if (dpi > 0) header.biXPelsPerMeter = header.biYPelsPerMeter = PixelsPerMetre(dpi);
  return result;
}

Dib ScaleGrey(const Dib& page, int across, int down, bool isCubic) {
  if (down == 0) down = across;
  const Dib grey = Grey(page);
  const PageView view(grey);
  if (int64_t{view.width()} * across > kMaxGreySide || int64_t{view.height()} * down > kMaxGreySide) {
    throw PageError(Text("the result would be wider or taller than ", kMaxGreySide, " pixels"));
  }
  Dib result = Checked(ScaleGrayDIB(grey.handle(), 0, 0, static_cast<int16_t>(view.width()),
                                    static_cast<int16_t>(view.height()), static_cast<int16_t>(across),
                                    static_cast<int16_t>(down), isCubic),
                       "no memory");
  // On a full ramp the library's greys are all one too low, and black wraps to white.
  for (uint8_t& level : PageView(result).pixels()) ++level;
  return result;
}

// ---- combining --------------------------------------------------------------------------------------------

Dib Combine(const Dib& page, const Dib& other, const Dib& mask, const CombineOptions& options) {
  if (mask) {
    const PageView stencil(mask), laidOn(other);
    if (stencil.width() != laidOn.width() || stencil.height() != laidOn.height()) {
      throw PageError(Text("the mask has ", stencil.width(), " x ", stencil.height(),
                           " pixels, the page laid on has ", laidOn.width(), " x ", laidOn.height()));
    }
  }
  Dib result = Duplicate(page);
  HGLOBAL destination = result.handle();
  if (CombineDIB(options.x, options.y, &destination, other.handle(), mask.handle(),
                 options.how == Combination::kDarkest) == 0) {
    throw PageError(LibraryError(), RastrelError());
  }
  return result;
}

}  // namespace rastrel::pages
