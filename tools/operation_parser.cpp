// Chains of operations as they are typed.
#include <charconv>
#include <cmath>

#include <fmt/format.h>

#include "tools/operations.h"
#include "tools/words.h"

namespace rastrel::tool {
namespace {

std::string Names() {
  std::vector<std::string_view> names;
  for (const Operation& operation : Operations()) names.push_back(operation.name);
  return fmt::format("{}", fmt::join(names, ", "));
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

Step ParseStep(std::string_view text) {
  const size_t colon = text.find(':');
  const std::string_view name = text.substr(0, colon);
  Step step{FindOperation(name)};
  if (step.operation == nullptr)
    throw UsageError(fmt::format("no operation '{}'; there are {}", name, Names()));
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
