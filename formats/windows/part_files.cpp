#include "formats/part_files.h"

#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "formats/paths.h"
#include "pages/page.h"

namespace rastrel::formats {

using namespace pages;

// Nothing is held open here: an open file cannot be renamed, and one that is not is not removed by others.
int CreatePart(const std::string& path) {
  const int file =
      ::_wopen(PathOf(path).c_str(), _O_WRONLY | _O_CREAT | _O_EXCL | _O_BINARY, _S_IREAD | _S_IWRITE);
  if (file < 0) throw PageError("cannot be written: " + std::string(std::strerror(errno)), ErrOpenFile);
  ::_close(file);
  return -1;
}

void ClosePart(int /*part*/) noexcept {}

void RemoveIfAbandoned(const std::string& /*path*/) noexcept {}

void PreparePart(int /*part*/, const std::string& /*finalPath*/, const OutputRules& /*rules*/) {}

void PutInPlace(const std::string& path, const std::string& finalPath, const OutputRules& rules) {
  const std::filesystem::path from = PathOf(path), to = PathOf(finalPath);
  std::error_code error;
  const std::filesystem::path timed = rules.source.empty() ? to : PathOf(rules.source);
  const auto time = std::filesystem::last_write_time(timed, error);
  if (rules.keepsTime && !error) std::filesystem::last_write_time(from, time, error);
  if (rules.keepsExisting && std::filesystem::exists(to, error))
    throw PageError("is there already", ErrExists);
  std::filesystem::rename(from, to, error);
  if (error) throw PageError("cannot be written: " + error.message(), ErrFileIO);
}

}  // namespace rastrel::formats
