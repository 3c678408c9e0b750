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
// what it prints. Throws PageError: ErrUnsupported where it is not installed or takes too long, and where it
// fails or prints more than it may. `said`, where it is wanted, is the beginning of what it says of errors.
struct ProgramLimits {
  uint64_t bytes;  // that it prints
  double seconds = 300;
};
inline constexpr const char* kInputName = "/dev/stdin";
std::vector<uint8_t> RunProgram(const std::vector<std::string>& words, Bytes* input, ProgramLimits limits,
                                std::string* said = nullptr);

}  // namespace rastrel::formats

#endif
