#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "formats/bytes.h"

namespace rastrel::formats {
namespace {

class FileBytes : public Bytes {
 public:
  explicit FileBytes(int file) : file_(file) {}
  ~FileBytes() override { ::close(file_); }

  size_t ReadAt(uint64_t position, std::span<uint8_t> bytes) noexcept override {
    size_t got = 0;
    while (got < bytes.size()) {
      const ssize_t count =
          ::pread(file_, bytes.data() + got, bytes.size() - got, static_cast<off_t>(position + got));
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) Fail(std::strerror(errno));
      if (count <= 0) break;
      got += static_cast<size_t>(count);
    }
    return got;
  }

  bool WriteAt(uint64_t position, std::span<const uint8_t> bytes) noexcept override {
    size_t written = 0;
    while (written < bytes.size()) {
      const ssize_t count = ::pwrite(file_, bytes.data() + written, bytes.size() - written,
                                     static_cast<off_t>(position + written));
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) return Fail(std::strerror(count < 0 ? errno : ENOSPC));
      written += static_cast<size_t>(count);
    }
    return true;
  }

  uint64_t size() noexcept override {
    struct stat status {};
    return ::fstat(file_, &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
  }

 private:
  int file_;
};

std::unique_ptr<Bytes> Open(const std::string& path, int flags, const char* intro) {
  const int file = ::open(path.c_str(), flags | O_CLOEXEC);
  if (file < 0) throw PageError(intro + std::string(std::strerror(errno)), ErrOpenFile);
  return std::make_unique<FileBytes>(file);
}

}  // namespace

std::unique_ptr<Bytes> OpenToRead(const std::string& path) { return Open(path, O_RDONLY, ""); }
std::unique_ptr<Bytes> OpenToWrite(const std::string& path) {
  return Open(path, O_RDWR | O_TRUNC, "cannot be written: ");
}

void RemoveFile(const std::atomic<const char*>& name) {
  if (const char* path = name.load()) ::unlink(path);
}

}  // namespace rastrel::formats
