// From input files to output files: which page goes where, and the pipeline that works on them.
#ifndef RASTREL_TOOLS_JOBS_H
#define RASTREL_TOOLS_JOBS_H

#include <optional>
#include <string>
#include <vector>

#include "formats/page_io.h"
#include "pages/clean.h"
#include "tools/operations.h"
#include "tools/report.h"

namespace rastrel::tool {

using namespace formats;

struct JobOptions {
  Command command = Command::kClean;
  std::vector<std::string> inputs;
  std::string output;  // unused by kInfo
  std::optional<Format> format;
  bool overwrites = false;
  double dpi = 0;   // for files that have none; 0: the usual one is assumed, with a warning
  int threads = 0;  // 0: as many as there are cores
  WriteOptions write;
  ReportOptions report;
  CleanOptions clean;       // kClean
  bool dropsBlank = false;  // kClean: blank pages are left out
  std::string overlay;      // kClean: where pictures of what was removed go; empty: nowhere
  std::string explain;      // kClean: a folder for pictures of what was understood
  std::vector<Step> chain;  // kApply
};

// A page of an input.
struct Source {
  size_t input = 0;  // its place in the inputs
  int page = 1;      // from 1
  int pages = 1;
  Format format = Format::kBmp;
  uint64_t place = 0;
  std::string error = {};  // set where there is no page to be had
};

// What is worked on in one go: a page, or the pages that a step joins.
struct Task {
  std::vector<Source> sources;
  size_t output = 0;         // its place in the outputs
  std::string overlay = {};  // a file of its own
};

struct Output {
  std::string path;
  Format format = Format::kTiff;
};

struct Plan {
  std::vector<Task> tasks;
  std::vector<Output> outputs;
};

// Looks at the inputs and decides on the outputs:
//   OUT is a folder, or ends in '/'    a file in it for each input, in the input's format (PNG for JPEG)
//   the format is TIFF                 all pages in OUT
//   other formats, one page            OUT
//   other formats, more pages          OUT with -001, -002 ... before the ending, and a page that is split
//   into
//                                      more once again
// TIFF files in a folder keep the pages of their input together; in other formats pages are numbered as
// above. Overlays are PNG files, a page each, and named in the same way. Throws UsageError when two files
// would go by one name, or when an input would be lost.
Plan MakePlan(const JobOptions& options);

// Does the work and returns the exit code: 0, or 1 when a page or a file failed. Throws UsageError.
int RunJobs(const JobOptions& options);

}  // namespace rastrel::tool

#endif
