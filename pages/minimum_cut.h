// Minimum cut of a grid of pixels between two labels, ink and paper.
#ifndef RASTREL_PAGES_MINIMUM_CUT_H
#define RASTREL_PAGES_MINIMUM_CUT_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace rastrel::pages {

// Nodes with up to four neighbours. Each node leans to ink or to paper by some amount, each pair of
// neighbours wants the same label by some amount; the labels found go least against all of it together.
// Exact, by augmenting paths with two search trees that are kept between paths (Boykov and Kolmogorov, 2004).
class MinimumCut {
 public:
  enum Direction { kLeft, kRight, kUp, kDown };

  explicit MinimumCut(int nodeCount);

  // What paper costs at a node (lean > 0) or ink does (lean < 0).
  void SetLean(int node, int32_t lean) { rest_[Index(node)] = lean; }
  // What it costs if `node` and its neighbour to the right or below have different labels. Each pair once.
  void Join(int node, Direction direction, int neighbour, int32_t cost);

  void Solve();

  // After Solve. Nodes that cost the same either way are paper.
  bool IsInk(int node) const { return tree_[Index(node)] == kInkTree; }

 private:
  enum Tree : uint8_t { kNoTree, kInkTree, kPaperTree };
  static constexpr int8_t kNoParent = -1, kRoot = 4, kOrphan = 5;
  static constexpr int kDirections = 4;

  static size_t Index(int node) { return static_cast<size_t>(node); }
  static size_t Edge(int node, int direction) {
    return Index(node) * kDirections + static_cast<size_t>(direction);
  }
  static int Opposite(int direction) { return direction ^ 1; }

  // What can still flow towards the paper between a node of `tree` and its neighbour.
  int32_t& Room(Tree tree, int node, int direction) {
    return tree == kInkTree ? room_[Edge(node, direction)]
                            : room_[Edge(neighbour_[Edge(node, direction)], Opposite(direction))];
  }
  void MakeActive(int node);
  bool Grow(int node, int& inkEnd, int& direction);
  void Augment(int inkEnd, int direction);
  void Adopt(int orphan);
  // Steps from a node to the root of its tree; -1 if the way is cut.
  int StepsToRoot(int node);

  std::vector<int32_t> neighbour_, room_;  // four a node
  std::vector<int32_t> rest_;              // what a node still holds for ink (> 0) or paper (< 0)
  std::vector<uint8_t> tree_, isActive_;
  std::vector<int8_t> parent_;            // the direction of the parent
  std::vector<int32_t> steps_, checked_;  // to the root, and in which round that was known
  std::vector<int32_t> active_, orphans_;
  size_t nextActive_ = 0;
  int32_t round_ = 0;
};

}  // namespace rastrel::pages

#endif
