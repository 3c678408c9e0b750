#include "tools/batch/progress.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include <fmt/format.h>

#include "tools/batch/files.h"
#include "tools/console.h"
#include "tools/json_line.h"
#include "tools/system.h"

namespace rastrel::tool {
namespace {

using Json = nlohmann::ordered_json;
using Clock = std::chrono::steady_clock;

std::string Duration(double seconds) {
  const auto whole = static_cast<int64_t>(seconds + 0.5);
  return fmt::format("{}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60);
}

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

}  // namespace

Progress::Progress(const std::string& log, bool isQuiet)
    : isQuiet_(isQuiet), isScreen_(!isQuiet && CanDrawOnScreen()), start_(Clock::now()) {
  if (log.empty()) return;
  log_.reset(std::fopen(log.c_str(), "ae"));
  if (!log_) throw PageError(fmt::format("{}: {}", log, std::strerror(errno)));
}

Progress::~Progress() { Clear(); }

void Progress::Start(size_t files, size_t asBefore, size_t failedBefore) {
  files_ = files;
  asBefore_ = asBefore;
  failedBefore_ = failedBefore;
  start_ = Clock::now();
  Log("start", {{"files", files}, {"asBefore", asBefore}, {"failedBefore", failedBefore}});
  Draw(true);
}

void Progress::Begin(const std::string& input) { Log("begin", {{"input", input}}); }

void Progress::End(const std::string& input, const FileResult& result) {
  ++filesDone_;
  int64_t done = 0;
  for (const PageResult& page : result.pages) {
    ++pages_;
    done += page.isDone;
    blank_ += page.isDone && page.output.empty();
    if (page.isDone) continue;
    ++failed_;
    Clear();
    const bool isOnly = result.pages.size() == 1;
    Print(stderr, "rastrel: {}: {}\n", isOnly ? input : fmt::format("{} page {}", input, page.page),
          page.error);
  }
  Log("end", {{"input", input},
              {"pages", result.pages.size()},
              {"done", done},
              {"unchanged", result.isUnchanged},
              {"seconds", result.seconds}});
  Draw(false);
}

void Progress::Fail(const std::string& input, const std::string& error) {
  ++filesDone_;
  Trouble(input, error);
}

void Progress::Trouble(const std::string& name, const std::string& error) {
  ++failed_;
  Clear();
  Print(stderr, "rastrel: {}: {}\n", name, error);
  Log("fail", {{"input", name}, {"error", error}});
  Draw(false);
}

void Progress::LeftOver(const std::string& output, const std::string& input) {
  ++leftOver_;
  Log("left", {{"output", output}, {"input", input}});
}

// A line at a time reaches the file, also where this process is ended the moment after.
void Progress::Log(const char* event, Json fields) {
  if (!log_) return;
  Json line = {{"time", TimeNow()}, {"event", event}};
  line.update(fields);
  Put(log_.get(), JsonLine(line) + "\n");
}

void Progress::Finish(bool isInterrupted) {
  Clear();
  const double seconds = SecondsSince(start_);
  Log(isInterrupted ? "interrupted" : "finish",
      {{"pages", pages_}, {"failed", failed_}, {"asBefore", asBefore_}, {"seconds", seconds}});
  if (isQuiet_) return;
  std::string text =
      fmt::format("{} of {} files, {} pages in {}", filesDone_, files_, pages_, Duration(seconds));
  if (asBefore_ > 0) text += fmt::format("; {} files done before", asBefore_);
  if (blank_ > 0) text += fmt::format("; {} pages blank, left out", blank_);
  if (failed_ > 0) text += fmt::format("; {} failed", failed_);
  if (failedBefore_ > 0) text += fmt::format("; {} failed before (--retry tries them again)", failedBefore_);
  if (leftOver_ > 0) text += fmt::format("; {} outputs are left from before", leftOver_);
  Print(stdout, "{}{}\n", isInterrupted ? "interrupted: " : "", text);
}

void Progress::Clear() {
  if (std::exchange(isDrawn_, false)) Put(stderr, "\r\x1b[K");
}

void Progress::Draw(bool isForced) {
  constexpr double kLeastSeconds = 0.1;
  if (!isScreen_ || (!isForced && isDrawn_ && SecondsSince(drawn_) < kLeastSeconds)) return;
  drawn_ = Clock::now();
  const double seconds = SecondsSince(start_);
  std::string text = fmt::format("{} of {} files", filesDone_, files_);
  if (filesDone_ > 0 && seconds > 1) {
    const double perFile = seconds / static_cast<double>(filesDone_);
    text += fmt::format(", {:.1f} pages/s, {} left", static_cast<double>(pages_) / seconds,
                        Duration(perFile * static_cast<double>(files_ - filesDone_)));
  }
  if (failed_ > 0) text += fmt::format(", {} failed", failed_);
  Put(stderr, "\r\x1b[K" + text);
  isDrawn_ = true;
}

}  // namespace rastrel::tool
