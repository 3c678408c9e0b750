#include "formats/files.h"

#include <unistd.h>

namespace rastrel::formats {

void RemoveFile(const std::atomic<const char*>& name) {
  if (const char* path = name.load()) ::unlink(path);
}

}  // namespace rastrel::formats
