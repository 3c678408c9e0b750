// The table behind every handle of the host layer. A handle is a slot's index and generation, so that
// made-up, freed, and freed and used again handles are told from live ones. Looking a handle up takes no
// mutex; making and freeing one does.
#ifndef RASTREL_PLATFORM_HOST_HANDLE_TABLE_H
#define RASTREL_PLATFORM_HOST_HANDLE_TABLE_H

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace rastrel::host {

enum class HandleKind : uint8_t { kNone, kMemory, kWindow, kBitmap, kPalette, kContext };

struct HandleSlot {
  // Generation in the high 32 bits, then the kind in bits 8 to 15 and the lock count in bits 0 to 7.
  std::atomic<uint64_t> state{0};
  void* data = nullptr;  // the kind's own object
  size_t size = 0;       // a memory block's rounded size
  uint32_t nextFree = 0;
};

constexpr unsigned kMaxLockCount = 255;

// Makes a handle for `data`, or returns null when the table is full.
void* MakeHandle(HandleKind kind, void* data, size_t size);

// Returns the slot of a live handle of that kind, else null.
HandleSlot* FindHandle(const void* handle, HandleKind kind);

// Makes the handle a dead one. Returns whether it was a live one of that kind; then `*data` is its object.
bool ReleaseHandle(void* handle, HandleKind kind, void** data);

// Changes the lock count of a live handle by one, within 0 to kMaxLockCount. Returns the slot, null for a
// dead handle;
// `*before` is the count before.
HandleSlot* ChangeLockCount(const void* handle, HandleKind kind, int change, unsigned* before);

// The number of live handles of that kind.
size_t CountHandles(HandleKind kind);

}  // namespace rastrel::host

#endif
