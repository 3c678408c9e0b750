// The command lines of `rastrel batch` and `rastrel report`.
#include <string>
#include <vector>

#include <fmt/format.h>

#include "tools/batch/batch.h"
#include "tools/batch/site.h"
#include "tools/batch/worker.h"
#include "tools/command_options.h"
#include "tools/extra_commands.h"

namespace rastrel::tool {
namespace {

constexpr const char* kWorkerFlag = "--worker";

void AddNameOptions(CLI::App* batch, BatchOptions* options) {
  const std::string group = "Which files, and where to";
  batch->add_option("inputs", options->job.inputs, "Folders, with those in them, or files")
      ->type_name("IN...");
  batch->add_option("-o,--output", options->output, "The folder for outputs; it is made")->type_name("DIR");
  batch
      ->add_option("--name", options->pattern,
                   "Names of outputs: {folder} is where a file lies in IN, {root} IN's own name, {stem} and\n"
                   "{ext} the file's name and the format's ending, {page:04} a page's number, by which each\n"
                   "page gets a file of its own ({folder}/{stem}{ext})")
      ->type_name("PATTERN")
      ->group(group);
  batch
      ->add_option("--include", options->include,
                   "Only files that fit: '*.tif', 'boxes/*/*.jp2' (all that can be read)")
      ->type_name("PATTERN...")
      ->allow_extra_args(false)
      ->group(group);
  batch->add_option("--exclude", options->exclude, "No files and folders that fit")
      ->type_name("PATTERN...")
      ->allow_extra_args(false)
      ->group(group);
  batch
      ->add_option("--files-from", options->filesFrom,
                   "Files named in a list, a line each; - is standard input")
      ->type_name("LIST")
      ->group(group);
  batch->add_flag("--recursive,!--no-recursive", options->isRecursive, "Folders in folders, too (on)")
      ->group(group);
}

void AddRunOptions(CLI::App* batch, BatchOptions* options) {
  const std::string group = "The run";
  batch
      ->add_option("--manifest", options->manifest,
                   "The SQLite file that remembers what was done (DIR/batch.sqlite)")
      ->type_name("FILE")
      ->group(group);
  batch->add_flag("--dry-run", options->isDryRun, "Print what would be done, and why")->group(group);
  batch->add_flag("--retry", options->isRetry, "Do what failed before, too")->group(group);
  batch
      ->add_flag("--verify", options->isVerify,
                 "Only read all outputs again, and tell those that are not what was written")
      ->group(group);
  batch->add_option("--log", options->log, "Add what happens to a file, as lines of JSON")
      ->type_name("FILE")
      ->group(group);
  batch->add_flag("-q,--quiet", options->job.report.isQuiet, "Print errors only")->group(group);
  batch
      ->add_flag("-v,--verbose", options->job.report.isVerbose,
                 "Let through what workers say on standard error")
      ->group(group);
  batch->add_flag(kWorkerFlag, options->isWorker)->group("");
  batch->add_option(kLinkedOutputFlag, options->linkedOutputs)->group("");
}

int Run(const BatchOptions& options, const std::vector<std::string>& command) {
  if (options.isWorker) {
    std::vector<std::string> outputs = options.linkedOutputs;
    outputs.push_back(options.output);
    return RunWorker(options.job, outputs, ManifestOf(options));
  }
  if (options.output.empty()) throw UsageError("no output: -o DIR is required");
  if (options.job.inputs.empty() && options.filesFrom.empty()) {
    throw UsageError("no input: a folder, files or --files-from LIST");
  }
  return RunBatch(options, command);
}

void AddReportCommand(CLI::App* app, const char* program, std::function<int()>* run) {
  auto options = std::make_shared<SiteOptions>();
  CLI::App* report =
      app->add_subcommand("report", "Make a site about a batch, for a browser: its pages before and after");
  report->add_option("manifest", options->manifest, "The manifest of a batch")
      ->required()
      ->type_name("MANIFEST");
  report->add_option("-o,--output", options->output, "The folder of the site; it is made")
      ->required()
      ->type_name("DIR");
  report->add_flag_callback(
      "--no-pictures", [options] { options->hasPictures = false; }, "Make no new pictures of pages");
  report->add_option("-j,--jobs", options->threads, "Pictures to make at once (as many as there are cores)")
      ->check(CLI::Range(1, 1024))
      ->type_name("N");
  report->add_flag("-q,--quiet", options->isQuiet, "Print errors only");
  AddSandboxOption(report, &options->isSandboxed);
  report->callback([=] {
    *run = [=] {
      std::vector<std::string> command = {program, "batch", kWorkerFlag, "-o", options->output};
      if (!options->isSandboxed) command.push_back("--no-sandbox");
      return MakeSite(*options, command);
    };
  });
}

}  // namespace

void AddExtraCommands(CLI::App* app, JobOptions* options, int argc, char** argv, std::function<int()>* run) {
  CLI::App* batch = app->add_subcommand(
      "batch", "Clean whole folders, in worker processes, and go on where a run has ended");
  auto all = std::make_shared<BatchOptions>();
  // Both have the options of a job; those that are read into `options` are taken over at the end.
  AddNameOptions(batch, all.get());
  AddRunOptions(batch, all.get());
  AddWritingOptions(batch, options);
  AddCleanSteps(batch, options);
  std::vector<std::string> command(argv, argv + argc);
  if (argc > 1) command.insert(command.begin() + 2, kWorkerFlag);
  batch->callback([=] {
    *run = [=] {
      JobOptions job = *options;
      job.inputs = all->job.inputs;
      job.report = all->job.report;
      all->job = std::move(job);
      return Run(*all, command);
    };
  });
  AddReportCommand(app, argv[0], run);
}

}  // namespace rastrel::tool
