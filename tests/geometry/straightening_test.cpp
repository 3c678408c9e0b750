#include <gtest/gtest.h>
#include <rastrel.h>

#include <algorithm>
#include <cmath>

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

}  // namespace
}  // namespace rastrel::testing
