// Files that appear under their final name only when they are complete.
#ifndef RASTREL_FORMATS_OUTPUT_FILE_H
#define RASTREL_FORMATS_OUTPUT_FILE_H

#include <string>

#include "formats/part_files.h"

namespace rastrel::formats {

// An empty file beside `finalPath`. It is renamed to it by Commit, or removed at the end of this object's
// life, when the process is interrupted, or, where that could not be, by the next one that writes there.
class OutputFile {
 public:
  // Throws PageError when it cannot be made, or when `finalPath` is there and is no regular file.
  explicit OutputFile(const std::string& finalPath);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  const std::string& path() const { return path_; }
  const std::string& finalPath() const { return finalPath_; }
  // Throws PageError when a file is there that is to be kept.
  void SetRules(OutputRules rules);
  // Throws PageError when the file cannot take its name.
  void Commit();

 private:
  void GiveUp() noexcept;

  std::string finalPath_;
  OutputRules rules_;
  std::string path_;
  int part_ = -1;
  int slot_ = -1;  // among the files that an interruption removes
};

// Removes all files under way. For handlers of signals, as nothing can be written to them any more.
void RemoveUnfinishedFiles();

}  // namespace rastrel::formats

#endif
