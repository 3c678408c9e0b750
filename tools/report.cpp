#include "tools/report.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/console.h"
#include "tools/json_line.h"
#include "tools/system.h"

namespace rastrel::tool {
namespace {

using Json = nlohmann::ordered_json;

double Rounded(double value, double steps) { return std::round(value * steps) / steps + 0.0; }  // no -0.0

// The page's own record, in which it is told after `blank` whether the page was left out.
void AddRecord(const PageReport& report, Command command, Json* json) {
  const Json record = Json::parse(CleanRecordJson(report.record.get()));
  for (const auto& [name, value] : record.items()) {
    (*json)[name] = value;
    if (name == "blank" && command == Command::kClean) (*json)["dropped"] = report.isDropped;
  }
}

Json StepsOf(const PageReport& report) {
  Json steps = Json::array();
  for (const StepTime& time : report.times) {
    steps.push_back({{"step", time.step}, {"ms", Rounded(time.milliseconds, 1000)}});
  }
  return steps;
}

Json ToJson(const PageReport& report, Command command) {
  Json json = {{"file", report.file}, {"page", report.page}, {"pages", report.pages}};
  if (report.outputs.size() == 1) json["output"] = report.outputs.front();
  if (report.outputs.size() > 1) json["outputs"] = report.outputs;
  if (!report.error.empty()) {
    json["error"] = report.error;
    if (report.isLeftOut) json["leftOut"] = true;
    return json;
  }
  if (report.replacesInput) json["replacesInput"] = true;
  if (!report.overlay.empty()) json["overlay"] = report.overlay;
  if (report.joined > 1) json["joined"] = report.joined;
  if (report.made > 1) json["made"] = report.made;
  if (report.record) {
    AddRecord(report, command, &json);
  } else {
    const CleanSummary& page = report.summary;
    json["width"] = page.width;
    json["height"] = page.height;
    json["bits"] = page.bits;
    json["dpi"] = page.dpiX;
    if (page.dpiX != page.dpiY) json["dpiDown"] = page.dpiY;
    json["steps"] = Json::array();
    json["skipped"] = Json::array();
  }
  json["reduced"] = report.reduced;
  if (command == Command::kInfo) {
    json["depth"] = std::atoi(report.depth.c_str());
    json["space"] = report.space;
    json["compression"] = report.compression;
    json["tags"] = report.tags;
  }
  if (command != Command::kInfo) json["steps"] = StepsOf(report);
  return json;
}

struct Skipped {
  const char* step = "";
  const char* reason = "";
};
std::vector<Skipped> SkippedOf(const PageReport& report) {
  std::vector<Skipped> list(static_cast<size_t>(report.summary.skipped));
  int32_t i = 0;
  for (Skipped& skipped : list) GetCleanSkipped(report.record.get(), i++, &skipped.step, &skipped.reason);
  return list;
}

std::vector<PageHole> HolesOf(const PageReport& report) {
  std::vector<PageHole> holes(static_cast<size_t>(report.summary.holes), Sized<PageHole>());
  int32_t i = 0;
  for (PageHole& hole : holes) GetCleanHole(report.record.get(), i++, &hole);
  return holes;
}

int64_t TrimmedPixels(const CleanSummary& page) {
  return page.trimmedLeft + page.trimmedTop + page.trimmedRight + page.trimmedBottom;
}

std::string Dots(const CleanSummary& record) {
  if (record.dpiX == record.dpiY) return fmt::format("{:g} dpi", record.dpiX);
  return fmt::format("{:g} x {:g} dpi", record.dpiX, record.dpiY);
}

void PrintRemoved(std::FILE* out, const PageReport& report) {
  const CleanSummary& page = report.summary;
  if (TrimmedPixels(page) > 0) {
    Print(out, "    border: {} pixels at the left, {} at the right, {} above, {} below\n", page.trimmedLeft,
          page.trimmedRight, page.trimmedTop, page.trimmedBottom);
  }
  for (const PageHole& hole : HolesOf(report)) {
    Print(out, "    hole at the {}: {:.0f} pixels wide, its middle at {:.0f}, {:.0f}\n", hole.side,
          hole.diameter, hole.x, hole.y);
  }
  if (page.specks > 0) Print(out, "    specks: {}, of {} pixels in all\n", page.specks, page.speckPixels);
}

void PrintSteps(std::FILE* out, const PageReport& report) {
  for (const Skipped& skipped : SkippedOf(report)) {
    Print(out, "    {} skipped: {}\n", skipped.step, skipped.reason);
  }
  for (const StepTime& time : report.times) Print(out, "    {}: {:.2f} ms\n", time.step, time.milliseconds);
}

void PrintReduced(std::FILE* out, const PageReport& report) {
  for (const std::string& reduction : report.reduced) Print(out, "    reduced: {}\n", reduction);
}

// "8 bits", or "8 bits (16 in the file)"
std::string Bits(const PageReport& report) {
  const int32_t bits = report.summary.bits;
  const std::string text = fmt::format("{} bit{}", bits, bits == 1 ? "" : "s");
  const bool isDeeper = std::atoi(report.depth.c_str()) > 8;
  return isDeeper ? fmt::format("{} ({} a sample in the file)", text, report.depth) : text;
}

std::string PageName(const PageReport& report) {
  if (report.joined > 1) return fmt::format("{} and {} more", report.file, report.joined - 1);
  return report.pages > 1 ? fmt::format("{} page {}", report.file, report.page) : report.file;
}

}  // namespace

std::string Deeds(const PageReport& report) {
  if (report.isDropped) return "blank, left out";
  const CleanSummary& page = report.summary;
  std::string text;
  const auto add = [&text](std::string deed) { text += (text.empty() ? "" : ", ") + deed; };
  if (page.isCropped) add("sheet cut out");
  if (page.isTurned) add(fmt::format("turned by {:.2f} degrees", -page.skew));
  if (TrimmedPixels(page) > 0) add("border trimmed");
  if (page.holes > 0) add(fmt::format("{} hole{} erased", page.holes, page.holes == 1 ? "" : "s"));
  if (page.specks > 0) add("specks removed");
  if (page.specks == 0 && page.speckPixels > 0) add("filtered");
  if (page.isReduced) add("made black and white");
  return text.empty() ? "nothing to do" : text;
}

Reporter::Reporter(Command command, const ReportOptions& options, size_t pages)
    : command_(command), options_(options), pages_(pages), out_(options.toStandardError ? stderr : stdout) {
  hasBar_ = pages > 1 && !options.take && command != Command::kInfo && !options.isQuiet &&
            !options.isVerbose && CanDrawOnScreen();
  DrawBar();
}

Reporter::~Reporter() {
  ClearBar();
  if (hasBar_ && !options_.isJson) PrintCounts(fmt::format("{} pages", pages_), "");
}

void Reporter::Page(const PageReport& report) {
  ++done_;
  if (command_ == Command::kClean) {
    turned_ += report.summary.isTurned;
    trimmed_ += TrimmedPixels(report.summary) > 0;
    punched_ += report.summary.holes > 0;
  }
  failed_ += !report.error.empty();
  if (!report.outputs.empty()) {
    replacesInput_ = replacesInput_ || report.replacesInput;
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
  if (options_.take) {
    options_.take(report, JsonLine(ToJson(report, command_)));
    return;
  }
  if (options_.isJson) {
    Put(out_, JsonLine(ToJson(report, command_)) + "\n");
  } else if (!options_.isQuiet) {
    PrintLine(report);
  }
  DrawBar();
}

// Where `pages` pages went.
std::string Reporter::Arrow(int pages) const {
  if (firstOutput_.empty()) return "";
  const std::string place = replacesInput_ ? ", in place of the input" : "";
  if (firstOutput_ != lastOutput_) return fmt::format(" -> {} to {}{}", firstOutput_, lastOutput_, place);
  return fmt::format(" -> {}{}{}", firstOutput_, made_ > pages ? fmt::format(", {} pages", made_) : "",
                     place);
}

void Reporter::PrintLine(const PageReport& report) {
  const CleanSummary& record = report.summary;
  if (command_ == Command::kInfo) {
    if (!report.error.empty()) return;
    Print(out_, "{}: {} x {} pixels, {}, {}, skew {}{}\n", PageName(report), record.width, record.height,
          Bits(report), record.dpiX > 0 ? Dots(record) : "no resolution",
          record.isSkewCertain != 0 ? fmt::format("{:.2f}", record.skew) : "unknown",
          record.isBlank ? ", blank" : "");
    if (options_.isVerbose) {
      Print(out_, "    file: {}, {} bits a sample, compression: {}{}{}\n", report.space, report.depth,
            report.compression, report.tags.empty() ? "" : "; ", fmt::join(report.tags, ", "));
      PrintReduced(out_, report);
      PrintSteps(out_, report);
    }
    return;
  }
  if (options_.isVerbose) {
    const std::string arrow = Arrow(1);
    ForgetOutputs();
    if (!report.error.empty()) return;
    const std::string deeds = command_ == Command::kClean ? Deeds(report) : "done";
    Print(out_, "{}: {} x {} pixels, {} bit{}, {}: {}{}\n", PageName(report), record.width, record.height,
          record.bits, record.bits == 1 ? "" : "s", Dots(record), deeds, arrow);
    if (command_ == Command::kClean) PrintRemoved(out_, report);
    PrintReduced(out_, report);
    if (!report.overlay.empty()) Print(out_, "    overlay: {}\n", report.overlay);
    PrintSteps(out_, report);
    return;
  }
  if (report.page < report.pages || hasBar_) return;
  const std::string arrow = Arrow(report.pages);
  ForgetOutputs();
  if (report.pages > 1) {
    if (failed_ < report.pages) PrintCounts(fmt::format("{}: {} pages", report.file, report.pages), arrow);
  } else if (report.error.empty()) {
    Print(out_, "{}: {}{}\n", PageName(report), command_ == Command::kClean ? Deeds(report) : "done", arrow);
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
  Print(out_, "{}{}\n", text, tail);
}

void Reporter::Error(const std::string& file, const std::string& message) {
  hasErrors_ = true;
  if (options_.take) return;
  ClearBar();
  Print(stderr, "rastrel: {}: {}\n", file, message);
}

void Reporter::Warn(const std::string& message) {
  if (options_.isQuiet || options_.take) return;
  ClearBar();
  Print(stderr, "rastrel: {}\n", message);
}

void Reporter::ClearBar() {
  if (!isBarDrawn_) return;
  Put(stderr, "\r\x1b[K");
  isBarDrawn_ = false;
}

void Reporter::DrawBar() {
  constexpr size_t kCells = 30;
  if (!hasBar_ || pages_ == 0 || done_ == pages_) return;
  const size_t full = done_ * kCells / pages_;
  Put(stderr, fmt::format("\r\x1b[K[{:#<{}}{:.<{}}] {} of {}", "", full, "", kCells - full, done_, pages_));
  isBarDrawn_ = true;
}

}  // namespace rastrel::tool
