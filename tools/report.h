// What the command tells: lines, a progress bar or JSON records on standard output, errors on standard error.
#ifndef RASTREL_TOOLS_REPORT_H
#define RASTREL_TOOLS_REPORT_H

#include <cstddef>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "tools/handles.h"

namespace rastrel::tool {

struct PageReport;

struct ReportOptions {
  bool isJson = false;
  bool isQuiet = false;
  bool isVerbose = false;
  bool toStandardError = false;  // where standard output is for a page
  // Where set, it gets each page with its record as JSON, and nothing is printed.
  std::function<void(const PageReport& page, const std::string& record)> take;
};

struct StepTime {
  std::string step;
  double milliseconds = 0;
};

// One page's outcome.
struct PageReport {
  std::string file;
  int page = 1;                      // from 1
  int pages = 1;                     // of its file
  int joined = 1;                    // pages that were made one
  int made = 1;                      // pages that came of it
  std::vector<std::string> outputs;  // the files that it went to
  bool replacesInput = false;        // one of them takes an input's place
  std::string overlay;               // the file that shows what was removed
  std::string error;                 // empty when the page is done
  std::vector<std::string> reduced;  // what the page lost on its way through files: "16 bits to 8"
  // Of the page in its file.
  std::string space, depth, compression;
  std::vector<std::string> tags;
  bool isFollowUp = false;  // the error has been told with an earlier page
  bool isLeftOut = false;   // damaged; the file that it was to go to is finished without it
  bool isDropped = false;   // blank and left out: nothing is written
  CleanSummary summary = Sized<CleanSummary>();
  Record record = nullptr;      // of a page that was cleaned or looked at
  std::vector<StepTime> times;  // of all steps, loading and saving among them
};

// What was done to a page that was cleaned, in words.
std::string Deeds(const PageReport& report);

enum class Command { kClean, kApply, kInfo };

class Reporter {
 public:
  Reporter(Command command, const ReportOptions& options, size_t pages);
  ~Reporter();
  Reporter(const Reporter&) = delete;
  Reporter& operator=(const Reporter&) = delete;

  // In the order of the pages, from one thread at a time.
  void Page(const PageReport& report);
  // A line on standard error.
  void Error(const std::string& file, const std::string& message);
  void Warn(const std::string& message);
  bool hasErrors() const { return hasErrors_; }

 private:
  void ClearBar();
  void DrawBar();
  void PrintLine(const PageReport& report);
  void PrintCounts(const std::string& head, const std::string& tail) const;
  std::string Arrow(int pages) const;
  void ForgetOutputs() {
    firstOutput_.clear();
    lastOutput_.clear();
    made_ = 0;
    replacesInput_ = false;
  }

  Command command_;
  ReportOptions options_;
  size_t pages_;
  std::FILE* out_;
  size_t done_ = 0;
  bool hasBar_ = false;
  bool isBarDrawn_ = false;
  bool hasErrors_ = false;
  // Pages of the file that is coming in, or of all files under a bar.
  int turned_ = 0, trimmed_ = 0, punched_ = 0, failed_ = 0, dropped_ = 0;
  std::string droppedPages_;  // "3, 7"
  std::string firstOutput_, lastOutput_;
  int made_ = 0;
  bool replacesInput_ = false;
};

}  // namespace rastrel::tool

#endif
