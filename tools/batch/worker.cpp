#include "tools/batch/worker.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <utility>

#include "tools/batch/files.h"
#include "tools/batch/messages.h"
#include "tools/batch/names.h"
#include "tools/batch/pictures.h"
#include "tools/paths.h"
#include "tools/sandbox.h"

namespace rastrel::tool {
namespace {

namespace fs = std::filesystem;

// What the command says of each page of a file while it does them.
class Outcome {
 public:
  explicit Outcome(JobOptions* options) {
    options->report.take = [this](const PageReport& page, const std::string& record) { Take(page, record); };
  }

  // Brings in what is known only at the end: a file of many pages is there as a whole or not at all.
  std::vector<PageResult> Finish(const std::string& output, bool isDocument) {
    for (PageResult& page : pages_) {
      if (!isDocument || page.output.empty()) continue;
      if (isIncomplete_) page.output = Incomplete(output);
      if (hasFailed_) Lose(&page, "is not written: " + whyFailed_);
    }
    std::map<std::string, std::pair<int64_t, std::string>> seen;  // many pages, one file
    for (PageResult& page : pages_) {
      if (page.output.empty()) continue;
      const auto [entry, isNew] = seen.try_emplace(page.output);
      if (isNew) {
        const std::optional<FileState> state = StateOf(page.output);
        if (state) entry->second = {state->size, HashOfFile(page.output)};
      }
      std::tie(page.size, page.hash) = entry->second;
      if (page.hash.empty()) Lose(&page, "is not there");
    }
    return std::move(pages_);
  }

 private:
  static void Lose(PageResult* page, std::string error) {
    page->isDone = false;
    page->output.clear();
    page->error = std::move(error);
  }

  void Take(const PageReport& page, const std::string& record) {
    PageResult result;
    result.page = page.page;
    result.record = record;
    result.error = page.error;
    result.isDone = page.error.empty();
    if (result.isDone && !page.outputs.empty()) result.output = page.outputs.front();
    isIncomplete_ = isIncomplete_ || page.isLeftOut;
    if (!result.isDone && !page.isLeftOut && !hasFailed_) {
      hasFailed_ = true;
      whyFailed_ = page.error;
    }
    pages_.push_back(std::move(result));
  }

  std::vector<PageResult> pages_;
  bool isIncomplete_ = false, hasFailed_ = false;
  std::string whyFailed_;
};

// Which files may be replaced: those in which nothing but this batch's own work would be lost.
class Replaceable {
 public:
  Replaceable(const FileTask& task, bool isAll, const std::string& manifest)
      : isAll_(isAll), manifest_(WholeName(manifest)) {
    for (size_t i = 0; i + 1 < task.outputs.size(); i += 2) {
      hashes_[WholeName(task.outputs[i])] = task.outputs[i + 1];
    }
  }
  bool Has(const std::string& path) {
    const std::string name = WholeName(path);
    for (const char* ending : {"", "-wal", "-shm", "-journal"}) {
      if (name == manifest_ + ending) return false;
    }
    if (isAll_) return true;
    const auto known = hashes_.find(name);
    const bool isOurs = known != hashes_.end() && StateOf(path) && HashOfFile(path) == known->second;
    hasRefused_ = hasRefused_ || !isOurs;
    return isOurs;
  }
  bool hasRefused() const { return hasRefused_; }
  void Add(const std::string& path, const std::string& hash) { hashes_[WholeName(path)] = hash; }

 private:
  bool isAll_, hasRefused_ = false;
  std::string manifest_;
  std::map<std::string, std::string> hashes_;
};

// A folder for this process alone, in its life.
class TemporaryFolder {
 public:
  TemporaryFolder() : name_(NameOf(fs::temp_directory_path() / "rastrel-XXXXXX")) {
    if (::mkdtemp(name_.data()) == nullptr) throw PageError("no temporary folder can be made");
  }
  ~TemporaryFolder() {
    std::error_code error;
    fs::remove_all(PathOf(name_), error);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  const std::string& name() const { return name_; }

 private:
  std::string name_;
};

// Finds what a run wrote that ended before it could say so: files that are what is made now, byte for byte.
void AddUnrecorded(JobOptions options, const OutputName& name, Replaceable* replaceable) {
  const TemporaryFolder temporary;
  const fs::path folder = PathOf(name.before).parent_path();
  OutputName there = name;
  there.before = NameOf(PathOf(temporary.name()) / PathOf(name.before).filename());
  options.output = there.OfPage(1);
  if (there.hasPage()) options.pageName = [there](int page) { return there.OfPage(page); };
  options.mayReplace = nullptr;
  options.skipsSync = true;
  options.report.take = [](const PageReport&, const std::string&) {};
  RunJobs(options);
  for (const fs::directory_entry& made : fs::directory_iterator(PathOf(temporary.name()))) {
    const std::string path = NameOf(folder / made.path().filename());
    if (!StateOf(path)) continue;
    const std::string hash = HashOfFile(NameOf(made.path()));
    if (HashOfFile(path) == hash) replaceable->Add(path, hash);
  }
}

void CleanFile(const FileTask& task, JobOptions options, const std::string& manifest, FileResult* result) {
  const OutputName name = {task.before, task.after, static_cast<int>(task.pageDigits)};
  options.inputs = {task.input};
  options.output = name.OfPage(1);
  options.format = task.format;
  options.makesParents = true;
  options.threads = 1;
  if (name.hasPage()) options.pageName = [name](int page) { return name.OfPage(page); };
  std::error_code error;
  if (fs::is_directory(PathOf(options.output), error)) {
    throw PageError(options.output + " is a folder");
  }
  Replaceable replaceable(task, options.overwrites, manifest);
  options.mayReplace = [&replaceable](const std::string& path) { return replaceable.Has(path); };
  const bool isDocument = !name.hasPage() && FindFormat(task.format)->hasManyPages != 0;
  try {
    Outcome outcome(&options);
    RunJobs(options);
    result->pages = outcome.Finish(options.output, isDocument);
    return;
  } catch (const UsageError&) {
    if (!task.isKnown || !replaceable.hasRefused()) throw;
  }
  AddUnrecorded(options, name, &replaceable);
  Outcome outcome(&options);
  RunJobs(options);
  result->pages = outcome.Finish(options.output, isDocument);
}

void HashFiles(const FileTask& task, FileResult* result) {
  for (const std::string& path : task.outputs) {
    PageResult page;
    page.output = path;
    try {
      page.hash = HashOfFile(path);
      page.isDone = true;
    } catch (const PageError& error) {
      page.error = error.what();
    }
    result->pages.push_back(std::move(page));
  }
}

FileResult Do(const FileTask& task, const JobOptions& options, const std::string& manifest) {
  const auto start = std::chrono::steady_clock::now();
  FileResult result;
  try {
    if (task.kind == kHashFiles) {
      HashFiles(task, &result);
      return result;
    }
    if (task.kind == kMakePictures) {
      if (!task.knownHash.empty() && HashOfFile(task.input) != task.knownHash) {
        throw PageError("is not the file that the manifest tells of");
      }
      WritePicture(task.input, static_cast<int>(task.page), task.outputs.at(0), task.outputs.at(1));
      if (!task.outputs[1].empty()) result.ink = DarkShare(task.outputs[1]);
      return result;
    }
    if (task.kind == kMeasureInk) {
      result.ink = DarkShare(task.outputs.at(0));
      return result;
    }
    // Before it is read: what changes meanwhile has a later time.
    const std::optional<FileState> state = StateOf(task.input);
    if (!state) throw PageError("is no file that can be read");
    result.size = state->size;
    result.modified = state->modified;
    result.hash = HashOfFile(task.input);
    result.isUnchanged = !task.knownHash.empty() && result.hash == task.knownHash;
    if (!result.isUnchanged) CleanFile(task, options, manifest, &result);
  } catch (const std::bad_alloc&) {
    result.error = "out of memory";
  } catch (const std::exception& error) {
    result.error = error.what();
  }
  result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return result;
}

// Away from where programs that a page is drawn by would find it, and hold it open.
int TakeSocket() {
  const int socket = ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  ::dup2(STDOUT_FILENO, STDIN_FILENO);  // /dev/null
  return socket;
}

}  // namespace

int RunWorker(const JobOptions& options, const std::vector<std::string>& outputs,
              const std::string& manifest) {
  const int socket = TakeSocket();
  if (options.isSandboxed) EnterSandbox(outputs);
  Inbox inbox;
  if (!Send(socket, {})) return 1;  // it is ready
  while (const std::optional<Message> message = Receive(socket, &inbox)) {
    const FileTask task = TaskFrom(*message);
    if (!Send(socket, ToMessage(Do(task, options, manifest)))) return 1;
  }
  return 0;
}

}  // namespace rastrel::tool
