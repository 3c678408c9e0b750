#include <gtest/gtest.h>
#include <rastrel.h>

#include <array>
#include <sstream>
#include <utility>

#include "tests/support/fresh_thread.h"

namespace rastrel::testing {
namespace {

using Ratio = std::pair<int, int>;
constexpr int kKeep = 0x21, kTableIn = 0x22, kTableOut = 0x23, kFineIn = 0x24, kFineOut = 0x25;

// A step of a program without a display, the y ratio from 3 / 4.
ZoomRecord Stepped(int mode, Ratio before) {
  ZoomRecord zoom = {};
  zoom.words[5] = 77;
  zoom.words[12] = before.first;
  zoom.words[13] = before.second;
  zoom.words[14] = 3;
  zoom.words[15] = 4;
  BZoomStep(nullptr, nullptr, mode, &zoom, nullptr);
  return zoom;
}

// steps: ratios before and after, "10/10 20/10, 20/10 40/10".
void ExpectSteps(int mode, const char* steps) {
  std::istringstream words(steps);
  Ratio before, after;
  char mark;
  while (words >> before.first >> mark >> before.second >> after.first >> mark >> after.second) {
    SCOPED_TRACE(::testing::Message() << "mode " << mode << ", " << before.first << '/' << before.second);
    const ZoomRecord zoom = Stepped(mode, before);
    EXPECT_EQ(after, Ratio(zoom.words[1], zoom.words[2]));
    EXPECT_EQ(after, Ratio(zoom.words[3], zoom.words[4]));
    EXPECT_EQ(before, Ratio(zoom.words[12], zoom.words[13]));
    EXPECT_EQ(0, zoom.words[5]);
    words >> mark;
  }
}

TEST(BZoomStep, GoesToTheTablesNextValueFromANormalisedRatio) {
  ExpectSteps(kTableIn,
              "10/10 20/10, 20/10 40/10, 25/10 40/10, 80/10 80/10, 90/10 80/10, 5/10 10/10, 10/30 10/15,"
              "10/29 10/15, 10/15 10/10, 10/5 10/10, 10/99 10/50, 25/50 10/15, 50/20 40/10, 0/7 20/10,"
              "7/0 20/10, 7/7 20/10");
  ExpectSteps(kTableOut,
              "10/10 10/15, 10/50 10/50, 10/60 10/50, 10/16 10/30, 40/10 20/10, 41/10 40/10, 3/10 10/10,"
              "50/25 10/10, -7/30 10/10");
}

TEST(BZoomStep, GoesAFewPercentFromTheRatioAsItIsAndMayPassTheLimitOnce) {
  ExpectSteps(kFineIn,
              "9/10 10/10, 10/10 12/10, 29/10 31/10, 60/10 63/10, 79/10 82/10, 82/10 80/10, 10/12 10/10,"
              "10/11 10/9, 10/9 10/10, 25/50 25/48, -2147483648/10 -2147483647/10");
  ExpectSteps(kFineOut,
              "10/10 10/12, 10/49 10/51, 10/51 10/50, 30/10 29/10, 11/10 9/10, 9/10 10/10, 25/50 25/50,"
              "2147483647/10 2040109465/10");
}

TEST(BZoomStep, TakesTheThreadsBaseAndTables) {
  OnFreshThread([] {
    const ScaleStepTable in = {2, {100, 400}}, out = {1, {100}};
    ASSERT_EQ(1, BZoomSetScaleSteps(100, &in, &out));
    ExpectSteps(kTableIn, "1/1 400/100");
    ExpectSteps(kFineIn, "100/100 105/100");
    ExpectSteps(kFineOut, "100/120 100/100");
  });
}

TEST(BZoomStep, LeavesTheRatioToModesThatAreNoSteps) {
  for (const int mode : {0, 2, 0x20, 0x26, 0x2F, 0x42, 0x62, -0x1E}) {
    const ZoomRecord zoom = Stepped(mode, {20, 10});
    const std::array words = {zoom.words[0], zoom.words[1], zoom.words[2], zoom.words[3], zoom.words[4]};
    EXPECT_EQ((std::array{mode, 20, 10, 3, 4}), words);
  }
  ExpectSteps(kKeep, "25/50 25/50");
  for (const int mode : {0x10, 0x12, 0x16, 0x32}) EXPECT_EQ(77, Stepped(mode, {20, 10}).words[5]);
}

TEST(BZoomEnd, StepsWhatIsOnShow) {
  ZoomRecord zoom = {};
  zoom.words[16] = 9;
  BZoomStart(nullptr, nullptr, nullptr, 0x12, &zoom, 0);
  EXPECT_EQ(Ratio(0x12, 0), Ratio(zoom.words[0], zoom.words[16]));
  DisplayRecord display = {20, 10, 1, 2};
  BZoomEnd(nullptr, &zoom, &display);
  EXPECT_EQ(Ratio(40, 10), Ratio(display.xNumerator, display.xDenominator));
  EXPECT_EQ(Ratio(40, 10), Ratio(display.yNumerator, display.yDenominator));
  EXPECT_EQ((std::array{20, 10, 1, 2}),
            (std::array{zoom.words[12], zoom.words[13], zoom.words[14], zoom.words[15]}));
  ScreenRecord screen = {40, 10, 1, 2};
  BZoomScreenStep(nullptr, nullptr, kTableOut, &zoom, &screen);
  EXPECT_EQ(20, screen.yNumerator);
  BZoomScreenEnd(nullptr, &zoom, nullptr);  // from 40 / 10 again
  EXPECT_EQ(20, zoom.words[1]);
  BZoomStart(nullptr, nullptr, nullptr, kTableIn, nullptr, 0);
  BZoomEnd(nullptr, nullptr, &display);
  BZoomScreenStep(nullptr, nullptr, kTableIn, nullptr, &screen);
  EXPECT_EQ(Ratio(40, 20), Ratio(display.xNumerator, screen.xNumerator));
}

}  // namespace
}  // namespace rastrel::testing
