#include "pages/parting.h"

namespace rastrel::pages {

int PartingValue(std::span<const int64_t> counts) {
  int64_t total = 0, sum = 0;
  for (size_t i = 0; i < counts.size(); ++i) {
    total += counts[i];
    sum += static_cast<int64_t>(i) * counts[i];
  }
  int64_t below = 0, sumBelow = 0;
  double widest = 0;
  size_t parting = counts.size() / 2;
  for (size_t i = 0; i + 1 < counts.size(); ++i) {
    below += counts[i];
    sumBelow += static_cast<int64_t>(i) * counts[i];
    const int64_t above = total - below;
    if (below == 0 || above == 0) continue;
    // The spread between the classes, up to a constant factor: products and one quotient, exact on every
    // machine.
    const double apart = static_cast<double>(sum) * static_cast<double>(below) -
                         static_cast<double>(sumBelow) * static_cast<double>(total);
    const double between = apart * apart / (static_cast<double>(below) * static_cast<double>(above));
    if (between > widest) {
      widest = between;
      parting = i + 1;
    }
  }
  return static_cast<int>(parting);
}

}  // namespace rastrel::pages
