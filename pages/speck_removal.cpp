#include "pages/speck_removal.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "pages/judgement.h"

namespace rastrel::pages {
namespace {

// Which things stand in each cell of a page: lists one behind the other.
class CellLists {
 public:
  CellLists(int width, int height, int cell)
      : cell_(std::max(cell, 1)), columns_(width / cell_ + 1), rows_(height / cell_ + 1) {}

  int columns() const { return columns_; }
  int rows() const { return rows_; }
  int ColumnOf(int x) const { return std::clamp(x / cell_, 0, columns_ - 1); }
  int RowOf(int y) const { return std::clamp(y / cell_, 0, rows_ - 1); }

  // `boxes[i]` stands in all the cells that it reaches into.
  void Fill(const std::vector<Box>& boxes) {
    starts_.assign(static_cast<size_t>(columns_) * static_cast<size_t>(rows_) + 1, 0);
    for (const Box& box : boxes) {
      ForEachCell(box, [&](size_t cell) { ++starts_[cell + 1]; });
    }
    for (size_t i = 1; i < starts_.size(); ++i) starts_[i] += starts_[i - 1];
    entries_.resize(starts_.back());
    std::vector<uint32_t> next(starts_.begin(), starts_.end() - 1);
    for (uint32_t i = 0; i < boxes.size(); ++i) {
      ForEachCell(boxes[i], [&](size_t cell) { entries_[next[cell]++] = i; });
    }
  }
  // Visits what stands in the cells that a box reaches into; some of it several times.
  template <class Visit>
  void ForEachIn(const Box& box, Visit visit) const {
    ForEachCell(box, [&](size_t cell) {
      for (uint32_t i = starts_[cell]; i < starts_[cell + 1]; ++i) visit(entries_[i]);
    });
  }
  bool HasAnyIn(int column, int row) const {
    const size_t cell = Index(column, row);
    return starts_[cell] != starts_[cell + 1];
  }

 private:
  size_t Index(int column, int row) const {
    return static_cast<size_t>(row) * static_cast<size_t>(columns_) + static_cast<size_t>(column);
  }
  template <class Visit>
  void ForEachCell(const Box& box, Visit visit) const {
    const int right = ColumnOf(box.right - 1), bottom = RowOf(box.bottom - 1);
    for (int row = RowOf(box.top); row <= bottom; ++row) {
      for (int column = ColumnOf(box.left); column <= right; ++column) visit(Index(column, row));
    }
  }

  int cell_, columns_, rows_;
  std::vector<uint32_t> starts_, entries_;
};

Box Grown(const Box& box, int by) { return {box.left - by, box.top - by, box.right + by, box.bottom + by}; }

// Between two boxes along an axis; 0 where they overlap.
int Gap(int first, int end, int otherFirst, int otherEnd) {
  return std::max({0, otherFirst - end, first - otherEnd});
}

// The thickness of a piece's strokes. A stroke of length L and thickness t has L t pixels; it has about
// L |cos| runs across and L |sin| runs down, whose squares add up to L squared.
double StrokeThickness(const Components& components, const Component& component) {
  const std::span<const InkRun> runs = components.runs();
  const std::span<const uint32_t> order = components.RunsOf(component);
  int64_t covered = 0;  // pixels with ink above them: the others begin a run down
  size_t above = 0, first = 0;
  for (size_t i = 0; i < order.size(); ++i) {
    const InkRun& run = runs[order[i]];
    if (run.row != runs[order[first]].row) {
      above = run.row == runs[order[first]].row + 1 ? first : i;
      first = i;
    }
    while (above < first && runs[order[above]].right <= run.left) ++above;
    for (size_t k = above; k < first && runs[order[k]].left < run.right; ++k) {
      covered += std::min(runs[order[k]].right, run.right) - std::max(runs[order[k]].left, run.left);
    }
  }
  const auto across = static_cast<double>(component.runCount);
  const auto down = static_cast<double>(component.pixelCount - covered);
  return static_cast<double>(component.pixelCount) / std::sqrt(across * across + down * down);
}

enum class Place : uint8_t { kOpen, kNearText, kAttached, kInPicture };

// A mark and what stands around it.
struct Mark {
  uint32_t component = 0;
  Place place = Place::kOpen;
  bool isInRow = false;
  bool isInPlace = false;   // where dots stand for certain
  double side = 0;          // the root of its pixels
  double thickness = 0;     // of the strokes of letters that it may belong to; 0 if there are none
  double letterHeight = 0;  // of these, in the middle
};

class Judge {
 public:
  Judge(const Components& components, const BitPlane& ink, const BytePlane& grey, const Pictures& pictures,
        double pixelsPerPoint, double largest)
      : components_(components),
        ink_(ink),
        grey_(grey),
        pictures_(pictures),
        width_(ink.width()),
        height_(ink.height()),
        point_(pixelsPerPoint),
        side_(std::max(1, static_cast<int>(largest * pixelsPerPoint + 0.5))),
        letters_(width_, height_, static_cast<int>(32 * pixelsPerPoint)),
        dots_(width_, height_, static_cast<int>(32 * pixelsPerPoint)) {}

  SpeckPlan Plan() {
    SpeckPlan plan;
    Sort();
    if (markList_.empty()) return plan;
    for (const uint32_t component : markList_) {
      Mark mark = Look(components_[component].box, components_[component].pixelCount);
      mark.component = component;
      mark.isInRow = mark.place != Place::kInPicture && IsInRow(components_[component]);
      marks_.push_back(mark);
    }
    KeepClusters();
    MeasurePlaces();
    LearnDots();
    const bool isDustNear = IsDust(Place::kNearText), isDustAttached = IsDust(Place::kAttached);
    for (const Mark& mark : marks_) {
      if (mark.place == Place::kInPicture) {
        ++plan.keptInPictures;
      } else if (mark.isInRow || (FitsDot(mark) && !IsTooSmallForDots(mark))) {
        ++plan.keptDots;
      } else if ((mark.place == Place::kNearText && !isDustNear) ||
                 (mark.place == Place::kAttached && !isDustAttached)) {
        ++plan.keptNearText;
      } else {
        plan.components.push_back(mark.component);
        plan.pixelCount += components_[mark.component].pixelCount;
      }
    }
    if (static_cast<double>(plan.pixelCount) > speck::kMostOfPage * width_ * height_) {
      plan.leftAlone = "there are so many that they may be a pattern";
      plan.components.clear();
      plan.pixelCount = 0;
    }
    return plan;
  }

 private:
  struct Letter {
    uint32_t component;
    Box box;
    double thickness = 0;  // of its strokes; 0 until somebody asks
  };

  bool IsMark(const Component& component) const {
    const int longer = std::max(component.box.width(), component.box.height());
    return longer <= side_ ||
           (longer <= side_ + speck::kLongerBy && component.pixelCount <= int64_t{side_} * side_);
  }
  bool IsLetter(const Component& component) const {
    const auto longer = static_cast<double>(std::max(component.box.width(), component.box.height()));
    return longer >= speck::kLeastLetter * point_ && longer > 2 * side_ &&
           longer <= speck::kMostLetter * point_;
  }

  // On greys and colours: the ground around it is even, and it is much darker. What is not, is noise, or the
  // grain of a picture, or part of pale print.
  bool StandsOut(const Box& box) const {
    if (grey_.isEmpty()) return true;
    const int reach = 2 + side_;
    int darkest = 255;
    for (int y = box.top; y < box.bottom; ++y) {
      darkest = std::min<int>(darkest, *std::min_element(grey_.Row(y) + box.left, grey_.Row(y) + box.right));
    }
    int counts[256] = {}, all = 0;
    for (int y = std::max(box.top - reach, 0); y < std::min(box.bottom + reach, height_); ++y) {
      const bool isAcross = y >= box.top - 1 && y < box.bottom + 1;
      for (int x = std::max(box.left - reach, 0); x < std::min(box.right + reach, width_); ++x) {
        // The soft rim of the mark itself does not count.
        if ((isAcross && x >= box.left - 1 && x < box.right + 1) || ink_.Get(x, y)) continue;
        ++counts[grey_.Row(y)[x]];
        ++all;
      }
    }
    if (all == 0) return false;
    // A tenth may be anything: the rims of letters.
    const auto levelOf = [&](int percent) {
      int level = 0;
      for (int below = counts[0]; below * 100 < percent * all && level < 255; below += counts[level]) ++level;
      return level;
    };
    const int ground = levelOf(50), spread = levelOf(80) - levelOf(20);
    return (ground - darkest) * 100 >= speck::kLeastContrast * ground &&
           ground - darkest >= speck::kContrastOfSpread * spread;
  }

  // Into marks, dots of any size that rows are made of, and letters.
  void Sort() {
    const int largestDot =
        std::max(static_cast<int>(picture::kLargestDot * point_), side_ + speck::kLongerBy);
    std::vector<Box> dotBoxes, letterBoxes;
    for (uint32_t i = 0; i < components_.size(); ++i) {
      const Component& component = components_[i];
      if (IsMark(component) && StandsOut(component.box)) markList_.push_back(i);
      if (std::max(component.box.width(), component.box.height()) <= largestDot) {
        dotBoxes.push_back(component.box);
        dotList_.push_back(i);
      }
      if (IsLetter(component)) {
        letterList_.push_back({i, component.box});
        letterBoxes.push_back(Grown(component.box, static_cast<int>(kFurthest * ReachOf(component.box)) + 1));
      }
    }
    if (markList_.empty()) return;
    dots_.Fill(dotBoxes);
    dotBoxes_ = std::move(dotBoxes);
    letters_.Fill(letterBoxes);
  }

  double ThicknessOf(Letter& letter) {
    if (letter.thickness == 0) letter.thickness = StrokeThickness(components_, components_[letter.component]);
    return letter.thickness;
  }

  // What stands around a place where a mark is, or might be.
  Mark Look(const Box& box, int64_t pixelCount) {
    Mark mark;
    mark.side = std::sqrt(static_cast<double>(pixelCount));
    if (pictures_.IsScreened(box.left, box.top)) {
      mark.place = Place::kInPicture;
      return mark;
    }
    around_.clear();
    int nearest = INT32_MAX;
    letters_.ForEachIn(box, [&](uint32_t i) {
      const int away = DistanceTo(letterList_[i], box);
      if (away < 0 || std::find(around_.begin(), around_.end(), i) != around_.end()) return;
      nearest = std::min(nearest, away);
      const Box& letter = letterList_[i].box;
      bool isAbove = false;
      if (Gap(box.left, box.right, letter.left, letter.right) == 0 &&
          Gap(box.top, box.bottom, letter.top, letter.bottom) == 0) {
        DistanceInside(letterList_[i], box, &isAbove);
      }
      mark.isInPlace = mark.isInPlace || isAbove || IsDotsPlace(letter, box);
      around_.push_back(i);
    });
    if (around_.empty()) return mark;
    mark.place = nearest <= speck::kAttached * point_ ? Place::kAttached : Place::kNearText;
    const auto middle = around_.begin() + static_cast<ptrdiff_t>(around_.size() / 2);
    std::nth_element(around_.begin(), middle, around_.end(), [&](uint32_t a, uint32_t b) {
      return letterList_[a].box.height() < letterList_[b].box.height();
    });
    mark.letterHeight = letterList_[*middle].box.height();
    for (const uint32_t i : around_) ThicknessOf(letterList_[i]);
    std::nth_element(around_.begin(), middle, around_.end(), [&](uint32_t a, uint32_t b) {
      return letterList_[a].thickness < letterList_[b].thickness;
    });
    mark.thickness = letterList_[*middle].thickness;
    return mark;
  }

  // Above a letter, or behind it at its foot.
  static bool IsDotsPlace(const Box& letter, const Box& mark) {
    const double height = letter.height();
    const int above = letter.top - mark.bottom, behind = mark.left - letter.right;
    const bool isOver = mark.right > letter.left && mark.left < letter.right;
    const bool isAtFoot = std::abs(mark.bottom - letter.bottom) <= speck::kFoot * height;
    return (isOver && above >= 0 && above <= speck::kJustAbove * height) ||
           (isAtFoot && behind >= 0 && behind <= speck::kBehind * height);
  }

  static bool FitsDot(const Mark& mark) {
    const double share = mark.isInPlace ? speck::kDotInPlace : speck::kDotOfStroke;
    return mark.thickness > 0 && mark.side + speck::kDotRounding >= share * mark.thickness;
  }

  // How far away dots of a letter may stand, in pixels; the largest of its shares.
  double ReachOf(const Box& letter) const {
    return std::clamp(static_cast<double>(std::min(letter.height(), 2 * letter.width())),
                      speck::kLeastReach * point_, speck::kMostReach * point_);
  }
  static constexpr double kFurthest =
      std::max({speck::kAbove, speck::kBelow, speck::kBeside, speck::kBesideBelow});

  // How far a mark is from a letter, in pixels; -1 where no dot of that letter could stand.
  int DistanceTo(const Letter& letter, const Box& mark) const {
    const Box& box = letter.box;
    const double reach = ReachOf(box);
    const int across = Gap(mark.left, mark.right, box.left, box.right);
    const int down = Gap(mark.top, mark.bottom, box.top, box.bottom);
    const bool isAbove = mark.bottom <= box.top, isBelow = mark.top >= box.bottom;
    if (across == 0 && down == 0) return DistanceInside(letter, mark);
    bool isThere = false;
    if (isAbove) {
      isThere = down <= speck::kAbove * reach && across <= speck::kBesideBelow * reach;
    } else if (isBelow) {
      isThere = (down <= speck::kBelow * reach && across <= speck::kBesideBelow * reach) ||
                (down <= speck::kBesideBelow * reach && across <= speck::kBeside * reach);
    } else {
      isThere = across <= speck::kBeside * reach;
    }
    return isThere ? std::max(across, down) : -1;
  }

  // In a letter's box there may be nothing of the letter: frames, staves, a drawing.
  // The letter below a dot may be a part of a longer piece: then `isAbove` tells that its stroke begins just
  // below.
  int DistanceInside(const Letter& letter, const Box& mark, bool* isAbove = nullptr) const {
    const int reach = static_cast<int>(speck::kLeastReach * point_) + 1;
    int nearest = reach + 1;
    for (int y = std::max(mark.top - reach, letter.box.top);
         y < std::min(mark.bottom + reach, letter.box.bottom); ++y) {
      const std::span<const InkRun> row = components_.RunsOfRow(y);
      auto run = std::lower_bound(row.begin(), row.end(), mark.left - reach,
                                  [](const InkRun& a, int x) { return a.right <= x; });
      for (; run != row.end() && run->left < mark.right + reach; ++run) {
        if (run->component != letter.component) continue;
        const int across = Gap(mark.left, mark.right, run->left, run->right);
        const int down = Gap(mark.top, mark.bottom, y, y + 1);
        nearest = std::min(nearest, std::max(across, down));
        if (isAbove != nullptr && across == 0 && y >= mark.bottom) *isAbove = true;
      }
    }
    return nearest <= reach ? nearest : -1;
  }

  // ---- rows of dots ----

  struct Dot {
    int x, y;  // twice its middle
    int64_t pixelCount;
  };
  static Dot DotOf(const Box& box, int64_t pixelCount) {
    return {box.left + box.right, box.top + box.bottom, pixelCount};
  }
  // One size, more or less.
  static bool AreAlike(int64_t a, int64_t b) { return std::max(a, b) <= 2 * std::min(a, b) + 1; }

  // The nearest dot of the same size in a direction: right, left, below, above.
  bool FindNext(const Dot& from, int direction, Dot* next) const {
    const int furthest = static_cast<int>(2 * speck::kFurthestDot * point_);
    const bool isDown = direction >= 2;
    const int sign = direction % 2 == 0 ? 1 : -1;
    int nearest = furthest + 1;
    const int half = furthest / 2, wide = half / speck::kRowSlope + 1, x = from.x / 2, y = from.y / 2;
    Box look = isDown ? Box{x - wide, sign > 0 ? y : y - half, x + wide + 1, sign > 0 ? y + half + 1 : y + 1}
                      : Box{sign > 0 ? x : x - half, y - wide, sign > 0 ? x + half + 1 : x + 1, y + wide + 1};
    dots_.ForEachIn(look, [&](uint32_t i) {
      const Dot dot = DotOf(dotBoxes_[i], components_[dotList_[i]].pixelCount);
      const int along = sign * (isDown ? dot.y - from.y : dot.x - from.x);
      const int off = std::abs(isDown ? dot.x - from.x : dot.y - from.y);
      if (along <= 0 || along >= nearest || off * speck::kRowSlope > along + 2 * speck::kRowSlope) return;
      if (!AreAlike(from.pixelCount, dot.pixelCount)) return;
      nearest = along;
      *next = dot;
    });
    return nearest <= furthest;
  }

  bool HasDotAt(int x, int y, int64_t pixelCount, int tolerance) const {
    bool isThere = false;
    const Box look = {(x - tolerance) / 2, (y - tolerance) / 2, (x + tolerance) / 2 + 1,
                      (y + tolerance) / 2 + 1};
    dots_.ForEachIn(look, [&](uint32_t i) {
      const Dot dot = DotOf(dotBoxes_[i], components_[dotList_[i]].pixelCount);
      isThere = isThere || (std::abs(dot.x - x) <= tolerance && std::abs(dot.y - y) <= tolerance &&
                            AreAlike(dot.pixelCount, pixelCount));
    });
    return isThere;
  }

  // Leaders and dotted rules: the next dot has others at the same distance behind it, or on the other side of
  // this one, two or more; a single one where they are as close as in an ellipsis.
  bool IsInRow(const Component& mark) const {
    const int64_t pixelCount = mark.pixelCount;
    const Dot from = DotOf(mark.box, pixelCount);
    for (int direction = 0; direction < 4; ++direction) {
      Dot next;
      if (!FindNext(from, direction, &next)) continue;
      const int dx = next.x - from.x, dy = next.y - from.y;
      const int tolerance =
          3 + std::max(std::abs(dx), std::abs(dy)) / 16;  // half pixels: dots fall between pixels
      const auto has = [&](int steps) {
        return HasDotAt(from.x + steps * dx, from.y + steps * dy, pixelCount, tolerance);
      };
      const int others = (has(-1) ? 1 + has(-2) : 0) + (has(2) ? 1 + has(3) : 0);
      const bool isClose = std::max(std::abs(dx), std::abs(dy)) <= 2 * speck::kEllipsisStep * point_;
      if (others >= (isClose ? 1 : 2)) return true;
    }
    return false;
  }

  // ---- what the whole page tells ----

  // Marks in the open that stand together with many others, or with dots, are something.
  void KeepClusters() {
    const int radius = static_cast<int>(speck::kClusterRadius * point_);
    // Dust stands together by chance, too: a few times what is to be expected does not count.
    const double across = 2 * speck::kClusterRadius * point_;
    const double expected =
        static_cast<double>(marks_.size()) * across * across / (static_cast<double>(width_) * height_);
    const int most = speck::kClusterMarks + static_cast<int>(speck::kDustRatio * expected);
    std::vector<uint32_t> others;
    for (Mark& mark : marks_) {
      if (mark.place != Place::kOpen) continue;
      const Box& box = components_[mark.component].box;
      others.clear();
      dots_.ForEachIn(Grown(box, radius), [&](uint32_t i) {
        const Box& dot = dotBoxes_[i];
        if (dotList_[i] == mark.component || Gap(box.left, box.right, dot.left, dot.right) > radius ||
            Gap(box.top, box.bottom, dot.top, dot.bottom) > radius) {
          return;
        }
        if (std::find(others.begin(), others.end(), i) == others.end()) others.push_back(i);
      });
      if (static_cast<int>(others.size()) >= most) mark.place = Place::kNearText;
    }
  }

  // How much of the page is open, near text, attached to it: by looking at places all over it.
  void MeasurePlaces() {
    constexpr int kPlacesAcross = 40, kPlacesDown = 50;
    for (int i = 0; i < kPlacesDown; ++i) {
      for (int k = 0; k < kPlacesAcross; ++k) {
        // Each row of places begins elsewhere, so that they do not fall in step with columns of print.
        const int x = static_cast<int>((int64_t{2 * k + 1} * width_ / (2 * kPlacesAcross) + i * 7) % width_);
        const int y = static_cast<int>(int64_t{2 * i + 1} * height_ / (2 * kPlacesDown));
        if (components_.At(x, y) != Components::kNone) continue;
        ++places_[static_cast<size_t>(Look({x, y, x + 1, y + 1}, 1).place)];
      }
    }
  }
  // How many marks dust would leave in such places, if it left so many in the open.
  double Expected(Place place, double inTheOpen) const {
    const double open = std::max(1.0, static_cast<double>(places_[static_cast<size_t>(Place::kOpen)]));
    return inTheOpen * static_cast<double>(places_[static_cast<size_t>(place)]) / open;
  }
  bool IsDust(Place place) const {
    double open = 0, there = 0;
    for (const Mark& mark : marks_) {
      if (mark.isInRow) continue;
      open += mark.place == Place::kOpen;
      there += mark.place == place && !FitsDot(mark);
    }
    return open > 0 && there <= speck::kDustRatio * Expected(place, open) + speck::kDustSlack;
  }

  // The size of the page's own dots: those that are too large for specks, in parts of the letters beside
  // them. And the sizes of which there are near text no more than dust would leave there.
  void LearnDots() {
    std::vector<double> sizes;
    for (const uint32_t index : dotList_) {
      const Component& dot = components_[index];
      if (IsMark(dot) || sizes.size() >= speck::kMostDotsAsked) continue;
      const Mark mark = Look(dot.box, dot.pixelCount);
      if (mark.place == Place::kNearText || mark.place == Place::kAttached) {
        sizes.push_back(mark.side / mark.letterHeight);
      }
    }
    if (sizes.size() < speck::kLeastDots) return;
    const auto small = sizes.begin() + static_cast<ptrdiff_t>(sizes.size() / 10);
    std::nth_element(sizes.begin(), small, sizes.end());
    leastDot_ = speck::kDotOfDots * *small;

    std::vector<double> open(SizeClass(side_ + 2) + 1), near(open.size());
    for (const Mark& mark : marks_) {
      if (mark.isInRow) continue;
      if (mark.place == Place::kOpen) open[SizeClass(mark.side)] += 1;
      if (mark.place != Place::kOpen && FitsDot(mark)) near[SizeClass(mark.side)] += 1;
    }
    isDustSize_.assign(open.size(), false);
    for (size_t i = 0; i < open.size(); ++i) {
      const double expected = Expected(Place::kNearText, open[i]) + Expected(Place::kAttached, open[i]);
      isDustSize_[i] =
          expected >= 1 && near[i] <= expected + speck::kDustDeviations * std::sqrt(expected) + 1;
    }
  }
  // Quarters of a pixel.
  static size_t SizeClass(double side) { return static_cast<size_t>(4 * side); }
  bool IsTooSmallForDots(const Mark& mark) const {
    return leastDot_ > 0 && mark.side < leastDot_ * mark.letterHeight && isDustSize_[SizeClass(mark.side)];
  }

  const Components& components_;
  const BitPlane& ink_;
  const BytePlane& grey_;
  const Pictures& pictures_;
  int width_, height_;
  double point_;
  int side_;                        // the longest of a speck, in pixels
  std::vector<uint32_t> markList_;  // components small enough for specks
  std::vector<Mark> marks_;         // the same
  std::vector<uint32_t> around_;    // work space: the letters around a mark
  int64_t places_[4] = {};          // of those looked at, by kind
  double leastDot_ = 0;  // smaller ones, in parts of the letters' height, are not like the page's dots
  std::vector<bool> isDustSize_;  // by class
  std::vector<Letter> letterList_;
  CellLists letters_;  // in all cells that their dots may stand in
  CellLists dots_;
  std::vector<Box> dotBoxes_;
  std::vector<uint32_t> dotList_;
};

}  // namespace

SpeckPlan PlanSpecks(const Components& components, const BitPlane& ink, const BytePlane& grey,
                     const Pictures& pictures, double pixelsPerPoint, double largest) {
  return Judge(components, ink, grey, pictures, pixelsPerPoint, largest).Plan();
}

}  // namespace rastrel::pages
