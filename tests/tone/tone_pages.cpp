#include "tests/tone/tone_pages.h"

#include <cstring>
#include <random>

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

Bytes TonePage(int bits, int width, int height, unsigned seed) {
  std::mt19937 random(seed);
  BITMAPINFOHEADER header = MakeHeader(bits, width, height);
  header.biYPelsPerMeter = 5906;
  const bool runs = seed % 2 != 0;
  const unsigned table = seed / 2 % 3;  // ramp, random, short and random
  if (table == 2) header.biClrUsed = 1 + static_cast<uint32_t>(random() % 12);
  Bytes page = TestDib(header).block();
  page.resize(40 + header.biClrUsed * 4 + header.biSizeImage + random() % 13);
  const size_t rows = 40 + header.biClrUsed * 4;
  for (size_t i = table == 0 ? rows : 40; i < page.size(); ++i) page[i] = static_cast<uint8_t>(random());
  if (runs) {
    uint8_t tone = 0;
    for (size_t i = rows; i < rows + header.biSizeImage; ++i) {
      if (random() % 11 == 0) tone = static_cast<uint8_t>(random() % 3 == 0 ? random() : random() % 2 * 255);
      page[i] = tone;
    }
  }
  return page;
}

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
