#include <gtest/gtest.h>
#include <rastrel.h>

#include <cmath>
#include <cstring>

#include "tests/support/faults.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

constexpr double kRadians = 0.017453292519943295;

// Fills a page by what `isInk` says of the middle of each pixel; 0 is ink and all bits set are ground.
template <class IsInk>
TestDib Paint(int bits, int width, int height, int dotsPerInch, IsInk isInk) {
  BITMAPINFOHEADER header = MakeHeader(bits, width, height);
  header.biXPelsPerMeter = header.biYPelsPerMeter = static_cast<int32_t>(dotsPerInch / 0.0254);
  TestDib page(header);
  Bytes block = page.block();
  const size_t stride = page.pixelBytes() / static_cast<size_t>(height);
  for (int y = 0; y < height; ++y) {
    uint8_t* row = &block[40 + 4 * header.biClrUsed + stride * static_cast<size_t>(height - 1 - y)];
    for (int x = 0; x < width; ++x) {
      if (isInk(x + 0.5, y + 0.5)) continue;
      const int bit = x * bits;
      if (bits >= 8) std::memset(row + bit / 8, 255, static_cast<size_t>(bits / 8));
      if (bits < 8)
        row[bit / 8] = static_cast<uint8_t>(row[bit / 8] | ((1 << bits) - 1) << (8 - bits - bit % 8));
    }
  }
  page.SetBlock(block);
  page.Settle();
  return page;
}

// Twelve lines an inch of strokes and bars in place of letters, with a margin all around.
struct Print {
  double width, height, inch, cosine, sine;
  Print(int w, int h, int dotsPerInch, double degrees)
      : width(w),
        height(h),
        inch(dotsPerInch),
        cosine(std::cos(degrees * kRadians)),
        sine(std::sin(degrees * kRadians)) {}

  bool operator()(double x, double y) const {
    const double u = ((x - width / 2) * cosine - (y - height / 2) * sine) / inch;
    const double v = ((x - width / 2) * sine + (y - height / 2) * cosine) / inch;
    if (std::abs(u) > width / inch / 2 - 0.6 || std::abs(v) > height / inch / 2 - 0.6) return false;
    const double line = std::floor(v * 6), inLine = v * 6 - line;
    const double letter = std::floor(u * 12), inLetter = u * 12 - letter;
    const uint32_t hash = (static_cast<uint32_t>(static_cast<int>(letter) + 500) * 2654435761u) ^
                          (static_cast<uint32_t>(static_cast<int>(line) + 500) * 2246822519u);
    if (inLine > 0.5 || hash >> 29 == 0 || inLetter > 0.75) return false;
    return inLetter < 0.2 || ((hash >> 9 & 1) != 0 && inLine < 0.1) ||
           ((hash >> 10 & 1) != 0 && inLine > 0.4);
  }
};

TestDib Printed(int bits, double degrees, int dotsPerInch = 100, double widthInches = 8,
                double heightInches = 10) {
  const int width = static_cast<int>(widthInches * dotsPerInch),
            height = static_cast<int>(heightInches * dotsPerInch);
  return Paint(bits, width, height, dotsPerInch, Print(width, height, dotsPerInch, degrees));
}

SkewResult Measured(const TestDib& page, SkewOptions options = {0, 0}) {
  SkewResult result = {99, 99, 99, 99};
  SetRastrelError(kErrorBefore);
  EXPECT_EQ(1, MeasureSkew(page.handle(), &options, &result));
  EXPECT_EQ(kErrorBefore, RastrelError());
  EXPECT_TRUE(page.Unchanged());
  EXPECT_TRUE(result.confidence >= 0 && result.confidence <= 1);
  EXPECT_LE(std::abs(result.angle), options.range == 0 ? 15 : options.range);
  return result;
}

void ExpectAngle(double degrees, const SkewResult& result, double tolerance = 0.05) {
  EXPECT_NEAR(degrees, result.angle, tolerance);
  EXPECT_GT(result.confidence, 0.8);
  EXPECT_EQ(1, result.hasStructure);
}

TEST(MeasureSkew, FindsTheAngleAtEveryDepth) {
  for (const int bits : {1, 4, 8, 24}) {
    for (const double degrees : {0.0, 0.04, -0.3, 1.234, -7.9, 14.2}) {
      SCOPED_TRACE(::testing::Message() << bits << " bits, " << degrees);
      ExpectAngle(degrees, Measured(Printed(bits, degrees)));
    }
  }
}

TEST(MeasureSkew, FindsItAtEveryResolutionAndSize) {
  for (const auto& [dots, width, height] : {std::tuple{60, 8.0, 10.0},
                                            {75, 8.0, 10.0},
                                            {150, 8.0, 10.0},
                                            {200, 5.0, 3.0},
                                            {300, 4.0, 6.0},
                                            {600, 3.0, 4.0},
                                            {200, 11.0, 2.0},
                                            {100, 24.0, 8.0}}) {
    SCOPED_TRACE(::testing::Message() << dots << " dots, " << width << " x " << height);
    ExpectAngle(-2.5, Measured(Printed(1, -2.5, dots, width, height)), 0.1);
  }
  // Resolutions that are not there or cannot be.
  for (const int perMetre : {0, -1, 1, 1000000, INT32_MAX, INT32_MIN}) {
    const TestDib page = Printed(8, 3.3, 200, 5, 7).With([perMetre](BITMAPINFOHEADER& header) {
      header.biYPelsPerMeter = perMetre;
    });
    ExpectAngle(3.3, Measured(page));
  }
}

TEST(MeasureSkew, LooksAsFarAsTheRangeSays) {
  for (const double degrees : {-28.0, 22.0, 30.0}) {
    SCOPED_TRACE(degrees);
    ExpectAngle(degrees, Measured(Printed(1, degrees, 200, 6, 7), {45, 0}), 0.1);
  }
  ExpectAngle(2, Measured(Printed(1, 2), {3, 0}));
  for (const double range : {1.0, 1.9, 1e-300})
    EXPECT_LT(Measured(Printed(1, 2), {range, 0}).confidence, 0.5);
  EXPECT_LT(Measured(Printed(1, 30)).confidence, 0.5);
}

TEST(MeasureSkew, TakesNegativesAndMirroredPagesAlike) {
  for (const int bits : {1, 8, 24}) {
    const TestDib page = Printed(bits, 4.2);
    const SkewResult result = Measured(page);
    EXPECT_EQ(1, result.polarity);
    Bytes block = page.block();
    for (size_t i = 40 + 4 * page.header().biClrUsed; i < block.size(); ++i)
      block[i] = static_cast<uint8_t>(~block[i]);
    const TestDib negative(block);
    for (const int polarity : {0, 2}) {
      const SkewResult other = Measured(negative, {0, polarity});
      EXPECT_EQ(2, other.polarity);
      EXPECT_NEAR(result.angle, other.angle, 0.003);
      EXPECT_NEAR(result.confidence, other.confidence, 0.1);
    }
    EXPECT_EQ(1, Measured(negative, {0, 1}).polarity);
    ExpectAngle(-4.2, Measured(TestDib(FlipDIBHorizontal(page.handle()))));
    ExpectAngle(-4.2, Measured(TestDib(FlipDIBVertical(page.handle()))));
  }
}

TEST(MeasureSkew, ReadsColoursFromTheTable) {
  const TestDib page = Printed(8, -1.5);
  const SkewResult result = Measured(page);
  // A table from white to black, one of two colours that are no greys, and one that ends early: the rest is
  // black.
  Bytes block = page.block();
  for (size_t i = 0; i < 256; ++i) std::memset(&block[40 + 4 * i], static_cast<int>(255 - i), 3);
  EXPECT_EQ(2, Measured(TestDib(block)).polarity);
  EXPECT_NEAR(result.angle, Measured(TestDib(block)).angle, 0.003);
  const RGBQUAD brown = {20, 40, 60, 0}, yellow = {150, 240, 240, 0};
  std::memcpy(&block[40], &brown, 4);
  std::memcpy(&block[40 + 4 * 255], &yellow, 4);
  ExpectAngle(-1.5, Measured(TestDib(block)));
  for (const int bits : {1, 4, 8}) {
    TestDib plain = Printed(bits, 2);
    Bytes same = plain.block();
    std::memset(&same[40], 77, size_t{4} << bits);
    const SkewResult none = Measured(TestDib(same));
    EXPECT_EQ(0, none.hasStructure) << bits;
    EXPECT_EQ(0, none.angle) << bits;
  }
}

}  // namespace
}  // namespace rastrel::testing
