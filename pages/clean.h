// The main job: a scanned page in, a straight and clean page out.
#ifndef RASTREL_PAGES_CLEAN_H
#define RASTREL_PAGES_CLEAN_H

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "pages/holes.h"
#include "pages/page.h"

namespace rastrel::pages {

enum class TextTone { kAuto, kDark, kLight };

// By whole degrees as DeskewDIB does it, or to hundredths where these are certain.
enum class Deskewing { kOff, kWhole, kFine };

// How pages become black and white.
enum class Reduction { kNone, kThreshold, kOrdered, kFloydSteinberg, kJarvisJudiceNinke, kAuto };

struct CleanOptions {
  TextTone text = TextTone::kAuto;
  bool isClassic = false;  // the plain operations one after the other, as they were before there was a model
  bool cropsSheet = false;
  bool evensLight = false;          // the shadow of a gutter, a vignette
  bool whitensPaper = false;        // paper becomes white
  bool weakensShowThrough = false;  // what shows through from behind comes nearer to the paper
  bool trims = true;
  bool erasesHoles = true;
  std::optional<int> holeSize;       // as PunchHoleRemover takes it; nothing: each hole is measured
  bool measuresHolesAnyway = false;  // also on a resolution that is only assumed
  bool removesSpecks = true;
  int speckLevel = 30;
  bool filtersFully = false;
  Deskewing deskew = Deskewing::kFine;
  double mostSkew = 15;       // degrees; more is not taken for skew
  double blankPercent = 0.1;  // a page is blank with less ink
  Reduction reduction = Reduction::kNone;
  int brightness = 0;  // added to every grey first: by threshold or ordered
  double toDpi = 0;    // by kAuto: smoothed to that resolution; 0: as the page is
  double dpi = 0;      // of pages that do not say; 0: 300 is assumed
  // Is given pictures of what was understood of a page: paper, ink, pictures, lines, sheet.
  std::function<void(const std::string& name, Dib picture)> explain;
  // Called before each step with its name and the share that is done; false ends the work.
  std::function<bool(const char* step, double done)> progress;

  // Throws PageError (ErrCancelled) where the work is to end.
  void Report(const char* step, double done) const {
    if (progress && !progress(step, done)) throw PageError("was cancelled", ErrCancelled);
  }
};

struct StepTime {
  std::string step;
  double milliseconds = 0;
};

struct Skipped {
  std::string step;
  std::string reason;
};

// What a step would take away of a page or move, or left for a reason.
struct Region {
  std::string kind;                              // "border", "hole", "speck", "turn", "crop"
  int left = 0, top = 0, right = 0, bottom = 0;  // on the page that came in; right and bottom lie outside
  int64_t pixels = 0;
  double confidence = 0;  // 0 to 1
  std::string reason;
  bool isTakenBack = false;  // the check found that it would harm the page
};

// A side of the sheet that was left as it is, though something dark stands there.
struct SideLeft {
  std::string side, reason;
};

// What was found on a page and done to it.
struct CleanRecord {
  bool isExamination = false;     // nothing was done
  int widthIn = 0, heightIn = 0;  // as it came in
  int width = 0, height = 0, bits = 0;
  double dpiX = 0, dpiY = 0;
  bool isResolutionAssumed = false;
  bool isTextDark = true;
  std::optional<double> skew;            // found, in degrees; turned back unless `skipped` says otherwise
  std::optional<double> skewConfidence;  // 0 to 1, where it was measured finely
  bool isTurned = false;
  bool isCropped = false;
  bool isReduced = false;                                                        // to black and white
  int64_t trimmedLeft = 0, trimmedTop = 0, trimmedRight = 0, trimmedBottom = 0;  // pixels
  std::vector<Hole> holes;  // where they were on the page as it came in
  int64_t specks = 0, speckPixels = 0;
  bool isBlank = false;              // before any reduction
  std::optional<double> inkPercent;  // of an examination
  std::vector<Region> regions;
  std::vector<StepTime> times;
  std::vector<Skipped> skipped;
  std::vector<SideLeft> sidesLeft;
  bool isChecked = false;          // the page that goes out was compared with the one that came in
  std::vector<Skipped> takenBack;  // steps that the check has taken back, and what it missed

  int64_t trimmedPixels() const { return trimmedLeft + trimmedTop + trimmedRight + trimmedBottom; }
};

// Notes in a record how long its own life was.
class StepTimer {
 public:
  StepTimer(CleanRecord* record, std::string step)
      : record_(record), step_(std::move(step)), start_(std::chrono::steady_clock::now()) {}
  ~StepTimer() {
    const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start_;
    record_->times.push_back({std::move(step_), time.count()});
  }
  StepTimer(const StepTimer&) = delete;
  StepTimer& operator=(const StepTimer&) = delete;

 private:
  CleanRecord* record_;
  std::string step_;
  std::chrono::steady_clock::time_point start_;
};

// Takes the page over and returns it cleaned. Throws PageError only when there is no memory: a step that
// cannot be done on a page is skipped with a note. Where an overlay is asked for, it becomes a picture of the
// page as it came in, in grey, with what was removed in colour.
Dib CleanPage(Dib page, const CleanOptions& options, CleanRecord* record, Dib* overlay = nullptr);

// What there is to know of a page without changing it. Its resolution is told as it is, 0 where it has none.
CleanRecord ExaminePage(Dib page);

}  // namespace rastrel::pages

#endif
