// The `rastrel` command.
#include <exception>

#include "tools/command_line.h"
#include "tools/console.h"
#include "tools/operations.h"
#include "tools/system.h"

namespace {

int Run(int argc, char** argv) {
  using namespace rastrel::tool;
  try {
    return RunCommand(argc, argv);
  } catch (const UsageError& error) {
    Print(stderr, "rastrel: {}\n", error.what());
    Put(stderr, "Try 'rastrel --help'.\n");
    return kExitUsage;
  } catch (const std::exception& error) {
    Print(stderr, "rastrel: {}\n", error.what());
    return 1;
  }
}

}  // namespace

int main(int argc, char** argv) {
  rastrel::tool::ReserveStandardFiles();
  return rastrel::tool::ExitCode(Run(argc, argv));
}
