#include "formats/files.h"

#include <windows.h>

namespace rastrel::formats {

// The handler runs beside the thread that writes, and a file that is open cannot be removed.
void RemoveFile(const std::atomic<const char*>& name) {
  for (int tries = 0; tries < 300; ++tries) {
    const char* path = name.load();
    if (path == nullptr || DeleteFileA(path) != 0 || GetLastError() != ERROR_SHARING_VIOLATION) return;
    Sleep(10);
  }
}

}  // namespace rastrel::formats
