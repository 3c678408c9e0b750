#include <gtest/gtest.h>
#include <rastrel.h>

#include <cmath>

#include "tests/cleanup/progress_recorder.h"
#include "tests/support/faults.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

TestDib White(int width, int height) { return TestDib::Plain(MakeHeader(1, width, height), 1); }

int DetectDark(const TestDib& page) { return DetectSkewAngle(page.handle(), 1, 0, nullptr); }

TEST(DetectSkewAngle, FindsHowFarALineRises) {
  struct Case {
    double rise;
    int expected;
  };
  // Steeper lines count as upright ones that lean: 46 degrees are 44 short of upright.
  for (const Case& c : {Case{0, 0}, Case{3, 3}, Case{-3, -3}, Case{30, 30}, Case{45, 45}, Case{-44, -44},
                        Case{-45, 45}, Case{46, -44}, Case{87, -3}, Case{90, 0}, Case{93, 3}}) {
    EXPECT_EQ(c.expected, DetectDark(TestDib::Ruled(1, c.rise))) << c.rise;
  }
}

// Pages are looked at in pieces of 4096 columns.
TEST(DetectSkewAngle, FindsALineBeyondTheFirstColumnsOfAWidePage) {
  for (const int bits : {1, 8, 24}) {
    const Pixel white = bits == 1 ? 1 : bits == 8 ? 255 : 0xFFFFFF;
    TestDib page = TestDib::Plain(MakeHeader(bits, 5000, 300), white);
    for (int x = 4300; x < 4890; ++x) page.Fill(x, 250 - (x - 4300) * 140 / 1000, 1, 2, 0);  // 8 degrees
    EXPECT_EQ(8, DetectDark(page)) << bits << " bits";
  }
}

TEST(DetectSkewAngle, KeptWrapsTheDiagonalAt32Bits) {
  // 46300 squared fits 31 bits, 46341 squared does not.
  for (const int width : {46300, 46341}) {
    TestDib page = White(width, 60);
    for (int x = 0; x < 600; ++x) page.Fill(x, 40 - static_cast<int>(x * 0.0349), 1, 2, 0);
    EXPECT_EQ(width == 46300 ? 2 : 0, DetectDark(page)) << width;
  }
}

// Whether an angle is found, as what an operation on blocks would return: freeing this handle does nothing.
HGLOBAL Found(int angle) { return angle != 0 ? reinterpret_cast<HGLOBAL>(uintptr_t{1}) : nullptr; }

TEST(DetectSkewAngle, GivesZeroWhenAnythingFails) {
  const TestDib page = TestDib::Ruled(8, 3);
  for (const host::Fault fault : {host::Fault::kAllocation, host::Fault::kLock, host::Fault::kCreation}) {
    ExpectEveryFault(fault, page, kErrorBefore, [fault](HGLOBAL dib) {
      return Found(DetectSkewAngle(dib, 1, fault == host::Fault::kCreation, nullptr));
    });
  }
}

TEST(SkewProgress, IsAStepForEveryFifthRowAndColumn) {
  // Steps at rows 10, 5 and 0 of the page (not at the bottom row, 15) and columns 0, 5 ... 20.
  const TestDib page = White(23, 16), otherDepth(MakeHeader(4, 23, 16));
  const auto detectIn = [](const TestDib& dib) {
    return [&dib] { return DetectSkewAngle(dib.handle(), 1, 1, ProgressRecorder::kParent) != 0; };
  };
  ExpectProgress("Detect Skew Angle...", 8, (23 + 16) / 5 + 1, detectIn(page));
  // Kept: the window stays open without memory for the votes and at other depths.
  ExpectLeftOpen(host::Fault::kAllocation, 2, detectIn(page));
  ExpectLeftOpen(host::Fault::kAllocation, 0, detectIn(otherDepth));
  EXPECT_TRUE(page.Unchanged() && otherDepth.Unchanged());
}

TEST(SkewProgress, GoesOnWithoutAWindowThatTheProgramHasClosed) {
  struct Closer {
    int steps = 0, closes = 0;
  } closer;
  RastrelProgressPresenter presenter = {};
  presenter.context = &closer;
  presenter.progress = [](void* self, HWND window, int position, int) {
    static_cast<Closer*>(self)->steps = position;
    if (position == 3) DestroyWindow(window);
  };
  presenter.close = [](void* self, HWND) { ++static_cast<Closer*>(self)->closes; };
  RastrelHostSetProgressPresenter(&presenter);
  EXPECT_EQ(4, DetectSkewAngle(TestDib::Ruled(8, 4).handle(), 1, 1, nullptr));
  RastrelHostSetProgressPresenter(nullptr);
  EXPECT_EQ(3, closer.steps);
  EXPECT_EQ(1, closer.closes);
}

TEST(SkewProgress, FindsTheSameAngleAsWithoutUnlessCancelled) {
  const TestDib page = TestDib::Ruled(8, 7);
  for (const int step : {1, 100, 101, 200}) {  // the first and last row and column
    const ProgressRecorder cancels(step);
    EXPECT_EQ(0, DetectSkewAngle(page.handle(), 1, 1, nullptr)) << step;
  }
  const ProgressRecorder progress;
  EXPECT_EQ(7, DetectSkewAngle(page.handle(), 1, 1, nullptr));
  EXPECT_EQ(200, progress.asked);
}

}  // namespace
}  // namespace rastrel::testing
