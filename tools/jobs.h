// From input files to output files: which page goes where, and the pipeline that works on them.
#ifndef RASTREL_TOOLS_JOBS_H
#define RASTREL_TOOLS_JOBS_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/operations.h"
#include "tools/report.h"

namespace rastrel::tool {

inline CleanOptions DefaultOptions() {
  CleanOptions options;
  DefaultCleanOptions(&options, sizeof(options));
  return options;
}

struct JobOptions {
  Command command = Command::kClean;
  std::vector<std::string> inputs;
  std::string output;       // unused by kInfo
  std::string format;       // a format's name; empty: by the ending of the output, or the input's
  bool overwrites = false;  // files that are there may be replaced
  // Where set, says instead which of them may be.
  std::function<bool(const std::string& path)> mayReplace;
  bool keepsTime = false;     // outputs are as old as their inputs
  bool skipsSync = false;     // outputs are not waited for until the disk has them
  bool isStrict = false;      // a page that would lose something is not written
  bool skipsDamaged = false;  // files of many pages are finished without pages that failed
  bool makesParents = false;  // the output's folder is made, with those that it lies in
  double dpi = 0;             // for files that have none; 0: the usual one is assumed, with a warning
  int threads = 0;            // 0: as many as there are cores
  bool isSandboxed = true;    // the process that decodes gives up what it does not need
  bool isArchival = false;    // PDF/A
  bool isMixed = false;       // PDF pages as text over a background
  PageReadOptions reading = Sized<PageReadOptions>();  // what pages may cost
  int jpegQuality = 0;      // 1 to 100; 0: the format's usual one, in TIFF files no JPEG
  std::string compression;  // of TIFF files; empty: the usual one
  ReportOptions report;
  CleanOptions clean = DefaultOptions();  // kClean
  // Where set, each page goes to a file of its own by the name that this gives for its number in its file.
  std::function<std::string(int page)> pageName;
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
  const PageFile* file = nullptr;
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
  std::string format;  // its name
};

// What stands for standard input or output among files.
inline constexpr const char* kStandard = "-";

struct Plan {
  std::string standardInput;  // its bytes, where it is an input
  std::vector<Input> files;   // those of the inputs that could be opened
  std::vector<Task> tasks;
  std::vector<Output> outputs;
};

// What a file of many pages is called that is without some of them.
std::string Incomplete(const std::string& name);
// The format that pages of files of a format go to that are not told another.
std::string WritableFormat(const std::string& name);

// The format with that name or ending, or nothing. Its texts are there for good.
std::optional<PageFormat> FindFormat(std::string_view extension);
std::vector<PageFormat> AllFormats();
// Whether its files are written with that option.
bool HasOption(std::string_view format, std::string_view option);

// Looks at the inputs and decides on the outputs:
//   OUT is a folder, or ends in '/'    a file in it for each input, in the input's format (PNG for JPEG)
//   the format is TIFF                 all pages in OUT
//   other formats, one page            OUT
//   other formats, more pages          OUT with -001, -002 ... before the ending, and a page that is split
//   into
//                                      more once again
// TIFF files in a folder keep the pages of their input together; in other formats pages are numbered as
// above. Overlays are PNG files, a page each, and named in the same way. Throws UsageError when two files
// would go by one name, when a file that is there would be lost, or when the output's folder is missing.
Plan MakePlan(const JobOptions& options);

// Does the work and returns the exit code: 0, or 1 when a page or a file failed. Throws UsageError.
int RunJobs(const JobOptions& options);

}  // namespace rastrel::tool

#endif
