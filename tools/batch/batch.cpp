#include "tools/batch/batch.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <set>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/batch/crew.h"
#include "tools/batch/files.h"
#include "tools/batch/manifest.h"
#include "tools/batch/progress.h"
#include "tools/console.h"
#include "tools/paths.h"
#include "tools/system.h"

namespace rastrel::tool {
namespace {

namespace fs = std::filesystem;

// ---- which options pages were done with -------------------------------------------------------------------

// All that a page's bytes depend on, as JSON. What only says which pages fail is not among it.
std::string OptionsText(const JobOptions& options) {
  const CleanOptions& steps = options.clean;
  static_assert(sizeof(void*) != 8 || sizeof(CleanOptions) == 128, "the new ones belong here, too");
  nlohmann::ordered_json json = {
      {"text", steps.text},
      {"cropSheet", steps.cropSheet},
      {"trim", steps.trim},
      {"holes", steps.holes},
      {"holeSize", steps.holeSize},
      {"specks", steps.specks},
      {"speckLevel", steps.speckLevel},
      {"speckFull", steps.speckFull},
      {"deskew", steps.deskew},
      {"mostSkew", steps.mostSkew},
      {"blankPercent", steps.blankPercent},
      {"dropsBlank", options.dropsBlank},
      {"reduce", steps.reduce},
      {"brightness", steps.brightness},
      {"toDpi", steps.toDpi},
      {"dpi", options.dpi},
      {"classic", steps.classic},
      {"evenLight", steps.evenLight},
      {"whitePaper", steps.whitePaper},
      {"lessBleed", steps.lessBleed},
      {"format", options.format},
      {"quality", options.jpegQuality},
      {"compression", options.compression},
      {"pdfa", options.isArchival},
      {"mixed", options.isMixed},
      {"skipDamaged", options.skipsDamaged},
  };
  return json.dump();
}

// ---- what is left to do -----------------------------------------------------------------------------------

constexpr const char* kIsThere = "is there already; --overwrite replaces it";

struct Todo {
  size_t item = 0;
  int64_t row = 0;  // 0: not yet in the manifest
  const char* reason = "";
  FileState state = {};                        // of the input, before anything is done with it
  bool isKnown = false;                        // by an earlier run
  std::string knownHash = {};                  // of an input that may be what it was
  std::vector<FileRow::Written> written = {};  // what the batch wrote of it before
  bool isTaken = false;                        // somebody else's file stands under the output's name
};

struct Decision {
  std::vector<Todo> todo;
  size_t asBefore = 0, failedBefore = 0;
};

bool IsThere(const OutputName& name, const std::string& format) {
  if (StateOf(name.OfPage(1))) return true;
  // Several pages of one file are numbered by the command itself.
  const fs::path path = PathOf(name.before);
  const bool isNumbered = !name.hasPage() && FindFormat(format)->hasManyPages == 0;
  return isNumbered &&
         StateOf(NameOf(path.parent_path() / path.stem()) + "-001" + NameOf(path.extension())).has_value();
}

class Decider {
 public:
  Decider(const BatchOptions& options, const std::vector<BatchItem>& items, Manifest* manifest,
          const std::string& optionsHash)
      : options_(options), items_(items), manifest_(manifest), optionsHash_(optionsHash) {}

  Decision Decide() {
    Decision decision;
    const std::unordered_map<std::string, FileRow> rows =
        manifest_ != nullptr ? manifest_->Files() : std::unordered_map<std::string, FileRow>();
    for (size_t i = 0; i < items_.size(); ++i) {
      const BatchItem& item = items_[i];
      const auto found = manifest_ != nullptr ? rows.find(manifest_->Stored(item.input)) : rows.end();
      const FileRow* row = found != rows.end() ? &found->second : nullptr;
      Todo todo = {.item = i, .row = row != nullptr ? row->id : 0, .reason = Reason(item, row)};
      if (todo.reason == nullptr) {
        ++(row->progress == FileProgress::kFailed ? decision.failedBefore : decision.asBefore);
        continue;
      }
      // Whether other files are its own is found when it is its turn.
      const bool mayBeOurs =
          row != nullptr && (row->progress == FileProgress::kWaiting || !row->written.empty());
      todo.isTaken = !mayBeOurs && !options_.job.overwrites && IsThere(item.output, item.format);
      todo.isKnown = row != nullptr;
      todo.state = StateOf(item.input).value_or(FileState());
      if (row != nullptr) todo.written = row->written;
      if (todo.reason == kInputChanged) todo.knownHash = row->hash;
      decision.todo.push_back(std::move(todo));
    }
    return decision;
  }

 private:
  static constexpr const char* kInputChanged = "the input may have changed";

  // Why a file is to be done; null where it is not.
  const char* Reason(const BatchItem& item, const FileRow* row) const {
    if (row == nullptr) return "new";
    if (row->progress == FileProgress::kWaiting) return "not finished";
    if (options_.isRetry && row->progress == FileProgress::kFailed) return "failed before";
    if (row->output != manifest_->Stored(item.output.Text())) return "another name for the output";
    if (row->optionsHash != optionsHash_) return "other options";
    const std::optional<FileState> state = StateOf(item.input);
    const bool isSame = state && state->size == row->size && state->modified == row->modified;
    for (const FileRow::Written& output : row->outputs) {
      if (!StateOf(output.path)) return "an output is missing";
    }
    if (row->progress == FileProgress::kFailed)
      return isSame || !state ? nullptr : "failed before, and changed";
    if (!isSame) return kInputChanged;
    return nullptr;
  }

  const BatchOptions& options_;
  const std::vector<BatchItem>& items_;
  Manifest* manifest_;
  std::string optionsHash_;
};

// In place of an input nothing is written: it would be another one the next time. Nor in place of the
// manifest.
void RefuseInputsAsOutputs(const std::vector<BatchItem>& items, const std::string& manifest) {
  const std::string wholeManifest = WholeName(manifest);
  std::set<FileKey> inputs;
  for (const BatchItem& item : items) {
    if (const auto key = KeyOf(item.input)) inputs.insert(*key);
  }
  for (const BatchItem& item : items) {
    if (WholeName(item.output.OfPage(1)) == wholeManifest) {
      throw UsageError(fmt::format("{} would go to {}, the manifest", item.input, manifest));
    }
    const auto key = KeyOf(item.output.OfPage(1));
    if (key && inputs.contains(*key)) {
      throw UsageError(
          fmt::format("{} is an input; a batch writes to another folder", item.output.OfPage(1)));
    }
  }
}

// What lies elsewhere by links of the output's folder, as the targets of folders and files in it.
std::vector<std::string> LinkedOutputs(const std::vector<BatchItem>& items, const std::string& root) {
  std::error_code error;
  const fs::path whole = fs::weakly_canonical(fs::absolute(PathOf(root)), error);
  const auto isBelow = [&](const fs::path& path) {
    const fs::path relative = path.lexically_relative(whole);
    return !relative.empty() && *relative.begin() != "..";
  };
  std::set<std::string> folders, linked;
  for (const BatchItem& item : items) {
    const fs::path output = fs::absolute(PathOf(item.output.OfPage(1)));
    if (folders.insert(NameOf(output.parent_path())).second) {
      const fs::path folder = fs::weakly_canonical(output.parent_path(), error);
      if (!isBelow(folder)) linked.insert(NameOf(folder));
    }
    if (fs::is_symlink(output, error)) linked.insert(NameOf(output));
  }
  return {linked.begin(), linked.end()};
}

// ---- the doing --------------------------------------------------------------------------------------------

std::atomic<int> interruptions{0};

// The first lets pages under way end; another one ends the process, and with it the workers.
void Interrupt(int) {
  if (++interruptions > 1) ::_exit(kExitInterrupted);
}

// That no other batch uses the manifest at the same time.
class Lock {
 public:
  explicit Lock(const std::string& path) : file_(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666)) {
    if (file_ < 0) throw UsageError(fmt::format("{} cannot be written", path));
    if (::flock(file_, LOCK_EX | LOCK_NB) != 0)
      throw UsageError(fmt::format("{}: another batch is using it", path));
  }
  ~Lock() { ::close(file_); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  int file_;
};

class Batch {
 public:
  Batch(const BatchOptions& options, const std::vector<BatchItem>& items,
        const std::vector<std::string>& command, Manifest* manifest)
      : options_(options),
        items_(items),
        manifest_(manifest),
        progress_(options.log, options.job.report.isQuiet),
        crew_(command, ThreadsFor(options.job.threads), options.job.report.isVerbose) {}

  int Clean(Decision decision) {
    EnterRows(&decision);
    progress_.Start(decision.todo.size(), decision.asBefore, decision.failedBefore);
    std::vector<const Todo*> todo;
    for (const Todo& each : decision.todo) {
      if (each.isTaken) {
        progress_.Fail(items_[each.item].output.OfPage(1), kIsThere);
      } else {
        todo.push_back(&each);
      }
    }
    Run(
        todo.size(),
        [&](size_t i) {
          progress_.Begin(items_[todo[i]->item].input);
          return TaskOf(*todo[i]);
        },
        [&](const Crew::Event& event) { Note(*todo[event.item], event); });
    return End(decision.failedBefore);
  }

  // Compares outputs with what was written.
  int Verify() {
    struct Written {
      int64_t row;
      FileRow::Written output;
    };
    std::vector<Written> outputs;
    for (const auto& [input, row] : manifest_->Files()) {
      if (row.progress == FileProgress::kWaiting) continue;
      for (const FileRow::Written& output : row.outputs) outputs.push_back({row.id, output});
    }
    std::sort(outputs.begin(), outputs.end(),
              [](const Written& one, const Written& other) { return one.output.path < other.output.path; });
    progress_.Start(outputs.size(), 0, 0);
    Run(
        outputs.size(),
        [&](size_t i) {
          FileTask task;
          task.kind = kHashFiles;
          task.outputs = {outputs[i].output.path};
          return task;
        },
        [&](const Crew::Event& event) {
          const Written& written = outputs[event.item];
          const bool isRead = event.result && !event.result->pages.empty() && event.result->pages[0].isDone;
          if (isRead && event.result->pages[0].hash == written.output.hash) {
            manifest_->SetVerified(written.row, written.output.path, "");
            progress_.End(written.output.path, *event.result);
            return;
          }
          const std::string error = !isRead ? "cannot be read again" : "is not what was written";
          manifest_->SetVerified(written.row, written.output.path, "the output " + error);
          progress_.Fail(written.output.path, error);
        });
    return End(0);
  }

 private:
  void EnterRows(Decision* decision) {
    Transaction transaction(manifest_->database());
    for (Todo& todo : decision->todo) {
      const BatchItem& item = items_[todo.item];
      if (todo.row == 0) {
        todo.row = manifest_->Add(item.input, item.output.Text());
      } else if (!todo.isTaken) {
        manifest_->SetWaiting(todo.row, item.output.Text());
      }
      if (todo.isTaken) manifest_->SetFailed(todo.row, kIsThere, todo.state.size, todo.state.modified);
    }
    transaction.Commit();
  }

  FileTask TaskOf(const Todo& todo) const {
    const BatchItem& item = items_[todo.item];
    FileTask task;
    task.kind = kCleanFile;
    task.input = item.input;
    task.before = item.output.before;
    task.after = item.output.after;
    task.pageDigits = item.output.pageDigits;
    task.format = item.format;
    task.isKnown = todo.isKnown;
    for (const FileRow::Written& written : todo.written) {
      task.outputs.push_back(written.path);
      task.outputs.push_back(written.hash);
    }
    task.knownHash = todo.knownHash;
    return task;
  }

  // Brings what came of a file to the manifest, in whose transaction this runs. The outputs are in place.
  void Note(const Todo& todo, const Crew::Event& event) {
    const std::string& input = items_[todo.item].input;
    if (!event.result) {
      Fail(todo, "its worker " + event.death);
    } else if (const std::optional<std::string> full = FullDisk(*event.result)) {
      // Nothing is wrong with the page: it waits, as do those after it.
      manifest_->SetWaiting(todo.row, items_[todo.item].output.Text());
      if (!std::exchange(isFull_, true))
        progress_.Trouble(input, *full + "; the batch ends here, and goes on when run again");
    } else if (!event.result->error.empty()) {
      Fail(todo, event.result->error);
    } else if (event.result->isUnchanged) {
      manifest_->SetUnchanged(todo.row, event.result->modified);
      progress_.End(input, *event.result);
    } else {
      const std::vector<std::string> lost = manifest_->SetResult(todo.row, *event.result);
      progress_.End(input, *event.result);
      for (const std::string& path : lost) {
        progress_.Trouble(path, fmt::format("was another input's output, and is now that of {}", input));
      }
      TellLeftOver(todo, *event.result);
    }
  }

  static std::optional<std::string> FullDisk(const FileResult& result) {
    if (IsOfFullDisk(result.error)) return result.error;
    for (const PageResult& page : result.pages) {
      if (IsOfFullDisk(page.error)) return page.error;
    }
    return std::nullopt;
  }

  // What came of an earlier state of the input, or of other options, and of this one no more. Of an input
  // that fails now it may be all that is good.
  void TellLeftOver(const Todo& todo, const FileResult& result) {
    for (const PageResult& page : result.pages) {
      if (!page.isDone) return;
    }
    for (const FileRow::Written& old : todo.written) {
      const std::string name = WholeName(old.path);
      const bool isMade = std::any_of(result.pages.begin(), result.pages.end(), [&](const PageResult& page) {
        return !page.output.empty() && WholeName(page.output) == name;
      });
      if (!isMade && StateOf(old.path)) progress_.LeftOver(old.path, items_[todo.item].input);
    }
  }

  void Fail(const Todo& todo, const std::string& error) {
    manifest_->SetFailed(todo.row, error, todo.state.size, todo.state.modified);
    progress_.Fail(items_[todo.item].input, error);
  }

  // Hands out `count` tasks and takes what comes of them. Workers have their next one before the rows of the
  // last are written.
  template <class MakeTask, class Take>
  void Run(size_t count, MakeTask makeTask, Take take) {
    constexpr int kLongestWaitMs = 1000;
    size_t next = 0;
    std::vector<Crew::Event> events;
    do {
      while (next < count && crew_.HasRoom() && MayGoOn()) {
        const FileTask task = makeTask(next);
        if (crew_.Give(next, task)) ++next;
      }
      if (!events.empty()) {
        Transaction transaction(manifest_->database());
        for (const Crew::Event& event : events) take(event);
        transaction.Commit();
      }
      events.clear();
      if (crew_.busy() > 0) events = crew_.Wait(kLongestWaitMs);
    } while (!events.empty() || crew_.busy() > 0 || (next < count && MayGoOn()));
  }

  bool MayGoOn() const { return interruptions == 0 && !isFull_; }

  int End(size_t failedBefore) {
    manifest_->EndRun();
    progress_.Finish(interruptions > 0);
    if (interruptions > 0) return kExitInterrupted;
    return progress_.failed() > 0 || failedBefore > 0 ? 1 : 0;
  }

  const BatchOptions& options_;
  const std::vector<BatchItem>& items_;
  Manifest* manifest_;
  Progress progress_;
  Crew crew_;
  bool isFull_ = false;
};

void PrintPlan(const std::vector<BatchItem>& items, const Decision& decision) {
  for (const Todo& todo : decision.todo) {
    const BatchItem& item = items[todo.item];
    Print(stdout, "{} -> {} ({})\n", item.input, item.output.Text(), todo.isTaken ? kIsThere : todo.reason);
  }
  Print(stdout, "{} of {} files to do; {} done before, {} failed before\n", decision.todo.size(),
        items.size(), decision.asBefore, decision.failedBefore);
}

}  // namespace

std::string ManifestOf(const BatchOptions& options) {
  return options.manifest.empty() ? NameOf(PathOf(options.output) / "batch.sqlite") : options.manifest;
}

int RunBatch(const BatchOptions& options, const std::vector<std::string>& command) {
  std::vector<std::string> trouble;
  const std::vector<BatchItem> items = ListItems(options, &trouble);
  RefuseInputsAsOutputs(items, ManifestOf(options));
  for (const std::string& line : trouble) Print(stderr, "rastrel: {}\n", line);
  const std::string optionsText = OptionsText(options.job), optionsHash = HashOfText(optionsText);
  const std::string path = ManifestOf(options);
  const bool isSafe = !options.job.skipsSync;
  std::error_code error;
  if (options.isDryRun) {
    std::unique_ptr<Manifest> manifest;
    if (fs::exists(PathOf(path), error)) manifest = std::make_unique<Manifest>(path, Database::Access::kRead);
    PrintPlan(items, Decider(options, items, manifest.get(), optionsHash).Decide());
    return 0;
  }
  if (options.isVerify && !fs::exists(PathOf(path), error)) {
    throw UsageError(fmt::format("{}: there is no such manifest", path));
  }
  fs::create_directories(PathOf(options.output), error);
  if (error) throw UsageError(fmt::format("{}: {}", options.output, error.message()));
  const Lock lock(path);
  Manifest manifest(path, Database::Access::kWrite, isSafe);
  manifest.BeginRun(optionsText, optionsHash);
  OnInterruption(Interrupt);
  std::vector<std::string> workers = command;
  for (const std::string& linked : LinkedOutputs(items, options.output)) {
    workers.insert(workers.end(), {kLinkedOutputFlag, linked});
  }
  Batch batch(options, items, std::move(workers), &manifest);
  const int code = options.isVerify ? batch.Verify()
                                    : batch.Clean(Decider(options, items, &manifest, optionsHash).Decide());
  return code == 0 && !trouble.empty() ? 1 : code;
}

}  // namespace rastrel::tool
