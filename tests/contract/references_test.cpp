// Every operation beside a plain version of it, on the same random pages.
#include <gtest/gtest.h>
#include <rastrel.h>

#include <bit>

#include "tests/reference/automatic_holes.h"
#include "tests/reference/blank_page.h"
#include "tests/reference/block_dither.h"
#include "tests/reference/combining.h"
#include "tests/reference/crop.h"
#include "tests/reference/depth_conversions.h"
#include "tests/reference/error_diffusion.h"
#include "tests/reference/grey.h"
#include "tests/reference/grey_scaling.h"
#include "tests/reference/halftone.h"
#include "tests/reference/mirror.h"
#include "tests/reference/punch_holes.h"
#include "tests/reference/rotation.h"
#include "tests/reference/scaling.h"
#include "tests/reference/skew.h"
#include "tests/reference/skew_detection.h"
#include "tests/reference/speckle.h"
#include "tests/reference/straightening.h"
#include "tests/support/any_page.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

// What the plain version and the operation make of a page. An empty block is no result.
struct Results {
  Bytes expected;
  HGLOBAL actual;
};

// A number as what an operation on blocks would return.
Bytes Number(int value) { return {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8)}; }
Results Numbers(int expected, int actual) { return {Number(expected), TestDib(Number(actual)).Release()}; }

// Numbers to call an operation with.
class Arguments : public Random {
 public:
  using Random::Random;
  int From(int first, int last) {
    return first + static_cast<int>(Below(static_cast<uint32_t>(last - first + 1)));
  }
  bool IsOneIn(uint32_t count) { return Below(count) == 0; }
  // In degrees; all are taken modulo a full turn.
  double Angle() {
    constexpr double kAngles[] = {0,   1e-12, 0.4, 3.7, -3.7,  45,   89.9,   90,          -90,
                                  135, 180,   270, 450, 1e300, -0.0, -1e-20, 360000033.5, -359999966.5};
    return IsOneIn(3) ? kAngles[Below(18)] : Below(720000) / 1000.0 - 360;
  }
};

struct Comparison {
  const char* name;
  std::initializer_list<int> depths;
  int rounds;  // at each depth
  Results (*run)(const TestDib& page, Arguments& random);
  unsigned locks = 0;  // left on the page by success
};
void PrintTo(const Comparison& comparison, std::ostream* out) { *out << comparison.name; }

constexpr auto kColour = [](Arguments& random) { return static_cast<COLORREF>(random.Below(0x1000000)); };

const Comparison kComparisons[] = {
    {"FlipDIBVertical",
     {1, 4, 8, 15, 24, 48},
     60,
     [](const TestDib& page, Arguments&) {
       return Results{reference::FlipDIBVertical(page.block()), FlipDIBVertical(page.handle())};
     }},
    {"FlipDIBHorizontal",
     {1, 2, 4, 8, 12, 15, 16, 24, 31, 32, 48},
     60,
     [](const TestDib& page, Arguments&) {
       return Results{reference::FlipDIBHorizontal(page.block()), FlipDIBHorizontal(page.handle())};
     }},
    {"TurnDIB",
     {1, 2, 4, 8, 16, 24, 32},
     60,
     [](const TestDib& page, Arguments& random) {
       const int turns = random.From(-3, 5);
       return Results{reference::TurnDIB(page.block(), turns), TurnDIB(page.handle(), turns)};
     }},
    {"RotateDIB",
     {1, 4, 8, 24},
     400,
     [](const TestDib& page, Arguments& random) {
       const double angle = random.Angle();
       return Results{reference::Rotate(page.block(), angle), RotateDIB(page.handle(), angle)};
     }},
    {"StraightenDIB",
     {1, 4, 8, 24},
     200,
     [](const TestDib& page, Arguments& random) {
       const double angle = random.Angle();
       const int quality = random.From(0, 1), sizing = random.From(0, 1) * STRAIGHTEN_SAME_SIZE;
       const COLORREF ground = kColour(random);
       return Results{reference::Straighten(page.block(), angle, quality | sizing, ground),
                      StraightenDIB(page.handle(), angle, quality | sizing, ground)};
     }},
    {"DitherFS4",
     {4, 8, 24},
     200,
     [](const TestDib& page, Arguments& random) {
       const int bits = page.header().biBitCount == 4 ? 1 : random.IsOneIn(2) ? 1 : 4;
       return Results{reference::DitherFS4(page.block(), bits), DitherFS4(page.handle(), bits)};
     }},
    {"DitherJJN",
     {4, 8, 24},
     200,
     [](const TestDib& page, Arguments& random) {
       const int bits = page.header().biBitCount == 4 ? 1 : random.IsOneIn(2) ? 1 : 4;
       return Results{reference::DitherJJN(page.block(), bits), DitherJJN(page.handle(), bits)};
     }},
    {"DitherToACube",
     {24},
     200,
     [](const TestDib& page, Arguments& random) {
       if (random.IsOneIn(2))
         return Results{reference::DitherFS4(page.block(), 8), DitherFS4(page.handle(), 8)};
       return Results{reference::DitherJJN(page.block(), 8), DitherJJN(page.handle(), 8)};
     }},
    {"DitherSmooth",
     {4, 8, 24},
     200,
     [](const TestDib& page, Arguments& random) {
       const int bits = page.header().biBitCount == 4 ? 1 : random.IsOneIn(2) ? 1 : 4;
       return Results{reference::DitherSmooth(page.block(), bits), DitherSmooth(page.handle(), bits)};
     }},
    {"DitherSharp",
     {4, 8, 24},
     200,
     [](const TestDib& page, Arguments& random) {
       const int bits = page.header().biBitCount == 4 ? 1 : random.IsOneIn(2) ? 1 : 4;
       return Results{reference::DitherSharp(page.block(), bits), DitherSharp(page.handle(), bits)};
     }},
    {"Halftone",
     {4, 8, 24},
     200,
     [](const TestDib& page, Arguments& random) {
       const int method = random.From(0, 2), brightness = random.From(-300, 300);
       return Results{reference::Halftone(page.block(), method, brightness),
                      Halftone(page.handle(), static_cast<uint16_t>(method), brightness, nullptr)};
     }},
    {"ConvertMonoDIBtoGrayscale",
     {1},
     400,
     [](const TestDib& page, Arguments& random) {
       const uint32_t method = random.Below(3);
       return Results{reference::ConvertMonoDIBtoGrayscale(page.block(), method),
                      ConvertMonoDIBtoGrayscale(page.handle(), method)};
     }},
    {"ConvColorDIBtoGrayscale",
     {1, 4, 8, 16, 24, 32},
     100,
     [](const TestDib& page, Arguments& random) {
       const uint32_t method = random.Below(3);
       const int weighted = random.From(-1, 1);
       return Results{reference::ConvColorDIBtoGrayscale(page.block(), weighted, method),
                      ConvColorDIBtoGrayscale(page.handle(), weighted, method)};
     },
     1},
    {"IsImageBlank",
     {1, 4, 8, 16, 24},
     400,
     [](const TestDib& page, Arguments& random) {
       const int tolerance = random.From(-50, 1050);
       const COLORREF ground = kColour(random);
       return Numbers(reference::IsImageBlank(page.block(), tolerance, ground),
                      IsImageBlank(page.handle(), tolerance, ground));
     }},
    {"Convert8to24",
     {8, 2, 16, 32},
     100,
     [](const TestDib& page, Arguments&) {
       return Results{reference::Convert8to24(page.block()), Convert8to24(page.handle())};
     }},
    {"ExpandCompressedDIB",
     {4, 8},
     1000,
     [](const TestDib& page, Arguments& random) {
       const TestDib run = page.With([&](BITMAPINFOHEADER& header) {
         header.biCompression = header.biBitCount == 8 ? BI_RLE8 : BI_RLE4;
         header.biClrUsed = random.Below(300);
       });
       return Results{reference::ExpandCompressedDIB(run.block()), ExpandCompressedDIB(run.handle())};
     }},
    {"ScaleDIB",
     {1, 4, 8, 24},
     300,
     [](const TestDib& page, Arguments& random) {
       const int cubic = random.From(0, 1), width = random.From(1, random.IsOneIn(5) ? 3000 : 200),
                 height = random.From(1, 90);
       return Results{reference::ScaleDIB(page.block(), cubic, width, height),
                      ScaleDIB(page.handle(), cubic, width, height)};
     }},
    {"ScaleGrayDIB",
     {4, 8},
     300,
     [](const TestDib& page, Arguments& random) {
       const auto pick = [&](int first, int last) { return static_cast<int16_t>(random.From(first, last)); };
       const int16_t left = pick(0, page.width() - 1), top = pick(0, page.height() - 1);
       const int16_t width = pick(1, page.width() - left), height = pick(1, page.height() - top);
       const int16_t across = pick(1, 4), down = pick(1, 4), mode = pick(0, 1);
       return Results{reference::ScaleGrayDIB(page.block(), left, top, width, height, across, down, mode),
                      ScaleGrayDIB(page.handle(), left, top, width, height, across, down, mode)};
     }},
    {"CombineDIB",
     {1, 4, 8, 16, 24, 32},
     400,
     [](const TestDib& page, Arguments& random) {
       const int bits = page.header().biBitCount;
       const TestDib other(MakeAnyPage(random, random.IsOneIn(2) ? bits : 0, false));
       const bool isOther = other.header().biBitCount != 2 && !random.IsOneIn(9);
       const TestDib& source = isOther ? other : page;
       const int x = random.From(-source.width(), page.width()),
                 y = random.From(-source.height(), page.height());
       const bool isMasked = random.IsOneIn(2), isAnd = random.IsOneIn(2);
       const Bytes mask = source.block();
       Results results = {page.block(), DuplicateDIB(page.handle())};
       if (!reference::CombineDIB(x, y, results.expected, mask, isMasked ? &mask : nullptr, isAnd))
         results.expected.clear();
       if (CombineDIB(x, y, &results.actual, source.handle(), isMasked ? source.handle() : nullptr, isAnd) ==
           0)
         GlobalFree(std::exchange(results.actual, nullptr));
       return results;
     }},
    {"CropDIB",
     {1, 2, 4, 8, 16, 24, 32},
     100,
     [](const TestDib& page, Arguments& random) {
       const int left = random.From(-1, page.width() - 1), top = random.From(-1, page.height() - 1);
       const int right = random.From(left, page.width() - 1), bottom = random.From(top, page.height() - 1);
       return Results{reference::CropDIB(page.block(), left, top, right, bottom),
                      CropDIB(page.handle(), left, top, right, bottom)};
     }},
    {"CropToEdges",
     {1},
     1000,
     [](const TestDib& page, Arguments& random) {
       const double fraction = random.From(0, 10) / 10.0;
       auto x = static_cast<uint32_t>(random.From(0, 9)), expectedX = x;
       const int margin = random.From(-9, 9), isDark = random.From(0, 1);
       int error = 0;
       const Bytes expected =
           reference::CropToEdges(page.block(), fraction, expectedX, margin, isDark != 0, nullptr, error);
       SetRastrelError(0);
       HGLOBAL actual = CropToEdges(page.handle(), fraction, &x, margin, isDark, 1);
       EXPECT_EQ(std::pair(error, expectedX), std::pair(RastrelError(), x));
       return Results{expected, actual};
     }},
    {"SkewDIB",
     {1, 4, 8, 16, 24, 32},
     150,
     [](const TestDib& page, Arguments& random) {
       const int shift = random.From(-99, 99), isAcross = random.From(0, 1);
       SkewCorners corners = {};
       std::array<int32_t, 8> expected = {};
       const Bytes sheared = reference::SkewDIB(page.block(), isAcross != 0, shift, expected.data());
       HGLOBAL actual = SkewDIB(page.handle(), isAcross, shift, nullptr, &corners);
       EXPECT_EQ(expected, (std::bit_cast<std::array<int32_t, 8>>(corners)));
       return Results{sheared, actual};
     },
     1},
    {"TrimBlackBorder",
     {1, 8, 24},
     300,
     [](const TestDib& page, Arguments&) {
       return Results{reference::TrimBlackBorder(page.block()), TrimBlackBorder(page.handle())};
     }},
    {"PunchHoleRemover",
     {1, 8, 24},
     300,
     [](const TestDib& page, Arguments& random) {
       const int size = random.From(-4, 9);
       return Results{reference::RemovePunchHoles(page.block(), size),
                      PunchHoleRemover(page.handle(), size, 0, nullptr)};
     }},
    {"AutoPunchHoleRemover",
     {1, 8, 24},
     300,
     [](const TestDib& page, Arguments&) {
       return Results{reference::AutoPunchHoleRemover(page.block()),
                      AutoPunchHoleRemover(page.handle(), 0, nullptr)};
     }},
    {"DetectSkewAngle",
     {1, 8, 24},
     40,
     [](const TestDib& page, Arguments& random) {
       const int isDark = random.From(0, 1);
       return Numbers(reference::DetectSkewAngle(page.block(), isDark != 0),
                      DetectSkewAngle(page.handle(), isDark, 0, nullptr));
     }},
    {"CleanImage",
     {1, 8},
     300,
     [](const TestDib& page, Arguments& random) {
       const int level = random.From(19, 101);
       const bool isFull = random.IsOneIn(2);
       return Results{reference::CleanImage(page.block(), level, isFull),
                      CleanImage(page.handle(), level, isFull)};
     }},
};

class Operations : public ::testing::TestWithParam<Comparison> {};

TEST_P(Operations, EqualThePlainVersion) {
  const Comparison& comparison = GetParam();
  Bytes first;
  bool areDifferent = false;
  for (const int bits : comparison.depths) {
    for (int round = 0; round < comparison.rounds; ++round) {
      Arguments random(static_cast<uint32_t>(round));
      const TestDib page(MakeAnyPage(random, bits, /*mayLie=*/false));
      SCOPED_TRACE(::testing::Message()
                   << bits << " bits, round " << round << ", " << page.width() << " x " << page.height());
      const Results both = comparison.run(page, random);
      const TestDib actual(both.actual);
      ASSERT_EQ(Rounded(both.expected), actual.block());
      if (actual && comparison.locks != 0) GlobalUnlock(page.handle());
      ASSERT_TRUE(page.Unchanged());
      if (first.empty()) first = both.expected;
      areDifferent |= both.expected != first;
    }
  }
  EXPECT_TRUE(areDifferent);
}
INSTANTIATE_TEST_SUITE_P(All, Operations, ::testing::ValuesIn(kComparisons),
                         [](const auto& test) { return test.param.name; });

// Pages of several tiles, and ones so long or thin that places go beyond 16 bits.
TEST(Turning, EqualsThePlainVersionAcrossTiles) {
  const auto expect = [](const TestDib& page, double angle) {
    SCOPED_TRACE(::testing::Message()
                 << page.header().biBitCount << " bits, " << page.width() << ", " << angle);
    ASSERT_EQ(Rounded(reference::Rotate(page.block(), angle)),
              TestDib(RotateDIB(page.handle(), angle)).block());
    ASSERT_EQ(Rounded(reference::Straighten(page.block(), angle, 1, 77)),
              TestDib(StraightenDIB(page.handle(), angle, 1, 77)).block());
  };
  for (const int bits : {1, 4, 8, 24}) {
    expect(TestDib::Random(bits, 1211, 643, 5), bits == 4 ? 183.7 : -1.3);
    expect(TestDib::Random(bits, 1, 3000, 5), 50);
    expect(TestDib::Random(bits, 65535, 2, 5), 0.002);
  }
  // Row starts of these fall on halves, where adding step by step and multiplying part ways.
  for (const double angle : {5.1990286326297879, 14.035824647388736, 38.156069257459954})
    expect(TestDib::Random(8, 64, 64, 5), angle);
}

}  // namespace
}  // namespace rastrel::testing
