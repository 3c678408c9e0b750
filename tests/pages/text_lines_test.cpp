#include "pages/text_lines.h"

#include <gtest/gtest.h>

#include <cmath>

#include "tests/pages/drawn_text.h"

namespace rastrel::pages {
namespace {

constexpr double kMostSlope = 0.27;

// A shape of lines: how far below its left end, counted from the page's middle,
// a line is at x.
struct Shape {
  const char* name;
  double (*drop)(double x, double y, double width, double height);
};

class TextLinesOfShape : public testing::TestWithParam<Shape> {};

// Every line drawn is found once, along nearly all of its length, in its own place.
TEST_P(TextLinesOfShape, AreFollowed) {
  for (const double letter : {7.0, 14.0, 30.0}) {
    SCOPED_TRACE(testing::Message() << "letters of " << letter << " pixels");
    const double width = 90 * letter, height = 70 * letter;
    BitPlane page(static_cast<int>(width), static_cast<int>(height));
    TextPainter painter(&page, 5);
    constexpr int kLines = 18;
    const auto baseline = [&](int line, double x) {
      const double y = (13 + 2.6 * line) * letter;
      return y + GetParam().drop(x, y, width, height);
    };
    for (int line = 0; line < kLines; ++line)
      painter.DrawLine(8 * letter, 82 * letter, letter, [&](double x) { return baseline(line, x); });

    const TextLines found = FindTextLines(page, kMostSlope);
    EXPECT_GE(found.lines.size(), static_cast<size_t>(kLines));
    EXPECT_LE(found.lines.size(), static_cast<size_t>(kLines + 3));  // a few in two pieces
    double length = 0;
    for (const TextLine& line : found.lines) length += line.length();
    EXPECT_NEAR(kLines * 74 * letter, length, 0.1 * kLines * 74 * letter);
    EXPECT_NEAR(letter, found.height, 0.4 * letter);
    for (const TextLine& line : found.lines) {
      const LinePoint& first = line.points.front();
      int nearest = 0;
      for (int i = 1; i < kLines; ++i) {
        const auto off = [&](int n) { return std::abs(baseline(n, first.x) - letter / 2 - first.middle()); };
        if (off(i) < off(nearest)) nearest = i;
      }
      for (const LinePoint& p : line.points)
        ASSERT_NEAR(baseline(nearest, p.x) - letter / 2, p.middle(), 0.5 * letter) << "at " << p.x;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, TextLinesOfShape,
    testing::Values(Shape{"Level", [](double, double, double, double) { return 0.0; }},
                    Shape{"Falling", [](double x, double, double w, double) { return 0.1 * (x - w / 2); }},
                    Shape{"Rising", [](double x, double, double w, double) { return -0.12 * (x - w / 2); }},
                    Shape{"Curved",
                          [](double x, double, double w, double) { return 0.05 * w * (x / w) * (x / w); }},
                    Shape{"Converging", [](double x, double y, double w,
                                           double h) { return (x - w / 2) * 0.12 * (y / h - 0.5); }}),
    [](const auto& test) { return test.param.name; });

TEST(TextLines, OfColumnsThatAreNotLevelStayApart) {
  BitPlane page(1600, 1200);
  TextPainter painter(&page, 3);
  for (int line = 0; line < 20; ++line) {
    painter.DrawLine(100, 760, 16, [line](double) { return 150.0 + 48 * line; });
    painter.DrawLine(840, 1500, 16, [line](double) { return 162.0 + 48 * line; });
  }
  const TextLines found = FindTextLines(page, kMostSlope);
  EXPECT_EQ(40u, found.lines.size());
  for (const TextLine& line : found.lines) EXPECT_NEAR(0, line.slope, 0.004);
}

TEST(TextLines, AreNotFoundWhereThereAreNone) {
  BitPlane specks(1000, 1400), black(1000, 1400), rules(1000, 1400);
  uint32_t random = 9;
  for (int i = 0; i < 4000; ++i) {
    random = random * 1664525 + 1013904223;
    specks.Set(static_cast<int>((random >> 8) % 1000), static_cast<int>((random >> 18) % 1400));
  }
  for (int y = 0; y < 1400; ++y) {
    for (int x = 0; x < 1000; ++x) {
      black.Set(x, y);
      if (x % 100 < 3) rules.Set(x, y);
    }
  }
  EXPECT_LE(FindTextLines(specks, kMostSlope).lines.size(), 3u);
  EXPECT_EQ(0u, FindTextLines(black, kMostSlope).lines.size());
  EXPECT_EQ(0u, FindTextLines(rules, kMostSlope).lines.size());
  for (const int side : {0, 1, 63, 64, 65, 129}) {
    EXPECT_EQ(0u, FindTextLines(BitPlane(side, side), kMostSlope).lines.size());
    EXPECT_EQ(0u, FindTextLines(BitPlane(side, 3000), kMostSlope).lines.size());
    EXPECT_EQ(0u, FindTextLines(BitPlane(3000, side), kMostSlope).lines.size());
  }
}

}  // namespace
}  // namespace rastrel::pages
