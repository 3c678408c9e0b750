// What `clean` does to pages that are drawn here: faults go, and nothing else does.
#include "clean.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "safeguards.h"

namespace rastrel::tool {
namespace {

constexpr int kWidth = 1240, kHeight = 1754;  // A4 at 150 dpi
constexpr int32_t kDots = 5906;

// A white page to draw on in black, of any depth.
class Drawing {
 public:
  explicit Drawing(int bits, int width = kWidth, int height = kHeight)
      : page_(MakePage(width, height, bits, {kDots, kDots})) {
    std::ranges::fill(PageView(page_).pixels(), uint8_t{0});
    Fill(0, 0, width, height, /*isDark=*/false);
  }
  void Fill(int left, int top, int right, int bottom, bool isDark = true) {
    const PageView view(page_);
    for (int y = top; y < bottom; ++y) PaintRow(view, y, left, right, ExtremeInk(view, !isDark));
  }
  void Disc(int cx, int cy, int radius) {
    for (int y = -radius; y <= radius; ++y) {
      const int half = static_cast<int>(std::sqrt(radius * radius - y * y));
      Fill(cx - half, cy + y, cx + half + 1, cy + y + 1);
    }
  }
  // Lines of words that rise to the right by `degrees`.
  void Text(double degrees) {
    const double slope = std::tan(degrees * 3.14159265358979 / 180);
    for (int line = 0; line < 40; ++line) {
      for (int x = 250; x < 1050; ++x) {
        const int y = 200 + line * 33 - static_cast<int>(std::lround(slope * (x - kWidth / 2)));
        if (x / 7 % 3 != 0 && x / 60 % 5 != 0) Fill(x, y, x + 1, y + 12);
      }
    }
  }
  Dib Take() { return std::move(page_); }
  const Dib& page() const { return page_; }

 private:
  Dib page_;
};

uint8_t BrightnessAt(const Dib& page, int x, int y) {
  const PageView view(page);
  uint8_t brightness = 0;
  RowBrightness(view, BrightnessTable(view), y, x, x + 1, &brightness);
  return brightness;
}

int64_t DarkPixels(const Dib& page) {
  const PageView view(page);
  const std::vector<uint8_t> table = BrightnessTable(view);
  std::vector<uint8_t> row(static_cast<size_t>(view.width()));
  int64_t dark = 0;
  for (int y = 0; y < view.height(); ++y) {
    RowBrightness(view, table, y, 0, view.width(), row.data());
    for (const uint8_t value : row) dark += value < 128;
  }
  return dark;
}

bool SamePixels(const Dib& a, const Dib& b) {
  const PageView one(a), other(b);
  return one.width() == other.width() && one.height() == other.height() &&
         std::equal(one.pixels().begin(), one.pixels().end(), other.pixels().begin());
}

TEST(Clean, LeavesAGoodPageAsItIs) {
  for (const int bits : {1, 4, 8, 24}) {
    Drawing drawing(bits);
    drawing.Text(0);
    drawing.Fill(0, 900, kWidth, 903);  // a rule across the page, from edge to edge
    drawing.Fill(0, 1000, 300, 1020);   // a line of text that runs into the edge
    drawing.Fill(60, 1200, 160, 1500);  // a picture in the left margin, and a heavy letter
    drawing.Fill(60, 60, 80, 100);
    drawing.Fill(600, 1700, 602, 1740);  // a thin stroke
    const Dib before = Duplicate(drawing.page());
    PageRecord record;
    const Dib after = CleanPage(drawing.Take(), {}, &record);
    EXPECT_TRUE(SamePixels(before, after)) << bits << " bits: " << DarkPixels(before) - DarkPixels(after)
                                           << " dark pixels lost, turned by " << record.skew.value_or(0);
    EXPECT_EQ(bits, PageView(after).bits());
  }
}

TEST(Clean, TurnsPagesStraightOnTheirOwnGround) {
  for (const int bits : {1, 4, 8, 24}) {
    for (const double degrees : {-4.0, 0.7, 2.5, 11.0}) {
      SCOPED_TRACE(::testing::Message() << bits << " bits, " << degrees << " degrees");
      Drawing drawing(bits);
      drawing.Text(degrees);
      PageRecord record;
      const Dib after = CleanPage(drawing.Take(), {}, &record);
      EXPECT_NEAR(degrees, record.skew.value_or(0), 0.11);
      EXPECT_TRUE(record.isTurned);
      EXPECT_EQ(255, BrightnessAt(after, 0, 0));
      EXPECT_NEAR(0, FindSkew(Duplicate(after)).value_or(99), 0.11);
    }
  }
}

TEST(Clean, KeepsLightTextAndItsGround) {
  Drawing drawing(8);
  drawing.Text(2);
  for (uint8_t& byte : PageView(drawing.page()).pixels()) byte = static_cast<uint8_t>(~byte);
  PageRecord record;
  const Dib after = CleanPage(drawing.Take(), {}, &record);
  EXPECT_FALSE(record.isTextDark);
  EXPECT_NEAR(2, record.skew.value_or(0), 0.11);
  EXPECT_EQ(0, BrightnessAt(after, 0, 0));
  EXPECT_EQ(0, record.trimmedPixels + record.holes);
}

TEST(Clean, TrimsBordersAndErasesHolesOnly) {
  struct Case {
    int bits, width;  // around the ends of 32-bit words
  };
  for (const auto& [bits, width] :
       {Case{1, 1240}, Case{1, 1247}, Case{1, 1248}, Case{8, 1240}, Case{24, 1241}}) {
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
    CleanOptions options;
    options.removesSpecks = false;
    PageRecord record;
    const Dib after = CleanPage(dirty.Take(), options, &record);
    EXPECT_EQ(2, record.holes);
    EXPECT_TRUE(SamePixels(clean.page(), after))
        << DarkPixels(after) - DarkPixels(clean.page()) << " too dark";
  }
}

TEST(Clean, RemovesSpecksButNoStrokes) {
  Drawing clean(1), dirty(1);
  for (Drawing* drawing : {&clean, &dirty}) {
    drawing->Text(0);
    drawing->Fill(300, 1700, 800, 1701);  // a hairline
    drawing->Fill(310, 1720, 313, 1723);  // the dot of an i
  }
  for (int i = 0; i < 200; ++i) dirty.Fill(20 + 6 * i, 30 + i % 7 * 10, 21 + 6 * i, 31 + i % 7 * 10);
  PageRecord record;
  const Dib after = CleanPage(dirty.Take(), {}, &record);
  // The hairline may lose its two ends.
  EXPECT_NEAR(static_cast<double>(DarkPixels(clean.page())), static_cast<double>(DarkPixels(after)), 2);
  EXPECT_NEAR(200, static_cast<double>(record.specks), 2);
}

TEST(Clean, DoesWhatTheOptionsSayAndNotesWhatItCannotDo) {
  Drawing drawing(24);
  drawing.Text(3);
  drawing.Disc(80, 700, 18);
  const Dib page = drawing.Take();
  CleanOptions options;
  options.trims = options.erasesHoles = options.deskews = false;
  PageRecord record;
  EXPECT_TRUE(SamePixels(page, CleanPage(Duplicate(page), options, &record)));
  ASSERT_EQ(1u, record.skipped.size());  // specks, on a colour page
  EXPECT_EQ("specks", record.skipped[0].step);

  options.deskews = true;
  options.mostSkew = 2;
  record = {};
  EXPECT_TRUE(SamePixels(page, CleanPage(Duplicate(page), options, &record)));
  EXPECT_NEAR(3, record.skew.value_or(0), 0.11);

  for (const char* reduction : {"halftone:threshold", "halftone:ordered", "dither:fs,1", "dither:jjn,1"}) {
    options.reduction = {ParseStep(reduction)};
    record = {};
    const Dib reduced = CleanPage(Duplicate(page), options, &record);
    EXPECT_EQ(1, PageView(reduced).bits());
    EXPECT_NEAR(1, static_cast<double>(DarkPixels(reduced)) / static_cast<double>(DarkPixels(page)), 0.05)
        << reduction;
  }

  // Other resolutions across than down: neither hole nor skew can be measured.
  PageView(page).header().biYPelsPerMeter = kDots / 2;
  record = {};
  EXPECT_TRUE(SamePixels(page, CleanPage(Duplicate(page), {}, &record)));
  EXPECT_EQ(3u, record.skipped.size());
}

TEST(Clean, GivesTwoColourPagesTheirColoursBack) {
  for (const bool isDarkFirst : {true, false}) {
    Drawing drawing(1);
    drawing.Text(2);
    const PageView view(drawing.page());
    const RGBQUAD blue = {120, 30, 20, 0}, cream = {200, 240, 250, 0};
    view.palette()[0] = isDarkFirst ? blue : cream;
    view.palette()[1] = isDarkFirst ? cream : blue;
    if (!isDarkFirst) ExchangeWithZero(view, {{1, 0, 0}});
    PageRecord record;
    const Dib after = CleanPage(drawing.Take(), {}, &record);
    EXPECT_TRUE(record.isTurned);
    EXPECT_EQ((200 + 240 + 250) / 3, BrightnessAt(after, 0, 0));
  }
}

TEST(PaintBorders, LeavesAPictureThatBleedsOffThePage) {
  Drawing drawing(8);
  const PageView view(drawing.page());
  // Dark and uneven, from 0 to 99.
  for (int y = 200; y < 1500; ++y) {
    for (int x = 0; x < 500; ++x) view.PageRow(y)[x] = static_cast<uint8_t>((x * 7 + y * 13) % 100);
  }
  const Dib before = Duplicate(drawing.page());
  CleanOptions options;
  options.removesSpecks = options.deskews = false;
  PageRecord record;
  EXPECT_TRUE(SamePixels(before, CleanPage(drawing.Take(), options, &record)));
  EXPECT_EQ("trim", record.skipped.at(0).step);
}

}  // namespace
}  // namespace rastrel::tool
