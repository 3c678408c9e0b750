// Chains of operations as they are typed.
#include <charconv>
#include <cmath>

#include <fmt/format.h>

#include "tools/operations.h"
#include "tools/words.h"

namespace rastrel::tool {
namespace {

// Names by which other programs know some operations, and what stands for them here.
struct Alias {
  std::string_view name, meaning;
};
constexpr Alias kAliases[] = {
    {"gray", "grey"},
    {"grayscale", "grey"},
    {"greyscale", "grey"},
    {"resize", "scale"},
    {"flop", "flip:h"},
    {"mirror", "flip:h"},
    {"threshold", "halftone:threshold"},
    {"despeckle", "clean"},
    {"negate", "invert"},
    {"colour", "to24"},
    {"color", "to24"},
};

std::vector<std::string_view> Names() {
  std::vector<std::string_view> names;
  for (const Operation& operation : Operations()) names.push_back(operation.name);
  return names;
}

// The words with an operation's own name in front.
std::string Translated(std::string_view text) {
  const std::string_view name = text.substr(0, text.find(':'));
  const auto* const alias = std::find_if(std::begin(kAliases), std::end(kAliases),
                                         [&](const Alias& entry) { return entry.name == name; });
  if (alias == std::end(kAliases)) return std::string(text);
  std::string values(text.substr(name.size()));
  const bool hasValues = alias->meaning.find(':') != std::string_view::npos;
  if (hasValues && !values.empty()) values.front() = ',';
  return std::string(alias->meaning) + values;
}

}  // namespace

const Operation* FindOperation(std::string_view name) {
  for (const Operation& operation : Operations()) {
    if (operation.name == name) return &operation;
  }
  return nullptr;
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

bool IsOperation(std::string_view text) {
  const std::string translated = Translated(text);
  return FindOperation(std::string_view(translated).substr(0, translated.find(':'))) != nullptr;
}

std::string_view NearestOperation(std::string_view text) {
  std::vector<std::string_view> names = Names();
  for (const Alias& alias : kAliases) names.push_back(alias.name);
  return Nearest(text.substr(0, text.find(':')), names);
}

Step ParseStep(std::string_view typed) {
  const std::string translated = Translated(typed);
  const std::string_view text = translated;
  const size_t colon = text.find(':');
  const std::string_view name = text.substr(0, colon);
  Step step{FindOperation(name)};
  if (step.operation == nullptr) {
    const std::string_view nearest = NearestOperation(name);
    if (!nearest.empty()) throw UsageError(fmt::format("no operation '{}': did you mean {}?", name, nearest));
    throw UsageError(fmt::format("no operation '{}'; there are {}", name, fmt::join(Names(), ", ")));
  }
  const std::span<const Parameter> parameters = step.operation->parameters();
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
        if (!step.values.files) step.values.files = NewNamedPages();
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

}  // namespace rastrel::tool
