// What the classic chain does to pages that lie askew.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "classic_page.h"
#include "pages/safeguards.h"
#include "pages/skew.h"

namespace rastrel::pages {
namespace {

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
  options.deskew = Deskewing::kFine;
  const CleanRecord record = ExpectUntouched(noise.page(), options);
  EXPECT_LT(record.skewConfidence.value_or(1), kSureOfSkew);
  ASSERT_EQ(1u, record.skipped.size());
  EXPECT_EQ("deskew", record.skipped[0].step);
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

}  // namespace
}  // namespace rastrel::pages
