// The `rastrel` command.
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "formats/output_file.h"
#include "tools/jobs.h"
#include "tools/operations.h"
#include "tools/system.h"

namespace {

using namespace rastrel;
using namespace rastrel::tool;

constexpr int kExitUsage = 2;
constexpr size_t kHelpWidth = 70;

// CLI::Range takes "nan" for a number in every range.
CLI::Validator Between(double least, double most) {
  const auto check = [=](const std::string& text) {
    double value = 0;
    const bool isInside = CLI::detail::lexical_cast(text, value) && value >= least && value <= most;
    return isInside ? std::string()
                    : fmt::format("'{}' is not a number from {:g} to {:g}", text, least, most);
  };
  return {check, fmt::format("{:g} to {:g}", least, most), "between"};
}

// An option whose range, default and help are those of an operation's parameter.
template <class Use>
CLI::Option* AddFromTable(CLI::App* app, const std::string& option, const char* operation,
                          const char* parameter, const std::string& standard, Use use) {
  const Parameter& entry = FindParameter(operation, parameter);
  const std::string name = option;
  return app
      ->add_option_function<std::string>(
          option, [&entry, name, use](const std::string& text) { use(ParseValue(entry, text, name)); },
          Wrapped(fmt::format("{}; {} ({})", entry.help, RangeText(entry), standard), kHelpWidth, ""))
      ->type_name("N");
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
                  "A file, or a folder (or a name that ends in /) for a file each.\n"
                  "TIFF files take all pages; in other formats several pages are\n"
                  "numbered: out-001.png, out-002.png" RASTREL_WRITES_ONLY)
      ->type_name("OUT");
  app->add_option_function<std::string>(
         "--format",
         [options](const std::string& text) {
           options->format = FormatNamed(text);
           if (!options->format || *options->format == Format::kJpeg) {
             throw UsageError(fmt::format("--format: '{}' is not one of bmp, tif, png", text));
           }
         },
         "bmp, tif or png (from the ending of OUT; in a folder that of the input, png for jpg)")
      ->type_name("NAME");
  app->add_flag("--overwrite", options->overwrites, "Let an output replace an input");
  app->add_option("--dpi", options->dpi, "Dots per inch of files that do not say (300, with a warning)")
      ->check(Between(20, 20000))
      ->type_name("N");
  app->add_option("--quality", options->write.jpegQuality,
                  "Compress grey and colour pages in TIFF files as JPEG of this quality, 1 to 100\n"
                  "(without it nothing is lost: deflate; 1-bit pages: Group 4)")
      ->check(CLI::Range(1, 100))
      ->type_name("N");
  AddJobsOption(app, options);
}

// A step that is on unless --no-NAME says otherwise; --NAME says it is on. The last one given decides.
void AddNo(CLI::App* app, const std::string& name, bool* isOn, const std::string& help) {
  app->add_flag_callback(
         "--no-" + name, [isOn] { *isOn = false; }, help)
      ->trigger_on_parse();
}
void AddSwitch(CLI::App* app, const std::string& name, bool* isOn, const std::string& help) {
  AddNo(app, name, isOn, help);
  app->add_flag_callback("--" + name, [isOn] { *isOn = true; })->trigger_on_parse()->group("");
}

// An option that takes one of some words, by its place in the list.
template <class Use>
CLI::Option* AddChoice(CLI::App* app, const std::string& option, std::span<const std::string_view> choices,
                       Use use, const std::string& help) {
  return app->add_option_function<std::string>(
      option,
      [option, choices, use](const std::string& text) {
        const Parameter parameter = {.name = option, .help = "", .choices = choices};
        use(static_cast<int>(ParseValue(parameter, text, option)));
      },
      help);
}

// What is asked for around the steps of `clean`, until all of it is read.
struct ReductionWords {
  pages::Reduction method = pages::Reduction::kNone;
  double brightness = 0;
};

CLI::App* AddClean(CLI::App* app, JobOptions* options, ReductionWords* reduction) {
  CLI::App* clean = app->add_subcommand("clean", "Make straight, clean pages of scanned ones");
  clean->add_option("inputs", options->inputs, RASTREL_READS " files")->required()->type_name("IN...");
  AddOutputOptions(clean, options);
  clean
      ->add_option("--overlay", options->overlay,
                   "Show what was removed: the page as it came in, in grey, with borders blue, holes\n"
                   "orange and specks vermilion. A PNG file, numbered as OUT is, or a folder")
      ->type_name("FILE");
  clean
      ->add_option("--explain", options->explain,
                   "Show what was understood of each page: pictures of its paper, ink, pictures and sheet,\n"
                   "as PNG files in a folder")
      ->type_name("DIR");
  AddReportOptions(clean, &options->report);

  pages::CleanOptions& steps = options->clean;
  const std::string group = "Steps";
  constexpr static std::string_view kTones[] = {"auto", "dark", "light"};
  AddChoice(
      clean, "--text", kTones, [&steps](int tone) { steps.text = static_cast<TextTone>(tone); },
      "Dark or light text, or auto: by what most of the page is (auto)")
      ->type_name("TONE");
  clean->add_flag("--classic", steps.isClassic,
                  "Clean by the plain operations one after the other, as earlier versions did (off)");
  clean->add_flag("--flatten", steps.evensLight, "Even the light: shadows of the gutter, vignettes (off)");
  constexpr static std::string_view kPapers[] = {"keep", "white"};
  AddChoice(
      clean, "--paper", kPapers, [&steps](int paper) { steps.whitensPaper = paper == 1; },
      "white: make the paper white, and leave ink as it is (keep)")
      ->type_name("HOW");
  clean->add_flag("--bleed", steps.weakensShowThrough, "Weaken what shows through from behind (off)");
  clean->add_flag("--crop-sheet", steps.cropsSheet, "Cut the sheet out of a dark surround first (off)");
  AddSwitch(clean, "trim", &steps.trims, "Leave dark borders at the left and right");
  AddNo(clean, "holes", &steps.erasesHoles, "Leave punch holes");
  AddFromTable(clean, "--holes", "holes", "size", "auto; 8 without a resolution", [&steps](double value) {
    steps.erasesHoles = true;
    steps.measuresHolesAnyway = value == kAutomaticHoles;
    steps.holeSize.reset();
    if (value != kAutomaticHoles) steps.holeSize = static_cast<int>(value);
  })->trigger_on_parse();
  AddSwitch(clean, "specks", &steps.removesSpecks, "Leave specks on black-and-white and grey pages");
  AddFromTable(clean, "--speck-level", "clean", "level", "30",
               [&steps](double value) { steps.speckLevel = static_cast<int>(value); });
  clean->add_flag("--speck-full", steps.filtersFully,
                  "Filter every pixel: smooths, and may cost thin strokes (off)");
  constexpr static std::string_view kWays[] = {"off", "whole", "fine"};
  AddChoice(
      clean, "--deskew", kWays, [&steps](int way) { steps.deskew = static_cast<Deskewing>(way); },
      "How skewed pages are turned: fine, to hundredths of a degree where these are certain;\n"
      "whole, by whole degrees without smoothing; off (fine)")
      ->type_name("HOW")
      ->trigger_on_parse();
  clean
      ->add_flag_callback(
          "--no-deskew", [&steps] { steps.deskew = Deskewing::kOff; }, "Leave skewed pages as they are")
      ->trigger_on_parse();
  clean->add_option("--max-skew", steps.mostSkew, "Degrees beyond which a page is not turned (15)")
      ->check(Between(0, 45))
      ->type_name("N");
  clean
      ->add_option_function<double>(
          "--drop-blank",
          [options](double percent) {
            options->dropsBlank = true;
            options->clean.blankPercent = percent;
          },
          "Leave out pages with less ink than that percentage of the page,\nin steps of 0.1 (off)")
      ->check(Between(0.1, 100))
      ->type_name("PERCENT");
  constexpr static std::string_view kReductions[] = {"none", "threshold", "ordered", "fs", "jjn"};
  AddChoice(
      clean, "--reduce", kReductions,
      [reduction](int method) { reduction->method = static_cast<pages::Reduction>(method); },
      "Make grey and colour pages black and white: threshold, ordered, fs, jjn (none)")
      ->type_name("HOW");
  AddFromTable(clean, "--brightness", "halftone", "brightness", "0; with --reduce threshold or ordered",
               [reduction](double value) { reduction->brightness = value; });
  for (const char* name :
       {"--text", "--classic", "--flatten", "--paper", "--bleed", "--crop-sheet", "--no-trim", "--no-holes",
        "--holes", "--no-specks", "--speck-level", "--speck-full", "--deskew", "--no-deskew", "--max-skew",
        "--drop-blank", "--reduce", "--brightness"}) {
    clean->get_option(name)->group(group);
  }
  return clean;
}

void TakeReduction(const ReductionWords& reduction, pages::CleanOptions* clean) {
  const bool isDither = reduction.method >= pages::Reduction::kFloydSteinberg;
  if (isDither && reduction.brightness != 0)
    throw UsageError("--brightness works with --reduce threshold or ordered");
  clean->reduction = reduction.method;
  clean->brightness = static_cast<int>(reduction.brightness);
}

// Sorts what stands on the command line of `apply` into files and, from the first operation on, operations.
void SortWords(const std::vector<std::string>& words, JobOptions* options) {
  for (const std::string& word : words) {
    const bool isName = FindOperation(word.substr(0, word.find(':'))) != nullptr;
    const bool looksLikeOne = word.find(':') != std::string::npos && ::access(word.c_str(), F_OK) != 0;
    if (!options->chain.empty() && !isName && ::access(word.c_str(), F_OK) == 0) {
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

void RemoveUnfinished(int signal) {
  RemoveUnfinishedFiles();
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

int Run(int argc, char** argv) {
  CLI::App app("Straightens, trims, cleans and converts scanned pages.", "rastrel");
  app.set_version_flag("--version", "rastrel " RASTREL_VERSION);
  app.allow_windows_style_options(false);  // a path may begin with a slash
  app.require_subcommand(1);
  app.get_formatter()->column_width(34);

  JobOptions options;
  ReductionWords reduction;
  CLI::App* clean = AddClean(&app, &options, &reduction);

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
  info->add_option("inputs", options.inputs, RASTREL_READS " files")->required()->type_name("FILE...");
  AddReportOptions(info, &options.report);
  AddJobsOption(info, &options);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kExitUsage;
  }

  if (isList || isMarkdown) {
    fmt::print("{}", isList ? OperationsHelp() : OperationsMarkdown());
    return 0;
  }
  options.command = clean->parsed() ? Command::kClean : apply->parsed() ? Command::kApply : Command::kInfo;
  if (options.command == Command::kApply) SortWords(words, &options);
  if (options.command != Command::kInfo && options.output.empty())
    throw UsageError("no output: -o OUT is required");
  TakeReduction(reduction, &options.clean);
  options.clean.dpi = options.dpi;
  OnInterruption(RemoveUnfinished);
  return RunJobs(options);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const UsageError& error) {
    fmt::print(stderr, "rastrel: {}\nTry 'rastrel --help'.\n", error.what());
    return kExitUsage;
  } catch (const std::exception& error) {
    fmt::print(stderr, "rastrel: {}\n", error.what());
    return 1;
  }
}
