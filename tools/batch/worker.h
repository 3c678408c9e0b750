// A process that does the files which a batch hands it.
#ifndef RASTREL_TOOLS_BATCH_WORKER_H
#define RASTREL_TOOLS_BATCH_WORKER_H

#include <string>
#include <vector>

#include "tools/jobs.h"

namespace rastrel::tool {

// Works on what comes from the socket that is this process's standard input, until that ends, with the right
// to write below `outputs` alone. What belongs to the batch's manifest is never replaced. Returns the exit
// code.
int RunWorker(const JobOptions& options, const std::vector<std::string>& outputs,
              const std::string& manifest);

}  // namespace rastrel::tool

#endif
