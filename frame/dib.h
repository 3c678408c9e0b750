// The DIB block: its layout, and safe ways to lock one, read one, and make one.
#ifndef RASTREL_FRAME_DIB_H
#define RASTREL_FRAME_DIB_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "frame/rastrel.h"
#include "pixels/colours.h"
#include "platform/platform.h"

namespace rastrel {

using Header = BITMAPINFOHEADER;

static_assert(std::endian::native == std::endian::little, "headers and rows are used as they lie in files");

constexpr uint64_t kHeaderBytes = sizeof(Header);
// Below 4 GiB also when the platform rounds it up.
constexpr uint64_t kMaxBlockBytes = 0xFFFFFFF8;

// Returns the number of colour-table entries behind a 40-byte or 12-byte header: biClrUsed of a 40-byte one
// when it is set, else 2, 16, 256 or 0 for 1, 4, 8 and other depths. A header of another size is read as a
// 40-byte one without biClrUsed.
uint32_t DIBNumColors(const void* header);

// As PaletteSize, without its wrap at 32 bits.
uint64_t PaletteBytes(const void* header);

// Returns the first byte of the rows: behind the header, by its own size field, and the colour table.
uint8_t* FindDIBBits(void* header);

// Returns the bytes from row to row. `width` and `bits` are not negative.
constexpr uint64_t DIBRowBytes(uint64_t width, uint64_t bits) { return (width * bits + 31) / 32 * 4; }

// Returns the bytes of all rows, or more than any block can hold when the header's width or height is
// negative.
uint64_t DIBImageBytes(int32_t width, int32_t height, unsigned bits);

// Rows of pixels: of a locked DIB, or of one plane of a device bitmap. Byte is uint8_t or const uint8_t.
template <class Byte>
struct RowView {
  Byte* first;    // of stored row 0: the bottom of a DIB's picture, the top of a bitmap's
  size_t stride;  // bytes of a row, padding included
  int width;      // in pixels; they fit in a row
  int height;
  // Bytes from row to row: more than a row where the planes of a bitmap take turns, and less than 0 where row
  // 0 is the last in memory.
  ptrdiff_t step = static_cast<ptrdiff_t>(stride);

  // Row 0 is the first, as stored.
  Byte* StoredRow(int row) const { return first + row * step; }
  // Row 0 is the top of the page, as the cleanup operations count.
  Byte* PageRow(int row) const { return StoredRow(height - 1 - row); }

  RowView UpsideDown() const { return {StoredRow(height - 1), stride, width, height, -step}; }
  // `count` rows from stored row `row` on.
  RowView Part(int row, int count) const { return {StoredRow(row), stride, width, count, step}; }
  void Clear() const {
    for (int y = 0; y < height; ++y) std::memset(StoredRow(y), 0, stride);
  }
  // Of rows that follow one another.
  uint64_t bytes() const { return uint64_t{stride} * static_cast<uint32_t>(height); }

  operator RowView<const Byte>() const { return {first, stride, width, height, step}; }
};
using ConstRows = RowView<const uint8_t>;
using Rows = RowView<uint8_t>;

// A memory block locked for the life of the view. Never owns the block.
class LockedBlock {
 public:
  explicit LockedBlock(HGLOBAL block)
      : block_(block),
        bytes_(static_cast<uint8_t*>(GlobalLock(block))),
        size_(bytes_ == nullptr ? 0 : GlobalSize(block)) {}
  ~LockedBlock() {
    if (bytes_ != nullptr && !keepLocked_) GlobalUnlock(block_);
  }
  LockedBlock(const LockedBlock&) = delete;
  LockedBlock& operator=(const LockedBlock&) = delete;
  explicit operator bool() const { return bytes_ != nullptr; }

  uint8_t* bytes() const { return bytes_; }
  size_t size() const { return size_; }
  bool Holds(uint64_t offset, uint64_t count) const { return offset <= size_ && count <= size_ - offset; }
  // Of a byte in the block.
  size_t OffsetOf(const uint8_t* byte) const { return static_cast<size_t>(byte - bytes_); }

  // Leaves the lock on the block when the view ends.
  void KeepLocked() { keepLocked_ = true; }

 private:
  HGLOBAL block_;
  uint8_t* bytes_;
  size_t size_;
  bool keepLocked_ = false;
};

// A DIB block locked for the life of the view. The header is a copy; what a short block lacks of it is 0.
class LockedDib : public LockedBlock {
 public:
  explicit LockedDib(HGLOBAL dib);

  const Header& header() const { return header_; }
  int width() const { return header_.biWidth; }
  int height() const { return header_.biHeight; }
  unsigned bits() const { return header_.biBitCount; }

  // Makes `rows` the rows from `offset` on. Returns false when the width or height is not positive or the
  // block does not hold all rows.
  bool FindRows(uint64_t offset, ConstRows* rows) const;
  bool FindRows(uint64_t offset, Rows* rows) const;

  // Copies `count` colour-table entries, from right behind the 40-byte header on. Where the table is shorter
  // these are the bytes that follow it in the block; what lies beyond the block reads as `beyond`.
  void ReadPalette(unsigned count, RGBQUAD beyond, RGBQUAD* entries) const;

  // What the indices of up to 8 bits mean: the entries that there are of those that they can name.
  ColourTable ReadColourTable() const;

  // Whether the first `count` entries, up to 256, are in the block and grey.
  bool HasGreyTable(unsigned count) const;

  // Whether blue, green and red of entry 0 are 0.
  bool FirstColourIsBlack() const;

 private:
  Header header_ = {};
};

// The header of an uncompressed page with the size and resolution of `source`, in another depth.
Header HeaderLike(const Header& source, unsigned bits, uint32_t colours);

constexpr RGBQUAD kBlack = {0, 0, 0, 0};
constexpr RGBQUAD kWhite = {255, 255, 255, 0};
constexpr Rgb RgbOf(const RGBQUAD& colour) { return RgbOf(colour.rgbRed, colour.rgbGreen, colour.rgbBlue); }
constexpr RGBQUAD QuadOf(Rgb colour) {
  return {static_cast<uint8_t>(BlueOf(colour)), static_cast<uint8_t>(GreenOf(colour)),
          static_cast<uint8_t>(RedOf(colour)), 0};
}

enum class Content : bool { kZeroed, kUnset };
enum class Retry : bool { kNone, kWhenCompacted };

// A new memory block, allocated and locked; unlocked and freed at the end of its life unless released. Serves
// results and work buffers alike.
class NewBlock {
 public:
  // More bytes than a block can have are an allocation that fails. With kWhenCompacted one that fails is
  // tried again after the whole heap has been compacted. With kUnset only the bytes that the
  // platform adds when it rounds the size are cleared.
  NewBlock(uint64_t bytes, Content content, Retry retry = Retry::kNone);
  ~NewBlock();
  NewBlock(const NewBlock&) = delete;
  NewBlock& operator=(const NewBlock&) = delete;
  explicit operator bool() const { return bytes_ != nullptr; }

  HGLOBAL handle() const { return block_; }
  bool allocated() const { return block_ != nullptr; }
  // What to report of the block: `notAllocated`, ErrLockMemory, or ErrSuccess where it is there.
  RastrelErrorCode Failure(RastrelErrorCode notAllocated = ErrNoMemory) const {
    if (block_ == nullptr) return notAllocated;
    return bytes_ == nullptr ? ErrLockMemory : ErrSuccess;
  }
  uint8_t* bytes() const { return bytes_; }
  template <class T>
  T* As() const {
    return reinterpret_cast<T*>(bytes_);
  }

  // Unlocks the block and hands it over.
  HGLOBAL Release();

 private:
  HGLOBAL block_ = nullptr;
  uint8_t* bytes_ = nullptr;
};

}  // namespace rastrel

#endif
