// Thread-local slots, and the loader's calls of the library's entry point.
#include <pthread.h>

#include <atomic>

#include "platform/host/system.h"

namespace {

constexpr DWORD kSlots = 8;

// The use that a slot is in, counted over the whole process; 0 while it is free. A thread's value of an
// earlier use of the slot is no value.
constinit std::atomic<uint64_t> slotUse[kSlots] = {};
constinit std::atomic<uint64_t> uses{0};

struct SlotValue {
  uint64_t use;
  void* value;
};
thread_local SlotValue threadValues[kSlots];

// Reports the end of a thread that has set a slot. The values outlive it.
struct ThreadEnd {
  bool armed = false;
  ~ThreadEnd() {
    if (armed) DllMain(nullptr, DLL_THREAD_DETACH, nullptr);
  }
};
thread_local ThreadEnd threadEnd;

// Stands in for the loader, which attaches the library when it is loaded and detaches it at the end.
struct Loader {
  Loader() { DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr); }
  ~Loader() { DllMain(nullptr, DLL_PROCESS_DETACH, nullptr); }
};
const Loader loader;

}  // namespace

DWORD TlsAlloc() {
  for (DWORD slot = 0; slot < kSlots; ++slot) {
    uint64_t free = 0;
    if (slotUse[slot].compare_exchange_strong(free, uses.fetch_add(1) + 1)) return slot;
  }
  return TLS_OUT_OF_INDEXES;
}

LPVOID TlsGetValue(DWORD slot) {
  if (slot >= kSlots || slotUse[slot].load(std::memory_order_acquire) != threadValues[slot].use)
    return nullptr;
  return threadValues[slot].value;
}

BOOL TlsSetValue(DWORD slot, LPVOID value) {
  const uint64_t use = slot < kSlots ? slotUse[slot].load(std::memory_order_acquire) : 0;
  if (use == 0) return FALSE;
  threadValues[slot] = {use, value};
  if (value != nullptr) threadEnd.armed = true;
  return TRUE;
}

BOOL TlsFree(DWORD slot) { return slot < kSlots && slotUse[slot].exchange(0) != 0 ? TRUE : FALSE; }

void ExitThread(DWORD exitCode) { pthread_exit(reinterpret_cast<void*>(uintptr_t{exitCode})); }
