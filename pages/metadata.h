// What a file says of a page beside its pixels.
#ifndef RASTREL_PAGES_METADATA_H
#define RASTREL_PAGES_METADATA_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace rastrel::pages {

// Named runs of bytes, in the order in which they came.
class Metadata {
 public:
  struct Item {
    std::string name;
    std::vector<uint8_t> bytes;
  };

  // Null where there is none.
  const Item* Find(std::string_view name) const {
    for (const Item& item : items_) {
      if (item.name == name) return &item;
    }
    return nullptr;
  }
  void Set(std::string_view name, std::span<const uint8_t> bytes) {
    Remove(name);
    items_.push_back({std::string(name), {bytes.begin(), bytes.end()}});
  }
  // Items that are texts. An item that is not there is an empty one.
  void SetText(std::string_view name, std::string_view text) {
    Set(name, {reinterpret_cast<const uint8_t*>(text.data()), text.size()});
  }
  std::string TextOf(std::string_view name) const {
    const Item* item = Find(name);
    return item != nullptr ? std::string(item->bytes.begin(), item->bytes.end()) : std::string();
  }
  void Remove(std::string_view name) {
    std::erase_if(items_, [&](const Item& item) { return item.name == name; });
  }
  const std::vector<Item>& items() const { return items_; }

 private:
  std::vector<Item> items_;
};

}  // namespace rastrel::pages

struct PageMetadata {
  rastrel::pages::Metadata metadata;
};

#endif
