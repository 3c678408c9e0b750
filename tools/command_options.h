// What the commands' options are made of.
#ifndef RASTREL_TOOLS_COMMAND_OPTIONS_H
#define RASTREL_TOOLS_COMMAND_OPTIONS_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "tools/jobs.h"
#include "tools/operations.h"

namespace rastrel::tool {

constexpr size_t kHelpWidth = 70;

// CLI::Range takes "nan" for a number in every range.
inline CLI::Validator Between(double least, double most) {
  const auto check = [=](const std::string& text) {
    double value = 0;
    const bool isInside = CLI::detail::lexical_cast(text, value) && value >= least && value <= most;
    return isInside ? std::string()
                    : fmt::format("'{}' is not a number from {:g} to {:g}", text, least, most);
  };
  return {check, fmt::format("{:g} to {:g}", least, most), "between"};
}

// An option whose range, default and help are those of an operation's parameter.
template <class Use>
CLI::Option* AddFromTable(CLI::App* app, const std::string& option, const Parameter& entry,
                          const std::string& standard, Use use) {
  const std::string name = option;
  return app
      ->add_option_function<std::string>(
          option, [&entry, name, use](const std::string& text) { use(ParseValue(entry, text, name)); },
          Wrapped(fmt::format("{}; {} ({})", entry.help, RangeText(entry), standard), kHelpWidth, ""))
      ->type_name("N");
}

void AddReportOptions(CLI::App* app, ReportOptions* options);
void AddSandboxOption(CLI::App* app, bool* isSandboxed);
void AddJobsOption(CLI::App* app, JobOptions* options);
void AddOutputOptions(CLI::App* app, JobOptions* options);
// Those of them that are not about names.
void AddWritingOptions(CLI::App* app, JobOptions* options);
// "BMP, TIFF, PNG or JPEG"
std::string ReadableTitles();

// `rastrel clean`, and what is to be checked when all of it is read. Throws UsageError.
CLI::App* AddCleanCommand(CLI::App* app, JobOptions* options);
void AddCleanSteps(CLI::App* app, JobOptions* options);
void CheckCleanOptions(const CleanOptions& options);

}  // namespace rastrel::tool

#endif
