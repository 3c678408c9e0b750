// The table of operations and the parser made of it.
#include "tools/operations.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "pages/page.h"

#include "tests/support/test_dib.h"

namespace rastrel::tool {

using pages::BrightnessTable;
using pages::Dib;
using pages::DotsPerInch;
using pages::ExtremeInk;
using pages::Ink;
using pages::MakePage;
using pages::PageView;
using pages::PaintRow;
using pages::RowBrightness;
namespace {

TEST(ParseStep, TakesValuesByPlaceAndByName) {
  struct Case {
    const char* text;
    Values values;
  };
  for (const Case& test :
       {Case{"rotate:3.5", {{3.5, 0}}}, Case{"rotate:-90,black", {{-90, 1}}},
        Case{"rotate:fill=black,angle=1", {{1, 1}}}, Case{"skew:h,-20", {{0, -20}}},
        Case{"dither:jjn,8", {{1, 2}}}, Case{"dither", {{0, 0}}}, Case{"halftone:ordered,-10", {{2, -10}}},
        Case{"binarize:best,double,no", {{1, 1, 1}}}, Case{"clean:100,yes", {{100, 1}}},
        Case{"holes:-3", {{-3}}}, Case{"holes", {{HolesAny}}}, Case{"holes:auto", {{HolesAny}}},
        Case{"trim", {}},
        Case{"combine:a:b.png,-3,mask=m.tif", {{0, -3}, {"a:b.png", "", "", "", "m.tif"}}}}) {
    const Step step = ParseStep(test.text);
    EXPECT_EQ(std::string_view(test.text).substr(0, step.operation->name.size()), step.operation->name);
    EXPECT_EQ(test.values, step.values) << test.text;
  }
}

TEST(ParseStep, SaysWhatIsWrong) {
  struct Case {
    const char* text;
    const char* message;  // a part of it
  };
  for (const Case& test :
       {Case{"polish", "no operation 'polish'"}, Case{"", "no operation ''"},
        Case{"rotate", "angle is missing"}, Case{"rotate:", "from -360 to 360"}, Case{"rotate:361", "'361'"},
        Case{"rotate:nan", "'nan'"}, Case{"rotate:1e999", "'1e999'"}, Case{"rotate:3x", "'3x'"},
        Case{"rotate:1,red", "one of white, black"}, Case{"skew:h,1.5", "whole number"},
        Case{"turn:90", "from -3 to 3"}, Case{"holes:-4", "auto or a whole number from -3"},
        Case{"combine:,1", "file is missing"}, Case{"clean:19", "from 20 to 100"},
        Case{"clean:20,yes,3", "too many"}, Case{"dither:bits=2", "one of 1, 4, 8"},
        Case{"dither:depth=1", "no parameter 'depth'"}}) {
    try {
      ParseStep(test.text);
      ADD_FAILURE() << test.text << " is taken";
    } catch (const UsageError& error) {
      EXPECT_NE(std::string::npos, std::string(error.what()).find(test.message)) << error.what();
    }
  }
}

std::vector<Dib> RunOn(const Step& step, std::span<const Dib> dibs) {
  std::vector<Page> pages;
  for (const Dib& dib : dibs) pages.emplace_back(Checked(DuplicateDIB(dib.handle())));
  std::vector<Dib> results;
  for (Page& result : RunStep(step, pages)) results.emplace_back(result.release());
  return results;
}

std::vector<Dib> RunText(const std::string& text, std::span<const Dib> pages) {
  return RunOn(ParseStep(text), pages);
}

std::vector<Dib> One(Dib page) {
  std::vector<Dib> pages;
  pages.push_back(std::move(page));
  return pages;
}

// Every entry works, or says why not, at every depth, and leaves the page it was given as it was.
TEST(Operations, RunOnTheDepthsTheyNameAndLeaveTheirInputAlone) {
  const char* const samples[] = {"rotate:3.5",     "rotate:45,black",
                                 "rotate90",       "rotate180",
                                 "straighten:3.5", "straighten:45,nearest,same",
                                 "rotate270",      "skew:h,9",
                                 "skew:v,-9",      "deskew",
                                 "trim",           "holes:0",
                                 "clean",          "clean:60,yes",
                                 "dither",         "halftone:ordered,10",
                                 "binarize",       "binarize:best,double",
                                 "grey",           "flip:h",
                                 "flip:v",         "turn:-1",
                                 "invert",         "expand",
                                 "to24",           "holes:auto",
                                 "crop:3,2,20",    "crop-sheet:1",
                                 "scale:30",       "scale:percent=150,method=cubic",
                                 "scale-grey:2"};
  for (const std::string text : samples) {
    const Step step = ParseStep(text);
    for (const int bits : {1, 4, 8, 24}) {
      SCOPED_TRACE(::testing::Message() << text << " at " << bits << " bits");
      testing::TestDib source = testing::TestDib::Random(bits, 60, 40, 1);
      const testing::Bytes before = source.block();
      const Dib page(source.Release());
      const std::string depths = " " + std::string(step.operation->depths) + ",";  // "1, 8 (grey)"
      const bool isNamed = depths.find(" " + std::to_string(bits) + ",") != std::string::npos ||
                           depths.find(" " + std::to_string(bits) + " (") != std::string::npos;
      const Page result(step.operation->run(page.handle(), step.values));
      EXPECT_EQ(isNamed, static_cast<bool>(result)) << PagesErrorText();
      const PageView view(page);
      EXPECT_EQ(0, std::memcmp(before.data(), &view.header(), before.size()));
    }
  }
}

TEST(Operations, UncoveredCornersAreOfTheColourAskedFor) {
  for (const int bits : {1, 4, 8, 24}) {
    for (const std::string fill : {"white", "black"}) {
      const Dib page = MakePage(200, 100, bits, {11811, 11811});
      const Ink opposite = ExtremeInk(PageView(page), fill == "black");
      for (int y = 0; y < 100; ++y) PaintRow(PageView(page), y, 0, 200, opposite);
      for (const std::string way : {"rotate:30,", "straighten:30,fill="}) {
        const Step step = ParseStep(way + fill);
        const Dib turned(step.operation->run(page.handle(), step.values));
        const PageView view(turned);
        uint8_t brightness[2];
        const std::vector<uint8_t> table = BrightnessTable(view);
        RowBrightness(view, table, 0, 0, 1, brightness);
        RowBrightness(view, table, view.height() / 2, view.width() / 2, view.width() / 2 + 1, brightness + 1);
        EXPECT_EQ(fill == "white" ? 255 : 0, brightness[0]) << bits << " bits";
        EXPECT_EQ(fill == "white" ? 0 : 255, brightness[1]) << bits << " bits";
      }
    }
  }
}

uint8_t BrightnessAt(const Dib& page, int x, int y) {
  const PageView view(page);
  uint8_t brightness = 0;
  RowBrightness(view, BrightnessTable(view), y, x, x + 1, &brightness);
  return brightness;
}

// A light page with one dark pixel.
Dib Dotted(int bits, int width, int height, int x, int y) {
  Dib page = MakePage(width, height, bits, {11811, 11811});
  for (int row = 0; row < height; ++row)
    PaintRow(PageView(page), row, 0, width, ExtremeInk(PageView(page), true));
  PaintRow(PageView(page), y, x, x + 1, ExtremeInk(PageView(page), false));
  return page;
}

TEST(Operations, MirrorTurnAndInvertMoveADotWhereOneExpectsIt) {
  struct Case {
    const char* text;
    int width, height, x, y;  // of the result, and where its odd pixel is
    bool isDark = true;
  };
  for (const int bits : {1, 4, 8, 24}) {
    const std::vector<Dib> page = One(Dotted(bits, 40, 30, 3, 5));
    for (const Case& test :
         {Case{"flip:h", 40, 30, 36, 5}, Case{"flip:v", 40, 30, 3, 24}, Case{"turn:1", 30, 40, 5, 36},
          Case{"turn:-1", 30, 40, 24, 3}, Case{"turn:2", 40, 30, 36, 24}, Case{"invert", 40, 30, 3, 5, false},
          Case{"to24", 40, 30, 3, 5}}) {
      SCOPED_TRACE(::testing::Message() << test.text << " at " << bits << " bits");
      const std::vector<Dib> result = RunText(test.text, page);
      ASSERT_EQ(test.width, PageView(result[0]).width());
      ASSERT_EQ(test.height, PageView(result[0]).height());
      for (int y = 0; y < test.height; ++y) {
        for (int x = 0; x < test.width; ++x) {
          const bool isDark = (x == test.x && y == test.y) == test.isDark;
          ASSERT_EQ(isDark ? 0 : 255, BrightnessAt(result[0], x, y)) << x << ", " << y;
        }
      }
    }
  }
}

TEST(Operations, SplitAndMergeCountTilesAsPeopleRead) {
  for (const int bits : {1, 4, 8, 24}) {
    testing::TestDib source = testing::TestDib::Random(bits, 70, 50, 2);
    const std::vector<testing::Pixel> pixels = source.Pixels();
    const std::vector<Dib> page = One(Dib(source.Release()));
    std::vector<Dib> tiles = RunText("split:32,20", page);
    ASSERT_EQ(9u, tiles.size());
    EXPECT_EQ(10, PageView(tiles[0]).height());  // the rest is at the top
    EXPECT_EQ(6, PageView(tiles[2]).width());
    EXPECT_EQ(20, PageView(tiles[8]).height());
    std::vector<Dib> merged = RunText("merge:3", tiles);
    ASSERT_EQ(1u, merged.size());
    const HGLOBAL handle = DuplicateDIB(merged[0].handle());
    EXPECT_EQ(pixels, testing::TestDib(handle).Pixels());

    EXPECT_THROW(RunText("merge:2", tiles), PageError);
    std::swap(tiles[0], tiles[3]);
    EXPECT_THROW(RunText("merge:3", tiles), PageError);
  }
  EXPECT_THROW(RunText("split:20", One(Dotted(1, 70, 50, 0, 0))), PageError);
}

TEST(Operations, CropAndCutGiveThePixelsThatStoodThere) {
  for (const int bits : {1, 4, 8, 24}) {
    const std::vector<Dib> page = One(Dotted(bits, 40, 30, 7, 9));
    const auto expectDot = [&](const std::vector<Dib>& pages, size_t at, int width, int height, int x,
                               int y) {
      ASSERT_LT(at, pages.size());
      const PageView view(pages[at]);
      EXPECT_EQ(std::pair(width, height), std::pair(view.width(), view.height()));
      EXPECT_EQ(view.pixels().size(), view.header().biSizeImage);
      for (int i = 0; i < width * height; ++i) {
        const bool isDot = i % width == x && i / width == y;
        ASSERT_EQ(isDot ? 0 : 255, BrightnessAt(pages[at], i % width, i / width));
      }
    };
    expectDot(RunText("crop:5,6,20,10", page), 0, 20, 10, 2, 3);
    expectDot(RunText("crop:7,9", page), 0, 33, 21, 0, 0);
    expectDot(RunText("cut:9", page), 0, 40, 9, -1, -1);
    expectDot(RunText("cut:9", page), 1, 40, 21, 7, 0);
    for (const char* text : {"crop:40,0", "crop:5,5,36", "crop:0,0,0,31", "cut:30"})
      EXPECT_THROW(RunText(text, page), PageError) << text;
  }
}

TEST(Operations, CropSheetFindsTheSheetWithAPictureOnIt) {
  for (const int bits : {1, 4, 8, 24}) {
    Dib page = MakePage(200, 160, bits, {11811, 11811});
    {
      const PageView view(page);
      for (int y = 0; y < 160; ++y) {
        const bool isSheet = y >= 20 && y < 150, isPicture = y >= 25 && y < 120;
        PaintRow(view, y, 0, 200, ExtremeInk(view, false));
        if (isSheet) PaintRow(view, y, 30, 190, ExtremeInk(view, true));
        if (isPicture) PaintRow(view, y, 60, 120, ExtremeInk(view, false));
        if (y == 147) PaintRow(view, y, 35, 36, ExtremeInk(view, false));
      }
    }
    const std::vector<Dib> sheet = RunText("crop-sheet", One(std::move(page)));
    EXPECT_EQ(160, PageView(sheet[0]).width()) << bits;
    EXPECT_EQ(130, PageView(sheet[0]).height()) << bits;
    EXPECT_EQ(bits, PageView(sheet[0]).bits());
    EXPECT_EQ(0, BrightnessAt(sheet[0], 5, 127));
    EXPECT_EQ(255, BrightnessAt(sheet[0], 6, 127));
    EXPECT_THROW(RunText("crop-sheet:margin=33", sheet), PageError);
    EXPECT_THROW(RunText("crop-sheet:sheet=dark,share=100", sheet), PageError);
  }
}

TEST(Operations, ScaleTakesASizeAPercentageOrAResolution) {
  for (const int bits : {1, 4, 8, 24}) {
    const std::vector<Dib> page = One(Dotted(bits, 60, 40, 7, 9));
    const auto expectSize = [&](const char* text, int width, int height, double dpi) {
      const std::vector<Dib> scaled = RunText(text, page);
      const PageView view(scaled[0]);
      EXPECT_EQ(std::pair(width, height), std::pair(view.width(), view.height())) << text;
      EXPECT_EQ(dpi, DotsPerInch(view.resolution().x)) << text;
      EXPECT_EQ(bits, view.bits());
      EXPECT_EQ(view.pixels().size(), view.header().biSizeImage);
      EXPECT_EQ(255, BrightnessAt(scaled[0], width - 1, 0));
    };
    expectSize("scale:30", 30, 20, 300);
    expectSize("scale:0,10", 15, 10, 300);
    expectSize("scale:120,40,method=cubic", 120, 40, 300);
    expectSize("scale:percent=0.1", 1, 1, 300);
    expectSize("scale:dpi=150", 30, 20, 150);
    for (const char* text : {"scale", "scale:30,percent=50", "scale:percent=50,dpi=100"})
      EXPECT_THROW(ParseStep(text), UsageError) << text;
    const std::vector<Dib> grey = RunText("scale-grey:2,1", page);
    EXPECT_EQ(std::pair(120, 40), std::pair(PageView(grey[0]).width(), PageView(grey[0]).height()));
    EXPECT_EQ(0, BrightnessAt(grey[0], 14, 9)) << "black stays black";
    EXPECT_EQ(255, BrightnessAt(grey[0], 0, 0));
    EXPECT_THROW(RunText("scale-grey:1000", page), PageError);
  }
}

TEST(Operations, CombineLaysAFileOntoThePage) {
  const std::string folder = ::testing::TempDir() + "/combine" + std::to_string(::getpid());
  const std::string dot = folder + "-dot.bmp", mask = folder + "-mask.bmp";
  ASSERT_EQ(1, SaveDIB(dot.c_str(), Dotted(8, 10, 10, 2, 3).handle()));
  ASSERT_EQ(1, SaveDIB(mask.c_str(), Dotted(1, 10, 10, 9, 9).handle()));
  for (const int bits : {1, 4, 8, 24}) {
    const std::vector<Dib> page = One(Dotted(bits, 40, 30, 20, 25));
    const auto count = [&](const std::string& options) {
      const std::vector<Dib> result = RunText("combine:" + dot + options, page);
      int dark = 0;
      for (int i = 0; i < 40 * 30; ++i) dark += BrightnessAt(result[0], i % 40, i / 40) == 0;
      return std::pair(dark, BrightnessAt(result[0], 22, 28));
    };
    using Count = std::pair<int, uint8_t>;
    EXPECT_EQ(Count(2, 0), count(",20,25"));
    EXPECT_EQ(Count(1, 0), count(",20,25,over"));
    EXPECT_EQ(Count(1, 255), count(",-5,-5"));
    EXPECT_EQ(Count(3, 255), count(",y=1,mask=" + mask));
    EXPECT_THROW(count(",mask=" + folder), PageError);
  }
  // A step reads its files once, however many pages there are.
  const Step step = ParseStep("combine:" + dot + ",mask=" + mask);
  const std::vector<Dib> page = One(Dotted(8, 40, 30, 20, 25));
  RunOn(step, page);
  std::remove(dot.c_str());
  std::remove(mask.c_str());
  EXPECT_EQ(1u, RunOn(step, page).size());
}

}  // namespace
}  // namespace rastrel::tool
