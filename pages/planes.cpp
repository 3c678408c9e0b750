#include "pages/planes.h"

#include <rastrel.h>

#include <array>
#include <cstring>
#include <new>

namespace rastrel::pages {
namespace {

using Memory = PlaneBlock::Memory;

void Free(const Memory& memory) {
  GlobalUnlock(memory.block);
  GlobalFree(memory.block);
}

// What a thread keeps. Free places have no block.
class Keeper {
 public:
  bool isOpen = false;

  // A block that is large enough and not much larger, or none.
  Memory Take(size_t bytes) {
    for (Memory& memory : kept_) {
      if (memory.block != nullptr && memory.size >= bytes && memory.size - bytes <= bytes / kSpareShare)
        return std::exchange(memory, {});
    }
    return {};
  }
  // Whether there was room for it.
  bool Keep(const Memory& memory) {
    if (!isOpen || memory.size < kLeastBytes) return false;
    for (Memory& place : kept_) {
      if (place.block != nullptr) continue;
      place = memory;
      return true;
    }
    return false;
  }
  void Close() {
    isOpen = false;
    for (Memory& memory : kept_) {
      if (memory.block != nullptr) Free(std::exchange(memory, {}));
    }
  }

 private:
  static constexpr size_t kLeastBytes = size_t{1} << 16;  // smaller ones cost next to nothing
  static constexpr size_t kSpareShare = 4;
  std::array<Memory, 8> kept_;
};

thread_local constinit Keeper keeper;

}  // namespace

PlaneBlock::PlaneBlock(size_t bytes, PlaneContent content) {
  if (bytes == 0) return;
  memory_ = keeper.Take(bytes);
  if (memory_.block != nullptr) {
    if (content == PlaneContent::kZeroed) std::memset(memory_.data, 0, bytes);
    return;
  }
  void* const block =
      GlobalAlloc(GMEM_MOVEABLE | (content == PlaneContent::kZeroed ? GMEM_ZEROINIT : 0u), bytes);
  void* const data = block == nullptr ? nullptr : GlobalLock(block);
  if (data == nullptr) {
    if (block != nullptr) GlobalFree(block);
    throw std::bad_alloc();
  }
  memory_ = {block, data, bytes};
}

PlaneBlock::~PlaneBlock() {
  if (memory_.block != nullptr && !keeper.Keep(memory_)) Free(memory_);
}

KeptPlanes::KeptPlanes() : isFirst_(!keeper.isOpen) { keeper.isOpen = true; }

KeptPlanes::~KeptPlanes() {
  if (isFirst_) keeper.Close();
}

}  // namespace rastrel::pages
