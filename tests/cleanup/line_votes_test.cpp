#include "cleanup/line_votes.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace rastrel::testing {
namespace {

// The votes for the lines -reach to reach, and a counter on either side that stays 0.
template <class VoteFor>
std::vector<uint16_t> VotesFor(int reach, VoteFor voteFor) {
  std::vector<uint16_t> votes(2 * static_cast<size_t>(reach) + 3);
  voteFor(votes.data() + reach + 1);
  return votes;
}

TEST(LineVotes, HalvesAreRoundedAwayFromZeroAsDoubleSumsRoundThem) {
  // The sine of 30 degrees is 0.49999999999999994, and one half more is 1 in double.
  const Anchor<int16_t> anchors[] = {{1, 0}, {-1, 0}, {3, 0}, {0, 0}};
  const auto votes = VotesFor(2, [&](uint16_t* zero) { VoteExactly(anchors, 4, Direction(30), 2, zero); });
  EXPECT_EQ((std::vector<uint16_t>{0, 0, 1, 1, 2, 0, 0}), votes) << "3 * 0.4999... rounds to 1";
}

TEST(LineVotes, FixedPointVotesAreTheExactOnes) {
  std::mt19937 random(1);
  for (const int extent : {10, 300, 1750, 21000}) {
    std::vector<Anchor<int16_t>> anchors(20001);
    std::uniform_int_distribution<int> coordinate(-extent, extent);
    for (size_t i = 0; i < anchors.size(); ++i) {
      anchors[i] = {static_cast<int16_t>(coordinate(random)), static_cast<int16_t>(coordinate(random))};
      if (i % 3 == 0) anchors[i].x = 0;  // halves, at 60 degrees
      if (i % 5 == 0) anchors[i].y = 0;
    }
    for (int degrees = 0; degrees < 180; ++degrees) {
      const Direction direction(degrees);
      const Lines lines = {extent * 3 / 2, true};
      EXPECT_EQ(
          VotesFor(lines.reach,
                   [&](uint16_t* zero) {
                     VoteExactly(anchors.data(), anchors.size(), direction, lines.reach, zero);
                   }),
          VotesFor(lines.reach,
                   [&](uint16_t* zero) { Vote(anchors.data(), anchors.size(), direction, lines, zero); }))
          << extent << ", " << degrees << " degrees";
    }
  }
}

TEST(LineVotes, LinesBeyondTheReachTakeNone) {
  const std::vector<Anchor<int16_t>> anchors(200, {0, 6});
  const Lines lines = {5, false};
  EXPECT_EQ(std::vector<uint16_t>(13), VotesFor(lines.reach, [&](uint16_t* zero) {
              Vote(anchors.data(), anchors.size(), Direction(0), lines, zero);
            }));
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
