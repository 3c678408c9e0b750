// A progress presenter that notes what it is told and presses Cancel when asked to, and what every operation
// with a progress window does.
#ifndef RASTREL_TESTS_CLEANUP_PROGRESS_RECORDER_H
#define RASTREL_TESTS_CLEANUP_PROGRESS_RECORDER_H

#include <gtest/gtest.h>
#include <rastrel.h>

#include <functional>
#include <string>

#include "platform/host/fault_injection.h"
#include "platform/platform.h"

namespace rastrel::testing {

// Registered for the length of its life. Has one window of the program's own, `kParent`.
class ProgressRecorder {
 public:
  // Presses Cancel at the `cancelAt`-th time of asking, counted from 1.
  explicit ProgressRecorder(int cancelAt = 0, bool refuses = false) : cancelAt_(cancelAt), refuses_(refuses) {
    RastrelProgressPresenter presenter = {};
    presenter.context = this;
    presenter.open = [](void* self, HWND opened, const char* text, HWND over) {
      Of(self).window = opened;
      Of(self).caption = text;
      Of(self).owner = over;
      return (Of(self).isOpen = !Of(self).refuses_) ? 1 : 0;
    };
    presenter.progress = [](void* self, HWND, int now, int last) {
      Of(self).position = now;
      Of(self).end = last;
    };
    presenter.cancelled = [](void* self, HWND) { return ++Of(self).asked == Of(self).cancelAt_ ? 1 : 0; };
    presenter.close = [](void* self, HWND) { Of(self).isOpen = false; };
    presenter.isEnabled = [](void* self, HWND) { return Of(self).parentEnabled ? 1 : 0; };
    presenter.enable = [](void* self, HWND, int enabled) { Of(self).parentEnabled = enabled != 0; };
    RastrelHostSetProgressPresenter(&presenter);
  }
  ~ProgressRecorder() { RastrelHostSetProgressPresenter(nullptr); }
  ProgressRecorder(const ProgressRecorder&) = delete;
  ProgressRecorder& operator=(const ProgressRecorder&) = delete;

  static inline char parentObject;
  static inline const HWND kParent = reinterpret_cast<HWND>(&parentObject);

  std::string caption;
  HWND window = nullptr;
  HWND owner = nullptr;
  int position = -1;
  int end = -1;
  int asked = 0;  // whether Cancel was pressed: once a step
  bool isOpen = false;
  bool parentEnabled = true;

 private:
  static ProgressRecorder& Of(void* self) { return *static_cast<ProgressRecorder*>(self); }

  int cancelAt_;
  bool refuses_;
};

// Runs an operation that shows its progress above kParent and says whether something came of it: to its end,
// with its window refused, and cancelled at each of its `steps`.
inline void ExpectProgress(const std::string& caption, int steps, int end, const std::function<bool()>& run) {
  for (const bool enabled : {true, false}) {
    ProgressRecorder progress;
    progress.parentEnabled = enabled;
    run();
    EXPECT_EQ(caption, progress.caption);
    EXPECT_EQ(ProgressRecorder::kParent, progress.owner);
    EXPECT_EQ(steps, progress.position);
    EXPECT_EQ(end, progress.end);
    EXPECT_FALSE(progress.isOpen);
    EXPECT_EQ(enabled, progress.parentEnabled);
  }
  for (int step = 0; step <= steps; ++step) {
    const size_t blocks = host::LiveBlocks();
    ProgressRecorder progress(step, /*refuses=*/step == 0);
    EXPECT_FALSE(run());
    EXPECT_EQ(step, progress.asked);
    EXPECT_EQ(step - 1, progress.position);
    EXPECT_FALSE(progress.isOpen);
    EXPECT_TRUE(progress.parentEnabled);
    EXPECT_EQ(blocks, host::LiveBlocks());
  }
}

// Kept: some failures leave the window open and its parent disabled.
inline void ExpectLeftOpen(host::Fault fault, int n, const std::function<bool()>& run) {
  ProgressRecorder progress;
  host::FailNth(fault, n);
  EXPECT_FALSE(run());
  host::FailNth(fault, 0);
  EXPECT_TRUE(progress.isOpen);
  EXPECT_FALSE(progress.parentEnabled);
  DestroyWindow(progress.window);
}

}  // namespace rastrel::testing

#endif
