#include "jobs.h"

#include <oneapi/tbb/global_control.h>
#include <oneapi/tbb/parallel_pipeline.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <thread>
#include <utility>

#include <fmt/format.h>

#include "output_file.h"

namespace rastrel::tool {
namespace {

namespace fs = std::filesystem;

constexpr double kAssumedDpi = 300;
constexpr double kLeastDpi = 20, kMostDpi = 20000;  // outside these a file's resolution means nothing

// ---- the plan ---------------------------------------------------------------------------------------------

std::vector<Task> ListTasks(const std::vector<std::string>& inputs) {
  std::vector<Task> tasks;
  for (size_t i = 0; i < inputs.size(); ++i) {
    try {
      const PageFile file = Inspect(inputs[i]);
      const int pages = static_cast<int>(file.pages.size()) + (file.damage.empty() ? 0 : 1);
      int page = 0;
      for (const uint64_t place : file.pages) {
        tasks.push_back({.input = i, .page = ++page, .pages = pages, .format = file.format, .place = place});
      }
      if (!file.damage.empty()) {
        tasks.push_back(
            {.input = i, .page = pages, .pages = pages, .format = file.format, .error = file.damage});
      }
    } catch (const PageError& error) {
      tasks.push_back({.input = i, .error = error.what()});
    }
  }
  return tasks;
}

Format WritableFormat(Format format) { return format == Format::kJpeg ? Format::kPng : format; }

std::string Numbered(const fs::path& path, int number) {
  const fs::path name = fmt::format("{}-{:03}{}", path.stem().string(), number, path.extension().string());
  return (path.parent_path() / name).string();
}

// Gives each task of `tasks` an output of its own: `path`, numbered where there are several.
void PlanSinglePages(std::span<Task> tasks, const fs::path& path, Format format, Plan* plan) {
  int number = 0;
  for (Task& task : tasks) {
    task.output = plan->outputs.size();
    plan->outputs.push_back({tasks.size() == 1 ? path.string() : Numbered(path, ++number), format});
  }
}

// Puts all of `tasks` into `path`.
void PlanDocument(std::span<Task> tasks, const fs::path& path, Plan* plan) {
  for (Task& task : tasks) task.output = plan->outputs.size();
  plan->outputs.push_back({path.string(), Format::kTiff});
}

void PlanFolder(const JobOptions& options, Plan* plan) {
  const std::span<Task> tasks(plan->tasks);
  for (size_t first = 0; first < tasks.size();) {
    size_t last = first;
    while (last < tasks.size() && tasks[last].input == tasks[first].input) ++last;
    const std::span<Task> ofFile = tasks.subspan(first, last - first);
    const Format format = options.format.value_or(WritableFormat(ofFile[0].format));
    fs::path path = fs::path(options.output) / fs::path(options.inputs[ofFile[0].input]).filename();
    path.replace_extension(Extension(format));
    if (format == Format::kTiff) {
      PlanDocument(ofFile, path, plan);
    } else {
      PlanSinglePages(ofFile, path, format, plan);
    }
    first = last;
  }
}

using FileKey = std::pair<dev_t, ino_t>;

std::optional<FileKey> KeyOf(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  return FileKey(status.st_dev, status.st_ino);
}

void RefuseLosses(const JobOptions& options, const Plan& plan) {
  std::set<FileKey> inputs;
  for (const std::string& input : options.inputs) {
    if (const auto key = KeyOf(input)) inputs.insert(*key);
  }
  std::set<std::string> names;
  for (const Output& output : plan.outputs) {
    std::error_code error;
    if (!names.insert(fs::weakly_canonical(output.path, error).string()).second) {
      throw UsageError(fmt::format("several inputs would go to {}", output.path));
    }
    const bool isAskedFor =
        options.overwrites || (options.inputs.size() == 1 && output.path == options.output);
    const auto key = KeyOf(output.path);
    if (key && inputs.contains(*key) && !isAskedFor) {
      throw UsageError(fmt::format("{} is an input; --overwrite replaces it", output.path));
    }
  }
}

// ---- the work ---------------------------------------------------------------------------------------------

// What a page has become, on its way to the file.
struct Finished {
  const Task* task = nullptr;
  PageReport report;
  bool isDpiAssumed = false;
  EncodedTiff encoded;               // for TIFF
  std::unique_ptr<OutputFile> file;  // for others, written but not yet under its name
};

// Replaces a resolution that is missing or means nothing. Returns whether one had to be assumed.
bool CompleteResolution(const Dib& dib, double dpi) {
  const PageView page(dib);
  const auto isSound = [](int32_t value) {
    const double dots = DotsPerInch(value);
    return dots >= kLeastDpi && dots <= kMostDpi;
  };
  int32_t& x = page.header().biXPelsPerMeter;
  int32_t& y = page.header().biYPelsPerMeter;
  const bool hasX = isSound(x), hasY = isSound(y);
  if (hasX && hasY) return false;
  const int32_t known = hasX ? x : hasY ? y : PixelsPerMetre(dpi > 0 ? dpi : kAssumedDpi);
  x = y = known;
  return !hasX && !hasY && dpi <= 0;
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
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    const unsigned threads = options_.threads > 0 ? static_cast<unsigned>(options_.threads) : cores;
    if (threads == 1 || plan_.tasks.size() < 2) {
      for (const Task& task : plan_.tasks) Take(Work(task));
    } else {
      RunParallel(threads);
    }
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

  // As many pages are in memory as there are threads; a few more wait in their compressed form.
  void RunParallel(unsigned threads) {
    const tbb::global_control limit(tbb::global_control::max_allowed_parallelism, threads);
    size_t next = 0;
    const auto source = [&](tbb::flow_control& control) {
      if (next == plan_.tasks.size()) control.stop();
      return next++;
    };
    using tbb::filter_mode;
    tbb::parallel_pipeline(
        size_t{threads} * 2,
        tbb::make_filter<void, size_t>(filter_mode::serial_in_order, source) &
            tbb::make_filter<size_t, std::shared_ptr<Finished>>(
                filter_mode::parallel,
                [this](size_t i) { return std::make_shared<Finished>(Work(plan_.tasks[i])); }) &
            tbb::make_filter<std::shared_ptr<Finished>, void>(
                filter_mode::serial_in_order,
                [this](std::shared_ptr<Finished> page) { Take(std::move(*page)); }));
  }

  Finished Work(const Task& task) {
    Finished finished;
    finished.task = &task;
    PageReport& report = finished.report;
    report.file = options_.inputs[task.input];
    report.page = task.page;
    report.pages = task.pages;
    report.error = task.error;
    if (options_.command != Command::kInfo) report.output = plan_.outputs[task.output].path;
    if (!task.error.empty()) return finished;
    try {
      Dib page;
      {
        const StepTimer timer(&report.record, "load");
        page = ReadPage(report.file, task.format, task.place);
      }
      if (options_.command == Command::kInfo) {
        DescribePage(page, &report.record);
        CompleteResolution(page, options_.dpi);
        report.record.skew = FindSkew(std::move(page));
        return finished;
      }
      finished.isDpiAssumed = CompleteResolution(page, options_.dpi);
      page = options_.command == Command::kClean ? CleanPage(std::move(page), options_.clean, &report.record)
                                                 : Apply(std::move(page), &report.record);
      DescribePage(page, &report.record);
      const StepTimer timer(&report.record, "save");
      Encode(page, plan_.outputs[task.output], &finished);
    } catch (const std::bad_alloc&) {
      report.error = "out of memory";
    } catch (const std::exception& error) {
      report.error = error.what();
    }
    return finished;
  }

  Dib Apply(Dib page, PageRecord* record) const {
    for (const Step& step : options_.chain) {
      const std::string name(step.operation->name);
      const StepTimer timer(record, name);
      try {
        page = step.operation->run(page, step.values);
      } catch (const PageError& error) {
        throw PageError(fmt::format("{}: {}", name, error.what()));
      }
    }
    return page;
  }

  void Encode(const Dib& page, const Output& output, Finished* finished) const {
    try {
      if (output.format == Format::kTiff) {
        finished->encoded = EncodeTiff(page, options_.write);
        return;
      }
      auto file = std::make_unique<OutputFile>(output.path);
      (output.format == Format::kPng ? WritePng : WriteBmp)(page, file->path());
      finished->file = std::move(file);
    } catch (const PageError& error) {
      throw PageError(fmt::format("{} {}", output.path, error.what()));
    }
  }

  // Brings a page to its file. In the order of the pages, one at a time.
  void Take(Finished finished) {
    PageReport& report = finished.report;
    if (finished.isDpiAssumed && !std::exchange(hasWarned_, true)) {
      reporter_.Warn(
          fmt::format("{} has no resolution: {:g} dpi assumed, also for others like it (--dpi sets it)",
                      report.file, kAssumedDpi));
    }
    try {
      if (finished.file) finished.file->Commit();
      if (options_.command != Command::kInfo &&
          plan_.outputs[finished.task->output].format == Format::kTiff) {
        AddToDocument(finished.encoded, &documents_[finished.task->output], &report);
      }
    } catch (const PageError& error) {
      report.error = fmt::format("{} {}", report.output, error.what());
    }
    reporter_.Page(report);
  }

  void AddToDocument(const EncodedTiff& page, Document* document, PageReport* report) {
    --document->pagesLeft;
    if (document->isLost) {
      report->isFollowUp = report->error.empty();
      if (report->isFollowUp) report->error = fmt::format("{} is not written", report->output);
      return;
    }
    try {
      if (report->error.empty()) {
        if (!document->file) {
          document->file = std::make_unique<OutputFile>(report->output);
          document->tiff = std::make_unique<TiffDocument>(document->file->path());
        }
        document->tiff->Append(page);
      }
      if (document->pagesLeft == 0 && document->tiff) {
        document->tiff->Close();
        document->file->Commit();
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
  bool hasWarned_ = false;
};

}  // namespace

Plan MakePlan(const JobOptions& options) {
  Plan plan;
  plan.tasks = ListTasks(options.inputs);
  if (options.command == Command::kInfo) return plan;
  const fs::path out(options.output);
  std::error_code error;
  if (options.output.ends_with('/') || fs::is_directory(out, error)) {
    PlanFolder(options, &plan);
  } else {
    const std::string ending = out.extension().string();
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
  RefuseLosses(options, plan);
  return plan;
}

int RunJobs(const JobOptions& options) {
  Plan plan = MakePlan(options);
  if (options.output.ends_with('/')) {
    std::error_code error;
    fs::create_directories(options.output, error);
  }
  return Jobs(options, std::move(plan)).Run();
}

}  // namespace rastrel::tool
