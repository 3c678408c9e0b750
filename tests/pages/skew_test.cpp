#include "pages/skew.h"

#include <gtest/gtest.h>

#include <cmath>

#include "tests/pages/drawn_text.h"

namespace rastrel::pages {
namespace {

double TangentOf(double degrees) { return std::tan(degrees * 3.14159265358979 / 180); }

// Lines of text that fill a part of the page, turned counter-clockwise.
void DrawTurned(BitPlane* page, int left, int right, double degrees, uint32_t seed, int top = 200) {
  TextPainter painter(page, seed);
  const double slope = TangentOf(degrees), middle = (left + right) / 2.0;
  for (int y = top; y < page->height() - 150; y += 44)
    painter.DrawLine(left, right, 16, [=](double x) { return y - slope * (x - middle); });
}

TEST(PageSkew, IsThatOfStraightText) {
  for (const double degrees : {-7.0, -2.3, -0.4, 0.0, 0.1, 1.0, 4.6, 12.0}) {
    BitPlane page(1600, 2200);
    DrawTurned(&page, 150, 1450, degrees, 11);
    const PageSkew skew = FindSkew(page);
    EXPECT_NEAR(degrees, skew.angle, 0.03);
    EXPECT_GE(skew.confidence, 0.8);
    EXPECT_FALSE(skew.isSeveral);
  }
}

// Lines of a photographed page: at the left they fall by 3 degrees more than at
// the right, or they converge. The page is level when its lines are, on the
// average.
TEST(PageSkew, IsTheMiddleOneOfLinesThatBendOrConverge) {
  for (const double degrees : {-5.0, -1.0, 0.0, 3.0}) {
    SCOPED_TRACE(degrees);
    const double slope = TangentOf(degrees);
    BitPlane bent(1200, 1600), converging(1200, 1600);
    TextPainter bentPainter(&bent, 21), convergingPainter(&converging, 22);
    for (int y = 200; y < 1400; y += 36) {
      bentPainter.DrawLine(150, 1050, 13, [=](double x) {
        const double u = (x - 600) / 450;
        return y - slope * (x - 600) - 450 * TangentOf(1.5) * u * u / 2;
      });
      const double own = TangentOf(degrees + (y - 800) / 600.0 * 2);
      convergingPainter.DrawLine(150, 1050, 13, [=](double x) { return y - own * (x - 600); });
    }
    for (const BitPlane* page : {&bent, &converging}) {
      const PageSkew skew = FindSkew(*page);
      EXPECT_NEAR(degrees, skew.angle, 0.25);
      EXPECT_GE(skew.confidence, kSureOfSkew);
      EXPECT_FALSE(skew.isSeveral);
    }
  }
}

TEST(PageSkew, OfTwoPagesSideBySideIsToldToBeSeveral) {
  for (const double apart : {0.6, 2.0}) {
    BitPlane spread(2400, 1700);
    DrawTurned(&spread, 100, 1100, 1, 31);
    DrawTurned(&spread, 1300, 2300, 1 - apart, 32, 218);
    const PageSkew skew = FindSkew(spread);
    EXPECT_TRUE(skew.isSeveral);
    EXPECT_LT(skew.confidence, kSureOfSkew);
  }
}

TEST(PageSkew, IsNotThereWithoutLines) {
  BitPlane scribble(1200, 1600), blobs(1200, 1600);
  uint32_t random = 77;
  const auto next = [&random](uint32_t below) {
    random = random * 1664525 + 1013904223;
    return static_cast<int>((random >> 10) % below);
  };
  double x = 600, y = 800, direction = 0;
  for (int i = 0; i < 40000; ++i) {
    direction += (next(100) - 49.5) / 120;
    x = std::fmod(x + std::cos(direction) + 1200, 1200);
    y = std::fmod(y + std::sin(direction) + 1600, 1600);
    scribble.Set(static_cast<int>(x), static_cast<int>(y));
  }
  for (int i = 0; i < 900; ++i) {
    const int left = next(1150), top = next(1550), width = 3 + next(40), height = 3 + next(40);
    for (int v = top; v < top + height; ++v) {
      for (int u = left; u < left + width; ++u) {
        if (u < 1200 && v < 1600) blobs.Set(u, v);
      }
    }
  }
  for (const BitPlane& page : {scribble, blobs, BitPlane(1200, 1600), BitPlane(0, 0), BitPlane(5, 4000)}) {
    const PageSkew skew = FindSkew(page);
    EXPECT_LT(skew.confidence, kSureOfSkew) << skew.reason;
    EXPECT_FALSE(skew.isSeveral);
  }
}

}  // namespace
}  // namespace rastrel::pages
