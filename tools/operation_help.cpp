// The table of operations in words, for people and programs.
#include <cmath>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/operations.h"
#include "tools/words.h"

namespace rastrel::tool {
namespace {

std::string Number(double value) {
  return value == std::trunc(value) ? fmt::format("{}", static_cast<int64_t>(value))
                                    : fmt::format("{:g}", value);
}

std::string Upper(std::string_view text) {
  std::string upper;
  for (const char c : text) upper += c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  return upper;
}

}  // namespace

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
  for (size_t i = 0; i < operation.parameters().size(); ++i) {
    if (!operation.parameters()[i].isRequired) {
      text += '[';
      closing += ']';
    }
    text += i == 0 ? ':' : ',';
    text += Upper(operation.parameters()[i].name);
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
  for (const Operation& operation : Operations()) {
    text += Synopsis(operation) + '\n';
    text +=
        Wrapped(fmt::format("{} Depths: {}.", operation.summary, operation.depths), kWidth, "    ") + '\n';
    for (const Parameter& parameter : operation.parameters()) {
      const std::string standard = DefaultText(parameter);
      text += Wrapped(fmt::format("{}: {}; {}{}", Upper(parameter.name), parameter.help, RangeText(parameter),
                                  standard.empty() ? "" : fmt::format(" ({})", standard)),
                      kWidth, "    ") +
              '\n';
    }
  }
  return text;
}

std::string OperationsJson() {
  using Json = nlohmann::ordered_json;
  Json operations = Json::array();
  for (const Operation& operation : Operations()) {
    Json parameters = Json::array();
    for (const Parameter& parameter : operation.parameters()) {
      Json entry = {{"name", parameter.name}, {"help", parameter.help}, {"required", parameter.isRequired}};
      entry["type"] = parameter.isFile             ? "file"
                      : !parameter.choices.empty() ? "choice"
                      : parameter.isWhole          ? "integer"
                                                   : "number";
      if (!parameter.choices.empty()) {
        entry["choices"] = parameter.choices;
      } else if (!parameter.isFile) {
        entry["least"] = parameter.least;
        entry["most"] = parameter.most;
      }
      if (!parameter.word.empty()) entry["word"] = parameter.word;
      if (!parameter.isRequired) entry["default"] = DefaultText(parameter);
      parameters.push_back(entry);
    }
    operations.push_back({{"name", operation.name},
                          {"synopsis", Synopsis(operation)},
                          {"summary", operation.summary},
                          {"details", operation.details},
                          {"depths", operation.depths},
                          {"parameters", parameters},
                          {"splits", operation.split != nullptr},
                          {"merges", operation.merge != nullptr}});
  }
  return operations.dump(2) + '\n';
}

std::string OperationsMarkdown() {
  std::string text =
      "# Operations\n\n"
      "`rastrel apply IN... -o OUT OPERATION...` runs any of these on a page, in the order given. Values "
      "follow the\n"
      "name after a colon, by place (`rotate:3.5,black`) or by name (`rotate:angle=3.5,fill=black`).\n\n"
      "This page is what `rastrel apply --markdown` prints.\n";
  for (const Operation& operation : Operations()) {
    text += fmt::format("\n## {}\n\n`{}`\n\n{}{}{}\n\nDepths: {} bits.\n", operation.name,
                        Synopsis(operation), operation.summary, operation.details.empty() ? "" : " ",
                        operation.details, operation.depths);
    if (operation.parameters().empty()) continue;
    text += "\n| parameter | values | default | |\n|---|---|---|---|\n";
    for (const Parameter& parameter : operation.parameters()) {
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
