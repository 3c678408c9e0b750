// What a batch remembers of files: their size, time and hash.
#ifndef RASTREL_TOOLS_BATCH_FILES_H
#define RASTREL_TOOLS_BATCH_FILES_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace rastrel::tool {

struct FileState {
  int64_t size = 0;
  int64_t modified = 0;  // nanoseconds since 1970
};
// Nothing where there is no regular file of that name.
std::optional<FileState> StateOf(const std::string& path);

// A file's name from the root on, without turns: equal for two spellings of one name.
std::string WholeName(const std::string& path);

// SHA-256, as 64 hexadecimal digits. Throws PageError for a file that cannot be read.
std::string HashOfFile(const std::string& path);
std::string HashOfText(std::string_view text);

// Whether an error ends with the system's words for no more can be written, whatever the page. Before them
// stand names, which can be those words as well.
bool IsOfFullDisk(const std::string& error);

// "2026-01-31T12:00:00Z"
std::string TimeNow();

}  // namespace rastrel::tool

#endif
