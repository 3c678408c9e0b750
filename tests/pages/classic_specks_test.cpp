// Which specks the classic chain removes, and what is as small and stays.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "classic_page.h"

namespace rastrel::pages {
namespace {

TEST(Clean, RemovesSpecksButNoStrokes) {
  for (const int bits : {1, 8}) {
    Drawing clean(bits), dirty(bits);
    for (Drawing* drawing : {&clean, &dirty}) {
      drawing->Text(0);
      drawing->Fill(300, 1700, 800, 1701);  // a hairline, with both its ends
      drawing->Fill(310, 1720, 313, 1723);  // the dot of an i
    }
    for (int i = 0; i < 200; ++i)
      dirty.Fill(20 + 6 * i, 30 + i % 7 * 10, 21 + 6 * i + i % 2, 31 + i % 7 * 10);
    const Cleaned after(dirty.Take());
    EXPECT_TRUE(SamePixels(clean.page(), after.page));
    EXPECT_EQ(200, after.record.specks);
    EXPECT_EQ(300, after.record.speckPixels);
  }
}

// Letters of `points` in strokes as thick as they come out, with all that is small in type.
void DrawType(Drawing& page, int x, int y, int width, double points, double dpi) {
  const double em = points / 72 * dpi;
  const auto part = [em](double share) { return std::max(1, static_cast<int>(std::lround(share * em))); };
  const int stroke = part(0.085), height = part(0.52), dot = part(0.1), flat = part(0.07),
            advance = part(0.5);
  const int end = x + width;
  const auto stem = [&](int from) { page.Fill(from, y - height, from + stroke, y); };
  const auto stop = [&](int from) { page.Fill(from, y - dot, from + dot, y); };
  for (int word = 0; word < 3; ++word) {
    stem(x);  // n
    page.Fill(x, y - height, x + advance - stroke, y - height + stroke);
    stem(x + advance - 2 * stroke);
    x += advance;
    stem(x);  // i
    page.Fill(x, y - height - part(0.1) - flat, x + stroke, y - height - part(0.1));
    x += part(0.28);
    page.Fill(x, y - height - part(0.15), x + stroke, y - part(0.2));  // an exclamation mark
    stop(x);
    x += part(0.28);
    stop(x);  // a colon
    page.Fill(x, y - height, x + dot, y - height + dot);
    x += part(0.6);
  }
  for (x += part(0.5); x < end - 4 * advance; x += advance) stop(x);  // leaders
  stem(end - advance);
}

TEST(Clean, LeavesSmallTypeAndThinRulesAsTheyAre) {
  for (const int bits : {1, 4, 8, 24}) {
    for (const int dpi : {200, 300, 400, 600}) {
      const auto px = [dpi](double millimetres) { return static_cast<int>(millimetres * dpi / 25.4); };
      Drawing page(bits, px(90), px(70), PixelsPerMetre(dpi));
      int y = px(8);
      for (const double points : {4.5, 5.0, 6.0, 7.0, 8.0, 10.0, 12.0}) {
        DrawType(page, px(10), y += px(5), px(70), points, dpi);
      }
      y += px(3);
      page.Fill(px(10), y, px(80), y + 1);  // thin rules
      page.Fill(px(20), y + px(1), px(20) + 1, y + px(12));
      for (int x = px(30); x < px(80); x += 4) page.Fill(x, y + px(2), x + 1, y + px(2) + 1);  // dotted ones
      for (int i = 0; i < px(9); i += 5) page.Fill(px(30), y + px(3) + i, px(30) + 1, y + px(3) + i + 2);
      for (int i = 0; i < 12; ++i) page.Fill(px(40 + 3 * i), y + px(5), px(40 + 3 * i) + 2, y + px(5) + 1);
      for (int i = 0; i < px(8); ++i)
        page.Fill(px(40) + i, y + px(6) + i / 2, px(40) + i + 1, y + px(6) + i / 2 + 1);
      SCOPED_TRACE(::testing::Message() << bits << " bits, " << dpi << " dpi");
      const CleanRecord record = ExpectUntouched(page.page());
      EXPECT_EQ(0, record.specks);
      EXPECT_FALSE(record.isTurned);
    }
  }
}

TEST(Clean, LeavesTheDotsOfDitheredPictures) {
  Drawing grey(8, 900, 900, PixelsPerMetre(300));
  const PageView view(grey.page());
  for (int y = 200; y < 700; ++y) {
    for (int x = 200; x < 700; ++x) view.PageRow(y)[x] = static_cast<uint8_t>((x - 200) * 255 / 499);
  }
  const Dib pages[] = {Dither(grey.page(), Diffusion::kFloydSteinberg, 1),
                       Dither(grey.page(), Diffusion::kJarvisJudiceNinke, 1),
                       Halftone(grey.page(), Halftoning::kOrdered, 0)};
  for (const Dib& page : pages) ExpectUntouched(page);
}

}  // namespace
}  // namespace rastrel::pages
