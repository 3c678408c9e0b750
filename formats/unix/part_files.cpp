#include "formats/part_files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "formats/paths.h"
#include "pages/page.h"

namespace rastrel::formats {

using namespace pages;

namespace {

[[noreturn]] void Fail(int error) {
  throw PageError("cannot be written: " + std::string(std::strerror(error)), ErrFileIO);
}

bool HasLock(int file) { return ::flock(file, LOCK_EX | LOCK_NB) == 0; }

bool IsStillThere(int file, const std::string& path) {
  struct stat opened {
  }, named{};
  return ::fstat(file, &opened) == 0 && ::lstat(path.c_str(), &named) == 0 && opened.st_dev == named.st_dev &&
         opened.st_ino == named.st_ino;
}

// The system tells it only by changing it. A file that another thread makes in that moment is shown to fewer
// people, not to more.
mode_t Umask() {
  static const mode_t mask = [] {
    const mode_t current = ::umask(077);
    ::umask(current);
    return current;
  }();
  return mask;
}

constexpr mode_t kPermissions = 0777, kOwners = 0700, kGroups = 0070;

// What may be done with `old` may be done with the file. Where the group cannot be kept, the new one may do
// no more than everybody.
void TakeOver(int part, const struct stat& old) {
  mode_t mode = old.st_mode & kPermissions;
  const bool isOwnerKept = ::fchown(part, old.st_uid, old.st_gid) == 0;
  if (!isOwnerKept && ::fchown(part, static_cast<uid_t>(-1), old.st_gid) != 0) {
    mode &= ~kGroups | (mode << 3 & kGroups);
  }
  if (::fchmod(part, mode) != 0) Fail(errno);
}

// Narrowed only for others: the owner of a write-protected source can still change what was made of it.
void TakeSourcePermissions(int part, const struct stat* source) {
  mode_t mode = 0666 & ~Umask();
  if (source != nullptr) mode &= source->st_mode | kOwners;
  if (::fchmod(part, mode) != 0) Fail(errno);
}

void SyncFolder(const std::string& path) {
  const std::string folder = NameOf(PathOf(path).parent_path());
  const int file = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (file < 0) return;  // a folder may be written to and yet not read
  const int result = ::fsync(file);
  const int error = errno;
  ::close(file);
  if (result != 0 && error == EIO) Fail(error);
}

}  // namespace

int CreatePart(const std::string& path) {
  const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (file < 0) throw PageError("cannot be written: " + std::string(std::strerror(errno)), ErrOpenFile);
  // Somebody who cleans up may have been faster than the lock. File systems without locks have no such
  // people.
  if (!HasLock(file) && errno == EWOULDBLOCK) {
    ::close(file);
    throw PageError("cannot be written: another process is using its temporary file", ErrOpenFile);
  }
  if (!IsStillThere(file, path)) {
    ::close(file);
    return CreatePart(path);
  }
  return file;
}

void ClosePart(int part) noexcept { ::close(part); }

void RemoveIfAbandoned(const std::string& path) noexcept {
  const int file = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (file < 0) return;
  struct stat status {};
  const bool isOurs = ::fstat(file, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == ::geteuid();
  if (isOurs && HasLock(file) && IsStillThere(file, path)) ::unlink(path.c_str());
  ::close(file);
}

void PreparePart(int part, const std::string& finalPath, const OutputRules& rules) {
  struct stat old {
  }, source{};
  const bool hasOld = ::stat(finalPath.c_str(), &old) == 0;
  const bool hasSource = !rules.source.empty() && ::stat(rules.source.c_str(), &source) == 0;
  if (hasOld) {
    TakeOver(part, old);
  } else {
    TakeSourcePermissions(part, hasSource ? &source : nullptr);
  }
  if (rules.keepsTime && (hasSource || hasOld)) {
    const struct stat& from = hasSource ? source : old;
    const struct timespec times[] = {from.st_atim, from.st_mtim};
    if (::futimens(part, times) != 0) Fail(errno);
  }
  if (!rules.skipsSync && ::fsync(part) != 0 && errno != EINVAL) Fail(errno);
}

void PutInPlace(const std::string& path, const std::string& finalPath, const OutputRules& rules) {
  if (rules.keepsExisting) {
    // A second name is given only where there is no file; a rename would replace it.
    bool isThere = ::link(path.c_str(), finalPath.c_str()) == 0;
    int error = isThere ? 0 : errno;
    if (isThere) {
      ::unlink(path.c_str());
    } else if (error != EEXIST) {
      // File systems without second names: an empty file holds the place.
      const int holder = ::open(finalPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
      error = errno;
      if (holder >= 0) ::close(holder);
      if (holder >= 0 && ::rename(path.c_str(), finalPath.c_str()) != 0) {
        error = errno;
        ::unlink(finalPath.c_str());
        Fail(error);
      }
      isThere = holder >= 0;
    }
    if (!isThere && error == EEXIST) throw PageError("is there already", ErrExists);
    if (!isThere) Fail(error);
  } else if (::rename(path.c_str(), finalPath.c_str()) != 0) {
    Fail(errno);
  }
  if (!rules.skipsSync) SyncFolder(finalPath);
}

}  // namespace rastrel::formats
