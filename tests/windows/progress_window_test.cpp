// The progress windows of rastrel.dll as a user meets them: they open above a program's window, which cannot
// be used meanwhile, and their Cancel button ends the work. With a file name the first window's picture is
// saved there.
#include <rastrel.h>

#include <commctrl.h>

#include <cstdio>
#include <cstring>

namespace {

constexpr int kWidth = 4960, kHeight = 7016;  // A4 at 600 dpi
constexpr int kProgressBar = 1002;

int failures = 0;

void Check(bool holds, const char* what, const char* caption) {
  if (holds) return;
  std::printf("%s: %s does not hold\n", caption, what);
  ++failures;
}
#define CHECK(condition, caption) Check(condition, #condition, caption)

// Broken lines that rise by about 5 degrees.
HGLOBAL MakePage() {
  BITMAPINFOHEADER header = {};
  header.biSize = sizeof(header);
  header.biWidth = kWidth;
  header.biHeight = kHeight;
  header.biPlanes = 1;
  header.biBitCount = 8;
  header.biClrUsed = 256;
  header.biXPelsPerMeter = header.biYPelsPerMeter = 23622;
  HGLOBAL page = GlobalAlloc(GMEM_MOVEABLE, sizeof(header) + 1024 + size_t{kWidth} * kHeight);
  auto* bytes = static_cast<uint8_t*>(GlobalLock(page));
  std::memcpy(bytes, &header, sizeof(header));
  for (unsigned i = 0; i < 256; ++i) {
    const RGBQUAD grey = {static_cast<BYTE>(i), static_cast<BYTE>(i), static_cast<BYTE>(i), 0};
    std::memcpy(bytes + sizeof(header) + i * sizeof(grey), &grey, sizeof(grey));
  }
  uint8_t* pixel = bytes + sizeof(header) + 1024;
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      const int line = y - x * 7 / 80 + kWidth;
      *pixel++ = line % 40 < 6 && (x / 9 * 7 + line / 40) % 5 != 0 ? 0 : 255;
    }
  }
  GlobalUnlock(page);
  return page;
}

void SavePicture(HWND window, const char* fileName) {
  RECT place;
  GetWindowRect(window, &place);
  const int width = place.right - place.left, height = place.bottom - place.top;
  HDC screen = GetDC(nullptr), memory = CreateCompatibleDC(screen);
  HBITMAP picture = CreateCompatibleBitmap(screen, width, height);
  HGDIOBJ before = SelectObject(memory, picture);
  BitBlt(memory, 0, 0, width, height, screen, place.left, place.top, SRCCOPY);
  SelectObject(memory, before);
  SaveBitmap(fileName, picture, nullptr);
  DeleteObject(picture);
  DeleteDC(memory);
  ReleaseDC(nullptr, screen);
}

// The one in front of the window.
struct User {
  HWND parent;
  const char* caption;
  int end;               // of the bar
  const char* fileName;  // null: no picture
  bool hasPressed = false;
};
User user;

// Comes by now and then while the operation takes in messages. Looks at the window when a third of the work
// is done, and presses Cancel.
void CALLBACK ComeBy(HWND parent, UINT /*message*/, UINT_PTR timer, DWORD /*time*/) {
  HWND window = FindWindowA(nullptr, user.caption);
  HWND bar = GetDlgItem(window, kProgressBar), button = GetDlgItem(window, IDCANCEL);
  CHECK(window != nullptr && bar != nullptr && button != nullptr, user.caption);
  if (SendMessageA(bar, PBM_GETPOS, 0, 0) < user.end / 3) return;
  CHECK(IsWindowVisible(window), user.caption);
  CHECK(GetWindow(window, GW_OWNER) == user.parent, user.caption);
  CHECK(!IsWindowEnabled(user.parent), user.caption);
  CHECK(SendMessageA(bar, PBM_GETRANGE, 0, 0) == user.end, user.caption);
  if (user.fileName != nullptr) SavePicture(window, user.fileName);
  KillTimer(parent, timer);
  user.hasPressed = PostMessageA(window, WM_COMMAND, MAKEWPARAM(IDCANCEL, BN_CLICKED),
                                 reinterpret_cast<LPARAM>(button)) != 0;
}

// Runs an operation that Cancel ends; it must then give nothing and leave nothing open.
template <class Operation>
void ExpectCancelled(const User& present, Operation run) {
  user = present;
  SetTimer(user.parent, 1, USER_TIMER_MINIMUM, ComeBy);
  CHECK(!run(), user.caption);
  CHECK(user.hasPressed, user.caption);
  KillTimer(user.parent, 1);
  CHECK(IsWindowEnabled(user.parent), user.caption);
  CHECK(FindWindowA(nullptr, user.caption) == nullptr, user.caption);
}

}  // namespace

int main(int argc, char** argv) {
  HWND parent = CreateWindowA("STATIC", "A program", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0, 800, 600,
                              nullptr, nullptr, nullptr, nullptr);
  HGLOBAL page = MakePage();
  HGLOBAL punched = AutoPunchHoleRemover(page, 0, nullptr);
  CHECK(DetectSkewAngle(page, 1, 0, nullptr) != 0 && punched != nullptr, "without a window");
  GlobalFree(punched);
  ExpectCancelled({parent, "Detect Skew Angle...", (kWidth + kHeight) / 5 + 1, argc > 1 ? argv[1] : nullptr},
                  [&] { return DetectSkewAngle(page, 1, 1, parent) != 0; });
  const int holeBand = static_cast<int>(600 * 0.7480314960629921 + 0.5);
  ExpectCancelled({parent, "Punch Hole Removal...", (holeBand + 2 * kHeight + 1) / 5 + 1, nullptr},
                  [&] { return AutoPunchHoleRemover(page, 1, parent) != nullptr; });
  GlobalFree(page);
  return failures == 0 ? 0 : 1;
}
