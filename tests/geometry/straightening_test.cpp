#include <gtest/gtest.h>
#include <rastrel.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "tests/support/faults.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

constexpr COLORREF kWhiteGround = 0xFFFFFF;
constexpr int kSmooth = 1;
constexpr int kSameSize = STRAIGHTEN_SAME_SIZE;

TestDib Straightened(const TestDib& page, double angle, int quality, COLORREF background = kWhiteGround) {
  return TestDib(StraightenDIB(page.handle(), angle, quality, background));
}

TestDib Numbered(int width, int height) {
  TestDib page(MakeHeader(8, width, height));
  for (int i = 0; i < width * height; ++i) page.Set(i % width, i / width, static_cast<Pixel>(i + 1));
  page.Settle();
  return page;
}

TEST(StraightenDIB, TurnsQuartersExactly) {
  for (const int bits : {1, 4, 8, 24}) {
    const TestDib page = TestDib::Random(bits, 75, 40, 1);
    for (const int quarters : {0, 1, 2, 3, 4, -1}) {
      const TestDib turned(TurnDIB(page.handle(), quarters));
      for (const int quality : {0, kSmooth}) {
        EXPECT_EQ(turned.block(), Straightened(page, 90 * quarters, quality).block())
            << bits << " bits, " << quarters << " quarters, quality " << quality;
      }
    }
  }
}

TEST(StraightenDIB, KeepsThePagesOwnSizeAroundTheCentre) {
  // On its side the page is 4 8, 3 7, 2 6, 1 5; or 2 4 6 8, 1 3 5 7; or 3 6, 2 5, 1 4, the centre of which
  // lies in a pixel downward and between two along, so that it has to give way.
  struct Case {
    int width, height;
    double angle;
    std::vector<Pixel> expected;
  };
  for (const Case& c : {Case{3, 2, 0, {1, 2, 3, 4, 5, 6}}, Case{3, 2, 180, {6, 5, 4, 3, 2, 1}},
                        Case{4, 2, 90, {9, 3, 7, 9, 9, 2, 6, 9}}, Case{2, 4, 90, {9, 9, 4, 6, 3, 5, 9, 9}},
                        Case{3, 2, 90, {9, 2, 5, 9, 1, 4}}}) {
    const TestDib page = Numbered(c.width, c.height);
    for (const int quality : {0, kSmooth}) {
      const TestDib turned = Straightened(page, c.angle, quality | kSameSize, 0x090909);
      EXPECT_EQ(c.width, turned.width());
      EXPECT_EQ(c.expected, turned.Pixels()) << c.width << " x " << c.height << " by " << c.angle;
    }
  }
}

TEST(StraightenDIB, SizesTheResultForEveryPixelCentre) {
  struct Case {
    int width, height;
    double angle;
    int newWidth, newHeight;
  };
  // 100 cos 30 + 50 sin 30 = 111.6 and 100 sin 30 + 50 cos 30 = 93.3. What half a pixel sticks out is no
  // centre: 142 holds 141.4.
  for (const Case& c :
       {Case{100, 50, 30, 112, 94}, Case{100, 50, -30, 112, 94}, Case{101, 51, 30, 113, 95},
        Case{100, 100, 45, 142, 142}, Case{101, 101, 45, 143, 143}, Case{101, 51, 90, 51, 101},
        Case{100, 50, 120, 94, 112}, Case{1, 1, 45, 1, 1}, Case{2480, 3508, 0.01, 2480, 3508},
        Case{2480, 3508, 0.02, 2482, 3508}, Case{1000, 1, 44, 720, 695}}) {
    const TestDib turned = Straightened(TestDib(MakeHeader(1, c.width, c.height)), c.angle, kSmooth);
    EXPECT_EQ(c.newWidth, turned.width()) << c.width << " at " << c.angle;
    EXPECT_EQ(c.newHeight, turned.height()) << c.width << " at " << c.angle;
  }
}

// A plane stays a plane: every pixel has the tone of the place where it came from.
TEST(StraightenDIB, PutsEveryToneWhereItBelongs) {
  constexpr int kWidth = 181, kHeight = 120;
  for (const int bits : {8, 24}) {
    TestDib page(MakeHeader(bits, kWidth, kHeight));
    const auto toneAt = [](double x, double y) { return 20 + 0.7 * x + 0.8 * y; };  // from the top left
    for (int y = 0; y < kHeight; ++y) {
      for (int x = 0; x < kWidth; ++x) {
        page.Set(x, y, static_cast<Pixel>(std::lround(toneAt(x, y))) * (bits == 24 ? 0x010101 : 1));
      }
    }
    for (const double angle : {0.3, -3.7, 17.0, 44.0, 100.0, 200.0}) {
      const TestDib turned = Straightened(page, angle, kSmooth);
      const double a = angle * 0.017453292519943295;
      double worst = 0, sum = 0;
      int count = 0;
      for (int y = 0; y < turned.height(); ++y) {
        for (int x = 0; x < turned.width(); ++x) {
          const double right = x - (turned.width() - 1) / 2.0, up = (turned.height() - 1) / 2.0 - y;
          const double fromX = right * std::cos(a) + up * std::sin(a) + (kWidth - 1) / 2.0;
          const double fromY = (kHeight - 1) / 2.0 + right * std::sin(a) - up * std::cos(a);
          if (fromX < 0 || fromX > kWidth - 1 || fromY < 0 || fromY > kHeight - 1) continue;
          const double error = (turned.At(x, y) & 255) - toneAt(fromX, fromY);
          worst = std::max(worst, std::fabs(error));
          sum += error;
          ++count;
        }
      }
      EXPECT_LT(worst, 1.3) << angle;
      EXPECT_LT(std::fabs(sum / count), 0.05) << angle;
    }
  }
}

// Less than can be seen of a turn changes nothing.
TEST(StraightenDIB, LeavesThePageAtTinyAngles) {
  const TestDib page = TestDib::Random(24, 300, 200, 1);
  for (const double angle : {1e-7, -1e-6, 1e-5}) {
    EXPECT_EQ(page.Pixels(), Straightened(page, angle, kSmooth).Pixels()) << angle;
  }
}

int64_t InkOf(const TestDib& page) {
  const std::vector<Pixel> pixels = page.Pixels();
  return std::count(pixels.begin(), pixels.end(), 0u);
}

TEST(StraightenDIB, KeepsLoneDotsOfDitheredTones) {
  TestDib page = TestDib::Plain(MakeHeader(1, 600, 600), 1);
  for (int i = 0; i < 40000; ++i) page.Set(i % 200 * 3, i / 200 * 3 + i % 2, 0);
  for (const double angle : {0.3, -3.7, 20.0}) {
    EXPECT_NEAR(40000, static_cast<double>(InkOf(Straightened(page, angle, kSmooth))), 400) << angle;
  }
}

TEST(StraightenDIB, KeepsAThinRuleWhole) {
  TestDib page = TestDib::Plain(MakeHeader(1, 400, 101), 1);
  page.Fill(0, 50, 400, 1, 0);
  for (const double angle : {0.1, 0.4, -1.0, 3.7, -11.0}) {
    const TestDib turned = Straightened(page, angle, kSmooth);
    int columns = 0, ink = 0;
    for (int x = 16; x < turned.width() - 16; ++x, ++columns) {
      const int before = ink;
      for (int y = 0; y < turned.height(); ++y) ink += turned.At(x, y) == 0;
      EXPECT_GT(ink, before) << "a gap at " << x << " by " << angle;
    }
    EXPECT_LT(ink, columns * 1.025) << angle;
  }
}

TEST(StraightenDIB, FillsCornersWithTheNearestColour) {
  const std::vector<RGBQUAD> table = {{0, 0, 200, 0}, {255, 255, 255, 0}, {90, 80, 80, 0}, {200, 0, 0, 0}};
  struct Case {
    int bits;
    COLORREF background;
    Pixel expected;
  };
  for (const Case& c :
       {Case{1, 0xFFFFFF, 1}, Case{1, 0x1010F0, 0}, Case{1, 0xFF0000AB, 0}, Case{4, 0x7F7F7F, 2},
        Case{4, 0xF01010, 3}, Case{8, 0xF0F0F0, 1}, Case{8, 0x1000F0, 0}, Case{24, 0x123456, 0x563412}}) {
    BITMAPINFOHEADER header = MakeHeader(c.bits, 90, 90);
    if (c.bits <= 8) header.biClrUsed = c.bits == 1 ? 2 : 4;
    const TestDib page(header, table);
    for (const int quality : {0, kSmooth}) {
      const TestDib turned = Straightened(page, 30, quality, c.background);
      const int last = turned.width() - 1;
      for (const int x : {0, last}) {
        for (const int y : {0, last}) EXPECT_EQ(c.expected, turned.At(x, y)) << c.bits << " bits";
      }
      EXPECT_EQ(0u, turned.At(last / 2, last / 2));
      EXPECT_EQ(header.biClrUsed, turned.header().biClrUsed);
    }
  }
}

TEST(StraightenDIB, KeepsResolutionsWithTheirSides) {
  const TestDib page = TestDib(MakeHeader(1, 40, 40)).With([](BITMAPINFOHEADER& header) {
    header.biXPelsPerMeter = 8000;
    header.biYPelsPerMeter = 4000;
  });
  for (const double angle : {0.0, 3.7, -44.0, 44.99995, 45.0, 91.0, 180.0, 272.0}) {
    const BITMAPINFOHEADER turned = Straightened(page, angle, 0).header();
    const bool isAcross = angle == 45 || angle == 91 || angle == 272;
    EXPECT_EQ(isAcross ? 4000 : 8000, turned.biXPelsPerMeter) << angle;
    EXPECT_EQ(isAcross ? 8000 : 4000, turned.biYPelsPerMeter) << angle;
  }
}

}  // namespace
}  // namespace rastrel::testing
