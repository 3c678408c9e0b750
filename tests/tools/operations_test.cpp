// The table of operations and the parser made of it.
#include "operations.h"

#include <gtest/gtest.h>

#include <cstring>

#include "tests/support/test_dib.h"

namespace rastrel::tool {
namespace {

TEST(ParseStep, TakesValuesByPlaceAndByName) {
  struct Case {
    const char* text;
    Values values;
  };
  for (const Case& test :
       {Case{"rotate:3.5", {3.5, 0}}, Case{"rotate:-90,black", {-90, 1}},
        Case{"rotate:fill=black,angle=1", {1, 1}}, Case{"skew:h,-20", {0, -20}}, Case{"dither:jjn,8", {1, 2}},
        Case{"dither", {0, 0}}, Case{"halftone:ordered,-10", {2, -10}}, Case{"clean:100,yes", {100, 1}},
        Case{"holes:-3", {-3}}, Case{"trim", {}}}) {
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
        Case{"clean:19", "from 20 to 100"}, Case{"clean:20,yes,3", "too many"},
        Case{"dither:bits=2", "one of 1, 4, 8"}, Case{"dither:depth=1", "no parameter 'depth'"}}) {
    try {
      ParseStep(test.text);
      ADD_FAILURE() << test.text << " is taken";
    } catch (const UsageError& error) {
      EXPECT_NE(std::string::npos, std::string(error.what()).find(test.message)) << error.what();
    }
  }
}

// Every entry works, or says why not, at every depth, and leaves the page it was given as it was.
TEST(Operations, RunOnTheDepthsTheyNameAndLeaveTheirInputAlone) {
  const char* const samples[] = {"rotate:3.5", "rotate:45,black", "rotate90", "rotate180",  "rotate270",
                                 "skew:h,9",   "skew:v,-9",       "deskew",   "trim",       "holes:0",
                                 "clean",      "clean:60,yes",    "dither",   "halftone:2", "grey"};
  for (std::string text : samples) {
    if (text == "halftone:2") text = "halftone:ordered,10";
    const Step step = ParseStep(text);
    for (const int bits : {1, 4, 8, 24}) {
      SCOPED_TRACE(::testing::Message() << text << " at " << bits << " bits");
      testing::TestDib source = testing::TestDib::Random(bits, 60, 40, 1);
      const testing::Bytes before = source.block();
      const Dib page(source.Release());
      const std::string depths = " " + std::string(step.operation->depths) + ",";  // "1, 8 (grey)"
      const bool isNamed = depths.find(" " + std::to_string(bits) + ",") != std::string::npos ||
                           depths.find(" " + std::to_string(bits) + " (") != std::string::npos;
      try {
        const Dib result = step.operation->run(page, step.values);
        EXPECT_TRUE(isNamed) << "not in the list of depths";
        EXPECT_TRUE(static_cast<bool>(result));
      } catch (const PageError& error) {
        EXPECT_FALSE(isNamed) << error.what();
      }
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
      const Dib turned = FindOperation("rotate")->run(page, ParseStep("rotate:30," + fill).values);
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

}  // namespace
}  // namespace rastrel::tool
