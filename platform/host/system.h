// The platform's operations that only the library itself calls: threads, files, cursor, message box, dialogs.
// Names, argument orders and results are the platform's. What a caller of the library needs as well is in
// host.h.
#ifndef RASTREL_PLATFORM_HOST_SYSTEM_H
#define RASTREL_PLATFORM_HOST_SYSTEM_H

#include <rastrel_host.h>

#include <cstddef>
#include <cstdint>

using BOOL = int;
using WORD = uint16_t;
using DWORD = uint32_t;
using LONG = int32_t;
using UINT = uint32_t;
using HANDLE = void*;
using HINSTANCE = void*;
using HFILE = int;
using HCURSOR = void*;
using WPARAM = uintptr_t;
using LPARAM = intptr_t;
using LRESULT = intptr_t;
using INT_PTR = intptr_t;
using LPVOID = void*;
using LPCSTR = const char*;

#define WINAPI
#define CALLBACK
constexpr BOOL FALSE = 0;
constexpr BOOL TRUE = 1;

// ---- the loader ----

constexpr DWORD DLL_PROCESS_DETACH = 0;
constexpr DWORD DLL_PROCESS_ATTACH = 1;
constexpr DWORD DLL_THREAD_ATTACH = 2;
constexpr DWORD DLL_THREAD_DETACH = 3;

// The library's entry point, which the library itself defines. The host calls it as the platform's loader
// would, but for DLL_THREAD_ATTACH: nothing tells it that a thread has started.
extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved);

// The top bit is set on the platform family that notifies a library twice.
DWORD GetVersion();

// ---- threads ----

// Slots of thread-local storage. A thread that ends with a value in a slot is reported with
// DLL_THREAD_DETACH.
constexpr DWORD TLS_OUT_OF_INDEXES = 0xFFFFFFFF;
DWORD TlsAlloc();
LPVOID TlsGetValue(DWORD slot);
BOOL TlsSetValue(DWORD slot, LPVOID value);
BOOL TlsFree(DWORD slot);

[[noreturn]] void ExitThread(DWORD exitCode);

// ---- the process heap ----

constexpr DWORD HEAP_ZERO_MEMORY = 8;
HANDLE GetProcessHeap();
LPVOID HeapAlloc(HANDLE heap, DWORD flags, size_t bytes);
BOOL HeapFree(HANDLE heap, DWORD flags, LPVOID memory);

// ---- files ----

constexpr DWORD GENERIC_READ = 0x80000000;
constexpr DWORD GENERIC_WRITE = 0x40000000;
constexpr DWORD CREATE_ALWAYS = 2;
constexpr DWORD OPEN_EXISTING = 3;
constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;
constexpr HFILE HFILE_ERROR = -1;
constexpr int FILE_BEGIN = 0;
constexpr int FILE_CURRENT = 1;

// Returns a POSIX descriptor as a handle, -1 on failure. Directories are refused. Sharing is not enforced.
HANDLE CreateFileA(LPCSTR fileName, DWORD access, DWORD sharing, void* security, DWORD disposition,
                   DWORD attributes, HANDLE templateFile);
LONG _llseek(HFILE file, LONG offset, int origin);
// These read or write until done, the end of the file, or an error; -1 when an error comes first. Counts of
// the large forms are taken as unsigned.
UINT _lread(HFILE file, LPVOID buffer, UINT bytes);
UINT _lwrite(HFILE file, LPCSTR buffer, UINT bytes);
LONG _hread(HFILE file, LPVOID buffer, LONG bytes);
LONG _hwrite(HFILE file, LPCSTR buffer, LONG bytes);
HFILE _lclose(HFILE file);

// ---- cursor and message box ----

inline LPCSTR const IDC_WAIT = reinterpret_cast<LPCSTR>(uintptr_t{32514});
HCURSOR LoadCursorA(HINSTANCE instance, LPCSTR name);
HCURSOR SetCursor(HCURSOR cursor);

constexpr UINT MB_OK = 0;
constexpr UINT MB_ICONEXCLAMATION = 0x30;
int MessageBoxA(HWND owner, LPCSTR text, LPCSTR title, UINT style);

// ---- dialogs and messages ----

using DLGPROC = INT_PTR(CALLBACK*)(HWND, UINT, WPARAM, LPARAM);

struct POINT {
  LONG x;
  LONG y;
};

struct MSG {
  HWND hwnd;
  UINT message;
  WPARAM wParam;
  LPARAM lParam;
  DWORD time;
  POINT pt;
};

constexpr UINT WM_DESTROY = 0x0002;
constexpr UINT WM_INITDIALOG = 0x0110;
constexpr UINT WM_COMMAND = 0x0111;
constexpr UINT WM_USER = 0x0400;
constexpr UINT PBM_SETSTEP = WM_USER + 4;
constexpr UINT PBM_STEPIT = WM_USER + 5;
constexpr UINT PBM_SETRANGE32 = WM_USER + 6;
constexpr int IDCANCEL = 2;
constexpr int SW_SHOWNORMAL = 1;
constexpr UINT PM_REMOVE = 1;

constexpr WORD LOWORD(uintptr_t value) { return static_cast<WORD>(value & 0xFFFF); }

// Opens the two progress windows, "PROGRESSDLG" and "PUNCHPROGRESSDLG", through the presenter; null when the
// presenter refuses and for every other template. A window belongs to the thread that made it.
HWND CreateDialogParamA(HINSTANCE instance, LPCSTR templateName, HWND owner, DLGPROC procedure,
                        LPARAM parameter);
// There are no modal dialogs on the host: fails as the platform does where a template is missing, with -1.
INT_PTR DialogBoxParamA(HINSTANCE instance, LPCSTR templateName, HWND owner, DLGPROC procedure,
                        LPARAM parameter);
BOOL IsWindowEnabled(HWND window);
BOOL EnableWindow(HWND window, BOOL enable);
BOOL ShowWindow(HWND window, int command);
BOOL UpdateWindow(HWND window);
HWND GetDlgItem(HWND dialog, int identifier);
LRESULT SendMessageA(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
// The calling thread's queue holds only Cancel presses, which the presenter is asked for here.
BOOL PeekMessageA(MSG* message, HWND window, UINT first, UINT last, UINT remove);
BOOL IsDialogMessageA(HWND dialog, MSG* message);
BOOL TranslateMessage(const MSG* message);
LRESULT DispatchMessageA(const MSG* message);

#endif
