// The single operations: their table, the parser of chains of them, and the help. The table alone knows any
// of them.
#ifndef RASTREL_TOOLS_OPERATIONS_H
#define RASTREL_TOOLS_OPERATIONS_H

#include <algorithm>
#include <array>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tools/handles.h"

namespace rastrel::tool {

// What somebody typed cannot be used.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

inline constexpr size_t kMostParameters = 5;

struct Parameter {
  std::string_view name = {};
  std::string_view help = {};
  bool isRequired = false;
  double defaultValue = 0;  // for a choice, its place in the list
  double least = 0;
  double most = 0;
  bool isWhole = true;
  // The value is the place in the list; least and most are unused.
  std::span<const std::string_view> choices = {};
  bool isFile = false;  // the value is text
  // A word that is taken as well, for this number.
  std::string_view word = {};
  double wordValue = 0;
};

// Those that `rastrel clean` takes as well.
extern const Parameter kHoleSize, kSpeckLevel, kBrightness;

// The pages in the files that a step names, each read when it is first asked for, by whatever thread.
class NamedPages;
std::shared_ptr<NamedPages> NewNamedPages();

// One for each parameter: a number, or text.
struct Values {
  std::array<double, kMostParameters> numbers{};
  std::array<std::string, kMostParameters> texts{};
  std::shared_ptr<NamedPages> files = {};  // of a step with files; copies share them

  double operator[](size_t i) const { return numbers[i]; }
  int Whole(size_t i) const { return static_cast<int>(numbers[i]); }
  // The first page of a file that is named; null where none is.
  HGLOBAL File(size_t i) const;
  bool operator==(const Values& other) const { return numbers == other.numbers && texts == other.texts; }
};

struct Operation {
  std::string_view name;
  std::string_view summary;       // one sentence, for lists
  std::string_view details = {};  // for docs/operations.md
  std::string_view depths;        // the depths taken, for messages and docs
  std::array<Parameter, kMostParameters> slots = {};
  // One of these three, which call a function of rastrel_pages.h and leave its error. `split` returns whether
  // there are pages, `merge` takes all that go to one place, in reading order.
  HGLOBAL (*run)(HGLOBAL page, const Values& values) = nullptr;
  bool (*split)(HGLOBAL page, const Values& values, std::vector<Page>* parts) = nullptr;
  HGLOBAL (*merge)(std::span<const HGLOBAL> pages, const Values& values) = nullptr;
  // Of operations that only move pixels: the same for a page as its file has it. Null for others.
  bool (*move)(const RawPage* page, const Values& values, std::vector<Raw>* parts) = nullptr;
  // Throws UsageError for values that do not go together.
  void (*check)(const Values& values) = nullptr;

  std::span<const Parameter> parameters() const {
    const auto end =
        std::find_if(slots.begin(), slots.end(), [](const Parameter& slot) { return slot.name.empty(); });
    return {slots.begin(), end};
  }
};

std::span<const Operation> Operations();
// Null for other names.
const Operation* FindOperation(std::string_view name);

struct Step {
  const Operation* operation = nullptr;
  Values values{};
};
// Throws PageError.
std::vector<Page> RunStep(const Step& step, std::span<const Page> pages);

// Whether all only move pixels, and the moves. Throws PageError.
bool AreMoves(std::span<const Step> chain);
std::vector<Raw> RunMoves(std::span<const Step> chain, Raw page);

// Whether a word names one, by its own name or a usual other one; and the name that may have been meant, or
// "".
bool IsOperation(std::string_view text);
std::string_view NearestOperation(std::string_view text);
// From "name" or "name:value,value" or "name:parameter=value". Throws UsageError.
Step ParseStep(std::string_view text);
// A value of one parameter. Throws UsageError, naming `what`.
double ParseValue(const Parameter& parameter, std::string_view text, std::string_view what);

// "rotate:ANGLE[,FILL]"
std::string Synopsis(const Operation& operation);
// "-360 to 360", "one of fs, jjn"
std::string RangeText(const Parameter& parameter);
// What values are taken where none is given, as it would be typed.
std::string DefaultText(const Parameter& parameter);
// Breaks text into lines of at most `width`, each behind `indent`, and those after the first a little
// further.
std::string Wrapped(std::string_view text, size_t width, const std::string& indent);
// The lines of `rastrel apply --list`.
std::string OperationsHelp();
// The same as JSON, for programs that make menus, bindings and manuals of it.
std::string OperationsJson();
// docs/operations.md.
std::string OperationsMarkdown();

}  // namespace rastrel::tool

#endif
