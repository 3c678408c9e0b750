// `rastrel batch`: what is left to do of a batch, and the doing.
#ifndef RASTREL_TOOLS_BATCH_BATCH_H
#define RASTREL_TOOLS_BATCH_BATCH_H

#include <string>
#include <vector>

#include "tools/batch/plan.h"

namespace rastrel::tool {

// Followed by a place outside the output's folder to which a link in it leads, on a worker's command line.
inline constexpr const char* kLinkedOutputFlag = "--linked-output";

inline constexpr int kExitInterrupted = 130;

// `command` starts a worker. Returns the exit code: 0 when all pages are done, 1 when some failed, now or
// before, or kExitInterrupted. Throws UsageError and PageError.
int RunBatch(const BatchOptions& options, const std::vector<std::string>& command);

// Where the manifest is.
std::string ManifestOf(const BatchOptions& options);

}  // namespace rastrel::tool

#endif
