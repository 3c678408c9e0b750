// What tests use of the host layer, on the real system: hooks that look on as it does its work. Included in
// front of every test file.
#ifndef RASTREL_TESTS_SUPPORT_WINDOWS_HOST_H
#define RASTREL_TESTS_SUPPORT_WINDOWS_HOST_H

#include <windows.h>

#include <commctrl.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved);

// Windows are real ones. A parent belongs to the presenter, and is none for the system.
struct RastrelProgressPresenter {
  void* context;
  int (*open)(void* context, HWND window, const char* caption, HWND parent);
  void (*progress)(void* context, HWND window, int position, int end);
  int (*cancelled)(void* context, HWND window);
  void (*close)(void* context, HWND window);
  int (*isEnabled)(void* context, HWND parent);
  void (*enable)(void* context, HWND parent, int enabled);
};
void RastrelHostSetProgressPresenter(const RastrelProgressPresenter* presenter);

using RastrelMessageBoxHook = int (*)(void* context, HWND owner, const char* text, const char* title,
                                      unsigned style);
void RastrelHostSetMessageBox(RastrelMessageBoxHook hook, void* context);

using RastrelCursorHook = void (*)(void* context, int cursor);
void RastrelHostSetCursor(RastrelCursorHook hook, void* context);

// The screen is what it is: returns 0.
int RastrelHostSetScreen(int bitsPerPixel, const PALETTEENTRY* palette, int entries);

#endif
