// Cleaning and examination for callers of the C interface.
#include <memory>
#include <string>
#include <vector>

#include "pages/blank.h"
#include "pages/clean.h"
#include "pages/interface.h"
#include "pages/judgement.h"
#include "pages/record.h"
#include "pages/safeguards.h"
#include "pages/skew.h"

struct CleanRecord {
  rastrel::pages::CleanRecord record;
  std::string json;
};

namespace rastrel::pages {
namespace {

using Options = ::CleanOptions;  // the caller's

constexpr Options kStandard = {.size = sizeof(Options),
                               .text = TextAuto,
                               .cropSheet = 0,
                               .trim = 1,
                               .holes = 1,
                               .holeSize = HolesUsual,
                               .specks = 1,
                               .speckLevel = 30,
                               .speckFull = 0,
                               .deskew = DeskewFine,
                               .mostSkew = 15,
                               .blankPercent = 0.1,
                               .reduce = ReduceNone,
                               .brightness = 0,
                               .dpi = 0,
                               .progress = nullptr,
                               .progressContext = nullptr,
                               .classic = 0,
                               .evenLight = 0,
                               .whitePaper = 0,
                               .lessBleed = 0,
                               .explain = nullptr,
                               .explainContext = nullptr,
                               .toDpi = 0};

// As InRange, for options.
template <class Number>
Number Option(Number value, Number least, Number most, const char* name) {
  if (!(value >= least && value <= most)) throw PageError(std::string(name) + " is out of range", ErrOption);
  return value;
}

CleanOptions Translated(const Options* given) {
  const Options options = TakeStruct(given, kStandard);
  CleanOptions result;
  result.text = static_cast<TextTone>(Option<int>(options.text, TextAuto, TextLight, "text"));
  result.isClassic = options.classic != 0;
  result.cropsSheet = options.cropSheet != 0;
  result.evensLight = options.evenLight != 0;
  result.whitensPaper = options.whitePaper != 0;
  result.weakensShowThrough = options.lessBleed != 0;
  result.trims = options.trim != 0;
  result.erasesHoles = options.holes != 0;
  const int size = Option<int>(options.holeSize, HolesUsual, 40, "holeSize");
  result.measuresHolesAnyway = size == HolesAny;
  if (size > HolesAny) result.holeSize = size;
  result.removesSpecks = options.specks != 0;
  result.speckLevel = Option<int>(options.speckLevel, 20, 100, "speckLevel");
  result.filtersFully = options.speckFull != 0;
  result.deskew = static_cast<Deskewing>(Option<int>(options.deskew, DeskewOff, DeskewFine, "deskew"));
  result.mostSkew = Option(options.mostSkew, 0.0, 45.0, "mostSkew");
  result.blankPercent = Option(options.blankPercent, 0.0, 100.0, "blankPercent");
  result.reduction = static_cast<Reduction>(Option<int>(options.reduce, ReduceNone, ReduceAuto, "reduce"));
  result.brightness = Option<int>(options.brightness, -255, 255, "brightness");
  const bool isDiffusion =
      options.reduce == ReduceFloydSteinberg || options.reduce == ReduceJarvisJudiceNinke;
  if (options.brightness != 0 && isDiffusion) {
    throw PageError("brightness goes with ReduceThreshold and ReduceOrdered", ErrOption);
  }
  result.dpi = Option(options.dpi, 0.0, 1e6, "dpi");
  if (options.toDpi != 0) {
    if (options.reduce != ReduceAuto) throw PageError("toDpi goes with ReduceAuto", ErrOption);
    result.toDpi = Option<double>(options.toDpi, kLeastResolution, kMostResolution, "toDpi");
  }
  if (options.explain != nullptr) {
    result.explain = [explain = options.explain, context = options.explainContext](const std::string& name,
                                                                                   const Dib& picture) {
      explain(context, name.c_str(), picture.handle());
    };
  }
  if (options.progress != nullptr) {
    result.progress = [progress = options.progress, context = options.progressContext](
                          const char* step, double done) { return progress(context, step, done) == 0; };
  }
  return result;
}

HGLOBAL Clean(Dib page, const Options* options, ::CleanRecord** record, HGLOBAL* overlay) {
  auto made = std::make_unique<::CleanRecord>();
  Dib picture;
  Dib result =
      CleanPage(std::move(page), Translated(options), &made->record, overlay != nullptr ? &picture : nullptr);
  if (record != nullptr) {
    made->json = JsonOf(made->record);
    *record = made.release();
  }
  if (overlay != nullptr) *overlay = picture.Release();
  return result.Release();
}

const CleanRecord& Of(const ::CleanRecord* record) {
  Require(record != nullptr, "there is no record");
  return record->record;
}

template <class Entry>
const Entry& At(const std::vector<Entry>& list, int32_t index) {
  Require(index >= 0 && static_cast<size_t>(index) < list.size(), "there is no such entry");
  return list[static_cast<size_t>(index)];
}

int GiveTexts(const std::string& first, const char** firstText, const std::string& second,
              const char** secondText) {
  if (firstText != nullptr) *firstText = first.c_str();
  if (secondText != nullptr) *secondText = second.c_str();
  return 1;
}

CleanSummary SummaryOf(const CleanRecord& record) {
  const auto count = [](const auto& list) { return static_cast<int32_t>(list.size()); };
  return {.size = sizeof(CleanSummary),
          .width = record.width,
          .height = record.height,
          .bits = record.bits,
          .dpiX = record.dpiX,
          .dpiY = record.dpiY,
          .widthIn = record.widthIn,
          .heightIn = record.heightIn,
          .isResolutionAssumed = record.isResolutionAssumed,
          .isTextDark = record.isTextDark,
          .hasSkew = record.skew.has_value(),
          .skew = record.skew.value_or(0),
          .skewConfidence = record.skewConfidence.value_or(-1),
          .inkPercent = record.inkPercent.value_or(-1),
          .isBlank = record.isBlank,
          .isTurned = record.isTurned,
          .isCropped = record.isCropped,
          .isReduced = record.isReduced,
          .trimmedLeft = record.trimmedLeft,
          .trimmedRight = record.trimmedRight,
          .specks = record.specks,
          .speckPixels = record.speckPixels,
          .holes = count(record.holes),
          .times = count(record.times),
          .skipped = count(record.skipped),
          .regions = count(record.regions),
          .trimmedTop = record.trimmedTop,
          .trimmedBottom = record.trimmedBottom,
          .isChecked = record.isChecked,
          .takenBack = count(record.takenBack),
          .sidesLeft = count(record.sidesLeft),
          .isSkewCertain = record.skew.has_value() && record.skewConfidence.value_or(1) >= kSureOfSkew};
}

bool IsTextDark(const Dib& page, int text) {
  InRange<int>(text, TextAuto, TextLight, "text is out of range");
  return text == TextAuto ? !IsDarkPage(page) : text == TextDark;
}

}  // namespace
}  // namespace rastrel::pages

using namespace rastrel;
using namespace rastrel::pages;

int RASTREL_CALL DefaultCleanOptions(::CleanOptions* options, uint32_t size) {
  return Guarded(0, [&] {
    Require(options != nullptr, "there is no room for the result");
    Require(size >= sizeof(uint32_t), "a struct begins with its size");
    options->size = size;
    GiveStruct(kStandard, options);
    return 1;
  });
}

HGLOBAL RASTREL_CALL CleanPage(HGLOBAL page, const ::CleanOptions* options, ::CleanRecord** record,
                               HGLOBAL* overlay) {
  return Guarded<HGLOBAL>(nullptr, [&] { return Clean(InputPage(page).Copy(), options, record, overlay); });
}

HGLOBAL RASTREL_CALL TakeAndCleanPage(HGLOBAL page, const ::CleanOptions* options, ::CleanRecord** record,
                                      HGLOBAL* overlay) {
  return Guarded<HGLOBAL>(nullptr, [&] {
    Dib taken(page);
    Dib normal;
    {
      InputPage input(page);
      if (!input.isBorrowed()) normal = input.Copy();
    }
    if (normal) taken = std::move(normal);
    return Clean(std::move(taken), options, record, overlay);
  });
}

int RASTREL_CALL ExaminePage(HGLOBAL page, ::CleanRecord** record) {
  return Guarded(0, [&] {
    Require(record != nullptr, "there is no room for the result");
    auto made = std::make_unique<::CleanRecord>();
    made->record = pages::ExaminePage(InputPage(page).Copy());
    made->json = JsonOf(made->record);
    *record = made.release();
    return 1;
  });
}

void RASTREL_CALL FreeCleanRecord(::CleanRecord* record) { delete record; }

int RASTREL_CALL GetCleanSummary(const ::CleanRecord* record, CleanSummary* summary) {
  return Guarded(0, [&] {
    GiveStruct(SummaryOf(Of(record)), summary);
    return 1;
  });
}

int RASTREL_CALL GetCleanHole(const ::CleanRecord* record, int32_t index, PageHole* hole) {
  return Guarded(0, [&] {
    const Hole& entry = At(Of(record).holes, index);
    GiveStruct(PageHole{sizeof(PageHole), entry.x, entry.y, entry.diameter, NameOf(entry.side).data()}, hole);
    return 1;
  });
}

int RASTREL_CALL GetCleanRegion(const ::CleanRecord* record, int32_t index, PageRegion* region) {
  return Guarded(0, [&] {
    const Region& entry = At(Of(record).regions, index);
    GiveStruct(
        PageRegion{sizeof(PageRegion), entry.kind.c_str(), entry.left, entry.top, entry.right, entry.bottom,
                   entry.pixels, entry.confidence, entry.reason.c_str(), entry.isTakenBack},
        region);
    return 1;
  });
}

int RASTREL_CALL GetCleanSkipped(const ::CleanRecord* record, int32_t index, const char** step,
                                 const char** reason) {
  return Guarded(0, [&] {
    const Skipped& entry = At(Of(record).skipped, index);
    return GiveTexts(entry.step, step, entry.reason, reason);
  });
}

int RASTREL_CALL GetCleanTakenBack(const ::CleanRecord* record, int32_t index, const char** step,
                                   const char** reason) {
  return Guarded(0, [&] {
    const Skipped& entry = At(Of(record).takenBack, index);
    return GiveTexts(entry.step, step, entry.reason, reason);
  });
}

int RASTREL_CALL GetCleanSideLeft(const ::CleanRecord* record, int32_t index, const char** side,
                                  const char** reason) {
  return Guarded(0, [&] {
    const SideLeft& entry = At(Of(record).sidesLeft, index);
    return GiveTexts(entry.side, side, entry.reason, reason);
  });
}

int RASTREL_CALL GetCleanTime(const ::CleanRecord* record, int32_t index, const char** step,
                              double* milliseconds) {
  return Guarded(0, [&] {
    const StepTime& entry = At(Of(record).times, index);
    if (step != nullptr) *step = entry.step.c_str();
    if (milliseconds != nullptr) *milliseconds = entry.milliseconds;
    return 1;
  });
}

const char* RASTREL_CALL CleanRecordJson(const ::CleanRecord* record) {
  return Guarded<const char*>(nullptr, [&] {
    Of(record);
    return record->json.c_str();
  });
}

int RASTREL_CALL MeasurePageSkew(HGLOBAL page, double range, int text, double* degrees, double* confidence) {
  return Guarded(0, [&] {
    const InputPage input(page);
    const SkewOptions options = {.range = range,
                                 .polarity = InRange<int>(text, TextAuto, TextLight, "text is out of range")};
    SkewResult skew = {};
    if (MeasureSkew(input.dib().handle(), &options, &skew) == 0)
      throw PageError(LibraryError(), RastrelError());
    if (degrees != nullptr) *degrees = skew.angle;
    if (confidence != nullptr) *confidence = skew.confidence;
    return 1;
  });
}

int RASTREL_CALL IsPageBlank(HGLOBAL page, int text, double percent, int32_t* isBlank) {
  return Guarded(0, [&] {
    Require(isBlank != nullptr, "there is no room for the result");
    InRange(percent, 0.0, 100.0, "percent is out of range");
    const Dib copy = InputPage(page).Copy();  // whose padding is changed for a while
    *isBlank = IsBlank(copy, IsTextDark(copy, text), percent);
    return 1;
  });
}
