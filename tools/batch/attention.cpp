#include "tools/batch/attention.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace rastrel::tool {
namespace {

// The points of each reason, chosen so that one alarming thing outweighs two slight ones. A page that failed
// has all 100.
constexpr double kMost = 100;
constexpr double kTakenBack = 45;      // a step that the check undid
constexpr double kUncertainSkew = 25;  // lines were found, but not turned by
constexpr double kLargeSkew = 25;      // at kLargeDegrees or more
constexpr double kLargeDegrees = 10, kUsualDegrees = 3;
constexpr double kBlank = 15, kDropped = 30;
constexpr double kSideLeft = 12;  // a dark side that may be border, or not
constexpr double kLoss = 4;       // depth, colours, tags
constexpr int kMostSides = 2;
constexpr double kMuchBorder = 30, kUsualBorderShare = 0.06, kMuchBorderShare = 0.3;
constexpr double kManySpecks = 30, kUsualSpeckShare = 0.002, kManySpecksShare = 0.02;
constexpr double kUnsure = 20, kSureConfidence = 0.85, kUnsureConfidence = 0.5;
constexpr double kUnusual = 20;  // for each measure by which a page stands out among its neighbours

// How far a value has come from one to another, 0 to 1.
double Way(double value, double from, double to) {
  return std::clamp((value - from) / (to - from), 0.0, 1.0);
}

// Collects points and the words for them.
class Points {
 public:
  void Add(double points, const std::string& reason) {
    if (points >= 1) list_.emplace_back(points, reason);
  }
  Attention Sum() {
    std::stable_sort(list_.begin(), list_.end(),
                     [](const auto& one, const auto& other) { return one.first > other.first; });
    Attention attention;
    double sum = 0;
    for (const auto& [points, reason] : list_) {
      sum += points;
      attention.reasons.push_back(reason);
    }
    attention.score = static_cast<int>(std::lround(std::min(sum, kMost)));
    return attention;
  }

 private:
  std::vector<std::pair<double, std::string>> list_;
};

void AddOwn(const PageFacts& page, Points* points) {
  if (page.isFailed) points->Add(kMost, "failed");
  if (page.takenBack > 0) points->Add(kTakenBack, "a step was taken back, as ink would have been lost");
  if (page.isDropped) {
    points->Add(kDropped, "blank, left out");
  } else if (page.isBlank) {
    points->Add(kBlank, "blank");
  } else if (!page.isTurned && page.skewConfidence >= 0 && page.skewConfidence < 0.5 && page.skew != 0) {
    points->Add(kUncertainSkew, "skewed, but by how much is not certain");
  }
  if (page.isTurned) {
    points->Add(kLargeSkew * Way(std::abs(page.skew), kUsualDegrees, kLargeDegrees),
                fmt::format("turned by {:.1f} degrees", -page.skew));
  }
  points->Add(kSideLeft * std::min(page.sidesLeft, kMostSides), "something dark was left at a side");
  points->Add(kLoss * page.losses, "something was lost between the files");
  points->Add(kMuchBorder * Way(page.removedShare, kUsualBorderShare, kMuchBorderShare),
              fmt::format("{:.0f} % removed as border", 100 * page.removedShare));
  points->Add(kManySpecks * Way(page.speckShare, kUsualSpeckShare, kManySpecksShare),
              fmt::format("{:.2f} % in specks", 100 * page.speckShare));
  points->Add(kUnsure * Way(kSureConfidence - page.leastConfidence, 0, kSureConfidence - kUnsureConfidence),
              "what was removed is not certain");
}

double Median(std::vector<double>* values) {
  const auto middle = values->begin() + static_cast<std::ptrdiff_t>(values->size() / 2);
  std::nth_element(values->begin(), middle, values->end());
  return *middle;
}

struct Measure {
  const char* reason;
  double (*value)(const PageFacts& page);
  double least;  // a smaller spread than this is none
};
constexpr Measure kMeasures[] = {
    {"another width than its neighbours", [](const PageFacts& page) { return std::log(1 + page.width); },
     0.02},
    {"another height than its neighbours", [](const PageFacts& page) { return std::log(1 + page.height); },
     0.02},
    {"another skew than its neighbours", [](const PageFacts& page) { return page.skew; }, 0.6},
    {"more or less removed than from its neighbours", [](const PageFacts& page) { return page.removedShare; },
     0.02},
    {"more specks than its neighbours", [](const PageFacts& page) { return page.speckShare; }, 0.0007},
    {"other holes than its neighbours", [](const PageFacts& page) { return page.holes * 1.0; }, 0.35},
    {"blank, unlike its neighbours", [](const PageFacts& page) { return page.isBlank ? 1.0 : 0.0; }, 0.2},
};

// Beside the median of the pages around it, in spreads: the median distance from that median, which a page
// that stands out itself does not move.
void AddUnusual(const std::vector<PageFacts>& pages, size_t at, Points* points) {
  constexpr size_t kAround = 12, kFewest = 5;
  constexpr double kOut = 3, kFarOut = 10;
  constexpr double kSpreadOfMedian = 1.4826;  // makes the median distance a standard deviation
  const PageFacts& page = pages[at];
  std::vector<const PageFacts*> neighbours;
  const size_t last = std::min(pages.size(), at + kAround + 1);
  for (size_t i = at < kAround ? 0 : at - kAround; i < last; ++i) {
    const bool isDone = !pages[i].isFailed && !pages[i].isWaiting;
    if (isDone && pages[i].folder == page.folder) neighbours.push_back(&pages[i]);
  }
  if (page.isFailed || page.isWaiting || neighbours.size() < kFewest) return;
  std::vector<double> values(neighbours.size());
  for (const Measure& measure : kMeasures) {
    for (size_t i = 0; i < values.size(); ++i) values[i] = measure.value(*neighbours[i]);
    const double median = Median(&values);
    for (double& value : values) value = std::abs(value - median);
    const double spread = std::max(kSpreadOfMedian * Median(&values), measure.least);
    const double distance = std::abs(measure.value(page) - median) / spread;
    points->Add(kUnusual * Way(distance, kOut, kFarOut), measure.reason);
  }
}

}  // namespace

PageFacts FactsFrom(const std::string& text) {
  PageFacts facts;
  const auto record = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (!record.is_object()) return facts;
  const auto size = [&](const char* list) {
    const auto found = record.find(list);
    return found != record.end() && found->is_array() ? static_cast<int>(found->size()) : 0;
  };
  facts.isFailed = record.contains("error");
  facts.isBlank = record.value("blank", false);
  facts.isDropped = record.value("dropped", false);
  facts.isTurned = record.value("turned", false);
  const auto number = [&](const char* name, double standard) {
    const auto found = record.find(name);
    return found != record.end() && found->is_number() ? found->get<double>() : standard;
  };
  facts.skew = number("skew", 0);
  facts.skewConfidence = number("skewConfidence", -1);
  const double width = number("widthIn", 0), height = number("heightIn", 0);
  const double pixels = std::max(1.0, width * height), dpi = number("dpi", 0);
  facts.removedShare = number("trimmedPixels", 0) / pixels;
  facts.speckShare = number("speckPixels", 0) / pixels;
  facts.holes = static_cast<int>(number("holes", 0));
  facts.width = dpi > 0 ? width / dpi : width;
  facts.height = dpi > 0 ? height / dpi : height;
  facts.takenBack = size("takenBack");
  facts.sidesLeft = size("sidesLeft");
  facts.losses = size("reduced");
  if (size("regions") > 0) {
    for (const auto& region : record["regions"]) {
      if (region.value("kind", "") == "turn" || region.value("takenBack", false)) continue;
      facts.leastConfidence = std::min(facts.leastConfidence, region.value("confidence", 1.0));
    }
  }
  if (record.contains("steps")) {
    double milliseconds = 0;
    for (const auto& step : record["steps"]) milliseconds += step.value("ms", 0.0);
    facts.seconds = milliseconds / 1000;
  }
  return facts;
}

std::vector<Attention> AttentionOf(const std::vector<PageFacts>& pages) {
  std::vector<Attention> all;
  all.reserve(pages.size());
  for (size_t i = 0; i < pages.size(); ++i) {
    Points points;
    AddOwn(pages[i], &points);
    AddUnusual(pages, i, &points);
    all.push_back(points.Sum());
  }
  return all;
}

}  // namespace rastrel::tool
