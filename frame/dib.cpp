#include "frame/dib.h"

#include <algorithm>
#include <cstring>

namespace rastrel {
namespace {

constexpr uint32_t kCoreHeaderBytes = sizeof(BITMAPCOREHEADER);

uint32_t HeaderSizeOf(const void* header) {
  uint32_t size = 0;
  std::memcpy(&size, header, sizeof(size));
  return size;
}

uint32_t FullTable(unsigned bits) {
  switch (bits) {
    case 1:
      return 2;
    case 4:
      return 16;
    case 8:
      return 256;
    default:
      return 0;
  }
}

template <class Byte>
bool FindRowsIn(const LockedDib& dib, uint64_t offset, RowView<Byte>* rows) {
  if (dib.width() <= 0 || dib.height() <= 0) return false;
  if (!dib.Holds(offset, DIBImageBytes(dib.width(), dib.height(), dib.bits()))) return false;
  const uint64_t stride = DIBRowBytes(static_cast<uint32_t>(dib.width()), dib.bits());
  *rows = {dib.bytes() + offset, static_cast<size_t>(stride), dib.width(), dib.height()};
  return true;
}

}  // namespace

uint32_t DIBNumColors(const void* header) {
  const uint32_t size = HeaderSizeOf(header);
  if (size == kCoreHeaderBytes) {
    BITMAPCOREHEADER core;
    std::memcpy(&core, header, sizeof(core));
    return FullTable(core.bcBitCount);
  }
  Header info;
  std::memcpy(&info, header, sizeof(info));
  if (size == kHeaderBytes && info.biClrUsed != 0) return info.biClrUsed;
  return FullTable(info.biBitCount);
}

uint64_t PaletteBytes(const void* header) {
  return uint64_t{DIBNumColors(header)} * (HeaderSizeOf(header) == kHeaderBytes ? 4 : 3);
}

uint8_t* FindDIBBits(void* header) {
  return static_cast<uint8_t*>(header) + HeaderSizeOf(header) + PaletteBytes(header);
}

uint64_t DIBImageBytes(int32_t width, int32_t height, unsigned bits) {
  if (width < 0 || height < 0) return kMaxBlockBytes + 1;
  // At most 2^31 * 2^16 / 8 bytes a row, so that the product needs a bound before it is formed.
  const uint64_t stride = DIBRowBytes(static_cast<uint32_t>(width), bits);
  if (stride > kMaxBlockBytes) return kMaxBlockBytes + 1;
  return std::min(stride * static_cast<uint32_t>(height), kMaxBlockBytes + 1);
}

LockedDib::LockedDib(HGLOBAL dib) : LockedBlock(dib) {
  if (bytes() != nullptr) std::memcpy(&header_, bytes(), std::min<size_t>(size(), kHeaderBytes));
}

bool LockedDib::FindRows(uint64_t offset, ConstRows* rows) const { return FindRowsIn(*this, offset, rows); }
bool LockedDib::FindRows(uint64_t offset, Rows* rows) const { return FindRowsIn(*this, offset, rows); }

void LockedDib::ReadPalette(unsigned count, RGBQUAD beyond, RGBQUAD* entries) const {
  std::fill_n(entries, count, beyond);
  if (size() > kHeaderBytes) {
    std::memcpy(entries, bytes() + kHeaderBytes,
                std::min<size_t>(size() - sizeof(Header), count * sizeof(RGBQUAD)));
  }
}

ColourTable LockedDib::ReadColourTable() const {
  ColourTable table;
  if (bits() > 8) return table;
  table.count = std::min(DIBNumColors(&header_), 1u << bits());
  RGBQUAD entries[256];
  ReadPalette(table.count, kBlack, entries);
  for (unsigned i = 0; i < table.count; ++i) table.colours[i] = RgbOf(entries[i]);
  return table;
}

bool LockedDib::HasGreyTable(unsigned count) const {
  if (!Holds(kHeaderBytes, count * sizeof(RGBQUAD))) return false;
  RGBQUAD entries[256];
  ReadPalette(count, kBlack, entries);
  return std::all_of(entries, entries + count, [](const RGBQUAD& entry) { return IsGrey(RgbOf(entry)); });
}

bool LockedDib::FirstColourIsBlack() const {
  RGBQUAD first;
  ReadPalette(1, kBlack, &first);
  return first.rgbBlue == 0 && first.rgbGreen == 0 && first.rgbRed == 0;
}

Header HeaderLike(const Header& source, unsigned bits, uint32_t colours) {
  return {.biSize = sizeof(Header),
          .biWidth = source.biWidth,
          .biHeight = source.biHeight,
          .biPlanes = 1,
          .biBitCount = static_cast<uint16_t>(bits),
          .biCompression = BI_RGB,
          .biSizeImage = static_cast<uint32_t>(DIBImageBytes(source.biWidth, source.biHeight, bits)),
          .biXPelsPerMeter = source.biXPelsPerMeter,
          .biYPelsPerMeter = source.biYPelsPerMeter,
          .biClrUsed = colours,
          .biClrImportant = 0};
}

NewBlock::NewBlock(uint64_t bytes, Content content, Retry retry) {
  constexpr uint32_t kWholeHeap = 0xFFFFFFFF;
  if (bytes > kMaxBlockBytes || bytes > SIZE_MAX) return;
  const auto size = static_cast<size_t>(bytes);
  const unsigned flags = content == Content::kZeroed ? GMEM_MOVEABLE | GMEM_ZEROINIT : GMEM_MOVEABLE;
  block_ = GlobalAlloc(flags, size);
  if (block_ == nullptr && retry == Retry::kWhenCompacted) {
    GlobalCompact(kWholeHeap);
    block_ = GlobalAlloc(flags, size);
  }
  if (block_ == nullptr) return;
  bytes_ = static_cast<uint8_t*>(GlobalLock(block_));
  if (bytes_ != nullptr && content == Content::kUnset)
    std::memset(bytes_ + size, 0, GlobalSize(block_) - size);
}

NewBlock::~NewBlock() {
  if (bytes_ != nullptr) GlobalUnlock(block_);
  if (block_ != nullptr) GlobalFree(block_);
}

HGLOBAL NewBlock::Release() {
  HGLOBAL block = block_;
  if (bytes_ != nullptr) GlobalUnlock(block_);
  block_ = nullptr;
  bytes_ = nullptr;
  return block;
}

}  // namespace rastrel

int RASTREL_CALL PaletteSize(const void* header) {
  if (header == nullptr) return 0;
  return static_cast<int>(static_cast<uint32_t>(rastrel::PaletteBytes(header)));
}

HGLOBAL RASTREL_CALL DuplicateDIB(HGLOBAL dib) {
  if (dib == nullptr) return nullptr;
  const size_t size = GlobalSize(dib);
  const rastrel::LockedBlock source(dib);
  if (source) {
    rastrel::NewBlock copy(size, rastrel::Content::kUnset);
    if (!copy.allocated()) return nullptr;
    if (copy) {
      std::memcpy(copy.bytes(), source.bytes(), size);
      return copy.Release();
    }
  }
  // Kept: where a lock fails the copy is returned all the same, zero-filled.
  return GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, size);
}
