#include <windows.h>

#include <algorithm>

#include "formats/bytes.h"
#include "formats/paths.h"

namespace rastrel::formats {
namespace {

constexpr DWORD kPieceBytes = 1 << 30;  // read or written at a time

OVERLAPPED At(uint64_t position) {
  OVERLAPPED place = {};
  place.Offset = static_cast<DWORD>(position);
  place.OffsetHigh = static_cast<DWORD>(position >> 32);
  return place;
}

class FileBytes : public Bytes {
 public:
  explicit FileBytes(HANDLE file) : file_(file) {}
  ~FileBytes() override { CloseHandle(file_); }

  size_t ReadAt(uint64_t position, std::span<uint8_t> bytes) noexcept override {
    size_t got = 0;
    while (got < bytes.size()) {
      OVERLAPPED place = At(position + got);
      DWORD count = 0;
      const auto wanted = static_cast<DWORD>(std::min<size_t>(bytes.size() - got, kPieceBytes));
      if (ReadFile(file_, bytes.data() + got, wanted, &count, &place) == 0 || count == 0) break;
      got += count;
    }
    return got;
  }

  bool WriteAt(uint64_t position, std::span<const uint8_t> bytes) noexcept override {
    size_t written = 0;
    while (written < bytes.size()) {
      OVERLAPPED place = At(position + written);
      DWORD count = 0;
      const auto wanted = static_cast<DWORD>(std::min<size_t>(bytes.size() - written, kPieceBytes));
      if (WriteFile(file_, bytes.data() + written, wanted, &count, &place) == 0 || count == 0) {
        return Fail("No space left on device");
      }
      written += count;
    }
    return true;
  }

  uint64_t size() noexcept override {
    LARGE_INTEGER size = {};
    return GetFileSizeEx(file_, &size) != 0 ? static_cast<uint64_t>(size.QuadPart) : 0;
  }

 private:
  HANDLE file_;
};

std::unique_ptr<Bytes> Open(const std::string& path, DWORD access, DWORD disposition, const char* problem) {
  HANDLE file = CreateFileW(PathOf(path).c_str(), access, FILE_SHARE_READ, nullptr, disposition,
                            FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) throw PageError(problem, ErrOpenFile);
  return std::make_unique<FileBytes>(file);
}

}  // namespace

std::unique_ptr<Bytes> OpenToRead(const std::string& path) {
  return Open(path, GENERIC_READ, OPEN_EXISTING, "cannot be opened");
}
std::unique_ptr<Bytes> OpenToWrite(const std::string& path) {
  return Open(path, GENERIC_READ | GENERIC_WRITE, TRUNCATE_EXISTING, "cannot be written");
}

// The handler runs beside the thread that writes, and a file that is open cannot be removed.
void RemoveFile(const std::atomic<const char*>& name) {
  for (int tries = 0; tries < 300; ++tries) {
    const char* path = name.load();
    if (path == nullptr || DeleteFileA(path) != 0 || GetLastError() != ERROR_SHARING_VIOLATION) return;
    Sleep(10);
  }
}

}  // namespace rastrel::formats
