#include "pages/minimum_cut.h"

#include <algorithm>
#include <limits>

namespace rastrel::pages {

MinimumCut::MinimumCut(int nodeCount)
    : neighbour_(Index(nodeCount) * kDirections, -1),
      room_(Index(nodeCount) * kDirections, 0),
      rest_(Index(nodeCount), 0),
      tree_(Index(nodeCount), kNoTree),
      isActive_(Index(nodeCount), 0),
      parent_(Index(nodeCount), kNoParent),
      steps_(Index(nodeCount), 0),
      checked_(Index(nodeCount), 0) {}

void MinimumCut::Join(int node, Direction direction, int neighbour, int32_t cost) {
  neighbour_[Edge(node, direction)] = neighbour;
  neighbour_[Edge(neighbour, Opposite(direction))] = node;
  room_[Edge(node, direction)] = cost;
  room_[Edge(neighbour, Opposite(direction))] = cost;
}

void MinimumCut::MakeActive(int node) {
  if (isActive_[Index(node)] != 0) return;
  isActive_[Index(node)] = 1;
  active_.push_back(node);
}

// Takes free neighbours into the node's tree. True when the other tree is met: over the edge from `inkEnd`.
bool MinimumCut::Grow(int node, int& inkEnd, int& direction) {
  const auto tree = static_cast<Tree>(tree_[Index(node)]);
  for (int d = 0; d < kDirections; ++d) {
    const int next = neighbour_[Edge(node, d)];
    if (next < 0 || Room(tree, node, d) == 0) continue;
    uint8_t& nextTree = tree_[Index(next)];
    if (nextTree == kNoTree) {
      nextTree = tree;
      parent_[Index(next)] = static_cast<int8_t>(Opposite(d));
      steps_[Index(next)] = steps_[Index(node)] + 1;
      checked_[Index(next)] = checked_[Index(node)];
      MakeActive(next);
    } else if (nextTree != tree) {
      inkEnd = tree == kInkTree ? node : next;
      direction = tree == kInkTree ? d : Opposite(d);
      return true;
    } else if (checked_[Index(next)] <= checked_[Index(node)] &&
               steps_[Index(next)] > steps_[Index(node)] + 1) {
      parent_[Index(next)] = static_cast<int8_t>(Opposite(d));  // a shorter way to the root
      steps_[Index(next)] = steps_[Index(node)] + 1;
      checked_[Index(next)] = checked_[Index(node)];
    }
  }
  return false;
}

// Sends as much as the path from root to root bears, and cuts the trees where it is full.
void MinimumCut::Augment(int inkEnd, int direction) {
  const int paperEnd = neighbour_[Edge(inkEnd, direction)];
  int32_t most = room_[Edge(inkEnd, direction)];
  const auto rootOf = [&](int node) {
    const auto tree = static_cast<Tree>(tree_[Index(node)]);
    while (parent_[Index(node)] != kRoot) {
      const int up = parent_[Index(node)];
      const int parent = neighbour_[Edge(node, up)];
      most = std::min(most, Room(tree, parent, Opposite(up)));
      node = parent;
    }
    return node;
  };
  most = std::min(most, rest_[Index(rootOf(inkEnd))]);
  most = std::min(most, -rest_[Index(rootOf(paperEnd))]);

  room_[Edge(inkEnd, direction)] -= most;
  room_[Edge(paperEnd, Opposite(direction))] += most;
  for (int end : {inkEnd, paperEnd}) {
    const auto tree = static_cast<Tree>(tree_[Index(end)]);
    const int32_t sign = tree == kInkTree ? 1 : -1;
    int node = end;
    while (parent_[Index(node)] != kRoot) {
      const int up = parent_[Index(node)];
      const int parent = neighbour_[Edge(node, up)];
      int32_t& room = Room(tree, parent, Opposite(up));
      room -= most;
      // The way back: from the node to its parent in the ink's tree, from the parent in the paper's.
      (tree == kInkTree ? room_[Edge(node, up)] : room_[Edge(parent, Opposite(up))]) += most;
      if (room == 0) {
        parent_[Index(node)] = kOrphan;
        orphans_.push_back(node);
      }
      node = parent;
    }
    rest_[Index(node)] -= sign * most;
    if (rest_[Index(node)] == 0) {
      parent_[Index(node)] = kOrphan;
      orphans_.push_back(node);
    }
  }
}

int MinimumCut::StepsToRoot(int start) {
  int steps = 0;
  int node = start;
  for (;;) {
    if (checked_[Index(node)] == round_) {
      steps += steps_[Index(node)];
      break;
    }
    const int8_t parent = parent_[Index(node)];
    ++steps;
    if (parent == kRoot) {
      checked_[Index(node)] = round_;
      steps_[Index(node)] = 1;
      break;
    }
    if (parent == kOrphan || parent == kNoParent) return -1;
    node = neighbour_[Edge(node, parent)];
  }
  // What was walked is known in this round.
  int left = steps;
  for (node = start; checked_[Index(node)] != round_; node = neighbour_[Edge(node, parent_[Index(node)])]) {
    checked_[Index(node)] = round_;
    steps_[Index(node)] = left--;
  }
  return steps;
}

// Finds an orphan the neighbour nearest to the root as its new parent, or sets it and its children free.
void MinimumCut::Adopt(int orphan) {
  const auto tree = static_cast<Tree>(tree_[Index(orphan)]);
  int best = -1;
  int fewest = std::numeric_limits<int>::max();
  for (int d = 0; d < kDirections; ++d) {
    const int next = neighbour_[Edge(orphan, d)];
    if (next < 0 || tree_[Index(next)] != tree || Room(tree, next, Opposite(d)) == 0) continue;
    const int steps = StepsToRoot(next);
    if (steps >= 0 && steps < fewest) {
      fewest = steps;
      best = d;
    }
  }
  if (best >= 0) {
    parent_[Index(orphan)] = static_cast<int8_t>(best);
    steps_[Index(orphan)] = fewest + 1;
    checked_[Index(orphan)] = round_;
    return;
  }
  for (int d = 0; d < kDirections; ++d) {
    const int next = neighbour_[Edge(orphan, d)];
    if (next < 0 || tree_[Index(next)] != tree) continue;
    if (Room(tree, next, Opposite(d)) > 0) MakeActive(next);
    const int8_t parent = parent_[Index(next)];
    if (parent >= 0 && parent < kDirections && neighbour_[Edge(next, parent)] == orphan) {
      parent_[Index(next)] = kOrphan;
      orphans_.push_back(next);
    }
  }
  tree_[Index(orphan)] = kNoTree;
  parent_[Index(orphan)] = kNoParent;
}

void MinimumCut::Solve() {
  for (int node = 0; node < static_cast<int>(rest_.size()); ++node) {
    if (rest_[Index(node)] == 0) continue;
    tree_[Index(node)] = rest_[Index(node)] > 0 ? kInkTree : kPaperTree;
    parent_[Index(node)] = kRoot;
    steps_[Index(node)] = 1;
    MakeActive(node);
  }
  while (nextActive_ < active_.size()) {
    const int node = active_[nextActive_];
    int inkEnd = -1, direction = 0;
    if (tree_[Index(node)] == kNoTree || !Grow(node, inkEnd, direction)) {
      isActive_[Index(node)] = 0;
      ++nextActive_;
      continue;  // and the next one; a node that met the other tree is looked at again
    }
    ++round_;
    Augment(inkEnd, direction);
    for (size_t i = 0; i < orphans_.size(); ++i) Adopt(orphans_[i]);
    orphans_.clear();
  }
}

}  // namespace rastrel::pages
