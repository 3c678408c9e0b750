#include "operations.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include <fmt/format.h>

namespace rastrel::tool {
namespace {

// ---- running ----------------------------------------------------------------------------------------------

// The result of an operation that sets the thread's error.
Dib Checked(HGLOBAL result) {
  if (result == nullptr) throw PageError(LibraryError());
  return Dib(result);
}

// The result of an operation that sets none.
Dib Checked(HGLOBAL result, std::string_view otherwise) {
  if (result == nullptr) throw PageError(std::string(otherwise));
  return Dib(result);
}

// What the operations say no to without a reason is asked here, so that there is one to tell.
void RequireDepth(const Dib& page, std::initializer_list<int> depths) {
  const int bits = PageView(page).bits();
  if (std::find(depths.begin(), depths.end(), bits) == depths.end()) {
    throw PageError(fmt::format("pages of {} bits are not taken", bits));
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
  return Checked(PunchHoleRemover(page.handle(), static_cast<int>(values[0]), 0, nullptr), "no memory");
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
                   "only grey pages of 1 or 8 bits are taken");
  };
  const bool isDarkFirst = PageView(page).bits() == 1 && HasGreyRamp(PageView(page));
  return isDarkFirst ? WithLightFirst(page, filter) : filter();
}

Dib RunDither(const Dib& page, const Values& values) {
  constexpr int kDepths[] = {1, 4, 8};
  const int bits = kDepths[static_cast<int>(values[1])];
  const auto dither = values[0] == 0 ? DitherFS4 : DitherJJN;
  if (PageView(page).bits() <= bits) {
    throw PageError(fmt::format("a page of {} bits has no more than {}", PageView(page).bits(), bits));
  }
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

Dib RunGrey(const Dib& page, const Values&) { return ToGrey(page); }

// ---- the table --------------------------------------------------------------------------------------------

using namespace std::string_view_literals;
constexpr std::string_view kGrounds[] = {"white"sv, "black"sv};
constexpr std::string_view kDirections[] = {"h"sv, "v"sv};
constexpr std::string_view kText[] = {"dark"sv, "light"sv};
constexpr std::string_view kNoYes[] = {"no"sv, "yes"sv};
constexpr std::string_view kDithers[] = {"fs"sv, "jjn"sv};
constexpr std::string_view kDitherDepths[] = {"1"sv, "4"sv, "8"sv};
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
constexpr Parameter kHoles[] = {
    {.name = "size",
     .help = "-3, -2, -1, 0 for holes of 9, 7, 5, 4 mm, or n of 1 and more for n / 2 + 2 mm",
     .defaultValue = 8,
     .least = -3,
     .most = 40}};
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
constexpr Parameter kHalftone[] = {{.name = "method",
                                    .help = "a fixed threshold, error diffusion or a 16 x 16 pattern",
                                    .choices = kHalftones},
                                   {.name = "brightness",
                                    .help = "added to every grey first",
                                    .defaultValue = 0,
                                    .least = -255,
                                    .most = 255}};

constexpr Operation kOperations[] = {
    {"rotate", "Turns the page by any angle.",
     "The result holds the whole turned page; its width and height are even numbers.", "1, 4, 8, 24", kRotate,
     RunRotate},
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
    {"grey",
     "Turns the page to 8-bit grey.",
     "Grey is 30 % red, 59 % green and 11 % blue.",
     "1, 4, 8, 24",
     {},
     RunGrey},
};

// ---- text -------------------------------------------------------------------------------------------------

std::string Number(double value) { return fmt::format("{:g}", value); }

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
  for (size_t i = 0; i < parameters.size(); ++i) step.values[i] = parameters[i].defaultValue;

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
      step.values[place] =
          ParseValue(parameters[place], value, fmt::format("{}: {}", name, parameters[place].name));
      isGiven[place] = true;
    }
  }
  for (size_t i = 0; i < parameters.size(); ++i) {
    if (parameters[i].isRequired && !isGiven[i]) {
      throw UsageError(
          fmt::format("{}: {} is missing; it is {}", name, parameters[i].name, Synopsis(*step.operation)));
    }
  }
  return step;
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
  if (!parameter.choices.empty()) return fmt::format("one of {}", fmt::join(parameter.choices, ", "));
  return fmt::format("a {}number from {} to {}", parameter.isWhole ? "whole " : "", Number(parameter.least),
                     Number(parameter.most));
}

std::string DefaultText(const Parameter& parameter) {
  if (parameter.isRequired) return "";
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
                          standard.empty() ? "none: required" : standard, parameter.help);
    }
  }
  return text;
}

}  // namespace rastrel::tool
