#include "formats/output_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "formats/bytes.h"
#include "formats/paths.h"
#include "pages/page.h"
#include "pages/text.h"

namespace rastrel::formats {

namespace {

namespace fs = std::filesystem;

// The names of the files under way. The strings live in their OutputFiles, which clear their slot before they
// let go of them; a signal handler may read only this much.
constexpr int kSlots = 4096;
std::atomic<const char*> unfinished[kSlots];
static_assert(std::atomic<const char*>::is_always_lock_free);

int TakeSlot(const char* path) {
  for (int i = 0; i < kSlots; ++i) {
    const char* none = nullptr;
    if (unfinished[i].compare_exchange_strong(none, path)) return i;
  }
  return -1;
}

// Leaves room for what is put around a name. Characters stay whole.
std::string Shortened(std::string name) {
  size_t bytes = std::min<size_t>(name.size(), 200);
  while (bytes > 0 && bytes < name.size() && (name[bytes] & 0xC0) == 0x80) --bytes;
  name.resize(bytes);
  return name;
}

}  // namespace

OutputFile::OutputFile(const std::string& finalPath) : finalPath_(finalPath) {
  std::error_code error;
  // The file that a link names is replaced, not the link.
  if (fs::is_symlink(PathOf(finalPath), error)) {
    const fs::path target = fs::weakly_canonical(PathOf(finalPath), error);
    if (!error) finalPath_ = NameOf(target);
  }
  const fs::path final = PathOf(finalPath_);
  if (fs::exists(final, error) && !fs::is_regular_file(final, error)) {
    throw PageError("is there and is not a regular file", ErrExists);
  }
  static std::atomic<unsigned> count{0};
  const std::string name =
      Text(".", Shortened(NameOf(final.filename())), ".", ::getpid(), "-", count.fetch_add(1), ".part");
  path_ = NameOf(final.parent_path() / PathOf(name));
  const int file = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0666);
  if (file < 0) throw PageError(Text("cannot be written: ", std::strerror(errno)), ErrOpenFile);
  ::close(file);
  slot_ = TakeSlot(path_.c_str());
}

OutputFile::~OutputFile() {
  if (!path_.empty()) ::unlink(path_.c_str());
  if (slot_ >= 0) unfinished[slot_].store(nullptr);
}

void OutputFile::Commit() {
  std::error_code error;
  fs::rename(PathOf(path_), PathOf(finalPath_), error);
  if (error) throw PageError(Text("cannot be written: ", error.message()), ErrFileIO);
  if (slot_ >= 0) unfinished[slot_].store(nullptr);
  slot_ = -1;
  path_.clear();
}

void RemoveUnfinishedFiles() {
  for (const auto& path : unfinished) RemoveFile(path);
}

}  // namespace rastrel::formats
