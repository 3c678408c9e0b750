// The table of single operations. The parser of operation chains, the help and docs/operations.md are made of
// it.
#ifndef RASTREL_TOOLS_OPERATIONS_H
#define RASTREL_TOOLS_OPERATIONS_H

#include <array>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "pages/page.h"

namespace rastrel::tool {

using namespace pages;

// What somebody typed cannot be used.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

inline constexpr size_t kMostParameters = 5;

struct Parameter {
  std::string_view name;
  std::string_view help;
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

// The size of holes that are found without one.
inline constexpr double kAutomaticHoles = -4;

// The pages in the files that a step names, each read when it is first asked for, by whatever thread.
class NamedPages;

// One for each parameter: a number, or text.
struct Values {
  std::array<double, kMostParameters> numbers{};
  std::array<std::string, kMostParameters> texts{};
  std::shared_ptr<NamedPages> files = {};  // of a step with files; copies share them

  double operator[](size_t i) const { return numbers[i]; }
  bool operator==(const Values& other) const { return numbers == other.numbers && texts == other.texts; }
};

struct Operation {
  std::string_view name;
  std::string_view summary;  // one sentence, for lists
  std::string_view details;  // for docs/operations.md; may be empty
  std::string_view depths;   // the depths taken, for messages and docs
  std::span<const Parameter> parameters;
  // One of these three. They leave the pages that they are given as they were, and throw PageError when one
  // cannot be worked on.
  Dib (*run)(const Dib& page, const Values& values);
  std::vector<Dib> (*split)(const Dib& page, const Values& values) = nullptr;
  // Takes all pages that go to one place, in reading order.
  Dib (*merge)(std::span<const Dib> pages, const Values& values) = nullptr;
  // Throws UsageError for values that do not go together.
  void (*check)(const Values& values) = nullptr;
};

std::span<const Operation> Operations();
// Null for other names.
const Operation* FindOperation(std::string_view name);
// Of an operation in the table.
const Parameter& FindParameter(std::string_view operation, std::string_view parameter);

struct Step {
  const Operation* operation = nullptr;
  Values values{};
};

std::vector<Dib> RunStep(const Step& step, std::span<const Dib> pages);

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
// docs/operations.md.
std::string OperationsMarkdown();

}  // namespace rastrel::tool

#endif
