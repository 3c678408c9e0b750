// Stands between the library and the system in the test program: an import pointer that the program defines
// is taken instead of the system's. Calls can be made to fail, live objects are counted, and hooks look on.
#include <atomic>
#include <cstdio>

#include "platform/host/fault_injection.h"

namespace rastrel::host {
namespace {

std::atomic<int> countdown[kFaults];
std::atomic<bool> struck[kFaults];
std::atomic<uint32_t> platformVersion;
std::atomic<size_t> liveBlocks, liveWindows, liveObjects;

struct {
  RastrelProgressPresenter presenter;
  RastrelMessageBoxHook messageBox;
  void* messageBoxContext;
  RastrelCursorHook cursor;
  void* cursorContext;
} hooks;

}  // namespace

void FailNth(Fault fault, int n) {
  struck[static_cast<int>(fault)] = false;
  countdown[static_cast<int>(fault)] = n;
}
bool FaultStruck(Fault fault) { return struck[static_cast<int>(fault)]; }
bool ShouldFail(Fault fault) {
  std::atomic<int>& left = countdown[static_cast<int>(fault)];
  if (left == 0 || left-- != 1) return false;
  return struck[static_cast<int>(fault)] = true;
}
size_t LiveBlocks() { return liveBlocks; }
size_t LiveWindows() { return liveWindows; }
size_t LiveObjects() { return liveObjects; }
void SetPlatformVersion(uint32_t version) { platformVersion = version; }

}  // namespace rastrel::host

using namespace rastrel::host;

void RastrelHostSetProgressPresenter(const RastrelProgressPresenter* presenter) {
  hooks.presenter = presenter == nullptr ? RastrelProgressPresenter{} : *presenter;
}
void RastrelHostSetMessageBox(RastrelMessageBoxHook hook, void* context) {
  hooks.messageBox = hook;
  hooks.messageBoxContext = context;
}
void RastrelHostSetCursor(RastrelCursorHook hook, void* context) {
  hooks.cursor = hook;
  hooks.cursorContext = context;
}
int RastrelHostSetScreen(int /*bitsPerPixel*/, const PALETTEENTRY* /*palette*/, int /*entries*/) { return 0; }

// The library reaches a system function through a pointer of this name, with the bytes of the arguments
// behind it where callees clean the stack.
#ifdef _WIN64
#define IMPORT_SYMBOL(name, argumentBytes) "__imp_" #name
#else
#define IMPORT_SYMBOL(name, argumentBytes) "__imp__" #name "@" #argumentBytes
#endif

// Begins the function that is called instead of a system function; `System` calls that one.
#define INSTEAD_OF(module, name, argumentBytes)                                  \
  struct name##Instead {                                                         \
    static decltype(&::name) Find() {                                            \
      return reinterpret_cast<decltype(&::name)>(                                \
          reinterpret_cast<void*>(GetProcAddress(LoadLibraryA(module), #name))); \
    }                                                                            \
    template <class... Arguments>                                                \
    static auto System(Arguments... arguments) {                                 \
      static const auto function = Find();                                       \
      return function(arguments...);                                             \
    }                                                                            \
    static decltype(::name) Call;                                                \
  };                                                                             \
  extern decltype(&::name) name##Import asm(IMPORT_SYMBOL(name, argumentBytes)); \
  decltype(&::name) name##Import = name##Instead::Call;

// A crash ends the program; the system would open a debugger.
static LONG WINAPI ReportCrash(EXCEPTION_POINTERS* crash) {
  std::printf("crashed at %p\n", crash->ExceptionRecord->ExceptionAddress);
  std::fflush(stdout);
  return EXCEPTION_EXECUTE_HANDLER;
}
static const auto filterBefore = SetUnhandledExceptionFilter(ReportCrash);

// ---- memory blocks ----

// Sizes are rounded here as the host layer rounds them, which a system may do.
static SIZE_T Rounded(SIZE_T bytes) { return (bytes + 7) & ~SIZE_T{7}; }

INSTEAD_OF("kernel32", GlobalAlloc, 8)
HGLOBAL WINAPI GlobalAllocInstead::Call(UINT flags, SIZE_T bytes) {
  if (ShouldFail(Fault::kAllocation)) return nullptr;
  HGLOBAL block = System(flags, Rounded(bytes));
  if (block != nullptr) ++liveBlocks;
  return block;
}

INSTEAD_OF("kernel32", GlobalReAlloc, 12)
HGLOBAL WINAPI GlobalReAllocInstead::Call(HGLOBAL block, SIZE_T bytes, UINT flags) {
  return ShouldFail(Fault::kAllocation) ? nullptr : System(block, Rounded(bytes), flags);
}

INSTEAD_OF("kernel32", GlobalFree, 4)
HGLOBAL WINAPI GlobalFreeInstead::Call(HGLOBAL block) {
  HGLOBAL left = System(block);
  if (block != nullptr && left == nullptr) --liveBlocks;
  return left;
}

INSTEAD_OF("kernel32", GlobalLock, 4)
LPVOID WINAPI GlobalLockInstead::Call(HGLOBAL block) {
  return ShouldFail(Fault::kLock) ? nullptr : System(block);
}

INSTEAD_OF("kernel32", HeapAlloc, 12)
LPVOID WINAPI HeapAllocInstead::Call(HANDLE heap, DWORD flags, SIZE_T bytes) {
  return ShouldFail(Fault::kAllocation) ? nullptr : System(heap, flags, bytes);
}

// ---- files and the version ----

INSTEAD_OF("kernel32", _lwrite, 12)
UINT WINAPI _lwriteInstead::Call(HFILE file, LPCCH buffer, UINT bytes) {
  return ShouldFail(Fault::kWrite) ? 0 : System(file, buffer, bytes);
}

INSTEAD_OF("kernel32", _hwrite, 12)
LONG WINAPI _hwriteInstead::Call(HFILE file, LPCCH buffer, LONG bytes) {
  return ShouldFail(Fault::kWrite) ? 0 : System(file, buffer, bytes);
}

INSTEAD_OF("kernel32", GetVersion, 0)
DWORD WINAPI GetVersionInstead::Call() { return platformVersion; }

// ---- bitmaps, palettes, device contexts ----

template <class Make>
static auto Made(Make make) {
  using Object = decltype(make());
  if (ShouldFail(Fault::kCreation)) return Object{};
  Object object = make();
  if (object != nullptr) ++liveObjects;
  return object;
}

static BOOL Deleted(BOOL isDeleted) {
  if (isDeleted != 0) --liveObjects;
  return isDeleted;
}

INSTEAD_OF("gdi32", CreateBitmap, 20)
HBITMAP WINAPI CreateBitmapInstead::Call(int width, int height, UINT planes, UINT bits, const void* from) {
  return Made([=] { return System(width, height, planes, bits, from); });
}

INSTEAD_OF("gdi32", CreateBitmapIndirect, 4)
HBITMAP WINAPI CreateBitmapIndirectInstead::Call(const BITMAP* bitmap) {
  return Made([=] { return System(bitmap); });
}

INSTEAD_OF("gdi32", CreateDIBitmap, 24)
HBITMAP WINAPI CreateDIBitmapInstead::Call(HDC context, const BITMAPINFOHEADER* header, DWORD init,
                                           const void* bits, const BITMAPINFO* info, UINT usage) {
  return Made([=] { return System(context, header, init, bits, info, usage); });
}

INSTEAD_OF("gdi32", CreatePalette, 4)
HPALETTE WINAPI CreatePaletteInstead::Call(const LOGPALETTE* palette) {
  return Made([=] { return System(palette); });
}

INSTEAD_OF("gdi32", CreateCompatibleDC, 4)
HDC WINAPI CreateCompatibleDCInstead::Call(HDC context) {
  return Made([=] { return System(context); });
}

INSTEAD_OF("user32", GetDC, 4)
HDC WINAPI GetDCInstead::Call(HWND window) {
  return Made([=] { return System(window); });
}

INSTEAD_OF("gdi32", DeleteObject, 4)
BOOL WINAPI DeleteObjectInstead::Call(HGDIOBJ object) { return Deleted(System(object)); }

INSTEAD_OF("gdi32", DeleteDC, 4)
BOOL WINAPI DeleteDCInstead::Call(HDC context) { return Deleted(System(context)); }

INSTEAD_OF("user32", ReleaseDC, 8)
int WINAPI ReleaseDCInstead::Call(HWND window, HDC context) { return Deleted(System(window, context)); }

// ---- cursor and message box ----

INSTEAD_OF("user32", SetCursor, 4)
HCURSOR WINAPI SetCursorInstead::Call(HCURSOR cursor) {
  const HCURSOR wait = LoadCursorA(nullptr, reinterpret_cast<LPCSTR>(IDC_WAIT));
  if (hooks.cursor != nullptr) hooks.cursor(hooks.cursorContext, cursor == wait ? 32514 : 0);
  return System(cursor);
}

INSTEAD_OF("user32", MessageBoxA, 16)
int WINAPI MessageBoxAInstead::Call(HWND owner, LPCSTR text, LPCSTR title, UINT style) {
  return hooks.messageBox == nullptr ? System(owner, text, title, style)
                                     : hooks.messageBox(hooks.messageBoxContext, owner, text, title, style);
}

// ---- progress windows ----

static struct {
  HWND window;
  HWND parent;
  DLGPROC procedure;
  bool isCancelled;
} progressWindow;

// Gives way to the library's own procedure with the first message that that one handles.
static INT_PTR CALLBACK OpenProgressWindow(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message != WM_INITDIALOG) return FALSE;
  progressWindow.window = window;
  SetWindowLongPtrA(window, DWLP_DLGPROC, reinterpret_cast<LONG_PTR>(progressWindow.procedure));
  char caption[80];
  GetWindowTextA(window, caption, sizeof(caption));
  const RastrelProgressPresenter& presenter = hooks.presenter;
  if (presenter.open != nullptr &&
      presenter.open(presenter.context, window, caption, progressWindow.parent) == 0) {
    progressWindow.window = nullptr;
    return TRUE;
  }
  return progressWindow.procedure(window, message, wParam, lParam);
}

INSTEAD_OF("user32", CreateDialogParamA, 20)
HWND WINAPI CreateDialogParamAInstead::Call(HINSTANCE instance, LPCSTR name, HWND owner, DLGPROC procedure,
                                            LPARAM parameter) {
  if (ShouldFail(Fault::kCreation)) return nullptr;
  progressWindow = {nullptr, owner, procedure, false};
  HWND window = System(instance, name, IsWindow(owner) != 0 ? owner : nullptr, OpenProgressWindow, parameter);
  if (window == nullptr) return nullptr;
  ++liveWindows;
  if (progressWindow.window != nullptr) return window;
  DestroyWindow(window);
  return nullptr;
}

INSTEAD_OF("user32", DestroyWindow, 4)
BOOL WINAPI DestroyWindowInstead::Call(HWND window) {
  const BOOL isDestroyed = System(window);
  if (isDestroyed == 0) return isDestroyed;
  --liveWindows;
  const bool wasOpen = progressWindow.window == window;
  if (wasOpen) progressWindow.window = nullptr;
  if (wasOpen && hooks.presenter.close != nullptr) hooks.presenter.close(hooks.presenter.context, window);
  return isDestroyed;
}

INSTEAD_OF("user32", IsWindowEnabled, 4)
BOOL WINAPI IsWindowEnabledInstead::Call(HWND window) {
  const RastrelProgressPresenter& presenter = hooks.presenter;
  return presenter.isEnabled == nullptr ? System(window) : presenter.isEnabled(presenter.context, window);
}

INSTEAD_OF("user32", EnableWindow, 8)
BOOL WINAPI EnableWindowInstead::Call(HWND window, BOOL enable) {
  const RastrelProgressPresenter& presenter = hooks.presenter;
  if (presenter.enable == nullptr) return System(window, enable);
  presenter.enable(presenter.context, window, enable);
  return TRUE;
}

INSTEAD_OF("user32", SendMessageA, 16)
LRESULT WINAPI SendMessageAInstead::Call(HWND bar, UINT message, WPARAM wParam, LPARAM lParam) {
  const LRESULT result = System(bar, message, wParam, lParam);
  const RastrelProgressPresenter& presenter = hooks.presenter;
  if (bar != nullptr && (message == PBM_SETRANGE32 || message == PBM_STEPIT) &&
      presenter.progress != nullptr) {
    presenter.progress(presenter.context, GetParent(bar), static_cast<int>(System(bar, PBM_GETPOS, 0, 0)),
                       static_cast<int>(System(bar, PBM_GETRANGE, 0, 0)));
  }
  return result;
}

// The presenter's Cancel is posted, and comes when the messages that wait have been handled.
INSTEAD_OF("user32", PeekMessageA, 20)
BOOL WINAPI PeekMessageAInstead::Call(LPMSG message, HWND window, UINT first, UINT last, UINT remove) {
  if (System(message, window, first, last, remove) != 0) return TRUE;
  const RastrelProgressPresenter& presenter = hooks.presenter;
  if (progressWindow.window == nullptr || progressWindow.isCancelled || presenter.cancelled == nullptr ||
      presenter.cancelled(presenter.context, progressWindow.window) == 0) {
    return FALSE;
  }
  progressWindow.isCancelled = true;
  PostMessageA(progressWindow.window, WM_COMMAND, IDCANCEL, 0);
  return System(message, window, first, last, remove);
}
