// The options of `rastrel clean`.
#include "tools/command_options.h"

namespace rastrel::tool {
namespace {

// A step that is on unless --no-NAME says otherwise; --NAME says it is on. The last one given decides.
void AddNo(CLI::App* app, const std::string& name, int32_t* isOn, const std::string& help) {
  app->add_flag_callback(
         "--no-" + name, [isOn] { *isOn = 0; }, help)
      ->trigger_on_parse();
}
void AddSwitch(CLI::App* app, const std::string& name, int32_t* isOn, const std::string& help) {
  AddNo(app, name, isOn, help);
  app->add_flag_callback("--" + name, [isOn] { *isOn = 1; })->trigger_on_parse()->group("");
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

}  // namespace

CLI::App* AddCleanCommand(CLI::App* app, JobOptions* options) {
  CLI::App* clean = app->add_subcommand("clean", "Make straight, clean pages of scanned ones");
  clean->add_option("inputs", options->inputs, ReadableTitles() + " files")->required()->type_name("IN...");
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
  AddCleanSteps(clean, options);
  return clean;
}

void AddCleanSteps(CLI::App* clean, JobOptions* options) {
  CleanOptions& steps = options->clean;
  const std::string group = "Steps";
  constexpr static std::string_view kTones[] = {"auto", "dark", "light"};
  AddChoice(
      clean, "--text", kTones, [&steps](int tone) { steps.text = tone; },
      "Dark or light text, or auto: by what most of the page is (auto)")
      ->type_name("TONE");
  clean->add_flag_callback(
      "--classic", [&steps] { steps.classic = 1; },
      "Clean by the plain operations one after the other, as earlier versions did (off)");
  clean->add_flag_callback(
      "--flatten", [&steps] { steps.evenLight = 1; },
      "Even the light: shadows of the gutter, vignettes (off)");
  constexpr static std::string_view kPapers[] = {"keep", "white"};
  AddChoice(
      clean, "--paper", kPapers, [&steps](int paper) { steps.whitePaper = paper; },
      "white: make the paper white, and leave ink as it is (keep)")
      ->type_name("HOW");
  clean->add_flag_callback(
      "--bleed", [&steps] { steps.lessBleed = 1; }, "Weaken what shows through from behind (off)");
  clean->add_flag_callback(
      "--crop-sheet", [&steps] { steps.cropSheet = 1; }, "Cut the sheet out of a dark surround first (off)");
  AddSwitch(clean, "trim", &steps.trim, "Leave dark borders at the left and right");
  AddNo(clean, "holes", &steps.holes, "Leave punch holes");
  AddFromTable(clean, "--holes", kHoleSize, "auto; 8 without a resolution", [&steps](double value) {
    steps.holes = 1;
    steps.holeSize = static_cast<int32_t>(value);
  })->trigger_on_parse();
  AddSwitch(clean, "specks", &steps.specks, "Leave specks on black-and-white and grey pages");
  AddFromTable(clean, "--speck-level", kSpeckLevel, "30",
               [&steps](double value) { steps.speckLevel = static_cast<int>(value); });
  clean->add_flag_callback(
      "--speck-full", [&steps] { steps.speckFull = 1; },
      "Filter every pixel: smooths, and may cost thin strokes (off)");
  constexpr static std::string_view kWays[] = {"off", "whole", "fine"};
  AddChoice(
      clean, "--deskew", kWays, [&steps](int way) { steps.deskew = way; },
      "How skewed pages are turned: fine, to hundredths of a degree where these are certain;\n"
      "whole, by whole degrees without smoothing; off (fine)")
      ->type_name("HOW")
      ->trigger_on_parse();
  clean
      ->add_flag_callback(
          "--no-deskew", [&steps] { steps.deskew = DeskewOff; }, "Leave skewed pages as they are")
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
  constexpr static std::string_view kReductions[] = {"none", "threshold", "ordered", "fs", "jjn", "auto"};
  AddChoice(
      clean, "--reduce", kReductions, [&steps](int method) { steps.reduce = method; },
      "Make grey and colour pages black and white: threshold, ordered, fs, jjn,\nor auto: by paper and ink "
      "at each place (none)")
      ->type_name("HOW");
  AddFromTable(clean, "--brightness", kBrightness, "0; with --reduce threshold or ordered",
               [&steps](double value) { steps.brightness = static_cast<int32_t>(value); });
  clean
      ->add_option(
          "--to-dpi", steps.toDpi,
          "With --reduce auto: smooth to that resolution, 600 for instance, up to four times what a\n"
          "page has (its own)")
      ->check(Between(50, 2400))
      ->type_name("N");
  for (const char* name :
       {"--text", "--classic", "--flatten", "--paper", "--bleed", "--crop-sheet", "--no-trim", "--no-holes",
        "--holes", "--no-specks", "--speck-level", "--speck-full", "--deskew", "--no-deskew", "--max-skew",
        "--drop-blank", "--reduce", "--brightness", "--to-dpi"}) {
    clean->get_option(name)->group(group);
  }
}

void CheckCleanOptions(const CleanOptions& options) {
  const bool isDiffusion =
      options.reduce == ReduceFloydSteinberg || options.reduce == ReduceJarvisJudiceNinke;
  if (isDiffusion && options.brightness != 0)
    throw UsageError("--brightness works with --reduce threshold or ordered");
  if (options.toDpi != 0 && options.reduce != ReduceAuto)
    throw UsageError("--to-dpi works with --reduce auto");
}

}  // namespace rastrel::tool
