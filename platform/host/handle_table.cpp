#include "platform/host/handle_table.h"

#include <mutex>
#include <new>

namespace rastrel::host {
namespace {

// The two low bits mark a handle; then the index, then the generation.
constexpr unsigned kTagBits = 2;
constexpr uintptr_t kTag = 2;
constexpr unsigned kIndexBits = sizeof(void*) == 8 ? 24 : 16;
constexpr unsigned kGenerationBits = sizeof(void*) == 8 ? 32 : 32 - kTagBits - kIndexBits;
constexpr unsigned kGenerationShift = sizeof(void*) == 8 ? 32 : kTagBits + kIndexBits;
constexpr uint32_t kIndexMask = (1u << kIndexBits) - 1;
constexpr uint32_t kGenerationMask = static_cast<uint32_t>((uint64_t{1} << kGenerationBits) - 1);

constexpr uint32_t kChunkSlots = 1024;
constexpr uint32_t kChunks = (1u << kIndexBits) / kChunkSlots;
// A freed slot waits until so many are free, so that a stale handle stays recognised for a long time.
constexpr uint32_t kMinFreeBeforeReuse = kChunkSlots;

constexpr uint64_t StateOf(uint32_t generation, HandleKind kind, unsigned locks) {
  return uint64_t{generation} << 32 | uint64_t{static_cast<uint8_t>(kind)} << 8 | locks;
}
constexpr uint32_t GenerationOf(uint64_t state) { return static_cast<uint32_t>(state >> 32); }
constexpr HandleKind KindOf(uint64_t state) { return static_cast<HandleKind>(state >> 8 & 0xFF); }
constexpr unsigned LocksOf(uint64_t state) { return static_cast<unsigned>(state & 0xFF); }

// Slots are never freed, so a pointer to one stays good.
struct Table {
  std::mutex mutex;  // guards all but the slots' states and the chunk pointers
  std::atomic<HandleSlot*> chunks[kChunks] = {};
  uint32_t used = 0;  // slots handed out at least once
  uint32_t freeCount = 0;
  uint32_t firstFree = 0;
  uint32_t lastFree = 0;
  std::atomic<size_t> live[256] = {};
};

constinit Table table;

HandleSlot* SlotAt(uint32_t index) {
  HandleSlot* chunk = table.chunks[index / kChunkSlots].load(std::memory_order_acquire);
  return chunk == nullptr ? nullptr : &chunk[index % kChunkSlots];
}

// Takes the slot that has been free the longest, or one never used. Returns false when there is none.
bool TakeSlot(uint32_t* index) {
  const bool canGrow = table.used <= kIndexMask;
  if (table.freeCount >= kMinFreeBeforeReuse || (!canGrow && table.freeCount > 0)) {
    *index = table.firstFree;
    table.firstFree = SlotAt(*index)->nextFree;
    --table.freeCount;
    return true;
  }
  if (!canGrow) return false;
  auto& chunk = table.chunks[table.used / kChunkSlots];
  if (chunk.load(std::memory_order_relaxed) == nullptr) {
    auto* slots = new (std::nothrow) HandleSlot[kChunkSlots];
    if (slots == nullptr) return false;
    chunk.store(slots, std::memory_order_release);
  }
  *index = table.used++;
  return true;
}

void PutBack(uint32_t index) {
  if (table.freeCount == 0) {
    table.firstFree = index;
  } else {
    SlotAt(table.lastFree)->nextFree = index;
  }
  table.lastFree = index;
  ++table.freeCount;
}

struct Parsed {
  HandleSlot* slot;  // null for what was never a handle
  uint32_t index;
  uint32_t generation;
};

Parsed Parse(const void* handle) {
  const auto value = reinterpret_cast<uintptr_t>(handle);
  const auto index = static_cast<uint32_t>(value >> kTagBits) & kIndexMask;
  const auto generation = static_cast<uint32_t>(value >> kGenerationShift) & kGenerationMask;
  // Bits between index and generation are 0 in every handle that was made.
  const uintptr_t rebuilt = uintptr_t{generation} << kGenerationShift | uintptr_t{index} << kTagBits | kTag;
  return {rebuilt == value ? SlotAt(index) : nullptr, index, generation};
}

}  // namespace

void* MakeHandle(HandleKind kind, void* data, size_t size) {
  const std::lock_guard lock(table.mutex);
  uint32_t index = 0;
  if (!TakeSlot(&index)) return nullptr;
  HandleSlot* slot = SlotAt(index);
  const uint32_t generation =
      (GenerationOf(slot->state.load(std::memory_order_relaxed)) + 1) & kGenerationMask;
  slot->data = data;
  slot->size = size;
  slot->state.store(StateOf(generation, kind, 0), std::memory_order_release);
  table.live[static_cast<uint8_t>(kind)].fetch_add(1, std::memory_order_relaxed);
  return reinterpret_cast<void*>(uintptr_t{generation} << kGenerationShift | uintptr_t{index} << kTagBits |
                                 kTag);
}

HandleSlot* FindHandle(const void* handle, HandleKind kind) {
  const Parsed parsed = Parse(handle);
  if (parsed.slot == nullptr) return nullptr;
  const uint64_t state = parsed.slot->state.load(std::memory_order_acquire);
  return KindOf(state) == kind && GenerationOf(state) == parsed.generation ? parsed.slot : nullptr;
}

HandleSlot* ChangeLockCount(const void* handle, HandleKind kind, int change, unsigned* before) {
  const Parsed parsed = Parse(handle);
  if (parsed.slot == nullptr) return nullptr;
  uint64_t state = parsed.slot->state.load(std::memory_order_acquire);
  for (;;) {
    if (KindOf(state) != kind || GenerationOf(state) != parsed.generation) return nullptr;
    *before = LocksOf(state);
    if (*before == (change > 0 ? kMaxLockCount : 0)) return parsed.slot;
    const uint64_t changed = change > 0 ? state + 1 : state - 1;
    if (parsed.slot->state.compare_exchange_weak(state, changed, std::memory_order_acq_rel))
      return parsed.slot;
  }
}

bool ReleaseHandle(void* handle, HandleKind kind, void** data) {
  const Parsed parsed = Parse(handle);
  if (parsed.slot == nullptr) return false;
  uint64_t state = parsed.slot->state.load(std::memory_order_acquire);
  do {
    if (KindOf(state) != kind || GenerationOf(state) != parsed.generation) return false;
  } while (!parsed.slot->state.compare_exchange_weak(state, StateOf(parsed.generation, HandleKind::kNone, 0),
                                                     std::memory_order_acq_rel));
  table.live[static_cast<uint8_t>(kind)].fetch_sub(1, std::memory_order_relaxed);
  const std::lock_guard lock(table.mutex);
  *data = parsed.slot->data;
  PutBack(parsed.index);
  return true;
}

size_t CountHandles(HandleKind kind) {
  return table.live[static_cast<uint8_t>(kind)].load(std::memory_order_relaxed);
}

}  // namespace rastrel::host
