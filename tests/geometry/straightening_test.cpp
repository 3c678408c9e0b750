#include "tests/reference/straightening.h"

#include <gtest/gtest.h>
#include <rastrel.h>

#include <algorithm>
#include <cmath>
#include <limits>
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

void ExpectAsReference(const TestDib& page, double angle, int quality, COLORREF background) {
  SCOPED_TRACE(::testing::Message() << page.header().biBitCount << " bits, " << page.width() << " x "
                                    << page.height() << " by " << angle << ", quality " << quality);
  SetRastrelError(kErrorBefore);
  const TestDib turned = Straightened(page, angle, quality, background);
  ASSERT_EQ(Rounded(reference::Straighten(page.block(), angle, quality, background)), turned.block());
  EXPECT_EQ(0, RastrelError());
  EXPECT_EQ(0u, GlobalFlags(turned.handle()));
  EXPECT_TRUE(page.Unchanged());
}

constexpr int kQualities[] = {0, kSmooth, kSameSize, kSmooth | kSameSize};

TEST(StraightenDIB, EqualsEveryPixelOnItsOwn) {
  std::mt19937 engine(7);
  const auto random = [&engine](int bound) {
    return static_cast<int>(engine() % static_cast<unsigned>(bound));
  };
  const auto seed = [&engine] { return static_cast<unsigned>(engine()); };
  constexpr double kAngles[] = {0,     1e-12, 1e-5, 0.4, 3.7, -3.7, 12,    30,          44.9,
                                45,    45.1,  60,   90,  -90, 135,  177,   180,         183.7,
                                266.3, 270,   315,  360, 450, -0.0, 1e300, 360000033.5, -359999966.5};
  for (const int bits : {1, 4, 8, 24}) {
    for (const double angle : kAngles) {
      for (const int quality : kQualities) {
        const auto ground = static_cast<COLORREF>(engine());
        ExpectAsReference(TestDib::Random(bits, 1 + random(200), 1 + random(200), seed()), angle, quality,
                          ground);
        ExpectAsReference(TestDib::Random(bits, 1 + random(70), 1 + random(9), seed()),
                          random(720000) / 1000.0 - 360, quality, ground);
        if (HasFatalFailure()) return;
      }
    }
    ExpectAsReference(TestDib::Random(bits, 3000, 1, 5), 30, kSmooth, 0);
    ExpectAsReference(TestDib::Random(bits, 1, 3000, 5), 50, kSmooth, 0);
    ExpectAsReference(TestDib::Random(bits, 70000, 2, 5), 0.002, kSmooth, 0);
    ExpectAsReference(TestDib::Random(bits, 1211, 643, 5), -1.3, kSmooth, 0);
  }
}

// Tables of greys in any order, of colours, of few entries and of more than there are indices; blocks that
// end with the last row (sanitizers see a read beyond) or have slack behind it.
TEST(StraightenDIB, MixesPagesOfGreysThroughTheirTable) {
  std::mt19937 engine(3);
  for (const int bits : {1, 4, 8, 24}) {
    for (const unsigned colours : {1u, 2u, 7u, 256u, 300u}) {
      for (const bool isGrey : {true, false}) {
        BITMAPINFOHEADER header = MakeHeader(bits, 61, 37);
        header.biClrUsed = colours;
        Bytes block = TestDib::Random(header, colours).block();
        block.resize(40 + colours * 4 + header.biSizeImage + (isGrey ? 0 : 64));
        for (size_t i = 0; i < colours * 4; ++i) {
          const bool isNewGrey = i % 4 == 0;
          block[40 + i] = isGrey && !isNewGrey ? block[39 + i] : static_cast<uint8_t>(engine());
        }
        for (const double angle : {0.0, 21.0}) {
          for (const int quality : {0, kSmooth}) ExpectAsReference(TestDib(block), angle, quality, 0x4080C0);
        }
      }
    }
  }
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

// Stems, bars, slopes, rings and dots in lines, of strokes 2 to 4 pixels wide (`weight` 1) or about 2 (0.7),
// at no angle of their own.
TestDib TextPage(double weight = 1) {
  TestDib page = TestDib::Plain(MakeHeader(1, 900, 700), 1);
  std::mt19937 random(11);
  for (int top = 40; top < 650; top += 34) {
    for (int left = 40; left < 840; left += 18) {
      const auto kind = random() % 8;
      const double half = weight * (1 + static_cast<double>(random() % 100) / 100);  // of a stroke's width
      for (int y = 0; y < 24; ++y) {
        for (int x = 0; x < 16; ++x) {
          const double ring = std::fabs(std::hypot(x - 7.3, (y - 15.6) * 0.9) - 5.7);
          const double stem = std::fabs(x - 3.2), slope = std::fabs((x - 2) - (y - 5) * 0.55) * 0.87;
          const bool isInk = (kind == 0 && std::max(stem, std::fabs(y - 12.0) - 9) < half) ||
                             (kind == 1 && ring < half) || (kind == 2 && y > 5 && slope < half) ||
                             (kind == 3 && (stem < half || std::fabs(y - 13.4) < half) && y > 2 && x < 13) ||
                             (kind == 4 && std::hypot(x - 6.1, y - 20.2) < 2.2) ||
                             (kind == 5 && (ring < half || (stem < half && y > 1)) && y < 23) ||
                             (kind == 6 && y > 4 && std::min(slope, std::fabs(x - 13.1)) < half);
          if (isInk) page.Set(left + x, top + y, 0);
        }
      }
    }
  }
  page.Settle();
  return page;
}

int64_t InkOf(const TestDib& page) {
  const std::vector<Pixel> pixels = page.Pixels();
  return std::count(pixels.begin(), pixels.end(), 0u);
}

TEST(StraightenDIB, KeepsTheWeightOfStrokes) {
  for (const double weight : {0.7, 1.0}) {
    const TestDib page = TextPage(weight);
    const auto ink = static_cast<double>(InkOf(page));
    for (const double angle : {0.05, 0.1, -0.3, 0.4, 0.7, -1.2, 2.2, 3.7, -5.0, 8.0, 26.6, 45.0, -178.0}) {
      EXPECT_NEAR(1, static_cast<double>(InkOf(Straightened(page, angle, kSmooth))) / ink, 0.01)
          << weight << ", " << angle;
    }
  }
}

TEST(StraightenDIB, RoundsCornersAsEveryPixelOnItsOwn) {
  for (const double angle : {0.7, -3.7, 26.6}) ExpectAsReference(TextPage(), angle, kSmooth, kWhiteGround);
}

TEST(StraightenDIB, KeepsLoneDotsOfDitheredTones) {
  TestDib page = TestDib::Plain(MakeHeader(1, 600, 600), 1);
  for (int i = 0; i < 40000; ++i) page.Set(i % 200 * 3, i / 200 * 3 + i % 2, 0);
  for (const double angle : {0.3, -3.7, 20.0}) {
    EXPECT_NEAR(40000, static_cast<double>(InkOf(Straightened(page, angle, kSmooth))), 400) << angle;
  }
}

TEST(StraightenDIB, BringsTextBack) {
  const TestDib page = TextPage();
  const std::vector<Pixel> before = page.Pixels();
  for (const double angle : {0.4, -3.7, 12.0}) {
    const TestDib back = Straightened(Straightened(page, angle, kSmooth), -angle, kSmooth | kSameSize);
    const int left = (back.width() - page.width()) / 2, top = (back.height() - page.height()) / 2;
    int64_t changed = 0;
    for (int y = 0; y < page.height(); ++y) {
      for (int x = 0; x < page.width(); ++x) {
        changed += back.At(left + x, top + y) != before[static_cast<size_t>(y * page.width() + x)];
      }
    }
    // Edges move by less than a pixel: a shift by one would change a multiple of that.
    EXPECT_LT(changed, InkOf(page) / 6) << angle;
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

TEST(StraightenDIB, RefusesInItsOrder) {
  const TestDib page = TestDib::Random(8, 16, 16, 1);
  struct Case {
    int error;
    void (*spoil)(BITMAPINFOHEADER&);
  };
  for (const Case& c :
       {Case{ErrFileFormat, [](BITMAPINFOHEADER& h) { h.biSize = 12, h.biCompression = 1; }},
        Case{ErrCompressed, [](BITMAPINFOHEADER& h) { h.biCompression = 1, h.biWidth = 0; }},
        Case{ErrDIBSize, [](BITMAPINFOHEADER& h) { h.biHeight = -16, h.biBitCount = 16; }},
        Case{ErrBitsPerPixel, [](BITMAPINFOHEADER& h) { h.biBitCount = 2; }},
        Case{ErrBitsPerPixel, [](BITMAPINFOHEADER& h) { h.biBitCount = 32, h.biHeight++; }}}) {
    const TestDib spoilt = page.With(c.spoil);
    EXPECT_EQ(nullptr, StraightenDIB(spoilt.handle(), 5, kSmooth, 0));
    EXPECT_EQ(c.error, RastrelError());
    EXPECT_TRUE(spoilt.Unchanged());
  }
  ExpectRefusals({ErrParameter, ErrLockMemory, ErrDIBSize}, {1, 4, 8, 24},
                 [](HGLOBAL dib) { return StraightenDIB(dib, 5, kSmooth, 0); });
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  for (const double angle : {std::nan(""), kInfinity, -kInfinity}) {
    EXPECT_EQ(nullptr, StraightenDIB(page.handle(), angle, 0, 0));
    EXPECT_EQ(ErrParameter, RastrelError());
  }
  for (const int quality : {2, -1, 0x200, kSameSize | 4}) {
    EXPECT_EQ(nullptr, StraightenDIB(page.handle(), 5, quality, 0));
    EXPECT_EQ(ErrParameter, RastrelError());
  }
  EXPECT_TRUE(page.Unchanged());
}

TEST(StraightenDIB, FailsWhereMemoryRunsOut) {
  const TestDib wide(MakeHeader(24, 65535, 1));  // 46340 * 46340 pixels of 3 bytes
  EXPECT_EQ(nullptr, StraightenDIB(wide.handle(), 45, kSmooth, 0));
  EXPECT_EQ(ErrNoMemory, RastrelError());
  const TestDib page = TestDib::Random(8, 50, 30, 1);
  const auto turn = [](HGLOBAL dib) { return StraightenDIB(dib, 93, kSmooth, 0); };
  const std::string outcomes = DrawOutcomes(host::Fault::kAllocation, page, 0, turn);
  EXPECT_EQ(std::string(outcomes.size(), 'o'), outcomes);  // tried again
  EXPECT_EQ(3u, outcomes.size());
  ExpectEveryFault(host::Fault::kLock, page, ErrLockMemory, turn);
}

}  // namespace
}  // namespace rastrel::testing
