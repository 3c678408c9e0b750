// Files that appear under their final name only when they are complete.
#ifndef RASTREL_FORMATS_OUTPUT_FILE_H
#define RASTREL_FORMATS_OUTPUT_FILE_H

#include <string>

namespace rastrel::formats {

// An empty file beside `finalPath`. It is renamed to it by Commit, or removed at the end of this object's
// life and when the process is interrupted.
class OutputFile {
 public:
  // Throws PageError when it cannot be made, or when `finalPath` is there and is no regular file.
  explicit OutputFile(const std::string& finalPath);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  const std::string& path() const { return path_; }
  const std::string& finalPath() const { return finalPath_; }
  // Throws PageError when the file cannot be renamed.
  void Commit();

 private:
  std::string finalPath_;
  std::string path_;
  int slot_ = -1;  // among the files that an interruption removes
};

// Removes all files under way. For handlers of signals, as nothing can be written to them any more.
void RemoveUnfinishedFiles();

}  // namespace rastrel::formats

#endif
