// The platform's operations that only the library itself calls: threads, files, cursor, message box, dialogs,
// device contexts.
// Names, argument orders and results are the platform's. What a caller of the library needs as well is in
// host.h.
#ifndef RASTREL_PLATFORM_HOST_SYSTEM_H
#define RASTREL_PLATFORM_HOST_SYSTEM_H

#include <rastrel_host.h>

#include <cstddef>
#include <cstdint>

using UINT = uint32_t;
using HANDLE = void*;
using HINSTANCE = void*;
using HFILE = int;
using HCURSOR = void*;
using HDC = void*;
using WPARAM = uintptr_t;
using LPARAM = intptr_t;
using LRESULT = intptr_t;
using INT_PTR = intptr_t;
using LPVOID = void*;
using LPCSTR = const char*;

#define WINAPI
#define CALLBACK

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

struct INITCOMMONCONTROLSEX {
  DWORD dwSize;
  DWORD dwICC;
};
constexpr DWORD ICC_PROGRESS_CLASS = 0x20;
// The progress bar is always there. Returns 1.
BOOL InitCommonControlsEx(const INITCOMMONCONTROLSEX* classes);

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

// ---- device contexts ----
//
// A device context is the screen's, which has no pixels of its own, or a memory context, which draws on the
// bitmap that is selected into it. A bitmap is in one context at a time.

// Always null: the host's windows are never active, and GetDC takes null for the screen.
HWND GetActiveWindow();
HDC GetDC(HWND window);
int ReleaseDC(HWND window, HDC context);  // the screen's only, DeleteDC memory contexts only
// The new context holds a bitmap of one black pixel of 1 bit, which is the host's own: all new contexts hold
// the same, nothing changes it, and DeleteObject leaves it. A null `context` is the screen's.
HDC CreateCompatibleDC(HDC context);
// Lets go of the bitmap that the context holds.
BOOL DeleteDC(HDC context);
// Selects a bitmap into a memory context and returns the one before; null, and no change, when it cannot.
HGDIOBJ SelectObject(HDC context, HGDIOBJ object);

constexpr int BITSPIXEL = 12;
constexpr int PLANES = 14;
constexpr int NUMCOLORS = 24;     // -1 above 8 bits
constexpr int SIZEPALETTE = 104;  // the entries that the screen was given
int GetDeviceCaps(HDC context, int index);

// A palette that is selected says what the indices of the context's bitmap mean; without one it is the
// screen's colours if the screen has the bitmap's depth, else the standard ones. Indices beyond its entries
// are black; one that was deleted since counts as none. 1 bit is black and white whatever is selected.
// Returns the palette before, which is a handle of the host's own that stands for none until one was
// selected.
HPALETTE SelectPalette(HDC context, HPALETTE palette, BOOL forceBackground);
// Returns the number of entries that the selected palette has, 0 without one.
UINT RealizePalette(HDC context);
// The screen's palette or, at 8 bits and less, its standard colours. Returns the entries copied.
UINT GetSystemPaletteEntries(HDC context, UINT first, UINT count, PALETTEENTRY* entries);
// The colour that the screen shows for a colour, or for entry i of the selected palette: PALETTEINDEX(i).
// Without a palette that is the screen's entry i, above 8 bits the one of the host's own palette of 20; an
// index beyond the entries is taken for 0.
COLORREF GetNearestColor(HDC context, COLORREF colour);
UINT GetNearestPaletteIndex(HPALETTE palette, COLORREF colour);
constexpr COLORREF CLR_INVALID = 0xFFFFFFFF;
constexpr COLORREF PALETTEINDEX(WORD index) { return 0x01000000u | index; }

// ---- device bitmaps ----
//
// Colours go to a palette or a colour table by least squared distance, lowest index first; to 1 bit so to
// black and white; to 5 bits a channel by dropping the low ones, and back by repeating the high ones.

constexpr UINT DIB_RGB_COLORS = 0;
constexpr DWORD CBM_INIT = 4;

// Returns a bitmap of the depth of the screen or, for a memory context, of the bitmap that it holds: 1 bit at
// first. With CBM_INIT the rows `bits` of `info` go into it as SetDIBits puts them; null when they cannot.
HBITMAP CreateDIBitmap(HDC context, const BITMAPINFOHEADER* header, DWORD init, const void* bits,
                       const BITMAPINFO* info, UINT usage);
// Copy `lines` rows from the bottom row `start` up, into or from packed rows of the depth and width that
// `info` says. Between 4 bits and 4 bits, and 8 and 8, indices pass as they are; else colours pass, the DIB's
// by the table in `info` (biClrUsed entries, or all when that is 0), which is never written. Where bitmap and
// `info` differ in size the smaller one counts. Padding in the rows written is 0. Return the rows copied, 0
// on failure: a dead handle, a bitmap in a device context, an `info` that is compressed, of an unknown depth
// or not of one plane, or rows from the top down. GetDIBits without `bits` puts what describes the bitmap
// into the header and returns 1.
int GetDIBits(HDC context, HBITMAP bitmap, UINT start, UINT lines, void* bits, BITMAPINFO* info, UINT usage);
int SetDIBits(HDC context, HBITMAP bitmap, UINT start, UINT lines, const void* bits, const BITMAPINFO* info,
              UINT usage);

constexpr DWORD SRCCOPY = 0x00CC0020;
constexpr DWORD SRCAND = 0x008800C6;
constexpr DWORD DSTINVERT = 0x00550009;

// Draws the source rectangle on the destination's bitmap, clipped to both; a transfer that is clipped away is
// a success. Bits are combined as they lie when both bitmaps have one depth; else the source's colours are
// turned into the destination's pixels first. A bitmap drawn on itself is read as it was before. Fails for
// other operations and dead contexts; DSTINVERT does not look at the source.
BOOL BitBlt(HDC destination, int x, int y, int width, int height, HDC source, int sourceX, int sourceY,
            DWORD operation);

#endif
