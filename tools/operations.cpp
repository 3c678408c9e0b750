#include "tools/operations.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <map>
#include <numeric>

#include <fmt/format.h>

#include "formats/page_io.h"
#include "pages/operations.h"
#include "tools/system.h"

namespace rastrel::tool {

using namespace formats;

namespace {

// ---- running ----------------------------------------------------------------------------------------------

using Span = std::span<const Dib>;

Ground GroundFrom(double choice) { return choice == 0 ? Ground::kWhite : Ground::kBlack; }
Direction DirectionFrom(double choice) { return choice == 0 ? Direction::kHorizontal : Direction::kVertical; }
int Whole(double value) { return static_cast<int>(value); }

Dib RunRotate(const Dib& page, const Values& values) {
  return Rotate(page, values[0], GroundOf(page, GroundFrom(values[1])));
}

Dib RunStraighten(const Dib& page, const Values& values) {
  return Straighten(page, values[0], GroundOf(page, GroundFrom(values[3])),
                    {.isSmooth = values[1] == 1, .keepsSize = values[2] == 1});
}

// RotateDIB90 and its siblings are RotateDIB by that angle.
template <int Degrees>
Dib RunQuarterTurn(const Dib& page, const Values& values) {
  return Rotate(page, Degrees, GroundOf(page, GroundFrom(values[0])));
}

Dib RunSkew(const Dib& page, const Values& values) {
  return Skew(page, DirectionFrom(values[0]), Whole(values[1]), GroundOf(page, GroundFrom(values[2])));
}

Dib RunDeskew(const Dib& page, const Values& values) { return pages::Deskew(page, values[0] == 0); }
Dib RunTrim(const Dib& page, const Values&) { return Trim(page); }

Dib RunHoles(const Dib& page, const Values& values) {
  return FillHoles(page, values[0] == kAutomaticHoles ? std::nullopt : std::optional(Whole(values[0])));
}

Dib RunClean(const Dib& page, const Values& values) {
  return Despeckle(page, Whole(values[0]), values[1] == 1);
}

Dib RunDither(const Dib& page, const Values& values) {
  constexpr int kDepths[] = {1, 4, 8};
  return Dither(page, values[0] == 0 ? Diffusion::kFloydSteinberg : Diffusion::kJarvisJudiceNinke,
                kDepths[Whole(values[1])]);
}

Dib RunHalftone(const Dib& page, const Values& values) {
  return pages::Halftone(page, static_cast<Halftoning>(Whole(values[0])), Whole(values[1]));
}

Dib RunBinarize(const Dib& page, const Values& values) {
  return ToBlackAndWhite(
      page, {.isBest = values[0] == 1, .isDoubled = values[1] == 1, .dithersPictures = values[2] == 0});
}

template <auto Dither>
Dib RunBlockDither(const Dib& page, const Values& values) {
  return Dither(page, values[0] == 0 ? 1 : 4);
}

Dib RunGrey(const Dib& page, const Values& values) {
  return Grey(page, values[0] == 0 ? GreyFormula::kWeighted : GreyFormula::kAverage, Whole(values[1]));
}

Dib RunFlip(const Dib& page, const Values& values) { return Flip(page, DirectionFrom(values[0])); }
Dib RunTurn(const Dib& page, const Values& values) { return Turn(page, Whole(values[0])); }
Dib RunInvert(const Dib& page, const Values&) { return Invert(page); }
// Pages are expanded as they are read.
Dib RunExpand(const Dib& page, const Values&) { return Duplicate(page); }
Dib RunTo24(const Dib& page, const Values&) { return To24(page); }

std::vector<Dib> RunSplit(const Dib& page, const Values& values) {
  return Split(page, Whole(values[0]), Whole(values[1]));
}

Dib RunMerge(Span tiles, const Values& values) { return Merge(tiles, static_cast<size_t>(values[0])); }

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
  return Combine(page, source, mask,
                 {.x = Whole(values[1]),
                  .y = Whole(values[2]),
                  .how = values[3] == 0 ? Combination::kDarkest : Combination::kOver});
}

Dib RunCrop(const Dib& page, const Values& values) {
  Area area = {Whole(values[0]), Whole(values[1]), 0, 0};
  const PageView view(page);
  area.right = values[2] == 0 ? view.width() : area.left + Whole(values[2]);
  area.bottom = values[3] == 0 ? view.height() : area.top + Whole(values[3]);
  return Crop(page, area);
}

Dib RunCropSheet(const Dib& page, const Values& values) {
  return Crop(page,
              SheetArea(page, {.share = values[0], .margin = Whole(values[1]), .isLight = values[2] == 0}));
}

std::vector<Dib> RunCut(const Dib& page, const Values& values) { return Cut(page, Whole(values[0])); }

void CheckScale(const Values& values) {
  const auto [width, height, percent, dpi, method] = values.numbers;
  if ((width > 0 || height > 0) + (percent > 0) + (dpi > 0) != 1) {
    throw UsageError("scale: needs one of a size, a percentage and dots per inch");
  }
}

Dib RunScale(const Dib& page, const Values& values) {
  const auto [width, height, percent, dpi, method] = values.numbers;
  return Scale(page, {width, height, percent, dpi, method == 1});
}

Dib RunScaleGrey(const Dib& page, const Values& values) {
  return ScaleGrey(page, Whole(values[0]), Whole(values[1]), values[2] == 1);
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
constexpr std::string_view kBinarizeQualities[] = {"fast"sv, "best"sv};
constexpr std::string_view kResolutions[] = {"same"sv, "double"sv};
constexpr std::string_view kPictures[] = {"dither"sv, "no"sv};
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

constexpr Parameter kBinarize[] = {
    {.name = "quality",
     .help = "a threshold that follows the paper, or a minimum cut, which takes longer",
     .choices = kBinarizeQualities},
    {.name = "resolution", .help = "the page's own, or smoothed to twice of it", .choices = kResolutions},
    {.name = "pictures",
     .help = "error diffusion for photographs, or the same as for text",
     .choices = kPictures}};

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
    {"binarize", "Reduces to black and white, text sharp under any light.",
     "What is ink is judged against the paper around it; specks go, light text on dark stays light.",
     "4, 8, 24", kBinarize, RunBinarize},
    {"smooth-dither", "Reduces to 1 or 4 bits by spreading the tone of small blocks, for photographs.", "",
     "4, 8, 24", kBlockDither, RunBlockDither<DitherBlocksSmoothly>},
    {"sharp-dither", "The same with harder edges, for text and drawings.", "", "4, 8, 24", kBlockDither,
     RunBlockDither<DitherBlocksSharply>},
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
