// The `rastrel` command.
#include <cstdio>
#include <exception>

#include <fmt/format.h>

#include "tools/command_line.h"
#include "tools/operations.h"

int main(int argc, char** argv) {
  try {
    return rastrel::tool::RunCommand(argc, argv);
  } catch (const rastrel::tool::UsageError& error) {
    fmt::print(stderr, "rastrel: {}\nTry 'rastrel --help'.\n", error.what());
    return rastrel::tool::kExitUsage;
  } catch (const std::exception& error) {
    fmt::print(stderr, "rastrel: {}\n", error.what());
    return 1;
  }
}
