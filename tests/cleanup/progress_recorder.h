// A progress presenter that notes what it is told and presses Cancel when asked to.
#ifndef RASTREL_TESTS_CLEANUP_PROGRESS_RECORDER_H
#define RASTREL_TESTS_CLEANUP_PROGRESS_RECORDER_H

#include <rastrel.h>

#include <string>

namespace rastrel::testing {

// Registered for the length of its life. Has one window of the program's own, `kParent`.
class ProgressRecorder {
 public:
  // Presses Cancel at the `cancelAt`-th time of asking, counted from 1.
  explicit ProgressRecorder(int cancelAt = 0, bool refuses = false) : cancelAt_(cancelAt), refuses_(refuses) {
    RastrelProgressPresenter presenter = {};
    presenter.context = this;
    presenter.open = [](void* self, HWND opened, const char* text, HWND over) {
      return static_cast<ProgressRecorder*>(self)->Open(opened, text, over);
    };
    presenter.progress = [](void* self, HWND, int now, int last) {
      static_cast<ProgressRecorder*>(self)->position = now;
      static_cast<ProgressRecorder*>(self)->end = last;
    };
    presenter.cancelled = [](void* self, HWND) {
      auto* recorder = static_cast<ProgressRecorder*>(self);
      return ++recorder->asked == recorder->cancelAt_ ? 1 : 0;
    };
    presenter.close = [](void* self, HWND) { static_cast<ProgressRecorder*>(self)->isOpen = false; };
    presenter.isEnabled = [](void* self, HWND) {
      return static_cast<ProgressRecorder*>(self)->parentEnabled ? 1 : 0;
    };
    presenter.enable = [](void* self, HWND, int enabled) {
      static_cast<ProgressRecorder*>(self)->parentEnabled = enabled != 0;
    };
    RastrelHostSetProgressPresenter(&presenter);
  }
  ~ProgressRecorder() { RastrelHostSetProgressPresenter(nullptr); }
  ProgressRecorder(const ProgressRecorder&) = delete;
  ProgressRecorder& operator=(const ProgressRecorder&) = delete;

  static inline char parentObject;
  static inline const HWND kParent = &parentObject;

  std::string caption;
  HWND window = nullptr;
  HWND owner = nullptr;
  int position = -1;
  int end = -1;
  int asked = 0;  // whether Cancel was pressed: once a step
  bool isOpen = false;
  bool parentEnabled = true;

 private:
  int Open(HWND opened, const char* text, HWND over) {
    window = opened;
    caption = text;
    owner = over;
    isOpen = !refuses_;
    return isOpen ? 1 : 0;
  }

  int cancelAt_;
  bool refuses_;
};

}  // namespace rastrel::testing

#endif
