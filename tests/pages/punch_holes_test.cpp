// Holes drawn where punches make them, soiled, cut and grey, and marks that only look like holes.
#include "pages/punch_holes.h"

#include <gtest/gtest.h>

#include <cmath>
#include <ostream>
#include <vector>

#include "drawn_page.h"
#include "pages/sheet.h"

namespace rastrel::pages {
namespace {

constexpr int kDpi = 200, kWidth = 1654, kHeight = 2339;  // A4
constexpr double kMm = kDpi / 25.4;
constexpr int kPaper = 240;

struct Disc {
  double x, y, diameter;  // millimetres
  double tall = 1;        // times as high as wide

  // Visits its pixels.
  template <class Visit>
  void ForEach(const Visit& visit) const {
    const double reach = diameter / 2 * kMm;
    for (int row = std::max(0, static_cast<int>(y * kMm - reach * tall));
         row < std::min<double>(kHeight, y * kMm + reach * tall + 1); ++row) {
      for (int column = std::max(0, static_cast<int>(x * kMm - reach));
           column < std::min<double>(kWidth, x * kMm + reach + 1); ++column) {
        const double dx = column - x * kMm, dy = (row - y * kMm) / tall;
        if (dx * dx + dy * dy <= reach * reach) visit(column, row);
      }
    }
  }
};

// Marks from the sheet's top to its bottom, one to the right of the other by `lean`.
std::vector<Disc> Column(double x, double step, double diameter, double tall = 1, double lean = 0) {
  std::vector<Disc> discs;
  for (double y = 8; y < 290; y += step, x += lean) discs.push_back({x, y, diameter, tall});
  return discs;
}

void Draw(const Disc& disc, int percent, DrawnPage* page) {
  disc.ForEach([&](int x, int y) { page->grey.Row(y)[x] = static_cast<uint8_t>(kPaper * percent / 100); });
}

HolePlan PlanOf(const DrawnPage& page, bool isInk) {
  if (!isInk) return PlanHoles(FindSheet(page.grey, kDpi), page.grey);
  BitPlane ink(kWidth, kHeight);
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      if (page.grey.Row(y)[x] < kPaper / 2) ink.Set(x, y);
    }
  }
  return PlanHoles(FindSheet(ink, kDpi), ink);
}

struct Marks {
  const char* name;
  std::vector<Disc> discs;
  int percent = 5;  // of the paper's brightness
  bool isInk = true, areHoles = true;
  void (*draw)(DrawnPage& page) = [](DrawnPage&) {};
};
void PrintTo(const Marks& marks, std::ostream* out) { *out << marks.name; }

class MarksInTheMargin : public testing::TestWithParam<Marks> {};

TEST_P(MarksInTheMargin, AreHolesOrStay) {
  const Marks& marks = GetParam();
  DrawnPage page(kWidth, kHeight, [](int, int) { return kPaper; });
  page.Text(static_cast<int>(24 * kMm), 200, kWidth - 180, kHeight - 200, 5, 10);
  for (const Disc& disc : marks.discs) Draw(disc, marks.percent, &page);
  marks.draw(page);
  if (!marks.isInk) page.Grain(3);

  const HolePlan plan = PlanOf(page, marks.isInk);
  ASSERT_EQ(marks.areHoles ? marks.discs.size() : 0, plan.holes.size());
  for (const Disc& disc : marks.areHoles ? marks.discs : std::vector<Disc>()) {
    bool isFound = false;
    for (const PunchHole& hole : plan.holes) {
      isFound |= std::abs(hole.x - disc.x * kMm) < 0.4 * kMm && std::abs(hole.y - disc.y * kMm) < 0.4 * kMm &&
                 (disc.tall > 1 || std::abs(hole.diameter - disc.diameter * kMm) < 0.6 * kMm);
    }
    EXPECT_TRUE(isFound) << disc.x << ", " << disc.y;
    int64_t left = 0;
    disc.ForEach([&](int x, int y) { left += !plan.mask.Get(x, y); });
    EXPECT_EQ(0, left) << "pixels of the hole at " << disc.x << ", " << disc.y;
  }
  for (int y = 0; y < kHeight && !plan.IsEmpty(); ++y) {
    for (int x = 0; x < kWidth; ++x) ASSERT_FALSE(page.truth.Get(x, y) && plan.mask.Get(x, y));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Margins, MarksInTheMargin,
    testing::Values(
        Marks{.name = "IsoPair", .discs = {{12, 108.5, 6}, {12, 188.5, 6}}},
        Marks{.name = "IsoFour",
              .discs = {{11, 28.5, 5.5}, {11.4, 108.5, 5.5}, {11.8, 188.5, 5.5}, {12.2, 268.5, 5.5}}},
        Marks{.name = "SwedishFour",
              .discs = {{10, 92.5, 6}, {10, 113.5, 6}, {10, 183.5, 6}, {10, 204.5, 6}}},
        Marks{.name = "AmericanThree", .discs = {{10, 40.5, 7.1}, {10, 148.5, 7.1}, {10, 256.5, 7.1}}},
        Marks{.name = "AtTheTop", .discs = {{65, 12, 6}, {145, 12, 6}}},
        Marks{.name = "CutByTheEdge", .discs = {{0.3, 108.5, 6}, {-0.3, 188.5, 6}}},
        Marks{.name = "GreyOnes", .discs = {{12, 108.5, 6}, {12, 188.5, 6}}, .percent = 60, .isInk = false},
        Marks{.name = "OneAlone", .discs = {{10, 148, 6}}},
        Marks{.name = "WithFlecks",
              .discs = {{12, 108.5, 6}, {12, 188.5, 6}},
              .draw =
                  [](DrawnPage& page) {
                    for (const int y : {840, 855, 866, 1470, 1484, 1496})
                      for (int x = 84; x < 108; x += 9)
                        page.grey.Row(y)[x] = page.grey.Row(y + 1)[x] = kPaper;
                  }},
        Marks{.name = "OnLinedPaper",
              .discs = {{12, 108.5, 6}, {12, 188.5, 6}},
              .draw =
                  [](DrawnPage& page) {
                    for (int y = 100; y < kHeight; y += 63) page.Bar(0, y, kWidth, 2, 5, /*isInk=*/false);
                  }},
        Marks{.name = "SixRings",
              .discs = {{10, 91.5, 5.5},
                        {10, 110.5, 5.5},
                        {10, 129.5, 5.5},
                        {10, 167.5, 5.5},
                        {10, 186.5, 5.5},
                        {10, 205.5, 5.5}}},
        Marks{.name = "SpiralAskew", .discs = Column(4, 8.47, 4, 1, 0.1)},
        Marks{.name = "Comb", .discs = Column(5, 14.29, 3, 2.6), .isInk = false},
        Marks{.name = "BulletsDownThePage",
              .discs = Column(8, 10.2, 4),
              .areHoles = false,
              .draw = [](DrawnPage& page) { page.Text(90, 40, 600, kHeight - 40, 5, 10); }},
        Marks{.name = "MarksThatMachinesRead",
              .discs = {},
              .areHoles = false,
              .draw =
                  [](DrawnPage& page) {
                    for (int y = 60; y < kHeight - 60; y += 50) page.Bar(30, y, 40, 14, 5);
                  }},
        Marks{.name = "OrnamentDownBothSides",
              .discs = Column(8, 10.2, 4),
              .areHoles = false,
              .draw =
                  [](DrawnPage& page) {
                    for (const Disc& disc : Column(202, 10.2, 4)) Draw(disc, 5, &page);
                  }},
        Marks{
            .name = "Bullets",
            .discs =
                {{15, 40, 4.5}, {15, 65, 4.5}, {15, 90, 4.5}, {15, 115, 4.5}, {15, 140, 4.5}, {15, 165, 4.5}},
            .areHoles = false},
        Marks{.name = "BulletsOfWhichTwoFitAPunch",
              .discs = {{14, 60, 5}, {14, 100, 5}, {14, 180, 5}},
              .areHoles = false},
        Marks{.name = "MarksAtBothSides",
              .discs = {{10, 108.5, 6}, {10, 188.5, 6}, {200, 108.5, 6}, {200, 188.5, 6}},
              .areHoles = false},
        Marks{.name = "MarksInTheCorners",
              .discs = {{10, 12, 6}, {200, 12, 6}, {10, 285, 6}, {200, 285, 6}},
              .areHoles = false},
        Marks{.name = "LargeDotWithText",
              .discs = {{30, 12, 8}},
              .areHoles = false,
              .draw = [](DrawnPage& page) { page.Text(280, 70, 600, 130, 6, 10); }},
        Marks{.name = "Squares",
              .discs = {},
              .areHoles = false,
              .draw =
                  [](DrawnPage& page) {
                    for (const int y : {830, 1460}) page.Bar(70, y, 44, 44, 5);
                  }},
        Marks{.name = "SmallDots", .discs = {{12, 108.5, 2.5}, {12, 188.5, 2.5}}, .areHoles = false}),
    [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace rastrel::pages
