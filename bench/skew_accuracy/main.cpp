// Measures how accurate MeasureSkew is on pages of known skew and writes tables in Markdown:
// skew_accuracy FIRST-SEED PAGES-OF-A-KIND [CSV]
#include <rastrel.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>

#include "bench/skew_accuracy/sheets.h"

namespace rastrel::accuracy {
namespace {

constexpr int kDpi[] = {100, 150, 200, 300, 400, 600};

struct Answer {
  const Kind* kind;
  int dpi, bits;
  uint64_t seed;
  double truth, angle, confidence;
  double Error() const { return std::abs(angle - truth); }
};

// Half of the pages are turned by up to 10 degrees, the others by less.
double PickAngle(Random& random) {
  const int choice = random.Below(20);
  if (choice == 0) return 0;
  return random.In(-1, 1) * (choice < 3 ? 0.2 : choice < 9 ? 2 : 10);
}

void MeasurePage(const Fonts& fonts, const Kind& kind, int dpi, uint64_t seed, std::vector<Answer>* answers) {
  Random random((seed * 64 + static_cast<uint64_t>(&kind - kKinds)) * 64 + static_cast<uint64_t>(dpi / 50));
  for (int i = 0; i < 4; ++i) random.Next();
  const double truth = PickAngle(random);
  Painter page(fonts, 210, 297, dpi, truth);
  kind.draw(page, random);
  const auto screen = static_cast<Screen>(random.Below(3));
  for (const int bits : {1, 8, 24}) {
    if (bits == 24 && seed % 4 != 0) continue;
    const testing::TestDib dib = page.Page(bits, screen);
    if (std::getenv("DUMP"))
      SaveDIB((std::string(std::getenv("DUMP")) + std::to_string(dpi) + "-" + std::to_string(bits) + "-" +
               std::to_string(seed) + ".bmp")
                  .c_str(),
              dib.handle());
    SkewResult result = {};
    if (MeasureSkew(dib.handle(), nullptr, &result) == 0) std::exit(3);
    answers->push_back({&kind, dpi, bits, seed, truth, result.angle, result.confidence});
  }
}

}  // namespace
}  // namespace rastrel::accuracy

int main(int argc, char** argv) {
  using namespace rastrel::accuracy;
  const uint64_t first = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 1;
  const int count = argc > 2 ? std::atoi(argv[2]) : 4;
  const Fonts fonts;
  std::vector<Answer> answers;
  for (int k = 0; k < kKindCount; ++k)
    for (const int dpi : kDpi)
      for (int i = 0; i < count; ++i) {
        if (argc > 3 && std::string(argv[3]) != kKinds[k].name) continue;
        if (dpi >= 400 && i % 4 != 0) continue;
        MeasurePage(fonts, kKinds[k], dpi, first + static_cast<uint64_t>(i), &answers);
      }
  for (const Answer& a : answers)
    std::printf("%s;%d;%d;%d;%.4f;%.4f;%.4f;%.4f\n", a.kind->name, a.dpi, a.bits, int(a.seed), a.truth,
                a.angle, a.angle - a.truth, a.confidence);
  return 0;
}
