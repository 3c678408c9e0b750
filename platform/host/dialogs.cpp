// Cursor, message box and dialogs, as far as the hooks of the host program show them.
#include <cstring>
#include <mutex>
#include <new>

#include "platform/host/fault_injection.h"
#include "platform/host/handle_table.h"
#include "platform/host/system.h"

using rastrel::host::Fault;
using rastrel::host::FindHandle;
using rastrel::host::HandleKind;
using rastrel::host::MakeHandle;
using rastrel::host::ReleaseHandle;

namespace {

constexpr int kProgressBar = 1002;

struct Hooks {
  RastrelProgressPresenter presenter;
  RastrelMessageBoxHook messageBox;
  void* messageBoxContext;
  RastrelCursorHook cursor;
  void* cursorContext;
};
std::mutex hooksMutex;
constinit Hooks hooks = {};

Hooks CurrentHooks() {
  const std::lock_guard lock(hooksMutex);
  return hooks;
}

// A progress window. Its bar shares the handle: the window has no other part that is sent messages.
struct Window {
  RastrelProgressPresenter presenter;
  DLGPROC procedure;
  HWND handle;
  Window* next;  // the thread's next open window
  int position;
  int end;
  int step;
  bool cancelPosted;  // a window's Cancel is pressed once
};

thread_local Window* openWindows = nullptr;
thread_local HCURSOR currentCursor = nullptr;

Window* WindowOf(HWND handle) {
  const auto* slot = FindHandle(handle, HandleKind::kWindow);
  return slot == nullptr ? nullptr : static_cast<Window*>(slot->data);
}

LPCSTR CaptionOf(LPCSTR templateName) {
  if (std::strcmp(templateName, "PROGRESSDLG") == 0) return "Detect Skew Angle...";
  if (std::strcmp(templateName, "PUNCHPROGRESSDLG") == 0) return "Punch Hole Removal...";
  return nullptr;
}

void ShowPosition(const Window& window) {
  const RastrelProgressPresenter& presenter = window.presenter;
  if (presenter.progress != nullptr) {
    presenter.progress(presenter.context, window.handle, window.position, window.end);
  }
}

}  // namespace

void RastrelHostSetProgressPresenter(const RastrelProgressPresenter* presenter) {
  const std::lock_guard lock(hooksMutex);
  hooks.presenter = presenter == nullptr ? RastrelProgressPresenter{} : *presenter;
}

void RastrelHostSetMessageBox(RastrelMessageBoxHook hook, void* context) {
  const std::lock_guard lock(hooksMutex);
  hooks.messageBox = hook;
  hooks.messageBoxContext = context;
}

void RastrelHostSetCursor(RastrelCursorHook hook, void* context) {
  const std::lock_guard lock(hooksMutex);
  hooks.cursor = hook;
  hooks.cursorContext = context;
}

HCURSOR LoadCursorA(HINSTANCE /*instance*/, LPCSTR name) {
  return reinterpret_cast<HCURSOR>(reinterpret_cast<uintptr_t>(name));
}

HCURSOR SetCursor(HCURSOR cursor) {
  HCURSOR before = currentCursor;
  currentCursor = cursor;
  const Hooks now = CurrentHooks();
  if (now.cursor != nullptr) {
    now.cursor(now.cursorContext, static_cast<int>(reinterpret_cast<uintptr_t>(cursor)));
  }
  return before;
}

int MessageBoxA(HWND owner, LPCSTR text, LPCSTR title, UINT style) {
  const Hooks now = CurrentHooks();
  return now.messageBox == nullptr ? 1 : now.messageBox(now.messageBoxContext, owner, text, title, style);
}

BOOL InitCommonControlsEx(const INITCOMMONCONTROLSEX* /*classes*/) { return TRUE; }

HWND CreateDialogParamA(HINSTANCE /*instance*/, LPCSTR templateName, HWND owner, DLGPROC procedure,
                        LPARAM parameter) {
  const LPCSTR caption = CaptionOf(templateName);
  if (caption == nullptr || rastrel::host::ShouldFail(Fault::kCreation)) return nullptr;
  auto* window =
      new (std::nothrow) Window{CurrentHooks().presenter, procedure, nullptr, openWindows, 0, 0, 1, false};
  if (window == nullptr) return nullptr;
  window->handle = MakeHandle(HandleKind::kWindow, window, 0);
  const RastrelProgressPresenter& presenter = window->presenter;
  if (window->handle == nullptr ||
      (presenter.open != nullptr && presenter.open(presenter.context, window->handle, caption, owner) == 0)) {
    void* data = nullptr;
    ReleaseHandle(window->handle, HandleKind::kWindow, &data);
    delete window;
    return nullptr;
  }
  openWindows = window;
  const HWND handle = window->handle;
  procedure(handle, WM_INITDIALOG, 0, parameter);
  return WindowOf(handle) != nullptr ? handle : nullptr;
}

INT_PTR DialogBoxParamA(HINSTANCE /*instance*/, LPCSTR /*templateName*/, HWND /*owner*/,
                        DLGPROC /*procedure*/, LPARAM /*parameter*/) {
  return -1;
}

int DestroyWindow(HWND handle) {
  Window* window = WindowOf(handle);
  Window** link = &openWindows;
  while (*link != nullptr && *link != window) link = &(*link)->next;
  if (window == nullptr || *link == nullptr) return FALSE;  // closed before, or another thread's
  *link = window->next;
  window->procedure(handle, WM_DESTROY, 0, 0);
  void* data = nullptr;
  ReleaseHandle(handle, HandleKind::kWindow, &data);
  if (window->presenter.close != nullptr) window->presenter.close(window->presenter.context, handle);
  delete window;
  return TRUE;
}

BOOL IsWindowEnabled(HWND handle) {
  const RastrelProgressPresenter presenter = CurrentHooks().presenter;
  return presenter.isEnabled != nullptr && presenter.isEnabled(presenter.context, handle) != 0 ? TRUE : FALSE;
}

BOOL EnableWindow(HWND handle, BOOL enable) {
  const RastrelProgressPresenter presenter = CurrentHooks().presenter;
  const BOOL wasDisabled = IsWindowEnabled(handle) != 0 ? FALSE : TRUE;
  if (presenter.enable != nullptr) presenter.enable(presenter.context, handle, enable);
  return wasDisabled;
}

// The presenter shows and paints a window as it opens.
BOOL ShowWindow(HWND /*handle*/, int /*command*/) { return FALSE; }
BOOL UpdateWindow(HWND handle) { return WindowOf(handle) != nullptr ? TRUE : FALSE; }

HWND GetDlgItem(HWND dialog, int identifier) {
  return identifier == kProgressBar && WindowOf(dialog) != nullptr ? dialog : nullptr;
}

LRESULT SendMessageA(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
  Window* window = WindowOf(handle);
  if (window == nullptr) return 0;
  switch (message) {
    case PBM_SETRANGE32:
      window->end = static_cast<int>(lParam);
      ShowPosition(*window);
      return 0;
    case PBM_SETSTEP: {
      const int before = window->step;
      window->step = static_cast<int>(wParam);
      return before;
    }
    case PBM_STEPIT: {
      const int before = window->position;
      // A step past the end starts again at the beginning, as the control does.
      window->position = before + window->step <= window->end ? before + window->step : 0;
      ShowPosition(*window);
      return before;
    }
    default:
      return 0;
  }
}

BOOL PeekMessageA(MSG* message, HWND /*window*/, UINT /*first*/, UINT /*last*/, UINT /*remove*/) {
  for (Window* window = openWindows; window != nullptr;) {
    const HWND handle = window->handle;
    const RastrelProgressPresenter& presenter = window->presenter;
    const bool isPressed = !window->cancelPosted && presenter.cancelled != nullptr &&
                           presenter.cancelled(presenter.context, handle) != 0;
    if (WindowOf(handle) == nullptr) {  // the presenter has closed it
      window = openWindows;
      continue;
    }
    if (isPressed) {
      window->cancelPosted = true;
      *message = {handle, WM_COMMAND, IDCANCEL, 0, 0, {0, 0}};
      return TRUE;
    }
    window = window->next;
  }
  return FALSE;
}

BOOL IsDialogMessageA(HWND dialog, MSG* message) {
  const Window* window = WindowOf(dialog);
  if (window == nullptr || message->hwnd != dialog) return FALSE;
  window->procedure(dialog, message->message, message->wParam, message->lParam);
  return TRUE;
}

BOOL TranslateMessage(const MSG* /*message*/) { return FALSE; }

LRESULT DispatchMessageA(const MSG* message) {
  const Window* window = WindowOf(message->hwnd);
  return window == nullptr
             ? 0
             : window->procedure(message->hwnd, message->message, message->wParam, message->lParam);
}
