#include "tools/batch/site.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/batch/attention.h"
#include "tools/batch/crew.h"
#include "tools/batch/files.h"
#include "tools/batch/manifest.h"
#include "tools/batch/names.h"
#include "tools/batch/progress.h"
#include "tools/console.h"
#include "tools/json_line.h"
#include "tools/operations.h"
#include "tools/paths.h"
#include "tools/report_site/files.h"
#include "tools/system.h"

namespace rastrel::tool {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

// A file of the site is read as a whole: rows are short, records are not.
constexpr size_t kRowsPerChunk = 5000, kRecordsPerChunk = 200;

// A page as the site knows it.
struct SitePage {
  PageRow row;      // without its record
  std::string key;  // of its pictures
  int64_t pageInOutput = 1;
  PageFacts facts;
  std::optional<double> ink;  // of what came out, in the small picture
};

void WriteText(const fs::path& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  file << text;
  file.close();
  if (!file) throw PageError(fmt::format("{} cannot be written", NameOf(path)));
}

// Pictures go by what they show, so that none is ever taken for another's.
std::string KeyOfPictures(const PageRow& row) {
  constexpr size_t kDigits = 20;
  const bool isDone = row.progress == FileProgress::kDone;
  return HashOfText(
             fmt::format("{} {} {} {}", row.input, row.page, row.inputHash, isDone ? row.outputHash : "none"))
      .substr(0, kDigits);
}

// Where a page's picture lies: "img/3f/3f...-after.jpg". Folders stay small.
std::string PictureName(const std::string& key, const char* what) {
  return fmt::format("img/{}/{}-{}.jpg", key.substr(0, 2), key, what);
}

class Site {
 public:
  Site(const SiteOptions& options, const std::vector<std::string>& command)
      : options_(options), command_(command), folder_(PathOf(options.output)) {}

  int Make() {
    {
      // All of it at one moment: a batch may be at work meanwhile.
      Manifest manifest(options_.manifest, Database::Access::kRead);
      manifest.database()->Execute("BEGIN");
      ReadPages(&manifest);
      if (pages_.empty()) throw UsageError(fmt::format("{} has no pages", options_.manifest));
      RefuseOthersFolder();
      fs::create_directories(folder_ / "data");
      WriteRecords(&manifest);
    }
    attention_ = AttentionOf(Facts());
    const int64_t failed = MakePictures();
    WriteRows();
    for (const SiteFile& file : SiteFiles()) WriteText(folder_ / file.name, std::string(file.bytes));
    if (!options_.isQuiet) {
      Print(stdout, "{} pages -> {}\n", pages_.size(), NameOf(folder_ / "index.html"));
    }
    return failed > 0 ? 1 : 0;
  }

 private:
  // A site is written over one of ours only.
  void RefuseOthersFolder() const {
    std::error_code error;
    const fs::path index = folder_ / "index.html";
    if (!fs::exists(index, error) || fs::exists(folder_ / "data" / "summary.js", error)) return;
    throw UsageError(fmt::format("{} is there already, and of no report", NameOf(index)));
  }

  void ReadPages(Manifest* manifest) {
    std::map<std::string, int64_t> pagesOf;  // outputs of several pages
    manifest->ForEachPage([&](PageRow row) {
      SitePage page;
      try {
        page.facts = FactsFrom(row.record);
      } catch (const nlohmann::json::exception&) {
        page.facts = {};  // a record with other things than numbers and words in their places
      }
      page.facts.isWaiting = row.progress == FileProgress::kWaiting;
      page.facts.isFailed = row.progress == FileProgress::kFailed;
      page.facts.folder = row.input.substr(0, row.input.rfind('/') + 1);
      row.record.clear();
      page.key = KeyOfPictures(row);
      page.row = std::move(row);
      pages_.push_back(std::move(page));
    });
    std::stable_sort(pages_.begin(), pages_.end(), [](const SitePage& one, const SitePage& other) {
      if (one.row.input == other.row.input) return one.row.page < other.row.page;
      return NaturallyBefore(one.row.input, other.row.input);
    });
    for (size_t i = 0; i < pages_.size(); ++i) {
      placeOf_[{pages_[i].row.file, pages_[i].row.page}] = i;
      if (!pages_[i].row.output.empty()) pages_[i].pageInOutput = ++pagesOf[pages_[i].row.output];
    }
  }

  std::vector<PageFacts> Facts() const {
    std::vector<PageFacts> facts;
    for (const SitePage& page : pages_) facts.push_back(page.facts);
    return facts;
  }

  // The records by the place of their page, written anew: whoever made the manifest, no script comes in.
  void WriteRecords(Manifest* manifest) const {
    std::vector<std::string> chunks((pages_.size() + kRecordsPerChunk - 1) / kRecordsPerChunk);
    manifest->ForEachPage([&](const PageRow& row) {
      const size_t place = placeOf_.at({row.file, row.page});
      Json record = Json::parse(row.record, nullptr, false);
      if (!record.is_object()) record = {{"error", row.error}};
      chunks[place / kRecordsPerChunk] += fmt::format("{}:{},\n", place, JsonLine(record));
    });
    for (size_t i = 0; i < chunks.size(); ++i) {
      WriteText(folder_ / "data" / fmt::format("records-{}.js", i),
                fmt::format("rastrel.records({},{{\n{}}});\n", i, chunks[i]));
    }
  }

  bool HasPicture(const SitePage& page, const char* what) const {
    std::error_code error;
    return fs::exists(folder_ / PictureName(page.key, what), error);
  }

  // What the grid, the order and the filters need, a short list for each page; report_site/report.js names
  // its columns.
  void WriteRows() const {
    size_t chunk = 0;
    for (size_t first = 0; first < pages_.size(); first += kRowsPerChunk) {
      std::string text = fmt::format("rastrel.rows({},[\n", chunk);
      for (size_t i = first; i < std::min(pages_.size(), first + kRowsPerChunk); ++i) {
        const SitePage& page = pages_[i];
        const PageFacts& facts = page.facts;
        constexpr const char* kStates[] = {"waiting", "done", "failed"};
        const int flags = (facts.isTurned ? 1 : 0) | (facts.isBlank ? 2 : 0) | (facts.takenBack > 0 ? 4 : 0) |
                          (HasPicture(page, "before") ? 8 : 0) | (HasPicture(page, "after") ? 16 : 0) |
                          (facts.isDropped ? 32 : 0);
        const auto rounded = [](double value, double steps) { return std::round(value * steps) / steps; };
        text +=
            JsonLine(Json::array({page.row.input, page.row.page, page.key, page.row.output,
                                  kStates[static_cast<int>(page.row.progress)], attention_[i].score,
                                  attention_[i].reasons, rounded(facts.skew, 100),
                                  rounded(facts.skewConfidence, 100), rounded(facts.removedShare, 10000),
                                  rounded(facts.speckShare, 1e6), facts.holes, rounded(facts.seconds, 1000),
                                  flags, page.ink ? Json(rounded(*page.ink, 10000)) : Json(nullptr)})) +
            ",\n";
      }
      WriteText(folder_ / "data" / fmt::format("rows-{}.js", chunk++), text + "]);\n");
    }
    WriteText(folder_ / "data" / "summary.js",
              fmt::format("rastrel.summary({});\n", JsonLine({{"pages", pages_.size()},
                                                              {"rowChunks", chunk},
                                                              {"rowsPerChunk", kRowsPerChunk},
                                                              {"recordsPerChunk", kRecordsPerChunk},
                                                              {"made", TimeNow()},
                                                              {"manifest", options_.manifest},
                                                              {"version", PagesVersion()}})));
  }

  // Draws and measures them by the workers of a batch, as a page may take down or take over whoever reads it,
  // and then a picture of it may be anything, too. Those that are there stay. Returns how many pages have
  // none.
  int64_t MakePictures() {
    std::vector<FileTask> tasks;
    std::vector<SitePage*> pageOf;  // that a task is for
    for (SitePage& page : pages_) {
      if (options_.hasPictures) {
        AddPicture(page, page.row.input, page.row.page, "before", &tasks);
        if (!page.row.output.empty() && page.row.progress == FileProgress::kDone) {
          AddPicture(page, page.row.output, page.pageInOutput, "after", &tasks);
        }
      }
      const bool hasSmall =
          std::any_of(tasks.begin() + static_cast<std::ptrdiff_t>(pageOf.size()), tasks.end(),
                      [](const FileTask& task) { return !task.outputs[1].empty(); });
      if (!hasSmall && HasPicture(page, "small")) {
        FileTask& measure = tasks.emplace_back();
        measure.kind = kMeasureInk;
        measure.outputs = {NameOf(folder_ / PictureName(page.key, "small"))};
      }
      pageOf.resize(tasks.size(), &page);
    }
    Progress progress("", options_.isQuiet);
    progress.Start(tasks.size(), 0, 0);
    Crew crew(command_, ThreadsFor(options_.threads), false);
    int64_t failed = 0;
    for (size_t next = 0; next < tasks.size() || crew.busy() > 0;) {
      while (next < tasks.size() && crew.HasRoom()) {
        if (crew.Give(next, tasks[next])) ++next;
      }
      for (const Crew::Event& event : crew.Wait(1000)) {
        SitePage& page = *pageOf[event.item];
        if (event.result && event.result->ink >= 0) page.ink = event.result->ink;
        // Of pages that failed there may be no picture either.
        const bool isMade =
            tasks[event.item].kind != kMakePictures || (event.result && event.result->error.empty());
        if (!isMade && page.row.progress == FileProgress::kDone) ++failed;
        FileResult counted;
        counted.pages.emplace_back();
        counted.pages.back().isDone = true;
        progress.End(tasks[event.item].input, counted);
      }
    }
    return failed;
  }

  void AddPicture(const SitePage& shown, const std::string& source, int64_t page, const char* what,
                  std::vector<FileTask>* tasks) const {
    const PageRow& row = shown.row;
    const fs::path picture = folder_ / PictureName(shown.key, what);
    // The small one shows what came out, or else what there was.
    const bool isAfter = what == std::string("after");
    const bool isSmall = isAfter || row.output.empty() || row.progress != FileProgress::kDone;
    if (!StateOf(source) || (HasPicture(shown, what) && (!isSmall || HasPicture(shown, "small")))) return;
    std::error_code error;
    fs::create_directories(picture.parent_path(), error);
    FileTask task;
    task.kind = kMakePictures;
    task.input = source;
    task.page = page;
    task.knownHash = isAfter ? row.outputHash : row.inputHash;
    task.outputs = {NameOf(picture), isSmall ? NameOf(folder_ / PictureName(shown.key, "small")) : ""};
    tasks->push_back(std::move(task));
  }

  const SiteOptions& options_;
  const std::vector<std::string>& command_;
  fs::path folder_;
  std::vector<SitePage> pages_;
  std::map<std::pair<int64_t, int64_t>, size_t> placeOf_;
  std::vector<Attention> attention_;
};

}  // namespace

int MakeSite(const SiteOptions& options, const std::vector<std::string>& command) {
  std::error_code error;
  if (!fs::exists(PathOf(options.manifest), error)) {
    throw UsageError(fmt::format("{}: there is no such manifest", options.manifest));
  }
  try {
    return Site(options, command).Make();
  } catch (const fs::filesystem_error& failure) {
    throw PageError(failure.what());
  }
}

}  // namespace rastrel::tool
