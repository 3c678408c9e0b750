// The connected pieces of a page's ink: pixels that touch at a side or a corner belong together.
#ifndef RASTREL_PAGES_COMPONENTS_H
#define RASTREL_PAGES_COMPONENTS_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "pages/planes.h"

namespace rastrel::pages {

// The first column and row that belong to it, and the first after it that do not.
struct Box {
  int32_t left, top, right, bottom;
  int32_t width() const { return right - left; }
  int32_t height() const { return bottom - top; }
};

// Ink in one row from `left` up to, not including, `right`.
struct InkRun {
  int32_t left, right, row;
  uint32_t component;
  int32_t length() const { return right - left; }
};

struct Component {
  Box box;
  uint32_t firstRun;  // among the runs in order of their components; see RunsOf
  uint32_t runCount;
  int64_t pixelCount;
};

class Components {
 public:
  explicit Components(const BitPlane& ink);

  // In the order in which a reader going row by row meets them first. The order is the same everywhere.
  std::span<const Component> all() const { return components_; }
  size_t size() const { return components_.size(); }
  const Component& operator[](size_t index) const { return components_[index]; }

  // All runs of the page, row by row, each row's from left to right.
  std::span<const InkRun> runs() const { return {runs_.data(), rowStarts_.back()}; }
  std::span<const InkRun> RunsOfRow(int row) const {
    const size_t at = static_cast<size_t>(row);
    return {runs_.data() + rowStarts_[at], rowStarts_[at + 1] - rowStarts_[at]};
  }

  // A component's runs, as places in runs(), from top to bottom.
  std::span<const uint32_t> RunsOf(const Component& component) const {
    return {order_.data() + component.firstRun, component.runCount};
  }

  static constexpr uint32_t kNone = UINT32_MAX;
  // The component that a pixel of the page belongs to; kNone where there is no ink.
  uint32_t At(int x, int y) const;

 private:
  void FindRuns(const BitPlane& ink);
  void Join();
  void Measure(const std::vector<uint32_t>& numbers);

  std::vector<size_t> rowStarts_;  // of each row in runs_, and the end of the last
  PlaneNumbers<InkRun> runs_;
  PlaneNumbers<uint32_t> order_;
  std::vector<Component> components_;
};

// Takes a component's pixels off the plane that it was found on, or puts them back.
void EraseComponent(const Components& components, const Component& component, BitPlane* plane);
void DrawComponent(const Components& components, const Component& component, BitPlane* plane);

}  // namespace rastrel::pages

#endif
