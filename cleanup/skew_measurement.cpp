// The skew of a page to hundredths of a degree.
//
// The ink of the page is summed along lines of one slope. Where that is the slope of the text the sums change
// abruptly from line to line, from text to gap; along any other slope they run into one another. So the
// sharpness of the sums, the squared differences of neighbours, has its peak at the slope looked for.
//
// A rough search over all slopes of the range looks at four sections of the page's width by themselves, whose
// peaks are broad. The fine one then joins the sections as far as their lines go on from one to the other.
#include <algorithm>
#include <cmath>
#include <cstdint>

#include "cleanup/line_sums.h"
#include "cleanup/page_strips.h"
#include "cleanup/skew_peak.h"
#include "frame/dib.h"
#include "frame/rastrel.h"
#include "frame/thread_state.h"

namespace rastrel {
namespace {

// ---- angles -----------------------------------------------------------------------------------------------

// Of our own, so that the last digit is the same everywhere.
constexpr double kPi = 3.14159265358979323846;

// For 0 to 45 degrees.
double TangentOfDegrees(double degrees) {
  const double x = degrees * (kPi / 180);
  const double square = x * x;
  double sine = 0, cosine = 0;
  for (int n = 20; n > 0; n -= 2) {
    cosine = 1 - cosine * square / (n * (n - 1));
    sine = 1 - sine * square / (n * (n + 1));
  }
  return x * sine / cosine;
}

// For -1 to 1. The arc is halved until the series is short.
double DegreesOfTangent(double tangent) {
  double t = tangent;
  for (int i = 0; i < 3; ++i) t = t / (1 + std::sqrt(1 + t * t));
  const double square = t * t;
  double sum = 0;
  for (int n = 19; n > 0; n -= 2) sum = 1.0 / n - sum * square;
  return 8 * t * sum * (180 / kPi);
}

// ---- the rough search -------------------------------------------------------------------------------------

constexpr int kSections = 4;  // of the page's width
constexpr int kBands = 8;     // of its height
constexpr int kParts = kSections * kBands;
constexpr int kMostSteps = 200;  // of slopes, to either side

// What the rough search finds, and what speaks for it.
struct RoughSkew {
  double slope;
  double contrast;   // how sharp the sums are along it, compared with a usual slope
  double agreement;  // the share of what parts of the page say that they say for it
  double spread;     // over how many parts that is spread
};

// The sharpness of each part and of the whole for each slope.
class RoughCurves {
 public:
  RoughCurves(const ShiftedStrips& strips, double steepest)
      : steps_(std::clamp(static_cast<int>(steepest * strips.Arm() / kSections) + 1, 4, kMostSteps)),
        step_(steepest / steps_) {}

  uint64_t BytesNeeded() const { return (kParts + 2) * static_cast<unsigned>(Count()) * sizeof(double); }

  // `values` is that many bytes, all 0.
  void Sample(const ShiftedStrips& strips, int16_t* sums, double* values) {
    values_ = values;
    for (int i = 0; i < Count(); ++i) {
      for (int section = 0; section < kSections; ++section) {
        strips.Sum((i - steps_) * step_, section, kSections, sums);
        for (int band = 0; band < kBands; ++band) {
          const int first = strips.rows() * band / kBands;
          const int end = strips.rows() * (band + 1) / kBands;
          const double sharpness = Sharpness(sums + first, end - first);
          Curve(section * kBands + band)[i] = sharpness;
          Curve(kWhole)[i] += sharpness;
        }
      }
    }
  }

  RoughSkew Find() const {
    const double* const whole = Curve(kWhole);
    const auto best = static_cast<int>(std::max_element(whole, whole + Count()) - whole);
    double all = 0, agreeing = 0, squares = 0;
    for (int part = 0; part < kParts; ++part) {
      const double* const curve = Curve(part);
      const double usual = Median(part);
      const double* const nearest = curve + std::max(0, best - 1);
      const double here = *std::max_element(nearest, curve + std::min(Count(), best + 2)) - usual;
      all += *std::max_element(curve, curve + Count()) - usual;
      agreeing += std::max(0.0, here);
      squares += std::max(0.0, here) * std::max(0.0, here);
    }
    return {(best - steps_ + OffsetOfTop(whole, best)) * step_, whole[best] / std::max(1.0, Median(kWhole)),
            agreeing / std::max(1.0, all), agreeing * agreeing / std::max(1.0, squares)};
  }

 private:
  static constexpr int kWhole = kParts;
  static constexpr int kScratch = kParts + 1;

  int Count() const { return 2 * steps_ + 1; }
  double* Curve(int part) const { return values_ + static_cast<ptrdiff_t>(part) * Count(); }

  double Median(int part) const {
    double* const sorted = Curve(kScratch);
    std::copy_n(Curve(part), Count(), sorted);
    std::nth_element(sorted, sorted + steps_, sorted + Count());
    return sorted[steps_];
  }

  double OffsetOfTop(const double* curve, int i) const {
    if (i == 0 || i == Count() - 1) return 0;
    const double bend = curve[i - 1] - 2 * curve[i] + curve[i + 1];
    return bend < 0 ? (curve[i - 1] - curve[i + 1]) / 2 / bend : 0;
  }

  int steps_;
  double step_;
  double* values_ = nullptr;
};

// ---- the measurement --------------------------------------------------------------------------------------

// 0 up to `none`, 1 from `full` on, and evenly between.
double Between(double none, double full, double value) {
  return std::clamp((value - none) / (full - none), 0.0, 1.0);
}

// The limits are from pages of known skew: docs/skew.md says what comes of them.
double Confidence(const RoughSkew& rough, double errorDegrees, double pictureShare) {
  return Between(1.3, 1.9, rough.contrast) * Between(0.75, 0.9, rough.agreement) *
         Between(0.7, 1.5, rough.spread) * Between(0.16, 0.03, errorDegrees) *
         Between(0.5, 0.35, pictureShare);
}

constexpr double kLeastConfidence = 0.1;  // below it a page has no structure
constexpr double kErrorOfBreadth = 0.13, kErrorOfLevel = 0.075;
constexpr int kLeastStrips = 16;
constexpr int kLeastRows = 32;

// Returns ErrNoMemory or ErrSuccess.
ErrorCode Measure(const LockedDib& page, const ConstRows& rows, double range, Polarity polarity,
                  SkewResult* result) {
  *result = {0, 0, 0, static_cast<int>(polarity == Polarity::kFound ? Polarity::kDarkInk : polarity)};
  const double steepest = TangentOfDegrees(range);
  const StripGrid grid = GridOfPage(page, steepest);
  if (grid.strips < kLeastStrips || grid.rows < kLeastRows) return ErrSuccess;

  PageInk ink(grid);
  ShiftedStrips coarse = ShiftedStrips::Coarse(grid, steepest);
  ShiftedStrips fine = ShiftedStrips::Fine(grid, steepest);
  RoughCurves curves(coarse, steepest);
  const uint64_t sumBytes = static_cast<uint64_t>(grid.rows) * kPeakSections * sizeof(int16_t);
  const NewBlock block(
      curves.BytesNeeded() + sumBytes + ink.BytesNeeded() + coarse.BytesNeeded() + fine.BytesNeeded(),
      Content::kZeroed);
  if (!block) return ErrNoMemory;
  auto* const values = block.As<double>();
  auto* const sums = reinterpret_cast<int16_t*>(block.bytes() + curves.BytesNeeded());
  uint8_t* const inkBytes = block.bytes() + curves.BytesNeeded() + sumBytes;
  uint8_t* const coarseBytes = inkBytes + ink.BytesNeeded();

  const InkFound found = ink.Find(page, rows, polarity, inkBytes);
  result->polarity = static_cast<int>(found.polarity);
  if (!found.any) return ErrSuccess;
  coarse.Fill(ink.cells(), coarseBytes);
  fine.Fill(ink.cells(), coarseBytes + coarse.BytesNeeded());

  curves.Sample(coarse, sums, values);
  const RoughSkew rough = curves.Find();
  const SkewPeak peak = FindSkewPeak(fine, rough.slope, steepest, sums);
  if (std::abs(peak.slope) >= steepest) return ErrSuccess;  // the peak is beyond the range, if there is one
  // A broad peak that a few lines make cannot be placed well, however well they agree.
  double broad = kErrorOfBreadth * peak.breadth / std::sqrt(std::max(1.0, rough.spread));
  // Nor can one of short lines that rise by less than a pixel: in black and white they are level.
  const bool isLevel = std::abs(peak.slope) * 2 * fine.Arm() < kPeakSections;
  if (page.bits() == 1 && grid.rowsPerCell == 1 && isLevel)
    broad = std::max(broad, kErrorOfLevel * peak.breadth);
  const double error = DegreesOfTangent(std::min(std::max(peak.error, broad), 1.0));
  result->confidence = Confidence(rough, error, found.pictureShare);
  result->hasStructure = result->confidence >= kLeastConfidence ? 1 : 0;
  if (result->hasStructure != 0) result->angle = std::clamp(DegreesOfTangent(peak.slope), -range, range);
  return ErrSuccess;
}

bool IsMeasured(unsigned bits) { return bits == 1 || bits == 4 || bits == 8 || bits == 24; }

}  // namespace
}  // namespace rastrel

int RASTREL_CALL MeasureSkew(HGLOBAL dib, const SkewOptions* options, SkewResult* result) {
  using namespace rastrel;
  constexpr double kUsualRange = 15, kMostRange = 45;
  ThreadState& state = GetThreadState();
  const SkewOptions wanted = options == nullptr ? SkewOptions{0, 0} : *options;
  const bool isRange = wanted.range >= 0 && wanted.range <= kMostRange;  // no NaN is
  if (dib == nullptr || result == nullptr || !isRange || wanted.polarity < 0 || wanted.polarity > 2)
    return state.Fail(ErrParameter);

  const LockedDib page(dib);
  if (!page) return state.Fail(ErrLockMemory);
  const Header& header = page.header();
  if (header.biSize != kHeaderBytes) return state.Fail(ErrFileFormat);
  if (header.biCompression != BI_RGB) return state.Fail(ErrCompressed);
  ConstRows rows = {};
  if (!page.FindRows(kHeaderBytes + PaletteBytes(&header), &rows)) return state.Fail(ErrDIBSize);
  if (!IsMeasured(page.bits())) return state.Fail(ErrBitsPerPixel);

  const double range = wanted.range == 0 ? kUsualRange : wanted.range;
  SkewResult measured = {};
  if (const ErrorCode failure =
          Measure(page, rows, range, static_cast<Polarity>(wanted.polarity), &measured)) {
    return state.Fail(failure);
  }
  *result = measured;
  return 1;
}
