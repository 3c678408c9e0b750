#include "cleanup/progress_window.h"

#include "frame/thread_state.h"

namespace rastrel {

// What the dialog procedure, which is called with nothing but a window, has to know.
struct ProgressRecord {
  LPCSTR templateName;
  DLGPROC procedure;
  HWND window;
  HWND parent;
  int total;
  bool cancelled;
  bool destroyed;
  bool parentDisabled;  // by us
};

namespace {

constexpr int kProgressBar = 1002;
constexpr int kStepIncrement = 1;

void EnableParent(ProgressRecord& record) {
  if (record.parentDisabled) EnableWindow(record.parent, TRUE);
  record.parentDisabled = false;
}

void CloseWindow(ProgressRecord& record) {
  EnableParent(record);
  DestroyWindow(record.window);
  record.window = nullptr;
}

template <ProgressRecord& record>
INT_PTR CALLBACK ProgressProcedure(HWND dialog, UINT message, WPARAM wParam, LPARAM /*lParam*/) {
  switch (message) {
    case WM_INITDIALOG: {
      HWND bar = GetDlgItem(dialog, kProgressBar);
      SendMessageA(bar, PBM_SETRANGE32, 0, record.total / ProgressWindow::kDivisor + 1);
      SendMessageA(bar, PBM_SETSTEP, kStepIncrement, 0);
      return TRUE;
    }
    case WM_COMMAND:
      if (LOWORD(wParam) != IDCANCEL) return FALSE;
      record.cancelled = true;
      CloseWindow(record);
      return TRUE;
    case WM_DESTROY:
      // An earlier window, left open by a failure, may be closed while another one is at work.
      if (dialog == record.window) record.destroyed = true;
      return TRUE;
    default:
      return FALSE;
  }
}

extern ProgressRecord skewRecord;
extern ProgressRecord punchRecord;
constinit ProgressRecord skewRecord = {
    "PROGRESSDLG", ProgressProcedure<skewRecord>, nullptr, nullptr, 0, false, false, false};
constinit ProgressRecord punchRecord = {
    "PUNCHPROGRESSDLG", ProgressProcedure<punchRecord>, nullptr, nullptr, 0, false, false, false};

}  // namespace

ProgressWindow::ProgressWindow(Kind kind) : record_(kind == Kind::kSkew ? skewRecord : punchRecord) {}

bool ProgressWindow::Open(int total, HWND parent) {
  shown_ = true;
  record_ = {record_.templateName, record_.procedure, nullptr, parent, total, false, false, false};
  const INITCOMMONCONTROLSEX classes = {sizeof(classes), ICC_PROGRESS_CLASS};
  InitCommonControlsEx(&classes);
  record_.window = CreateDialogParamA(LibraryInstance(), record_.templateName, parent, record_.procedure, 0);
  if (record_.window == nullptr) return false;
  if (parent != nullptr && IsWindowEnabled(parent) != 0) {
    EnableWindow(parent, FALSE);
    record_.parentDisabled = true;
  }
  ShowWindow(record_.window, SW_SHOWNORMAL);
  UpdateWindow(record_.window);
  return true;
}

void ProgressWindow::Step() {
  if (!isOpen()) return;
  MSG message;
  while (PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE) != 0) {
    if (IsDialogMessageA(record_.window, &message) != 0) continue;
    TranslateMessage(&message);
    DispatchMessageA(&message);
  }
  SendMessageA(GetDlgItem(record_.window, kProgressBar), PBM_STEPIT, 0, 0);
}

bool ProgressWindow::cancelled() const { return shown_ && record_.cancelled; }

void ProgressWindow::Close() {
  if (isOpen()) CloseWindow(record_);
}

bool ProgressWindow::isOpen() const { return shown_ && record_.window != nullptr && !record_.destroyed; }

}  // namespace rastrel
