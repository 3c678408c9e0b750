// Bitmap files: an optional file header, a bitmap header of one of many sizes, the colour table and the rows.
#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "formats/format.h"
#include "pages/text.h"

namespace rastrel::formats {
namespace {

using namespace std::string_view_literals;
constexpr std::string_view kSignatures[] = {"BM"sv, "\x28\0\0\0"sv,
                                            "\x0C\0\0\0"sv};  // the last two: no file header

constexpr size_t kFileHeaderBytes = 14;
// Of all kinds of bitmap headers, the largest; the fields that the later ones add at the end of
// BITMAPINFOHEADER.
constexpr size_t kMostHeaderBytes = 124;
constexpr size_t kMasksAt = 40, kProfileAt = 112, kColourSpaceAt = 56;
constexpr uint32_t kOs2HeaderBytes = 64;
constexpr uint32_t kHeaderBytes[] = {12, 40, 52, 56, kOs2HeaderBytes, 108, kMostHeaderBytes};
constexpr uint32_t kBitFields = 3, kAlphaBitFields = 6;  // compressions
constexpr uint32_t kEmbeddedProfile = 0x4D424544;        // "MBED"

template <class Field>
Field FieldAt(const uint8_t* bytes) {
  Field field;
  std::memcpy(&field, bytes, sizeof(field));
  return field;
}

// Where a colour's bits are in a pixel of 16 or 32 bits.
struct Channel {
  uint32_t mask = 0;

  // From 0 to 255; `otherwise` where the pixel has no such bits.
  uint32_t Of(uint32_t pixel, uint32_t otherwise) const {
    if (mask == 0) return otherwise;
    const int shift = std::countr_zero(mask);
    const uint64_t most = mask >> shift;
    return static_cast<uint32_t>((uint64_t{(pixel & mask) >> shift} * 255 + most / 2) / most);
  }
};

// What the headers say.
struct Head {
  BITMAPINFOHEADER info = {};
  bool isTopDown = false;
  Channel red, green, blue, alpha;  // of 16 and 32 bits
  uint64_t colours = 0, entryBytes = 4;
  uint64_t tableAt = 0, rowsAt = 0, rowBytes = 0;  // in the file
  uint64_t profileAt = 0, profileBytes = 0;

  int bits() const { return info.biBitCount; }
  bool isRunLength() const { return info.biCompression == BI_RLE8 || info.biCompression == BI_RLE4; }
  // Of the page that is made of it.
  int pageBits() const { return bits() == 2 ? 4 : bits() > 8 ? 24 : bits(); }
};

void ReadMasks(const uint8_t* header, uint32_t headerBytes, Head* head) {
  const bool isTold = head->info.biCompression != BI_RGB;
  const bool isWide = head->bits() == 32;
  const auto mask = [&](int i) {
    return FieldAt<uint32_t>(header + kMasksAt + size_t{4} * static_cast<size_t>(i));
  };
  head->red.mask = isTold ? mask(0) : isWide ? 0xFF0000 : 0x7C00;
  head->green.mask = isTold ? mask(1) : isWide ? 0xFF00 : 0x03E0;
  head->blue.mask = isTold ? mask(2) : isWide ? 0xFF : 0x1F;
  constexpr uint32_t kLeastWithAlpha = 56;
  const bool hasAlpha = head->info.biCompression == kAlphaBitFields || headerBytes >= kLeastWithAlpha;
  head->alpha.mask = isTold && hasAlpha ? mask(3) : 0;
}

// Reads the headers and throws unless the file can hold the rows that they promise. A file made up to claim
// gigabytes is refused here, before anything is allocated for it.
Head ReadHead(Bytes* file) {
  std::array<uint8_t, kFileHeaderBytes + kMostHeaderBytes> bytes{};
  const size_t got = file->ReadAt(0, bytes);
  const bool hasFileHeader = bytes[0] == 'B' && bytes[1] == 'M';
  const size_t start = hasFileHeader ? kFileHeaderBytes : 0;
  const uint8_t* at = bytes.data() + start;
  const auto headerBytes = FieldAt<uint32_t>(at);
  if (std::find(std::begin(kHeaderBytes), std::end(kHeaderBytes), headerBytes) == std::end(kHeaderBytes)) {
    throw PageError(Text("has a bitmap header of ", headerBytes, " bytes, which is not known"),
                    ErrUnsupported);
  }
  if (got < start + headerBytes) Damaged("its headers are cut short");
  Head head;
  BITMAPINFOHEADER& info = head.info;
  if (headerBytes == sizeof(BITMAPCOREHEADER)) {
    const auto core = FieldAt<BITMAPCOREHEADER>(at);
    info.biWidth = core.bcWidth;
    info.biHeight = core.bcHeight;
    info.biBitCount = core.bcBitCount;
    head.entryBytes = 3;
  } else {
    info = FieldAt<BITMAPINFOHEADER>(at);
  }
  const auto unsupported = [](const std::string& text) { throw PageError(text, ErrUnsupported); };
  const unsigned bits = info.biBitCount;
  const bool isRunLength =
      (info.biCompression == BI_RLE8 && bits == 8) || (info.biCompression == BI_RLE4 && bits == 4);
  const bool hasMasks = headerBytes != kOs2HeaderBytes && (bits == 16 || bits == 32) &&
                        (info.biCompression == kBitFields || info.biCompression == kAlphaBitFields);
  if (info.biCompression != BI_RGB && !isRunLength && !hasMasks) {
    unsupported(Text("is a bitmap of ", bits, " bits with compression ", info.biCompression,
                     ", which is not supported"));
  }
  if (bits != 1 && bits != 2 && bits != 4 && bits != 8 && bits != 16 && bits != 24 && bits != 32) {
    unsupported(Text("has ", bits, " bits a pixel; 1, 2, 4, 8, 16, 24 and 32 are known"));
  }
  head.isTopDown = info.biHeight < 0 && info.biHeight != INT32_MIN;
  if (head.isTopDown) info.biHeight = -info.biHeight;
  if (info.biWidth < 1 || info.biHeight < 1 || (head.isTopDown && isRunLength)) {
    throw PageError(Text("has a size of ", info.biWidth, " x ", info.biHeight, " pixels"), ErrDamagedFile);
  }
  uint64_t masks = 0;  // bytes between the header and the table
  if (bits == 16 || bits == 32) {
    ReadMasks(at, headerBytes, &head);
    if (hasMasks && headerBytes == sizeof(info)) masks = info.biCompression == kAlphaBitFields ? 16 : 12;
  }
  const uint64_t fileBytes = file->size();
  uint64_t claimed = info.biSizeImage;
  head.colours = info.biClrUsed == 0 && bits <= 8 ? uint64_t{1} << bits : info.biClrUsed;
  head.tableAt = start + headerBytes + masks;
  const uint64_t offset = hasFileHeader ? FieldAt<uint32_t>(bytes.data() + 10) : 0;
  head.rowsAt = offset != 0 ? offset : head.tableAt + head.colours * head.entryBytes;
  if (isRunLength && claimed == 0 && head.rowsAt < fileBytes)  // up to the end, where it is not told
    info.biSizeImage =
        static_cast<uint32_t>(std::min<uint64_t>(claimed = fileBytes - head.rowsAt, UINT32_MAX));
  head.rowBytes = isRunLength
                      ? claimed
                      : StrideOf(info.biWidth, static_cast<int>(bits)) * static_cast<uint64_t>(info.biHeight);
  if (head.rowsAt + head.rowBytes > fileBytes || claimed > fileBytes) Damaged("its rows are cut short");
  // Two bytes stand for 255 pixels, and now and then for a jump.
  constexpr uint64_t kMostPixelsPerByte = 1024;
  const uint64_t pixels = static_cast<uint64_t>(info.biWidth) * static_cast<uint64_t>(info.biHeight);
  if (isRunLength && pixels / kMostPixelsPerByte > claimed)
    CannotHold(fileBytes, info.biWidth, info.biHeight);
  if (headerBytes == kMostHeaderBytes && FieldAt<uint32_t>(at + kColourSpaceAt) == kEmbeddedProfile) {
    head.profileAt = start + FieldAt<uint32_t>(at + kProfileAt);
    head.profileBytes = FieldAt<uint32_t>(at + kProfileAt + 4);
    if (head.profileAt + head.profileBytes > fileBytes) head.profileBytes = 0;
  }
  info.biSize = sizeof(info);
  return head;
}

// Entries that the file lacks are white.
void ReadTable(Bytes* file, const Head& head, std::span<RGBQUAD> table) {
  for (RGBQUAD& entry : table) entry = {255, 255, 255, 0};
  const size_t entries = std::min<size_t>(table.size(), static_cast<size_t>(head.colours));
  const auto entryBytes = static_cast<size_t>(head.entryBytes);
  std::vector<uint8_t> bytes(entries * entryBytes);
  const size_t got = file->ReadAt(head.tableAt, bytes);
  std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(got), bytes.end(), uint8_t{0});
  for (size_t i = 0; i < entries; ++i) {
    const uint8_t* entry = &bytes[i * entryBytes];
    table[i] = {entry[0], entry[1], entry[2], 0};
  }
}

// The block that the core expands run-length rows from.
Dib ReadRunLength(Bytes* file, const Head& head, const Reading& reading) {
  // Expanding takes the rows once more, and so does a table that becomes the usual one.
  constexpr uint64_t kCopies = 3;
  reading.CheckBytes(kCopies * StrideOf(head.info.biWidth, head.bits()) *
                         static_cast<uint64_t>(head.info.biHeight) +
                     head.rowBytes);
  const auto tableBytes = static_cast<size_t>(sizeof(RGBQUAD)) << head.info.biBitCount;
  const auto rowBytes = static_cast<size_t>(head.rowBytes);
  const Dib block(GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, sizeof(head.info) + tableBytes + rowBytes));
  auto* header = static_cast<BITMAPINFOHEADER*>(GlobalLock(block.handle()));
  if (header == nullptr) throw PageError("out of memory", ErrNoMemory);
  *header = head.info;
  header->biClrUsed = header->biClrImportant = 0;
  // Writers fill rows up to whole words, in runs that go over the page's width. The core begins such a run's
  // row anew; of a page as wide as its stride it does not, and the stride stays as it is.
  const auto width = static_cast<size_t>(head.info.biWidth);
  const size_t stride = head.bits() == 8 ? static_cast<size_t>(StrideOf(head.info.biWidth, 8)) : width;
  if (stride <= INT32_MAX) header->biWidth = static_cast<int32_t>(stride);
  auto* bytes = reinterpret_cast<uint8_t*>(header + 1);
  ReadTable(file, head, {reinterpret_cast<RGBQUAD*>(bytes), tableBytes / sizeof(RGBQUAD)});
  const size_t got = file->ReadAt(head.rowsAt, {bytes + tableBytes, rowBytes});
  GlobalUnlock(block.handle());
  if (got < rowBytes) Damaged("its rows are cut short");
  Dib page = Checked(ExpandCompressedDIB(block.handle()));
  if (stride == width) return page;
  auto* expanded = static_cast<BITMAPINFOHEADER*>(GlobalLock(page.handle()));
  if (expanded == nullptr) throw PageError("out of memory", ErrNoMemory);
  expanded->biWidth = head.info.biWidth;
  uint8_t* row = reinterpret_cast<uint8_t*>(expanded + 1) + tableBytes;
  for (int32_t y = 0; y < head.info.biHeight; ++y, row += stride)
    std::fill(row + width, row + stride, uint8_t{0});
  GlobalUnlock(page.handle());
  return page;
}

// Pixels of 16 or 32 bits as blue, green and red. `hasAlpha`: some pixel is not clear, so alpha means
// something.
void MixRow(const Head& head, const uint8_t* in, bool hasAlpha, uint8_t* out) {
  const bool isWide = head.bits() == 32;
  for (int32_t x = 0; x < head.info.biWidth; ++x, in += isWide ? 4 : 2, out += 3) {
    const uint32_t pixel = isWide ? FieldAt<uint32_t>(in) : FieldAt<uint16_t>(in);
    const uint32_t alpha = hasAlpha ? head.alpha.Of(pixel, 255) : 255;
    out[0] = OverWhite(head.blue.Of(pixel, 0), alpha);
    out[1] = OverWhite(head.green.Of(pixel, 0), alpha);
    out[2] = OverWhite(head.red.Of(pixel, 0), alpha);
  }
}

void WidenRow(const Head& head, const uint8_t* in, uint8_t* out) {
  for (int32_t x = 0; x < head.info.biWidth; ++x) {
    const unsigned value = in[x / 4] >> (3 - x % 4) * 2 & 3u;
    if (x % 2 == 0) {
      out[x / 2] = static_cast<uint8_t>(value << 4);
    } else {
      out[x / 2] = static_cast<uint8_t>(out[x / 2] | value);
    }
  }
}

// Rows one after the other, each as it lies in the file.
template <class UseRow>
void ForRows(Bytes* file, const Head& head, UseRow useRow) {
  std::vector<uint8_t> row(static_cast<size_t>(StrideOf(head.info.biWidth, head.bits())));
  for (int32_t y = 0; y < head.info.biHeight; ++y) {
    const auto stored = static_cast<uint64_t>(head.isTopDown ? y : head.info.biHeight - 1 - y);
    if (file->ReadAt(head.rowsAt + stored * row.size(), row) < row.size()) Damaged("its rows are cut short");
    useRow(y, row);
  }
}

// Programs that know of no alpha leave it 0 everywhere.
bool HasAlpha(Bytes* file, const Head& head) {
  bool isSeen = false;
  if (head.alpha.mask == 0) return false;
  ForRows(file, head, [&](int32_t, std::span<const uint8_t> row) {
    const size_t bytes = static_cast<size_t>(head.bits()) / 8;
    for (size_t at = 0; !isSeen && at < bytes * static_cast<size_t>(head.info.biWidth); at += bytes) {
      const uint32_t pixel = bytes == 4 ? FieldAt<uint32_t>(&row[at]) : FieldAt<uint16_t>(&row[at]);
      isSeen = (pixel & head.alpha.mask) != 0;
    }
  });
  return isSeen;
}

Dib ReadPlain(Bytes* file, const Head& head, const Reading& reading, bool hasAlpha) {
  Dib page = reading.NewPage(head.info.biWidth, head.info.biHeight, head.pageBits(),
                             {head.info.biXPelsPerMeter, head.info.biYPelsPerMeter});
  const PageView view(page);
  ReadTable(file, head, view.palette());
  const bool isAsStored = head.pageBits() == head.bits();
  if (isAsStored && !head.isTopDown) {
    if (file->ReadAt(head.rowsAt, view.pixels()) < view.pixels().size()) Damaged("its rows are cut short");
    return page;
  }
  ForRows(file, head, [&](int32_t y, std::span<const uint8_t> row) {
    reading.CheckTime();
    uint8_t* out = view.PageRow(y);
    std::memset(out + view.stride() - 4, 0, 4);
    if (isAsStored) {
      std::memcpy(out, row.data(), row.size());
    } else if (head.bits() == 2) {
      WidenRow(head, row.data(), out);
    } else {
      MixRow(head, row.data(), hasAlpha, out);
    }
  });
  return page;
}

void TellOriginal(Bytes* file, const Head& head, bool hasAlpha, Metadata* metadata) {
  const int bits = head.bits();
  Tell({.space = bits > 8 ? "RGB" : "palette",
        .bits = bits == 16 ? 5 : std::min(bits, 8),
        .compression = head.isRunLength() ? "run lengths" : "none",
        .hasAlpha = hasAlpha},
       metadata);
  std::vector<uint8_t> profile(static_cast<size_t>(head.profileBytes));
  if (!profile.empty() && file->ReadAt(head.profileAt, profile) == profile.size())
    metadata->Set("icc", profile);
}

Dib Read(Bytes* file, uint64_t /*place*/, const Reading& reading, Metadata* metadata) {
  const Head head = ReadHead(file);
  CheckSize(head.info.biWidth, head.info.biHeight, head.pageBits());
  reading.CheckPixels(head.info.biWidth, head.info.biHeight);
  const bool hasAlpha = HasAlpha(file, head);
  if (metadata != nullptr) TellOriginal(file, head, hasAlpha, metadata);
  return NormalisePage(head.isRunLength() ? ReadRunLength(file, head, reading)
                                          : ReadPlain(file, head, reading, hasAlpha));
}

PageInfo Describe(Bytes* file, uint64_t /*place*/) {
  const Head head = ReadHead(file);
  return InfoFromHeader(head.info.biWidth, head.info.biHeight, head.pageBits(),
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
