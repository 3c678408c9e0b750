// What the formats ask of the system beyond the standard library.
#ifndef RASTREL_FORMATS_FILES_H
#define RASTREL_FORMATS_FILES_H

#include <atomic>

namespace rastrel::formats {

// Removes a file, also one that another thread writes to. A null name is none. May be called by a handler of
// signals.
void RemoveFile(const std::atomic<const char*>& name);

}  // namespace rastrel::formats

#endif
