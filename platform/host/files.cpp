// Old-style files over POSIX descriptors.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/host/fault_injection.h"
#include "platform/host/system.h"

namespace {

constexpr size_t kLongest = 1u << 30;  // of one system call

// Repeats `call` (read or write) until `bytes` are through, it returns 0, or it fails.
template <class Byte, class Call>
int64_t Transfer(Byte* buffer, uint32_t bytes, Call call) {
  uint32_t done = 0;
  while (done < bytes) {
    const ssize_t now = call(buffer + done, bytes - done < kLongest ? bytes - done : kLongest);
    if (now < 0 && errno == EINTR) continue;
    if (now < 0) return -1;
    if (now == 0) break;
    done += static_cast<uint32_t>(now);
  }
  return done;
}

int64_t ReadAll(HFILE file, void* buffer, uint32_t bytes) {
  return Transfer(static_cast<uint8_t*>(buffer), bytes,
                  [file](uint8_t* at, size_t count) { return ::read(file, at, count); });
}

int64_t WriteAll(HFILE file, const char* buffer, uint32_t bytes) {
  if (rastrel::host::ShouldFail(rastrel::host::Fault::kWrite)) return 0;
  return Transfer(buffer, bytes, [file](const char* at, size_t count) { return ::write(file, at, count); });
}

}  // namespace

HANDLE CreateFileA(LPCSTR fileName, DWORD access, DWORD /*sharing*/, void* /*security*/, DWORD disposition,
                   DWORD /*attributes*/, HANDLE /*templateFile*/) {
  const auto invalid = reinterpret_cast<HANDLE>(intptr_t{-1});
  if (fileName == nullptr) return invalid;
  int flags = (access & GENERIC_WRITE) != 0 ? O_RDWR : O_RDONLY;
  if (disposition == CREATE_ALWAYS) flags |= O_CREAT | O_TRUNC;
  const int file = ::open(fileName, flags | O_CLOEXEC, 0666);
  if (file < 0) return invalid;
  struct stat status;
  if (::fstat(file, &status) != 0 || S_ISDIR(status.st_mode)) {
    ::close(file);
    return invalid;
  }
  return reinterpret_cast<HANDLE>(intptr_t{file});
}

LONG _llseek(HFILE file, LONG offset, int origin) {
  // An offset from the start is a field of a file, unsigned there.
  const off_t distance = origin == FILE_BEGIN ? off_t{static_cast<uint32_t>(offset)} : off_t{offset};
  return static_cast<LONG>(::lseek(file, distance, origin == FILE_BEGIN ? SEEK_SET : SEEK_CUR));
}

UINT _lread(HFILE file, LPVOID buffer, UINT bytes) { return static_cast<UINT>(ReadAll(file, buffer, bytes)); }
UINT _lwrite(HFILE file, LPCSTR buffer, UINT bytes) {
  return static_cast<UINT>(WriteAll(file, buffer, bytes));
}
LONG _hread(HFILE file, LPVOID buffer, LONG bytes) {
  return static_cast<LONG>(ReadAll(file, buffer, static_cast<uint32_t>(bytes)));
}
LONG _hwrite(HFILE file, LPCSTR buffer, LONG bytes) {
  return static_cast<LONG>(WriteAll(file, buffer, static_cast<uint32_t>(bytes)));
}
HFILE _lclose(HFILE file) { return ::close(file) == 0 ? 0 : HFILE_ERROR; }
