// Page files of one format: looked at, read within limits as pages and as they are, moved, and written again
// with what they tell of themselves.
#include <rastrel_pages.h>

#include <algorithm>
#include <cstring>

#include "fuzz/target.h"
#include "platform/host/fault_injection.h"

namespace rastrel::fuzz {
namespace {

constexpr const char* kFormats[] = {"tif", "png", "jpg", "bmp", "pbm", "pdf"};

int64_t RASTREL_CALL ReadSome(void* context, uint64_t position, void* bytes, size_t count) {
  const InputBytes& file = *static_cast<const InputBytes*>(context);
  if (position >= file.size()) return 0;
  const size_t got = std::min<size_t>(count, file.size() - static_cast<size_t>(position));
  std::memcpy(bytes, file.data() + position, got);
  return static_cast<int64_t>(got);
}
int64_t RASTREL_CALL LengthOf(void* context) {
  return static_cast<int64_t>(static_cast<const InputBytes*>(context)->size());
}

// Netpbm's formats are several.
bool IsOf(const PageFile* file, const char* format) {
  const char* found = FormatOfPages(file);
  return std::strcmp(found, format) == 0 ||
         (std::strcmp(format, "pbm") == 0 && found[0] == 'p' && found[2] == 'm');
}

void Finish(PageWriter* writer) {
  size_t size = 0;
  FreePageBytes(FinishPagesInMemory(writer, &size));
}

// To the format that it came from, or one that keeps most.
void WriteAgain(HGLOBAL page, const PageMetadata* metadata, const char* format) {
  PageFormat entry = {};
  entry.size = sizeof(entry);
  GetPageFormat(FindPageFormat(format), &entry);
  if (entry.isWritten == 0) format = "tif";
  PageWriter* writer = CreatePagesInMemory(format, nullptr);
  if (writer == nullptr) return;
  if (AppendPage(writer, page, metadata) == 0) return AbandonPages(writer);
  if (entry.hasManyPages != 0) {
    if (EncodedPage* encoded = EncodePage(page, metadata, format, nullptr); encoded != nullptr) {
      AppendEncodedPage(writer, encoded);
      FreeEncodedPage(encoded);
    }
  }
  Finish(writer);
}

void CopyAll(const PageMetadata* metadata) {
  PageMetadata* copy = NewPageMetadata();
  for (int32_t i = 0;; ++i) {
    const char* name = PageMetadataName(metadata, i);
    if (name == nullptr) break;
    size_t size = 0;
    const void* item = GetPageMetadataItem(metadata, name, &size);
    Expect(SetPageMetadataItem(copy, name, item != nullptr ? item : "", size) == 1, "items can be copied");
  }
  FreePageMetadata(copy);
}

void ReadRaw(const PageFile* file, int32_t page, const char* format) {
  PageMetadata* metadata = nullptr;
  RawPage* raw = ReadRawPage(file, page, &metadata);
  if (raw == nullptr) return;
  RawPageInfo info = {};
  info.size = sizeof(info);
  DescribeRawPage(raw, &info);
  FreeRawPage(FlipRawPage(raw, page & 1));
  FreeRawPage(CropRawPage(raw, 1, 1, 0, info.height / 2));
  RawPage* tiles[16] = {};
  const int32_t count = SplitRawPage(raw, 1 + info.width / 3, 0, tiles, 16);
  for (int32_t i = 0; i < std::min(count, 16); ++i) FreeRawPage(tiles[i]);
  if (RawPage* turned = TurnRawPage(raw, 1 + page); turned != nullptr) {
    if (PageWriter* writer = CreatePagesInMemory(format, nullptr); writer != nullptr) {
      if (AppendRawPage(writer, turned, metadata) == 0) {
        AbandonPages(writer);
      } else {
        Finish(writer);
      }
    }
    FreeEncodedPage(EncodeRawPage(turned, metadata, "tif", nullptr));
    FreeRawPage(turned);
  }
  FreePageMetadata(metadata);
  FreeRawPage(raw);
}

void ReadPage(const PageFile* file, int32_t index, const char* format) {
  PageInfo told = {}, found = {};
  told.size = found.size = sizeof(PageInfo);
  const bool isTold = DescribePageInFile(file, index, &told) != 0;
  PageMetadata* metadata = nullptr;
  if (HGLOBAL page = ::ReadPage(file, index, &metadata); page != nullptr) {
    Expect(DescribePage(page, &found) == 1, "what is read is a page");
    Expect(!isTold || (found.width == told.width && found.height == told.height && found.bits == told.bits),
           "a page is as its file told");
    CopyAll(metadata);
    WriteAgain(page, metadata, format);
    FreePageMetadata(metadata);
    GlobalFree(page);
  }
  ReadRaw(file, index, format);
}

}  // namespace

template <size_t Format>
void ReadPages(InputBytes bytes) {
  const char* format = kFormats[Format];
  const size_t blocks = host::LiveBlocks();
  PageStream stream = {};
  stream.size = sizeof(stream);
  stream.context = &bytes;
  stream.read = ReadSome;
  stream.length = LengthOf;
  const bool isStream = bytes.size() % 2 == 1;
  PageFile* file = isStream ? OpenPagesFromStream(&stream) : OpenPagesInMemory(bytes.data(), bytes.size());
  if (file != nullptr && IsOf(file, format)) {
    PageReadOptions limits = {};
    limits.size = sizeof(limits);
    limits.dpi = 10;
    limits.mostPixels = 1 << 18;
    limits.mostBytes = 1 << 24;
    limits.mostSeconds = 1;
    Expect(SetPageReadOptions(file, &limits) == 1, "limits can be set");
    const int32_t most = std::min(CountPages(file), 3);
    for (int32_t i = 0; i < most; ++i) ReadPage(file, i, format);
    DamageOfPages(file);
  }
  ClosePages(file);
  Expect(host::LiveBlocks() == blocks, "nothing is lost");
  Expect(PagesError() != ErrInternal, "there is no fault of ours");
}

template void ReadPages<0>(InputBytes bytes);
template void ReadPages<1>(InputBytes bytes);
template void ReadPages<2>(InputBytes bytes);
template void ReadPages<3>(InputBytes bytes);
template void ReadPages<4>(InputBytes bytes);
template void ReadPages<5>(InputBytes bytes);

}  // namespace rastrel::fuzz
