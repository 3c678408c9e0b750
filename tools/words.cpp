#include "tools/words.h"

#include <algorithm>
#include <array>
#include <numeric>

namespace rastrel::tool {
namespace {

// How many letters are to be left out, put in, changed, or exchanged with their neighbour.
size_t Distance(std::string_view from, std::string_view to) {
  // Three rows of the table of distances between beginnings.
  std::array<std::vector<size_t>, 3> rows;
  for (std::vector<size_t>& row : rows) row.resize(to.size() + 1);
  std::iota(rows[0].begin(), rows[0].end(), size_t{0});
  for (size_t i = 1; i <= from.size(); ++i) {
    const std::vector<size_t>& above = rows[(i - 1) % 3];
    const std::vector<size_t>& twoAbove = rows[(i + 1) % 3];
    std::vector<size_t>& row = rows[i % 3];
    row[0] = i;
    for (size_t j = 1; j <= to.size(); ++j) {
      const size_t change = above[j - 1] + (from[i - 1] == to[j - 1] ? 0 : 1);
      row[j] = std::min({change, above[j] + 1, row[j - 1] + 1});
      if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1]) {
        row[j] = std::min(row[j], twoAbove[j - 2] + 1);
      }
    }
  }
  return rows[from.size() % 3][to.size()];
}

}  // namespace

std::string_view Nearest(std::string_view word, std::span<const std::string_view> known) {
  constexpr size_t kLettersPerSlip = 3;  // a word of three letters may have one wrong
  std::string_view nearest;
  size_t least = std::min<size_t>(2, word.size() / kLettersPerSlip) + 1;
  for (const std::string_view candidate : known) {
    const size_t distance = Distance(word, candidate);
    if (distance < least) {
      least = distance;
      nearest = candidate;
    }
  }
  return nearest;
}

}  // namespace rastrel::tool
