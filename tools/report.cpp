#include "tools/report.h"

#include <cmath>
#include <cstdio>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/system.h"

namespace rastrel::tool {
namespace {

using Json = nlohmann::ordered_json;

double Rounded(double value, double steps) { return std::round(value * steps) / steps + 0.0; }  // no -0.0

Json ToJson(const PageReport& report, Command command) {
  const CleanRecord& record = report.record;
  Json json = {{"file", report.file}, {"page", report.page}, {"pages", report.pages}};
  if (report.outputs.size() == 1) json["output"] = report.outputs.front();
  if (report.outputs.size() > 1) json["outputs"] = report.outputs;
  if (!report.error.empty()) {
    json["error"] = report.error;
    return json;
  }
  if (!report.overlay.empty()) json["overlay"] = report.overlay;
  if (report.joined > 1) json["joined"] = report.joined;
  if (report.made > 1) json["made"] = report.made;
  json["width"] = record.width;
  json["height"] = record.height;
  json["bits"] = record.bits;
  json["dpi"] = record.dpiX;
  if (record.dpiX != record.dpiY) json["dpiDown"] = record.dpiY;
  if (record.skew) json["skew"] = Rounded(*record.skew, 100);
  if (record.skewConfidence) json["skewConfidence"] = Rounded(*record.skewConfidence, 100);
  if (command != Command::kApply) json["blank"] = record.isBlank;
  if (command == Command::kClean) {
    json["dropped"] = report.isDropped;
    json["text"] = record.isTextDark ? "dark" : "light";
    json["turned"] = record.isTurned;
    json["cropped"] = record.isCropped;
    json["widthIn"] = record.widthIn;
    json["heightIn"] = record.heightIn;
    json["trimmedPixels"] = record.trimmedPixels();
    json["trimmedLeft"] = record.trimmedLeft;
    json["trimmedTop"] = record.trimmedTop;
    json["trimmedRight"] = record.trimmedRight;
    json["trimmedBottom"] = record.trimmedBottom;
    json["holes"] = record.holes.size();
    json["holesAt"] = Json::array();
    for (const Hole& hole : record.holes) {
      json["holesAt"].push_back({{"x", Rounded(hole.x, 10)},
                                 {"y", Rounded(hole.y, 10)},
                                 {"diameter", Rounded(hole.diameter, 10)},
                                 {"side", pages::NameOf(hole.side)}});
    }
    json["specks"] = record.specks;
    json["speckPixels"] = record.speckPixels;
  }
  if (command != Command::kInfo) {
    json["steps"] = Json::array();
    for (const StepTime& time : record.times) {
      json["steps"].push_back({{"step", time.step}, {"ms", Rounded(time.milliseconds, 1000)}});
    }
    json["skipped"] = Json::array();
    for (const Skipped& skipped : record.skipped) {
      json["skipped"].push_back({{"step", skipped.step}, {"reason", skipped.reason}});
    }
    if (!record.sidesLeft.empty()) json["sidesLeft"] = Json::array();
    for (const pages::SideLeft& left : record.sidesLeft) {
      json["sidesLeft"].push_back({{"side", left.side}, {"reason", left.reason}});
    }
    if (!record.regions.empty()) json["regions"] = Json::array();
    for (const pages::Region& region : record.regions) {
      Json entry = {{"kind", region.kind},
                    {"left", region.left},
                    {"top", region.top},
                    {"right", region.right},
                    {"bottom", region.bottom},
                    {"pixels", region.pixels},
                    {"confidence", Rounded(region.confidence, 100)},
                    {"reason", region.reason}};
      if (region.isTakenBack) entry["takenBack"] = true;
      json["regions"].push_back(entry);
    }
    if (command == Command::kClean) json["checked"] = record.isChecked;
    if (!record.takenBack.empty()) json["takenBack"] = Json::array();
    for (const Skipped& taken : record.takenBack) {
      json["takenBack"].push_back({{"step", taken.step}, {"reason", taken.reason}});
    }
  }
  return json;
}

std::string Dots(const CleanRecord& record) {
  if (record.dpiX == record.dpiY) return fmt::format("{:g} dpi", record.dpiX);
  return fmt::format("{:g} x {:g} dpi", record.dpiX, record.dpiY);
}

bool IsSkewKnown(const CleanRecord& record) {
  return record.skew && record.skewConfidence.value_or(1) >= kCertainSkew;
}

// What was done to one page, in words.
std::string Deeds(const PageReport& report) {
  if (report.isDropped) return "blank, left out";
  const CleanRecord& record = report.record;
  std::string text;
  const auto add = [&text](std::string deed) { text += (text.empty() ? "" : ", ") + deed; };
  if (record.isCropped) add("sheet cut out");
  if (record.isTurned) add(fmt::format("turned by {:.2f} degrees", -record.skew.value_or(0)));
  if (record.trimmedPixels() > 0) add("border trimmed");
  if (!record.holes.empty())
    add(fmt::format("{} hole{} erased", record.holes.size(), record.holes.size() == 1 ? "" : "s"));
  if (record.specks > 0) add("specks removed");
  if (record.specks == 0 && record.speckPixels > 0) add("filtered");
  if (record.isReduced) add("made black and white");
  return text.empty() ? "nothing to do" : text;
}

void PrintRemoved(const CleanRecord& record) {
  if (record.trimmedPixels() > 0) {
    fmt::print("    border: {} pixels at the left, {} at the right, {} above, {} below\n", record.trimmedLeft,
               record.trimmedRight, record.trimmedTop, record.trimmedBottom);
  }
  for (const Hole& hole : record.holes) {
    fmt::print("    hole at the {}: {:.0f} pixels wide, its middle at {:.0f}, {:.0f}\n",
               pages::NameOf(hole.side), hole.diameter, hole.x, hole.y);
  }
  if (record.specks > 0)
    fmt::print("    specks: {}, of {} pixels in all\n", record.specks, record.speckPixels);
}

void PrintSteps(const CleanRecord& record) {
  for (const Skipped& skipped : record.skipped)
    fmt::print("    {} skipped: {}\n", skipped.step, skipped.reason);
  for (const StepTime& time : record.times) fmt::print("    {}: {:.2f} ms\n", time.step, time.milliseconds);
}

std::string PageName(const PageReport& report) {
  if (report.joined > 1) return fmt::format("{} and {} more", report.file, report.joined - 1);
  return report.pages > 1 ? fmt::format("{} page {}", report.file, report.page) : report.file;
}

}  // namespace

Reporter::Reporter(Command command, const ReportOptions& options, size_t pages)
    : command_(command), options_(options), pages_(pages) {
  hasBar_ =
      pages > 1 && command != Command::kInfo && !options.isQuiet && !options.isVerbose && CanDrawOnScreen();
  DrawBar();
}

Reporter::~Reporter() {
  ClearBar();
  if (hasBar_ && !options_.isJson) PrintCounts(fmt::format("{} pages", pages_), "");
  std::fflush(stdout);
}

void Reporter::Page(const PageReport& report) {
  ++done_;
  turned_ += report.record.isTurned;
  trimmed_ += report.record.trimmedPixels() > 0;
  punched_ += !report.record.holes.empty();
  failed_ += !report.error.empty();
  if (!report.outputs.empty()) {
    if (firstOutput_.empty()) firstOutput_ = report.outputs.front();
    lastOutput_ = report.outputs.back();
    made_ += report.made;
  }
  if (report.isDropped) {
    ++dropped_;
    droppedPages_ += fmt::format("{}{}", droppedPages_.empty() ? "" : ", ", report.page);
  }
  if (!report.error.empty() && !report.isFollowUp) Error(PageName(report), report.error);
  ClearBar();
  if (options_.isJson) {
    // A file name may be any bytes; JSON wants UTF-8.
    const std::string line = ToJson(report, command_).dump(-1, ' ', false, Json::error_handler_t::replace);
    fmt::print("{}\n", line);
  } else if (!options_.isQuiet) {
    PrintLine(report);
  }
  std::fflush(stdout);
  DrawBar();
}

// Where `pages` pages went.
std::string Reporter::Arrow(int pages) const {
  if (firstOutput_.empty()) return "";
  if (firstOutput_ != lastOutput_) return fmt::format(" -> {} to {}", firstOutput_, lastOutput_);
  return fmt::format(" -> {}{}", firstOutput_, made_ > pages ? fmt::format(", {} pages", made_) : "");
}

void Reporter::PrintLine(const PageReport& report) {
  const CleanRecord& record = report.record;
  if (command_ == Command::kInfo) {
    if (!report.error.empty()) return;
    fmt::print("{}: {} x {} pixels, {} bit{}, {}, skew {}{}\n", PageName(report), record.width, record.height,
               record.bits, record.bits == 1 ? "" : "s", record.dpiX > 0 ? Dots(record) : "no resolution",
               IsSkewKnown(record) ? fmt::format("{:.2f}", *record.skew) : "unknown",
               record.isBlank ? ", blank" : "");
    if (options_.isVerbose) PrintSteps(record);
    return;
  }
  if (options_.isVerbose) {
    const std::string arrow = Arrow(1);
    ForgetOutputs();
    if (!report.error.empty()) return;
    const std::string deeds = command_ == Command::kClean ? Deeds(report) : "done";
    fmt::print("{}: {} x {} pixels, {} bit{}, {}: {}{}\n", PageName(report), record.width, record.height,
               record.bits, record.bits == 1 ? "" : "s", Dots(record), deeds, arrow);
    if (command_ == Command::kClean) PrintRemoved(record);
    if (!report.overlay.empty()) fmt::print("    overlay: {}\n", report.overlay);
    PrintSteps(record);
    return;
  }
  if (report.page < report.pages || hasBar_) return;
  const std::string arrow = Arrow(report.pages);
  ForgetOutputs();
  if (report.pages > 1) {
    if (failed_ < report.pages) PrintCounts(fmt::format("{}: {} pages", report.file, report.pages), arrow);
  } else if (report.error.empty()) {
    fmt::print("{}: {}{}\n", PageName(report), command_ == Command::kClean ? Deeds(report) : "done", arrow);
  }
  turned_ = trimmed_ = punched_ = failed_ = dropped_ = 0;
  droppedPages_.clear();
}

void Reporter::PrintCounts(const std::string& head, const std::string& tail) const {
  std::string text = head;
  if (failed_ > 0) text += fmt::format(", {} failed", failed_);
  if (dropped_ > 0)
    text +=
        fmt::format(", {} blank left out{}", dropped_, hasBar_ ? "" : fmt::format(" ({})", droppedPages_));
  if (turned_ > 0) text += fmt::format(", {} turned", turned_);
  if (trimmed_ > 0) text += fmt::format(", {} trimmed", trimmed_);
  if (punched_ > 0) text += fmt::format(", {} with holes erased", punched_);
  fmt::print("{}{}\n", text, tail);
}

void Reporter::Error(const std::string& file, const std::string& message) {
  hasErrors_ = true;
  ClearBar();
  fmt::print(stderr, "rastrel: {}: {}\n", file, message);
}

void Reporter::Warn(const std::string& message) {
  if (options_.isQuiet) return;
  ClearBar();
  fmt::print(stderr, "rastrel: {}\n", message);
}

void Reporter::ClearBar() {
  if (!isBarDrawn_) return;
  fmt::print(stderr, "\r\x1b[K");
  isBarDrawn_ = false;
}

void Reporter::DrawBar() {
  constexpr size_t kCells = 30;
  if (!hasBar_ || pages_ == 0 || done_ == pages_) return;
  const size_t full = done_ * kCells / pages_;
  fmt::print(stderr, "\r\x1b[K[{:#<{}}{:.<{}}] {} of {}", "", full, "", kCells - full, done_, pages_);
  std::fflush(stderr);
  isBarDrawn_ = true;
}

}  // namespace rastrel::tool
