#include "pages/planes.h"

#include <rastrel.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <utility>

namespace rastrel::pages {
namespace {

using Memory = PlaneBlock::Memory;

void Free(const Memory& memory) {
  GlobalUnlock(memory.block);
  GlobalFree(memory.block);
}

// What a thread keeps, until it ends. Free places have no block.
class Keeper {
 public:
  Keeper() = default;
  ~Keeper() {
    for (Memory& memory : kept_) Drop(&memory);
  }
  Keeper(const Keeper&) = delete;
  Keeper& operator=(const Keeper&) = delete;

  // A block that is large enough, but no more than twice as large, or none.
  Memory Take(size_t bytes) {
    for (Memory& memory : kept_) {
      if (memory.block == nullptr || memory.size < bytes || memory.size - bytes > bytes) continue;
      total_ -= memory.size;
      return std::exchange(memory, {});
    }
    return {};
  }
  // Whether it is kept. Others give way to it, in turn.
  bool Keep(const Memory& memory) {
    if (memory.size < kLeastBytes || memory.size > kMostBytes / 2) return false;
    while (total_ + memory.size > kMostBytes) DropNext();
    const auto isFree = [](const Memory& place) { return place.block == nullptr; };
    Memory* place = std::find_if(kept_.data(), kept_.data() + kPlaces, isFree);
    if (place == kept_.data() + kPlaces) place = DropNext();
    *place = memory;
    total_ += memory.size;
    return true;
  }

 private:
  static constexpr size_t kPlaces = 12;
  static constexpr size_t kLeastBytes = size_t{1} << 18;  // smaller ones cost little
  // The brightness of an A4 page at 300 dpi has 8.7 million, its ink an eighth of that.
  static constexpr size_t kMostBytes = size_t{24} << 20;

  void Drop(Memory* memory) {
    if (memory->block == nullptr) return;
    total_ -= memory->size;
    Free(std::exchange(*memory, {}));
  }
  Memory* DropNext() {
    Memory* const memory = &kept_[next_];
    next_ = (next_ + 1) % kPlaces;
    Drop(memory);
    return memory;
  }

  std::array<Memory, kPlaces> kept_;
  size_t next_ = 0;
  size_t total_ = 0;  // bytes
};

thread_local Keeper keeper;

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

}  // namespace rastrel::pages
