#include "pages/components.h"

#include <algorithm>
#include <bit>

#include "pixels/kernels.h"

namespace rastrel::pages {
namespace {

// The pixels of a word that differ from their left neighbour; `previous` is the word on the left.
uint64_t Changes(uint64_t word, uint64_t previous) { return word ^ (word >> 1 | previous << 63); }

// A row's changes come in pairs: a run's first pixel, and the first after it.
size_t CountRuns(const uint64_t* row, size_t words) {
  size_t changes = 0;
  uint64_t previous = 0;
  for (size_t i = 0; i < words; ++i) {
    changes += static_cast<size_t>(std::popcount(Changes(row[i], previous)));
    previous = row[i];
  }
  return (changes + 1) / 2;
}

void ReadRuns(const uint64_t* row, size_t words, int32_t width, int32_t y, InkRun* run) {
  uint64_t previous = 0;
  bool isInside = false;
  for (size_t i = 0; i < words; ++i) {
    const uint64_t word = row[i];
    uint64_t changes = Changes(word, previous);
    previous = word;
    const auto base = static_cast<int32_t>(i * 64);
    while (changes != 0) {
      const int bit = std::countl_zero(changes);
      changes &= ~(uint64_t{1} << 63 >> bit);
      if (isInside) {
        (run++)->right = base + bit;
      } else {
        run->left = base + bit;
        run->row = y;
      }
      isInside = !isInside;
    }
  }
  if (isInside) run->right = width;
}

// Numbers of pieces that turned out to be one lead to the least of them.
class Joined {
 public:
  uint32_t Add() {
    lesser_.push_back(static_cast<uint32_t>(lesser_.size()));
    return lesser_.back();
  }
  uint32_t LeastOf(uint32_t number) {
    while (lesser_[number] != number) {
      lesser_[number] = lesser_[lesser_[number]];
      number = lesser_[number];
    }
    return number;
  }
  uint32_t Join(uint32_t a, uint32_t b) {
    const uint32_t rootOfA = LeastOf(a), rootOfB = LeastOf(b);
    const uint32_t least = std::min(rootOfA, rootOfB);
    lesser_[std::max(rootOfA, rootOfB)] = least;
    return least;
  }
  // Makes numbers without gaps of them, in the same order.
  std::vector<uint32_t> Number(uint32_t* count) const {
    std::vector<uint32_t> numbers(lesser_.size());
    *count = 0;
    for (size_t i = 0; i < lesser_.size(); ++i)
      numbers[i] = lesser_[i] == i ? (*count)++ : numbers[lesser_[i]];
    return numbers;
  }

 private:
  std::vector<uint32_t> lesser_;
};

}  // namespace

Components::Components(const BitPlane& ink) {
  FindRuns(ink);
  Join();
}

void Components::FindRuns(const BitPlane& ink) {
  const size_t rows = static_cast<size_t>(std::max(0, ink.height()));
  rowStarts_.assign(rows + 1, 0);
  for (size_t y = 0; y < rows; ++y)
    rowStarts_[y + 1] = rowStarts_[y] + Widest<CountRuns>(ink.Row(static_cast<int>(y)), ink.wordsPerRow());
  runs_ = PlaneNumbers<InkRun>(rowStarts_[rows], PlaneContent::kUnset);
  for (size_t y = 0; y < rows; ++y) {
    if (rowStarts_[y + 1] != rowStarts_[y]) {
      const auto row = static_cast<int>(y);
      ReadRuns(ink.Row(row), ink.wordsPerRow(), ink.width(), row, runs_.data() + rowStarts_[y]);
    }
  }
}

// Each run takes the number of what it touches in the row above, or a new one.
void Components::Join() {
  Joined joined;
  const InkRun *above = runs_.data(), *aboveEnd = above;
  for (size_t y = 0; y + 1 < rowStarts_.size(); ++y) {
    InkRun* const first = runs_.data() + rowStarts_[y];
    InkRun* const end = runs_.data() + rowStarts_[y + 1];
    for (InkRun* run = first; run != end; ++run) {
      while (above != aboveEnd && above->right < run->left) ++above;
      if (above == aboveEnd || above->left > run->right) {
        run->component = joined.Add();
        continue;
      }
      run->component = above->component;
      // The last that it touches may touch the next run too.
      while (above + 1 != aboveEnd && above[1].left <= run->right) {
        ++above;
        if (above->component != run->component)
          run->component = joined.Join(run->component, above->component);
      }
    }
    above = first;
    aboveEnd = end;
  }
  uint32_t count = 0;
  const std::vector<uint32_t> numbers = joined.Number(&count);
  components_.assign(count, {{INT32_MAX, INT32_MAX, 0, 0}, 0, 0, 0});
  Measure(numbers);
}

void Components::Measure(const std::vector<uint32_t>& numbers) {
  for (InkRun *run = runs_.data(), *end = run + rowStarts_.back(); run != end; ++run) {
    run->component = numbers[run->component];
    Component& component = components_[run->component];
    component.box.left = std::min(component.box.left, run->left);
    component.box.top = std::min(component.box.top, run->row);
    component.box.right = std::max(component.box.right, run->right);
    component.box.bottom = run->row + 1;
    ++component.runCount;
    component.pixelCount += run->length();
  }
  uint32_t next = 0;
  for (Component& component : components_) {
    component.firstRun = next;
    next += component.runCount;
  }
  order_ = PlaneNumbers<uint32_t>(rowStarts_.back(), PlaneContent::kUnset);
  // From here on firstRun is where the next of its runs goes, until all have been put down.
  const InkRun* const all = runs_.data();
  uint32_t* const order = order_.data();
  for (uint32_t i = 0; i < rowStarts_.back(); ++i) order[components_[all[i].component].firstRun++] = i;
  for (Component& component : components_) component.firstRun -= component.runCount;
}

uint32_t Components::At(int x, int y) const {
  const std::span<const InkRun> row = RunsOfRow(y);
  const auto run =
      std::upper_bound(row.begin(), row.end(), x, [](int at, const InkRun& r) { return at < r.right; });
  return run != row.end() && run->left <= x ? run->component : kNone;
}

namespace {

// Calls change(word, bits) for the words that a run lies in.
template <class Change>
void ForWordsOf(const InkRun& run, BitPlane* plane, Change change) {
  uint64_t* const row = plane->Row(run.row);
  const auto first = static_cast<size_t>(run.left) / 64, last = static_cast<size_t>(run.right - 1) / 64;
  for (size_t i = first; i <= last; ++i) {
    uint64_t bits = ~uint64_t{0};
    if (i == first) bits &= ~uint64_t{0} >> (static_cast<unsigned>(run.left) % 64);
    if (i == last) bits &= ~uint64_t{0} << (63 - static_cast<unsigned>(run.right - 1) % 64);
    change(row[i], bits);
  }
}

}  // namespace

void EraseComponent(const Components& components, const Component& component, BitPlane* plane) {
  for (const uint32_t run : components.RunsOf(component))
    ForWordsOf(components.runs()[run], plane, [](uint64_t& word, uint64_t bits) { word &= ~bits; });
}

void DrawComponent(const Components& components, const Component& component, BitPlane* plane) {
  for (const uint32_t run : components.RunsOf(component))
    ForWordsOf(components.runs()[run], plane, [](uint64_t& word, uint64_t bits) { word |= bits; });
}

}  // namespace rastrel::pages
