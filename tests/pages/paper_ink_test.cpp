#include <gtest/gtest.h>

#include <bit>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "pages/ink.h"
#include "pages/paper.h"
#include "tests/pages/drawn_page.h"

namespace rastrel::pages {
namespace {

constexpr int kWidth = 800, kHeight = 600, kDpi = 200;

struct PageKind {
  std::string name;
  std::function<int(int x, int y)> paperAt;
  std::function<void(DrawnPage&)> draw;
  int paperTolerance;  // grey levels, between the map and the truth, away from the page's edge
  double mostMissed;   // share of the ink's pixels
  double mostWrong;    // ink found where there is none, as a share of the ink's pixels
};

void PlainText(DrawnPage& page) { page.Text(60, 60, kWidth - 60, kHeight - 60, 4, 25); }

const PageKind kKinds[] = {
    {"White", [](int, int) { return 245; }, PlainText, 4, 0.01, 0.01},
    {"SlantedLight", [](int x, int y) { return 240 - x * 130 / kWidth - y * 40 / kHeight; }, PlainText, 6,
     0.01, 0.01},
    {"GutterShadow", [](int x, int) { return x > 150 ? 230 : 80 + x; }, PlainText, 8, 0.02, 0.02},
    {"VeryDarkPaper", [](int, int) { return 62; }, PlainText, 4, 0.01, 0.01},
    {"FaintPrint", [](int, int) { return 250; },
     [](DrawnPage& page) { page.Text(60, 60, kWidth - 60, kHeight - 60, 4, 86); }, 4, 0.02, 0.02},
    {"PencilBesidePrint", [](int, int) { return 250; },
     [](DrawnPage& page) {
       page.Text(60, 60, kWidth - 60, 300, 4, 15);
       page.Text(60, 320, kWidth - 60, kHeight - 60, 3, 72);
     },
     4, 0.02, 0.02},
    {"ShadedField", [](int, int) { return 250; },
     [](DrawnPage& page) {
       page.Text(60, 60, kWidth - 60, 300, 4, 15);
       page.Bar(100, 340, 400, 60, 75, /*isInk=*/false);
     },
     255, 0.02, 0.02},
    {"LongThinStrokes", [](int, int) { return 220; },
     [](DrawnPage& page) {
       for (int y = 50; y < kHeight - 50; y += 40) page.Bar(80, y, kWidth - 160, 2, 50);
     },
     4, 0.02, 0.02},
    {"BoldTitle", [](int, int) { return 235; },
     [](DrawnPage& page) {
       PlainText(page);
       page.Bar(100, 200, 300, 40, 15);
       page.Bar(500, 150, 40, 300, 15);
     },
     5, 0.01, 0.01},
    {"DarkSurround", [](int x, int y) { return x < 90 || y > 520 ? 8 : 240; },
     [](DrawnPage& page) {
       page.Text(140, 60, kWidth - 60, 480, 4, 25);
       for (int y = 0; y < kHeight; ++y) {
         for (int x = 0; x < kWidth; ++x) {
           if (x < 90 || y > 520) page.truth.Set(x, y);
         }
       }
     },
     255, 0.02, 0.02},
};

class PaperAndInk : public testing::TestWithParam<PageKind> {};

TEST_P(PaperAndInk, AreWhatWasDrawn) {
  const PageKind& kind = GetParam();
  DrawnPage page(kWidth, kHeight, kind.paperAt);
  kind.draw(page);
  page.Grain(5);
  const PaperMap paper = FindPaper(page.grey, kDpi);
  for (int y = 20; y < kHeight - 20; y += 7) {
    for (int x = 20; x < kWidth - 20; x += 7) {
      ASSERT_LE(std::abs(paper.BrightnessAt(x, y) - page.paper.Row(y)[x]), kind.paperTolerance)
          << x << ", " << y;
    }
  }

  const BitPlane ink = FindInk(page.grey, paper);
  int inkPixels = 0, missed = 0, wrong = 0;
  for (size_t i = 0; i < ink.words().size(); ++i) {
    inkPixels += std::popcount(page.truth.words()[i]);
    missed += std::popcount(page.truth.words()[i] & ~ink.words()[i]);
    wrong += std::popcount(ink.words()[i] & ~page.truth.words()[i]);
  }
  EXPECT_LE(missed, inkPixels * kind.mostMissed);
  EXPECT_LE(wrong, inkPixels * kind.mostWrong);
}
INSTANTIATE_TEST_SUITE_P(Kinds, PaperAndInk, testing::ValuesIn(kKinds),
                         [](const auto& kind) { return kind.param.name; });

TEST(PaperMap, RowsAndSinglePixelsTellTheSame) {
  for (const int width : {1, 7, 33, 130}) {
    DrawnPage page(width, 70, [](int x, int y) { return 90 + x + y; });
    const PaperMap paper = FindPaper(page.grey, 300);
    std::vector<uint8_t> row(static_cast<size_t>(width));
    for (int y = 0; y < 70; ++y) {
      paper.BrightnessRow(y, row);
      for (int x = 0; x < width; ++x)
        ASSERT_EQ(paper.BrightnessAt(x, y), row[static_cast<size_t>(x)]) << x << ", " << y;
    }
  }
}

TEST(PaperMap, TellsTheDarkAroundTheSheetFromDarkPaper) {
  DrawnPage surrounded(kWidth, kHeight, [](int x, int) { return x < 200 ? 10 : 240; });
  surrounded.Text(260, 60, kWidth - 60, kHeight - 60, 4, 25);
  const PaperMap sheet = FindPaper(surrounded.grey, kDpi);
  EXPECT_EQ(PaperMap::kNotPaper, sheet.confidence().Row(20)[2]);
  EXPECT_NE(PaperMap::kNotPaper, sheet.confidence().Row(20)[sheet.columns() - 3]);

  DrawnPage dark(kWidth, kHeight, [](int, int) { return 45; });
  dark.Text(60, 60, kWidth - 60, kHeight - 60, 4, 30);
  const PaperMap paper = FindPaper(dark.grey, kDpi);
  for (const uint8_t cell : paper.confidence().bytes()) EXPECT_NE(PaperMap::kNotPaper, cell);
}

}  // namespace
}  // namespace rastrel::pages
