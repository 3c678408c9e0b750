// The manifest of a batch: an SQLite file that says of each page what became of it. It is the batch's log of
// provenance, where it goes on after an end of any kind, and what its report is made from.
#ifndef RASTREL_TOOLS_BATCH_MANIFEST_H
#define RASTREL_TOOLS_BATCH_MANIFEST_H

#include <filesystem>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/batch/database.h"
#include "tools/batch/messages.h"

namespace rastrel::tool {

enum class FileProgress { kWaiting, kDone, kFailed };

// What is known of an input.
struct FileRow {
  int64_t id = 0;
  std::string output;  // as OutputName::Text has it, stored
  FileProgress progress = FileProgress::kWaiting;
  int64_t size = 0, modified = 0;
  std::string hash, optionsHash;
  struct Written {
    std::string path, hash;
    int64_t page = 1;
  };
  // Of pages that were done, also where they are no longer what was written; not those in whose place another
  // input's stand.
  std::vector<Written> outputs;
  std::vector<Written> written;  // all that the batch ever wrote of it, and has not seen replaced
};

// A page, for the report.
struct PageRow {
  int64_t file = 0, page = 1;
  std::string input, output, record, error;
  std::string inputHash, outputHash;
  FileProgress progress = FileProgress::kWaiting;
};

class Manifest {
 public:
  // To write, it is made where there is none. `isSafe`: rows are on the disk before work goes on, so that not
  // even a loss of power undoes them. Throws UsageError for a file that is no manifest.
  Manifest(const std::string& path, Database::Access access, bool isSafe = true);

  void BeginRun(const std::string& options, const std::string& optionsHash);
  void EndRun();

  // By input as it is stored, in one pass.
  std::unordered_map<std::string, FileRow> Files();
  // In the order of the files that the manifest came to know.
  void ForEachPage(const std::function<void(PageRow)>& use);

  // Each returns or takes the number of a file's row.
  int64_t Add(const std::string& input, const std::string& output);
  void SetWaiting(int64_t file, const std::string& output);
  // With the input's size and time, so that another one by that name is tried again.
  void SetFailed(int64_t file, const std::string& error, int64_t size, int64_t modified);
  // The input was touched and yet is what it was.
  void SetUnchanged(int64_t file, int64_t modified);
  // Returns the outputs of other files that were lost by it.
  std::vector<std::string> SetResult(int64_t file, const FileResult& result);
  // What reading an output again has shown, for all of its pages. No error: it is what was written.
  void SetVerified(int64_t file, const std::string& output, const std::string& error);

  // Names are kept as seen from the manifest's folder, so that they hold when all of it is moved together.
  std::string Stored(const std::string& path) const;

  Database* database() { return &database_; }

 private:
  void MakeTables(bool isSafe);
  std::string Resolved(const std::string& stored) const;

  std::filesystem::path folder_;
  std::filesystem::path here_;  // the folder that names on the command line start from
  Database database_;
  int64_t run_ = 0;
  std::unique_ptr<Statement> add_, setWaiting_, setFailed_, setUnchanged_, setDone_, dropPages_, addPage_,
      ownerOf_, setWritten_, setReplaced_;
};

}  // namespace rastrel::tool

#endif
