// Records of cleaning as dictionaries, whose names are those of the classes in records.py.
#include "python/core.h"

namespace rastrel::python {
namespace {

// Calls `entry` for each entry of a list, and gathers what it returns.
template <class Entry>
nb::list ListOf(int32_t count, Entry entry) {
  nb::list list;
  for (int32_t i = 0; i < count; ++i) list.append(entry(i));
  return list;
}

using TextPair = int(RASTREL_CALL*)(const CleanRecord*, int32_t, const char**, const char**);
nb::list PairsOf(const CleanRecord* record, int32_t count, TextPair get) {
  return ListOf(count, [&](int32_t i) {
    const char *name = nullptr, *reason = nullptr;
    Checked(get(record, i, &name, &reason));
    return nb::make_tuple(Text(name), Text(reason));
  });
}

nb::dict HoleOf(const CleanRecord* record, int32_t index) {
  auto hole = Sized<PageHole>();
  Checked(GetCleanHole(record, index, &hole));
  nb::dict entry;
  entry["x"] = hole.x;
  entry["y"] = hole.y;
  entry["diameter"] = hole.diameter;
  entry["side"] = Text(hole.side);
  return entry;
}

nb::dict RegionOf(const CleanRecord* record, int32_t index) {
  auto region = Sized<PageRegion>();
  Checked(GetCleanRegion(record, index, &region));
  nb::dict entry;
  entry["kind"] = Text(region.kind);
  entry["left"] = region.left;
  entry["top"] = region.top;
  entry["right"] = region.right;
  entry["bottom"] = region.bottom;
  entry["pixels"] = region.pixels;
  entry["confidence"] = region.confidence;
  entry["reason"] = Text(region.reason);
  entry["is_taken_back"] = region.isTakenBack != 0;
  return entry;
}

nb::object NumberOr(bool isThere, double number) {
  return isThere ? nb::object(nb::float_(number)) : nb::none();
}

}  // namespace

nb::dict RecordOf(const CleanRecord* record) {
  auto summary = Sized<CleanSummary>();
  Checked(GetCleanSummary(record, &summary));
  nb::dict result;
  result["width"] = summary.width;
  result["height"] = summary.height;
  result["bits"] = summary.bits;
  result["dpi"] = nb::make_tuple(summary.dpiX, summary.dpiY);
  result["width_in"] = summary.widthIn;
  result["height_in"] = summary.heightIn;
  result["is_resolution_assumed"] = summary.isResolutionAssumed != 0;
  result["text"] = summary.isTextDark != 0 ? "dark" : "light";
  result["skew"] = NumberOr(summary.hasSkew != 0, summary.skew);
  result["skew_confidence"] = NumberOr(summary.skewConfidence >= 0, summary.skewConfidence);
  result["ink_percent"] = NumberOr(summary.inkPercent >= 0, summary.inkPercent);
  result["is_blank"] = summary.isBlank != 0;
  result["is_turned"] = summary.isTurned != 0;
  result["is_cropped"] = summary.isCropped != 0;
  result["is_reduced"] = summary.isReduced != 0;
  result["is_checked"] = summary.isChecked != 0;
  result["trimmed_left"] = summary.trimmedLeft;
  result["trimmed_top"] = summary.trimmedTop;
  result["trimmed_right"] = summary.trimmedRight;
  result["trimmed_bottom"] = summary.trimmedBottom;
  result["specks"] = summary.specks;
  result["speck_pixels"] = summary.speckPixels;
  result["holes"] = ListOf(summary.holes, [&](int32_t i) { return HoleOf(record, i); });
  result["regions"] = ListOf(summary.regions, [&](int32_t i) { return RegionOf(record, i); });
  result["times"] = ListOf(summary.times, [&](int32_t i) {
    const char* step = nullptr;
    double milliseconds = 0;
    Checked(GetCleanTime(record, i, &step, &milliseconds));
    return nb::make_tuple(Text(step), milliseconds);
  });
  result["skipped"] = PairsOf(record, summary.skipped, GetCleanSkipped);
  result["taken_back"] = PairsOf(record, summary.takenBack, GetCleanTakenBack);
  result["sides_left"] = PairsOf(record, summary.sidesLeft, GetCleanSideLeft);
  return result;
}

}  // namespace rastrel::python
