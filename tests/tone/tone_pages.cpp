#include "tests/tone/tone_pages.h"

namespace rastrel::testing {
namespace {

TestDib PageOf(int bits, const std::vector<std::vector<Pixel>>& storedRows) {
  const auto height = static_cast<int>(storedRows.size());
  TestDib page(MakeHeader(bits, static_cast<int>(storedRows[0].size()), height));
  for (int y = 0; y < height; ++y) {
    int x = 0;
    for (const Pixel pixel : storedRows[static_cast<size_t>(y)]) page.Set(x++, height - 1 - y, pixel);
  }
  page.Settle();
  return page;
}

}  // namespace

TestDib GreyPage(const std::vector<std::vector<int>>& storedRows) {
  std::vector<std::vector<Pixel>> rows;
  for (const auto& row : storedRows) rows.emplace_back(row.begin(), row.end());
  return PageOf(8, rows);
}

TestDib ColourPage(const std::vector<std::vector<Pixel>>& storedRows) { return PageOf(24, storedRows); }

std::vector<std::vector<Pixel>> StoredRows(const TestDib& page) {
  std::vector<std::vector<Pixel>> rows(static_cast<size_t>(page.height()));
  for (int y = 0; y < page.height(); ++y) {
    for (int x = 0; x < page.width(); ++x) {
      rows[static_cast<size_t>(page.height() - 1 - y)].push_back(page.At(x, y));
    }
  }
  return rows;
}

}  // namespace rastrel::testing
