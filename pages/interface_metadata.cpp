// Metadata for callers of the C interface.
#include "pages/interface.h"
#include "pages/metadata.h"

using namespace rastrel::pages;

PageMetadata* RASTREL_CALL NewPageMetadata(void) {
  return Guarded<PageMetadata*>(nullptr, [] { return new PageMetadata; });
}

void RASTREL_CALL FreePageMetadata(PageMetadata* metadata) { delete metadata; }

int RASTREL_CALL SetPageMetadataItem(PageMetadata* metadata, const char* name, const void* bytes,
                                     size_t size) {
  return Guarded(0, [&] {
    Require(metadata != nullptr && name != nullptr && name[0] != '\0', "there is no such metadata");
    if (bytes == nullptr) {
      metadata->metadata.Remove(name);
    } else {
      metadata->metadata.Set(name, {static_cast<const uint8_t*>(bytes), size});
    }
    return 1;
  });
}

const void* RASTREL_CALL GetPageMetadataItem(const PageMetadata* metadata, const char* name, size_t* size) {
  return Guarded<const void*>(nullptr, [&]() -> const void* {
    Require(metadata != nullptr && name != nullptr && size != nullptr, "there is no such metadata");
    const Metadata::Item* item = metadata->metadata.Find(name);
    if (item == nullptr) return nullptr;
    *size = item->bytes.size();
    static constexpr uint8_t kNothing = 0;  // an item of no bytes is one all the same
    return item->bytes.empty() ? &kNothing : item->bytes.data();
  });
}

const char* RASTREL_CALL PageMetadataName(const PageMetadata* metadata, int32_t index) {
  if (metadata == nullptr || index < 0) return nullptr;
  const std::vector<Metadata::Item>& items = metadata->metadata.items();
  return static_cast<size_t>(index) < items.size() ? items[static_cast<size_t>(index)].name.c_str() : nullptr;
}
