#include "pages/minimum_cut.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace rastrel::pages {
namespace {

constexpr int kWidth = 4, kHeight = 3, kNodes = kWidth * kHeight;

// A little grid of random costs, with the sum that a labelling costs.
struct Puzzle {
  explicit Puzzle(uint32_t seed) {
    const auto next = [&](int range) {
      seed = seed * 1664525u + 1013904223u;
      return static_cast<int>(seed >> 16) % range;
    };
    for (int i = 0; i < kNodes; ++i) {
      lean.push_back(next(41) - 20);
      right.push_back(i % kWidth + 1 < kWidth ? next(15) : 0);
      below.push_back(i + kWidth < kNodes ? next(15) : 0);
    }
  }
  int CostOf(unsigned ink) const {
    const auto isInk = [&](int node) { return (ink >> node & 1) != 0; };
    int cost = 0;
    for (int i = 0; i < kNodes; ++i) {
      const auto node = static_cast<size_t>(i);
      cost += isInk(i) ? std::max(-lean[node], 0) : std::max(lean[node], 0);
      if (right[node] > 0 && isInk(i) != isInk(i + 1)) cost += right[node];
      if (below[node] > 0 && isInk(i) != isInk(i + kWidth)) cost += below[node];
    }
    return cost;
  }
  std::vector<int> lean, right, below;
};

TEST(MinimumCut, CostsNoMoreThanTheBestOfAllLabellings) {
  for (uint32_t seed = 1; seed <= 40; ++seed) {
    const Puzzle puzzle(seed);
    MinimumCut cut(kNodes);
    for (int i = 0; i < kNodes; ++i) {
      const auto node = static_cast<size_t>(i);
      cut.SetLean(i, puzzle.lean[node]);
      if (puzzle.right[node] > 0) cut.Join(i, MinimumCut::kRight, i + 1, puzzle.right[node]);
      if (puzzle.below[node] > 0) cut.Join(i, MinimumCut::kDown, i + kWidth, puzzle.below[node]);
    }
    cut.Solve();
    unsigned found = 0;
    for (int i = 0; i < kNodes; ++i) found |= cut.IsInk(i) ? 1u << i : 0u;
    int best = puzzle.CostOf(0);
    for (unsigned ink = 1; ink < 1u << kNodes; ++ink) best = std::min(best, puzzle.CostOf(ink));
    EXPECT_EQ(best, puzzle.CostOf(found)) << seed;
  }
}

}  // namespace
}  // namespace rastrel::pages
