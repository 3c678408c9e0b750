#include "cleanup/skew_peak.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace rastrel {
namespace {

constexpr int kBands = 8;     // of the page's height
constexpr int kSamples = 33;  // of slopes
constexpr int kMiddle = kSamples / 2;
constexpr double kStepRows = 0.5;  // from slope to slope, at the ends of the page's lines
static_assert(kMiddle * kStepRows <= ShiftedStrips::kRowsBeyondSteepest);

// Limits without another origin are what measured best on drawn pages of known skew: docs/skew.md.

// ---- the top of a curve -----------------------------------------------------------------------------------

using Curve = std::array<double, kSamples>;

size_t Highest(const Curve& curve) {
  return static_cast<size_t>(std::max_element(curve.begin(), curve.end()) - curve.begin());
}

// The place, in samples from the first, of the top of a parabola through what rises above half of the curve's
// height. The nearer a sample is to the top the more it counts.
double TopOf(const Curve& curve) {
  constexpr int kLeastReach = 2;       // samples to either side count in any case: a parabola needs three
  constexpr double kLeastWeight = 50;  // that part of the highest one's, so that they do not drop out
  constexpr double kMostMoved = 2;     // samples from the highest one: further off there is no such parabola
  const auto best = static_cast<int>(Highest(curve));
  const double most = curve[static_cast<size_t>(best)];
  const double half = (most + *std::min_element(curve.begin(), curve.end())) / 2;
  const auto at = [&curve](int i) { return curve[static_cast<size_t>(i)]; };
  int first = best, last = best;
  while (first > 0 && at(first - 1) > half) --first;
  while (last < kSamples - 1 && at(last + 1) > half) ++last;
  first = std::max(0, std::min(first, best - kLeastReach));
  last = std::min(kSamples - 1, std::max(last, best + kLeastReach));

  double moments[5] = {}, products[3] = {};
  for (int i = first; i <= last; ++i) {
    const double x = i - best;
    const double weight = std::max(at(i) - half, (most - half) / kLeastWeight);
    const double powers[5] = {1, x, x * x, x * x * x, x * x * x * x};
    for (int k = 0; k < 5; ++k) moments[k] += weight * powers[k];
    for (int k = 0; k < 3; ++k) products[k] += weight * powers[k] * at(i);
  }
  // Cramer's rule for the factors of x and x * x; what both are divided by is positive and cancels out.
  const auto [m0, m1, m2, m3, m4] = moments;
  const auto [p0, p1, p2] = products;
  const double slant = m0 * (p1 * m4 - p2 * m3) - p0 * (m1 * m4 - m2 * m3) + m2 * (m1 * p2 - m2 * p1);
  const double bend = m0 * (m2 * p2 - m3 * p1) - m1 * (m1 * p2 - m2 * p1) + p0 * (m1 * m3 - m2 * m2);
  if (!(bend < 0)) return best;
  return best + std::clamp(-slant / (2 * bend), -kMostMoved, kMostMoved);
}

// ---- curves of parts of the page --------------------------------------------------------------------------

// The curve of a part of the page's width, band by band of its height.
struct BandCurves {
  std::array<Curve, kBands> bands;

  Curve SumWithout(int omitted) const {
    Curve sum = {};
    for (int band = 0; band < kBands; ++band) {
      if (band == omitted) continue;
      for (size_t i = 0; i < kSamples; ++i) sum[i] += bands[static_cast<size_t>(band)][i];
    }
    return sum;
  }
  Curve Sum() const { return SumWithout(-1); }

  // Adds factor * other.
  void Add(const BandCurves& other, double factor) {
    for (size_t band = 0; band < kBands; ++band) {
      for (size_t i = 0; i < kSamples; ++i) bands[band][i] += factor * other.bands[band][i];
    }
  }
};

struct Top {
  double place;  // in samples from the first
  double error;
};

Top FindTop(const BandCurves& curves) {
  const double place = TopOf(curves.Sum());
  double squares = 0;
  for (int band = 0; band < kBands; ++band) {
    const double change = TopOf(curves.SumWithout(band)) - place;
    squares += change * change;
  }
  return {place, std::sqrt(squares * (kBands - 1) / kBands)};
}

// Rows that divide a page's sharpness into equal parts, the first and last included.
using BandRows = std::array<int, kBands + 1>;

BandRows DivideIntoBands(const int16_t* sums, int rows) {
  const double whole = Sharpness(sums, rows);
  BandRows starts = {};
  double sharpness = 0;
  int band = 1;
  for (int y = 2; y < rows; ++y) {
    const double difference = sums[y] - sums[y - 2];
    sharpness += difference * difference;
    while (band < kBands && sharpness * kBands >= whole * band) starts[static_cast<size_t>(band++)] = y;
  }
  while (band <= kBands) starts[static_cast<size_t>(band++)] = rows;
  return starts;
}

// The parts of the page's width as a binary tree: part 0 is the whole, 2 i + 1 and 2 i + 2 are the halves of
// part i, and the last kPeakSections are the sections.
constexpr int kParts = 2 * kPeakSections - 1;
constexpr int kFirstSection = kPeakSections - 1;

int FirstSectionOf(int part) {
  while (part < kFirstSection) part = 2 * part + 1;
  return part - kFirstSection;
}

struct PartCurves {
  BandCurves parts[kParts];
};

void SampleSlopes(const ShiftedStrips& strips, double middle, double step, const BandRows& bandRows,
                  int16_t* sums, PartCurves* curves) {
  const int rows = strips.rows();
  for (int i = 0; i < kSamples; ++i) {
    const double slope = middle + (i - kMiddle) * step;
    for (int part = kParts - 1; part >= 0; --part) {
      // The sums of a part take the place of those of its left half, which begin with its first section's.
      int16_t* const own = sums + static_cast<ptrdiff_t>(FirstSectionOf(part)) * rows;
      if (part >= kFirstSection) {
        strips.Sum(slope, part - kFirstSection, kPeakSections, own);
      } else {
        AddSums(sums + static_cast<ptrdiff_t>(FirstSectionOf(2 * part + 2)) * rows, rows, own);
      }
      for (size_t band = 0; band < kBands; ++band) {
        const int first = std::max(0, bandRows[band] - 2);
        curves->parts[part].bands[band][static_cast<size_t>(i)] =
            Sharpness(own + first, bandRows[band + 1] - first);
      }
    }
  }
}

// ---- parts that go together -------------------------------------------------------------------------------

struct SectionsTop : Top {
  // How far another top may be from it, in samples, and still be the same: less than a sample where lines are
  // level. The steeper they are the more do the widths of strips move the tops of narrow parts.
  static constexpr double kOffWhenLevel = 0.4;
  static constexpr double kOffBySlope = 25;  // for the square of the slope: one sample more at 11 degrees
  double mostOff;
  SectionsTop(const Top& top, double slope)
      : Top(top), mostOff(kOffWhenLevel + top.error + kOffBySlope * slope * slope) {}
  bool IsNear(double other) const { return std::abs(other - place) <= mostOff; }
};

// What two halves share: how much sharper they are together than by themselves. Where lines go on from one to
// the other it has its peak at the same slope as the sections. Columns of text whose lines are not level with
// each other share something, too, but at a slope of its own, which must not count.
bool GoTogether(const SectionsTop& sections, const Curve& shared, const Curve& left, const Curve& right) {
  constexpr double kLeastShared = 0.4;  // of what two equal halves would share
  const int nearest = static_cast<int>(sections.place + 0.5);
  const int reach = static_cast<int>(sections.mostOff) + 2;
  const int first = std::max(0, nearest - reach), last = std::min(kSamples - 1, nearest + reach);
  const auto* const peak = std::max_element(shared.begin() + first, shared.begin() + last + 1);
  if (peak == shared.begin() + first || peak == shared.begin() + last) return false;
  const double equal = 2 * std::sqrt(left[Highest(left)] * right[Highest(right)]);
  return *peak >= kLeastShared * equal && sections.IsNear(static_cast<double>(peak - shared.begin()));
}

// The curves of a part as a whole where its halves go together, else of the halves by themselves.
void Settle(const PartCurves& curves, int part, const SectionsTop& sections, BandCurves* settled) {
  const BandCurves& whole = curves.parts[part];
  if (part >= kFirstSection) {
    *settled = whole;
    return;
  }
  Settle(curves, 2 * part + 1, sections, settled);
  BandCurves other;
  Settle(curves, 2 * part + 2, sections, &other);
  settled->Add(other, 1);
  const BandCurves &left = curves.parts[2 * part + 1], &right = curves.parts[2 * part + 2];
  BandCurves& shared = other;
  shared = whole;
  shared.Add(left, -1);
  shared.Add(right, -1);
  if (GoTogether(sections, shared.Sum(), left.Sum(), right.Sum())) settled->Add(shared, 1);
}

// The samples above half of the curve's height.
int Breadth(const Curve& curve) {
  const double half = (curve[Highest(curve)] + *std::min_element(curve.begin(), curve.end())) / 2;
  return static_cast<int>(std::count_if(curve.begin(), curve.end(), [half](double v) { return v > half; }));
}

}  // namespace

SkewPeak FindSkewPeak(const ShiftedStrips& strips, double slope, double steepest, int16_t* sums) {
  constexpr int kRounds = 3;
  constexpr double kNearMiddle = kMiddle / 2;  // samples; a top further out is measured again from there
  const double step = kStepRows / strips.Arm();
  strips.Sum(slope, 0, 1, sums);
  const BandRows bandRows = DivideIntoBands(sums, strips.rows());
  PartCurves curves;
  BandCurves settled;
  Top top = {};
  for (int round = 0; round < kRounds; ++round) {
    SampleSlopes(strips, slope, step, bandRows, sums, &curves);
    settled = curves.parts[kFirstSection];
    for (int part = kFirstSection + 1; part < kParts; ++part) settled.Add(curves.parts[part], 1);
    const SectionsTop sections(FindTop(settled), slope);
    Settle(curves, 0, sections, &settled);
    top = FindTop(settled);
    if (!sections.IsNear(top.place)) top = sections;
    slope = std::clamp(slope + (top.place - kMiddle) * step, -steepest, steepest);
    if (std::abs(top.place - kMiddle) <= kNearMiddle) break;
  }
  return {slope, top.error * step, Breadth(settled.Sum()) * step};
}

}  // namespace rastrel
