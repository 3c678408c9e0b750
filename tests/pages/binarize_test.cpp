#include "pages/binarize.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdlib>

#include "tests/pages/drawn_page.h"

namespace rastrel::pages {
namespace {

constexpr int kWidth = 640, kHeight = 400, kDpi = 200;

DrawnPage SlantedPage() {
  DrawnPage page(kWidth, kHeight, [](int x, int y) { return 235 - x / 6 - y / 10; });
  page.Text(40, 40, kWidth - 40, kHeight - 40, 4, 35);
  page.Grain(4);
  return page;
}

// How many pixels differ, in thousandths of the ink.
int Difference(const BitPlane& found, const BitPlane& truth) {
  int differing = 0, ink = 0;
  for (size_t i = 0; i < truth.words().size(); ++i) {
    differing += std::popcount(found.words()[i] ^ truth.words()[i]);
    ink += std::popcount(truth.words()[i]);
  }
  return differing * 1000 / ink;
}

class BinarizeEither : public testing::TestWithParam<BinarizeQuality> {};

TEST_P(BinarizeEither, FindsTextInSlantedLight) {
  const DrawnPage page = SlantedPage();
  EXPECT_LE(Difference(Binarize(page.grey, {GetParam(), kDpi}), page.truth), 20);
}

TEST_P(BinarizeEither, LeavesThinStrokesThin) {
  DrawnPage page(kWidth, kHeight, [](int, int) { return 240; });
  page.Text(40, 40, kWidth - 40, kHeight - 40, 2, 15);
  EXPECT_LE(Difference(Binarize(page.grey, {GetParam(), kDpi}), page.truth),
            50);  // a pixel more would be 1000
}

TEST_P(BinarizeEither, LeavesLightTextLight) {
  DrawnPage page = SlantedPage();
  for (uint8_t& value : page.grey.bytes()) value = static_cast<uint8_t>(255 - value);
  BitPlane ink = Binarize(page.grey, {GetParam(), kDpi});
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) ink.Get(x, y) ? ink.Clear(x, y) : ink.Set(x, y);
  }
  EXPECT_LE(Difference(ink, page.truth), 20);
}

TEST_P(BinarizeEither, TakesSpecksAwayAndKeepsFullStops) {
  DrawnPage page = SlantedPage();
  page.Bar(20, 20, 1, 1, 20);
  page.Bar(20, 380, 4, 4, 20);
  const BitPlane ink = Binarize(page.grey, {GetParam(), kDpi});
  EXPECT_FALSE(ink.Get(20, 20));
  EXPECT_TRUE(ink.Get(21, 381));
}

TEST_P(BinarizeEither, EnlargesToTwiceTheSize) {
  const DrawnPage page = SlantedPage();
  BinarizeOptions options{GetParam(), kDpi};
  options.width = 2 * kWidth;
  options.height = 2 * kHeight;
  const BitPlane ink = Binarize(page.grey, options);
  ASSERT_EQ(2 * kWidth, ink.width());
  ASSERT_EQ(2 * kHeight, ink.height());
  BitPlane quarter(kWidth, kHeight);  // every second pixel
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      if (ink.Get(2 * x, 2 * y)) quarter.Set(x, y);
    }
  }
  EXPECT_LE(Difference(quarter, page.truth), 60);
}

TEST_P(BinarizeEither, DithersPicturesToTheirBrightness) {
  DrawnPage page = SlantedPage();
  BitPlane pictures(kWidth, kHeight);
  for (int y = 100; y < 200; ++y) {
    for (int x = 100; x < 200; ++x) {
      page.grey.Row(y)[x] = 160;
      pictures.Set(x, y);
    }
  }
  BinarizeOptions options{GetParam(), kDpi};
  options.pictures = &pictures;
  const BitPlane ink = Binarize(page.grey, options);
  int black = 0;
  for (int y = 100; y < 200; ++y) {
    for (int x = 100; x < 200; ++x) black += ink.Get(x, y) ? 1 : 0;
  }
  EXPECT_NEAR(10000 * (255 - 160) / 255, black, 60);  // what is lost at the rim
}
INSTANTIATE_TEST_SUITE_P(Qualities, BinarizeEither,
                         testing::Values(BinarizeQuality::kFast, BinarizeQuality::kBest),
                         [](const auto& test) {
                           return test.param == BinarizeQuality::kFast ? "Fast" : "Best";
                         });

}  // namespace
}  // namespace rastrel::pages
