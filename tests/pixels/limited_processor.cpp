// Linked to a program of operations it has them use the versions of kernels for the processor whose number
// RASTREL_TEST_PROCESSOR says.
#include <cstdlib>

#include "pixels/kernels.h"

namespace {

[[maybe_unused]] const bool isLimited = [] {
  const char* number = std::getenv("RASTREL_TEST_PROCESSOR");
  if (number != nullptr) rastrel::LimitProcessor(static_cast<rastrel::Processor>(number[0] - '0'));
  return number != nullptr;
}();

}  // namespace
