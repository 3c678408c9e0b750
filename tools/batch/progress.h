// What a batch says while it runs: a line that counts on a screen, errors, and a log for programs.
#ifndef RASTREL_TOOLS_BATCH_PROGRESS_H
#define RASTREL_TOOLS_BATCH_PROGRESS_H

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "tools/batch/messages.h"
#include "tools/handles.h"

namespace rastrel::tool {

class Progress {
 public:
  // `log` may be empty. Throws PageError where it cannot be written.
  Progress(const std::string& log, bool isQuiet);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void Start(size_t files, size_t asBefore, size_t failedBefore);
  void Begin(const std::string& input);
  // After its row is in the manifest.
  void End(const std::string& input, const FileResult& result);
  void Fail(const std::string& input, const std::string& error);
  // Likewise, of what is no file of this run, or one that waits for another.
  void Trouble(const std::string& name, const std::string& error);
  // An output of before that its input no longer makes.
  void LeftOver(const std::string& output, const std::string& input);
  // A line for programs: {"time":...,"event":...} with what else there is to say.
  void Log(const char* event, nlohmann::ordered_json fields);
  // The last word, on standard output.
  void Finish(bool isInterrupted);

  int64_t failed() const { return failed_; }

 private:
  void Draw(bool isForced);
  void Clear();

  bool isQuiet_, isScreen_;
  bool isDrawn_ = false;
  std::unique_ptr<std::FILE, Freer<std::fclose>> log_;
  size_t files_ = 0, filesDone_ = 0, asBefore_ = 0, failedBefore_ = 0;
  int64_t leftOver_ = 0;
  int64_t pages_ = 0, blank_ = 0, failed_ = 0;  // pages of this run; failed files count as one
  std::chrono::steady_clock::time_point start_, drawn_;
};

}  // namespace rastrel::tool

#endif
