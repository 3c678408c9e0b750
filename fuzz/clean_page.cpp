// CleanPage and ExaminePage with options, and all that is told of what was done.
#include <rastrel_pages.h>

#include "fuzz/target.h"
#include "platform/host/fault_injection.h"

namespace rastrel::fuzz {
namespace {

struct Progress {
  int steps = 0, most = 0;
};
int RASTREL_CALL CountStep(void* context, const char* step, double done) {
  Expect(step != nullptr && done >= 0 && done <= 1, "progress goes from 0 to 1");
  auto* progress = static_cast<Progress*>(context);
  return ++progress->steps > progress->most ? 1 : 0;
}

void RASTREL_CALL SeePicture(void* /*context*/, const char* name, HGLOBAL picture) {
  PageInfo info = {};
  info.size = sizeof(info);
  Expect(name != nullptr && DescribePage(picture, &info) == 1, "what is explained is a page");
}

// A number that mostly is one of those that are taken.
int Chosen(Input& in, int least, int most) {
  const int kind = in.Byte();
  return kind < 8 ? in.Number() : least + kind % (most - least + 1);
}

CleanOptions Options(Input& in, Progress* progress) {
  CleanOptions options;
  DefaultCleanOptions(&options, sizeof(options));
  if (in.Byte() < 64) return options;
  options.text = Chosen(in, 0, 2);
  const int flags = in.Byte();
  options.cropSheet = flags & 1;
  options.trim = flags >> 1 & 1;
  options.holes = flags >> 2 & 1;
  options.specks = flags >> 3 & 1;
  options.speckFull = flags >> 4 & 1;
  options.evenLight = flags >> 5 & 1;
  options.whitePaper = flags >> 6 & 1;
  options.lessBleed = flags >> 7 & 1;
  options.holeSize = Chosen(in, HolesUsual, 40);
  options.speckLevel = Chosen(in, 20, 100);
  options.deskew = Chosen(in, 0, 2);
  options.reduce = Chosen(in, 0, 5);
  options.brightness = Chosen(in, -255, 0);
  options.classic = in.Byte() < 64 ? 1 : 0;
  if (in.Byte() < 64) options.mostSkew = in.Real();
  if (in.Byte() < 64) options.blankPercent = in.Real();
  if (in.Byte() < 64) options.dpi = in.Real();
  if (in.Byte() < 8) options.size = in.Byte();
  progress->most = in.Byte() < 64 ? in.Byte() % 16 : 1000;
  if (options.size != sizeof(options)) return options;
  options.progress = CountStep;
  options.progressContext = progress;
  if (in.Flag()) options.explain = SeePicture;
  return options;
}

void ReadRecord(const CleanRecord* record) {
  CleanSummary summary = {};
  summary.size = sizeof(summary);
  Expect(GetCleanSummary(record, &summary) == 1, "a record has a summary");
  PageHole hole = {};
  hole.size = sizeof(hole);
  for (int32_t i = -1; i <= summary.holes; ++i) GetCleanHole(record, i, &hole);
  PageRegion region = {};
  region.size = sizeof(region);
  for (int32_t i = -1; i <= summary.regions; ++i) GetCleanRegion(record, i, &region);
  const char* step = nullptr;
  const char* reason = nullptr;
  double milliseconds = 0;
  for (int32_t i = 0; i <= summary.skipped; ++i) GetCleanSkipped(record, i, &step, &reason);
  for (int32_t i = 0; i <= summary.takenBack; ++i) GetCleanTakenBack(record, i, &step, &reason);
  for (int32_t i = 0; i <= summary.sidesLeft; ++i) GetCleanSideLeft(record, i, &step, &reason);
  for (int32_t i = 0; i <= summary.times; ++i) GetCleanTime(record, i, &step, &milliseconds);
  Expect(CleanRecordJson(record) != nullptr, "a record can be told");
}

}  // namespace

void CleanAnyPage(InputBytes bytes) {
  const size_t blocks = host::LiveBlocks();
  {
    Input in(bytes);
    Progress progress;
    const CleanOptions options = Options(in, &progress);
    const int wanted = in.Byte(), fault = in.Byte();
    HGLOBAL page = in.Byte() < 16 ? in.Page() : in.SoundPage();
    if (fault >= 224) host::FailNth(host::Fault::kAllocation, 1 + fault % 32);
    CleanRecord* record = nullptr;
    HGLOBAL overlay = nullptr, clean = nullptr;
    if ((wanted & 7) == 0) {
      ExaminePage(page, &record);
    } else if ((wanted & 7) == 1) {
      clean = TakeAndCleanPage(DuplicateDIB(page), &options, &record, &overlay);
    } else {
      clean = CleanPage(page, (wanted & 8) != 0 ? nullptr : &options, (wanted & 16) != 0 ? nullptr : &record,
                        (wanted & 32) != 0 ? nullptr : &overlay);
    }
    host::FailNth(host::Fault::kAllocation, 0);
    if (record != nullptr) ReadRecord(record);
    FreeCleanRecord(record);
    if (overlay != nullptr) GlobalFree(overlay);
    if (clean != nullptr) GlobalFree(clean);
  }
  Expect(host::LiveBlocks() == blocks, "nothing is lost");
  Expect(PagesError() != ErrInternal, "there is no fault of ours");
}

}  // namespace rastrel::fuzz
