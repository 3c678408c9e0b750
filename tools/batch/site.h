// `rastrel report`: a site of static files about a batch, which a browser opens from the disk.
#ifndef RASTREL_TOOLS_BATCH_SITE_H
#define RASTREL_TOOLS_BATCH_SITE_H

#include <string>
#include <vector>

namespace rastrel::tool {

struct SiteOptions {
  std::string manifest;
  std::string output;  // a folder
  bool hasPictures = true;
  int threads = 0;
  bool isQuiet = false;
  bool isSandboxed = true;
};

// `command` starts a worker. Returns the exit code. Throws UsageError and PageError.
int MakeSite(const SiteOptions& options, const std::vector<std::string>& command);

}  // namespace rastrel::tool

#endif
