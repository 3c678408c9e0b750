#include <algorithm>

#include "fuzz/target.h"

namespace rastrel::fuzz {
namespace {

constexpr size_t kSmall = 1 << 22;
constexpr Target kTargets[] = {
    {"tif", ReadPages<0>, 0},        {"png", ReadPages<1>, 0},           {"jpg", ReadPages<2>, 0},
    {"bmp", ReadPages<3>, 0},        {"pnm", ReadPages<4>, 0},           {"pdf", ReadPages<5>, 0},
    {"load_dib", LoadDib, kSmall},   {"core", CallCoreFunction, kSmall}, {"pages", CallPagesFunction, kSmall},
    {"clean", CleanAnyPage, kSmall},
};

size_t mostBytes = 0;
bool IsTooLarge(size_t bytes) { return mostBytes != 0 && bytes > mostBytes; }

}  // namespace

std::span<const Target> Targets() { return kTargets; }

const Target* FindTarget(std::string_view name) {
  const Target* found = std::ranges::find(kTargets, name, &Target::name);
  return found != std::end(kTargets) ? found : nullptr;
}

void Target::Run(InputBytes bytes) const {
  mostBytes = mostBlockBytes;
  run(bytes);
  mostBytes = 0;
}

}  // namespace rastrel::fuzz

// The linker puts these between blocks and their memory (see CMakeLists.txt).
extern "C" {
void* __real_malloc(size_t bytes);
void* __real_calloc(size_t count, size_t bytes);
void* __real_realloc(void* memory, size_t bytes);
void* __wrap_malloc(size_t bytes) {
  return rastrel::fuzz::IsTooLarge(bytes) ? nullptr : __real_malloc(bytes);
}
void* __wrap_calloc(size_t count, size_t bytes) {
  return rastrel::fuzz::IsTooLarge(count * bytes) ? nullptr : __real_calloc(count, bytes);
}
void* __wrap_realloc(void* memory, size_t bytes) {
  return rastrel::fuzz::IsTooLarge(bytes) ? nullptr : __real_realloc(memory, bytes);
}
}
