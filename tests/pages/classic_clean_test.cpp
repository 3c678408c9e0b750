// What the classic chain does as a whole, and what it tells and shows of it.
#include <gtest/gtest.h>

#include <array>
#include <map>
#include <tuple>
#include <utility>

#include "classic_page.h"

namespace rastrel::pages {
namespace {

TEST(Clean, LeavesAGoodPageAsItIs) {
  for (const int bits : {1, 4, 8, 24}) {
    Drawing drawing(bits);
    drawing.Text(0);
    drawing.Fill(0, 900, kWidth, 903);  // a rule across the page, from edge to edge
    drawing.Fill(0, 1000, 300, 1020);   // a line of text that runs into the edge
    drawing.Fill(60, 1200, 160, 1500);  // a picture in the left margin, and a heavy letter
    drawing.Fill(60, 60, 80, 100);
    drawing.Fill(600, 1700, 602, 1740);      // a thin stroke
    drawing.Fill(kWidth - 2, 0, kWidth, 2);  // a dot in a corner
    SCOPED_TRACE(bits);
    const Cleaned after(Duplicate(drawing.page()));
    EXPECT_TRUE(SamePixels(drawing.page(), after.page));
    EXPECT_EQ(bits, PageView(after.page).bits());
  }
}

// Blue, green and red of a pixel of an overlay.
std::array<int, 3> ColourAt(const Dib& overlay, int x, int y) {
  const PageView view(overlay);
  const RGBQUAD entry = view.palette()[view.PageRow(y)[x]];
  return {entry.rgbBlue, entry.rgbGreen, entry.rgbRed};
}

TEST(Clean, TellsAndShowsWhatItRemoved) {
  using Colour = std::array<int, 3>;
  constexpr Colour kBlue = {178, 114, 0}, kOrange = {0, 159, 230}, kVermilion = {0, 94, 213};
  for (const int bits : {1, 8, 24}) {
    SCOPED_TRACE(::testing::Message() << bits << " bits");
    Drawing drawing(bits);
    drawing.Text(2);  // the page is turned; what is told and shown is not
    drawing.Fill(0, 0, 30, kHeight);
    drawing.Fill(kWidth - 10, 0, kWidth, kHeight);
    drawing.Disc(kWidth - 80, 700, 18);
    drawing.Fill(150, 100, 151, 101);
    drawing.Fill(170, 120, 172, 121);
    Dib overlay;
    const CleanRecord record = Cleaned(drawing.Take(), {}, &overlay).record;
    EXPECT_TRUE(record.isTurned);
    EXPECT_EQ(std::pair(kWidth, kHeight), std::pair(record.widthIn, record.heightIn));
    EXPECT_EQ(std::pair(int64_t{30} * kHeight, int64_t{10} * kHeight),
              std::pair(record.trimmedLeft, record.trimmedRight));
    ASSERT_EQ(1u, record.holes.size());
    EXPECT_EQ(
        std::tuple(kWidth - 80, 700, 37, Side::kRight),
        std::tuple(record.holes[0].x, record.holes[0].y, record.holes[0].diameter, record.holes[0].side));
    const bool hasSpecks = bits != 24;
    EXPECT_EQ(std::pair(int64_t{hasSpecks ? 2 : 0}, int64_t{hasSpecks ? 3 : 0}),
              std::pair(record.specks, record.speckPixels));

    ASSERT_EQ(std::pair(kWidth, kHeight), std::pair(PageView(overlay).width(), PageView(overlay).height()));
    std::map<Colour, int64_t> counts;
    for (int y = 0; y < kHeight; ++y) {
      for (int x = 0; x < kWidth; ++x) ++counts[ColourAt(overlay, x, y)];
    }
    EXPECT_EQ(int64_t{40} * kHeight, counts[kBlue]);
    EXPECT_EQ(record.speckPixels, counts[kVermilion]);
    EXPECT_NEAR(3.14159 * 18 * 18, static_cast<double>(counts[kOrange]), 20);
    EXPECT_EQ(kBlue, ColourAt(overlay, 29, 0));
    EXPECT_EQ(kBlue, ColourAt(overlay, kWidth - 10, kHeight - 1));
    EXPECT_EQ(kOrange, ColourAt(overlay, kWidth - 80, 690));
    EXPECT_EQ(hasSpecks ? kVermilion : Colour({80, 80, 80}), ColourAt(overlay, 171, 120));
    EXPECT_EQ(Colour({255, 255, 255}), ColourAt(overlay, 100, 300));
    for (const auto& [colour, count] : counts) {
      const auto [blue, green, red] = colour;
      const bool isGrey = blue == green && green == red;
      EXPECT_TRUE(isGrey || colour == kBlue || colour == kOrange || colour == kVermilion);
    }
  }
}

// A sheet that was turned and cut out before its holes were found.
TEST(Clean, TellsPlacesOnThePageThatCameIn) {
  Drawing drawing(8);
  drawing.Text(0);
  drawing.Disc(80, 700, 18);
  Dib sheet = drawing.Take();
  const Dib scan = Rotate(sheet, 3, ExtremeInk(PageView(sheet), false));
  CleanOptions options;
  options.cropsSheet = true;
  Dib overlay;
  const CleanRecord record = Cleaned(Duplicate(scan), options, &overlay).record;
  ASSERT_EQ(1u, record.holes.size());
  const PageView view(scan);
  EXPECT_EQ(view.width(), record.widthIn);
  // 540 left and 177 above the middle, turned by 3 degrees.
  const double x = view.width() / 2.0 - 540 * 0.99863 - 177 * 0.05234;
  const double y = view.height() / 2.0 + 540 * 0.05234 - 177 * 0.99863;
  EXPECT_NEAR(x, record.holes[0].x, 3);
  EXPECT_NEAR(y, record.holes[0].y, 3);
  EXPECT_EQ(230, ColourAt(overlay, static_cast<int>(x), static_cast<int>(y))[2]) << "the hole";
  EXPECT_EQ(178, ColourAt(overlay, 5, 5)[0]) << "the surround";
}

TEST(Clean, DoesWhatTheOptionsSayAndNotesWhatItCannotDo) {
  Drawing drawing(24);
  drawing.Text(3);
  drawing.Disc(80, 700, 18);
  const Dib page = drawing.Take();
  CleanOptions options;
  options.trims = options.erasesHoles = false;
  options.deskew = Deskewing::kOff;
  const CleanRecord nothing = ExpectUntouched(page, options);
  ASSERT_EQ(1u, nothing.skipped.size());
  EXPECT_EQ("specks", nothing.skipped[0].step) << "on a colour page";

  options.deskew = Deskewing::kFine;
  options.mostSkew = 2;
  EXPECT_NEAR(3, ExpectUntouched(page, options).skew.value_or(0), 0.08);

  for (const Reduction reduction : {Reduction::kThreshold, Reduction::kOrdered, Reduction::kFloydSteinberg,
                                    Reduction::kJarvisJudiceNinke}) {
    options.reduction = reduction;
    const Cleaned reduced(Duplicate(page), options);
    EXPECT_EQ(1, PageView(reduced.page).bits());
    EXPECT_NEAR(1, static_cast<double>(DarkPixels(reduced.page)) / static_cast<double>(DarkPixels(page)),
                0.05)
        << static_cast<int>(reduction);
  }

  // Other resolutions across than down: neither hole nor skew can be measured.
  PageView(page).header().biYPelsPerMeter = kDots / 2;
  EXPECT_EQ(3u, ExpectUntouched(page).skipped.size());
}

}  // namespace
}  // namespace rastrel::pages
