// Two witnesses are heard. MeasureSkew places the one peak that the whole page
// has where its lines are straight and parallel, to thousandths of a degree; it
// has no peak to place where they curve or converge. The lines followed one by
// one have a slope each, on any page with text, each to tenths. Where the two
// agree the peak is right even if it is low by itself; where there is no peak,
// many lines that agree will do.
#include "pages/skew.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "rastrel.h"

namespace rastrel::pages {
namespace {

// ---- angles
// -----------------------------------------------------------------------------------------------

// Of our own, so that the last digit is the same everywhere.
constexpr double kPi = 3.14159265358979323846;

// For 0 to 45 degrees.
double TangentOfDegrees(double degrees) {
  const double x = degrees * (kPi / 180);
  double sine = 0, cosine = 0;
  for (int n = 20; n > 0; n -= 2) {
    cosine = 1 - cosine * x * x / (n * (n - 1));
    sine = 1 - sine * x * x / (n * (n + 1));
  }
  return x * sine / cosine;
}

// For -1 to 1. The arc is halved until the series is short.
double DegreesOfTangent(double tangent) {
  double t = tangent;
  for (int i = 0; i < 3; ++i) t = t / (1 + std::sqrt(1 + t * t));
  double sum = 0;
  for (int n = 19; n > 0; n -= 2) sum = 1.0 / n - sum * t * t;
  return 8 * t * sum * (180 / kPi);
}

// 0 up to `none`, 1 from `full` on, and evenly between.
double Between(double none, double full, double value) {
  return std::clamp((value - none) / (full - none), 0.0, 1.0);
}

// ---- what the lines say
// -----------------------------------------------------------------------------------

// One line's word. Places are from 0 to 1 across and down the page.
struct Vote {
  double degrees, weight;
  double across, down;
};

constexpr double kMostRoughness = 0.15;  // of the line's height: what jumps about more is no text

std::vector<Vote> VotesOf(const TextLines& lines, const BitPlane& ink) {
  constexpr double kOwnError = 0.0005, kUsualBend = 0.005;  // slopes
  std::vector<Vote> votes;
  for (const TextLine& line : lines.lines) {
    if (line.roughness > kMostRoughness * line.height) continue;
    // Of points that share their strips with their neighbours about every third
    // is by itself.
    const double points = static_cast<double>(line.points.size()) / 3;
    const double error =
        kOwnError + 1.25 * line.bend / (line.length() * std::sqrt(std::max(1.0, points / 12)));
    votes.push_back({DegreesOfTangent(std::clamp(line.slope, -1.0, 1.0)),
                     line.length() / (error + kUsualBend), (line.left() + line.right()) / 2 / ink.width(),
                     line.points[line.points.size() / 2].middle() / ink.height()});
  }
  return votes;
}

// The value below and above which half of the weight lies. Not for none.
template <class Value>
double WeightedMedian(const std::vector<Vote>& votes, Value value) {
  std::vector<std::pair<double, double>> sorted;
  double all = 0;
  for (const Vote& vote : votes) {
    sorted.push_back({value(vote), vote.weight});
    all += vote.weight;
  }
  std::sort(sorted.begin(), sorted.end());
  double below = 0;
  for (const auto& [degrees, weight] : sorted) {
    below += weight;
    if (below >= all / 2) return degrees;
  }
  return sorted.back().first;
}

struct Agreement {
  double degrees = 0;
  double spread = 0;    // the median distance of a line from it
  double disorder = 0;  // the same from what goes evenly from one side of the page to the other
  double agreeing = 0;  // the share of the lines, by weight, that are near
  double error = 90;
  double lines = 0;  // how many of equal weight would weigh as much
};

double Median(const std::vector<Vote>& votes) {
  return WeightedMedian(votes, [](const Vote& v) { return v.degrees; });
}

double Spread(const std::vector<Vote>& votes, double middle) {
  return WeightedMedian(votes, [middle](const Vote& v) { return std::abs(v.degrees - middle); });
}

// The mean of what is near the median, each the less the farther it is: as
// steady as a mean where slopes go evenly from one to another, and as deaf to
// strays as a median.
double SteadyMiddle(const std::vector<Vote>& votes, double start, double scale, size_t first = 0,
                    size_t step = 1) {
  double middle = start;
  for (int round = 0; round < 6; ++round) {
    double sum = 0, all = 0;
    for (size_t i = first; i < votes.size(); i += step) {
      const double off = (votes[i].degrees - middle) / scale;
      const double weight = votes[i].weight / ((1 + off * off) * (1 + off * off));
      sum += weight * votes[i].degrees;
      all += weight;
    }
    if (all > 0) middle = sum / all;
  }
  return middle;
}

// The share of the votes, by weight, no farther than `most` from a slope.
double ShareNear(const std::vector<Vote>& votes, double degrees, double most) {
  double close = 0, all = 0;
  for (const Vote& vote : votes) {
    all += vote.weight;
    if (std::abs(vote.degrees - degrees) <= most) close += vote.weight;
  }
  return close / all;
}

// How far each vote is from what lines at its place would have if the page's slope went evenly from one side
// to the other, as it does where lines converge or bend.
std::vector<Vote> WithoutTrend(std::vector<Vote> votes, double middle, double scale) {
  constexpr double kStiffness = 0.01;  // of the weight: few lines do not tilt it
  double centreAcross = 0, centreDown = 0, all = 0;
  for (const Vote& vote : votes) {
    centreAcross += vote.weight * vote.across;
    centreDown += vote.weight * vote.down;
    all += vote.weight;
  }
  centreAcross /= all;
  centreDown /= all;
  double tiltAcross = 0, tiltDown = 0, level = middle;
  for (int round = 0; round < 6; ++round) {
    double n = 0, x = 0, y = 0, xx = kStiffness * all, xy = 0, yy = xx, z = 0, xz = 0, yz = 0;
    for (const Vote& vote : votes) {
      const double u = vote.across - centreAcross, v = vote.down - centreDown;
      const double off = (vote.degrees - level - tiltAcross * u - tiltDown * v) / scale;
      const double weight = vote.weight / ((1 + off * off) * (1 + off * off));
      n += weight;
      x += weight * u;
      y += weight * v;
      xx += weight * u * u;
      xy += weight * u * v;
      yy += weight * v * v;
      z += weight * vote.degrees;
      xz += weight * u * vote.degrees;
      yz += weight * v * vote.degrees;
    }
    const double cxx = xx - x * x / n, cxy = xy - x * y / n, cyy = yy - y * y / n;
    const double cxz = xz - x * z / n, cyz = yz - y * z / n;
    const double determinant = cxx * cyy - cxy * cxy;
    if (!(determinant > 0)) break;
    tiltAcross = (cxz * cyy - cyz * cxy) / determinant;
    tiltDown = (cyz * cxx - cxz * cxy) / determinant;
    level = (z - tiltAcross * x - tiltDown * y) / n;
  }
  for (Vote& vote : votes)
    vote.degrees -= level + tiltAcross * (vote.across - centreAcross) + tiltDown * (vote.down - centreDown);
  return votes;
}

Agreement Agree(const std::vector<Vote>& votes) {
  constexpr size_t kGroups = 8;
  constexpr double kLeastScale = 0.1, kNear = 0.7;  // degrees
  Agreement agreement;
  if (votes.size() < 2) return agreement;
  const double median = Median(votes);
  agreement.spread = Spread(votes, median);
  const double scale = std::max(kLeastScale, 2.5 * agreement.spread);
  agreement.degrees = SteadyMiddle(votes, median, scale);
  double all = 0, squares = 0;
  for (const Vote& vote : votes) {
    all += vote.weight;
    squares += vote.weight * vote.weight;
  }
  agreement.lines = all * all / squares;
  const std::vector<Vote> strays = WithoutTrend(votes, agreement.degrees, scale);
  agreement.disorder = Spread(strays, 0);
  agreement.agreeing = ShareNear(strays, 0, kNear);
  const size_t groups = std::min(kGroups, votes.size() / 2);
  double off = 0;
  for (size_t g = 0; g < groups; ++g) {
    const double d = SteadyMiddle(strays, 0, scale, g, groups);
    off += d * d;
  }
  if (groups >= 2) agreement.error = std::sqrt(off / static_cast<double>(groups * (groups - 1)));
  return agreement;
}

// Whether a cut through the page parts lines of one skew from lines of another.
// Lines that curve or converge differ on both sides, too, but among themselves
// as well.
bool AreSeveral(const std::vector<Vote>& votes) {
  constexpr double kLeastApart = 0.3;    // degrees
  constexpr double kNear = 0.2;          // of that; so near to their own slope are
  constexpr double kMostAreNear = 0.75;  // so many on either side
  constexpr double kLeastWeight = 0.2;   // of all lines
  constexpr size_t kLeastLines = 8;
  double all = 0;
  for (const Vote& vote : votes) all += vote.weight;
  for (const bool isAcross : {true, false}) {
    for (int i = 3; i <= 13; ++i) {
      const double cut = i / 16.0;
      std::vector<Vote> before, after;
      double weight = 0;
      for (const Vote& vote : votes) {
        const bool isBefore = (isAcross ? vote.across : vote.down) < cut;
        (isBefore ? before : after).push_back(vote);
        if (isBefore) weight += vote.weight;
      }
      if (std::min(before.size(), after.size()) < kLeastLines) continue;
      if (std::min(weight, all - weight) < kLeastWeight * all) continue;
      const double first = Median(before), second = Median(after), apart = std::abs(first - second);
      if (apart >= kLeastApart && ShareNear(before, first, kNear * apart) >= kMostAreNear &&
          ShareNear(after, second, kNear * apart) >= kMostAreNear)
        return true;
    }
  }
  return false;
}

// ---- what the peak says
// -----------------------------------------------------------------------------------

// A 1-bit DIB of the ink, for as long as it is measured.
class InkPage {
 public:
  explicit InkPage(const BitPlane& ink) {
    const size_t stride = (static_cast<size_t>(ink.width()) + 31) / 32 * 4;
    const size_t size =
        sizeof(BITMAPINFOHEADER) + 2 * sizeof(RGBQUAD) + stride * static_cast<size_t>(ink.height());
    if (size > UINT32_MAX) return;
    block_ = GlobalAlloc(GMEM_MOVEABLE, size);
    auto* const bytes = block_ == nullptr ? nullptr : static_cast<uint8_t*>(GlobalLock(block_));
    if (bytes == nullptr) return;
    BITMAPINFOHEADER header = {};
    header.biSize = sizeof header;
    header.biWidth = ink.width();
    header.biHeight = ink.height();
    header.biPlanes = 1;
    header.biBitCount = 1;
    std::memcpy(bytes, &header, sizeof header);
    const RGBQUAD colours[2] = {{255, 255, 255, 0}, {0, 0, 0, 0}};
    std::memcpy(bytes + sizeof header, colours, sizeof colours);
    uint8_t* row = bytes + sizeof header + sizeof colours;
    for (int y = ink.height() - 1; y >= 0; --y, row += stride) {
      const uint64_t* const words = ink.Row(y);
      size_t i = 0;
      for (; i + 8 <= stride; i += 8) {
        const uint64_t leftFirst = LeftFirst(words[i / 8]);
        std::memcpy(row + i, &leftFirst, 8);
      }
      if (i < stride) {  // by four
        const uint64_t leftFirst = LeftFirst(words[i / 8]);
        std::memcpy(row + i, &leftFirst, 4);
      }
    }
    GlobalUnlock(block_);
  }
  ~InkPage() {
    if (block_ != nullptr) GlobalFree(block_);
  }
  InkPage(const InkPage&) = delete;
  InkPage& operator=(const InkPage&) = delete;

  SkewResult Measure(double range) const {
    const SkewOptions options = {range, 1};
    SkewResult result = {};
    if (block_ == nullptr || MeasureSkew(block_, &options, &result) == 0) result = {};
    return result;
  }

 private:
  // The word's bytes in memory as they stand in a row: the leftmost pixels first.
  static uint64_t LeftFirst(uint64_t word) {
    return std::endian::native == std::endian::little ? __builtin_bswap64(word) : word;
  }

  HGLOBAL block_ = nullptr;
};

std::string Words(const char* format, double a, double b, double c) {
  char text[200];
  std::snprintf(text, sizeof text, format, a, b, c);
  return text;
}

}  // namespace

PageSkew FindSkew(const BitPlane& ink, double range) {
  return FindSkew(ink, FindTextLines(ink, TangentOfDegrees(std::clamp(range, 1.0, 30.0))), range);
}

PageSkew FindSkew(const BitPlane& ink, const TextLines& lines, double range) {
  range = std::clamp(range, 1.0, 30.0);
  PageSkew skew;
  const std::vector<Vote> votes = VotesOf(lines, ink);
  const Agreement agreement = Agree(votes);
  const SkewResult peak = InkPage(ink).Measure(range);
  skew.isSeveral = AreSeveral(votes);
  skew.spread = agreement.spread;

  const double fromLines = Between(0.35, 0.1, agreement.error) * Between(0.2, 0.45, agreement.agreeing) *
                           Between(6, 14, agreement.lines) * Between(1.3, 0.8, agreement.disorder);
  const double apart = std::abs(peak.angle - agreement.degrees);
  if (peak.hasStructure != 0 && apart < std::max(0.35, std::min(1.0, 2 * agreement.spread))) {
    skew.angle = peak.angle;
    skew.confidence = std::max({peak.confidence, fromLines, 0.4 + 0.6 * peak.confidence});
    skew.error = std::min(agreement.error, 0.1);
    skew.reason = Words("lines and peak agree: %.2f and %.2f", agreement.degrees, peak.angle, 0);
  } else if (peak.hasStructure != 0 && peak.confidence >= fromLines) {
    skew.angle = peak.angle;
    skew.confidence = peak.confidence * (fromLines > 0.5 ? 0.5 : 1);
    skew.error = apart;
    skew.reason = Words("peak at %.2f, lines at %.2f", peak.angle, agreement.degrees, 0);
  } else {
    skew.angle = agreement.degrees;
    skew.confidence = fromLines;
    skew.error = agreement.error;
    skew.reason = Words("%.0f lines, %.2f degrees apart, %.0f %% near", agreement.lines, agreement.spread,
                        100 * agreement.agreeing);
  }
  if (skew.isSeveral) {
    skew.confidence = std::min(skew.confidence, 0.2);
    skew.reason = "parts of the page differ in skew";
  }
  return skew;
}

}  // namespace rastrel::pages
