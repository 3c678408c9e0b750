#include "pages/planes.h"

#include <rastrel.h>

#include <new>

namespace rastrel::pages {

PlaneBlock::PlaneBlock(size_t bytes, PlaneContent content) {
  if (bytes == 0) return;
  block_ = GlobalAlloc(GMEM_MOVEABLE | (content == PlaneContent::kZeroed ? GMEM_ZEROINIT : 0u), bytes);
  data_ = block_ == nullptr ? nullptr : GlobalLock(block_);
  if (data_ != nullptr) return;
  if (block_ != nullptr) GlobalFree(block_);
  throw std::bad_alloc();
}

PlaneBlock::~PlaneBlock() {
  if (block_ == nullptr) return;
  GlobalUnlock(block_);
  GlobalFree(block_);
}

}  // namespace rastrel::pages
