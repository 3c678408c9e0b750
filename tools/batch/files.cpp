#include "tools/batch/files.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <memory>
#include <new>
#include <vector>

#include <fmt/format.h>

#include "tools/handles.h"
#include "tools/paths.h"

namespace rastrel::tool {
namespace {

// Found once: OpenSSL looks through its providers each time.
const EVP_MD* Sha256Kind() {
  static const std::unique_ptr<EVP_MD, Freer<EVP_MD_free>> kind(EVP_MD_fetch(nullptr, "SHA256", nullptr));
  return kind.get();
}

class Sha256 {
 public:
  Sha256() {
    if (!context_ || EVP_DigestInit_ex(context_.get(), Sha256Kind(), nullptr) != 1) throw std::bad_alloc();
  }
  void Add(const void* bytes, size_t size) {
    if (EVP_DigestUpdate(context_.get(), bytes, size) != 1) throw std::bad_alloc();
  }
  std::string Finish() {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest;
    unsigned size = 0;
    if (EVP_DigestFinal_ex(context_.get(), digest.data(), &size) != 1) throw std::bad_alloc();
    std::string text;
    constexpr char kDigits[] = "0123456789abcdef";
    for (unsigned i = 0; i < size; ++i) text += {kDigits[digest[i] >> 4], kDigits[digest[i] & 15]};
    return text;
  }

 private:
  std::unique_ptr<EVP_MD_CTX, Freer<EVP_MD_CTX_free>> context_{EVP_MD_CTX_new()};
};

}  // namespace

std::optional<FileState> StateOf(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  constexpr int64_t kPerSecond = 1'000'000'000;
  return FileState{status.st_size, status.st_mtim.tv_sec * kPerSecond + status.st_mtim.tv_nsec};
}

std::string WholeName(const std::string& path) {
  return NameOf(std::filesystem::absolute(PathOf(path)).lexically_normal());
}

std::string HashOfFile(const std::string& path) {
  const auto fail = [] { throw PageError(fmt::format("cannot be read: {}", std::strerror(errno))); };
  const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) fail();
  struct Closer {
    int file;
    ~Closer() { ::close(file); }
  } const closer{file};
  Sha256 hash;
  constexpr size_t kPieceBytes = 1 << 18;
  const auto piece = std::make_unique_for_overwrite<char[]>(kPieceBytes);
  while (true) {
    const ssize_t count = ::read(file, piece.get(), kPieceBytes);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) fail();
    if (count == 0) return hash.Finish();
    hash.Add(piece.get(), static_cast<size_t>(count));
  }
}

std::string HashOfText(std::string_view text) {
  Sha256 hash;
  hash.Add(text.data(), text.size());
  return hash.Finish();
}

bool IsOfFullDisk(const std::string& error) {
  for (const int code : {ENOSPC, EDQUOT}) {
    if (error.ends_with(std::strerror(code))) return true;
  }
  return false;
}

std::string TimeNow() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  ::gmtime_r(&now, &parts);
  std::array<char, 32> text;
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

}  // namespace rastrel::tool
