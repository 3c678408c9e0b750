// What the classic chain does to pages that are drawn here: faults go, and nothing else does.
#include "pages/clean.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <random>
#include <tuple>

#include "pages/operations.h"
#include "pages/safeguards.h"
#include "pages/skew.h"

namespace rastrel::pages {
namespace {

constexpr int kWidth = 1240, kHeight = 1754;  // A4 at 150 dpi
constexpr int32_t kDots = 5906;               // a metre

// A white page to draw on in black, of any depth.
class Drawing {
 public:
  explicit Drawing(int bits, int width = kWidth, int height = kHeight, int32_t dots = kDots)
      : page_(MakePage(width, height, bits, {dots, dots})) {
    std::ranges::fill(PageView(page_).pixels(), uint8_t{0});
    Fill(0, 0, width, height, /*isDark=*/false);
  }
  explicit Drawing(Dib page) : page_(std::move(page)) {}
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
  std::vector<uint8_t> row(static_cast<size_t>(view.width()));
  int64_t dark = 0;
  for (int y = 0; y < view.height(); ++y) {
    RowBrightness(view, BrightnessTable(view), y, 0, view.width(), row.data());
    dark += std::ranges::count_if(row, [](uint8_t value) { return value < 128; });
  }
  return dark;
}

bool SamePixels(const Dib& a, const Dib& b) {
  const PageView one(a), other(b);
  return one.width() == other.width() && std::ranges::equal(one.pixels(), other.pixels());
}

// What comes of a page, and what is noted of it.
struct Cleaned {
  explicit Cleaned(Dib dib, const CleanOptions& options = {}) : page(Classically(std::move(dib), options)) {}
  Dib Classically(Dib dib, CleanOptions options) {
    options.isClassic = true;
    return CleanPage(std::move(dib), options, &record);
  }
  CleanRecord record;
  Dib page;
};

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
    const Dib before = Duplicate(drawing.page());
    const Cleaned after(drawing.Take());
    EXPECT_TRUE(SamePixels(before, after.page)) << bits << " bits";
    EXPECT_EQ(bits, PageView(after.page).bits());
  }
}

TEST(Clean, TurnsPagesStraightOnTheirOwnGround) {
  for (const int bits : {1, 4, 8, 24}) {
    for (const double degrees : {-4.0, 0.7, 2.5, 11.0}) {
      for (const bool isTextDark : {true, false}) {
        SCOPED_TRACE(::testing::Message() << bits << " bits, " << degrees << " degrees, dark " << isTextDark);
        Drawing drawing(bits);
        drawing.Text(degrees);
        for (uint8_t& byte : PageView(drawing.page()).pixels()) byte ^= isTextDark ? 0 : 0xFF;
        const Cleaned after(drawing.Take());
        EXPECT_EQ(isTextDark, after.record.isTextDark);
        EXPECT_NEAR(degrees, after.record.skew.value_or(0), 0.08);
        EXPECT_TRUE(after.record.isTurned);
        EXPECT_EQ(isTextDark ? 255 : 0, BrightnessAt(after.page, 0, 0));
        EXPECT_EQ(isTextDark, DarkPixels(after.page) < kWidth * kHeight / 2);
        EXPECT_NEAR(0, ExaminePage(Duplicate(after.page)).skew.value_or(99), 0.08);
        EXPECT_EQ(0, after.record.trimmedPixels());
        EXPECT_TRUE(after.record.holes.empty());
      }
    }
  }
}

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
    const Dib before = Duplicate(drawing.page());
    const Cleaned after(drawing.Take());
    EXPECT_TRUE(SamePixels(before, after.page)) << bits << " bits";
    EXPECT_TRUE(after.record.holes.empty());
  }
}

TEST(Clean, CutsASkewedSheetOutOfItsSurround) {
  for (const int bits : {1, 8, 24}) {
    Drawing drawing(bits);
    drawing.Text(0);
    Dib sheet = drawing.Take();
    const Dib scan = Rotate(sheet, 3, ExtremeInk(PageView(sheet), false));
    CleanOptions options;
    options.cropsSheet = true;
    const Cleaned after(Duplicate(scan), options);
    EXPECT_TRUE(after.record.isCropped && after.record.isTurned);
    EXPECT_NEAR(3, after.record.skew.value_or(0), 0.08);
    EXPECT_NEAR(kWidth, PageView(after.page).width(), 4);
    EXPECT_NEAR(kHeight, PageView(after.page).height(), 4);
    EXPECT_NEAR(1, static_cast<double>(DarkPixels(after.page)) / static_cast<double>(DarkPixels(sheet)), 0.2);
  }
}

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
      const Dib before = Duplicate(page.page());
      const Cleaned after(page.Take());
      EXPECT_TRUE(SamePixels(before, after.page)) << bits << " bits, " << dpi << " dpi";
      EXPECT_EQ(0, after.record.specks);
      EXPECT_FALSE(after.record.isTurned);
    }
  }
}

TEST(Clean, LeavesTheDotsOfDitheredPictures) {
  Drawing grey(8, 900, 900, PixelsPerMetre(300));
  const PageView view(grey.page());
  for (int y = 200; y < 700; ++y) {
    for (int x = 200; x < 700; ++x) view.PageRow(y)[x] = static_cast<uint8_t>((x - 200) * 255 / 499);
  }
  const CleanOptions options;
  const Dib pages[] = {Dither(grey.page(), Diffusion::kFloydSteinberg, 1),
                       Dither(grey.page(), Diffusion::kJarvisJudiceNinke, 1),
                       Halftone(grey.page(), Halftoning::kOrdered, 0)};
  for (const Dib& page : pages) EXPECT_TRUE(SamePixels(page, Cleaned(Duplicate(page), options).page));
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
    CleanRecord record;
    Dib overlay;
    CleanOptions classic;
    classic.isClassic = true;
    const Dib page = CleanPage(Duplicate(drawing.page()), classic, &record, &overlay);
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
  CleanRecord record;
  Dib overlay;
  options.isClassic = true;
  CleanPage(Duplicate(scan), options, &record, &overlay);
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
  const Cleaned nothing(Duplicate(page), options);
  EXPECT_TRUE(SamePixels(page, nothing.page));
  ASSERT_EQ(1u, nothing.record.skipped.size());
  EXPECT_EQ("specks", nothing.record.skipped[0].step) << "on a colour page";

  options.deskew = Deskewing::kFine;
  options.mostSkew = 2;
  const Cleaned measured(Duplicate(page), options);
  EXPECT_TRUE(SamePixels(page, measured.page));
  EXPECT_NEAR(3, measured.record.skew.value_or(0), 0.08);

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
  const Cleaned unmeasured(Duplicate(page));
  EXPECT_TRUE(SamePixels(page, unmeasured.page));
  EXPECT_EQ(3u, unmeasured.record.skipped.size());
}

// A photograph on part of the page, a thumb tab, a black half, and pages as thin as a line are no borders.
TEST(Clean, LeavesWhatIsDarkAtTheEdgeAndNoBorder) {
  for (const int bits : {1, 8, 24}) {
    Drawing tab(bits), half(bits), line(bits, 900, 8);
    tab.Fill(kWidth - 90, 700, kWidth, 900);
    half.Fill(0, 0, kWidth / 2, kHeight);
    line.Fill(0, 0, 900, 8);
    for (Drawing* drawing : {&tab, &half, &line}) {
      const Dib before = Duplicate(drawing->page());
      const Cleaned after(drawing->Take());
      EXPECT_TRUE(SamePixels(before, after.page)) << bits << " bits";
      EXPECT_EQ(0, after.record.trimmedPixels());
    }
  }
  Drawing photograph(8);
  const PageView view(photograph.page());
  for (int y = 400; y < 900; ++y) {
    for (int x = kWidth - 300; x < kWidth; ++x) view.PageRow(y)[x] = static_cast<uint8_t>((x + y) % 90);
  }
  const Dib before = Duplicate(photograph.page());
  EXPECT_TRUE(SamePixels(before, Cleaned(photograph.Take()).page));
}

TEST(Clean, TurnsByWholeDegreesOrOnlyByAnglesThatAreCertain) {
  Drawing rule(8);
  for (int x = 100; x < kWidth - 100; ++x) {
    const int y = 800 - static_cast<int>(std::lround(std::tan(3.2 * 3.14159265358979 / 180) * x));
    rule.Fill(x, y, x + 1, y + 2);
  }
  CleanOptions options;
  options.trims = options.erasesHoles = options.removesSpecks = false;
  options.deskew = Deskewing::kWhole;
  const Cleaned whole(rule.Take(), options);
  EXPECT_EQ(3, whole.record.skew);
  EXPECT_TRUE(whole.record.isTurned);
  EXPECT_FALSE(whole.record.skewConfidence);

  Drawing noise(8);
  std::mt19937 random(5);
  for (uint8_t& byte : PageView(noise.page()).pixels()) byte = random() % 40 == 0 ? 0 : 255;
  const Dib before = Duplicate(noise.page());
  options.deskew = Deskewing::kFine;
  const Cleaned left(noise.Take(), options);
  EXPECT_TRUE(SamePixels(before, left.page));
  EXPECT_LT(left.record.skewConfidence.value_or(1), kSureOfSkew);
  ASSERT_EQ(1u, left.record.skipped.size());
  EXPECT_EQ("deskew", left.record.skipped[0].step);
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
    const Cleaned after(drawing.Take());
    EXPECT_TRUE(after.record.isTurned);
    EXPECT_EQ((200 + 240 + 250) / 3, BrightnessAt(after.page, 0, 0));
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
  options.removesSpecks = false;
  options.deskew = Deskewing::kOff;
  const Cleaned after(drawing.Take(), options);
  EXPECT_TRUE(SamePixels(before, after.page));
  EXPECT_EQ("trim", after.record.skipped.at(0).step);
}

}  // namespace
}  // namespace rastrel::pages
