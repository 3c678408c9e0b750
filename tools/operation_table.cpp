// The table of operations: name, help, parameters and the call of each stand together.
#include <algorithm>

#include "tools/operations.h"

namespace rastrel::tool {
namespace {

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
constexpr std::string_view kBinarizeQualities[] = {"fast"sv, "best"sv};
constexpr std::string_view kResolutions[] = {"same"sv, "double"sv};
constexpr std::string_view kPictures[] = {"dither"sv, "no"sv};
constexpr std::string_view kHalftones[] = {"threshold"sv, "diffusion"sv, "ordered"sv};

constexpr std::string_view kQualities[] = {"nearest"sv, "smooth"sv};
constexpr std::string_view kSizes[] = {"whole"sv, "same"sv};

constexpr Parameter kFill = {
    .name = "fill", .help = "what the uncovered corners become", .choices = kGrounds};
constexpr Parameter kAngle = {.name = "angle",
                              .help = "degrees, counter-clockwise",
                              .isRequired = true,
                              .least = -360,
                              .most = 360,
                              .isWhole = false};

}  // namespace

constexpr Parameter kHoleSize = {.name = "size",
                                 .help =
                                     "auto measures each hole of more than 4 mm; -3, -2, -1, 0 for holes of "
                                     "9, 7, 5, 4 mm, or n of 1 and more for n / 2 + 2 mm",
                                 .defaultValue = HolesAny,
                                 .least = -3,
                                 .most = 40,
                                 .word = "auto",
                                 .wordValue = HolesAny};
constexpr Parameter kSpeckLevel = {
    .name = "level",
    .help =
        "on 1-bit pages what has fewer than level x 8 / 100 dark neighbours goes; on grey pages the "
        "neighbour of rank level x 9 / 100, from the darkest, is taken",
    .defaultValue = 40,
    .least = 20,
    .most = 100};
constexpr Parameter kBrightness = {
    .name = "brightness", .help = "added to every grey first", .defaultValue = 0, .least = -255, .most = 255};

namespace {

bool Add(RawPage* page, std::vector<Raw>* parts) {
  if (page != nullptr) parts->emplace_back(page);
  return page != nullptr;
}

constexpr Operation kOperations[] = {
    {.name = "flip",
     .summary = "Mirrors the page.",
     .depths = "1, 4, 8, 24",
     .slots = {Parameter{.name = "direction",
                         .help = "h exchanges left and right, v top and bottom",
                         .isRequired = true,
                         .choices = kDirections}},
     .run = [](HGLOBAL page, const Values& v) { return FlipPage(page, v.Whole(0)); },
     .move = [](const RawPage* page, const Values& v,
                std::vector<Raw>* parts) { return Add(FlipRawPage(page, v.Whole(0)), parts); }},
    {.name = "turn",
     .summary = "Turns the page by quarters, keeping every pixel.",
     .depths = "1, 4, 8, 24",
     .slots = {Parameter{.name = "quarters",
                         .help = "quarter turns counter-clockwise; -1 is one clockwise",
                         .isRequired = true,
                         .least = -3,
                         .most = 3}},
     .run = [](HGLOBAL page, const Values& v) { return TurnPage(page, v.Whole(0)); },
     .move = [](const RawPage* page, const Values& v,
                std::vector<Raw>* parts) { return Add(TurnRawPage(page, v.Whole(0)), parts); }},
    {.name = "rotate",
     .summary = "Turns the page by any angle.",
     .details = "The result holds the whole turned page; its width and height are even numbers.",
     .depths = "1, 4, 8, 24",
     .slots = {kAngle, kFill},
     .run = [](HGLOBAL page, const Values& v) { return RotatePage(page, v[0], v.Whole(1)); }},
    {.name = "straighten",
     .summary = "Turns the page by any angle, smoothly.",
     .details = "Pages of 8 bits are smoothed when their colours are greys; strokes of black-and-white pages "
                "keep their weight.",
     .depths = "1, 4, 8, 24",
     .slots = {kAngle,
               Parameter{.name = "quality",
                         .help = "how a pixel is made of those where it came from",
                         .defaultValue = 1,
                         .choices = kQualities},
               Parameter{
                   .name = "size", .help = "of the whole turned page, or the page's own", .choices = kSizes},
               kFill},
     .run = [](HGLOBAL page,
               const Values& v) { return StraightenPage(page, v[0], v[1] == 1, v[2] == 1, v.Whole(3)); }},
    {.name = "rotate90",
     .summary = "Turns the page by 90 degrees counter-clockwise.",
     .details = "Sizes come out even, and a line of pixels may be lost.",
     .depths = "1, 4, 8, 24",
     .slots = {kFill},
     .run = [](HGLOBAL page, const Values& v) { return RotatePage(page, 90, v.Whole(0)); }},
    {.name = "rotate180",
     .summary = "Turns the page upside down.",
     .details = "Sizes come out even, and a line of pixels may be lost.",
     .depths = "1, 4, 8, 24",
     .slots = {kFill},
     .run = [](HGLOBAL page, const Values& v) { return RotatePage(page, 180, v.Whole(0)); }},
    {.name = "rotate270",
     .summary = "Turns the page by 90 degrees clockwise.",
     .details = "Sizes come out even, and a line of pixels may be lost.",
     .depths = "1, 4, 8, 24",
     .slots = {kFill},
     .run = [](HGLOBAL page, const Values& v) { return RotatePage(page, 270, v.Whole(0)); }},
    {.name = "skew",
     .summary = "Shears the page; it grows by the shift.",
     .depths = "1, 4, 8, 24",
     .slots = {Parameter{.name = "direction",
                         .help = "h moves rows sideways, v moves columns up and down",
                         .isRequired = true,
                         .choices = kDirections},
               Parameter{.name = "shift",
                         .help = "pixels; a positive shift moves the top edge to the right, or columns up",
                         .isRequired = true,
                         .least = -10000,
                         .most = 10000},
               kFill},
     .run = [](HGLOBAL page, const Values& v) { return SkewPage(page, v.Whole(0), v.Whole(1), v.Whole(2)); }},
    {.name = "deskew",
     .summary = "Turns the page back by the whole degrees that its lines are found to rise or fall.",
     .details = "A page without skew stays as it is.",
     .depths = "1, 8, 24",
     .slots = {Parameter{.name = "text", .help = "which of the two is the text", .choices = kText}},
     .run = [](HGLOBAL page, const Values& v) { return DeskewPage(page, v.Whole(0)); }},
    {.name = "trim",
     .summary = "Whitens the dark margins at the left and right end of every row.",
     .details = "Pages of 8 bits are painted with the last entry of their colour table.",
     .depths = "1, 8, 24",
     .run = [](HGLOBAL page, const Values&) { return TrimPage(page); }},
    {.name = "holes",
     .summary = "Whitens the punch holes at the left edge.",
     .details = "The page needs the same resolution across and down. Whatever is as dark and as large as a "
                "hole in the left 19 mm is taken for one.",
     .depths = "1, 8, 24",
     .slots = {kHoleSize},
     .run = [](HGLOBAL page, const Values& v) { return FillPageHoles(page, v.Whole(0)); }},
    {.name = "clean",
     .summary = "Removes specks.",
     .details = "Without `full`, 1-bit pages change only where fewer than 4 of the 8 neighbours are dark, "
                "grey pages only where they are nearly black or nearly white. Levels below 38 also darken "
                "what has 2 or 3 dark neighbours.",
     .depths = "1, 8 (grey)",
     .slots = {kSpeckLevel, Parameter{.name = "full",
                                      .help = "filter every pixel, not only those that look like specks",
                                      .choices = kNoYes}},
     .run = [](HGLOBAL page, const Values& v) { return DespecklePage(page, v.Whole(0), v.Whole(1)); }},
    {.name = "dither",
     .summary = "Reduces to 1, 4 or 8 bits by error diffusion.",
     .depths = "4, 8, 24",
     .slots = {Parameter{
                   .name = "method", .help = "Floyd-Steinberg or Jarvis-Judice-Ninke", .choices = kDithers},
               Parameter{.name = "bits",
                         .help = "the new depth; less than the page has",
                         .choices = kDitherDepths}},
     .run =
         [](HGLOBAL page, const Values& v) {
           return DitherPage(page, v.Whole(0), v[1] == 0 ? 1 : v[1] == 1 ? 4 : 8);
         }},
    {.name = "halftone",
     .summary = "Reduces to black and white.",
     .details = "Pages of 24 bits are turned to grey first.",
     .depths = "4, 8, 24",
     .slots = {Parameter{.name = "method",
                         .help = "a fixed threshold, error diffusion or a 16 x 16 pattern",
                         .choices = kHalftones},
               kBrightness},
     .run = [](HGLOBAL page, const Values& v) { return HalftonePage(page, v.Whole(0), v.Whole(1)); }},
    {.name = "binarize",
     .summary = "Reduces to black and white, text sharp under any light.",
     .details =
         "What is ink is judged against the paper around it; specks go, light text on dark stays light.",
     .depths = "4, 8, 24",
     .slots = {Parameter{.name = "quality",
                         .help = "a threshold that follows the paper, or a minimum cut, which takes longer",
                         .choices = kBinarizeQualities},
               Parameter{.name = "resolution",
                         .help = "the page's own, or smoothed to twice of it",
                         .choices = kResolutions},
               Parameter{.name = "pictures",
                         .help = "error diffusion for photographs, or the same as for text",
                         .choices = kPictures}},
     .run = [](HGLOBAL page,
               const Values& v) { return BinarizePage(page, v.Whole(0), v.Whole(1), v[2] == 0); }},
    {.name = "smooth-dither",
     .summary = "Reduces to 1 or 4 bits by spreading the tone of small blocks, for photographs.",
     .depths = "4, 8, 24",
     .slots = {Parameter{.name = "bits",
                         .help = "the new depth; less than the page has",
                         .choices = std::span(kDitherDepths).first(2)}},
     .run = [](HGLOBAL page, const Values& v) { return DitherPageSmoothly(page, v[0] == 0 ? 1 : 4); }},
    {.name = "sharp-dither",
     .summary = "The same with harder edges, for text and drawings.",
     .depths = "4, 8, 24",
     .slots = {Parameter{.name = "bits",
                         .help = "the new depth; less than the page has",
                         .choices = std::span(kDitherDepths).first(2)}},
     .run = [](HGLOBAL page, const Values& v) { return DitherPageSharply(page, v[0] == 0 ? 1 : 4); }},
    {.name = "grey",
     .summary = "Turns the page to 8-bit grey.",
     .details = "Smoothing of 1 moves the picture up by a row, of 2 by two rows.",
     .depths = "1, 4, 8, 24",
     .slots = {Parameter{.name = "formula",
                         .help = "(8 R + 15 G + 3 B) / 26, or (R + G + B) / 3",
                         .choices = kFormulas},
               Parameter{.name = "smoothing",
                         .help = "for black-and-white pages: none, or over 3 x 3 or 5 x 5 pixels",
                         .choices = kSmoothings}},
     .run = [](HGLOBAL page, const Values& v) { return GreyPage(page, v.Whole(0), v.Whole(1)); }},
    {.name = "invert",
     .summary = "Makes the page its negative.",
     .depths = "1, 4, 8, 24",
     .run = [](HGLOBAL page, const Values&) { return InvertPage(page); }},
    {.name = "expand",
     .summary = "Gives a page whose rows are not compressed.",
     .details = "Every page is: run-length compressed bitmap files are expanded as they are read.",
     .depths = "1, 4, 8, 24",
     .run = [](HGLOBAL page, const Values&) { return ExpandPage(page); }},
    {.name = "to24",
     .summary = "Turns the page to 24-bit colour.",
     .depths = "1, 4, 8, 24",
     .run = [](HGLOBAL page, const Values&) { return ColourPage(page); }},
    {.name = "crop",
     .summary = "Cuts a rectangle out of the page.",
     .depths = "1, 4, 8, 24",
     .slots = {Parameter{
                   .name = "left", .help = "the first column", .isRequired = true, .least = 0, .most = 65535},
               Parameter{
                   .name = "top", .help = "the first row", .isRequired = true, .least = 0, .most = 65535},
               Parameter{.name = "width", .help = "in pixels; 0: up to the edge", .least = 0, .most = 65535},
               Parameter{
                   .name = "height", .help = "in pixels; 0: up to the edge", .least = 0, .most = 65535}},
     .run = [](HGLOBAL page,
               const Values& v) { return CropPage(page, v.Whole(0), v.Whole(1), v.Whole(2), v.Whole(3)); },
     .move =
         [](const RawPage* page, const Values& v, std::vector<Raw>* parts) {
           return Add(CropRawPage(page, v.Whole(0), v.Whole(1), v.Whole(2), v.Whole(3)), parts);
         }},
    {.name = "crop-sheet",
     .summary = "Cuts the scanned sheet out of its surround.",
     .details = "The sheet ends at the first column, from its left edge on, that has too little of it. Pages "
                "of more than 1 bit are judged by a threshold of 128; what is cut out keeps its depth.",
     .depths = "1, 4, 8, 24",
     .slots =
         {Parameter{.name = "share",
                    .help = "how many percent of a column or row must be sheet for it to belong to the sheet",
                    .defaultValue = 50,
                    .least = 1,
                    .most = 100},
          Parameter{.name = "margin",
                    .help = "pixels left around the sheet, less than a quarter of the page",
                    .least = -1000,
                    .most = 1000},
          Parameter{.name = "sheet", .help = "which of the two is the sheet", .choices = kSheets}},
     .run = [](HGLOBAL page, const Values& v) { return CropPageSheet(page, v[0], v.Whole(1), v.Whole(2)); }},
    {.name = "cut",
     .summary = "Cuts the page across into an upper and a lower one.",
     .depths = "1, 4, 8, 24",
     .slots = {Parameter{.name = "rows",
                         .help = "of the upper piece",
                         .isRequired = true,
                         .least = 1,
                         .most = 1e6}},
     .split =
         [](HGLOBAL page, const Values& v, std::vector<Page>* parts) {
           HGLOBAL upper = nullptr, lower = nullptr;
           if (CutPage(page, v.Whole(0), &upper, &lower) == 0) return false;
           parts->emplace_back(upper);
           parts->emplace_back(lower);
           return true;
         }},
    {.name = "scale",
     .summary = "Scales the page, as in scale:1240, scale:percent=50 or scale:dpi=150,method=cubic.",
     .details = "Pixels are sampled, not averaged: make text pages grey before they become much smaller. "
                "With cubic the bottom row blends into black.",
     .depths = "1, 4, 8, 24",
     .slots = {Parameter{.name = "width", .help = "in pixels", .least = 0, .most = 65535},
               Parameter{.name = "height", .help = "in pixels; 0: in proportion", .least = 0, .most = 65535},
               Parameter{.name = "percent",
                         .help = "of the size that the page has",
                         .least = 0,
                         .most = 6400,
                         .isWhole = false},
               Parameter{.name = "dpi",
                         .help = "the new resolution; the page keeps its size in inches",
                         .least = 0,
                         .most = 20000,
                         .isWhole = false},
               Parameter{.name = "method",
                         .help = "what lies between pixels, but at 1 bit",
                         .choices = kInterpolations}},
     .run = [](HGLOBAL page,
               const Values& v) { return ScalePage(page, v.Whole(0), v.Whole(1), v[2], v[3], v.Whole(4)); },
     .check =
         [](const Values& v) {
           if ((v[0] > 0 || v[1] > 0) + (v[2] > 0) + (v[3] > 0) != 1) {
             throw UsageError("scale: needs one of a size, a percentage and dots per inch");
           }
         }},
    {.name = "scale-grey",
     .summary = "Turns the page to 8-bit grey and enlarges it by whole factors.",
     .depths = "1, 4, 8, 24",
     .slots = {Parameter{.name = "factor",
                         .help = "how many pixels one becomes",
                         .isRequired = true,
                         .least = 1,
                         .most = 1000},
               Parameter{.name = "down", .help = "the same for rows; 0: as across", .least = 0, .most = 1000},
               Parameter{.name = "method", .help = "what lies between pixels", .choices = kInterpolations}},
     .run = [](HGLOBAL page,
               const Values& v) { return ScaleGreyPage(page, v.Whole(0), v.Whole(1), v.Whole(2)); }},
    {.name = "split",
     .summary = "Cuts the page into tiles, a page each, row by row from the top left.",
     .details =
         "Tiles are counted from the bottom and from the left, so what is left over is in the first row and "
         "the last column. Their width is a multiple of 32 pixels at 1 bit, 8 at 4 bits, 4 at 8 and 24 bits.",
     .depths = "1, 4, 8, 24",
     .slots =
         {Parameter{
              .name = "width", .help = "of a tile, in pixels", .isRequired = true, .least = 1, .most = 65535},
          Parameter{.name = "height", .help = "of a tile; 0: as the width", .least = 0, .most = 65535}},
     .split =
         [](HGLOBAL page, const Values& v, std::vector<Page>* parts) {
           const int32_t count = SplitPage(page, v.Whole(0), v.Whole(1), nullptr, 0);
           std::vector<HGLOBAL> tiles(static_cast<size_t>(count));
           if (count == 0 || SplitPage(page, v.Whole(0), v.Whole(1), tiles.data(), count) == 0) return false;
           for (const HGLOBAL tile : tiles) parts->emplace_back(tile);
           return true;
         },
     .move =
         [](const RawPage* page, const Values& v, std::vector<Raw>* parts) {
           const int32_t count = SplitRawPage(page, v.Whole(0), v.Whole(1), nullptr, 0);
           std::vector<RawPage*> tiles(static_cast<size_t>(count));
           if (count == 0 || SplitRawPage(page, v.Whole(0), v.Whole(1), tiles.data(), count) == 0)
             return false;
           return std::all_of(tiles.begin(), tiles.end(), [&](RawPage* tile) { return Add(tile, parts); });
         }},
    {.name = "merge",
     .summary = "Joins pages into one, row by row from the top left.",
     .details = "All pages that would go to one file are joined: those of all inputs, or, with a folder as "
                "output, those of each file. They have the depth and colours of the first, and widths that "
                "`split` would make.",
     .depths = "1, 4, 8, 24",
     .slots = {Parameter{
         .name = "columns", .help = "pages in a row", .isRequired = true, .least = 1, .most = 65535}},
     .merge =
         [](std::span<const HGLOBAL> pages, const Values& v) {
           return MergePages(pages.data(), static_cast<int32_t>(pages.size()), v.Whole(0));
         }},
    {.name = "combine",
     .summary = "Lays another page onto this one.",
     .details = "The page keeps its size and depth; colours become the nearest that it has. What does not "
                "lie on it is left out.",
     .depths = "1, 4, 8, 24",
     .slots = {Parameter{.name = "file",
                         .help = "the other page; the first one of its file",
                         .isRequired = true,
                         .isFile = true},
               Parameter{.name = "x",
                         .help = "where its left edge goes, in pixels",
                         .least = -65535,
                         .most = 65535},
               Parameter{.name = "y", .help = "where its top edge goes", .least = -65535, .most = 65535},
               Parameter{.name = "how",
                         .help = "and: what is dark in either stays dark; over: it covers",
                         .choices = kCombinations},
               Parameter{.name = "mask",
                         .help = "a page of the other's size; where it is dark the other counts as black",
                         .isFile = true}},
     .run =
         [](HGLOBAL page, const Values& v) {
           return CombinePages(page, v.File(0), v.File(4), v.Whole(1), v.Whole(2), v.Whole(3));
         }},
};

}  // namespace

std::span<const Operation> Operations() { return kOperations; }

}  // namespace rastrel::tool
