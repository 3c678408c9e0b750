// The `rastrel` command.
#include <cstdlib>
#include <exception>
#include <new>

#include "tools/command_line.h"
#include "tools/console.h"
#include "tools/operations.h"
#include "tools/system.h"

namespace {

constexpr const char* kOutOfMemory = "rastrel: out of memory\n";

// Libraries run out of memory in functions of theirs that must not throw: nothing can go on then. Like an
// interruption this leaves no temporary files.
[[noreturn]] void EndAtOnce() noexcept {
  RemoveUnfinishedPages();
  try {
    if (const std::exception_ptr error = std::current_exception()) std::rethrow_exception(error);
  } catch (const std::bad_alloc&) {
    rastrel::tool::Put(stderr, kOutOfMemory);
    std::_Exit(1);
  } catch (...) {
  }
  rastrel::tool::Put(stderr,
                     "rastrel: an internal error, or out of memory\n");  // libraries do not always tell
  std::_Exit(1);
}

int Run(int argc, char** argv) {
  using namespace rastrel::tool;
  try {
    return RunCommand(argc, argv);
  } catch (const UsageError& error) {
    Print(stderr, "rastrel: {}\n", error.what());
    Put(stderr, "Try 'rastrel --help'.\n");
    return kExitUsage;
  } catch (const std::bad_alloc&) {
    Put(stderr, kOutOfMemory);
    return 1;
  } catch (const std::exception& error) {
    Print(stderr, "rastrel: {}\n", error.what());
    return 1;
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::set_terminate(EndAtOnce);
  rastrel::tool::ReserveStandardFiles();
  return rastrel::tool::ExitCode(Run(argc, argv));
}
