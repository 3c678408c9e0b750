// Which holes the classic chain erases, and what only resembles them.
#include <gtest/gtest.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "classic_page.h"

namespace rastrel::pages {
namespace {

TEST(Clean, ErasesHolesInEveryMargin) {
  constexpr int kIn = 71, kRadius = 18;  // 12 mm from the edge, 6 mm wide
  struct Row {
    Side side;
    std::vector<int> places;  // along the edge
  };
  const Row rows[] = {{Side::kLeft, {700, 1170}},
                      {Side::kRight, {230, 876, 1520}},
                      {Side::kTop, {400, 840}},
                      {Side::kBottom, {140, 480, 760, 1100}},
                      {Side::kRight, {300, 700, 1100, 1500}},
                      {Side::kTop, {620}},
                      {Side::kRight, {900}},
                      {Side::kBottom, {620}}};
  CleanOptions options;
  options.removesSpecks = false;
  options.deskew = Deskewing::kOff;
  for (const int bits : {1, 8, 24}) {
    Drawing clean(bits);
    clean.Text(0);
    for (const auto& [side, places] : rows) {
      SCOPED_TRACE(::testing::Message() << bits << " bits, " << NameOf(side) << ", " << places.size());
      Drawing dirty(Duplicate(clean.page()));
      std::vector<std::pair<int, int>> centres;
      for (const int place : places) {
        const bool isUpright = side == Side::kLeft || side == Side::kRight;
        const int in = side == Side::kRight    ? kWidth - 1 - kIn
                       : side == Side::kBottom ? kHeight - 1 - kIn
                                               : kIn;
        centres.push_back(isUpright ? std::pair(in, place) : std::pair(place, in));
        dirty.Disc(centres.back().first, centres.back().second, kRadius);
      }
      const Cleaned after(dirty.Take(), options);
      EXPECT_TRUE(SamePixels(clean.page(), after.page));
      ASSERT_EQ(places.size(), after.record.holes.size());
      for (const Hole& hole : after.record.holes) {
        EXPECT_EQ(side, hole.side);
        EXPECT_NEAR(2 * kRadius + 1, hole.diameter, 1);
        EXPECT_EQ(1,
                  std::ranges::count(centres, std::pair(static_cast<int>(hole.x), static_cast<int>(hole.y))));
      }
    }
  }
}

TEST(Clean, ErasesHolesOfLinedPaperUpToTheirEdges) {
  for (const int bits : {1, 8, 24}) {
    Drawing before(bits), clean(bits);
    for (Drawing* drawing : {&before, &clean}) {
      drawing->Text(0);
      for (int y = 50; y < kHeight; y += 41) drawing->Fill(0, y, kWidth, y + 2);
    }
    for (const int y : {256, 870, 1480}) before.Disc(kWidth - 72, y, 20);
    const Cleaned after(before.Take());
    EXPECT_EQ(3u, after.record.holes.size()) << bits << " bits";
    EXPECT_EQ(255, BrightnessAt(after.page, kWidth - 72, 870));
    // Beside the holes and a halo of 0.4 mm nothing changed.
    clean.Fill(kWidth - 95, 0, kWidth - 49, kHeight, false);
    const PageView view(after.page);
    for (int y = 0; y < kHeight; ++y) {
      PaintRow(view, y, kWidth - 95, kWidth - 49, ExtremeInk(view, /*light=*/true));
    }
    EXPECT_TRUE(SamePixels(clean.page(), after.page)) << bits << " bits";
  }
}

TEST(Clean, LeavesWhatOnlyResemblesHoles) {
  const auto drawTop = [](Drawing& page) {
    page.Disc(300, 71, 18);  // a seal with a name beside it
    for (int x = 350; x < 420; x += 10) page.Fill(x, 60, x + 4, 82);
    page.Disc(900, 40, 16);  // the dot of a large i
    page.Fill(884, 80, 917, 190);
  };
  const auto drawRight = [](Drawing& page) {
    page.Fill(1150, 300, 1190, 340);  // a box
    page.Disc(1170, 700, 24);         // a ring
    page.Fill(1160, 690, 1181, 711, false);
    for (int i = 0; i < 30; ++i) page.Fill(1160 - i, 1000 + i, 1161 + i, 1001 + i);  // a wedge
    page.Disc(1170, 1300, 34);                                                       // larger than holes are
    for (const int y : {480, 880}) {                                                 // ovals in a row
      page.Disc(1163, y, 15);
      page.Disc(1177, y, 15);
    }
    page.Disc(1165, 1500, 16);  // and a rounder one alone
    page.Disc(1175, 1500, 16);
  };
  const auto drawBottom = [](Drawing& page) {
    for (int x = 400; x < 800; x += 50) page.Disc(x, kHeight - 70, 14);  // a row of dots
  };
  for (const int bits : {1, 8, 24}) {
    Drawing drawing(bits);
    drawing.Text(0);
    drawTop(drawing);
    drawRight(drawing);
    drawBottom(drawing);
    SCOPED_TRACE(bits);
    EXPECT_TRUE(ExpectUntouched(drawing.page()).holes.empty());
  }
}

}  // namespace
}  // namespace rastrel::pages
