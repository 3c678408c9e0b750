// For systems that have no way to give rights up.
#include "tools/sandbox.h"

namespace rastrel::tool {

void EnterSandbox(const std::vector<std::string>&) {}

}  // namespace rastrel::tool
