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

}  // namespace
}  // namespace rastrel::testing
