// Cleans, examines and reduces small drawn pages, which are the same everywhere, and compares what comes out
// with stored checksums (support/golden.h). Where the judgement of these is meant to change, so do they.
#include <rastrel_pages.h>

#include "support/any_page.h"
#include "support/golden.h"

using namespace rastrel::testing;

namespace {

// What a scan may have beside its lines.
struct Scan {
  const char* name;
  int rise;      // of the lines, in thousandths
  int paper[3];  // its colour in the middle
  int falloff;   // how much darker the paper is at the right
  int surround;  // how light what lies around the sheet is; -1: the sheet fills the image
  int hasHoles, hasPicture, isTextLight;
};
constexpr Scan kScans[] = {
    {"clean", 0, {255, 255, 255}, 0, -1, 0, 0, 0},
    {"skewed", 23, {250, 250, 250}, 0, -1, 0, 0, 0},
    {"office", -31, {245, 245, 245}, 0, 12, 1, 0, 0},
    {"photographed", 14, {214, 205, 180}, 70, 60, 0, 1, 0},
    {"yellowed", -8, {220, 200, 150}, 20, 240, 1, 0, 0},
    {"negative", 5, {20, 24, 30}, 0, -1, 0, 0, 1},
};

constexpr int kWidth = 620, kHeight = 877, kDpi = 75;  // A4

// Lines of words of letters: stems of two columns, every other one with a foot.
bool IsText(const Scan& scan, int x, int y) {
  const int down = y + x * scan.rise / 1000, row = down % 17, letter = x / 5;
  if (x < 60 || x > 560 || y < 70 || y > 800 || letter * 7919 / (1 + down / 17 % 5) % 6 == 5) return false;
  return row >= 4 && row < 11 && (x % 5 < 2 || (row == 10 && letter % 2 == 0));
}

int LightOf(const Scan& scan, int channel, int x, int y, Random& random) {
  if (scan.surround >= 0 && (x < 14 + y / 60 || x > kWidth - 9 || y < 11 || y > kHeight - 16 + x / 90))
    return scan.surround + static_cast<int>(random.Below(9));
  const int paper = scan.paper[channel] - scan.falloff * x / kWidth - static_cast<int>(random.Below(4));
  for (const int middle : {200, 436, 672}) {
    const int dx = x - 38, dy = y - middle;
    if (scan.hasHoles != 0 && dx * dx + dy * dy < 81) return scan.surround;
  }
  if (scan.hasPicture != 0 && x > 300 && x < 500 && y > 500 && y < 700)
    return (x + y) / 5 % 160 + channel * 20;
  if (random.Below(4001) == 0 || IsText(scan, x, y)) return scan.isTextLight != 0 ? 235 : 30;
  return paper > 0 ? paper : 0;
}

HGLOBAL Draw(const Scan& scan, int format) {
  Random random(7);
  const size_t stride = format == PixelsRgb ? kWidth * 3 : format == PixelsGrey8 ? kWidth : (kWidth + 7) / 8;
  std::vector<uint8_t> pixels(stride * kHeight);
  for (int y = 0; y < kHeight; ++y) {
    uint8_t* row = &pixels[static_cast<size_t>(y) * stride];
    for (int x = 0; x < kWidth; ++x) {
      if (format == PixelsRgb) {
        for (int channel = 0; channel < 3; ++channel)
          row[x * 3 + channel] = static_cast<uint8_t>(LightOf(scan, channel, x, y, random));
        continue;
      }
      const int light = LightOf(scan, 1, x, y, random);
      if (format == PixelsGrey8) row[x] = static_cast<uint8_t>(light);
      if (format == PixelsBit0Black && light >= 128) row[x / 8] |= static_cast<uint8_t>(0x80 >> x % 8);
    }
  }
  return PageFromPixels(pixels.data(), kWidth, kHeight, static_cast<ptrdiff_t>(stride), format, kDpi, kDpi);
}

// What a record says, but for times.
void AddRecord(Checksum& sum, CleanRecord* record) {
  CleanSummary summary = {};
  summary.size = sizeof(summary);
  sum.Add(GetCleanSummary(record, &summary));
  for (const int32_t number :
       {summary.width, summary.height, summary.isTextDark, summary.isBlank, summary.isTurned,
        summary.isChecked, summary.holes, summary.takenBack, summary.sidesLeft})
    sum.Add(number);
  for (const int64_t count : {summary.specks, summary.speckPixels, summary.trimmedLeft, summary.trimmedTop,
                              summary.trimmedRight, summary.trimmedBottom})
    sum.Add(static_cast<int32_t>(count));
  for (const double value : {summary.skew, summary.skewConfidence, summary.inkPercent})
    sum.Add(&value, sizeof(value));
  FreeCleanRecord(record);
}

void RecordClean(const char* name, HGLOBAL page, void (*choose)(CleanOptions*)) {
  Record(name, [&](Checksum& sum) {
    CleanOptions options;
    DefaultCleanOptions(&options, sizeof(options));
    choose(&options);
    CleanRecord* record = nullptr;
    HGLOBAL overlay = nullptr;
    const HGLOBAL cleaned = CleanPage(page, &options, &record, &overlay);
    sum.AddBlock(cleaned).AddBlock(overlay);
    AddRecord(sum, record);
    for (const HGLOBAL made : {cleaned, overlay}) {
      if (made != nullptr) GlobalFree(made);
    }
  });
}

void RecordScans() {
  constexpr struct {
    const char* name;
    int format;
  } kDepths[] = {{"1-bit", PixelsBit0Black}, {"8-bit", PixelsGrey8}, {"24-bit", PixelsRgb}};
  for (const Scan& scan : kScans) {
    for (const auto& [name, format] : kDepths) {
      currentGroup = name;
      currentCase = std::string(scan.name) + "," + name;
      const HGLOBAL page = Draw(scan, format);
      RecordClean("CleanPage", page, [](CleanOptions*) {});
      RecordClean("CleanPage:classic", page, [](CleanOptions* options) { options->classic = 1; });
      RecordClean("CleanPage:tone", page, [](CleanOptions* options) {
        options->evenLight = options->whitePaper = options->lessBleed = 1;
        options->reduce = ReduceAuto;
      });
      Record("ExaminePage", [&](Checksum& sum) {
        CleanRecord* record = nullptr;
        sum.Add(ExaminePage(page, &record));
        AddRecord(sum, record);
      });
      for (const int quality : {BinarizeFast, BinarizeBest})
        RecordPage(With("BinarizePage", {quality}),
                   [&] { return BinarizePage(page, quality, 1 - quality, 1); });
      RecordPage("CropPageSheet", [&] { return CropPageSheet(page, 50, 0, scan.isTextLight); });
      RecordPage("DespecklePage", [&] { return DespecklePage(page, 40, 0); });
      GlobalFree(page);
    }
  }
}

}  // namespace

int main(int argc, char** argv) { return RunGolden(argc, argv, RecordScans); }
