// LoadDIBFromFile, and what makes a page of the block that it gives.
#include "fuzz/target.h"

namespace rastrel::fuzz {

void LoadDib(InputBytes bytes) {
  const MemoryFile file(bytes);
  HGLOBAL block = LoadDIBFromFile(file.name);
  if (block == nullptr) return;
  for (const auto make : {DuplicateDIB, ExpandCompressedDIB, Convert8to24, FlipDIBVertical}) {
    if (HGLOBAL made = make(block); made != nullptr) GlobalFree(made);
  }
  GlobalFree(block);
}

}  // namespace rastrel::fuzz
