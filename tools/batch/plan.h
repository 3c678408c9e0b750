// Which files a batch is of, and where they go.
#ifndef RASTREL_TOOLS_BATCH_PLAN_H
#define RASTREL_TOOLS_BATCH_PLAN_H

#include <string>
#include <vector>

#include "tools/batch/names.h"
#include "tools/jobs.h"

namespace rastrel::tool {

struct BatchOptions {
  JobOptions job;  // how pages are cleaned, and what is typed as IN...
  std::string output;
  std::string manifest;  // empty: batch.sqlite in the output's folder
  std::string pattern = "{folder}/{stem}{ext}";
  std::vector<std::string> include, exclude;
  std::string filesFrom;  // a list of names, a line each; "-" is standard input
  bool isRecursive = true;
  bool isDryRun = false;
  bool isRetry = false;
  bool isVerify = false;
  std::string log;
  bool isWorker = false;                   // this process does the pages of another one's batch
  std::vector<std::string> linkedOutputs;  // of a worker: where links below the output lead
};

// A file of the batch.
struct BatchItem {
  std::string input;
  OutputName output;
  std::string format;  // its name
};

// All of them, in natural order. `trouble` is told of folders that cannot be listed. Throws UsageError for
// inputs that are missing, and where two outputs would have one name.
std::vector<BatchItem> ListItems(const BatchOptions& options, std::vector<std::string>* trouble);

}  // namespace rastrel::tool

#endif
