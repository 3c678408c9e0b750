#include "tools/jobs.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <utility>

#include <fmt/format.h>

#include "formats/output_file.h"
#include "formats/paths.h"
#include "tools/system.h"

namespace rastrel::tool {
namespace {

namespace fs = std::filesystem;

constexpr double kAssumedDpi = 300;

// ---- the plan ---------------------------------------------------------------------------------------------

std::vector<Task> ListTasks(const std::vector<std::string>& inputs) {
  std::vector<Task> tasks;
  for (size_t i = 0; i < inputs.size(); ++i) {
    try {
      const PageFile file = Inspect(inputs[i]);
      const int pages = static_cast<int>(file.pages.size()) + (file.damage.empty() ? 0 : 1);
      int page = 0;
      for (const uint64_t place : file.pages) {
        tasks.push_back(
            {{{.input = i, .page = ++page, .pages = pages, .format = file.format, .place = place}}});
      }
      if (!file.damage.empty()) {
        tasks.push_back(
            {{{.input = i, .page = pages, .pages = pages, .format = file.format, .error = file.damage}}});
      }
    } catch (const PageError& error) {
      tasks.push_back({{{.input = i, .error = error.what()}}});
    }
  }
  return tasks;
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

Format WritableFormat(Format format) { return format == Format::kJpeg ? Format::kPng : format; }

std::string Numbered(const fs::path& path, int number) {
  const std::string name = fmt::format("{}-{:03}{}", NameOf(path.stem()), number, NameOf(path.extension()));
  return NameOf(path.parent_path() / PathOf(name));
}

// Gives each task of `tasks` an output of its own: `path`, numbered where there are several.
void PlanSinglePages(std::span<Task> tasks, const fs::path& path, Format format, Plan* plan) {
  int number = 0;
  for (Task& task : tasks) {
    task.output = plan->outputs.size();
    plan->outputs.push_back({tasks.size() == 1 ? NameOf(path) : Numbered(path, ++number), format});
  }
}

// Puts all of `tasks` into `path`.
void PlanDocument(std::span<Task> tasks, const fs::path& path, Plan* plan) {
  for (Task& task : tasks) task.output = plan->outputs.size();
  plan->outputs.push_back({NameOf(path), Format::kTiff});
}

void PlanFolder(const JobOptions& options, Plan* plan) {
  const std::span<Task> tasks(plan->tasks);
  for (size_t first = 0; first < tasks.size();) {
    size_t last = first;
    while (last < tasks.size() && InputOf(tasks[last]) == InputOf(tasks[first])) ++last;
    const std::span<Task> ofFile = tasks.subspan(first, last - first);
    const Source& source = ofFile[0].sources.front();
    const Format format = options.format.value_or(WritableFormat(source.format));
    fs::path path = PathOf(options.output) / PathOf(options.inputs[source.input]).filename();
    path.replace_extension(Extension(format));
    if (format == Format::kTiff) {
      PlanDocument(ofFile, path, plan);
    } else {
      PlanSinglePages(ofFile, path, format, plan);
    }
    first = last;
  }
}

bool IsFolder(const std::string& path) {
  std::error_code error;
  return !PathOf(path).has_filename() || fs::is_directory(PathOf(path), error);
}

void PlanOverlays(const JobOptions& options, Plan* plan) {
  JobOptions pictures;
  pictures.inputs = options.inputs;
  pictures.output = options.overlay;
  pictures.format = Format::kPng;
  Plan overlays;
  overlays.tasks = plan->tasks;
  if (IsFolder(options.overlay)) {
    PlanFolder(pictures, &overlays);
  } else {
    const fs::path path = PathOf(options.overlay);
    const std::string ending = NameOf(path.extension());
    if (ending.empty() || FormatNamed(ending.substr(1)) != Format::kPng)
      throw UsageError(fmt::format("--overlay: '{}' is neither a PNG file nor a folder", options.overlay));
    PlanSinglePages(overlays.tasks, path, Format::kPng, &overlays);
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

std::set<FileKey> KeysOf(const std::vector<std::string>& paths) {
  std::set<FileKey> keys;
  for (const std::string& path : paths) {
    if (const auto key = KeyOf(path)) keys.insert(*key);
  }
  return keys;
}

void RefuseLosses(const JobOptions& options, const Plan& plan) {
  const std::set<FileKey> inputs = KeysOf(options.inputs);
  std::set<std::string> names;
  for (const Output& output : plan.outputs) {
    if (!names.insert(UniqueName(output.path)).second) {
      throw UsageError(fmt::format("several inputs would go to {}", output.path));
    }
    const bool isAskedFor =
        options.overwrites || (options.inputs.size() == 1 && output.path == options.output);
    const auto key = KeyOf(output.path);
    if (key && inputs.contains(*key) && !isAskedFor) {
      throw UsageError(fmt::format("{} is an input; --overwrite replaces it", output.path));
    }
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
  }
}

// ---- the work ---------------------------------------------------------------------------------------------

// What a page has become, on its way to the file.
struct Finished {
  const Task* task = nullptr;
  PageReport report;
  std::string fileWithoutDpi;                      // whose resolution had to be assumed
  std::vector<EncodedTiff> encoded;                // for TIFF
  std::vector<std::unique_ptr<OutputFile>> files;  // for others, written but not yet under their names
  std::unique_ptr<OutputFile> overlay;             // likewise
};

void Describe(const Dib& dib, CleanRecord* record) {
  const PageView page(dib);
  record->width = page.width();
  record->height = page.height();
  record->bits = page.bits();
  record->dpiX = DotsPerInch(page.resolution().x);
  record->dpiY = DotsPerInch(page.resolution().y);
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
    RunInOrder(plan_.tasks.size(), static_cast<unsigned>(options_.threads), [this](size_t i) -> Finish {
      const auto page = std::make_shared<Finished>(Work(plan_.tasks[i]));
      return [this, page] { Take(std::move(*page)); };
    });
    return reporter_.hasErrors() ? 1 : 0;
  }

 private:
  // A TIFF output under way.
  struct Document {
    int pagesLeft = 0;
    bool isLost = false;
    std::unique_ptr<OutputFile> file;
    std::unique_ptr<TiffDocument> tiff;
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
      std::vector<StepTime> loading;
      std::vector<Dib> pages;
      for (const Source& source : task.sources) pages.push_back(Load(source, &finished));
      switch (options_.command) {
        case Command::kInfo:
          report.record.times.swap(loading);
          report.record = ExaminePage(std::move(pages[0]));
          report.record.times.insert(report.record.times.begin(), loading.begin(), loading.end());
          return finished;
        case Command::kClean: {
          Dib overlay;
          pages::CleanOptions clean = options_.clean;
          if (!options_.explain.empty()) {
            clean.explain = [&](const std::string& name, const Dib& picture) {
              WriteExplanation(report, name, picture);
            };
          }
          pages[0] = CleanPage(std::move(pages[0]), clean, &report.record,
                               task.overlay.empty() ? nullptr : &overlay);
          if (report.record.isResolutionAssumed) finished.fileWithoutDpi = report.file;
          report.isDropped = options_.dropsBlank && report.record.isBlank;
          if (overlay && !report.isDropped) WriteOverlay(overlay, task.overlay, &finished);
          break;
        }
        case Command::kApply:
          pages = Apply(std::move(pages), &report.record);
          break;
      }
      Describe(pages[0], &report.record);
      if (report.isDropped) return finished;
      const StepTimer timer(&report.record, "save");
      Encode(pages, plan_.outputs[task.output], &finished);
    } catch (const std::bad_alloc&) {
      report.error = "out of memory";
    } catch (const std::exception& error) {
      report.error = error.what();
    }
    return finished;
  }

  Dib Load(const Source& source, Finished* finished) const {
    const std::string& file = options_.inputs[source.input];
    try {
      if (!source.error.empty()) throw PageError(source.error);
      const StepTimer timer(&finished->report.record, "load");
      Dib page = ReadPage(file, source.format, source.place);
      if (options_.command == Command::kApply && CompleteResolution(&PageView(page).header(), options_.dpi)) {
        finished->fileWithoutDpi = file;
      }
      return page;
    } catch (const PageError& error) {
      if (finished->report.joined == 1) throw;
      throw PageError(fmt::format("{} {}", file, error.what()));
    }
  }

  std::vector<Dib> Apply(std::vector<Dib> pages, CleanRecord* record) const {
    for (const Step& step : options_.chain) {
      const std::string name(step.operation->name);
      const StepTimer timer(record, name);
      try {
        pages = RunStep(step, pages);
      } catch (const PageError& error) {
        throw PageError(fmt::format("{}: {}", name, error.what()));
      }
    }
    return pages;
  }

  void Encode(const std::vector<Dib>& pages, const Output& output, Finished* finished) const {
    PageReport& report = finished->report;
    report.made = static_cast<int>(pages.size());
    for (const Dib& page : pages) {
      std::string path = output.path;
      try {
        if (output.format == Format::kTiff) {
          finished->encoded.push_back(EncodeTiff(page, options_.write));
          report.outputs = {path};
          continue;
        }
        if (pages.size() > 1) path = Numbered(path, static_cast<int>(finished->files.size()) + 1);
        auto file = std::make_unique<OutputFile>(path);
        (output.format == Format::kPng ? WritePng : WriteBmp)(page, file->path());
        finished->files.push_back(std::move(file));
        report.outputs.push_back(path);
      } catch (const PageError& error) {
        throw PageError(fmt::format("{} {}", path, error.what()));
      }
    }
  }

  // Each page's pictures are named after its file and its place in that.
  void WriteExplanation(const PageReport& report, const std::string& name, const Dib& picture) const {
    const fs::path file = PathOf(report.file);
    const std::string own = fmt::format("{}-{:03}-{}.png", NameOf(file.stem()), report.page, name);
    const std::string path = NameOf(PathOf(options_.explain) / PathOf(own));
    OutputFile out(path);
    WritePng(picture, out.path());
    out.Commit();
  }

  static void WriteOverlay(const Dib& overlay, const std::string& path, Finished* finished) {
    const StepTimer timer(&finished->report.record, "overlay");
    try {
      auto file = std::make_unique<OutputFile>(path);
      WritePng(overlay, file->path());
      finished->overlay = std::move(file);
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
      for (const auto& file : finished.files) {
        RefuseLoss(*file, finished.files.size() > 1);
        file->Commit();
      }
      if (options_.command != Command::kInfo &&
          plan_.outputs[finished.task->output].format == Format::kTiff) {
        AddToDocument(finished.encoded, finished.task->output, &report);
      }
      if (finished.overlay && report.error.empty()) {
        finished.overlay->Commit();
        report.overlay = finished.task->overlay;
      }
    } catch (const PageError& error) {
      report.error = fmt::format("{} {}", plan_.outputs[finished.task->output].path, error.what());
    }
    if (!report.error.empty()) report.outputs.clear();
    reporter_.Page(report);
  }

  // The names of parts turn up only on the way: they can take neither an input's place nor another output's.
  void RefuseLoss(const OutputFile& file, bool isPart) {
    const std::string& path = file.finalPath();
    const bool isNew = written_.insert(UniqueName(path)).second;
    if (!isNew) throw PageError(fmt::format("is not written: several pages would go to {}", path));
    const auto key = KeyOf(path);
    if (isPart && key && inputs_.contains(*key) && !options_.overwrites) {
      throw PageError(fmt::format("is not written: {} is an input; --overwrite replaces it", path));
    }
  }

  void AddToDocument(const std::vector<EncodedTiff>& pages, size_t output, PageReport* report) {
    Document* document = &documents_[output];
    const std::string& path = plan_.outputs[output].path;
    --document->pagesLeft;
    if (document->isLost) {
      report->isFollowUp = report->error.empty();
      if (report->isFollowUp) report->error = fmt::format("{} is not written", path);
      return;
    }
    try {
      if (report->error.empty() && !report->isDropped) {
        if (!document->file) {
          document->file = std::make_unique<OutputFile>(path);
          document->tiff = std::make_unique<TiffDocument>(document->file->path());
        }
        for (const EncodedTiff& page : pages) document->tiff->Append(page);
      }
      if (document->pagesLeft == 0 && document->tiff) {
        document->tiff->Close();
        document->file->Commit();
      } else if (document->pagesLeft == 0 && report->isDropped) {
        reporter_.Warn(fmt::format("{} is not written: all its pages are blank", path));
      }
    } catch (const PageError&) {
      document->isLost = true;
      document->tiff.reset();
      document->file.reset();
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

Plan MakePlan(const JobOptions& options) {
  Plan plan;
  plan.tasks = ListTasks(options.inputs);
  if (options.command == Command::kInfo) return plan;
  const fs::path out = PathOf(options.output);
  const bool isFolder = IsFolder(options.output);
  const auto isMerge = [](const Step& step) { return step.operation->merge != nullptr; };
  if (std::any_of(options.chain.begin(), options.chain.end(), isMerge)) {
    plan.tasks = Joined(std::move(plan.tasks), isFolder);
  }
  if (isFolder) {
    PlanFolder(options, &plan);
  } else {
    const std::string ending = NameOf(out.extension());
    const std::optional<Format> named = ending.empty() ? std::nullopt : FormatNamed(ending.substr(1));
    const std::optional<Format> format = options.format ? options.format : named;
    if (!format)
      throw UsageError(fmt::format("{}: the ending tells no format; --format does", options.output));
    if (*format == Format::kJpeg)
      throw UsageError("JPEG files are not written; TIFF files take JPEG with --quality");
    if (*format == Format::kTiff) {
      PlanDocument(plan.tasks, out, &plan);
    } else {
      PlanSinglePages(plan.tasks, out, *format, &plan);
    }
  }
  if (!options.overlay.empty()) PlanOverlays(options, &plan);
  RefuseLosses(options, plan);
  return plan;
}

int RunJobs(const JobOptions& options) {
  Plan plan = MakePlan(options);
  for (const std::string& folder : {options.output, options.overlay}) {
    std::error_code error;
    const fs::path path = PathOf(folder);
    if (!path.empty() && !path.has_filename()) fs::create_directories(path, error);
  }
  if (!options.explain.empty()) {
    std::error_code error;
    fs::create_directories(PathOf(options.explain), error);
  }
  return Jobs(options, std::move(plan)).Run();
}

}  // namespace rastrel::tool
