#include "pages/safeguards.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <numeric>

#include "pixels/kernels.h"

namespace rastrel::pages {
namespace {

constexpr int kDark = 128;  // brightness below which the cleanup operations see a pixel as dark

int ToPixels(double millimetres, const PageView& page) {
  return static_cast<int>(std::lround(millimetres / 1000 * page.resolution().x));
}

// ---- borders ----------------------------------------------------------------------------------------------

// How far the painting reaches in from one end of a row. A lone light pixel in a margin may have been white
// before.
int PaintedRun(const PageView& page, const uint8_t* before, const uint8_t* after, bool fromLeft) {
  const int allowed = page.bits() == 1 ? 0 : 1;
  const int width = page.width();
  int run = 0;
  int unchanged = 0;
  for (int i = 0; i < width && unchanged <= allowed; ++i) {
    if (SamePixel(page, before, after, fromLeft ? i : width - 1 - i)) {
      ++unchanged;
    } else {
      unchanged = 0;
      run = i + 1;
    }
  }
  return run;
}

// How far in each row belongs to something at least `reach` rows tall. A border's rows may be cut short here
// and there by light specks, so three rows in ten of any `reach` may be shorter. Beyond the page's ends a
// margin counts as going on.
std::vector<int> TallRuns(const std::vector<int>& runs, int reach) {
  const int count = static_cast<int>(runs.size());
  std::vector<int> tall(runs.size(), 0);
  if (std::all_of(runs.begin(), runs.end(), [](int run) { return run == 0; })) return tall;
  std::vector<int> window;  // sorted
  const auto placeOf = [&](int run) { return std::lower_bound(window.begin(), window.end(), run); };
  for (int first = 1 - reach; first < count; ++first) {
    const int from = std::max(0, first);
    const int to = std::min(count, first + reach);
    const int* const leaving = first > 0 ? &runs[static_cast<size_t>(first - 1)] : nullptr;
    const int* const entering = first + reach <= count ? &runs[static_cast<size_t>(to - 1)] : nullptr;
    if (leaving == nullptr || entering == nullptr || *leaving != *entering) {
      if (leaving != nullptr) window.erase(placeOf(*leaving));
      if (entering != nullptr) window.insert(placeOf(*entering), *entering);
    }
    const int low = window[static_cast<size_t>((to - from) * 3 / 10)];
    if (low == 0) continue;
    for (int y = from; y < to; ++y)
      tall[static_cast<size_t>(y)] = std::max(tall[static_cast<size_t>(y)], low);
  }
  return tall;
}

// The part of each painted run that is border: as far as it is tall, and a little beyond, where a slanted
// border grows from row to row. A few dark pixels in a corner are none.
std::vector<int> BorderRuns(const std::vector<int>& runs, const PageView& page) {
  constexpr double kLeastHeightMm = 6;  // taller than a line of text
  constexpr double kBeyondMm = 1.5;
  constexpr double kLeastSideMm = 0.7;  // of a square as large as the smallest border
  const int beyond = ToPixels(kBeyondMm, page);
  std::vector<int> border = TallRuns(runs, std::max(2, ToPixels(kLeastHeightMm, page)));
  for (size_t y = 0; y < runs.size(); ++y) {
    border[y] = border[y] == 0 ? 0 : std::min(runs[y], border[y] + beyond);
  }
  const int side = ToPixels(kLeastSideMm, page);
  for (auto first = border.begin(); first != border.end();) {
    const auto last = std::find(first, border.end(), 0);
    if (std::accumulate(first, last, int64_t{0}) < int64_t{side} * side) std::fill(first, last, 0);
    first = std::find_if(last, border.end(), [](int run) { return run != 0; });
  }
  return border;
}

// A border begins in a corner or goes along much of the page. What stands between is a tab or a picture.
void KeepAtCorners(std::vector<int>* runs) {
  constexpr std::ptrdiff_t kLong = 4;  // in one: the part of the page's height
  const auto height = static_cast<std::ptrdiff_t>(runs->size());
  for (auto first = runs->begin(); first != runs->end();) {
    const auto last = std::find(first, runs->end(), 0);
    const bool isAtCorner = first == runs->begin() || last == runs->end();
    if (!isAtCorner && (last - first) * kLong < height) std::fill(first, last, 0);
    first = std::find_if(last, runs->end(), [](int run) { return run != 0; });
  }
}

// Lets borders take their soft edge along: what is neither as dark as they are nor as light as the ground.
// Where an edge is nearly level, rows beside the border have some of it as well.
void AddSoftEdge(const PageView& page, Ink ground, bool fromLeft, std::vector<int>* runs) {
  constexpr double kSoftMm = 0.6;
  constexpr double kAlongMm = 5;  // how far such a row may run along the edge
  constexpr int kNearGround = 12;
  if (page.bits() == 1) return;
  const std::vector<uint8_t> table = BrightnessTable(page);
  const int groundBrightness =
      page.bits() == 24 ? (ground.bytes[0] + ground.bytes[1] + ground.bytes[2]) / 3 : table[ground.bytes[0]];
  const int soft = std::max(3, ToPixels(kSoftMm, page));
  const int along = ToPixels(kAlongMm, page);
  const std::vector<int> borders = *runs;
  for (int y = 0; y < page.height(); ++y) {
    const auto first = borders.begin() + std::max(0, y - soft);
    const int nearest = *std::max_element(first, borders.begin() + std::min(page.height(), y + soft + 1));
    const int end = nearest == 0 ? 0 : std::min(page.width(), nearest + along);
    int& run = (*runs)[static_cast<size_t>(y)];
    for (int i = run; i < end; ++i) {
      const int x = fromLeft ? i : page.width() - 1 - i;
      uint8_t brightness = 0;
      RowBrightness(page, table, y, x, x + 1, &brightness);
      if (brightness >= groundBrightness - kNearGround) break;
      run = i + 1;
    }
  }
}

// A scanner's background is evenly dark. A picture that bleeds off the page is not, and what is deep enough
// for one is looked at. 1-bit pictures are not dark in one piece.
bool LooksLikePicture(const PageView& page, const std::vector<int>& runs, bool fromLeft) {
  constexpr double kDeep = 0.04;  // of the page's width, on average where there is a margin
  constexpr double kUneven = 15;  // standard deviation of brightness
  constexpr int kBorder = 100;    // the brightness below which margins are painted
  double depth = 0, rows = 0;
  for (const int run : runs) {
    depth += run;
    rows += run > 0;
  }
  if (page.bits() == 1 || rows == 0 || depth < kDeep * page.width() * rows) return false;
  const std::vector<uint8_t> table = BrightnessTable(page);
  std::vector<uint8_t> row(static_cast<size_t>(page.width()));
  double count = 0, sum = 0, squares = 0;
  for (int y = 0; y < page.height(); y += 4) {
    const int run = runs[static_cast<size_t>(y)];
    const int from = fromLeft ? 0 : page.width() - run;
    RowBrightness(page, table, y, from, from + run, row.data());
    for (int i = 0; i < run; ++i) {
      const double value = row[static_cast<size_t>(i)];
      if (value >= kBorder) continue;
      ++count;
      sum += value;
      squares += value * value;
    }
  }
  if (count == 0) return false;
  const double mean = sum / count;
  return std::sqrt(std::max(0.0, squares / count - mean * mean)) > kUneven;
}

// ---- darkness ---------------------------------------------------------------------------------------------

struct Shades {
  int64_t dark = 0, all = 0;

  Shades& operator+=(const Shades& other) {
    dark += other.dark;
    all += other.all;
    return *this;
  }
  Shades& operator-=(const Shades& other) {
    dark -= other.dark;
    all -= other.all;
    return *this;
  }
};

// The bits of every fourth pixel that are set in bytes.
int CountFourths(const uint8_t* row, int bytes) {
  constexpr uint64_t kFourths = 0x8888888888888888;
  int count = 0;
  for (; bytes >= 8; bytes -= 8, row += 8) {
    uint64_t eight;
    std::memcpy(&eight, row, sizeof eight);
    count += std::popcount(eight & kFourths);
  }
  for (; bytes > 0; --bytes, ++row) count += (*row >> 7) + (*row >> 3 & 1);
  return count;
}

// Of every fourth pixel of a row, from a column up to another.
Shades ShadesOf(const PageView& page, const std::vector<uint8_t>& table, int y, int from, int to) {
  const uint8_t* row = page.PageRow(y);
  const int first = (from + 3) / 4, last = to / 4 + (to % 4 != 0);
  if (first >= last) return {};
  Shades shades = {0, last - first};
  if (page.bits() == 8) {
    for (int i = first; i < last; ++i) shades.dark += table[row[4 * i]] < kDark;
    return shades;
  }
  if (page.bits() == 24) {
    for (int i = first; i < last; ++i) {
      const uint8_t* pixel = row + 12 * static_cast<size_t>(i);
      shades.dark += pixel[0] + pixel[1] + pixel[2] < 3 * kDark;  // the third of which is the brightness
    }
    return shades;
  }
  if (page.bits() != 1) {
    for (int i = first; i < last; ++i) shades.dark += Brightness(page, table, row, 4 * i) < kDark;
    return shades;
  }
  int64_t ones = 0;
  int i = first;
  if (i % 2 != 0) ones += row[i++ / 2] >> 3 & 1;
  if (i + 1 < last) {
    const int bytes = (last - i) / 2;
    ones += Widest<CountFourths>(row + i / 2, bytes);
    i += 2 * bytes;
  }
  if (i < last) ones += row[i / 2] >> 7;
  if (table[0] < kDark) shades.dark += shades.all - ones;
  if (table[1] < kDark) shades.dark += ones;
  return shades;
}

}  // namespace

bool IsDarkPage(const Dib& dib) {
  constexpr double kMostly = 0.6;
  const PageView page(dib);
  const std::vector<uint8_t> table = BrightnessTable(page);
  const int width = page.width(), height = page.height();
  // The first and second tenth of the page from an edge; what lies in the second does not count.
  const auto firstTenth = [](int size) { return static_cast<int>((int64_t{size} + 9) / 10); };
  const auto secondTenth = [](int size) { return static_cast<int>((int64_t{size} * 2 + 9) / 10); };
  Shades around, middle;
  for (int y = 0; y < height; y += 8) {
    const int fromEdge = std::min(y, height - 1 - y);
    around += ShadesOf(page, table, y, 0, width);
    if (fromEdge < firstTenth(height)) continue;
    around -= ShadesOf(page, table, y, firstTenth(width), width - firstTenth(width));
    if (fromEdge < secondTenth(height)) continue;
    middle += ShadesOf(page, table, y, secondTenth(width), width - secondTenth(width));
  }
  const auto isMostlyDark = [](const Shades& part) {
    return static_cast<double>(part.dark) > kMostly * static_cast<double>(part.all);
  };
  return isMostlyDark(around) && isMostlyDark(middle);
}

void AddPaintedRuns(const PageView& page, const Dib& source, const Dib& trimmed, int from, int to,
                    PaintedRuns* runs) {
  const PageView before(source);
  const PageView after(trimmed);
  for (int y = from; y < to; ++y) {
    const uint8_t* old = before.PageRow(y);
    const uint8_t* painted = after.PageRow(y);
    const bool isPainted = std::memcmp(old, painted, page.stride()) != 0;
    runs->left.push_back(isPainted ? PaintedRun(page, old, painted, true) : 0);
    runs->right.push_back(isPainted ? PaintedRun(page, old, painted, false) : 0);
  }
}

BorderResult PaintBorders(const Dib& dib, const PaintedRuns& runs, Ink ground) {
  const PageView page(dib);
  const auto height = static_cast<size_t>(page.height());
  std::vector<int> left = BorderRuns(runs.left, page), right = BorderRuns(runs.right, page);
  BorderResult result;
  result.isPictureLeft = LooksLikePicture(page, left, true);
  result.isPictureRight = LooksLikePicture(page, right, false);
  if (result.isPictureLeft) left.assign(height, 0);
  if (result.isPictureRight) right.assign(height, 0);
  KeepAtCorners(&left);
  KeepAtCorners(&right);
  constexpr int64_t kMost = 3;  // in one: the part of the page
  const int64_t area = std::accumulate(left.begin(), left.end(), int64_t{0}) +
                       std::accumulate(right.begin(), right.end(), int64_t{0});
  if (area * kMost > int64_t{page.width()} * page.height()) {
    result.isTooMuch = true;
    return result;
  }
  AddSoftEdge(page, ground, true, &left);
  AddSoftEdge(page, ground, false, &right);
  for (int y = 0; y < page.height(); ++y) {
    const int fromLeft = left[static_cast<size_t>(y)];
    const int fromRight = std::max(fromLeft, page.width() - right[static_cast<size_t>(y)]);
    PaintRow(page, y, 0, fromLeft, ground);
    PaintRow(page, y, fromRight, page.width(), ground);
    result.left += fromLeft;
    result.right += page.width() - fromRight;
  }
  return result;
}

}  // namespace rastrel::pages
