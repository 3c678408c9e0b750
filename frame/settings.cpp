// The settings of a thread: stretching, and the steps of zooms.
#include <iterator>
#include <utility>

#include "frame/rastrel.h"
#include "frame/thread_state.h"

using rastrel::GetThreadState;
using rastrel::ThreadState;

namespace {

constexpr int kMaxZoomBase = 1000;

bool IsValidTable(const ScaleStepTable& table, int base) {
  if (table.count < 1 || table.count > static_cast<int32_t>(std::size(table.steps))) return false;
  if (table.steps[0] != base) return false;
  for (int32_t i = 1; i < table.count; ++i) {
    if (table.steps[i] <= table.steps[i - 1]) return false;
  }
  return true;
}

}  // namespace

int RASTREL_CALL GetLowMemStretch() { return GetThreadState().lowMemStretch; }

int RASTREL_CALL SetLowMemStretch(int value) { return std::exchange(GetThreadState().lowMemStretch, value); }

int RASTREL_CALL DisplayGetStretchBltMode() { return GetThreadState().stretchMode; }

int RASTREL_CALL DisplaySetStretchBltMode(int mode) {
  ThreadState& state = GetThreadState();
  return std::exchange(state.stretchMode, mode >= 1 && mode <= 4 ? mode : state.stretchMode);
}

int RASTREL_CALL BZoomSetScaleSteps(int base, const ScaleStepTable* zoomIn, const ScaleStepTable* zoomOut) {
  ThreadState& state = GetThreadState();
  if (base < 1 || base > kMaxZoomBase) return 0;
  if (zoomIn != nullptr && !IsValidTable(*zoomIn, base)) return 0;
  if (zoomOut != nullptr && !IsValidTable(*zoomOut, base)) return 0;
  if (zoomIn != nullptr) state.zoomIn = *zoomIn;
  if (zoomOut != nullptr) state.zoomOut = *zoomOut;
  state.zoomBase = base;
  return 1;
}

int RASTREL_CALL BZoomGetScaleSteps(ScaleStepTable* zoomIn, ScaleStepTable* zoomOut) {
  const ThreadState& state = GetThreadState();
  if (zoomIn != nullptr) *zoomIn = state.zoomIn;
  if (zoomOut != nullptr) *zoomOut = state.zoomOut;
  return state.zoomBase;
}
