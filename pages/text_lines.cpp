// How lines are found:
//
//   1. The ink is counted in cells, eight times as wide as high, at four sizes:
//   the smallest resolve small
//      print, the largest headlines.
//   2. For parts of the page by themselves, what is summed along lines of one
//   slope changes most sharply where
//      that is the slope of the part's text. So each part has a slope of its
//      own, and what has none takes that of its neighbours.
//   3. Along those slopes each strip is blurred with its neighbours, so that
//   letters and words run together
//      and gaps between lines do not. What is left are ridges; those of
//      neighbouring strips are joined.
#include "pages/text_lines.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <utility>

#include "pixels/kernels.h"

namespace rastrel::pages {
namespace {

// ---- cells
// ------------------------------------------------------------------------------------------------

constexpr int kCellWidth = 8;  // heights of a cell

// How full of ink the cells of a page are, strip by strip from left to right,
// each from top to bottom.
struct Cells {
  int size = 0;  // pixels, of a cell's height
  int strips = 0, rows = 0;
  int pad = 0;  // cells of 0 above and below each strip
  std::vector<uint8_t> values;

  Cells(int cellSize, int stripCount, int rowCount, int padding)
      : size(cellSize),
        strips(stripCount),
        rows(rowCount),
        pad(padding),
        values(static_cast<size_t>(stripCount) * static_cast<size_t>(rowCount + 2 * padding), 0) {}
  uint8_t* Strip(int index) {
    return values.data() + static_cast<size_t>(index) * static_cast<size_t>(rows + 2 * pad) + pad;
  }
  const uint8_t* Strip(int index) const { return const_cast<Cells*>(this)->Strip(index); }
};

// The set bits of each byte.
uint64_t CountInBytes(uint64_t word) {
  word -= word >> 1 & 0x5555555555555555;
  word = (word & 0x3333333333333333) + (word >> 2 & 0x3333333333333333);
  return (word + (word >> 4)) & 0x0F0F0F0F0F0F0F0F;
}

int PadFor(int strips, double mostSlope) { return static_cast<int>(mostSlope * kCellWidth * strips) + 4; }

// Adds the set bits of each byte of a row.
void AddCounts(const uint64_t* __restrict row, size_t words, uint64_t* __restrict counts) {
  for (size_t k = 0; k < words; ++k) counts[k] += CountInBytes(row[k]);
}

// Puts the cells of one row, of which one lies a stride behind the other, from the counts of groups of eight
// columns. The size of usual pages is known to the compiler.
template <int kSize>
void PutCells(const uint8_t* group, int usedSize, unsigned factor, int strips, size_t stride, uint8_t* cell) {
  const int size = kSize > 0 ? kSize : usedSize;
  for (int strip = 0; strip < strips; ++strip, cell += stride) {
    unsigned sum = 0;
    for (int i = 0; i < size; ++i) sum += *group++;
    *cell = static_cast<uint8_t>(sum * factor >> 16);
  }
}

Cells CountCells(const BitPlane& ink, int size, double mostSlope) {
  const int strips = ink.width() / (kCellWidth * size), rows = ink.height() / size;
  Cells cells(size, strips, rows, PadFor(strips, mostSlope));
  const unsigned factor = 255u * 65536 / static_cast<unsigned>(kCellWidth * size * size);
  std::vector<uint64_t> counts(ink.wordsPerRow());
  std::vector<uint8_t> groups(ink.wordsPerRow() * 8);
  const size_t stride = static_cast<size_t>(rows + 2 * cells.pad);
  const auto put = size == 2 ? PutCells<2> : size == 1 ? PutCells<1> : PutCells<0>;
  for (int y = 0; y < rows; ++y) {
    std::fill(counts.begin(), counts.end(), 0);
    for (int i = 0; i < size; ++i) Widest<AddCounts>(ink.Row(y * size + i), counts.size(), counts.data());
    for (size_t k = 0; k < counts.size(); ++k) {
      const uint64_t leftFirst =
          std::endian::native == std::endian::little ? __builtin_bswap64(counts[k]) : counts[k];
      std::memcpy(groups.data() + k * 8, &leftFirst, 8);
    }
    put(groups.data(), size, factor, strips, stride, cells.Strip(0) + y);
  }
  return cells;
}

Cells Halve(const Cells& from, double mostSlope) {
  const int strips = from.strips / 2, rows = from.rows / 2;
  Cells cells(from.size * 2, strips, rows, PadFor(strips, mostSlope));
  for (int strip = 0; strip < strips; ++strip) {
    const uint8_t *a = from.Strip(2 * strip), *b = from.Strip(2 * strip + 1);
    uint8_t* const to = cells.Strip(strip);
    for (int y = 0; y < rows; ++y)
      to[y] = static_cast<uint8_t>((a[2 * y] + a[2 * y + 1] + b[2 * y] + b[2 * y + 1] + 2) >> 2);
  }
  return cells;
}

// std::floor, which is a call on processors that are not known to have it.
int RoundedDown(double value) {
  const int whole = static_cast<int>(value);
  return whole - (value < whole);
}

// ---- the slopes of parts
// ----------------------------------------------------------------------------------

constexpr int kMostSections = 8;  // of the page's width
constexpr int kMostBands = 12;    // of its height
constexpr int kLeastStripsOfSection = 6;
constexpr int kLeastRowsOfBand = 48;

void AddCells(const uint8_t* __restrict cells, int count, int32_t* __restrict sums) {
  for (int y = 0; y < count; ++y) sums[y] += cells[y];
}

// The squares of the steps from each value before to the next, summed up.
int64_t SquareSteps(const int32_t* values, int count) {
  int64_t sum = 0;
  for (int y = 0; y < count; ++y) {
    const int32_t step = values[y] - values[y - 1];
    sum += static_cast<int64_t>(step) * step;
  }
  return sum;
}

// What speaks for each slope in each part of the page.
class SlopeField {
 public:
  SlopeField(const std::vector<Cells>& levels, double mostSlope)
      : sections_(std::clamp(levels[0].strips / kLeastStripsOfSection, 1, kMostSections)),
        bands_(std::clamp(levels[0].rows / kLeastRowsOfBand, 1, kMostBands)) {
    // From slope to slope a line through a section moves by a cell of the
    // second size at its ends.
    const double arm = kCellWidth * static_cast<double>(levels[0].strips) / sections_ / 4;
    steps_ = std::clamp(static_cast<int>(mostSlope * arm) + 1, 4, 64);
    step_ = mostSlope / steps_;
    evidence_.assign(static_cast<size_t>(sections_ * bands_ * Count()), 0);
    constexpr int kMostRows = 1000;  // what has more is the finer half of the same
    for (const Cells& cells : levels) {
      if (cells.rows > kMostRows && levels.size() > 1 && &cells == levels.data()) continue;
      if (cells.strips >= 2 * sections_ && cells.rows >= 8 * bands_) Add(cells);
    }
    Settle();
  }

  // At a place of the page, from 0 to 1 across and down.
  double At(double across, double down) const {
    const double x = std::clamp(across * sections_ - 0.5, 0.0, sections_ - 1.0);
    const double y = std::clamp(down * bands_ - 0.5, 0.0, bands_ - 1.0);
    const int s = std::min(static_cast<int>(x), std::max(0, sections_ - 2));
    const int b = std::min(static_cast<int>(y), std::max(0, bands_ - 2));
    const int s1 = std::min(s + 1, sections_ - 1), b1 = std::min(b + 1, bands_ - 1);
    const double u = x - s, v = y - b;
    return (1 - v) * ((1 - u) * Slope(s, b) + u * Slope(s1, b)) +
           v * ((1 - u) * Slope(s, b1) + u * Slope(s1, b1));
  }

 private:
  int Count() const { return 2 * steps_ + 1; }
  double* Evidence(int section, int band) {
    return evidence_.data() + static_cast<size_t>((section * bands_ + band) * Count());
  }
  double Slope(int section, int band) const { return slopes_[static_cast<size_t>(section * bands_ + band)]; }

  // How much more sharply a part's sums change along each slope than along a
  // usual one, in units of what chance makes of it.
  void Add(const Cells& cells) {
    std::vector<int32_t> sums(static_cast<size_t>(cells.rows));
    std::vector<double> curves(static_cast<size_t>(sections_ * bands_ * Count()));
    for (int section = 0; section < sections_; ++section) {
      const int first = cells.strips * section / sections_, end = cells.strips * (section + 1) / sections_;
      for (int i = 0; i < Count(); ++i) {
        std::fill(sums.begin(), sums.end(), 0);
        const double slope = (i - steps_) * step_;
        for (int strip = first; strip < end; ++strip) {
          const double across = (strip - (first + end - 1) / 2.0) * kCellWidth;
          const uint8_t* const from = cells.Strip(strip) + RoundedDown(0.5 - slope * across);
          Widest<AddCells>(from, cells.rows, sums.data());
        }
        for (int band = 0; band < bands_; ++band) {
          const int firstRow = std::max(1, cells.rows * band / bands_);
          const int endRow = cells.rows * (band + 1) / bands_;
          const int64_t sharpness = Widest<SquareSteps>(sums.data() + firstRow, endRow - firstRow);
          curves[static_cast<size_t>((section * bands_ + band) * Count() + i)] =
              static_cast<double>(sharpness);
        }
      }
    }
    std::vector<double> sorted(static_cast<size_t>(Count()));
    const double chance = std::sqrt(static_cast<double>(cells.rows) / bands_);
    for (size_t part = 0; part < static_cast<size_t>(sections_ * bands_); ++part) {
      const double* const curve = curves.data() + part * static_cast<size_t>(Count());
      std::copy_n(curve, Count(), sorted.begin());
      std::nth_element(sorted.begin(), sorted.begin() + steps_, sorted.end());
      const double usual = sorted[static_cast<size_t>(steps_)];
      if (usual <= 0) continue;
      double* const evidence = evidence_.data() + part * static_cast<size_t>(Count());
      for (int i = 0; i < Count(); ++i) evidence[i] += (curve[i] / usual - 1) * chance;
    }
  }

  // Each part's slope is where it and its neighbours together have their peak;
  // the whole page counts a little, for parts without text.
  void Settle() {
    std::vector<double> whole(static_cast<size_t>(Count()), 0);
    for (size_t i = 0; i < evidence_.size(); ++i) whole[i % whole.size()] += std::max(0.0, evidence_[i]);
    const double share = 0.3 / (sections_ * bands_);
    std::vector<double> sum(static_cast<size_t>(Count()));
    slopes_.resize(static_cast<size_t>(sections_ * bands_));
    for (int section = 0; section < sections_; ++section) {
      for (int band = 0; band < bands_; ++band) {
        for (size_t i = 0; i < whole.size(); ++i) sum[i] = whole[i] * share;
        for (int s = std::max(0, section - 1); s <= std::min(sections_ - 1, section + 1); ++s) {
          for (int b = std::max(0, band - 1); b <= std::min(bands_ - 1, band + 1); ++b) {
            const double weight = (s == section ? 2 : 1) * (b == band ? 2 : 1);
            const double* const evidence = Evidence(s, b);
            for (size_t i = 0; i < sum.size(); ++i) sum[i] += weight * evidence[i];
          }
        }
        const auto best = static_cast<int>(std::max_element(sum.begin(), sum.end()) - sum.begin());
        double offset = 0;
        if (best > 0 && best < Count() - 1) {
          const double left = sum[static_cast<size_t>(best - 1)], right = sum[static_cast<size_t>(best + 1)];
          const double bend = left - 2 * sum[static_cast<size_t>(best)] + right;
          if (bend < 0) offset = (left - right) / 2 / bend;
        }
        slopes_[static_cast<size_t>(section * bands_ + band)] = (best - steps_ + offset) * step_;
      }
    }
  }

  int sections_, bands_;
  int steps_ = 0;
  double step_ = 0;
  std::vector<double> evidence_;  // by section, band and slope
  std::vector<double> slopes_;    // by section and band
};

// ---- ridges
// -----------------------------------------------------------------------------------------------

constexpr int kBlurStrips = 3;  // to either side
constexpr int kBlurWeight = (kBlurStrips + 1) * (kBlurStrips + 1);

constexpr int kBlurRows = 16;  // that share a slope

// One block of a blurred strip: the same rows of the strips around, the nearer the more. `kRows` is the
// block's height where it is whole. The sums are below 16 * 255.
using BlurredStrips = std::array<const uint8_t*, 2 * kBlurStrips + 1>;  // null beyond the page
template <int kRows>
void BlurBlock(const BlurredStrips& strips, int usedRows, int32_t* blurred) {
  const int rows = kRows > 0 ? kRows : usedRows;
  std::array<uint16_t, kBlurRows> sums = {};
  for (int i = 0; i <= 2 * kBlurStrips; ++i) {
    const uint8_t* const from = strips[static_cast<size_t>(i)];
    if (from == nullptr) continue;
    const auto weight = static_cast<uint16_t>(kBlurStrips + 1 - std::abs(i - kBlurStrips));
    for (int y = 0; y < rows; ++y) {
      uint16_t& sum = sums[static_cast<size_t>(y)];
      sum = static_cast<uint16_t>(sum + weight * from[y]);
    }
  }
  for (int y = 0; y < rows; ++y) blurred[y] = sums[static_cast<size_t>(y)];
}

// A strip, and those next to it shifted along the lines' slope.
void BlurAlongLines(const Cells& cells, const SlopeField& field, int strip, std::vector<int32_t>* blurred) {
  for (int top = 0; top < cells.rows; top += kBlurRows) {
    const int rows = std::min(cells.rows - top, kBlurRows);
    const double slope = field.At((strip + 0.5) / cells.strips, (top + kBlurRows / 2.0) / cells.rows);
    BlurredStrips strips = {};
    for (int i = -kBlurStrips; i <= kBlurStrips; ++i) {
      if (strip + i < 0 || strip + i >= cells.strips) continue;
      const int shift = RoundedDown(0.5 - slope * i * kCellWidth);
      strips[static_cast<size_t>(i + kBlurStrips)] = cells.Strip(strip + i) + shift + top;
    }
    int32_t* const to = blurred->data() + top;
    rows == kBlurRows ? BlurBlock<kBlurRows>(strips, rows, to) : BlurBlock<0>(strips, rows, to);
  }
}

// Smoothed by 1 4 6 4 1. `values` are two more on either side.
void SmoothRows(const int32_t* __restrict values, int count, int32_t* __restrict smooth) {
  for (int y = 0; y < count; ++y) {
    smooth[y] =
        (values[y - 2] + values[y + 2] + 4 * (values[y - 1] + values[y + 1]) + 6 * values[y] + 8) >> 4;
  }
}

// The same of a whole strip, which goes on as it begins and ends.
void SmoothDown(std::vector<int32_t>* values, std::vector<int32_t>* scratch) {
  constexpr int kReach = 2;
  const int rows = static_cast<int>(values->size());
  if (rows > 2 * kReach)
    Widest<SmoothRows>(values->data() + kReach, rows - 2 * kReach, scratch->data() + kReach);
  for (int y = 0; y < rows; ++y) {
    if (y == kReach && rows > 2 * kReach) y = rows - kReach;
    std::array<int32_t, 2 * kReach + 1> around;
    for (int i = -kReach; i <= kReach; ++i)
      around[static_cast<size_t>(i + kReach)] =
          (*values)[static_cast<size_t>(std::clamp(y + i, 0, rows - 1))];
    SmoothRows(around.data() + kReach, 1, scratch->data() + y);
  }
  values->swap(*scratch);
}

struct Ridge {
  double top, bottom;  // in cells
  bool hasInk;         // in the strip itself, not only in those next to it
  double height() const { return bottom - top; }
  double middle() const { return (top + bottom) / 2; }
};

// Where values fall through `level` between y and y + step, on the way from
// inside out.
double Crossing(const std::vector<int32_t>& values, int y, int step, double level) {
  const double here = values[static_cast<size_t>(y)], next = values[static_cast<size_t>(y + step)];
  return y + 0.5 + step * (here > next ? std::clamp((here - level) / (here - next), 0.0, 1.0) : 0.5);
}

// The ridges of a strip: tops between which the values fall to less than a
// share of the lower top.
void FindRidges(const std::vector<int32_t>& values, const uint8_t* own, std::vector<Ridge>* ridges) {
  constexpr int kOwnShare = 3;     // the strip itself has at least one part in so many of its usual share
  constexpr double kValley = 0.7;  // of the top next to it
  constexpr int kLeastTop = 80;    // about 2 % of what is full of ink
  const int rows = static_cast<int>(values.size());
  struct Extreme {
    int top, valleyBefore;
  };
  ridges->clear();
  std::vector<Extreme> tops;
  int top = -1, valley = 0;
  const auto at = [&values](int y) { return values[static_cast<size_t>(y)]; };
  for (int y = 0; y < rows; ++y) {
    if (top < 0) {  // going down, or on the floor
      if (at(y) < at(valley)) valley = y;
      if (at(y) >= kLeastTop && at(valley) < kValley * at(y)) {
        tops.push_back({y, valley});
        top = y;
        valley = y;
      }
    } else {
      if (at(y) > at(top)) {
        top = tops.back().top = y;
        valley = y;
      }
      if (at(y) < at(valley)) valley = y;
      if (at(y) < kValley * at(top)) top = -1;
    }
  }
  for (size_t i = 0; i < tops.size(); ++i) {
    const int peak = tops[i].top;
    int lowBelow = rows - 1;
    if (i + 1 < tops.size()) {
      lowBelow = tops[i + 1].valleyBefore;
    } else {
      lowBelow = static_cast<int>(std::min_element(values.begin() + peak, values.end()) - values.begin());
    }
    const double above = (at(peak) + at(tops[i].valleyBefore)) / 2.0, below = (at(peak) + at(lowBelow)) / 2.0;
    int y = peak, z = peak;
    while (y > tops[i].valleyBefore && at(y - 1) >= above) --y;
    while (z < lowBelow && at(z + 1) >= below) ++z;
    if (y == 0 || z == rows - 1) continue;  // it goes on beyond the page
    int64_t ownInk = 0, blurredInk = 0;
    for (int row = y; row <= z; ++row) {
      ownInk += own[row];
      blurredInk += at(row);
    }
    const bool hasInk = kOwnShare * kBlurWeight * ownInk >= blurredInk;
    ridges->push_back({Crossing(values, y, -1, above), Crossing(values, z, 1, below), hasInk});
  }
}

// ---- lines
// ------------------------------------------------------------------------------------------------

struct Chain {
  std::vector<int> strips;
  std::vector<Ridge> ridges;
};

// Ridges of neighbouring strips that go on from one to the other.
std::vector<Chain> FollowRidges(const Cells& cells, const SlopeField& field) {
  constexpr int kMostGap = 3;        // strips
  constexpr double kMostOff = 0.4;   // of the band's height, from strip to strip
  constexpr double kLeastOff = 1.2;  // cells
  constexpr double kMostGrowth = 2.5;
  std::vector<Chain> done, active;
  std::vector<int32_t> values(static_cast<size_t>(cells.rows)), scratch(values.size());
  std::vector<Ridge> ridges;
  struct Pair {
    double off;
    size_t chain, ridge;
  };
  std::vector<Pair> pairs;
  for (int strip = 0; strip < cells.strips; ++strip) {
    BlurAlongLines(cells, field, strip, &values);
    SmoothDown(&values, &scratch);
    FindRidges(values, cells.Strip(strip), &ridges);
    pairs.clear();
    for (size_t c = 0; c < active.size(); ++c) {
      const Ridge& last = active[c].ridges.back();
      const int gap = strip - active[c].strips.back();
      const double slope = field.At((strip + 0.5) / cells.strips, last.middle() / cells.rows);
      const double expected = last.middle() - slope * kCellWidth * gap;
      const double height = last.height();
      const double most = std::max(kLeastOff, kMostOff * height);
      auto from = std::lower_bound(ridges.begin(), ridges.end(), expected - most,
                                   [](const Ridge& r, double y) { return r.middle() < y; });
      for (; from != ridges.end() && from->middle() <= expected + most; ++from) {
        const double other = from->height();
        if (other > kMostGrowth * height + 1 || height > kMostGrowth * other + 1) continue;
        pairs.push_back({std::abs(from->middle() - expected), c, static_cast<size_t>(from - ridges.begin())});
      }
    }
    std::sort(pairs.begin(), pairs.end(), [](const Pair& a, const Pair& b) {
      if (a.off != b.off) return a.off < b.off;
      return a.chain != b.chain ? a.chain < b.chain : a.ridge < b.ridge;
    });
    std::vector<char> isRidgeTaken(ridges.size(), 0), isChainTaken(active.size(), 0);
    for (const Pair& pair : pairs) {
      if (isRidgeTaken[pair.ridge] != 0 || isChainTaken[pair.chain] != 0) continue;
      isRidgeTaken[pair.ridge] = isChainTaken[pair.chain] = 1;
      active[pair.chain].strips.push_back(strip);
      active[pair.chain].ridges.push_back(ridges[pair.ridge]);
    }
    for (size_t i = 0; i < ridges.size(); ++i) {
      if (isRidgeTaken[i] == 0) active.push_back({{strip}, {ridges[i]}});
    }
    size_t kept = 0;
    for (size_t c = 0; c < active.size(); ++c) {
      const bool isOver = strip - active[c].strips.back() >= kMostGap;
      if (isOver) {
        done.push_back(std::move(active[c]));
      } else {
        if (kept != c) active[kept] = std::move(active[c]);
        ++kept;
      }
    }
    active.resize(kept);
  }
  for (Chain& chain : active) done.push_back(std::move(chain));
  return done;
}

double MedianOf(std::vector<double>* values) {
  const size_t middle = values->size() / 2;
  std::nth_element(values->begin(), values->begin() + static_cast<ptrdiff_t>(middle), values->end());
  return (*values)[middle];
}

// The straight line through points, in which those far off count less. Returns
// the mean distance.
double FitStraight(const std::vector<LinePoint>& points, double* slope) {
  double offset = 0, rise = 0, scale = 0;
  const double middle = (points.front().x + points.back().x) / 2;
  for (int round = 0; round < 4; ++round) {
    double n = 0, sx = 0, sy = 0, sxx = 0, sxy = 0;
    for (const LinePoint& p : points) {
      const double x = p.x - middle, off = std::abs(p.middle() - offset - rise * x);
      const double weight = round == 0 || off <= 1.5 * scale ? 1 : 1.5 * scale / off;
      n += weight;
      sx += weight * x;
      sy += weight * p.middle();
      sxx += weight * x * x;
      sxy += weight * x * p.middle();
    }
    const double spread = n * sxx - sx * sx;
    rise = spread > 0 ? (n * sxy - sx * sy) / spread : 0;
    offset = (sy - rise * sx) / n;
    scale = 0;
    for (const LinePoint& p : points) scale += std::abs(p.middle() - offset - rise * (p.x - middle));
    scale = scale / static_cast<double>(points.size()) + 1e-6;
  }
  *slope = -rise;
  return scale;
}

// How far points are, on the average, from the middle between those two before
// and after.
double Roughness(const std::vector<LinePoint>& points) {
  if (points.size() < 5) return 0;
  double sum = 0;
  for (size_t i = 2; i + 2 < points.size(); ++i)
    sum += std::abs(points[i].middle() - (points[i - 2].middle() + points[i + 2].middle()) / 2);
  return sum / static_cast<double>(points.size() - 4);
}

constexpr size_t kLeastPoints = 6;

// Takes off what only has ink in strips beside it. Whether a line is left.
bool TrimEnds(Chain* chain) {
  size_t first = 0, end = chain->ridges.size();
  while (end > 0 && !chain->ridges[end - 1].hasInk) --end;
  while (first < end && !chain->ridges[first].hasInk) ++first;
  size_t inked = 0;
  for (size_t i = first; i < end; ++i) inked += chain->ridges[i].hasInk ? 1 : 0;
  if (inked < kLeastPoints) return false;
  const auto from = static_cast<ptrdiff_t>(first), to = static_cast<ptrdiff_t>(end);
  chain->ridges = {chain->ridges.begin() + from, chain->ridges.begin() + to};
  chain->strips = {chain->strips.begin() + from, chain->strips.begin() + to};
  return true;
}

// The middle and rise per strip of the ridges from first up to end. Those that only have ink beside them say
// little.
struct Straight {
  double at, middle, rise;
  double At(double strip) const { return middle + rise * (strip - at); }
};

Straight FitRidges(const Chain& chain, size_t first, size_t end) {
  double n = 0, x = 0, y = 0, xx = 0, xy = 0;
  for (size_t i = first; i < end; ++i) {
    const double strip = chain.strips[i] - chain.strips[first], middle = chain.ridges[i].middle();
    const double weight = chain.ridges[i].hasInk ? 1 : 0.02;
    n += weight;
    x += weight * strip;
    y += weight * middle;
    xx += weight * strip * strip;
    xy += weight * strip * middle;
  }
  const double spread = n * xx - x * x;
  return {chain.strips[first] + x / n, y / n, spread > 0 ? (n * xy - x * y) / spread : 0};
}

// By how much what stands before a place in a chain and what follows it are not the same line. Up to 1 they
// may be.
double StepAt(const Chain& chain, size_t i) {
  constexpr size_t kReach = 12;                              // ridges
  constexpr double kMostStep = 0.35, kMostStepAtGap = 0.25;  // heights of the line
  constexpr double kMostTurnAtGap = 0.03;                    // in slope
  const bool isGap = !chain.ridges[i - 1].hasInk || !chain.ridges[i].hasInk;
  const Straight before = FitRidges(chain, i - std::min(i, kReach), i);
  const Straight after = FitRidges(chain, i, std::min(chain.ridges.size(), i + kReach));
  const double between = (chain.strips[i - 1] + chain.strips[i]) / 2.0;
  const double step = std::abs(before.At(between) - after.At(between)) / chain.ridges[i].height();
  if (!isGap) return step / kMostStep;
  const double turn = std::abs(before.rise - after.rise) / kCellWidth;
  return std::max(step / kMostStepAtGap, turn / kMostTurnAtGap);
}

// Parts a chain where it goes on as another line: that of the next column, or of the page beside this one.
// Without a gap in the ink it takes a longer step to be another.
void PartAtSteps(const Chain& chain, std::vector<Chain>* parts) {
  constexpr size_t kLeastRidges = 4;  // on either side
  const size_t count = chain.ridges.size();
  std::vector<double> steps(count, 0);
  for (size_t i = kLeastRidges; i + kLeastRidges <= count; ++i) steps[i] = StepAt(chain, i);
  size_t start = 0;
  const auto add = [&](size_t end) {
    const auto from = static_cast<ptrdiff_t>(start), to = static_cast<ptrdiff_t>(end);
    parts->push_back({{chain.strips.begin() + from, chain.strips.begin() + to},
                      {chain.ridges.begin() + from, chain.ridges.begin() + to}});
    start = end;
  };
  for (size_t i = kLeastRidges; i + kLeastRidges <= count; ++i) {
    if (steps[i] < 1) continue;
    const auto here = steps.begin() + static_cast<ptrdiff_t>(i);
    const auto reach = static_cast<ptrdiff_t>(kLeastRidges);
    if (std::max_element(here - reach, std::min(here + reach, steps.end())) == here) add(i);
  }
  add(count);
}

constexpr double kLeastLength = 6;  // heights of the line

std::vector<TextLine> LinesOf(const Cells& cells, const SlopeField& field) {
  std::vector<TextLine> lines;
  std::vector<double> heights;
  std::vector<Chain> chains;
  for (const Chain& chain : FollowRidges(cells, field)) PartAtSteps(chain, &chains);
  for (Chain& chain : chains) {
    if (!TrimEnds(&chain)) continue;
    TextLine line = {};
    heights.clear();
    for (size_t i = 0; i < chain.strips.size(); ++i) {
      line.points.push_back({(chain.strips[i] + 0.5) * kCellWidth * cells.size,
                             chain.ridges[i].top * cells.size, chain.ridges[i].bottom * cells.size});
      heights.push_back((chain.ridges[i].bottom - chain.ridges[i].top) * cells.size);
    }
    line.height = MedianOf(&heights);
    if (line.length() < kLeastLength * line.height) continue;
    line.bend = FitStraight(line.points, &line.slope);
    line.roughness = Roughness(line.points);
    lines.push_back(std::move(line));
  }
  return lines;
}

// The height below which half of all lines lie, by length; 0 for none.
double HeightOfMost(const std::vector<TextLine>& lines) {
  std::vector<std::pair<double, double>> heights;
  double all = 0, below = 0;
  for (const TextLine& line : lines) {
    heights.push_back({line.height, line.length()});
    all += line.length();
  }
  std::sort(heights.begin(), heights.end());
  for (const auto& [height, length] : heights) {
    below += length;
    if (2 * below >= all) return height;
  }
  return 0;
}

// How much a line is worth beside another of the same ink: long ones that run
// smoothly.
// Coarse cells place a line less well, however smooth it looks.
double Worth(const TextLine& line) {
  constexpr double kUsualRoughness = 0.05;  // of the height
  constexpr double kResolved = 12;          // cells in a line's height
  const double cell = (line.points[1].x - line.points[0].x) / kCellWidth;
  return line.length() / (line.roughness / line.height + kUsualRoughness) *
         std::min(1.0, line.height / cell / kResolved);
}

// Whether more than half of a line's points lie in the other's band, or the
// other way round.
bool IsSameInk(const TextLine& line, const TextLine& other) {
  if (line.right() < other.left() || other.right() < line.left()) return false;
  const double reach = std::max(line.bend, other.bend) * 4 + line.height + other.height +
                       std::abs(line.slope) * line.length() + std::abs(other.slope) * other.length();
  if (std::abs(line.points.front().middle() - other.points.front().middle()) >
      reach + std::abs(line.slope) * std::abs(line.left() - other.left()))
    return false;
  size_t inside = 0, i = 0;
  for (const LinePoint& p : line.points) {
    while (i + 1 < other.points.size() && other.points[i + 1].x <= p.x) ++i;
    const LinePoint& q = other.points[i];
    if (std::abs(p.x - q.x) > 4 * line.height + 4 * other.height) continue;
    const bool isInside =
        (p.middle() > q.top && p.middle() < q.bottom) || (q.middle() > p.top && q.middle() < p.bottom);
    inside += isInside ? 1 : 0;
  }
  return 2 * inside > line.points.size();
}

// What the different sizes of cells have found, each line once.
void KeepBest(std::vector<TextLine>* lines) {
  std::stable_sort(lines->begin(), lines->end(),
                   [](const TextLine& a, const TextLine& b) { return Worth(a) > Worth(b); });
  std::vector<TextLine> kept;
  for (TextLine& line : *lines) {
    const bool isKnown = std::any_of(kept.begin(), kept.end(),
                                     [&line](const TextLine& other) { return IsSameInk(line, other); });
    if (!isKnown) kept.push_back(std::move(line));
  }
  lines->swap(kept);
}

}  // namespace

TextLines FindTextLines(const BitPlane& ink, double mostSlope) {
  constexpr int kLevels = 4;
  constexpr int kUsualRows = 1400, kMostCell = 24;
  constexpr double kResolved = 4.5;  // cells
  TextLines found;
  const int size = std::clamp(std::max(ink.width(), ink.height()) / kUsualRows, 1, kMostCell);
  if (ink.width() / (kCellWidth * size) < 8 || ink.height() / size < 16) return found;
  std::vector<Cells> levels;
  levels.push_back(CountCells(ink, size, mostSlope));
  while (levels.size() < kLevels && levels.back().strips >= 16 && levels.back().rows >= 32)
    levels.push_back(Halve(levels.back(), mostSlope));
  const SlopeField field(levels, mostSlope);
  double resolved = 0;  // a usual height at the level before
  for (size_t level = levels.size(); level-- > 0;) {
    // The smallest cells take most of the time, and tell no more where the next
    // size resolves the lines.
    if (level == 0 && levels.size() > 1 && resolved >= kResolved * levels[1].size) break;
    std::vector<TextLine> lines = LinesOf(levels[level], field);
    resolved = HeightOfMost(lines);
    std::move(lines.begin(), lines.end(), std::back_inserter(found.lines));
  }
  KeepBest(&found.lines);
  found.height = HeightOfMost(found.lines);
  return found;
}

BytePlane PictureOfLines(const BitPlane& ink, const TextLines& lines) {
  constexpr uint8_t kPaper = 255, kInk = 190, kEdge = 90, kMiddle = 0;
  BytePlane picture(ink.width(), ink.height(), kPaper);
  for (int y = 0; y < ink.height(); ++y) {
    for (int x = 0; x < ink.width(); ++x) {
      if (ink.Get(x, y)) picture.Row(y)[x] = kInk;
    }
  }
  const auto dot = [&](int x, double y, uint8_t value) {
    const auto row = static_cast<int>(y);
    if (x >= 0 && x < picture.width() && row >= 0 && row < picture.height()) picture.Row(row)[x] = value;
  };
  for (const TextLine& line : lines.lines) {
    for (size_t i = 1; i < line.points.size(); ++i) {
      const LinePoint &a = line.points[i - 1], &b = line.points[i];
      for (int x = static_cast<int>(a.x); x < static_cast<int>(b.x); ++x) {
        const double u = (x - a.x) / (b.x - a.x);
        dot(x, a.top + u * (b.top - a.top), kEdge);
        dot(x, a.bottom + u * (b.bottom - a.bottom), kEdge);
        dot(x, a.middle() + u * (b.middle() - a.middle()), kMiddle);
      }
    }
  }
  return picture;
}

}  // namespace rastrel::pages
