#include "pages/clean.h"

#include <algorithm>
#include <utility>

#include "pages/blank.h"
#include "pages/classic_clean.h"
#include "pages/model_clean.h"
#include "pages/operations.h"
#include "pages/text.h"

namespace rastrel::pages {
namespace {

// Discs of 6 mm around holes of 5 to 7 mm.
constexpr int kUsualHoles = 8;

// How many times its resolution a page gets: never less than it has, and no more than there is to gain.
struct Enlargement {
  double across = 1, down = 1;
};
Enlargement EnlargementOf(const PageView& page, double toDpi, CleanRecord* record) {
  constexpr double kMostTimes = 4;
  if (toDpi == 0) return {};
  const double perMetre = PixelsPerMetre(toDpi);
  const Enlargement times = {perMetre / page.resolution().x, perMetre / page.resolution().y};
  const double least = std::min(times.across, times.down), most = std::max(times.across, times.down);
  if (least < 1) {
    record->skipped.push_back({"to-dpi", "the page has more than that"});
  } else if (most > kMostTimes) {
    record->skipped.push_back({"to-dpi", "that is more than four times what the page has"});
  } else {
    return times;
  }
  return {};
}

Dib ReducePage(const Dib& page, const CleanOptions& options, Enlargement times) {
  switch (options.reduction) {
    case Reduction::kThreshold:
      return Halftone(page, Halftoning::kThreshold, options.brightness);
    case Reduction::kOrdered:
      return Halftone(page, Halftoning::kOrdered, options.brightness);
    case Reduction::kFloydSteinberg:
      return Dither(page, Diffusion::kFloydSteinberg, 1);
    case Reduction::kJarvisJudiceNinke:
      return Dither(page, Diffusion::kJarvisJudiceNinke, 1);
    case Reduction::kAuto:
      return ToBlackAndWhite(page, {.timesAcross = times.across, .timesDown = times.down});
    case Reduction::kNone:
      break;
  }
  return Duplicate(page);
}

void Describe(const Dib& dib, CleanRecord* record) {
  const PageView page(dib);
  record->width = page.width();
  record->height = page.height();
  record->bits = page.bits();
  record->dpiX = DotsPerInch(page.resolution().x);
  record->dpiY = DotsPerInch(page.resolution().y);
}

// In black and white, unless ink would go by that.
Dib Reduced(Dib page, const CleanOptions& options, const InkBefore& before, CleanRecord* record) {
  if (PageView(page).bits() == 1) {
    record->skipped.push_back({"reduce", "the page has 1 bit already"});
    return page;
  }
  const StepTimer timer(record, "reduce");
  const Enlargement times = EnlargementOf(PageView(page), options.toDpi, record);
  Dib result = ReducePage(page, options, times);
  if (!options.isClassic) {
    const Movement movement = before.movement.Enlarged(times.across, times.down);
    const auto find = [&] {
      return FindLost(before.ink, before.grey, before.named, PageView(result), record->isTextDark, movement);
    };
    Missing missing = find();
    // What is too small or too pale for a stroke, and is ink nevertheless.
    if (!missing.isNothing() && options.reduction == Reduction::kAuto) {
      PutBack(missing, before.ink, PageView(result), record->isTextDark, movement);
      missing = find();
    }
    if (!missing.isNothing()) {
      record->takenBack.push_back(
          {"reduce", Text(missing.pixels, " pixels of ink would have become white at ", missing.box.left,
                          ", ", missing.box.top)});
      return page;
    }
  }
  record->isReduced = true;
  return result;
}

}  // namespace

Dib CleanPage(Dib page, const CleanOptions& options, CleanRecord* record, Dib* overlay) {
  record->isResolutionAssumed = CompleteResolution(&PageView(page).header(), options.dpi);
  CleanOptions chosen = options;
  // On a resolution that is only assumed holes are not measured.
  if (options.isClassic && record->isResolutionAssumed && !options.measuresHolesAnyway && !chosen.holeSize) {
    chosen.holeSize = kUsualHoles;
  }
  InkBefore before;
  page = chosen.isClassic ? CleanClassically(std::move(page), chosen, record, overlay)
                          : CleanByModel(std::move(page), chosen, record, overlay, &before);
  if (options.reduction != Reduction::kNone) page = Reduced(std::move(page), chosen, before, record);
  Describe(page, record);
  return page;
}

CleanRecord ExaminePage(Dib page) {
  CleanRecord result;
  result.isExamination = true;
  Describe(page, &result);
  result.widthIn = result.width;
  result.heightIn = result.height;
  const Dib asItIs = Duplicate(page);
  CleanOptions options;
  options.mostSkew = 0;  // only look
  CleanRecord found;
  CleanPage(std::move(page), options, &found);
  result.skew = found.skew;
  result.skewConfidence = found.skewConfidence;
  result.isTextDark = found.isTextDark;
  result.isBlank = found.isBlank;
  result.isResolutionAssumed = found.isResolutionAssumed;
  result.inkPercent = InkPercent(asItIs, found.isTextDark);
  result.holes = std::move(found.holes);
  result.times = std::move(found.times);
  for (Skipped& skipped : found.skipped) {
    // A skew that was found was only not to be turned back.
    if (skipped.step != "deskew" || !found.skew) result.skipped.push_back(std::move(skipped));
  }
  return result;
}

}  // namespace rastrel::pages
