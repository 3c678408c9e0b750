// Memory blocks behind handles, and the process heap.
#include <cstdlib>
#include <cstring>

#include "platform/host/fault_injection.h"
#include "platform/host/handle_table.h"
#include "platform/host/huge_pages.h"
#include "platform/host/system.h"

using rastrel::host::ChangeLockCount;
using rastrel::host::Fault;
using rastrel::host::FindHandle;
using rastrel::host::HandleKind;
using rastrel::host::HandleSlot;
using rastrel::host::MakeHandle;
using rastrel::host::PreferHugePages;
using rastrel::host::ReleaseHandle;
using rastrel::host::ShouldFail;

namespace {

constexpr size_t kGranularity = 8;

// False when the rounded size does not fit.
bool RoundUp(size_t bytes, size_t* rounded) {
  *rounded = (bytes + kGranularity - 1) / kGranularity * kGranularity;
  return *rounded >= bytes;
}

}  // namespace

HGLOBAL GlobalAlloc(unsigned flags, size_t bytes) {
  size_t size = 0;
  if (ShouldFail(Fault::kAllocation) || !RoundUp(bytes, &size)) return nullptr;
  void* memory = nullptr;  // a block of size 0 has none
  if (size != 0) {
    memory = (flags & GMEM_ZEROINIT) != 0 ? std::calloc(1, size) : std::malloc(size);
    if (memory == nullptr) return nullptr;
    PreferHugePages(memory, size);
  }
  HGLOBAL block = MakeHandle(HandleKind::kMemory, memory, size);
  if (block == nullptr) std::free(memory);
  return block;
}

void* GlobalLock(HGLOBAL block) {
  if (ShouldFail(Fault::kLock)) return nullptr;
  const HandleSlot* slot = FindHandle(block, HandleKind::kMemory);
  unsigned before = 0;
  // A block of size 0 has nothing to lock.
  if (slot == nullptr || slot->data == nullptr) return nullptr;
  return ChangeLockCount(block, HandleKind::kMemory, +1, &before) == nullptr ? nullptr : slot->data;
}

int GlobalUnlock(HGLOBAL block) {
  unsigned before = 0;
  if (ChangeLockCount(block, HandleKind::kMemory, -1, &before) == nullptr) return 0;
  return before > 1 ? 1 : 0;
}

HGLOBAL GlobalReAlloc(HGLOBAL block, size_t bytes, unsigned flags) {
  size_t size = 0;
  HandleSlot* slot = FindHandle(block, HandleKind::kMemory);
  if (slot == nullptr || ShouldFail(Fault::kAllocation) || !RoundUp(bytes, &size)) return nullptr;
  if (size == 0) {
    std::free(slot->data);
    slot->data = nullptr;
  } else {
    void* memory = std::realloc(slot->data, size);
    if (memory == nullptr) return nullptr;
    PreferHugePages(memory, size);
    if ((flags & GMEM_ZEROINIT) != 0 && size > slot->size) {
      std::memset(static_cast<uint8_t*>(memory) + slot->size, 0, size - slot->size);
    }
    slot->data = memory;
  }
  slot->size = size;
  return block;
}

size_t GlobalSize(HGLOBAL block) {
  const HandleSlot* slot = FindHandle(block, HandleKind::kMemory);
  return slot == nullptr ? 0 : slot->size;
}

unsigned GlobalFlags(HGLOBAL block) {
  const HandleSlot* slot = FindHandle(block, HandleKind::kMemory);
  if (slot == nullptr) return GMEM_INVALID_HANDLE;
  return static_cast<unsigned>(slot->state.load(std::memory_order_relaxed) & GMEM_LOCKCOUNT);
}

HGLOBAL GlobalFree(HGLOBAL block) {
  void* memory = nullptr;
  if (!ReleaseHandle(block, HandleKind::kMemory, &memory)) return block;
  std::free(memory);
  return nullptr;
}

size_t GlobalCompact(size_t bytes) { return bytes; }

HANDLE GetProcessHeap() {
  static char heap;
  return &heap;
}

LPVOID HeapAlloc(HANDLE /*heap*/, DWORD flags, size_t bytes) {
  if (ShouldFail(Fault::kAllocation)) return nullptr;
  return (flags & HEAP_ZERO_MEMORY) != 0 ? std::calloc(1, bytes) : std::malloc(bytes);
}

BOOL HeapFree(HANDLE /*heap*/, DWORD /*flags*/, LPVOID memory) {
  std::free(memory);
  return TRUE;
}
