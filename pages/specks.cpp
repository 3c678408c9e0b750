#include "pages/specks.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

namespace rastrel::pages {
namespace {

struct Place {
  int x, y;
};

// ---- maps of a page ---------------------------------------------------------------------------------------

// A bit for each pixel, 64 to a word with the leftmost pixel highest, and nothing set around the page.
class BitMap {
 public:
  BitMap(int width, int height)
      : width_(width),
        height_(height),
        words_((static_cast<size_t>(width) + 63) / 64),
        bits_(words_ * static_cast<size_t>(height)) {}

  int width() const { return width_; }
  int height() const { return height_; }
  size_t words() const { return words_; }
  uint64_t* Row(int y) { return bits_.data() + static_cast<size_t>(y) * words_; }
  const uint64_t* Row(int y) const { return bits_.data() + static_cast<size_t>(y) * words_; }
  bool At(Place place) const {
    const auto [x, y] = place;
    return x >= 0 && y >= 0 && x < width_ && y < height_ &&
           (Row(y)[static_cast<size_t>(x) / 64] >> (63 - x % 64) & 1) != 0;
  }
  // 64 pixels of a row, from column x on, which may lie outside.
  uint64_t Bits(int x, int y) const {
    if (y < 0 || y >= height_) return 0;
    const int shift = x & 63;
    const int64_t word = (int64_t{x} - shift) / 64;
    const uint64_t* row = Row(y);
    const auto wordAt = [&](int64_t i) {
      return i < 0 || i >= static_cast<int64_t>(words_) ? 0 : row[static_cast<size_t>(i)];
    };
    return shift == 0 ? wordAt(word) : wordAt(word) << shift | wordAt(word + 1) >> (64 - shift);
  }

 private:
  int width_, height_;
  size_t words_;
  std::vector<uint64_t> bits_;
};

// The same with few bits set, of which only words that have some take memory.
class SparseBitMap {
 public:
  struct Word {
    int index;
    uint64_t bits;
  };

  explicit SparseBitMap(int height) : rows_(static_cast<size_t>(height)) {}

  const std::vector<Word>& Row(int y) const { return rows_[static_cast<size_t>(y)]; }
  void Add(int y, Word word) {
    std::vector<Word>& row = rows_[static_cast<size_t>(y)];
    const auto place = row.begin() + (From(row, word.index) - row.begin());
    if (place != row.end() && place->index == word.index) {
      place->bits |= word.bits;
    } else {
      row.insert(place, word);
    }
  }
  void Set(Place place) { Add(place.y, {place.x / 64, uint64_t{1} << (63 - place.x % 64)}); }
  bool At(Place place) const {
    const std::vector<Word>& row = Row(place.y);
    const auto word = From(row, place.x / 64);
    return word != row.end() && word->index == place.x / 64 && (word->bits >> (63 - place.x % 64) & 1) != 0;
  }
  // Whether any is set of columns `left` to `right` of a row, which may lie outside.
  bool HasAny(int y, int left, int right) const {
    left = std::max(left, 0);
    if (y < 0 || y >= static_cast<int>(rows_.size()) || left > right) return false;
    const std::vector<Word>& row = Row(y);
    for (auto word = From(row, left / 64); word != row.end() && word->index <= right / 64; ++word) {
      uint64_t bits = word->bits;
      if (word->index == left / 64) bits &= ~uint64_t{0} >> left % 64;
      if (word->index == right / 64) bits &= ~uint64_t{0} << (63 - right % 64);
      if (bits != 0) return true;
    }
    return false;
  }

 private:
  static std::vector<Word>::const_iterator From(const std::vector<Word>& row, int index) {
    return std::lower_bound(row.begin(), row.end(), index,
                            [](const Word& word, int wanted) { return word.index < wanted; });
  }

  std::vector<std::vector<Word>> rows_;
};

uint64_t EightBytes(const uint8_t* bytes) {
  uint64_t word = 0;
  std::memcpy(&word, bytes, sizeof(word));
  return std::endian::native == std::endian::little ? __builtin_bswap64(word) : word;
}

// The dark ones of 64 pixels. Greys are dark below 128: their highest bits are gathered by a multiplication.
uint64_t DarkOf64(const uint8_t* pixels, int bits) {
  if (bits == 1) return ~EightBytes(pixels);
  uint64_t dark = 0;
  for (int i = 0; i < 8; ++i) {
    const uint64_t flags = ~EightBytes(pixels + 8 * i) >> 7 & 0x0101010101010101;
    dark = dark << 8 | flags * 0x0102040810204080 >> 56;
  }
  return dark;
}

// Fills the words of a row with the dark pixels of a row of a page.
void DarkBits(const PageView& page, const uint8_t* row, uint64_t* words) {
  const auto width = static_cast<size_t>(page.width());
  const size_t wordBytes = page.bits() == 1 ? 8 : 64;
  for (size_t i = 0; i < width / 64; ++i) words[i] = DarkOf64(row + i * wordBytes, page.bits());
  const size_t rest = width % 64;
  if (rest == 0) return;
  std::array<uint8_t, 64> last{};
  std::memcpy(last.data(), row + width / 64 * wordBytes, page.bits() == 1 ? (rest + 7) / 8 : rest);
  words[width / 64] = DarkOf64(last.data(), page.bits()) & ~uint64_t{0} << (64 - rest);
}

// How much of strokes there is in each square of 8 x 8 pixels.
class StrokeMap {
 public:
  explicit StrokeMap(const BitMap& dark)
      : dark_(dark),
        across_(static_cast<int>(dark.words()) * 8),
        rows_(static_cast<size_t>((dark.height() + 7) / 8)) {}

  struct Strokes {
    int pixels = 0;  // with two dark neighbours at least
    int solid = 0;   // at the upper left of four dark pixels
  };
  // In the squares that reach into a box.
  Strokes In(int left, int top, int right, int bottom) {
    Strokes sum;
    const int firstColumn = std::max(left, 0) / 8, lastColumn = std::min(right, dark_.width() - 1) / 8;
    const int lastRow = std::min(bottom, dark_.height() - 1) / 8;
    for (int row = std::max(top, 0) / 8; row <= lastRow; ++row) {
      const Squares& squares = Row(row);
      for (int column = firstColumn; column <= lastColumn; ++column) {
        sum.pixels += squares.pixels[static_cast<size_t>(column)];
        sum.solid += squares.solid[static_cast<size_t>(column)];
      }
    }
    return sum;
  }

 private:
  struct Squares {
    std::vector<uint8_t> pixels, solid;
  };

  // Adds the bits set in each byte of a word, the leftmost first.
  static void AddCounts(uint64_t word, uint8_t* counts) {
    word = word - (word >> 1 & 0x5555555555555555);
    word = (word & 0x3333333333333333) + (word >> 2 & 0x3333333333333333);
    word = (word + (word >> 4)) & 0x0F0F0F0F0F0F0F0F;
    for (int i = 0; i < 8; ++i) counts[i] = static_cast<uint8_t>(counts[i] + (word >> (56 - 8 * i) & 0xFF));
  }

  // Counted when it is first asked for.
  const Squares& Row(int row) {
    Squares& squares = rows_[static_cast<size_t>(row)];
    if (!squares.pixels.empty()) return squares;
    squares.pixels.assign(static_cast<size_t>(across_), 0);
    squares.solid = squares.pixels;
    const std::vector<uint64_t> nothing(dark_.words(), 0);
    const auto rowOr = [&](int y) { return y < 0 || y >= dark_.height() ? nothing.data() : dark_.Row(y); };
    for (int y = row * 8; y < std::min(row * 8 + 8, dark_.height()); ++y) {
      const std::array<const uint64_t*, 3> lines = {rowOr(y - 1), rowOr(y), rowOr(y + 1)};
      for (size_t i = 0; i < dark_.words(); ++i) {
        if (lines[1][i] == 0) continue;
        const uint64_t here = lines[1][i];
        uint64_t one = 0, two = 0;  // with one neighbour at least, with two
        const auto add = [&](uint64_t neighbours) {
          two |= one & neighbours;
          one |= neighbours;
        };
        uint64_t right[3];
        for (size_t k = 0; k < 3; ++k) {
          const uint64_t before = i > 0 ? lines[k][i - 1] : 0;
          const uint64_t behind = i + 1 < dark_.words() ? lines[k][i + 1] : 0;
          add(lines[k][i] >> 1 | before << 63);
          right[k] = lines[k][i] << 1 | behind >> 63;
          add(right[k]);
          if (k != 1) add(lines[k][i]);
        }
        AddCounts(here & two, squares.pixels.data() + i * 8);
        AddCounts(here & right[1] & lines[2][i] & right[2], squares.solid.data() + i * 8);
      }
    }
    return squares;
  }

  const BitMap& dark_;
  int across_;
  std::vector<Squares> rows_;
};

// ---- groups -----------------------------------------------------------------------------------------------

constexpr size_t kSmallest = 12;  // pixels; larger groups are no specks

struct Box {
  int left, top, right, bottom;  // the last ones included

  int extent() const { return std::max(right - left, bottom - top) + 1; }
  // Twice its middle.
  Place middle2() const { return {left + right, top + bottom}; }
};

// Dark pixels that touch each other, a few.
struct Group {
  static constexpr size_t kMost = 40;
  std::array<Place, kMost> places;
  size_t size;
  Box box;

  const Place* begin() const { return places.data(); }
  const Place* end() const { return places.data() + size; }
};

// The group at a dark pixel, unless it has more than `most` pixels or reaches far.
bool Follow(const BitMap& dark, Place start, size_t most, Group* group) {
  constexpr int kReach = 15;
  std::array<uint32_t, 2 * kReach + 1> seen{};  // a bit for each place around the start
  seen[kReach] = 1u << kReach;
  group->places[0] = start;
  group->size = 1;
  Box& box = group->box;
  box = {start.x, start.y, start.x, start.y};
  for (size_t i = 0; i < group->size; ++i) {
    const auto [x, y] = group->places[i];
    for (int ny = y - 1; ny <= y + 1; ++ny) {
      const uint64_t row = dark.Bits(x - 1, ny);
      for (int nx = x - 1; nx <= x + 1; ++nx) {
        if ((row >> (62 - (nx - x)) & 1) == 0) continue;
        const int across = nx - start.x, down = ny - start.y;
        if (std::max(std::abs(across), std::abs(down)) > kReach) return false;
        uint32_t& line = seen[static_cast<size_t>(down + kReach)];
        const uint32_t bit = 1u << (across + kReach);
        if ((line & bit) != 0) continue;
        if (group->size == most) return false;
        line |= bit;
        group->places[group->size++] = {nx, ny};
        box = {std::min(box.left, nx), std::min(box.top, ny), std::max(box.right, nx),
               std::max(box.bottom, ny)};
      }
    }
  }
  return true;
}

// A group that the filter has taken.
struct Candidate {
  Place start;
  Box box;
};

// The dark pixels that the filter has made light.
SparseBitMap TakenPixels(const PageView& page, const Dib& filtered) {
  const PageView after(filtered);
  SparseBitMap taken(page.height());
  std::vector<uint64_t> dark((static_cast<size_t>(page.width()) + 63) / 64), rest(dark.size());
  for (int y = 0; y < page.height(); ++y) {
    if (std::memcmp(page.PageRow(y), after.PageRow(y), page.stride()) == 0) continue;
    DarkBits(page, page.PageRow(y), dark.data());
    DarkBits(page, after.PageRow(y), rest.data());
    for (size_t i = 0; i < dark.size(); ++i) {
      const uint64_t bits = dark[i] & ~rest[i];
      if (bits != 0) taken.Add(y, {static_cast<int>(i), bits});
    }
  }
  return taken;
}

// ---- what is no speck -------------------------------------------------------------------------------------

// The dots of small heavy type may be flat, but are close to something: a full stop to a letter, and the dot
// of an i or an exclamation mark to the stem below or above.
bool AlmostTouches(const Candidate& candidate, const BitMap& dark) {
  constexpr int kBeside = 3, kStem = 5;  // pixels
  const Box& box = candidate.box;
  Group group;
  for (int y = box.top - kStem; y <= box.bottom + kStem; ++y) {
    const bool isNear = y >= box.top - kBeside && y <= box.bottom + kBeside;
    const int first = box.left - (isNear ? kBeside : 1);
    const int count = box.right - box.left + 1 + 2 * (isNear ? kBeside : 1);
    for (uint64_t bits = dark.Bits(first, y) & ~uint64_t{0} << (64 - count); bits != 0; bits &= bits - 1) {
      if (!Follow(dark, {first + 63 - std::countr_zero(bits), y}, kSmallest, &group)) return true;
    }
  }
  return false;
}

// Full stops and the dots of i are no thinner than the strokes beside them. A group is a dot where those are
// about as thin as it is: less than two pixels.
bool IsBesideThinStrokes(const Candidate& candidate, StrokeMap* strokes, int reach) {
  constexpr int kLeastPixels = 6;
  constexpr double kThin = 0.45;  // 1 - 1 / t where strokes are t pixels thick
  const Box& box = candidate.box;
  const StrokeMap::Strokes there =
      strokes->In(box.left - reach, box.top - reach, box.right + reach, box.bottom + reach);
  return there.pixels >= kLeastPixels && there.solid <= kThin * there.pixels;
}

// Leaders and dotted rules: the next dot above, below or beside has a third at the same distance behind it,
// or on the other side of this one, and no others lie about.
class Rows {
 public:
  // Dots are looked for up to `furthest` pixels away.
  Rows(const BitMap& dark, const SparseBitMap& candidates, int furthest, int largestDot)
      : dark_(dark), candidates_(candidates), furthest_(furthest), largestDot_(largestDot) {}

  bool Have(const Candidate& candidate) const {
    const Place middle = candidate.box.middle2();
    for (const bool isDown : {false, true}) {
      for (const int direction : {-1, 1}) {
        Place hit = {0, 0};
        const bool isHit =
            isDown ? LookDown(candidate.box, direction, &hit) : LookAcross(candidate.box, direction, &hit);
        Group close;
        if (!isHit || !IsDot(hit, &close)) continue;
        const Place next = close.box.middle2();
        const Place step = {next.x - middle.x, next.y - middle.y};
        if ((HasDot({middle.x - step.x, middle.y - step.y}) || HasDot({next.x + step.x, next.y + step.y})) &&
            !IsCrowded(candidate.box, isDown, std::abs(isDown ? step.y : step.x) / 2)) {
          return true;
        }
      }
    }
    return false;
  }

 private:
  static constexpr int kSlope = 8;  // rows may rise or fall by a pixel in as many

  // The nearest dark pixel to the left or right.
  bool LookAcross(const Box& box, int direction, Place* hit) const {
    const int from = direction < 0 ? box.left - 1 : box.right + 1;
    const int middle = (box.top + box.bottom) / 2;
    const int widest = 1 + furthest_ / kSlope;
    int nearest = furthest_;
    for (int rise = -widest; rise <= widest; ++rise) {
      for (int i = std::max(0, std::abs(rise) - 1) * kSlope; i < nearest; i += 64) {
        const uint64_t bits =
            direction < 0 ? dark_.Bits(from - i - 63, middle + rise) : dark_.Bits(from + i, middle + rise);
        if (bits == 0) continue;
        const int away = i + (direction < 0 ? std::countr_zero(bits) : std::countl_zero(bits));
        if (away < nearest) {
          nearest = away;
          *hit = {from + direction * away, middle + rise};
        }
        break;
      }
    }
    return nearest < furthest_;
  }

  // The nearest dark pixel above or below.
  bool LookDown(const Box& box, int direction, Place* hit) const {
    constexpr int kWidest = 31;
    const int from = direction < 0 ? box.top - 1 : box.bottom + 1;
    const int middle = (box.left + box.right) / 2;
    for (int i = 0; i < furthest_; ++i) {
      const int half = std::min(1 + i / kSlope, kWidest);
      const int y = from + direction * i;
      const uint64_t bits = dark_.Bits(middle - half, y) & ~uint64_t{0} << (63 - 2 * half);
      if (bits == 0) continue;
      *hit = {middle - half + std::countl_zero(bits), y};
      return true;
    }
    return false;
  }

  bool IsDot(Place place, Group* group) const {
    return Follow(dark_, place, Group::kMost, group) && group->box.extent() <= largestDot_;
  }

  // Whether there is a dot about a place, which is given twice as large.
  bool HasDot(Place place2) const {
    constexpr int kOff = 2;  // pixels that dots may be off, as they fall between pixels
    for (int y = place2.y / 2 - kOff; y <= place2.y / 2 + kOff; ++y) {
      const int first = place2.x / 2 - kOff;
      const uint64_t bits = dark_.Bits(first, y) >> (63 - 2 * kOff);
      if (bits == 0) continue;
      Group group;
      return IsDot({first + 2 * kOff - std::countr_zero(bits), y}, &group);
    }
    return false;
  }

  // Whether there are others than those of the row, as there are among dust.
  bool IsCrowded(const Box& box, bool isDown, int distance) const {
    const int around = distance * 3 / 4, own = 2 + distance / kSlope;
    const auto isEmpty = [&](int left, int top, int right, int bottom) {
      for (int y = top; y <= bottom; ++y) {
        if (candidates_.HasAny(y, left, right)) return false;
      }
      return true;
    };
    const Box all = {box.left - around, box.top - around, box.right + around, box.bottom + around};
    return isDown ? !isEmpty(all.left, all.top, box.left - own - 1, all.bottom) ||
                        !isEmpty(box.right + own + 1, all.top, all.right, all.bottom)
                  : !isEmpty(all.left, all.top, all.right, box.top - own - 1) ||
                        !isEmpty(all.left, box.bottom + own + 1, all.right, all.bottom);
  }

  const BitMap& dark_;
  const SparseBitMap& candidates_;
  int furthest_, largestDot_;
};

// Dithered pictures and tints, by squares of the page. They have more dots than dust ever has, or evenly
// spread ones: among those of dust the nearest is by far nearer than the fourth. Where a picture grows pale
// its dots look like dust, so it goes on as far as there are some.
class Patterns {
 public:
  Patterns(const BitMap& dark, const std::vector<Candidate>& candidates, int cell)
      : cell_(cell),
        columns_(dark.width() / cell + 1),
        rows_(dark.height() / cell + 1),
        cells_(static_cast<size_t>(columns_) * static_cast<size_t>(rows_)),
        isPattern_(cells_.size()) {
    for (const Candidate& candidate : candidates) {
      cells_[CellOf(candidate)].push_back(candidate.box.middle2());
    }
    std::vector<Place> found;
    const auto add = [&](int column, int row) {
      isPattern_[Index(column, row)] = 1;
      found.push_back({column, row});
    };
    for (int row = 0; row < rows_; ++row) {
      for (int column = 0; column < columns_; ++column) {
        if (!At(column, row).empty() && IsDenseOrEven(column, row)) add(column, row);
      }
    }
    for (size_t i = 0; i < found.size(); ++i) {
      const Place from = found[i];
      ForEachAround(from.x, from.y, [&](int column, int row) {
        if (isPattern_[Index(column, row)] == 0 && DotsAround(column, row).size() >= kLeast) add(column, row);
      });
    }
  }

  bool Has(const Candidate& candidate) const { return isPattern_[CellOf(candidate)] != 0; }

 private:
  static constexpr size_t kLeast = 12;  // dots to tell by

  size_t Index(int column, int row) const {
    return static_cast<size_t>(row) * static_cast<size_t>(columns_) + static_cast<size_t>(column);
  }
  size_t CellOf(const Candidate& candidate) const {
    return Index(candidate.start.x / cell_, candidate.start.y / cell_);
  }
  const std::vector<Place>& At(int column, int row) const { return cells_[Index(column, row)]; }

  template <class Visit>
  void ForEachAround(int column, int row, Visit visit) const {
    for (int r = std::max(row - 1, 0); r <= std::min(row + 1, rows_ - 1); ++r) {
      for (int c = std::max(column - 1, 0); c <= std::min(column + 1, columns_ - 1); ++c) visit(c, r);
    }
  }
  std::vector<Place> DotsAround(int column, int row) const {
    std::vector<Place> dots;
    ForEachAround(column, row,
                  [&](int c, int r) { dots.insert(dots.end(), At(c, r).begin(), At(c, r).end()); });
    return dots;
  }

  bool IsDenseOrEven(int column, int row) const {
    constexpr size_t kAsked = 12;    // at most, of those in the cell
    constexpr double kDense = 0.03;  // of the pixels
    constexpr double kEven = 0.5;    // the squares of the distances, one to the other; 1/4 for dust
    const std::vector<Place>& own = At(column, row);
    if (static_cast<double>(own.size()) > kDense * cell_ * cell_) return true;
    const std::vector<Place> around = DotsAround(column, row);
    if (around.size() < kLeast) return false;
    double sum = 0;
    size_t asked = 0;
    for (const auto& [x, y] : own.size() < kLeast ? around : own) {
      if (asked == kAsked) break;
      ++asked;
      std::array<int64_t, 5> nearest;  // the first is the dot itself
      nearest.fill(INT64_MAX);
      for (const auto& [otherX, otherY] : around) {
        const int64_t dx = otherX - x, dy = otherY - y;
        int64_t distance = dx * dx + dy * dy;
        for (int64_t& kept : nearest) {
          if (distance < kept) std::swap(distance, kept);
        }
      }
      sum += static_cast<double>(nearest[1]) / static_cast<double>(nearest[4]);
    }
    return sum >= kEven * static_cast<double>(asked);
  }

  int cell_;
  int columns_, rows_;
  std::vector<std::vector<Place>> cells_;  // twice the middles of the dots
  std::vector<uint8_t> isPattern_;
};

}  // namespace

SpeckCount EraseSpecks(const Dib& dib, Dib filtered, Ink ground) {
  constexpr double kNear = 2, kFurthest = 6, kLargestDot = 0.6, kCell = 4;  // millimetres
  const PageView page(dib);
  // Specks are a few pixels large: where a page says that these are tiny, no further than this is looked.
  constexpr int kMostResolution = 1200 * 10000 / 254;  // a metre
  const int resolution = std::min(page.resolution().x, kMostResolution);
  const auto toPixels = [resolution](double millimetres) {
    return static_cast<int>(std::lround(millimetres / 1000 * resolution));
  };
  const SparseBitMap taken = TakenPixels(page, filtered);
  std::optional<PageView> after;
  if (page.bits() == 1) {
    filtered.Reset();
  } else {
    after.emplace(filtered);
  }
  BitMap dark(page.width(), page.height());
  for (int y = 0; y < page.height(); ++y) DarkBits(page, page.PageRow(y), dark.Row(y));

  std::vector<Candidate> candidates;
  SparseBitMap dots(page.height());  // their pixels
  Group group;
  for (int y = 0; y < page.height(); ++y) {
    for (const auto& [index, bits] : taken.Row(y)) {
      for (uint64_t word = bits; word != 0; word &= word - 1) {
        const Place start = {index * 64 + 63 - std::countr_zero(word), y};
        if (dots.At(start) || !Follow(dark, start, kSmallest, &group)) continue;
        const auto count =
            std::count_if(group.begin(), group.end(), [&](Place place) { return taken.At(place); });
        if (2 * static_cast<size_t>(count) <= group.size) continue;
        candidates.push_back({start, group.box});
        for (const Place& place : group) dots.Set(place);
      }
    }
  }

  StrokeMap strokes(dark);
  const Patterns patterns(dark, candidates, std::max(toPixels(kCell), 16));
  const Rows rows(dark, dots, toPixels(kFurthest), std::max(toPixels(kLargestDot), 3));
  SpeckCount result;
  for (const Candidate& candidate : candidates) {
    if (patterns.Has(candidate) || IsBesideThinStrokes(candidate, &strokes, toPixels(kNear)) ||
        AlmostTouches(candidate, dark) || rows.Have(candidate)) {
      continue;
    }
    Follow(dark, candidate.start, kSmallest, &group);
    ++result.specks;
    for (const auto& [x, y] : group) {
      if (page.bits() == 1 || !taken.At({x, y})) {
        PaintRow(page, y, x, x + 1, ground);
      } else {
        page.PageRow(y)[x] = after->PageRow(y)[x];
      }
      ++result.pixels;
    }
  }
  return result;
}

}  // namespace rastrel::pages
