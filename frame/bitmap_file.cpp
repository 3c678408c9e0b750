// Bitmap files: a 14-byte file header, then the DIB block as it lies in memory. The file header may be
// missing, and the 12-byte core header is understood when a file is read.
#include <cstring>

#include "frame/dib.h"
#include "frame/rastrel.h"
#include "frame/thread_state.h"

namespace rastrel {
namespace {

constexpr uint32_t kFileHeaderBytes = 14;
constexpr uint16_t kFileType = 0x4D42;  // "BM"
constexpr uint64_t kCoreEntryBytes = 3;

// The file header as bytes: its fields do not lie on their own boundaries.
struct FileHeader {
  uint8_t bytes[kFileHeaderBytes] = {};

  uint16_t type() const {
    uint16_t value;
    std::memcpy(&value, bytes, sizeof(value));
    return value;
  }
  uint32_t pixelOffset() const {
    uint32_t value;
    std::memcpy(&value, bytes + 10, sizeof(value));
    return value;
  }
  static FileHeader For(uint32_t fileBytes, uint32_t pixelOffset) {
    FileHeader header;
    std::memcpy(header.bytes, &kFileType, sizeof(kFileType));
    std::memcpy(header.bytes + 2, &fileBytes, sizeof(fileBytes));
    std::memcpy(header.bytes + 10, &pixelOffset, sizeof(pixelOffset));
    return header;
  }
};

// An open file, closed at the end of its life.
class File {
 public:
  File(const char* name, DWORD access, DWORD disposition)
      : file_(static_cast<HFILE>(reinterpret_cast<intptr_t>(
            CreateFileA(name, access, 0, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr)))) {}
  ~File() {
    if (file_ >= 0) _lclose(file_);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  explicit operator bool() const { return file_ >= 0; }
  HFILE get() const { return file_; }

 private:
  HFILE file_;
};

// A read that fails counts as fewer bytes than asked.
bool ReadExactly(HFILE file, void* buffer, uint32_t bytes) { return _lread(file, buffer, bytes) == bytes; }

// Turns a core header, read as the first bytes of `header`, into a 40-byte one for `colours` entries.
void WidenCoreHeader(Header* header, uint32_t colours) {
  BITMAPCOREHEADER core;
  std::memcpy(&core, header, sizeof(core));
  *header = {.biSize = sizeof(Header),
             .biWidth = core.bcWidth,
             .biHeight = core.bcHeight,
             .biPlanes = core.bcPlanes,
             .biBitCount = core.bcBitCount,
             .biCompression = BI_RGB,
             .biSizeImage = 0,
             .biXPelsPerMeter = 0,
             .biYPelsPerMeter = 0,
             .biClrUsed = colours,
             .biClrImportant = colours};
}

// Spreads 3-byte entries to 4-byte ones in place, the last first, so that none is overwritten before it has
// moved.
void WidenTable(uint8_t* table, uint32_t entries) {
  for (uint32_t i = entries; i-- > 0;) {
    const RGBQUAD entry = {table[i * 3], table[i * 3 + 1], table[i * 3 + 2], 0};
    std::memcpy(table + i * 4, &entry, sizeof(entry));
  }
}

// Replaces the zeros that stand for a computed value. Returns false when the rows are larger than any block.
bool CompleteHeader(Header* header) {
  if (header->biSizeImage == 0) {
    const uint64_t bytes = DIBImageBytes(header->biWidth, header->biHeight, header->biBitCount);
    if (bytes > kMaxBlockBytes) return false;
    header->biSizeImage = static_cast<uint32_t>(bytes);
  }
  if (header->biClrUsed == 0) header->biClrUsed = DIBNumColors(header);
  return true;
}

// Copies the header of a DIB to `header`, completed but for core headers. Returns whether there was one to
// copy.
bool GetDIBInfoHeader(HGLOBAL dib, Header* header) {
  const LockedDib source(dib);
  if (!source.Holds(0, kHeaderBytes)) return false;
  *header = source.header();
  return header->biSize == sizeof(BITMAPCOREHEADER) || CompleteHeader(header);
}

// Makes room for the rows behind the header and table of `block` and reads them. The block is freed on
// failure.
HGLOBAL AddRows(HFILE file, HGLOBAL block, ThreadState& state) {
  Header header;
  if (!GetDIBInfoHeader(block, &header)) {
    GlobalFree(block);
    return state.Fail(ErrLockMemory);
  }
  const uint64_t rows = header.biSizeImage;
  const uint64_t size = header.biSize + PaletteBytes(&header) + rows;
  const HGLOBAL grown = size > kMaxBlockBytes ? nullptr : GlobalReAlloc(block, static_cast<size_t>(size), 0);
  if (grown == nullptr) {
    GlobalFree(block);
    return nullptr;
  }
  const LockedBlock locked(grown);
  // Kept: a block that cannot be locked is returned without rows, and a short file leaves the rest of them
  // unset.
  if (locked) {
    std::memset(locked.bytes() + size, 0, locked.size() - static_cast<size_t>(size));
    _hread(file, FindDIBBits(locked.bytes()), static_cast<LONG>(header.biSizeImage));
  }
  return grown;
}

}  // namespace
}  // namespace rastrel

HGLOBAL RASTREL_CALL ReadDIBInfo(int file) {
  using namespace rastrel;
  ThreadState& state = GetThreadState();
  if (file == HFILE_ERROR) return state.Fail(ErrParameter);

  const LONG start = _llseek(file, 0, FILE_CURRENT);
  FileHeader fileHeader;
  if (!ReadExactly(file, fileHeader.bytes, kFileHeaderBytes)) return state.Fail(ErrFileIO);
  uint32_t pixelOffset = fileHeader.pixelOffset();
  if (fileHeader.type() != kFileType) {
    pixelOffset = 0;
    _llseek(file, start, FILE_BEGIN);
  }

  Header header;
  if (!ReadExactly(file, &header, sizeof(header))) return state.Fail(ErrFileIO);
  const uint32_t colours = DIBNumColors(&header);
  const bool isCore = header.biSize == sizeof(BITMAPCOREHEADER);
  if (isCore) {
    WidenCoreHeader(&header, colours);
    _llseek(file, -static_cast<LONG>(sizeof(Header) - sizeof(BITMAPCOREHEADER)), FILE_CURRENT);
  } else if (header.biSize != sizeof(Header)) {
    return state.Fail(ErrFileFormat);
  }
  if (!CompleteHeader(&header)) return nullptr;

  NewBlock block(kHeaderBytes + uint64_t{colours} * sizeof(RGBQUAD), Content::kZeroed);
  if (!block.allocated()) return nullptr;
  if (!block) return state.Fail(ErrLockMemory);
  std::memcpy(block.bytes(), &header, sizeof(header));
  uint8_t* table = block.bytes() + kHeaderBytes;
  if (colours != 0) {
    // A table that is cut short stays 0 where the file ends.
    _hread(file, table, static_cast<LONG>(colours * (isCore ? kCoreEntryBytes : sizeof(RGBQUAD))));
    if (isCore) WidenTable(table, colours);
  }
  if (pixelOffset != 0)
    _llseek(file, static_cast<LONG>(static_cast<uint32_t>(start) + pixelOffset), FILE_BEGIN);
  return block.Release();
}

HGLOBAL RASTREL_CALL LoadDIBFromFile(const char* fileName) {
  using namespace rastrel;
  ThreadState& state = GetThreadState();
  const File file(fileName, GENERIC_READ, OPEN_EXISTING);
  if (!file) return state.Fail(ErrOpenFile);
  HGLOBAL block = ReadDIBInfo(file.get());
  return block == nullptr ? nullptr : AddRows(file.get(), block, state);
}

int RASTREL_CALL SaveDIB(const char* fileName, HGLOBAL dib) {
  using namespace rastrel;
  ThreadState& state = GetThreadState();
  if (dib == nullptr) return state.Fail(ErrParameter);
  // A handle with nothing behind it would be a write of 0 bytes. It must not cost the file that is there.
  const LockedDib source(dib);
  if (!source) return state.Fail(ErrFileIO);
  const bool isCore = source.header().biSize == sizeof(BITMAPCOREHEADER);
  if (!source.Holds(0, isCore ? sizeof(BITMAPCOREHEADER) : kHeaderBytes)) return state.Fail(ErrDIBSize);
  if (source.size() > kMaxBlockBytes - kFileHeaderBytes)
    return state.Fail(ErrDIBSize);  // the file's size has 32 bits

  const File file(fileName, GENERIC_READ | GENERIC_WRITE, CREATE_ALWAYS);
  if (!file) return state.Fail(ErrOpenFile);
  const WaitCursor cursor;
  const auto blockBytes = static_cast<uint32_t>(source.size());
  const uint64_t pixelOffset = source.header().biSize + PaletteBytes(&source.header()) + kFileHeaderBytes;
  const FileHeader header =
      FileHeader::For(blockBytes + kFileHeaderBytes, static_cast<uint32_t>(pixelOffset));
  // Kept: only a write of 0 bytes is a failure. One that fails outright (a full disk) is not recognised.
  if (_lwrite(file.get(), reinterpret_cast<LPCSTR>(header.bytes), kFileHeaderBytes) == 0)
    return state.Fail(ErrFileIO);
  if (_hwrite(file.get(), reinterpret_cast<LPCSTR>(source.bytes()), static_cast<LONG>(blockBytes)) == 0) {
    return state.Fail(ErrFileIO);
  }
  return 1;
}
