// The manual page and the shells' completions, from the same table as the help.
#ifndef RASTREL_TOOLS_MANUAL_H
#define RASTREL_TOOLS_MANUAL_H

#include <string>
#include <string_view>

#include <CLI/CLI.hpp>

namespace rastrel::tool {

// rastrel.1
std::string ManualPage(const CLI::App& app);
// For "bash", "zsh" or "fish". Throws UsageError for others.
std::string Completion(const CLI::App& app, std::string_view shell);

}  // namespace rastrel::tool

#endif
