#include "pages/clean.h"

#include <utility>

#include "pages/blank.h"
#include "pages/classic_clean.h"
#include "pages/model_clean.h"
#include "pages/operations.h"

namespace rastrel::pages {
namespace {

// Discs of 6 mm around holes of 5 to 7 mm.
constexpr int kUsualHoles = 8;

Dib ReducePage(const Dib& page, Reduction method, int brightness) {
  switch (method) {
    case Reduction::kThreshold:
      return Halftone(page, Halftoning::kThreshold, brightness);
    case Reduction::kOrdered:
      return Halftone(page, Halftoning::kOrdered, brightness);
    case Reduction::kFloydSteinberg:
      return Dither(page, Diffusion::kFloydSteinberg, 1);
    case Reduction::kJarvisJudiceNinke:
      return Dither(page, Diffusion::kJarvisJudiceNinke, 1);
    case Reduction::kAuto:
      return ToBlackAndWhite(page);
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

}  // namespace

Dib CleanPage(Dib page, const CleanOptions& options, CleanRecord* record, Dib* overlay) {
  record->isResolutionAssumed = CompleteResolution(&PageView(page).header(), options.dpi);
  CleanOptions chosen = options;
  // On a resolution that is only assumed holes are not measured.
  if (options.isClassic && record->isResolutionAssumed && !options.measuresHolesAnyway && !chosen.holeSize) {
    chosen.holeSize = kUsualHoles;
  }
  page = chosen.isClassic ? CleanClassically(std::move(page), chosen, record, overlay)
                          : CleanByModel(std::move(page), chosen, record, overlay);
  if (options.reduction != Reduction::kNone && PageView(page).bits() == 1) {
    record->skipped.push_back({"reduce", "the page has 1 bit already"});
  } else if (options.reduction != Reduction::kNone) {
    const StepTimer timer(record, "reduce");
    record->isReduced = true;
    page = ReducePage(page, options.reduction, options.brightness);
  }
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
