// Commands that not every system's build has.
#ifndef RASTREL_TOOLS_EXTRA_COMMANDS_H
#define RASTREL_TOOLS_EXTRA_COMMANDS_H

#include <functional>

#include <CLI/CLI.hpp>

#include "tools/jobs.h"

namespace rastrel::tool {

// Adds them; when one of them is what was typed, `run` is set to what does it and returns the exit code.
void AddExtraCommands(CLI::App* app, JobOptions* options, int argc, char** argv, std::function<int()>* run);

}  // namespace rastrel::tool

#endif
