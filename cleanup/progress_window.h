// The two windows that show the progress of a long operation and let the user cancel it.
#ifndef RASTREL_CLEANUP_PROGRESS_WINDOW_H
#define RASTREL_CLEANUP_PROGRESS_WINDOW_H

#include <cstdint>

#include "platform/platform.h"

namespace rastrel {

struct ProgressRecord;

// The operation's end of its progress window. Without Open nothing is shown and nothing is ever cancelled.
// The window is closed by Close or by the user, not at the end of this object's life: some failing exits
// leave it open.
class ProgressWindow {
 public:
  static constexpr int kDivisor = 5;  // units of work to a step
  enum class Kind : uint8_t { kSkew, kPunchHoles };

  // There is one record of each kind in the process, so that only one operation of a kind may show progress
  // at a time.
  explicit ProgressWindow(Kind kind);

  // Opens the window for `total` units of work and disables an enabled parent. Returns false when it cannot
  // be opened.
  bool Open(int total, HWND parent);

  // Handles the messages that wait, Cancel among them, and moves the bar on.
  void Step();
  bool cancelled() const;
  void Close();

 private:
  bool isOpen() const;

  ProgressRecord& record_;
  bool shown_ = false;
};

}  // namespace rastrel

#endif
