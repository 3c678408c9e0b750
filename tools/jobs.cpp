#include "tools/jobs.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <new>
#include <set>
#include <utility>

#include <fmt/format.h>

#include "tools/console.h"
#include "tools/paths.h"
#include "tools/system.h"
#include "tools/words.h"

namespace rastrel::tool {
namespace {

namespace fs = std::filesystem;

constexpr double kAssumedDpi = 300;

// ---- the plan ---------------------------------------------------------------------------------------------

void ListTasks(const JobOptions& options, Plan* plan) {
  const std::vector<std::string>& inputs = options.inputs;
  for (size_t i = 0; i < inputs.size(); ++i) {
    Input file(inputs[i] == kStandard
                   ? OpenPagesInMemory(plan->standardInput.data(), plan->standardInput.size())
                   : OpenPages(inputs[i].c_str()));
    if (file) SetPageReadOptions(file.get(), &options.reading);
    if (!file) {
      plan->tasks.push_back({{{.input = i, .error = PagesErrorText()}}});
      continue;
    }
    const char* damage = DamageOfPages(file.get());
    const int found = CountPages(file.get()), pages = found + (damage == nullptr ? 0 : 1);
    for (int page = 1; page <= found; ++page) {
      plan->tasks.push_back({{{.input = i, .page = page, .pages = pages, .file = file.get()}}});
    }
    if (damage != nullptr) {
      plan->tasks.push_back(
          {{{.input = i, .page = pages, .pages = pages, .file = file.get(), .error = damage}}});
    }
    plan->files.push_back(std::move(file));
  }
}

size_t InputOf(const Task& task) { return task.sources.front().input; }

// Makes one task of all, or of those of each input.
std::vector<Task> Joined(std::vector<Task> tasks, bool isByInput) {
  std::vector<Task> joined;
  for (Task& task : tasks) {
    if (joined.empty() || (isByInput && InputOf(joined.back()) != InputOf(task))) joined.emplace_back();
    joined.back().sources.push_back(std::move(task.sources.front()));
  }
  return joined;
}

// The format that pages of an input go to; a file that could not be opened has some, for its error.
std::string WritableFormat(const PageFile* file) {
  return tool::WritableFormat(file != nullptr ? FormatOfPages(file) : "bmp");
}

// A format that there is: only memory can be missing to find it.
PageFormat KnownFormat(const std::string& name) {
  const std::optional<PageFormat> format = FindFormat(name);
  if (!format) throw std::bad_alloc();
  return *format;
}

bool HasManyPages(const std::string& format) { return KnownFormat(format).hasManyPages != 0; }

std::string Numbered(const fs::path& path, int number) {
  const std::string name = fmt::format("{}-{:03}{}", NameOf(path.stem()), number, NameOf(path.extension()));
  return NameOf(path.parent_path() / PathOf(name));
}

// Gives each task of `tasks` an output of its own: `path`, numbered where there are several.
void PlanSinglePages(std::span<Task> tasks, const fs::path& path, const std::string& format, Plan* plan) {
  int number = 0;
  for (Task& task : tasks) {
    task.output = plan->outputs.size();
    plan->outputs.push_back({tasks.size() == 1 ? NameOf(path) : Numbered(path, ++number), format});
  }
}

// Puts all of `tasks` into `path`.
void PlanDocument(std::span<Task> tasks, const fs::path& path, const std::string& format, Plan* plan) {
  for (Task& task : tasks) task.output = plan->outputs.size();
  plan->outputs.push_back({NameOf(path), format});
}

void PlanFolder(const JobOptions& options, Plan* plan) {
  const std::span<Task> tasks(plan->tasks);
  for (size_t first = 0; first < tasks.size();) {
    size_t last = first;
    while (last < tasks.size() && InputOf(tasks[last]) == InputOf(tasks[first])) ++last;
    const std::span<Task> ofFile = tasks.subspan(first, last - first);
    const Source& source = ofFile[0].sources.front();
    const std::string format = options.format.empty() ? WritableFormat(source.file) : options.format;
    const std::string& input = options.inputs[source.input];
    const std::string name = input == kStandard ? "standard-input" : input;
    fs::path path = PathOf(options.output) / PathOf(name).filename();
    path.replace_extension(format);
    if (HasManyPages(format)) {
      PlanDocument(ofFile, path, format, plan);
    } else {
      PlanSinglePages(ofFile, path, format, plan);
    }
    first = last;
  }
}

// Gives each page the name that it is to have.
void PlanNamedPages(const JobOptions& options, Plan* plan) {
  for (Task& task : plan->tasks) {
    task.output = plan->outputs.size();
    plan->outputs.push_back({options.pageName(task.sources.front().page), options.format});
  }
}

bool IsFolder(const std::string& path) {
  if (path == kStandard) return false;
  std::error_code error;
  return !PathOf(path).has_filename() || fs::is_directory(PathOf(path), error);
}

bool IsPng(const std::string& ending) {
  const std::optional<PageFormat> format = ending.empty() ? std::nullopt : FindFormat(ending.substr(1));
  return format && format->name == std::string_view("png");
}

void PlanOverlays(const JobOptions& options, Plan* plan) {
  JobOptions pictures;
  pictures.inputs = options.inputs;
  pictures.output = options.overlay;
  pictures.format = "png";
  Plan overlays;
  overlays.tasks = plan->tasks;
  if (IsFolder(options.overlay)) {
    PlanFolder(pictures, &overlays);
  } else {
    const fs::path path = PathOf(options.overlay);
    const std::string ending = NameOf(path.extension());
    if (!IsPng(ending))
      throw UsageError(fmt::format("--overlay: '{}' is neither a PNG file nor a folder", options.overlay));
    PlanSinglePages(overlays.tasks, path, "png", &overlays);
  }
  for (size_t i = 0; i < plan->tasks.size(); ++i) {
    plan->tasks[i].overlay = overlays.outputs[overlays.tasks[i].output].path;
  }
}

// Equal for names that would be one file, whether it is there or not.
std::string UniqueName(const std::string& path) {
  std::error_code error;
  return Comparable(NameOf(fs::weakly_canonical(fs::absolute(PathOf(path), error), error)));
}

bool IsFile(const std::string& path) {
  std::error_code error;
  return fs::is_regular_file(PathOf(path), error);
}

constexpr const char* kIsThere = "is there already";

bool MayReplace(const JobOptions& options, const std::string& path) {
  return options.mayReplace ? options.mayReplace(path) : options.overwrites;
}

std::set<FileKey> KeysOf(const std::vector<std::string>& paths) {
  std::set<FileKey> keys;
  for (const std::string& path : paths) {
    if (const auto key = KeyOf(path)) keys.insert(*key);
  }
  return keys;
}

void RefuseLosses(const JobOptions& options, const Plan& plan) {
  const std::set<FileKey> inputs = KeysOf(options.inputs);
  const auto refuseReplacing = [&](const std::string& path) {
    const auto key = KeyOf(path);
    if (!key || path == kStandard || !IsFile(path) || MayReplace(options, path)) return;
    const bool isInput = inputs.contains(*key);
    throw UsageError(fmt::format("{} {}; --overwrite replaces it", path, isInput ? "is an input" : kIsThere));
  };
  std::set<std::string> names;
  for (const Output& output : plan.outputs) {
    if (!names.insert(UniqueName(output.path)).second) {
      throw UsageError(fmt::format("several inputs would go to {}", output.path));
    }
    refuseReplacing(output.path);
  }
  for (const Task& task : plan.tasks) {
    if (task.overlay.empty()) continue;
    if (!names.insert(UniqueName(task.overlay)).second) {
      throw UsageError(fmt::format("--overlay: {} is another output's name", task.overlay));
    }
    const auto key = KeyOf(task.overlay);
    if (key && inputs.contains(*key)) {
      throw UsageError(fmt::format("--overlay: {} is an input", task.overlay));
    }
    refuseReplacing(task.overlay);
  }
}

// A folder is made where its name ends in '/', and the folders that it lies in where that is asked for.
// Throws UsageError where one is missing.
void MakeFolders(const JobOptions& options) {
  for (const std::string& output : {options.output, options.overlay}) {
    if (output.empty() || output == kStandard) continue;
    const fs::path path = PathOf(output);
    const bool isFolder = !path.has_filename();
    const fs::path folder = isFolder ? path.parent_path() : path;
    const fs::path parent = folder.parent_path();
    std::error_code error;
    if (options.makesParents && !parent.empty()) fs::create_directories(parent, error);
    if (error)
      throw UsageError(fmt::format("{}: {} cannot be made: {}", output, NameOf(parent), error.message()));
    if (!parent.empty() && !fs::is_directory(parent, error)) {
      throw UsageError(fmt::format("{}: there is no folder {}; --parents makes it", output, NameOf(parent)));
    }
    if (isFolder) fs::create_directory(folder, error);
    if (isFolder && !fs::is_directory(folder, error))
      throw UsageError(fmt::format("{}: the folder cannot be made: {}", output, error.message()));
  }
}

// ---- the work ---------------------------------------------------------------------------------------------

// What a page has become, on its way to the file.
struct Finished {
  const Task* task = nullptr;
  PageReport report;
  Metadata metadata;             // of the first page that went into it
  std::string fileWithoutDpi;    // whose resolution had to be assumed
  std::vector<Encoded> encoded;  // for a file of many pages
  struct File {
    Writer writer;  // written, but not yet under its name
    std::string path;
  };
  std::vector<File> files;  // for others
  std::string refused;      // of these, what could not be written
  Writer overlay;           // likewise
};

// Notes how long its own life was.
class StepTimer {
 public:
  StepTimer(PageReport* report, std::string step)
      : report_(report), step_(std::move(step)), start_(std::chrono::steady_clock::now()) {}
  ~StepTimer() {
    const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start_;
    report_->times.push_back({std::move(step_), time.count()});
  }
  StepTimer(const StepTimer&) = delete;
  StepTimer& operator=(const StepTimer&) = delete;

 private:
  PageReport* report_;
  std::string step_;
  std::chrono::steady_clock::time_point start_;
};

void TakeRecord(CleanRecord* record, PageReport* report) {
  report->record.reset(record);
  GetCleanSummary(record, &report->summary);
  for (int32_t i = 0; i < report->summary.times; ++i) {
    const char* step = "";
    double milliseconds = 0;
    GetCleanTime(record, i, &step, &milliseconds);
    report->times.push_back({step, milliseconds});
  }
}

void Describe(HGLOBAL page, PageReport* report) {
  const PageInfo info = InfoOf(page);
  CleanSummary& summary = report->summary;
  summary.width = info.width;
  summary.height = info.height;
  summary.bits = info.bits;
  summary.dpiX = info.dpiX;
  summary.dpiY = info.dpiY;
}

// Of a file that goes to `path`, and was begun by that name or not. Throws PageError.
void SetRules(PageWriter* writer, const JobOptions& options, const std::string& source,
              const std::string& path, bool isBegunSo) {
  auto rules = Sized<PageFileRules>();
  rules.keepExisting = MayReplace(options, path) ? 0 : 1;
  rules.keepTime = options.keepsTime ? 1 : 0;
  rules.skipSync = options.skipsSync ? 1 : 0;
  rules.source = source.c_str();
  rules.path = isBegunSo ? nullptr : path.c_str();
  Checked(SetPageFileRules(writer, &rules));
}

// "quality=80,compression=jpeg", as far as the format has such options.
std::string OptionsFor(const std::string& format, const JobOptions& options) {
  std::string words;
  const auto add = [&](const char* name, const std::string& value) {
    if (HasOption(format, name)) words += fmt::format("{}{}={}", words.empty() ? "" : ",", name, value);
  };
  if (options.jpegQuality > 0) add("quality", std::to_string(options.jpegQuality));
  if (!options.compression.empty()) add("compression", options.compression);
  if (options.isArchival) add("pdfa", "2b");
  if (options.isMixed) add("layers", "mixed");
  return words;
}

// A file that is made of `source`. Throws PageError.
Writer Begun(const std::string& path, const std::string& format, const JobOptions& options,
             const std::string& source) {
  const std::string words = OptionsFor(format, options);
  if (path == kStandard) return Writer(Checked(CreatePagesInMemory(format.c_str(), words.c_str())));
  Writer writer(Checked(CreatePages(path.c_str(), format.c_str(), words.c_str())));
  SetRules(writer.get(), options, source, path, true);
  return writer;
}

// Its page is written. Throws PageError.
Writer Written(HGLOBAL page, const PageMetadata* metadata, const std::string& path, const std::string& format,
               const JobOptions& options, const std::string& source) {
  Writer writer = Begun(path, format, options, source);
  Checked(AppendPage(writer.get(), page, metadata));
  return writer;
}

// Where pictures of what was understood of a page go.
struct Explanation {
  std::string folder, file;
  int page;
  const JobOptions* options;
  std::string error;  // of the first that could not be written
};

// Each page's pictures are named after its file and its place in that.
void RASTREL_CALL WriteExplanation(void* context, const char* name, HGLOBAL picture) {
  Explanation& explanation = *static_cast<Explanation*>(context);
  try {
    const std::string stem = NameOf(PathOf(explanation.file).stem());
    const std::string own = fmt::format("{}-{:03}-{}.png", stem, explanation.page, name);
    const std::string path = NameOf(PathOf(explanation.folder) / PathOf(own));
    Checked(FinishPages(
        Written(picture, nullptr, path, "png", *explanation.options, explanation.file).release()));
  } catch (const std::exception& error) {
    if (explanation.error.empty()) explanation.error = fmt::format("--explain {}", error.what());
  }
}

void Complete(Writer writer, const std::string& path) {
  if (path != kStandard) {
    Checked(FinishPages(writer.release()));
    return;
  }
  size_t size = 0;
  void* bytes = Checked(FinishPagesInMemory(writer.release(), &size));
  Put(stdout, {static_cast<const char*>(bytes), size});
  FreePageBytes(bytes);
  if (IsOutputLost()) throw PageError("cannot be written");
}

std::string TextItem(const PageMetadata* metadata, const char* name) {
  size_t size = 0;
  const auto* bytes = static_cast<const char*>(GetPageMetadataItem(metadata, name, &size));
  return bytes != nullptr ? std::string(bytes, size) : "";
}

// What files say of themselves and what is carried from one to the next lie side by side.
bool IsCarried(std::string_view item) {
  constexpr std::string_view kOfTheFile[] = {"space", "depth", "compression", "reduced"};
  return std::find(std::begin(kOfTheFile), std::end(kOfTheFile), item) == std::end(kOfTheFile);
}

std::vector<std::string> CarriedItems(const PageMetadata* metadata) {
  std::vector<std::string> items;
  for (int32_t i = 0; const char* name = PageMetadataName(metadata, i); ++i) {
    if (IsCarried(name)) items.emplace_back(name);
  }
  return items;
}

std::vector<std::string> ReductionsOf(const PageMetadata* metadata) {
  const std::string reduced = TextItem(metadata, "reduced");
  std::vector<std::string> lines;
  if (reduced.empty()) return lines;
  for (const std::string_view line : Split(reduced, '\n')) lines.emplace_back(line);
  return lines;
}

void TellOriginal(const PageMetadata* metadata, PageReport* report) {
  report->space = TextItem(metadata, "space");
  report->depth = TextItem(metadata, "depth");
  report->compression = TextItem(metadata, "compression");
  report->tags = CarriedItems(metadata);
  for (std::string& line : ReductionsOf(metadata)) report->reduced.push_back(std::move(line));
}

// A page that several are joined to has what the first one brings.
void TellOtherItems(const PageMetadata* other, const PageMetadata* first, const std::string& file,
                    PageReport* report) {
  std::vector<std::string> lost = CarriedItems(other);
  std::erase_if(lost, [&](const std::string& item) {
    return TextItem(other, item.c_str()) == TextItem(first, item.c_str());
  });
  if (!lost.empty()) report->reduced.push_back(fmt::format("{} of {} left out", fmt::join(lost, ", "), file));
}

// A profile is for grey pages or for coloured ones.
bool IsProfileFor(const std::string& profile, HGLOBAL page) {
  constexpr size_t kSpaceAt = 16, kSpaceBytes = 4;
  if (profile.size() < kSpaceAt + kSpaceBytes) return false;
  return profile.substr(kSpaceAt, kSpaceBytes) == (InfoOf(page).isGrey != 0 ? "GRAY" : "RGB ");
}

// A profile for colours becomes one for greys where the page has become grey.
bool IsProfileConverted(const std::string& profile, HGLOBAL page) {
  return profile.size() > 20 && profile.substr(16, 4) == "RGB " && InfoOf(page).isGrey != 0 &&
         InfoOf(page).bits > 1;
}

// Takes leave of what the page or its new format cannot keep, and signs. A page as its file has it, null
// here, keeps its colours and so its profile.
void FitMetadata(HGLOBAL page, const std::string& deeds, const PageFormat& format, PageMetadata* metadata,
                 PageReport* report) {
  const auto drop = [&](const std::string& item, const std::string& why) {
    SetPageMetadataItem(metadata, item.c_str(), nullptr, 0);
    report->reduced.push_back(fmt::format("{} left out: {}", item, why));
  };
  const std::vector<std::string_view> kept = Split(format.metadata, ',');
  const auto keeps = [&](std::string_view item) {
    return std::find(kept.begin(), kept.end(), item) != kept.end();
  };
  constexpr size_t kMostInJpeg = 65'000;  // a marker has 65,533 bytes, with what stands before the item
  for (const std::string& item : CarriedItems(metadata)) {
    if (!keeps(item)) {
      drop(item, fmt::format("{} files have no place for it", format.title));
    } else if (format.name == std::string_view("jpg") && item != "icc" &&
               TextItem(metadata, item.c_str()).size() > kMostInJpeg) {
      drop(item, "JPEG files have no place for that much of it");
    } else if (item == "icc" && page != nullptr && !IsProfileFor(TextItem(metadata, "icc"), page) &&
               !IsProfileConverted(TextItem(metadata, "icc"), page)) {
      drop(item, "it is for other colours than the page has now");
    }
  }
  constexpr std::string_view kName = "Rastrel " RASTREL_VERSION;
  if (keeps("history")) {
    std::string history = TextItem(metadata, "history");
    history += fmt::format("{}{} {}", history.empty() ? "" : "\n", kName, deeds);
    Checked(SetPageMetadataItem(metadata, "history", history.data(), history.size()));
  }
  if (!keeps("software")) return;
  std::string software = TextItem(metadata, "software");
  if (software.find(kName) != std::string::npos) return;
  software += fmt::format("{}{}", software.empty() ? "" : "; ", kName);
  Checked(SetPageMetadataItem(metadata, "software", software.data(), software.size()));
}

class Jobs {
 public:
  Jobs(const JobOptions& options, Plan plan)
      : options_(options),
        plan_(std::move(plan)),
        reporter_(options.command, options.report, plan_.tasks.size()) {
    documents_.resize(plan_.outputs.size());
    for (const Task& task : plan_.tasks) {
      if (options.command != Command::kInfo) ++documents_[task.output].pagesLeft;
    }
  }

  int Run() {
    RunInOrder(plan_.tasks.size(), options_.threads, [this](size_t i) -> Finish {
      // What nobody learns of need not be looked at; pages are written all the same.
      if (options_.command == Command::kInfo && IsOutputLost()) return [] {};
      const auto page = std::make_shared<Finished>(Work(plan_.tasks[i]));
      return [this, page] { Take(std::move(*page)); };
    });
    return reporter_.hasErrors() ? 1 : 0;
  }

 private:
  // An output of many pages under way.
  struct Document {
    int pagesLeft = 0;
    bool isLost = false;
    int leftOut = 0;  // pages that failed
    std::string source;
    Writer writer;
  };

  Finished Work(const Task& task) {
    Finished finished;
    finished.task = &task;
    PageReport& report = finished.report;
    const Source& first = task.sources.front();
    report.file = options_.inputs[first.input];
    report.joined = static_cast<int>(task.sources.size());
    if (report.joined == 1) {
      report.page = first.page;
      report.pages = first.pages;
    }
    try {
      std::vector<Page> pages;
      for (const Source& source : task.sources) pages.push_back(Load(source, &finished));
      switch (options_.command) {
        case Command::kInfo: {
          CleanRecord* record = nullptr;
          Checked(ExaminePage(pages[0].get(), &record));
          TakeRecord(record, &report);
          return finished;
        }
        case Command::kClean:
          pages[0] = Clean(std::move(pages[0]), task, &finished);
          break;
        case Command::kApply:
          if (ApplyToRaw(task, plan_.outputs[task.output], &finished)) return finished;
          pages = Apply(std::move(pages), &report);
          Describe(pages[0].get(), &report);
          break;
      }
      if (report.isDropped) return finished;
      const StepTimer timer(&report, "save");
      Encode(pages, plan_.outputs[task.output], &finished);
    } catch (const std::bad_alloc&) {
      report.error = "out of memory";
    } catch (const std::exception& error) {
      report.error = error.what();
    }
    return finished;
  }

  Page Load(const Source& source, Finished* finished) const {
    const std::string& file = options_.inputs[source.input];
    try {
      if (!source.error.empty()) throw PageError(source.error);
      const StepTimer timer(&finished->report, "load");
      PageMetadata* found = nullptr;
      Page page(Checked(ReadPage(source.file, source.page - 1, &found)));
      Metadata metadata(found);
      TellOriginal(metadata.get(), &finished->report);
      if (finished->metadata) {
        TellOtherItems(metadata.get(), finished->metadata.get(), file, &finished->report);
      } else {
        finished->metadata = std::move(metadata);
      }
      int32_t isAssumed = 0;
      if (options_.command == Command::kApply) {
        Checked(CompletePageResolution(page.get(), options_.dpi, &isAssumed));
      }
      if (isAssumed != 0) finished->fileWithoutDpi = file;
      return page;
    } catch (const PageError& error) {
      if (finished->report.joined == 1) throw;
      throw PageError(fmt::format("{} {}", file, error.what()));
    }
  }

  Page Clean(Page page, const Task& task, Finished* finished) const {
    PageReport& report = finished->report;
    CleanRecord* record = nullptr;
    HGLOBAL picture = nullptr;
    Explanation explanation = {options_.explain, report.file, report.page, &options_, ""};
    CleanOptions options = options_.clean;
    if (!options_.explain.empty()) {
      options.explain = WriteExplanation;
      options.explainContext = &explanation;
    }
    Page clean(Checked(
        TakeAndCleanPage(page.release(), &options, &record, task.overlay.empty() ? nullptr : &picture)));
    const Page overlay(picture);
    TakeRecord(record, &report);
    if (!explanation.error.empty()) throw PageError(explanation.error);
    if (report.summary.isResolutionAssumed != 0) finished->fileWithoutDpi = report.file;
    report.isDropped = options_.dropsBlank && report.summary.isBlank != 0;
    if (overlay && !report.isDropped) WriteOverlay(overlay.get(), task.overlay, finished);
    return clean;
  }

  std::vector<Page> Apply(std::vector<Page> pages, PageReport* report) const {
    for (const Step& step : options_.chain) {
      const std::string name(step.operation->name);
      const StepTimer timer(report, name);
      try {
        pages = RunStep(step, pages);
      } catch (const PageError& error) {
        throw PageError(fmt::format("{}: {}", name, error.what()));
      }
    }
    return pages;
  }

  void RefuseReplacing(const std::string& path) const {
    const auto key = KeyOf(path);
    if (!key || !IsFile(path) || MayReplace(options_, path)) return;
    throw PageError(fmt::format("is not written: {} {}; --overwrite replaces it", path,
                                inputs_.contains(*key) ? "is an input" : kIsThere));
  }

  // What was done, for the file's own history.
  std::string DeedsOf(const PageReport& report) const {
    if (options_.command == Command::kClean) return "clean: " + Deeds(report);
    std::string names;
    for (const Step& step : options_.chain)
      names += fmt::format("{}{}", names.empty() ? "" : ", ", step.operation->name);
    return "apply: " + (names.empty() ? "nothing but a new file" : names);
  }

  // Pages that only move go on as their file has them where they would lose something else. Returns false
  // where that cannot be.
  bool ApplyToRaw(const Task& task, const Output& output, Finished* finished) const {
    PageReport& report = finished->report;
    const Source& source = task.sources.front();
    if (report.reduced.empty() || task.sources.size() > 1 || !AreMoves(options_.chain)) return false;
    PageMetadata* found = nullptr;
    Raw page(ReadRawPage(source.file, source.page - 1, &found));
    const Metadata metadata(found);
    if (!page) return false;
    // What is lost all the same: without anything gained the usual way is the better one.
    const std::vector<std::string> lost = ReductionsOf(metadata.get());
    if (lost.size() >= report.reduced.size()) return false;
    std::vector<Raw> pages;
    {
      const StepTimer timer(&report, "move");
      pages = RunMoves(options_.chain, std::move(page));
    }
    // Tried with a pixel before anything is told or written: other formats cannot hold such pages.
    const Raw pixel(Checked(CropRawPage(pages.front().get(), 0, 0, 1, 1)));
    Writer trial(Checked(CreatePagesInMemory(output.format.c_str(), "")));
    if (AppendRawPage(trial.get(), pixel.get(), nullptr) == 0) return false;
    trial.reset();
    const StepTimer timer(&report, "save");
    report.reduced = lost;
    finished->fileWithoutDpi.clear();
    auto info = Sized<RawPageInfo>();
    Checked(DescribeRawPage(pages.front().get(), &info));
    report.summary.width = info.width;
    report.summary.height = info.height;
    report.summary.bits = info.bits * info.samples;
    report.summary.dpiX = info.dpiX;
    report.summary.dpiY = info.dpiY;
    FitMetadata(nullptr, DeedsOf(report), KnownFormat(output.format), metadata.get(), &report);
    EncodeAll(
        pages, output, finished,
        [&](const Raw& raw, const char* format, const char* words) {
          return EncodeRawPage(raw.get(), metadata.get(), format, words);
        },
        [&](PageWriter* writer, const Raw& raw) { return AppendRawPage(writer, raw.get(), metadata.get()); });
    return true;
  }

  void Encode(const std::vector<Page>& pages, const Output& output, Finished* finished) const {
    if (!finished->metadata) finished->metadata.reset(Checked(NewPageMetadata()));
    const PageMetadata* metadata = finished->metadata.get();
    FitMetadata(pages.front().get(), DeedsOf(finished->report), KnownFormat(output.format),
                finished->metadata.get(), &finished->report);
    EncodeAll(
        pages, output, finished,
        [=](const Page& page, const char* format, const char* words) {
          return EncodePage(page.get(), metadata, format, words);
        },
        [=](PageWriter* writer, const Page& page) { return AppendPage(writer, page.get(), metadata); });
  }

  template <class AnyPage, class EncodeOne, class AppendOne>
  void EncodeAll(const std::vector<AnyPage>& pages, const Output& output, Finished* finished,
                 EncodeOne encode, AppendOne append) const {
    PageReport& report = finished->report;
    report.made = static_cast<int>(pages.size());
    const auto key = KeyOf(output.path);
    report.replacesInput = key && inputs_.contains(*key);
    const bool isDocument = HasManyPages(output.format);
    if (options_.isStrict && !report.reduced.empty()) {
      throw PageError(fmt::format("is not written, as it would lose: {}", fmt::join(report.reduced, "; ")));
    }
    const std::string words = OptionsFor(output.format, options_);
    if (!isDocument && output.path == kStandard && pages.size() > 1) {
      throw PageError(fmt::format("{} files have one page", KnownFormat(output.format).title));
    }
    for (const AnyPage& page : pages) {
      std::string path = output.path;
      try {
        if (isDocument) {
          finished->encoded.emplace_back(Checked(encode(page, output.format.c_str(), words.c_str())));
          report.outputs = {path};
          continue;
        }
        if (pages.size() > 1) {
          path = Numbered(path, static_cast<int>(finished->files.size()) + 1);
          RefuseReplacing(path);
        }
        Writer writer = Begun(path, output.format, options_, report.file);
        Checked(append(writer.get(), page));
        finished->files.push_back({std::move(writer), path});
        report.outputs.push_back(path);
      } catch (const PageError& error) {
        finished->refused = path;
        throw PageError(fmt::format("{} {}", path, error.what()));
      }
    }
  }

  void WriteOverlay(HGLOBAL overlay, const std::string& path, Finished* finished) const {
    const StepTimer timer(&finished->report, "overlay");
    try {
      finished->overlay = Written(overlay, nullptr, path, "png", options_, finished->report.file);
    } catch (const PageError& error) {
      throw PageError(fmt::format("{} {}", path, error.what()));
    }
  }

  // Brings a page to its file. In the order of the pages, one at a time.
  void Take(Finished finished) {
    PageReport& report = finished.report;
    if (!finished.fileWithoutDpi.empty() && !std::exchange(hasWarned_, true)) {
      reporter_.Warn(
          fmt::format("{} has no resolution: {:g} dpi assumed, also for others like it (--dpi sets it)",
                      finished.fileWithoutDpi, kAssumedDpi));
    }
    try {
      // Whether a page found another one's file there is a matter of time; what is told of it is not.
      if (!finished.refused.empty()) RefuseTwice(finished.refused);
      if (!report.error.empty()) finished.files.clear();
      for (Finished::File& file : finished.files) {
        RefuseLoss(file.path, finished.files.size() > 1);
        Complete(std::move(file.writer), file.path);
      }
      if (options_.command != Command::kInfo && HasManyPages(plan_.outputs[finished.task->output].format)) {
        AddToDocument(finished.encoded, finished.task->output, &report);
      }
      if (finished.overlay && report.error.empty()) {
        Complete(std::move(finished.overlay), finished.task->overlay);
        report.overlay = finished.task->overlay;
      }
    } catch (const PageError& error) {
      report.error = fmt::format("{} {}", plan_.outputs[finished.task->output].path, error.what());
    }
    if (!report.error.empty()) report.outputs.clear();
    reporter_.Page(report);
  }

  // The names of parts turn up only on the way: they can take neither an input's place nor another output's.
  void RefuseLoss(const std::string& path, bool isPart) {
    if (path == kStandard) return;
    RefuseTwice(path);
    written_.insert(UniqueName(path));
    if (isPart) RefuseReplacing(path);
  }

  void RefuseTwice(const std::string& path) const {
    if (!written_.contains(UniqueName(path))) return;
    throw PageError(fmt::format("is not written: several pages would go to {}", path));
  }

  void AddToDocument(const std::vector<Encoded>& pages, size_t output, PageReport* report) {
    Document* document = &documents_[output];
    const std::string& path = plan_.outputs[output].path;
    --document->pagesLeft;
    if (document->isLost) {
      report->isFollowUp = report->error.empty();
      if (report->isFollowUp) report->error = fmt::format("{} is not written", path);
      return;
    }
    try {
      if (!report->error.empty()) {
        ++document->leftOut;
        report->isLeftOut = options_.skipsDamaged;
        if (!options_.skipsDamaged && document->pagesLeft + (document->writer ? 1 : 0) > 0) {
          document->isLost = true;
          document->writer.reset();
          reporter_.Error(path, "is not written without its damaged page; --skip-damaged leaves that out");
          return;
        }
      }
      if (report->error.empty() && !report->isDropped) {
        if (!document->writer) {
          document->source = report->file;
          document->writer = Begun(path, plan_.outputs[output].format, options_, report->file);
        }
        for (const Encoded& page : pages) Checked(AppendEncodedPage(document->writer.get(), page.get()));
      }
      if (document->pagesLeft == 0 && document->writer) {
        if (document->leftOut > 0) {
          const std::string name = path == kStandard ? path : Incomplete(path);
          RefuseReplacing(name);
          if (path != kStandard) SetRules(document->writer.get(), options_, document->source, name, false);
          reporter_.Error(name, fmt::format("is without {} damaged page{}", document->leftOut,
                                            document->leftOut == 1 ? "" : "s"));
        }
        Complete(std::move(document->writer), path);
      } else if (document->pagesLeft == 0 && report->isDropped) {
        reporter_.Warn(fmt::format("{} is not written: all its pages are blank", path));
      }
    } catch (const PageError&) {
      document->isLost = true;
      document->writer.reset();
      throw;
    }
  }

  const JobOptions& options_;
  const Plan plan_;
  Reporter reporter_;
  std::vector<Document> documents_;
  const std::set<FileKey> inputs_ = KeysOf(options_.inputs);
  std::set<std::string> written_;
  bool hasWarned_ = false;
};

}  // namespace

std::string Incomplete(const std::string& name) {
  const fs::path path = PathOf(name);
  return NameOf(path.parent_path() /
                PathOf(fmt::format("{}-incomplete{}", NameOf(path.stem()), NameOf(path.extension()))));
}

// A JPEG page would lose something each time.
std::string WritableFormat(const std::string& name) {
  return KnownFormat(name).isWritten && name != "jpg" ? name : "png";
}

std::optional<PageFormat> FindFormat(std::string_view extension) {
  auto format = Sized<PageFormat>();
  const int32_t index = FindPageFormat(std::string(extension).c_str());
  if (index < 0 || GetPageFormat(index, &format) == 0) return std::nullopt;
  return format;
}

std::vector<PageFormat> AllFormats() {
  std::vector<PageFormat> formats;
  for (int32_t i = 0; i < CountPageFormats(); ++i) {
    formats.push_back(Sized<PageFormat>());
    GetPageFormat(i, &formats.back());
  }
  return formats;
}

bool HasOption(std::string_view format, std::string_view option) {
  const int32_t index = FindPageFormat(std::string(format).c_str());
  auto entry = Sized<PageFormatOption>();
  for (int32_t i = 0; index >= 0 && GetPageFormatOption(index, i, &entry) != 0; ++i) {
    if (entry.name == option) return true;
  }
  return false;
}

Plan MakePlan(const JobOptions& options) {
  Plan plan;
  const auto standard = std::count(options.inputs.begin(), options.inputs.end(), kStandard);
  if (standard > 1) throw UsageError("standard input can be read once only");
  constexpr int64_t kMostBytes = int64_t{1} << 32;  // where nothing else is asked for
  const int64_t mostBytes = options.reading.mostBytes > 0 ? options.reading.mostBytes : kMostBytes;
  if (standard == 1) plan.standardInput = ReadStandardInput(static_cast<uint64_t>(mostBytes));
  ListTasks(options, &plan);
  if (options.command == Command::kInfo) return plan;
  const fs::path out = PathOf(options.output);
  const bool isFolder = IsFolder(options.output);
  const auto isMerge = [](const Step& step) { return step.operation->merge != nullptr; };
  if (std::any_of(options.chain.begin(), options.chain.end(), isMerge)) {
    plan.tasks = Joined(std::move(plan.tasks), isFolder);
  }
  if (options.pageName) {
    PlanNamedPages(options, &plan);
  } else if (isFolder) {
    PlanFolder(options, &plan);
  } else {
    const std::string ending = NameOf(out.extension());
    const PageFile* first = plan.tasks.front().sources.front().file;
    const std::string named = options.output == kStandard ? WritableFormat(first)
                              : ending.empty()            ? ""
                                                          : ending.substr(1);
    const std::optional<PageFormat> format = FindFormat(options.format.empty() ? named : options.format);
    if (!format)
      throw UsageError(fmt::format("{}: the ending tells no format; --format does", options.output));
    if (!format->isWritten) throw UsageError(fmt::format("{} files are only read", format->title));
    if (options.output == kStandard && !format->hasManyPages && plan.tasks.size() > 1)
      throw UsageError(fmt::format("{} files have one page; --format tif has room for more", format->title));
    if (format->hasManyPages) {
      PlanDocument(plan.tasks, out, format->name, &plan);
    } else {
      PlanSinglePages(plan.tasks, out, format->name, &plan);
    }
  }
  const auto isPdf = [](const Output& output) { return output.format == "pdf"; };
  if (options.isArchival && !std::all_of(plan.outputs.begin(), plan.outputs.end(), isPdf))
    throw UsageError("--pdfa is for PDF files");
  if (options.isMixed && !std::all_of(plan.outputs.begin(), plan.outputs.end(), isPdf))
    throw UsageError("--mixed is for PDF files");
  for (const Output& output : plan.outputs) {
    if (options.compression.empty() || HasOption(output.format, "compression")) continue;
    throw UsageError(fmt::format("--compression is not for {} files", KnownFormat(output.format).title));
  }
  if (!options.overlay.empty()) PlanOverlays(options, &plan);
  RefuseLosses(options, plan);
  return plan;
}

// Whether an input is not there: then nothing is begun.
bool TellMissing(const JobOptions& options) {
  std::vector<PageReport> missing;
  for (const std::string& input : options.inputs) {
    std::error_code error;
    if (input == kStandard || fs::exists(PathOf(input), error)) continue;
    missing.emplace_back();
    missing.back().file = input;
    missing.back().error = error ? error.message() : "No such file or directory";
  }
  if (missing.empty()) return false;
  Reporter reporter(options.command, options.report, missing.size());
  for (const PageReport& report : missing) reporter.Page(report);
  return true;
}

int RunJobs(const JobOptions& options) {
  if (options.command != Command::kInfo && TellMissing(options)) return 1;
  Plan plan = MakePlan(options);
  if (options.command != Command::kInfo) MakeFolders(options);
  if (!options.explain.empty()) {
    std::error_code error;
    fs::create_directories(PathOf(options.explain), error);
  }
  return Jobs(options, std::move(plan)).Run();
}

}  // namespace rastrel::tool
