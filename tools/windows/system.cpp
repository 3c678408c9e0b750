#include "tools/system.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <csignal>
#include <cstdio>

#include "tools/paths.h"

// Patterns like *.bmp are expanded before main: no shell does it there.
extern "C" int _dowildcard;
int _dowildcard = -1;

namespace rastrel::tool {

std::optional<FileKey> KeyOf(const std::string& path) {
  HANDLE file = CreateFileA(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                            OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (file == INVALID_HANDLE_VALUE) return std::nullopt;
  BY_HANDLE_FILE_INFORMATION about = {};
  const bool isKnown = GetFileInformationByHandle(file, &about) != 0;
  CloseHandle(file);
  if (!isKnown) return std::nullopt;
  return FileKey(about.dwVolumeSerialNumber, uint64_t{about.nFileIndexHigh} << 32 | about.nFileIndexLow);
}

// In capitals, as names are compared, and without the dots and spaces at its end, which are no part of a
// name.
std::string Comparable(const std::string& path) {
  std::u16string name = PathOf(path).u16string();
  CharUpperBuffW(reinterpret_cast<wchar_t*>(name.data()), static_cast<DWORD>(name.size()));
  while (name.ends_with(u'.') || name.ends_with(u' ')) name.pop_back();
  return NameOf(name);
}

// Closed ones stay closed there: files are opened under other numbers.
void ReserveStandardFiles() {}

void UseBytes() {
  _setmode(_fileno(stdin), _O_BINARY);
  _setmode(_fileno(stdout), _O_BINARY);
}

bool CanDrawOnScreen() {
  HANDLE screen = GetStdHandle(STD_ERROR_HANDLE);
  DWORD mode = 0;
  return GetConsoleMode(screen, &mode) != 0 &&
         SetConsoleMode(screen, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

void OnInterruption(void (*handler)(int signal)) {
  for (const int signal : {SIGINT, SIGTERM, SIGBREAK}) std::signal(signal, handler);
}

void Exclusively(const std::function<void()>& work) { work(); }

// The compiler's library for the system's own threads has none of its own.
unsigned ThreadsFor(int /*wanted*/) { return 1; }

void RunInOrder(size_t count, int /*wantedThreads*/, const std::function<Finish(size_t)>& work) {
  for (size_t i = 0; i < count; ++i) work(i)();
}

}  // namespace rastrel::tool
