#include "pages/clean.h"

#include <utility>

#include "pages/classic_clean.h"
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
  record->isResolutionAssumed = CompleteResolution(page, options.dpi);
  CleanOptions chosen = options;
  // On a resolution that is only assumed holes are not measured.
  if (record->isResolutionAssumed && !options.measuresHolesAnyway && !chosen.holeSize) {
    chosen.holeSize = kUsualHoles;
  }
  page = CleanClassically(std::move(page), chosen, record, overlay);
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

Examination ExaminePage(Dib page) {
  Examination result;
  {
    CleanRecord came;
    Describe(page, &came);
    result.width = came.width;
    result.height = came.height;
    result.bits = came.bits;
    result.dpiX = came.dpiX;
    result.dpiY = came.dpiY;
  }
  CleanOptions options;
  options.mostSkew = 0;  // only look
  CleanRecord examined;
  CleanPage(std::move(page), options, &examined);
  result.skew = examined.skew;
  result.skewConfidence = examined.skewConfidence;
  result.isBlank = examined.isBlank;
  result.isTextDark = examined.isTextDark;
  result.holes = std::move(examined.holes);
  result.times = std::move(examined.times);
  for (Skipped& skipped : examined.skipped) {
    // A skew that was found was only not to be turned back.
    if (skipped.step != "deskew" || !examined.skew) result.skipped.push_back(std::move(skipped));
  }
  return result;
}

}  // namespace rastrel::pages
