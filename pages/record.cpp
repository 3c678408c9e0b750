#include "pages/record.h"

#include "pages/json.h"

namespace rastrel::pages {
namespace {

void AddSize(const CleanRecord& record, JsonText* json) {
  json->Add("width", record.width)
      .Add("height", record.height)
      .Add("bits", record.bits)
      .Add("dpi", record.dpiX);
  if (record.dpiX != record.dpiY) json->Add("dpiDown", record.dpiY);
}

void AddSkew(const CleanRecord& record, JsonText* json) {
  if (record.skew) json->Add("skew", Rounded(*record.skew, 100));
  if (record.skewConfidence) json->Add("skewConfidence", Rounded(*record.skewConfidence, 100));
}

JsonText HolesOf(const CleanRecord& record) {
  JsonText holes = JsonText::Array();
  for (const Hole& hole : record.holes) {
    holes.Add("", JsonText::Object()
                      .Add("x", Rounded(hole.x, 10))
                      .Add("y", Rounded(hole.y, 10))
                      .Add("diameter", Rounded(hole.diameter, 10))
                      .Add("side", NameOf(hole.side)));
  }
  return holes;
}

JsonText RegionsOf(const CleanRecord& record) {
  JsonText regions = JsonText::Array();
  for (const Region& region : record.regions) {
    JsonText entry = JsonText::Object();
    entry.Add("kind", region.kind)
        .Add("left", region.left)
        .Add("top", region.top)
        .Add("right", region.right)
        .Add("bottom", region.bottom)
        .Add("pixels", region.pixels)
        .Add("confidence", Rounded(region.confidence, 100))
        .Add("reason", region.reason);
    if (region.isTakenBack) entry.Add("takenBack", true);
    regions.Add("", entry);
  }
  return regions;
}

JsonText StepsOf(const CleanRecord& record) {
  JsonText steps = JsonText::Array();
  for (const StepTime& time : record.times) {
    steps.Add("", JsonText::Object().Add("step", time.step).Add("ms", Rounded(time.milliseconds, 1000)));
  }
  return steps;
}

JsonText SkippedOf(const std::vector<Skipped>& list) {
  JsonText steps = JsonText::Array();
  for (const Skipped& skipped : list) {
    steps.Add("", JsonText::Object().Add("step", skipped.step).Add("reason", skipped.reason));
  }
  return steps;
}

JsonText SidesLeftOf(const CleanRecord& record) {
  JsonText sides = JsonText::Array();
  for (const SideLeft& left : record.sidesLeft) {
    sides.Add("", JsonText::Object().Add("side", left.side).Add("reason", left.reason));
  }
  return sides;
}

}  // namespace

std::string JsonOf(const CleanRecord& record) {
  JsonText json = JsonText::Object();
  AddSize(record, &json);
  AddSkew(record, &json);
  json.Add("blank", record.isBlank).Add("text", record.isTextDark ? "dark" : "light");
  if (record.inkPercent) json.Add("ink", Rounded(*record.inkPercent, 100));
  if (!record.isExamination) {
    json.Add("turned", record.isTurned)
        .Add("cropped", record.isCropped)
        .Add("widthIn", record.widthIn)
        .Add("heightIn", record.heightIn)
        .Add("trimmedPixels", record.trimmedPixels())
        .Add("trimmedLeft", record.trimmedLeft)
        .Add("trimmedTop", record.trimmedTop)
        .Add("trimmedRight", record.trimmedRight)
        .Add("trimmedBottom", record.trimmedBottom);
  }
  json.Add("holes", record.holes.size()).Add("holesAt", HolesOf(record));
  if (!record.isExamination) {
    json.Add("specks", record.specks).Add("speckPixels", record.speckPixels);
    if (!record.regions.empty()) json.Add("regions", RegionsOf(record));
    json.Add("steps", StepsOf(record)).Add("skipped", SkippedOf(record.skipped));
    if (!record.sidesLeft.empty()) json.Add("sidesLeft", SidesLeftOf(record));
    json.Add("checked", record.isChecked);
    if (!record.takenBack.empty()) json.Add("takenBack", SkippedOf(record.takenBack));
  }
  return json.Text();
}

}  // namespace rastrel::pages
