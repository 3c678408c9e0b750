#include "cleanup/line_votes.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "tests/support/processors.h"

namespace rastrel::testing {
namespace {

using Anchors = std::vector<Anchor<int16_t>>;

// The votes for the lines that can be reached, and a counter on either side that stays 0.
std::vector<uint16_t> VotesFor(const Anchors& anchors, int degrees, const Lines& lines, bool exactly) {
  std::vector<uint16_t> votes(2 * static_cast<size_t>(lines.reach) + 3);
  uint16_t* zero = votes.data() + lines.reach + 1;
  const Direction direction(degrees);
  if (exactly) VoteExactly(anchors.data(), anchors.size(), direction, lines.reach, zero);
  if (!exactly) Vote(anchors.data(), anchors.size(), direction, lines, zero);
  return votes;
}

TEST(LineVotes, HalvesAreRoundedAwayFromZeroAsDoubleSumsRoundThem) {
  // The sine of 30 degrees is 0.49999999999999994, and one half more is 1 in double.
  const auto votes = VotesFor({{1, 0}, {-1, 0}, {3, 0}, {0, 0}}, 30, {2, true}, true);
  EXPECT_EQ((std::vector<uint16_t>{0, 0, 1, 1, 2, 0, 0}), votes) << "3 * 0.4999... rounds to 1";
}

TEST(LineVotes, FixedPointVotesAreTheExactOnes) {
  std::mt19937 random(1);
  for (const int extent : {10, 300, 1750, 21000}) {
    Anchors anchors(20001);
    std::uniform_int_distribution<int> coordinate(-extent, extent);
    for (size_t i = 0; i < anchors.size(); ++i) {
      anchors[i] = {static_cast<int16_t>(coordinate(random)), static_cast<int16_t>(coordinate(random))};
      if (i % 3 == 0) anchors[i].x = 0;  // halves, at 60 degrees
      if (i % 5 == 0) anchors[i].y = 0;
    }
    const Lines lines = {extent * 3 / 2, true};
    for (int degrees = 0; degrees < 180; ++degrees) {
      const std::vector<uint16_t> exact = VotesFor(anchors, degrees, lines, true);
      OnEveryProcessor([&] {
        EXPECT_EQ(exact, VotesFor(anchors, degrees, lines, false)) << extent << ", " << degrees << " degrees";
      });
    }
  }
}

TEST(LineVotes, LinesBeyondTheReachTakeNone) {
  EXPECT_EQ(std::vector<uint16_t>(13), VotesFor(Anchors(200, {0, 6}), 0, {5, false}, false));
}

TEST(LineVotes, KeptTheReachComesOfASumThatWraps) {
  EXPECT_EQ(27, LinesOfPage(65536, 40).reach);  // 40 * 40 is left, and the root of its half is 28.3
  EXPECT_EQ(-1, LinesOfPage(65536, 65536).reach);
  EXPECT_EQ(-1, LinesOfPage(46341, 1).reach);  // above 2^31
  EXPECT_FALSE(LinesOfPage(65536, 40).takeAll);
  EXPECT_TRUE(LinesOfPage(2480, 3508).takeAll);
}

}  // namespace
}  // namespace rastrel::testing
