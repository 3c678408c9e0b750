// What readers of files ask the system for beside bytes: libraries, programs, places for a while.
#ifndef RASTREL_FORMATS_SYSTEM_H
#define RASTREL_FORMATS_SYSTEM_H

#include <memory>
#include <string>
#include <vector>

#include "formats/bytes.h"

namespace rastrel::formats {

// A function of a shared library, which stays loaded. Null where there is none, with the reason in `why`.
void* FindFunction(const char* library, const char* function, std::string* why);

// Bytes in memory, and in a file without a name once they are more than a few.
std::unique_ptr<Bytes> TemporaryBytes();

// Runs a program (its name and arguments) that reads `input` as a file that is called kInputName, and returns
// what it prints. Throws PageError: ErrUnsupported where it is not installed, and where it fails, prints more
// than `mostBytes` or takes longer than some minutes.
inline constexpr const char* kInputName = "/dev/stdin";
std::vector<uint8_t> RunProgram(const std::vector<std::string>& words, Bytes* input, uint64_t mostBytes);

}  // namespace rastrel::formats

#endif
