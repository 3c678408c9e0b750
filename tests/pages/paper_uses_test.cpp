// What stands directly on paper and ink: polarity, blankness, even light, white paper, weaker show-through.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>

#include "pages/blankness.h"
#include "pages/flatten.h"
#include "pages/ink.h"
#include "pages/paper.h"
#include "pages/polarity.h"
#include "tests/pages/drawn_page.h"

namespace rastrel::pages {
namespace {

constexpr int kWidth = 800, kHeight = 600, kDpi = 200;

void Text(DrawnPage& page, int percent) { page.Text(60, 60, kWidth - 60, kHeight - 60, 4, percent); }

// A soft dark spot, as ink on the other side makes: nowhere steeper than a few levels a pixel.
void ShowThrough(DrawnPage& page, int depth) {
  constexpr int kReach = 18;
  for (int top = 80; top + 40 < kHeight - 60; top += 90) {
    for (int left = 80; left + 40 < kWidth - 60; left += 60) {
      for (int y = 0; y < 2 * kReach; ++y) {
        for (int x = 0; x < 2 * kReach; ++x) {
          const int away = std::max(std::abs(x - kReach), std::abs(y - kReach));
          uint8_t& value = page.grey.Row(top + y)[left + x];
          value = static_cast<uint8_t>(value - depth * (kReach - away) / kReach);
        }
      }
    }
  }
}

struct Page {
  std::string name;
  std::function<int(int x, int y)> paperAt;
  std::function<void(DrawnPage&)> draw;
  bool isBlank;
};
const Page kPages[] = {
    {"Text", [](int, int) { return 240; }, [](DrawnPage& page) { Text(page, 20); }, false},
    {"FaintText", [](int, int) { return 250; }, [](DrawnPage& page) { Text(page, 85); }, false},
    {"OnePageNumber", [](int, int) { return 240; },
     [](DrawnPage& page) { page.Text(380, 500, 420, 550, 4, 20); }, false},
    {"PaleWordBesideAShadow", [](int x, int) { return x < 60 ? 90 + 2 * x : 226; },
     [](DrawnPage& page) { page.Text(380, 300, 480, 360, 3, 89); }, false},
    {"LettersOfDarkPaper", [](int, int) { return 80; },
     [](DrawnPage& page) { page.Text(380, 300, 480, 360, 3, 65); }, false},
    {"EmptyWhite", [](int, int) { return 245; }, [](DrawnPage&) {}, true},
    {"EmptyDark", [](int, int) { return 50; }, [](DrawnPage&) {}, true},
    {"EmptyInShadow", [](int x, int) { return std::min(60 + x, 230); }, [](DrawnPage&) {}, true},
    {"EmptyInDarkSurround", [](int x, int) { return x < 100 ? 5 : 235; }, [](DrawnPage&) {}, true},
    {"OnlyShowThrough", [](int, int) { return 240; }, [](DrawnPage& page) { ShowThrough(page, 45); }, true},
};
class BlankPages : public testing::TestWithParam<Page> {};
TEST_P(BlankPages, AreToldByTheirInk) {
  DrawnPage page(kWidth, kHeight, GetParam().paperAt);
  GetParam().draw(page);
  page.Grain(4);
  const PaperMap paper = FindPaper(page.grey, kDpi);
  EXPECT_EQ(GetParam().isBlank, FindBlankness(page.grey, paper, FindInk(page.grey, paper)).isBlank);
}
INSTANTIATE_TEST_SUITE_P(Kinds, BlankPages, testing::ValuesIn(kPages),
                         [](const auto& test) { return test.param.name; });

TEST(Polarity, IsDecidedByTextAndNotByPaper) {
  for (const int paperLevel : {240, 50}) {
    DrawnPage page(kWidth, kHeight, [&](int, int) { return paperLevel; });
    Text(page, 30);
    page.Bar(0, 0, kWidth, 50, 2);
    page.Grain(3);
    const Polarity dark = FindPolarity(page.grey);
    EXPECT_FALSE(dark.textIsLight) << paperLevel;
    EXPECT_GE(dark.confidence, 80) << paperLevel;
    for (uint8_t& value : page.grey.bytes()) value = static_cast<uint8_t>(255 - value);
    EXPECT_TRUE(FindPolarity(page.grey).textIsLight) << paperLevel;

    BitPlane bits = page.truth;
    EXPECT_FALSE(FindPolarity(bits).textIsLight);
    for (int y = 0; y < kHeight; ++y) {
      for (int x = 0; x < kWidth; ++x) page.truth.Get(x, y) ? bits.Clear(x, y) : bits.Set(x, y);
    }
    EXPECT_TRUE(FindPolarity(bits).textIsLight);
  }
  EXPECT_EQ(
      0,
      FindPolarity(DrawnPage(kWidth, kHeight, [](int x, int) { return x < 300 ? 0 : 250; }).grey).confidence);
}

// A page in slanted light, and where on it there is paper and ink.
struct LitPage {
  LitPage() : page(kWidth, kHeight, [](int x, int) { return 230 - x / 8; }) {
    Text(page, 25);
    paper = FindPaper(page.grey, kDpi);
    result = page.grey;
    rows = {result.Row(0), kWidth, 1};
  }
  // The greatest difference from `wanted(x, y)` over all pixels of ink or of paper, off the rims of letters.
  template <class Wanted>
  int FarthestFrom(Wanted wanted, bool ofInk) const {
    int farthest = 0;
    for (int y = 10; y < kHeight - 10; ++y) {
      for (int x = 10; x < kWidth - 10; ++x) {
        if (page.truth.Get(x, y) != ofInk) continue;
        farthest = std::max(farthest, std::abs(wanted(x, y) - result.Row(y)[x]));
      }
    }
    return farthest;
  }
  DrawnPage page;
  PaperMap paper;
  BytePlane result;
  PixelRows rows;
};

TEST(Flatten, EvensTheLightAndKeepsItsLevel) {
  LitPage lit;
  EvenLight(lit.rows, lit.paper);
  EXPECT_LE(lit.FarthestFrom([&](int, int) { return lit.paper.level(); }, false), 8);
  EXPECT_LE(lit.FarthestFrom([&](int, int) { return lit.paper.level() / 4; }, true), 4);
}

TEST(Flatten, WhitensPaperAndLeavesInk) {
  LitPage lit;
  WhitenPaper(lit.rows, lit.paper);
  EXPECT_EQ(0, lit.FarthestFrom([](int, int) { return 255; }, false));
  EXPECT_EQ(0, lit.FarthestFrom([&](int x, int y) { return lit.page.grey.Row(y)[x]; }, true));
}

TEST(Flatten, WeakensShowThroughAndLeavesInkAndPictures) {
  LitPage lit;
  const BitPlane ink = FindInk(lit.page.grey, lit.paper);
  lit.page.Bar(300, 0, 200, 40, 85, false);  // shows through
  lit.page.Bar(600, 0, 100, 40, 85, false);  // part of a picture
  BitPlane pictures(kWidth, kHeight);
  for (int y = 0; y < 40; ++y) {
    for (int x = 600; x < 700; ++x) pictures.Set(x, y);
  }
  lit.result = lit.page.grey;
  WeakenShowThrough({lit.result.Row(0), kWidth, 1}, lit.paper, ink, &pictures);
  const int paperThere = lit.page.paper.Row(20)[400];
  EXPECT_GE(lit.result.Row(20)[400], paperThere * 94 / 100);
  EXPECT_EQ(lit.page.grey.Row(20)[650], lit.result.Row(20)[650]);
  EXPECT_EQ(0, lit.FarthestFrom([&](int x, int y) { return lit.page.grey.Row(y)[x]; }, true));
}

}  // namespace
}  // namespace rastrel::pages
