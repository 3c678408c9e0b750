#include "tools/extra_commands.h"

namespace rastrel::tool {

// `batch` and `report` need the processes and libraries of other systems.
void AddExtraCommands(CLI::App*, JobOptions*, int, char**, std::function<int()>*) {}

}  // namespace rastrel::tool
