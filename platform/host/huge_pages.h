// Huge pages for large memory. The first touch of fresh memory costs a third then, and it costs more than
// most operations do.
#ifndef RASTREL_PLATFORM_HOST_HUGE_PAGES_H
#define RASTREL_PLATFORM_HOST_HUGE_PAGES_H

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>

namespace rastrel::host {

// Asks for them wherever they fit. A hint: nothing depends on the answer.
inline void PreferHugePages(void* memory, size_t size) {
#ifdef MADV_HUGEPAGE
  constexpr uintptr_t kHugePage = uintptr_t{2} << 20;
  const auto begin = (reinterpret_cast<uintptr_t>(memory) + kHugePage - 1) & ~(kHugePage - 1);
  const auto end = (reinterpret_cast<uintptr_t>(memory) + size) & ~(kHugePage - 1);
  if (size >= 2 * kHugePage && begin < end) {
    madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
  }
#endif
}

}  // namespace rastrel::host

#endif
