// Bitmap files: an optional file header, a bitmap header of 40 or 12 bytes, the colour table and the rows.
#include <algorithm>
#include <array>
#include <cstring>

#include "formats/format.h"
#include "pages/text.h"

namespace rastrel::formats {
namespace {

using namespace std::string_view_literals;
constexpr std::string_view kSignatures[] = {"BM"sv, "\x28\0\0\0"sv,
                                            "\x0C\0\0\0"sv};  // the last two: no file header

constexpr size_t kFileHeaderBytes = 14;
constexpr size_t kMostHeaderBytes = kFileHeaderBytes + sizeof(BITMAPINFOHEADER);

template <class Field>
Field FieldAt(const uint8_t* bytes) {
  Field field;
  std::memcpy(&field, bytes, sizeof(field));
  return field;
}

// What the headers say.
struct Head {
  BITMAPINFOHEADER info = {};
  uint64_t colours = 0, entryBytes = 4;
  uint64_t tableAt = 0, rowsAt = 0, rowBytes = 0;  // in the file

  bool isRunLength() const { return info.biCompression != BI_RGB; }
};

// Reads the headers and throws unless the file can hold the rows that they promise. A file made up to claim
// gigabytes is refused here, before anything is allocated for it.
Head ReadHead(Bytes* file) {
  std::array<uint8_t, kMostHeaderBytes> bytes{};
  const size_t got = file->ReadAt(0, bytes);
  const bool hasFileHeader = bytes[0] == 'B' && bytes[1] == 'M';
  const size_t start = hasFileHeader ? kFileHeaderBytes : 0;
  if (got < start + sizeof(BITMAPINFOHEADER)) Damaged("its headers are cut short");
  const uint8_t* at = bytes.data() + start;
  const auto headerBytes = FieldAt<uint32_t>(at);
  Head head;
  BITMAPINFOHEADER& info = head.info;
  if (headerBytes == sizeof(BITMAPCOREHEADER)) {
    const auto core = FieldAt<BITMAPCOREHEADER>(at);
    info.biWidth = core.bcWidth;
    info.biHeight = core.bcHeight;
    info.biBitCount = core.bcBitCount;
    head.entryBytes = 3;
  } else if (headerBytes == sizeof(BITMAPINFOHEADER)) {
    info = FieldAt<BITMAPINFOHEADER>(at);
  } else {
    throw PageError(Text("has a bitmap header of ", headerBytes, " bytes; 40 and 12 are known"),
                    ErrUnsupported);
  }
  const auto unsupported = [](const std::string& text) { throw PageError(text, ErrUnsupported); };
  const unsigned bits = info.biBitCount;
  const bool isRunLength =
      (info.biCompression == BI_RLE8 && bits == 8) || (info.biCompression == BI_RLE4 && bits == 4);
  if (info.biCompression != BI_RGB && !isRunLength) {
    unsupported(Text("is a bitmap of ", bits, " bits with compression ", info.biCompression,
                     ", which is not supported"));
  }
  if (info.biHeight < 0) unsupported("is a top-down bitmap, which is not supported");
  if (bits != 1 && bits != 4 && bits != 8 && bits != 24) {
    unsupported(Text("has ", bits, " bits a pixel; 1, 4, 8 and 24 are known"));
  }
  if (info.biWidth < 1 || info.biHeight < 1) {
    throw PageError(Text("has a size of ", info.biWidth, " x ", info.biHeight, " pixels"), ErrDamagedFile);
  }
  const uint64_t fileBytes = file->size();
  const uint64_t claimed = info.biSizeImage;
  head.colours = info.biClrUsed == 0 && bits <= 8 ? uint64_t{1} << bits : info.biClrUsed;
  head.tableAt = start + headerBytes;
  const uint64_t offset = hasFileHeader ? FieldAt<uint32_t>(bytes.data() + 10) : 0;
  head.rowsAt = offset != 0 ? offset : head.tableAt + head.colours * head.entryBytes;
  head.rowBytes = isRunLength
                      ? claimed
                      : StrideOf(info.biWidth, static_cast<int>(bits)) * static_cast<uint64_t>(info.biHeight);
  if (head.rowsAt + head.rowBytes > fileBytes || claimed > fileBytes) Damaged("its rows are cut short");
  // Two bytes stand for 255 pixels, and now and then for a jump.
  constexpr uint64_t kMostPixelsPerByte = 1024;
  const uint64_t pixels = static_cast<uint64_t>(info.biWidth) * static_cast<uint64_t>(info.biHeight);
  if (isRunLength && pixels / kMostPixelsPerByte > claimed)
    CannotHold(fileBytes, info.biWidth, info.biHeight);
  info.biSize = sizeof(info);
  return head;
}

// Entries that the file lacks are white.
void ReadTable(Bytes* file, const Head& head, std::span<RGBQUAD> table) {
  for (RGBQUAD& entry : table) entry = {255, 255, 255, 0};
  const size_t entries = std::min<size_t>(table.size(), static_cast<size_t>(head.colours));
  std::vector<uint8_t> bytes(entries * head.entryBytes);
  const size_t got = file->ReadAt(head.tableAt, bytes);
  std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(got), bytes.end(), uint8_t{0});
  for (size_t i = 0; i < entries; ++i) {
    const uint8_t* entry = &bytes[i * head.entryBytes];
    table[i] = {entry[0], entry[1], entry[2], 0};
  }
}

// The block that the core expands run-length rows from.
Dib ReadRunLength(Bytes* file, const Head& head) {
  const auto tableBytes = static_cast<size_t>(sizeof(RGBQUAD)) << head.info.biBitCount;
  const auto rowBytes = static_cast<size_t>(head.rowBytes);
  const Dib block(GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, sizeof(head.info) + tableBytes + rowBytes));
  auto* header = static_cast<BITMAPINFOHEADER*>(GlobalLock(block.handle()));
  if (header == nullptr) throw PageError("out of memory", ErrNoMemory);
  *header = head.info;
  header->biClrUsed = header->biClrImportant = 0;
  auto* bytes = reinterpret_cast<uint8_t*>(header + 1);
  ReadTable(file, head, {reinterpret_cast<RGBQUAD*>(bytes), tableBytes / sizeof(RGBQUAD)});
  const size_t got = file->ReadAt(head.rowsAt, {bytes + tableBytes, rowBytes});
  GlobalUnlock(block.handle());
  if (got < rowBytes) Damaged("its rows are cut short");
  return Checked(ExpandCompressedDIB(block.handle()));
}

Dib ReadPlain(Bytes* file, const Head& head) {
  Dib page = MakePage(head.info.biWidth, head.info.biHeight, head.info.biBitCount,
                      {head.info.biXPelsPerMeter, head.info.biYPelsPerMeter});
  const PageView view(page);
  ReadTable(file, head, view.palette());
  if (file->ReadAt(head.rowsAt, view.pixels()) < view.pixels().size()) Damaged("its rows are cut short");
  return page;
}

Dib Read(Bytes* file, uint64_t /*place*/, Metadata* /*metadata*/) {
  const Head head = ReadHead(file);
  CheckSize(head.info.biWidth, head.info.biHeight, head.info.biBitCount);
  return NormalisePage(head.isRunLength() ? ReadRunLength(file, head) : ReadPlain(file, head));
}

PageInfo Describe(Bytes* file, uint64_t /*place*/) {
  const Head head = ReadHead(file);
  return InfoFromHeader(head.info.biWidth, head.info.biHeight, head.info.biBitCount,
                        {head.info.biXPelsPerMeter, head.info.biYPelsPerMeter}, 1,
                        [&](const PageView& page) { ReadTable(file, head, page.palette()); });
}

void Write(const Dib& page, const Metadata& /*metadata*/, const Options& /*options*/, Bytes* file) {
  const PageView view(page);
  // Not the whole block: what lies behind the last row means nothing.
  const uint64_t blockBytes =
      sizeof(BITMAPINFOHEADER) + view.palette().size_bytes() + uint64_t{view.pixels().size()};
  constexpr uint64_t kMostBytes = 0xFFFFFFFF;  // the file's size has 32 bits
  if (blockBytes > kMostBytes - kFileHeaderBytes) {
    throw PageError("cannot be written: it is too large for a bitmap", ErrTooLarge);
  }
  const auto fileBytes = static_cast<uint32_t>(blockBytes + kFileHeaderBytes);
  const auto rowsAt =
      static_cast<uint32_t>(kFileHeaderBytes + sizeof(BITMAPINFOHEADER) + view.palette().size_bytes());
  std::array<uint8_t, kFileHeaderBytes> header = {'B', 'M'};
  std::memcpy(&header[2], &fileBytes, sizeof(fileBytes));
  std::memcpy(&header[10], &rowsAt, sizeof(rowsAt));
  const auto* block = reinterpret_cast<const uint8_t*>(&view.header());
  if (!file->WriteAt(0, header) ||
      !file->WriteAt(kFileHeaderBytes, {block, static_cast<size_t>(blockBytes)})) {
    NotWritten(file->problem());
  }
}

}  // namespace

constinit const Format kBmp = {.name = "bmp",
                               .title = "BMP",
                               .extensions = "bmp,dib",
                               .signatures = kSignatures,
                               .read = Read,
                               .describe = Describe,
                               .write = Write};

}  // namespace rastrel::formats
