// The single operations on a page, each a function with what it needs as arguments. They leave the pages that
// they are given as they were, and throw PageError where one cannot be worked on.
#ifndef RASTREL_PAGES_OPERATIONS_H
#define RASTREL_PAGES_OPERATIONS_H

#include <optional>
#include <span>
#include <vector>

#include "pages/page.h"

namespace rastrel::pages {

// What stands where an operation uncovers something.
enum class Ground { kWhite, kBlack };
// The page's lightest or darkest ink.
Ink GroundOf(const Dib& page, Ground ground);

enum class Direction { kHorizontal, kVertical };

// ---- geometry ---------------------------------------------------------------------------------------------

// Exchanges left and right, or top and bottom.
Dib Flip(const Dib& page, Direction direction);
// By quarters, counter-clockwise, keeping every pixel.
Dib Turn(const Dib& page, int quarters);
// By any angle, counter-clockwise, taking nearest pixels; sizes come out even.
Dib Rotate(const Dib& page, double degrees, Ink ground);
// By any angle, smoothly unless `isSmooth` says otherwise.
struct StraightenOptions {
  bool isSmooth = true;
  bool keepsSize = false;
};
Dib Straighten(const Dib& page, double degrees, Ink ground, const StraightenOptions& options = {});
// Shears by pixels: rows sideways, the top to the right, or columns upward.
Dib Skew(const Dib& page, Direction direction, int shift, Ink ground);
// Turns back by the whole degrees that are found.
Dib Deskew(const Dib& page, bool isTextDark);

// A rectangle of a page.
struct Area {
  int left, top, right, bottom;  // right and bottom lie outside
  int width() const { return right - left; }
  int height() const { return bottom - top; }
};
Dib Crop(const Dib& page, const Area& area);
// The upper `rows` rows and the others.
std::vector<Dib> Cut(const Dib& page, int rows);

struct SheetOptions {
  double share = 50;  // percent of a column or row that must be sheet for it to belong to the sheet
  int margin = 0;     // pixels left around it
  bool isLight = true;
};
// Where the scanned sheet is.
Area SheetArea(const Dib& page, const SheetOptions& options = {});

// How many tiles a page of so many pixels has; height 0: as the width.
int CountTiles(int pageWidth, int pageHeight, int width, int height);
// These, row by row from the top left. They are laid from the bottom left corner, so that those of the top
// row and of the rightmost column may be smaller.
std::vector<Area> TileAreas(int pageWidth, int pageHeight, int width, int height);
// Cuts them, a page each.
std::vector<Dib> Split(const Dib& page, int width, int height);
// One page of many, row by row from the top left.
Dib Merge(std::span<const Dib> tiles, size_t columns);

// ---- cleaning ---------------------------------------------------------------------------------------------

// Whitens the dark ends of rows.
Dib Trim(const Dib& page);
// Whitens the holes at the left edge: those of a size as PunchHoleRemover takes it, or of any.
Dib FillHoles(const Dib& page, std::optional<int> size);
Dib Despeckle(const Dib& page, int level, bool filtersFully);

// ---- tone -------------------------------------------------------------------------------------------------

enum class Diffusion { kFloydSteinberg, kJarvisJudiceNinke };
// To 1, 4 or 8 bits.
Dib Dither(const Dib& page, Diffusion kernel, int bits);
// To 1 or 4 bits.
Dib DitherBlocksSmoothly(const Dib& page, int bits);
Dib DitherBlocksSharply(const Dib& page, int bits);

enum class Halftoning { kThreshold, kDiffusion, kOrdered };
Dib Halftone(const Dib& page, Halftoning method, int brightness);

// Adaptive black and white: text sharp under any light (see pages/binarize.h).
struct BlackAndWhiteOptions {
  bool isBest = false;  // slower, and closer to what a person would trace
  // Smoothed to so many times the resolution, 1 to 8.
  double timesAcross = 1, timesDown = 1;
  bool dithersPictures = true;
};
Dib ToBlackAndWhite(const Dib& page, const BlackAndWhiteOptions& options = {});

enum class GreyFormula { kWeighted, kAverage };
// Smoothing (0 to 2) is for black-and-white pages.
Dib Grey(const Dib& page, GreyFormula formula = GreyFormula::kWeighted, int smoothing = 0);
Dib Invert(const Dib& page);
Dib To24(const Dib& page);

// ---- scaling ----------------------------------------------------------------------------------------------

// One of a size (0: in proportion), a percentage and a resolution.
struct ScaleOptions {
  double width = 0, height = 0, percent = 0, dpi = 0;
  bool isCubic = false;
};
Dib Scale(const Dib& page, const ScaleOptions& options);
// To 8-bit grey, enlarged by whole factors. `down` 0: as across.
Dib ScaleGrey(const Dib& page, int across, int down, bool isCubic);

// ---- combining --------------------------------------------------------------------------------------------

enum class Combination { kDarkest, kOver };
struct CombineOptions {
  int x = 0, y = 0;  // where the left and top edge of the other page go
  Combination how = Combination::kDarkest;
};
// Lays another page on this one; where the mask (may be empty) is dark the other counts as black.
Dib Combine(const Dib& page, const Dib& other, const Dib& mask, const CombineOptions& options);

}  // namespace rastrel::pages

#endif
