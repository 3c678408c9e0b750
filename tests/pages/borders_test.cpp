// Sheets drawn with what lies around them: what is outside goes as a whole, and nothing else does.
#include "pages/borders.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ostream>

#include "drawn_page.h"
#include "pages/sheet.h"

namespace rastrel::pages {
namespace {

constexpr int kWidth = 880, kHeight = 1240, kDpi = 150;
constexpr int kInk = 15;  // percent of the paper's brightness

// A sheet whose sides lie this far in from the image's edges, at their first and last places.
struct DrawnSheet {
  const char* name;
  int left[2], top[2], right[2], bottom[2];
  int paper, surround;
  int shade;  // how much darker the paper is at the right than at the left
  int flecks;
  bool isInk;  // 1 bit

  static int Between(const int (&ends)[2], int place, int places) {
    return ends[0] + (ends[1] - ends[0]) * place / places;
  }
  bool IsOutside(int x, int y) const {
    return x < Between(left, y, kHeight) || kWidth - 1 - x < Between(right, y, kHeight) ||
           y < Between(top, x, kWidth) || kHeight - 1 - y < Between(bottom, x, kWidth);
  }
  int PaperAt(int x) const { return paper - shade * x / kWidth; }
};
void PrintTo(const DrawnSheet& sheet, std::ostream* out) { *out << sheet.name; }

BitPlane BlackOf(const BytePlane& grey) {
  BitPlane ink(grey.width(), grey.height());
  for (int y = 0; y < grey.height(); ++y) {
    for (int x = 0; x < grey.width(); ++x) {
      if (grey.Row(y)[x] < 128) ink.Set(x, y);
    }
  }
  return ink;
}

BorderPlan PlanOf(const DrawnPage& page, bool isInk) {
  if (!isInk) return PlanBorders(FindSheet(page.grey, kDpi), page.grey);
  const BitPlane ink = BlackOf(page.grey);
  return PlanBorders(FindSheet(ink, kDpi), ink);
}

class SurroundGoes : public testing::TestWithParam<DrawnSheet> {};

TEST_P(SurroundGoes, AsAWholeAndLooksLikePaper) {
  const DrawnSheet& sheet = GetParam();
  DrawnPage page(kWidth, kHeight, [&](int x, int) { return sheet.PaperAt(x); });
  page.Text(110, 120, kWidth - 110, kHeight - 120, 4, kInk);
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      if (sheet.IsOutside(x, y)) page.grey.Row(y)[x] = static_cast<uint8_t>(sheet.surround);
    }
  }
  uint32_t state = 7;
  for (int i = 0; i < sheet.flecks; ++i) {
    state = state * 1664525u + 1013904223u;
    const int size = i % 12 == 0 ? 9 : 3;  // as large as letters, some of them
    const int x = static_cast<int>(state >> 8) % (kWidth - size),
              y = static_cast<int>(state >> 16) % (kHeight - size);
    if (!sheet.IsOutside(x, y) || !sheet.IsOutside(x + size, y + size)) continue;
    for (int dy = 0; dy < size; ++dy)
      for (int dx = 0; dx < size; ++dx) page.grey.Row(y + dy)[x + dx] = static_cast<uint8_t>(sheet.paper);
  }
  if (!sheet.isInk) page.Grain(3);

  const BorderPlan plan = PlanOf(page, sheet.isInk);
  ASSERT_FALSE(plan.IsEmpty());
  int64_t left = 0, beyond = 0, ink = 0;
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      const bool isDark = page.grey.Row(y)[x] < sheet.PaperAt(x) / 2;
      left += sheet.IsOutside(x, y) && isDark && !plan.mask.Get(x, y);
      ink += page.truth.Get(x, y) && plan.mask.Get(x, y);
      // Far inside nothing is touched.
      beyond += plan.mask.Get(x, y) && !sheet.IsOutside(std::clamp(x, 8, kWidth - 9), y) &&
                !sheet.IsOutside(x - 8 * (x > kWidth / 2 ? -1 : 1), y) && !sheet.IsOutside(x, y - 8) &&
                !sheet.IsOutside(x, y + 8);
    }
  }
  EXPECT_EQ(0, left) << "dark pixels outside";
  EXPECT_EQ(0, ink) << "pixels of text";
  EXPECT_EQ(0, beyond) << "pixels far inside";
  if (sheet.isInk) return;

  const BytePlane before = page.grey;
  PaintPaper(PageOfGrey(&page.grey), plan.mask);
  constexpr int kTile = 20, kVisible = 6;
  for (int ty = 0; ty + kTile <= kHeight; ty += kTile) {
    for (int tx = 0; tx + kTile <= kWidth; tx += kTile) {
      int64_t sum = 0, truth = 0;
      bool isAllOutside = true;
      for (int y = ty; y < ty + kTile; ++y) {
        for (int x = tx; x < tx + kTile; ++x) {
          sum += page.grey.Row(y)[x];
          truth += sheet.PaperAt(x);
          isAllOutside &= plan.mask.Get(x, y);
          if (!plan.mask.Get(x, y)) {
            ASSERT_EQ(before.Row(y)[x], page.grey.Row(y)[x]);
          }
        }
      }
      if (isAllOutside) {
        ASSERT_LE(std::llabs(sum - truth), kVisible * kTile * kTile) << "painted at " << tx << ", " << ty;
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Sheets, SurroundGoes,
    testing::Values(
        //          name          left      top       right     bottom    paper surround shade flecks ink
        DrawnSheet{"AllAround", {40, 60}, {50, 38}, {60, 40}, {38, 50}, 205, 30, 0, 40, false},
        DrawnSheet{"Tinted", {40, 52}, {30, 30}, {44, 44}, {30, 38}, 190, 25, 40, 0, false},
        DrawnSheet{"LeftOnly", {30, 50}, {0, 0}, {0, 0}, {0, 0}, 235, 20, 0, 10, false},
        DrawnSheet{"Flecked", {30, 44}, {40, 40}, {50, 36}, {44, 44}, 255, 0, 0, 300, true},
        DrawnSheet{"Bars", {0, 0}, {24, 24}, {0, 0}, {16, 16}, 255, 0, 0, 20, true},
        DrawnSheet{"Wedge", {0, 0}, {0, 0}, {0, 60}, {0, 0}, 255, 0, 0, 0, true}),
    [](const auto& test) { return test.param.name; });

// ---- the page's own
// --------------------------------------------------------------------------------------------

struct OwnDark {
  const char* name;
  int (*paperAt)(int x, int y);
  void (*draw)(DrawnPage& page);
  bool isInk;
};
void PrintTo(const OwnDark& page, std::ostream* out) { *out << page.name; }

int White(int, int) { return 250; }

class OwnDarkStays : public testing::TestWithParam<OwnDark> {};

TEST_P(OwnDarkStays, Untouched) {
  DrawnPage page(kWidth, kHeight, GetParam().paperAt);
  page.Text(60, 100, kWidth - 14, kHeight - 100, 4, kInk);
  GetParam().draw(page);
  if (!GetParam().isInk) page.Grain(3);
  const BorderPlan plan = PlanOf(page, GetParam().isInk);
  EXPECT_TRUE(plan.IsEmpty()) << plan.pixels << " pixels"
                              << (plan.regions.empty() ? "" : ": " + plan.regions[0].reason);
}

INSTANTIATE_TEST_SUITE_P(
    Pages, OwnDarkStays,
    testing::Values(OwnDark{"TextToTheEdge", White,
                            [](DrawnPage& page) { page.Text(-3, 300, kWidth, 900, 5, kInk); }, false},
                    OwnDark{"Vignette",
                            [](int x, int y) {
                              const int dx = x - 350, dy = y - 500;
                              return std::max(20, 200 - (dx * dx + dy * dy) / 4000);
                            },
                            [](DrawnPage&) {}, false},
                    OwnDark{"GutterShadow", [](int x, int) { return std::min(220, 30 + x * 2); },
                            [](DrawnPage&) {}, false},
                    OwnDark{"DarkPaper", [](int x, int) { return 95 - x / 20; }, [](DrawnPage&) {}, false},
                    OwnDark{"DarkPaperAtOneSide", [](int x, int) { return 190 - x * x / 7000; },
                            [](DrawnPage&) {}, false},
                    OwnDark{"PictureThatBleedsOff", White,
                            [](DrawnPage& page) {
                              for (int y = 0; y < 420; y += 7) {
                                for (int x = 300; x < kWidth; x += 7)
                                  page.Bar(x, y, 7, 7, 10 + (x * 3 + y * 5) / 7 % 80);
                              }
                            },
                            false},
                    OwnDark{"HalftoneThatBleedsOff", White,
                            [](DrawnPage& page) {
                              for (int y = 0; y < 500; y += 6) {
                                for (int x = 0; x < kWidth; x += 6) page.Bar(x, y, 5, 4 + (x + y) % 3, 0);
                              }
                            },
                            true},
                    OwnDark{"TabWithALetter", White,
                            [](DrawnPage& page) {
                              page.Bar(kWidth - 60, 400, 60, 110, 0);
                              for (int y = 420; y < 490; ++y)
                                for (int x = kWidth - 44; x < kWidth - 34; ++x) page.grey.Row(y)[x] = 250;
                            },
                            true},
                    OwnDark{"BlackPictureInACorner", White,
                            [](DrawnPage& page) { page.Bar(600, 0, 280, 300, 8); }, false},
                    OwnDark{"PlainTab", White,
                            [](DrawnPage& page) { page.Bar(kWidth - 50, 400, 50, 110, 0); }, true},
                    OwnDark{"BannerWithLetters", White,
                            [](DrawnPage& page) {
                              page.Bar(0, 0, kWidth, 120, 0);
                              for (int x = 60; x < 700; x += 40)
                                for (int y = 30; y < 80; ++y)
                                  for (int dx = 0; dx < 12; ++dx) page.grey.Row(y)[x + dx] = 250;
                            },
                            true},
                    OwnDark{"FleckedBannerWithAWord", White,
                            [](DrawnPage& page) {
                              page.Bar(0, 0, kWidth, 120, 0);
                              for (int i = 0; i < 60; ++i) page.grey.Row(i * 53 % 116 + 1)[i * 14 + 7] = 250;
                              for (int x = 60; x < 180; x += 24)
                                for (int y = 45; y < 65; ++y)
                                  for (int dx = 0; dx < 12; ++dx) page.grey.Row(y)[x + dx] = 250;
                            },
                            true},
                    OwnDark{"FrameNearTheEdge", White,
                            [](DrawnPage& page) {
                              page.Bar(6, 6, kWidth - 12, 4, 0);
                              page.Bar(6, kHeight - 10, kWidth - 12, 4, 0);
                              page.Bar(6, 6, 4, kHeight - 12, 0);
                              page.Bar(kWidth - 10, 6, 4, kHeight - 12, 0);
                            },
                            true},
                    OwnDark{"StavesToTheEdges", White,
                            [](DrawnPage& page) {
                              for (int y = 40; y < kHeight; y += 12 + 40 * (y / 12 % 5 == 0))
                                page.Bar(0, y, kWidth, 2, 0);
                            },
                            true}),
    [](const auto& test) { return test.param.name; });

// A shadow that swells and thins out in the margin of a page with a surround goes; a bar that is as thick all
// along, as the marks of a revised paragraph are, stays.
TEST(PlanBorders, TakesAStreakOfShadowAndLeavesABarInTheMargin) {
  DrawnPage page(kWidth, kHeight, White);
  page.Text(110, 120, kWidth - 110, kHeight - 120, 4, kInk);
  page.Bar(20, 300, 8, 400, 0);
  page.Bar(kWidth - 14, 0, 14, kHeight, 0, /*isInk=*/false);
  BitPlane streak(kWidth, kHeight);
  for (int x = 150; x < 650; ++x) {
    for (int y = 20; y < 23 + (x - 150) / 30; ++y) streak.Set(x, y), page.grey.Row(y)[x] = 0;
  }
  const BorderPlan plan = PlanOf(page, /*isInk=*/true);
  ASSERT_FALSE(plan.IsEmpty());
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      if (!streak.Get(x, y) && !page.truth.Get(x, y)) continue;
      ASSERT_EQ(streak.Get(x, y), plan.mask.Get(x, y)) << x << ", " << y;
    }
  }
}

// A strip of the next page outside the line where two sheets meet: the line goes, the letters stay.
TEST(PlanBorders, TakesTheSheetsEdgeLineAndLeavesTheNextPagesLetters) {
  DrawnPage page(kWidth, kHeight, White);
  page.Text(60, 100, kWidth - 80, kHeight - 100, 4, kInk);
  page.Text(kWidth - 14, 150, kWidth, kHeight - 150, 4, kInk);
  page.Bar(kWidth - 22, 0, 4, kHeight, 0, /*isInk=*/false);
  const BorderPlan plan = PlanOf(page, /*isInk=*/true);
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      const bool isLine = x >= kWidth - 22 && x < kWidth - 18;
      if (isLine || page.truth.Get(x, y)) {
        ASSERT_EQ(isLine, !plan.IsEmpty() && plan.mask.Get(x, y)) << x << ", " << y;
      }
    }
  }
}

}  // namespace
}  // namespace rastrel::pages
