// What cleaning by the model of a page does to pages that are drawn here.
#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "pages/check.h"
#include "pages/clean.h"
#include "pages/operations.h"
#include "pages/painted.h"

namespace rastrel::pages {
namespace {

constexpr int kWidth = 1240, kHeight = 1754;  // A4 at 150 dpi
constexpr int32_t kDots = 5906;               // a metre

// A page of lines of letters, on paper of any grey.
class Drawing {
 public:
  explicit Drawing(int bits, uint8_t paper = 255) : page_(MakePage(kWidth, kHeight, bits, {kDots, kDots})) {
    std::ranges::fill(PageView(page_).pixels(), uint8_t{0});  // padding, too
    Fill(0, 0, kWidth, kHeight, paper);
    for (int line = 0; line < 36; ++line) {
      for (int letter = 0; letter < 70; ++letter) {
        if (letter % 7 == 6) continue;
        const int x = 150 + letter * 13, y = 200 + line * 36;
        Fill(x, y, x + 3, y + 16, 20);
        Fill(x, y + 13 - letter % 3 * 6, x + 9, y + 16 - letter % 3 * 6, 20);
        if (letter % 5 == 0) Fill(x, y - 7, x + 3, y - 4, 20);
      }
    }
  }
  void Fill(int left, int top, int right, int bottom, uint8_t grey) {
    const PageView view(page_);
    const Ink ink = view.bits() == 24  ? Ink{{grey, grey, grey}}
                    : view.bits() == 8 ? Ink{{grey}}
                                       : Ink{{static_cast<uint8_t>(grey < 128         ? 0
                                                                   : view.bits() == 4 ? 15
                                                                                      : 1)}};
    for (int y = top; y < bottom; ++y) PaintRow(view, y, left, right, ink);
  }
  const Dib& page() const { return page_; }

 private:
  Dib page_;
};

struct Cleaned {
  explicit Cleaned(const Dib& dib, const CleanOptions& options = {})
      : page(CleanPage(Duplicate(dib), options, &record)) {}
  CleanRecord record;
  Dib page;
};

bool SamePixels(const Dib& a, const Dib& b) {
  const PageView one(a), other(b);
  return one.width() == other.width() && std::ranges::equal(one.pixels(), other.pixels());
}

TEST(CleanByModel, LeavesAGoodPageBitForBit) {
  for (const int bits : {1, 4, 8, 24}) {
    for (const int paper : {255, 190, 110}) {
      if (bits < 8 && paper != 255) continue;
      SCOPED_TRACE(testing::Message() << bits << " bits, paper " << paper);
      Drawing drawing(bits, static_cast<uint8_t>(paper));
      drawing.Fill(0, 1500, kWidth, 1503, 20);  // a rule from edge to edge
      drawing.Fill(0, 1550, 300, 1566, 20);     // a bar that runs into the edge
      drawing.Fill(1060, 700, 1070, 1100, 20);  // a stroke in the margin
      for (int x = 200; x < 900; x += 9) drawing.Fill(x, 1640, x + 2, 1642, 20);  // a leader
      const Cleaned after(drawing.page());
      EXPECT_TRUE(SamePixels(drawing.page(), after.page));
      EXPECT_TRUE(after.record.isChecked);
      EXPECT_TRUE(after.record.takenBack.empty());
    }
  }
}

// The faults go from a page whose truth is known, and it comes out as it was drawn without them.
TEST(CleanByModel, TakesBordersHolesAndSpecksAndNothingElse) {
  for (const int bits : {1, 8, 24}) {
    SCOPED_TRACE(testing::Message() << bits << " bits");
    Drawing clean(bits), dirty(bits);
    dirty.Fill(0, 0, 40, kHeight, 10);
    dirty.Fill(0, kHeight - 30, kWidth, kHeight, 10);
    for (const int hole : {600, 1072}) {  // 80 mm apart, of 6 mm
      for (int y = -17; y <= 17; ++y) {
        int half = 0;
        while ((half + 1) * (half + 1) + y * y <= 17 * 17) ++half;
        dirty.Fill(96 - half, hole + y, 97 + half, hole + y + 1, 10);
      }
    }
    for (int i = 0; i < 12; ++i)
      dirty.Fill(1100 + i % 3 * 20, 150 + i * 110, 1101 + i % 3 * 20, 151 + i * 110, 10);
    const Cleaned after(dirty.page());
    EXPECT_TRUE(SamePixels(clean.page(), after.page));
    EXPECT_EQ(2u, after.record.holes.size());
    EXPECT_EQ(12, after.record.specks);
    EXPECT_EQ(40 * kHeight + 30 * kWidth - 40 * 30, after.record.trimmedPixels());
    EXPECT_TRUE(after.record.takenBack.empty());
  }
}

// Under a lamp on the left, a colour that suits one side would be a patch on the other.
TEST(CleanByModel, PaintsWhatATurnUncoversAsThePaperBesideIt) {
  const Drawing drawing(8);
  const PageView lit(drawing.page());
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x)
      lit.PageRow(y)[x] = static_cast<uint8_t>(lit.PageRow(y)[x] * (230 - 120 * x / kWidth) / 255);
  }
  const Dib askew = Crop(Straighten(drawing.page(), 3, Ink{{0}}), {100, 100, kWidth - 40, kHeight - 40});
  const Cleaned after(askew);
  ASSERT_TRUE(after.record.isTurned);
  const PageView page(after.page);
  const int right = page.width() - 1, bottom = page.height() - 1;
  for (const int x : {0, right}) {
    for (const int y : {0, bottom})
      EXPECT_NEAR(page.PageRow(y)[x], page.PageRow(y < 90 ? 90 : bottom - 90)[x < 90 ? 90 : right - 90], 15);
  }
}

// Letters of 150 on 255: by a threshold they become white, which the check does not let pass.
TEST(CleanByModel, ReducesToAnyResolutionAndLosesNoInkByIt) {
  Drawing drawing(8);
  drawing.Fill(700, 1580, 702, 1582, 60);  // a dot that black and white by itself takes for a speck
  drawing.Fill(706, 1560, 709, 1600, 20);
  for (uint8_t& pixel : PageView(drawing.page()).pixels()) pixel = pixel < 128 ? 150 : 255;
  const BitPlane ink = InkOf1Bit(PageView(Drawing(1).page()));
  struct {
    Reduction how;
    double toDpi;
    int bits;
    double times;
    size_t skipped, takenBack;
  } const kCases[] = {{Reduction::kThreshold, 0, 8, 1, 0, 1},     {Reduction::kAuto, 0, 1, 1, 0, 0},
                      {Reduction::kAuto, 300, 1, 2, 0, 0},        {Reduction::kAuto, 225, 1, 1.5, 0, 0},
                      {Reduction::kAuto, 100, 1, 1, 1, 0},        {Reduction::kAuto, 1200, 1, 1, 1, 0},
                      {Reduction::kFloydSteinberg, 0, 1, 1, 0, 0}};
  for (const auto& each : kCases) {
    SCOPED_TRACE(testing::Message() << static_cast<int>(each.how) << " to " << each.toDpi);
    CleanOptions options;
    options.reduction = each.how;
    options.toDpi = each.toDpi;
    const Cleaned after(drawing.page(), options);
    const PageView page(after.page);
    EXPECT_EQ(each.bits, page.bits());
    ASSERT_EQ(each.times * kWidth, page.width());
    ASSERT_EQ(each.times * kHeight, page.height());
    EXPECT_NEAR(each.times * kDots, page.resolution().x, 1);
    EXPECT_EQ(each.skipped, after.record.skipped.size());
    ASSERT_EQ(each.takenBack, after.record.takenBack.size());
    if (each.how != Reduction::kAuto) continue;
    const BitPlane black = InkOf1Bit(page);
    const auto isBlack = [&](int x, int y) {
      return black.Get(static_cast<int>((x + 0.5) * each.times), static_cast<int>((y + 0.5) * each.times));
    };
    EXPECT_TRUE(isBlack(700, 1580) || isBlack(701, 1581));
    int lost = 0;
    for (int y = 200; y < 220; ++y) {
      for (int x = 150; x < 800; ++x)
        lost += ink.Get(x, y) && ink.Get(x - 1, y) && ink.Get(x + 1, y) && !isBlack(x, y);
    }
    EXPECT_EQ(0, lost);
  }
}

// Each fault is one that a step could have: the check finds it by itself.
TEST(Check, MissesWhatWasPaintedMovedOffOrLostAndNothingElse) {
  for (const int bits : {1, 8, 24}) {
    SCOPED_TRACE(testing::Message() << bits << " bits");
    Drawing drawing(bits);
    const PageView before(drawing.page());
    const Drawing sameIn1Bit(1);
    const BitPlane ink = InkOf1Bit(PageView(sameIn1Bit.page()));
    const BytePlane grey = bits == 1 ? BytePlane() : GreyOf(before);

    Drawing harmed(bits);
    const PageView now(harmed.page());
    Painted kept;
    for (int y = 200; y < 216; ++y) kept.Keep(now, y, 149, 160);
    EXPECT_TRUE(kept.PaintedOver(now, ink, {}).isNothing());
    harmed.Fill(150, 200, 153, 216, 255);                         // the first letter's stem
    for (int y = 200; y < 216; ++y) kept.Keep(now, y, 151, 152);  // painted a second time
    for (int y = 205; y < 209; ++y) kept.Keep(now, y, 0, kWidth);
    const Missing painted = kept.PaintedOver(now, ink, {});
    EXPECT_EQ(3 * 16, painted.pixels);
    EXPECT_EQ(150, painted.box.left);
    BitPlane named(kWidth, kHeight);
    for (int y = 200; y < 216; ++y) {
      for (int x = 150; x < 153; ++x) named.Set(x, y);
    }
    EXPECT_TRUE(kept.PaintedOver(now, ink, named).isNothing());

    for (const double degrees : {0.0, 1.3, -7.0}) {
      const Ink white = ExtremeInk(before, true);
      const Dib turned =
          degrees == 0 ? Duplicate(drawing.page()) : Straighten(drawing.page(), degrees, white);
      const Dib turnedHarmed =
          degrees == 0 ? Duplicate(harmed.page()) : Straighten(harmed.page(), degrees, white);
      const int width = PageView(turned).width(), height = PageView(turned).height();
      const Movement movement(kWidth, kHeight, degrees, width, height, 0, 0);
      EXPECT_TRUE(FindLost(ink, grey, {}, PageView(turned), true, movement).isNothing()) << degrees;
      EXPECT_FALSE(FindLost(ink, grey, {}, PageView(turnedHarmed), true, movement).isNothing()) << degrees;
      EXPECT_FALSE(FindLost(ink, grey, {}, PageView(turned), true, Movement()).isNothing() && degrees != 0);
      // Cut at the middle: what lies beyond is missing.
      const Dib cut = Crop(turned, {0, 0, width / 2, height});
      EXPECT_FALSE(FindLost(ink, grey, {}, PageView(cut), true, movement).isNothing());
    }
    kept.TakeBack(now);
    EXPECT_TRUE(std::ranges::equal(before.pixels(), now.pixels()));
  }
}

TEST(Check, FindsTextInWhatWouldBeRemoved) {
  const Drawing drawing(1);
  const BitPlane ink = InkOf1Bit(PageView(drawing.page()));
  const Components components(ink);
  const auto columns = [](int left, int right) {
    BitPlane named(kWidth, kHeight);
    for (int y = 0; y < kHeight; ++y) {
      for (int x = left; x < right; ++x) named.Set(x, y);
    }
    return named;
  };
  const auto takesText = [&](const BitPlane& named) {
    return !FindCutText(components, ink, {}, 255, named, 16).isNothing();
  };
  EXPECT_FALSE(takesText(columns(0, 140)));  // the margin
  EXPECT_TRUE(takesText(columns(0, 200)));   // and some letters of each line
  EXPECT_TRUE(takesText(columns(1000, kWidth)));
  // What differs from its surroundings as noise does is no text.
  const BytePlane dim(kWidth, kHeight, 40);
  EXPECT_TRUE(FindCutText(components, ink, dim, 200, columns(0, 200), 16).isNothing());
}

}  // namespace
}  // namespace rastrel::pages
