// The command as it is typed.
#ifndef RASTREL_TOOLS_COMMAND_LINE_H
#define RASTREL_TOOLS_COMMAND_LINE_H

namespace rastrel::tool {

inline constexpr int kExitUsage = 2;

// Returns the exit code. Throws UsageError and other exceptions.
int RunCommand(int argc, char** argv);

}  // namespace rastrel::tool

#endif
