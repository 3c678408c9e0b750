#include "formats/tiff_metadata.h"

#include <cstdio>
#include <string>

#include "formats/format.h"
#include "formats/tiff_directory.h"
#include "pages/text.h"

namespace rastrel::formats {

void ReadMetadata(TIFF* file, Metadata* metadata) {
  uint32_t count = 0;
  const uint8_t* bytes = nullptr;
  for (const auto& [tag, item] : kTiffBlocks) {
    if (TIFFGetField(file, tag, &count, &bytes) != 0 && bytes != nullptr) metadata->Set(item, {bytes, count});
  }
  for (const auto& [tag, item, isInExif] : kTiffTexts) {
    const char* text = nullptr;
    if (TIFFGetField(file, tag, &text) != 0 && text != nullptr && text[0] != '\0')
      metadata->SetText(item, text);
  }
  uint16_t page = 0, pages = 0;
  if (TIFFGetField(file, TIFFTAG_PAGENUMBER, &page, &pages) != 0)
    metadata->SetText("page-number", Text(page, "/", pages));
}

bool WriteMetadata(TIFF* file, const Metadata& metadata) {
  bool isWritten = true;
  const auto set = [&](auto... arguments) { isWritten = TIFFSetField(file, arguments...) != 0 && isWritten; };
  for (const auto& [tag, item] : kTiffBlocks) {
    const Metadata::Item* block = metadata.Find(item);
    if (block != nullptr && !block->bytes.empty())
      set(uint32_t{tag}, static_cast<uint32_t>(block->bytes.size()), block->bytes.data());
  }
  for (const auto& [tag, item, isInExif] : kTiffTexts) {
    if (metadata.Find(item) != nullptr) set(uint32_t{tag}, metadata.TextOf(item).c_str());
  }
  unsigned page = 0, pages = 0;
  if (std::sscanf(metadata.TextOf("page-number").c_str(), "%5u/%5u", &page, &pages) == 2)
    set(uint32_t{TIFFTAG_PAGENUMBER}, static_cast<int>(page), static_cast<int>(pages));
  return isWritten;
}

}  // namespace rastrel::formats
