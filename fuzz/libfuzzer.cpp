// The targets under libFuzzer: the environment's RASTREL_FUZZ_TARGET says which. scripts/fuzz.sh runs them.
#include "fuzz/target.h"

namespace {

const rastrel::fuzz::Target* target;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*words*/) {
  const char* name = std::getenv("RASTREL_FUZZ_TARGET");
  target = rastrel::fuzz::FindTarget(name != nullptr ? name : "");
  rastrel::fuzz::Expect(target != nullptr, "RASTREL_FUZZ_TARGET names a target");
  ::setenv("PATH", "/nonexistent", 1);  // no other programs
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  target->Run({bytes, size});
  return 0;
}
