// Zoom commands: the scale of a picture in steps.
//
// A ratio is a numerator over a denominator. A normalised one has the zoom base for one of the two, so that
// the other tells how far the picture is enlarged (the numerator) or reduced (the denominator).
#include <algorithm>
#include <cstring>

#include "frame/rastrel.h"
#include "frame/thread_state.h"

namespace rastrel {
namespace {

// Words of a zoom record.
constexpr int kMode = 0;
constexpr int kWorking = 1;  // x numerator, x denominator, y numerator, y denominator
constexpr int kCurrent = 12;
constexpr int kRatioWords = 4;

constexpr int kAwaitsMouse = 0x10;
constexpr int kAtOnce = 0x20;

enum Command { kKeep = 1, kTableIn, kTableOut, kFineIn, kFineOut };

// Returns 0 for modes that are none.
int CommandOf(int mode) {
  const int command = mode & 0xF;
  const int kind = mode & ~0xF;
  const bool isValid = (kind == kAwaitsMouse || kind == kAtOnce) && command >= kKeep && command <= kFineOut;
  return isValid ? command : 0;
}

int32_t Last(const ScaleStepTable& table) { return table.steps[table.count - 1]; }

// The value of the table behind `value`.
int32_t NextStep(int32_t value, const ScaleStepTable& table) {
  const int32_t* end = table.steps + table.count;
  const int32_t* next = std::upper_bound(table.steps, end, value);
  return next == end ? Last(table) : *next;
}

// The value of the table before `value`.
int32_t PreviousStep(int32_t value, const ScaleStepTable& table) {
  const int32_t* at = std::lower_bound(table.steps, table.steps + table.count, value);
  return at == table.steps ? *at : at[-1];
}

int64_t FineStep(int32_t value) {
  if (value < 10) return 1;
  if (value < 30) return 2;
  return int64_t{value} * 5 / 100;
}

// Kept: the limit is looked at before the step, so that one step may go past it and the next comes back to
// it.
int32_t FineUp(int32_t value, int32_t limit) {
  return value >= limit ? limit : static_cast<int32_t>(value + FineStep(value));
}
int32_t FineDown(int32_t value, int32_t base) {
  return value <= base ? base : static_cast<int32_t>(value - FineStep(value));
}

struct Ratio {
  int32_t numerator, denominator;

  // Makes one side the base, where neither is.
  void Normalise(int32_t base) {
    if (numerator == base || denominator == base) return;
    if (numerator == 0 || denominator == 0) {
      numerator = denominator = base;
    } else if (numerator <= denominator) {
      denominator = static_cast<int32_t>(int64_t{denominator} * base / numerator);
      numerator = base;
    } else {
      numerator = static_cast<int32_t>(int64_t{numerator} * base / denominator);
      denominator = base;
    }
  }
};

// Kept: steps to a table's value begin with a normalised ratio, fine ones with the ratio as it is, and may
// leave it with the base on neither side.
void Step(const ThreadState& state, int command, Ratio* ratio) {
  const int32_t base = state.zoomBase;
  switch (command) {
    case kTableIn:
      ratio->Normalise(base);
      if (ratio->denominator == base) {
        ratio->numerator = NextStep(ratio->numerator, state.zoomIn);
      } else {
        ratio->denominator = PreviousStep(ratio->denominator, state.zoomOut);
      }
      break;
    case kTableOut:
      ratio->Normalise(base);
      if (ratio->numerator == base) {
        ratio->denominator = NextStep(ratio->denominator, state.zoomOut);
      } else {
        ratio->numerator = PreviousStep(ratio->numerator, state.zoomIn);
      }
      break;
    case kFineIn:
      if (ratio->denominator != base) {
        ratio->denominator = FineDown(ratio->denominator, base);
      } else {
        ratio->numerator = FineUp(ratio->numerator, Last(state.zoomIn));
      }
      break;
    case kFineOut:
      if (ratio->numerator == base) {
        ratio->denominator = FineUp(ratio->denominator, Last(state.zoomOut));
      } else if (ratio->denominator == base) {
        ratio->numerator = FineDown(ratio->numerator, base);
      }
      break;
    default:
      break;
  }
}

// Steps the current ratio of a record into its working ratio.
void StepZoom(ZoomRecord* zoom) {
  int32_t* working = zoom->words + kWorking;
  std::copy_n(zoom->words + kCurrent, kRatioWords, working);
  const int command = CommandOf(zoom->words[kMode]);
  if (command == 0) return;
  Ratio ratio = {working[0], working[1]};
  Step(GetThreadState(), command, &ratio);
  working[0] = working[2] = ratio.numerator;
  working[1] = working[3] = ratio.denominator;
}

// Shown is DisplayRecord or ScreenRecord.
template <class Shown>
void EndZoom(ZoomRecord* zoom, Shown* shown) {
  static_assert(sizeof(Shown) == kRatioWords * sizeof(int32_t));
  if (zoom == nullptr) return;
  if (shown != nullptr) std::memcpy(zoom->words + kCurrent, shown, sizeof(*shown));
  StepZoom(zoom);
  if (shown != nullptr) std::memcpy(shown, zoom->words + kWorking, sizeof(*shown));
}

template <class Shown>
void StepAtOnce(HWND window, const RECT* rect, int mode, ZoomRecord* zoom, Shown* shown) {
  if ((mode & kAwaitsMouse) != 0 || zoom == nullptr) return;
  Shown current;
  std::memcpy(&current, zoom->words + kCurrent, sizeof(current));
  BZoomStart(window, nullptr, rect, mode, zoom, 0);
  std::memcpy(zoom->words + kCurrent, &current, sizeof(current));
  EndZoom(zoom, shown);
}

}  // namespace
}  // namespace rastrel

void RASTREL_CALL BZoomStart(HWND /*window*/, const POINT* /*point*/, const RECT* /*rect*/, int mode,
                             ZoomRecord* zoom, int /*reserved*/) {
  if (zoom == nullptr) return;
  *zoom = {};
  zoom->words[rastrel::kMode] = mode;
}

void RASTREL_CALL BZoomEnd(HWND /*window*/, ZoomRecord* zoom, DisplayRecord* display) {
  rastrel::EndZoom(zoom, display);
}

void RASTREL_CALL BZoomScreenEnd(HWND /*window*/, ZoomRecord* zoom, ScreenRecord* screen) {
  rastrel::EndZoom(zoom, screen);
}

void RASTREL_CALL BZoomStep(HWND window, const RECT* rect, int mode, ZoomRecord* zoom,
                            DisplayRecord* display) {
  rastrel::StepAtOnce(window, rect, mode, zoom, display);
}

void RASTREL_CALL BZoomScreenStep(HWND window, const RECT* rect, int mode, ZoomRecord* zoom,
                                  ScreenRecord* screen) {
  rastrel::StepAtOnce(window, rect, mode, zoom, screen);
}
