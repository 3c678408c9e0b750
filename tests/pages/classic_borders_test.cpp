// Which borders the classic chain trims, and what is dark at the edge and none.
#include <gtest/gtest.h>

#include <utility>

#include "classic_page.h"

namespace rastrel::pages {
namespace {

TEST(Clean, TrimsBordersAndErasesHolesOnly) {
  CleanOptions options;
  options.removesSpecks = false;
  // Widths around the ends of 32-bit words.
  for (const auto& [bits, width] : {std::pair{1, 1240}, {1, 1247}, {1, 1248}, {8, 1240}, {24, 1241}}) {
    SCOPED_TRACE(::testing::Message() << bits << " bits, width " << width);
    Drawing clean(bits, width), dirty(bits, width);
    for (Drawing* drawing : {&clean, &dirty}) {
      drawing->Text(0);
      drawing->Fill(0, 600, 130, 620);  // runs into the border
    }
    dirty.Fill(0, 0, 30, 500);
    dirty.Fill(width - 20, 0, width, kHeight);
    dirty.Disc(80, 700, 18);  // 6 mm
    dirty.Disc(80, 1200, 20);
    const Cleaned after(dirty.Take(), options);
    EXPECT_EQ(2u, after.record.holes.size());
    EXPECT_TRUE(SamePixels(clean.page(), after.page));
  }
}

// A photograph on part of the page, a thumb tab, a black half, and pages as thin as a line are no borders.
TEST(Clean, LeavesWhatIsDarkAtTheEdgeAndNoBorder) {
  for (const int bits : {1, 8, 24}) {
    Drawing tab(bits), half(bits), line(bits, 900, 8);
    tab.Fill(kWidth - 90, 700, kWidth, 900);
    half.Fill(0, 0, kWidth / 2, kHeight);
    line.Fill(0, 0, 900, 8);
    for (Drawing* drawing : {&tab, &half, &line}) {
      SCOPED_TRACE(bits);
      EXPECT_EQ(0, ExpectUntouched(drawing->page()).trimmedPixels());
    }
  }
  Drawing photograph(8);
  const PageView view(photograph.page());
  for (int y = 400; y < 900; ++y) {
    for (int x = kWidth - 300; x < kWidth; ++x) view.PageRow(y)[x] = static_cast<uint8_t>((x + y) % 90);
  }
  ExpectUntouched(photograph.page());
}

TEST(PaintBorders, LeavesAPictureThatBleedsOffThePage) {
  Drawing drawing(8);
  const PageView view(drawing.page());
  // Dark and uneven, from 0 to 99.
  for (int y = 200; y < 1500; ++y) {
    for (int x = 0; x < 500; ++x) view.PageRow(y)[x] = static_cast<uint8_t>((x * 7 + y * 13) % 100);
  }
  CleanOptions options;
  options.removesSpecks = false;
  options.deskew = Deskewing::kOff;
  EXPECT_EQ("trim", ExpectUntouched(drawing.page(), options).skipped.at(0).step);
}

}  // namespace
}  // namespace rastrel::pages
