#include "tools/command_line.h"

#include <unistd.h>

#include <charconv>
#include <csignal>
#include <cstdio>
#include <sstream>

#include "tools/command_options.h"
#include "tools/console.h"
#include "tools/extra_commands.h"
#include "tools/manual.h"
#include "tools/sandbox.h"
#include "tools/system.h"
#include "tools/words.h"

namespace rastrel::tool {
namespace {

// "bmp, tif, png or jpg": those that are written.
std::string WritableNames() {
  std::string names;
  for (const PageFormat& format : AllFormats()) {
    if (format.isWritten != 0) names += fmt::format("{}{}", names.empty() ? "" : ", ", format.name);
  }
  return names;
}

// The table of `rastrel formats`.
std::string FormatsHelp() {
  std::string text = fmt::format("{:<6}{:<22}{:<6}{:<7}{:<7}{}\n", "name", "endings", "read", "write",
                                 "pages", "written with");
  const std::vector<PageFormat> formats = AllFormats();
  for (size_t i = 0; i < formats.size(); ++i) {
    const PageFormat& format = formats[i];
    std::string options;
    auto option = Sized<PageFormatOption>();
    for (int32_t o = 0; GetPageFormatOption(static_cast<int32_t>(i), o, &option) != 0; ++o) {
      const std::string values =
          option.choices != nullptr ? option.choices : fmt::format("{:g} to {:g}", option.least, option.most);
      options += fmt::format("{}--{} ({})", o == 0 ? "" : ", ", option.name, values);
    }
    text += fmt::format("{:<6}{:<22}{:<6}{:<7}{:<7}{}\n", format.name, format.extensions,
                        format.isRead != 0 ? "yes" : "no", format.isWritten != 0 ? "yes" : "no",
                        format.hasManyPages != 0 ? "many" : "one", options);
  }
  return text;
}

// What is to be said of a build that knows no files of many pages.
std::string OnlyFormats() {
  std::string titles;
  for (const PageFormat& format : AllFormats()) {
    if (format.hasManyPages != 0) return "";
    titles += fmt::format("{}{}", titles.empty() ? "" : ", ", format.title);
  }
  return fmt::format("\n(this build reads and writes {} files only, one page at a time)", titles);
}

// Sorts what stands on the command line of `apply` into files and, from the first operation on, operations.
void SortWords(const std::vector<std::string>& words, JobOptions* options) {
  for (const std::string& word : words) {
    const bool isName = IsOperation(word);
    const bool isFile = word == kStandard || ::access(word.c_str(), F_OK) == 0;
    const bool looksLikeOne =
        !isFile && (word.find(':') != std::string::npos || !NearestOperation(word).empty());
    if (!options->chain.empty() && !isName && isFile) {
      throw UsageError(fmt::format("{}: files come before operations", word));
    }
    if (!options->chain.empty() || isName || looksLikeOne) {
      options->chain.push_back(ParseStep(word));
    } else {
      options->inputs.push_back(word);
    }
  }
  if (options->inputs.empty()) throw UsageError("apply: no input file");
}

// From "pixels=2G,seconds=none".
void ParseLimits(std::string_view text, PageReadOptions* limits) {
  constexpr double kNone = 9e18;
  for (const std::string_view part : Split(text, ',')) {
    const size_t equals = std::min(part.find('='), part.size());
    const std::string_view name = part.substr(0, equals);
    std::string_view digits = part.substr(std::min(equals + 1, part.size()));
    double factor = 1, value = 0;
    for (const auto& [unit, times] : {std::pair('k', 1e3), {'M', 1e6}, {'G', 1e9}}) {
      if (digits.ends_with(unit)) factor = times;
    }
    if (factor > 1) digits.remove_suffix(1);
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    const bool isNumber = error == std::errc() && end == digits.data() + digits.size() && value > 0;
    if (!isNumber && digits != "none") throw UsageError(fmt::format("--limit: '{}' has no number", part));
    value = isNumber ? std::min(value * factor, kNone) : kNone;
    if (name == "pixels") {
      limits->mostPixels = static_cast<int64_t>(value);
    } else if (name == "bytes") {
      limits->mostBytes = static_cast<int64_t>(value);
    } else if (name == "seconds") {
      limits->mostSeconds = std::min(value, 1e9);
    } else {
      throw UsageError(fmt::format("--limit: '{}' is not one of pixels, bytes, seconds", name));
    }
  }
}

void AddLimitOption(CLI::App* app, JobOptions* options) {
  app->add_option_function<std::string>(
         "--limit", [options](const std::string& text) { ParseLimits(text, &options->reading); },
         "What a page of a file may cost at most: pixels=N,bytes=N,seconds=N, each a\n"
         "number, which k, M, G may follow, or none (pixels=1G,bytes=4G,seconds=120)")
      ->type_name("LIST");
  AddSandboxOption(app, &options->isSandboxed);
}

// What follows from several of them. Throws UsageError.
void CompleteOptions(JobOptions* options) {
  CheckCleanOptions(options->clean);
  options->clean.dpi = options->dpi;
  options->reading.dpi = static_cast<int32_t>(options->dpi);
}

void RemoveUnfinished(int signal) {
  RemoveUnfinishedPages();
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

}  // namespace

std::string ReadableTitles() {
  const std::vector<PageFormat> formats = AllFormats();
  std::string titles;
  for (size_t i = 0; i < formats.size(); ++i) {
    titles += fmt::format("{}{}", i == 0 ? "" : i + 1 == formats.size() ? " or " : ", ", formats[i].title);
  }
  return titles;
}

void AddSandboxOption(CLI::App* app, bool* isSandboxed) {
  app->add_flag_callback(
      "--no-sandbox", [isSandboxed] { *isSandboxed = false; },
      "Keep the rights to write elsewhere and to use the network, which are given up\n"
      "on Linux, as far as the system can, before a page is read");
}

void AddReportOptions(CLI::App* app, ReportOptions* options) {
  app->add_flag("--json", options->isJson, "Print a JSON record for each page, one a line");
  app->add_flag("-q,--quiet", options->isQuiet, "Print errors only");
  app->add_flag("-v,--verbose", options->isVerbose,
                "Print each page with its steps and the reasons for steps left out");
}

void AddJobsOption(CLI::App* app, JobOptions* options) {
  app->add_option("-j,--jobs", options->threads, "Pages to work on at once (as many as there are cores)")
      ->check(CLI::Range(1, 1024))
      ->type_name("N");
}

void AddOutputOptions(CLI::App* app, JobOptions* options) {
  app->add_option("-o,--output", options->output,
                  std::string("A file, or a folder (or a name that ends in /) for a file each, or -\n"
                              "for standard output; an input called - is standard input.\n"
                              "TIFF and PDF files take all pages; in other formats several pages are\n"
                              "numbered: out-001.png, out-002.png") +
                      OnlyFormats())
      ->type_name("OUT");
  app->add_flag("--parents", options->makesParents, "Make the folder of OUT, and those that it lies in");
  AddWritingOptions(app, options);
}

void AddWritingOptions(CLI::App* app, JobOptions* options) {
  app->add_option_function<std::string>(
         "--format",
         [options](const std::string& text) {
           const std::optional<PageFormat> format = FindFormat(text);
           if (format) options->format = format->name;
           if (!format || !format->isWritten) {
             throw UsageError(fmt::format("--format: '{}' is not one of {}", text, WritableNames()));
           }
         },
         WritableNames() +
             "\n(from the ending of OUT; in a folder, or with -o -, that of the input, png for jpg)")
      ->type_name("NAME");
  app->add_flag("--overwrite", options->overwrites,
                "Replace files that are there, inputs too (without it none is touched)");
  app->add_flag("--strict", options->isStrict,
                "Write no page that loses something: depth, alpha, colours, a profile, tags\n"
                "(without it -v and --json tell what was lost)");
  app->add_flag("--skip-damaged", options->skipsDamaged,
                "Leave damaged pages out of a file of many, which then is called\n"
                "NAME-incomplete (without it such a file is not written)");
  app->add_flag("--keep-time", options->keepsTime, "Give outputs the time of their inputs");
  app->add_flag("--no-fsync", options->skipsSync,
                "Do not wait until outputs are on the disk: faster, but not safe against\na loss of power");
  app->add_option("--dpi", options->dpi,
                  "Dots per inch of files that do not say (300, with a warning), and at which pages\n"
                  "of PDF files are drawn that are no scanned image (300)")
      ->check(Between(20, 20000))
      ->type_name("N");
  app->add_option("--quality", options->jpegQuality,
                  "Of JPEG files, 1 to 100 (90); in TIFF files, compress grey and colour pages as\n"
                  "JPEG of this quality (without it nothing is lost: deflate; 1-bit pages: Group 4)")
      ->check(CLI::Range(1, 100))
      ->type_name("N");
  app->add_flag("--pdfa", options->isArchival, "Write PDF/A-2b, the kind of PDF for archives");
  app->add_flag("--mixed", options->isMixed,
                "Write PDF pages of greys and colours as text at full resolution over the rest at a\n"
                "lower one, as JPEG: small files (off)");
  app->add_option("--compression", options->compression,
                  "Of TIFF files: g4, lzw, deflate, jpeg, zstd or none. g4 is for 1-bit pages and\n"
                  "jpeg for grey and colour; the others keep their usual one")
      ->check(CLI::IsMember({"g4", "lzw", "deflate", "jpeg", "zstd", "none"}))
      ->type_name("NAME");
  AddJobsOption(app, options);
  AddLimitOption(app, options);
}

// Says what may have been meant by the first word that no command or option is called.
void RefuseUnknownWords(const CLI::App& app, int argc, char** argv) {
  const auto refuse = [](const char* what, std::string_view word, std::span<const std::string_view> known) {
    const std::string_view nearest = Nearest(word, known);
    throw UsageError(nearest.empty() ? fmt::format("no {} '{}'", what, word)
                                     : fmt::format("no {} '{}': did you mean {}?", what, word, nearest));
  };
  if (argc < 2) return;
  const std::string_view command = argv[1];
  const CLI::App* chosen = &app;
  std::vector<std::string_view> known;
  for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; })) {
    known.push_back(sub->get_name());
    if (sub->get_name() == command) chosen = sub;
  }
  if (chosen == &app && !command.starts_with('-')) refuse("command", command, known);
  std::vector<std::string> options;
  for (const CLI::Option* option : chosen->get_options()) {
    for (const std::string& name : option->get_lnames()) options.push_back("--" + name);
  }
  known.assign(options.begin(), options.end());
  for (int i = 1; i < argc; ++i) {
    const std::string_view word = std::string_view(argv[i]).substr(0, std::string_view(argv[i]).find('='));
    if (word == "--") return;
    if (word.starts_with("--") && std::find(known.begin(), known.end(), word) == known.end()) {
      refuse("option", word, known);
    }
  }
}

int RunCommand(int argc, char** argv) {
  CLI::App app("Straightens, trims, cleans and converts scanned pages.", "rastrel");
  app.set_version_flag("--version", "rastrel " RASTREL_VERSION);
  app.allow_windows_style_options(false);  // a path may begin with a slash
  app.require_subcommand(1);
  app.get_formatter()->column_width(34);

  JobOptions options;
  CLI::App* clean = AddCleanCommand(&app, &options);

  CLI::App* apply =
      app.add_subcommand("apply", "Run single operations on pages, in the order given; none: convert");
  std::vector<std::string> words;
  bool isList = false, isMarkdown = false;
  apply->add_option("words", words, "Files, then operations: rotate:3.5 dither:fs,1")
      ->type_name("IN... OP...");
  apply->add_flag("--list", isList, "List the operations and their values");
  apply->add_flag("--markdown", isMarkdown)->group("");
  AddOutputOptions(apply, &options);
  AddReportOptions(apply, &options.report);
  apply->footer("Operations:\n" + OperationsHelp());

  CLI::App* info = app.add_subcommand(
      "info", "Print size, depth, resolution and skew of pages, and whether they are blank");
  info->add_option("inputs", options.inputs, ReadableTitles() + " files")->required()->type_name("FILE...");
  AddReportOptions(info, &options.report);
  AddJobsOption(info, &options);
  AddLimitOption(info, &options);

  CLI::App* formats =
      app.add_subcommand("formats", "Print the formats of files, and what they are written with");
  bool isFormatsJson = false;
  formats->add_flag("--json", isFormatsJson, "As a JSON array");

  std::function<int()> runExtra;
  AddExtraCommands(&app, &options, argc, argv, &runExtra);

  // For the build, which installs them.
  if (argc == 2 && argv[1] == std::string_view("--print-man")) {
    Put(stdout, ManualPage(app));
    return 0;
  }
  if (argc == 3 && argv[1] == std::string_view("--print-completion")) {
    Put(stdout, Completion(app, argv[2]));
    return 0;
  }

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() != 0) RefuseUnknownWords(app, argc, argv);
    std::ostringstream out, complaint;
    const int code = app.exit(error, out, complaint);
    Put(stdout, out.str());
    const std::string said = complaint.str();
    for (const std::string_view line : Split(said, '\n')) {
      if (!line.empty()) Print(stderr, "{}\n", line);
    }
    return code == 0 ? 0 : kExitUsage;
  }

  if (isList || isMarkdown) {
    Put(stdout, isMarkdown              ? OperationsMarkdown()
                : options.report.isJson ? OperationsJson()
                                        : OperationsHelp());
    return 0;
  }
  if (formats->parsed()) {
    Put(stdout, isFormatsJson ? std::string(PageFormatsJson()) + "\n" : FormatsHelp());
    return 0;
  }
  if (runExtra) {
    CompleteOptions(&options);
    return runExtra();
  }
  options.command = clean->parsed() ? Command::kClean : apply->parsed() ? Command::kApply : Command::kInfo;
  if (options.command == Command::kApply) SortWords(words, &options);
  if (options.command != Command::kInfo && options.output.empty())
    throw UsageError("no output: -o OUT is required");
  CompleteOptions(&options);
  options.report.toStandardError = options.output == kStandard;
  const bool isPiped = std::count(options.inputs.begin(), options.inputs.end(), kStandard) > 0;
  if (isPiped || options.report.toStandardError) UseBytes();
  OnInterruption(RemoveUnfinished);
  if (options.isSandboxed) {
    std::vector<std::string> outputs;
    for (const std::string& output : {options.output, options.overlay, options.explain}) {
      if (!output.empty() && output != kStandard) outputs.push_back(output);
    }
    EnterSandbox(outputs);
  }
  return RunJobs(options);
}

}  // namespace rastrel::tool
