// The record that each thread has of its last error and its settings.
#ifndef RASTREL_FRAME_THREAD_STATE_H
#define RASTREL_FRAME_THREAD_STATE_H

#include <cstdint>

#include "frame/rastrel.h"
#include "platform/platform.h"

namespace rastrel {

using ErrorCode = RastrelErrorCode;

// Becomes what an exported function returns when it fails: a null handle or 0.
struct Failure {
  template <class Object>
  operator Object*() const {
    return nullptr;
  }
  operator int() const { return 0; }
};

// 52 words, zero-filled but for the defaults, made on the thread's first call (or when the library is told
// that the thread starts) and freed when the thread ends.
struct ThreadState {
  uint32_t lastError;
  ScaleStepTable zoomIn;
  ScaleStepTable zoomOut;
  int32_t zoomBase;
  int32_t lowMemStretch;
  int32_t displayWords[26];  // kept for displaying and printing
  int32_t stretchMode;

  // For the failing exits of an exported function: `return state.Fail(code);` gives 0 or a null handle.
  Failure Fail(ErrorCode code) {
    lastError = code;
    return {};
  }
};
static_assert(sizeof(ThreadState) == 208);

// Every exported function that reports errors calls this first. A thread that cannot have a block is ended.
ThreadState& GetThreadState();

// The module that the library was loaded as; its dialog templates are found through it.
HINSTANCE LibraryInstance();

// Runs a modal dialog of the library's own templates and returns its result, -1 when it cannot be shown.
INT_PTR RunLibraryDialog(HWND owner, LPCSTR templateName, DLGPROC procedure);

// Shows the wait cursor for the length of a scope.
class WaitCursor {
 public:
  WaitCursor() : before_(SetCursor(LoadCursorA(nullptr, IDC_WAIT))) {}
  ~WaitCursor() { SetCursor(before_); }
  WaitCursor(const WaitCursor&) = delete;
  WaitCursor& operator=(const WaitCursor&) = delete;

 private:
  HCURSOR before_;
};

}  // namespace rastrel

#endif
