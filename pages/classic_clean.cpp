#include "pages/classic_clean.h"

#include <cmath>
#include <cstring>
#include <utility>

#include "pages/black_and_white.h"
#include "pages/blank.h"
#include "pages/operations.h"
#include "pages/overlay.h"
#include "pages/safeguards.h"
#include "pages/skew.h"
#include "pages/specks.h"
#include "pages/text.h"

namespace rastrel::pages {
namespace {

// The level at which the filter darkens what has fewer than 3 light neighbours, and does nothing else, on a
// page whose entry 0 is black.
constexpr int kFillsLightSpecks = 80;

// TrimBlackBorder walks in from the right through what lies behind a row of 1 bit, which may be the row
// above, and ends a margin at the first light speck. This is some rows of the page with dark pixels behind
// them and without light specks.
Dib PrepareForTrim(const PageView& from, int top, int bottom) {
  const size_t rowBytes = static_cast<size_t>(from.width() + 7) / 8;
  const auto width =
      static_cast<int64_t>(rowBytes / 4 * 4 + 3) * 8;  // byte width / 8 is the last of its own row
  const Dib wide = MakePage(width, bottom - top, 1, from.resolution());
  const PageView to(wide);
  const auto lastMask = static_cast<uint8_t>(0xFF << (rowBytes * 8 - static_cast<size_t>(from.width())));
  for (int y = top; y < bottom; ++y) {
    uint8_t* row = to.PageRow(y - top);
    std::memset(row, 0, to.stride());
    std::memcpy(row, from.PageRow(y), rowBytes);
    row[rowBytes - 1] &= lastMask;
  }
  return Checked(CleanImage(wide.handle(), kFillsLightSpecks, 0), "no memory");
}

PaintedRuns RunsOfTrim(const Dib& dib) {
  // Rows are trimmed each for itself. Without light specks they need the rows around, so that bands overlap.
  constexpr int kBandRows = 256;
  const PageView page(dib);
  PaintedRuns runs;
  if (page.bits() != 1) {
    AddPaintedRuns(page, dib, pages::Trim(dib), 0, page.height(), &runs);
    return runs;
  }
  for (int first = 0; first < page.height(); first += kBandRows) {
    const int last = std::min(page.height(), first + kBandRows);
    const int top = std::max(0, first - 1), bottom = std::min(page.height(), last + 1);
    const Dib band = PrepareForTrim(page, top, bottom);
    AddPaintedRuns(page, band, pages::Trim(band), first - top, last - top, &runs);
  }
  return runs;
}

int64_t ChangedPixels(const Dib& before, const Dib& after) {
  const PageView from(before), to(after);
  int64_t changed = 0;
  for (int y = 0; y < from.height(); ++y) {
    for (int x = 0; x < from.width(); ++x) changed += !SamePixel(from, from.PageRow(y), to.PageRow(y), x);
  }
  return changed;
}

// A page on its way through the steps.
class Cleaning {
 public:
  // Paints what it removes in the overlay, if there is one.
  Cleaning(Dib page, const CleanOptions& options, CleanRecord* record, Overlay* overlay = nullptr)
      : page_(std::move(page)), options_(options), record_(*record), overlay_(overlay) {
    place_ = Placement::Of(PageView(page_));
    record_.widthIn = place_.widthIn;
    record_.heightIn = place_.heightIn;
    record_.isTextDark =
        options.text == TextTone::kAuto ? !IsDarkPage(page_) : options.text == TextTone::kDark;
  }

  Dib Finish() {
    if (options_.cropsSheet) Try("sheet", &Cleaning::CropSheet);
    if (options_.trims) TryRemoving(Removed::kBorder, "trim", &Cleaning::Trim);
    if (options_.erasesHoles) TryRemoving(Removed::kHole, "holes", &Cleaning::EraseHoles);
    if (options_.removesSpecks) TryRemoving(Removed::kSpeck, "specks", &Cleaning::RemoveSpecks);
    if (options_.deskew != Deskewing::kOff && !record_.isTurned) Try("deskew", &Cleaning::Deskew);
    record_.isBlank = IsBlank(page_, record_.isTextDark, options_.blankPercent);
    return std::move(page_);
  }

 private:
  // Thrown by a step that has no business with a page.
  struct NotHere {
    std::string reason;
  };

  void Try(const char* step, void (Cleaning::*work)()) {
    constexpr double kSteps = 6;  // with the blank test
    options_.Report(step, static_cast<double>(record_.times.size()) / kSteps);
    const StepTimer timer(&record_, step);
    try {
      (this->*work)();
    } catch (const NotHere& notHere) {
      record_.skipped.push_back({step, notHere.reason});
    } catch (const PageError& error) {
      record_.skipped.push_back({step, error.what()});
    }
  }

  void TryRemoving(Removed what, const char* step, void (Cleaning::*work)()) {
    const Dib before = overlay_ != nullptr ? Duplicate(page_) : Dib();
    Try(step, work);
    if (overlay_ != nullptr) overlay_->Paint(what, before, page_, place_);
  }

  void RequireDarkText() const {
    if (!record_.isTextDark) throw NotHere{"the page is dark"};
  }

  Ink Ground() const { return GroundInk(PageView(page_), record_.isTextDark); }

  // By the skew that the steps to come would find, with the surround.
  void TurnScan() {
    CleanOptions options = options_;
    options.cropsSheet = false;
    options.progress = nullptr;
    CleanRecord seen;
    Cleaning(Duplicate(page_), options, &seen).Finish();
    if (!seen.isTurned) return;
    page_ = Straighten(page_, -*seen.skew, ExtremeInk(PageView(page_), /*light=*/false));
    place_.degrees = -*seen.skew;
    place_.widthTurned = PageView(page_).width();
    place_.heightTurned = PageView(page_).height();
    record_.skew = seen.skew;
    record_.skewConfidence = seen.skewConfidence;
    record_.isTurned = true;
  }

  void CropSheet() {
    RequireDarkText();
    if (options_.deskew != Deskewing::kOff) TurnScan();
    const Area sheet = SheetArea(page_);
    record_.isCropped = sheet.width() < PageView(page_).width() || sheet.height() < PageView(page_).height();
    page_ = Crop(page_, sheet);
    place_.left = sheet.left;
    place_.top = sheet.top;
    if (overlay_ != nullptr) overlay_->PaintAround(Removed::kBorder, page_, place_);
  }

  void Trim() {
    RequireDarkText();
    constexpr int kLeastSide = 32;  // of a page that has an edge and a middle
    if (place_.widthIn < kLeastSide || place_.heightIn < kLeastSide) throw NotHere{"the page is too small"};
    const BorderResult result = PaintBorders(page_, RunsOfTrim(page_), Ground());
    record_.trimmedLeft = result.left;
    record_.trimmedRight = result.right;
    if (result.isTooMuch) throw NotHere{"what is dark at the edges is more than a border"};
    if (result.isPictureLeft || result.isPictureRight) {
      throw NotHere{Text("what is dark at the ", result.isPictureLeft ? "left" : "right",
                         " edge looks like a picture")};
    }
  }

  void EraseHoles() {
    RequireDarkText();
    record_.holes = pages::EraseHoles(page_, options_.holeSize, Ground());
    for (Hole& hole : record_.holes) {
      const Point middle = place_.ToInput({hole.x, hole.y});
      hole.x = middle.x;
      hole.y = middle.y;
    }
  }

  void RemoveSpecks() {
    {
      const PageView page(page_);
      if (page.bits() == 24 || !HasGreyRamp(page))
        throw NotHere{"only black-and-white and grey pages have them removed"};
      if (page.bits() == 8) RequireDarkText();
    }
    // Light specks on a dark ground are dark ones on the page's negative.
    if (!record_.isTextDark) Negate();
    Dib filtered = Despeckle(page_, options_.speckLevel, options_.filtersFully);
    if (options_.filtersFully) {
      record_.speckPixels = ChangedPixels(page_, filtered);
      page_ = std::move(filtered);
    } else {
      const Ink ground = GroundInk(PageView(page_), /*light=*/true);
      const SpeckCount erased = EraseSpecks(page_, std::move(filtered), ground);
      record_.specks = erased.specks;
      record_.speckPixels = erased.pixels;
    }
    if (!record_.isTextDark) Negate();
  }

  void Negate() const {
    for (uint8_t& byte : PageView(page_).pixels()) byte = static_cast<uint8_t>(~byte);
  }

  void Deskew() {
    {
      constexpr double kAlike = 0.02;
      const Resolution resolution = PageView(page_).resolution();
      if (std::abs(resolution.x - resolution.y) > kAlike * resolution.x) {
        throw NotHere{"its resolutions across and down differ"};
      }
    }
    options_.deskew == Deskewing::kWhole ? DeskewByWholeDegrees() : DeskewFinely();
  }

  void DeskewByWholeDegrees() {
    const int degrees = DetectSkewAngle(page_.handle(), record_.isTextDark, 0, nullptr);
    record_.skew = degrees;
    if (degrees == 0) return;
    RequireLessThanMost(degrees);
    page_ = Rotate(page_, -degrees, Ground());
    record_.isTurned = true;
  }

  void DeskewFinely() {
    constexpr double kUsualRange = 15, kLeastTurn = 0.05;
    const SkewOptions options = {.range = std::max(kUsualRange, options_.mostSkew),
                                 .polarity = record_.isTextDark ? 1 : 2};
    SkewResult skew = {};
    if (::MeasureSkew(page_.handle(), &options, &skew) == 0) throw PageError(LibraryError());
    record_.skewConfidence = skew.confidence;
    if (skew.hasStructure == 0) throw NotHere{"the page shows no lines to go by"};
    record_.skew = skew.angle;
    if (std::abs(skew.angle) <= kLeastTurn) return;
    if (skew.confidence < kSureOfSkew) {
      throw NotHere{Text(Fixed(skew.angle, 2), " degrees are not certain (confidence ",
                         Fixed(skew.confidence, 2), ")")};
    }
    RequireLessThanMost(skew.angle);
    page_ = Straighten(page_, -skew.angle, Ground());
    record_.isTurned = true;
  }

  void RequireLessThanMost(double degrees) const {
    if (std::abs(degrees) > options_.mostSkew) {
      throw NotHere{Text(Fixed(degrees, 1), " degrees are too many for skew")};
    }
  }

  Dib page_;
  const CleanOptions& options_;
  CleanRecord& record_;
  Overlay* overlay_;
  Placement place_;  // how the page lies on the one that came in
};

}  // namespace

Dib CleanClassically(Dib page, const CleanOptions& options, CleanRecord* record, Dib* overlay) {
  return InWorkingForm(std::move(page), overlay, [&](Dib working, Overlay* removed) {
    return Cleaning(std::move(working), options, record, removed).Finish();
  });
}

}  // namespace rastrel::pages
