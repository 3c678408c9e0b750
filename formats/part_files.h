// Files under way, as the system has them: created for nobody else's eyes, locked while their maker lives,
// and put in place in one step.
#ifndef RASTREL_FORMATS_PART_FILES_H
#define RASTREL_FORMATS_PART_FILES_H

#include <string>

namespace rastrel::formats {

// What becomes of what is there, and what a file takes over from others.
struct OutputRules {
  bool keepsExisting = false;  // a file of that name is an error
  bool skipsSync = false;      // faster, but not safe against a loss of power
  bool keepsTime = false;      // of the source, or, without one, of the file that is replaced
  std::string source = {};     // what the file is made of; "" for nothing on the disk
  std::string path = {};       // another name in the same folder; "" for the one that it was begun with
};

// An empty file that only its owner can read. The system gives its lock up when the process ends, however it
// ends. Returns a descriptor. Throws PageError.
int CreatePart(const std::string& path);
void ClosePart(int part) noexcept;

// Removes a file that CreatePart made and whose maker is gone.
void RemoveIfAbandoned(const std::string& path) noexcept;

// Gives a complete file what it takes over from the one that it replaces: permissions, owner, group and,
// where asked for, time. One that replaces none is not shown to more people than its source. Then brings its
// bytes to the disk. Throws PageError.
void PreparePart(int part, const std::string& finalPath, const OutputRules& rules);

// Renames, in one step for whoever looks. Throws PageError with ErrExists where a file is there that is kept.
void PutInPlace(const std::string& path, const std::string& finalPath, const OutputRules& rules);

}  // namespace rastrel::formats

#endif
