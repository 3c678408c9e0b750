// The operations whose work is hardest to follow beside a plain version of each, on the same random pages.
#include <gtest/gtest.h>
#include <rastrel.h>

#include "tests/reference/block_dither.h"
#include "tests/reference/combining.h"
#include "tests/reference/error_diffusion.h"
#include "tests/reference/mirror.h"
#include "tests/reference/rotation.h"
#include "tests/reference/scaling.h"
#include "tests/reference/skew_detection.h"
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
};
void PrintTo(const Comparison& comparison, std::ostream* out) { *out << comparison.name; }

// Of a page as one of up to three planes, of which its block holds so many rows fewer.
template <class Plain, class Flip>
Results OfPlanes(const TestDib& page, Arguments& random, Plain plain, Flip flip) {
  const TestDib planar = page.With([&](BITMAPINFOHEADER& header) {
    header.biPlanes = static_cast<uint16_t>(random.From(1, 3));
    header.biHeight /= header.biPlanes;
  });
  const Results results = {plain(planar.block()), flip(planar.handle())};
  EXPECT_TRUE(planar.Unchanged());
  return results;
}

constexpr auto kColour = [](Arguments& random) { return static_cast<COLORREF>(random.Below(0x1000000)); };

const Comparison kComparisons[] = {
    {"FlipDIBVertical",
     {1, 4, 8, 15, 24, 48},
     60,
     [](const TestDib& page, Arguments& random) {
       return OfPlanes(page, random, reference::FlipDIBVertical, FlipDIBVertical);
     }},
    {"FlipDIBHorizontal",
     {1, 2, 4, 8, 12, 15, 16, 24, 31, 32, 48},
     60,
     [](const TestDib& page, Arguments& random) {
       return OfPlanes(page, random, reference::FlipDIBHorizontal, FlipDIBHorizontal);
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
    {"ScaleDIB",
     {4, 8, 24},
     300,
     [](const TestDib& page, Arguments& random) {
       const int cubic = random.From(0, 1), width = random.From(1, random.IsOneIn(5) ? 3000 : 200),
                 height = random.From(1, 90);
       return Results{reference::ScaleDIB(page.block(), cubic, width, height),
                      ScaleDIB(page.handle(), cubic, width, height)};
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
    {"DetectSkewAngle",
     {1, 8, 24},
     40,
     [](const TestDib& page, Arguments& random) {
       const int isDark = random.From(0, 1);
       return Numbers(reference::DetectSkewAngle(page.block(), isDark != 0),
                      DetectSkewAngle(page.handle(), isDark, 0, nullptr));
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
