// Measures how accurate MeasureSkew is on pages of known skew and writes what comes out as tables in
// Markdown:
//
//   rastrel_skew_accuracy [--first SEED] [--pages COUNT] [--kind NAME] [--range DEGREES] [--list] [--save
//   FOLDER]
//
// Each kind of page is drawn COUNT times at each resolution. --list writes a line for every answer instead,
// --save keeps the pages.
#include <rastrel.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bench/skew_accuracy/sheets.h"

namespace rastrel::accuracy {
namespace {

constexpr int kResolutions[] = {100, 150, 200, 300, 400, 600};

struct Options {
  uint64_t first = 7000;
  int pages = 12;
  const char* kind = nullptr;
  double range = 0;
  bool isListed = false;
  const char* folder = nullptr;
};

struct Answer {
  const Kind* kind;
  int resolution, bits;
  uint64_t seed;
  double truth, angle, confidence;
  double Error() const { return std::abs(angle - truth); }
};

// Most pages are turned by up to 10 degrees, many by less than 2, some by next to nothing, a few not at all.
double PickAngle(Random& random) {
  const int choice = random.Below(20);
  if (choice == 0) return 0;
  return random.In(-1, 1) * (choice < 3 ? 0.2 : choice < 9 ? 2 : 10);
}

void MeasurePage(const Fonts& fonts, const Kind& kind, int resolution, uint64_t seed, const Options& options,
                 std::vector<Answer>* answers) {
  constexpr double kWidthMm = 210, kHeightMm = 297;
  Random random((seed * 64 + static_cast<uint64_t>(&kind - kKinds)) * 64 +
                static_cast<uint64_t>(resolution / 50));
  for (int i = 0; i < 4; ++i) random.Next();
  const double truth = PickAngle(random) * (options.range == 0 ? 1 : options.range / 10);
  Painter page(fonts, kWidthMm, kHeightMm, resolution, truth);
  kind.draw(page, random);
  const auto screen = static_cast<Screen>(random.Below(3));
  for (const int bits : {1, 8, 24}) {
    if (bits == 24 && seed % 4 != 0) continue;
    const testing::TestDib dib = page.Page(bits, screen);
    const SkewOptions wanted = {options.range, 0};
    SkewResult result = {};
    if (MeasureSkew(dib.handle(), &wanted, &result) == 0) std::exit(3);
    answers->push_back({&kind, resolution, bits, seed, truth, result.angle, result.confidence});
    if (options.folder != nullptr) {
      const std::string name = std::string(options.folder) + "/" + kind.name + "-" +
                               std::to_string(resolution) + "-" + std::to_string(bits) + "-" +
                               std::to_string(seed) + ".bmp";
      SaveDIB(name.c_str(), dib.handle());
    }
  }
}

double Quantile(std::vector<double> values, double share) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  return values[std::min(values.size() - 1, static_cast<size_t>(share * static_cast<double>(values.size())))];
}

// One line of a table: the answers for which `isMeant` holds.
template <class IsMeant>
void WriteErrors(const std::string& name, const std::vector<Answer>& answers, IsMeant isMeant) {
  std::vector<double> errors, sureErrors;
  for (const Answer& answer : answers) {
    if (!answer.kind->hasSkew || !isMeant(answer)) continue;
    errors.push_back(answer.Error());
    if (answer.confidence > 0.5) sureErrors.push_back(answer.Error());
  }
  if (errors.empty()) return;
  std::printf("| %s | %zu | %.1f %% | %.4f | %.4f | %.4f | %.4f |\n", name.c_str(), errors.size(),
              100.0 * static_cast<double>(sureErrors.size()) / static_cast<double>(errors.size()),
              Quantile(sureErrors, 0.5), Quantile(sureErrors, 0.95), Quantile(sureErrors, 1),
              Quantile(errors, 1));
}

void WriteErrorTables(const std::vector<Answer>& answers) {
  constexpr const char* kColumns =
      "| pages | above 0.5 | median | 95 %% | worst | worst of all |\n|---|--:|--:|--:|--:|--:|--:|\n";
  std::printf("| kind ");
  std::printf(kColumns);
  for (int i = 0; i < kKindCount; ++i)
    WriteErrors(kKinds[i].name, answers, [i](const Answer& a) { return a.kind == &kKinds[i]; });
  WriteErrors("all", answers, [](const Answer&) { return true; });
  std::printf("\n| dots per inch ");
  std::printf(kColumns);
  for (const int resolution : kResolutions)
    WriteErrors(std::to_string(resolution), answers,
                [=](const Answer& a) { return a.resolution == resolution; });
  std::printf("\n| bits ");
  std::printf(kColumns);
  for (const int bits : {1, 8, 24})
    WriteErrors(std::to_string(bits), answers, [=](const Answer& a) { return a.bits == bits; });
}

// What a confidence means: of the answers above it, pages without a skew included, how many were right.
void WriteCalibration(const std::vector<Answer>& answers) {
  std::printf(
      "\n| confidence | answers | within 0.05° | within 0.1° | within 0.3° | worst | without a skew |\n"
      "|---|--:|--:|--:|--:|--:|--:|\n");
  constexpr double kLimits[] = {0, 0.1, 0.3, 0.5, 0.7, 0.9, 1.01};
  for (size_t i = 0; i + 1 < std::size(kLimits); ++i) {
    int count = 0, within[3] = {}, without = 0;
    double worst = 0;
    for (const Answer& answer : answers) {
      if (answer.confidence < kLimits[i] || answer.confidence >= kLimits[i + 1]) continue;
      if (!answer.kind->hasSkew) {
        ++without;
        continue;
      }
      ++count;
      worst = std::max(worst, answer.Error());
      within[0] += answer.Error() <= 0.05;
      within[1] += answer.Error() <= 0.1;
      within[2] += answer.Error() <= 0.3;
    }
    const auto percent = [count](int n) { return count == 0 ? 0.0 : 100.0 * n / count; };
    std::printf("| %.1f to %.1f | %d | %.1f %% | %.1f %% | %.1f %% | %.3f° | %d |\n", kLimits[i],
                std::min(1.0, kLimits[i + 1]), count, percent(within[0]), percent(within[1]),
                percent(within[2]), worst, without);
  }
}

void WriteFalseAlarms(const std::vector<Answer>& answers) {
  std::printf("\n| kind without a skew | pages | above 0.1 | above 0.5 | highest |\n|---|--:|--:|--:|--:|\n");
  for (int i = 0; i < kKindCount; ++i) {
    if (kKinds[i].hasSkew) continue;
    int count = 0, some = 0, sure = 0;
    double highest = 0;
    for (const Answer& answer : answers) {
      if (answer.kind != &kKinds[i]) continue;
      ++count;
      some += answer.confidence > 0.1;
      sure += answer.confidence > 0.5;
      highest = std::max(highest, answer.confidence);
    }
    if (count > 0) std::printf("| %s | %d | %d | %d | %.2f |\n", kKinds[i].name, count, some, sure, highest);
  }
}

Options ReadArguments(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const auto is = [&](const char* name) { return std::strcmp(argv[i], name) == 0; };
    if (is("--list")) {
      options.isListed = true;
    } else if (i + 1 == argc) {
      std::fprintf(stderr, "%s: unknown, or without its value\n", argv[i]);
      std::exit(2);
    } else if (is("--first")) {
      options.first = std::strtoull(argv[++i], nullptr, 10);
    } else if (is("--pages")) {
      options.pages = std::atoi(argv[++i]);
    } else if (is("--kind")) {
      options.kind = argv[++i];
    } else if (is("--range")) {
      options.range = std::atof(argv[++i]);
    } else if (is("--save")) {
      options.folder = argv[++i];
    }
  }
  return options;
}

}  // namespace
}  // namespace rastrel::accuracy

int main(int argc, char** argv) {
  using namespace rastrel::accuracy;
  const Options options = ReadArguments(argc, argv);
  const Fonts fonts;
  std::vector<Answer> answers;
  for (int k = 0; k < kKindCount; ++k) {
    if (options.kind != nullptr && std::strcmp(options.kind, kKinds[k].name) != 0) continue;
    for (const int resolution : kResolutions) {
      // Large pages take long.
      const int step = resolution >= 400 ? 4 : 1;
      for (int i = 0; i < options.pages; i += step)
        MeasurePage(fonts, kKinds[k], resolution, options.first + static_cast<uint64_t>(i), options,
                    &answers);
    }
  }
  if (options.isListed) {
    for (const Answer& a : answers) {
      std::printf("%s;%d;%d;%d;%.4f;%.4f;%.4f;%.4f\n", a.kind->name, a.resolution, a.bits,
                  static_cast<int>(a.seed), a.truth, a.angle, a.angle - a.truth, a.confidence);
    }
    return 0;
  }
  WriteErrorTables(answers);
  WriteCalibration(answers);
  WriteFalseAlarms(answers);
  return 0;
}
