// Run-length pages expanded, and pages of 8 bits turned into pages of 24.
#include <algorithm>
#include <cstring>

#include "frame/dib.h"
#include "frame/rastrel.h"
#include "frame/thread_state.h"
#include "pixels/kernels.h"

namespace rastrel {
namespace {

// ---- run-length pages ----

// What follows a count of 0; from 3 on it is a count of literal pixels.
constexpr unsigned kEndOfLine = 0;
constexpr unsigned kEndOfBitmap = 1;
constexpr unsigned kMove = 2;

// How runs and literal pixels are written at column x of a row. `count` pixels fit there.
struct ByteRuns {
  static constexpr size_t kPixelsPerByte = 1;

  static void Repeat(uint8_t* row, size_t x, size_t count, uint8_t value) {
    std::memset(row + x, value, count);
  }
  static void Copy(uint8_t* row, size_t x, size_t count, const uint8_t* pixels) {
    std::memcpy(row + x, pixels, count);
  }
  // Kept: a row that is full begins anew, and what follows overwrites it.
  static size_t ColumnAfter(size_t x, size_t width) { return x == width ? 0 : x; }
};

struct NibbleRuns {
  static constexpr size_t kPixelsPerByte = 2;

  // Has the bytes under the pixels written whole, and puts back the pixels beside them that share a byte. No
  // branches on odd and even: they would not be foreseen.
  template <class Write>
  static void WriteBytes(uint8_t* row, size_t x, size_t count, Write write) {
    if (count == 0) return;
    uint8_t* first = row + x / 2;
    uint8_t* last = row + (x + count - 1) / 2;
    const unsigned before = x % 2 * 0xF0;
    const unsigned behind = (x + count) % 2 * 0x0F;
    const unsigned pixelBefore = *first & before;
    const unsigned pixelBehind = *last & behind;
    write(first, static_cast<size_t>(last - first) + 1);
    *first = static_cast<uint8_t>((*first & ~before) | pixelBefore);
    *last = static_cast<uint8_t>((*last & ~behind) | pixelBehind);
  }

  // `value` holds two pixels that take turns, the first in its high half.
  static void Repeat(uint8_t* row, size_t x, size_t count, uint8_t value) {
    const int pair = x % 2 == 0 ? value : value << 4 | value >> 4;
    WriteBytes(row, x, count, [pair](uint8_t* to, size_t bytes) { std::memset(to, pair & 0xFF, bytes); });
  }

  static void Copy(uint8_t* row, size_t x, size_t count, const uint8_t* __restrict pixels) {
    WriteBytes(row, x, count, [=](uint8_t* __restrict to, size_t bytes) {
      if (x % 2 == 0) {
        std::memcpy(to, pixels, bytes);
        return;
      }
      // From byte 1 on: the first one's high half is put back.
      to[0] = pixels[0] >> 4;
      for (size_t i = 1; i + 1 < bytes; ++i)
        to[i] = static_cast<uint8_t>(pixels[i - 1] << 4 | pixels[i] >> 4);
      if (bytes > 1)
        to[bytes - 1] = static_cast<uint8_t>(pixels[bytes - 2] << 4 | pixels[(count - 1) / 2] >> 4);
    });
  }
  // A row that is full stays so.
  static size_t ColumnAfter(size_t x, size_t /*width*/) { return x; }
};

// Draws the stream that lies from `next` to `end`. What it leaves out stays as it is; past the last row there
// is nothing left to draw, as rows only go up.
template <class Runs>
void Decode(const uint8_t* next, const uint8_t* end, const Rows& rows) {
  const auto width = static_cast<size_t>(rows.width);
  const auto height = static_cast<size_t>(rows.height);
  size_t y = 0;
  size_t x = 0;  // at most `width`
  while (y < height && end - next >= 2) {
    uint8_t* row = rows.StoredRow(static_cast<int>(y));
    const size_t count = next[0];
    const uint8_t value = next[1];
    next += 2;
    if (count != 0) {
      const size_t pixels = std::min(count, width - x);
      Runs::Repeat(row, x, pixels, value);
      x = Runs::ColumnAfter(x + pixels, width);
    } else if (value == kEndOfLine) {
      ++y;
      x = 0;
    } else if (value == kEndOfBitmap) {
      return;
    } else if (value == kMove) {
      if (end - next < 2) return;
      x = std::min(x + next[0], width);
      y += next[1];
      next += 2;
    } else {
      const size_t left = static_cast<size_t>(end - next);
      const size_t bytes = (value + Runs::kPixelsPerByte - 1) / Runs::kPixelsPerByte;
      const size_t present = std::min<size_t>(value, left * Runs::kPixelsPerByte);
      const size_t pixels = std::min(present, width - x);
      Runs::Copy(row, x, pixels, next);
      x = Runs::ColumnAfter(x + pixels, width);
      next += std::min(bytes + bytes % 2, left);
    }
  }
}

bool IsRunLengthPage(const Header& header) {
  const unsigned bits = header.biCompression == BI_RLE8 ? 8 : header.biCompression == BI_RLE4 ? 4 : 0;
  return bits != 0 && header.biBitCount == bits && header.biSizeImage != 0;
}

// ---- 8 bits to 24 ----

constexpr unsigned kColours = 256;
constexpr uint32_t kGreyStep = 0x010101;

// What each index becomes: blue, green and red, from the low byte up.
struct Colours {
  uint32_t first[kColours];
  uint64_t second[kColours];  // as it lies behind another pixel
  bool areGreys;              // entry i is the grey `flip` ^ i
  uint8_t flip;
};

// The table has 256 entries whatever biClrUsed says: an index beyond it takes what lies there in the block.
Colours ReadColours(const LockedDib& page) {
  RGBQUAD entries[kColours];
  page.ReadPalette(kColours, kBlack, entries);
  Colours colours = {};
  colours.areGreys = true;
  colours.flip = entries[0].rgbBlue;
  for (unsigned i = 0; i < kColours; ++i) {
    const RGBQUAD& entry = entries[i];
    const uint32_t colour = entry.rgbBlue | uint32_t{entry.rgbGreen} << 8 | uint32_t{entry.rgbRed} << 16;
    colours.first[i] = colour;
    colours.second[i] = uint64_t{colour} << 24;
    colours.areGreys = colours.areGreys && colour == (i ^ colours.flip) * kGreyStep;
  }
  return colours;
}

void SpreadGreys(const uint8_t* __restrict from, uint8_t flip, size_t width, uint8_t* __restrict to) {
  for (size_t x = 0; x < width; ++x) {
    to[3 * x] = to[3 * x + 1] = to[3 * x + 2] = static_cast<uint8_t>(from[x] ^ flip);
  }
}

// Two pixels at a time, stored as 8 bytes of which the next two overwrite the last two.
void LookUpColours(const uint8_t* from, const Colours& colours, size_t width, uint8_t* to) {
  constexpr size_t kGroup = 8;
  size_t x = 0;
  for (; x + kGroup < width; x += kGroup) {
    uint64_t indices;
    std::memcpy(&indices, from + x, sizeof(indices));
    for (size_t pair = 0; pair < kGroup; pair += 2) {
      const uint64_t pixels = colours.first[indices & 0xFF] | colours.second[indices >> 8 & 0xFF];
      std::memcpy(to + 3 * (x + pair), &pixels, sizeof(pixels));
      indices >>= 16;
    }
  }
  for (; x < width; ++x) std::memcpy(to + 3 * x, &colours.first[from[x]], 3);
}

// Writes a row of 24 bits. Where the block ends before the row does, the pixels have index 0.
void WidenRow(const uint8_t* from, size_t present, const Colours& colours, size_t width, uint8_t* to) {
  if (colours.areGreys) {
    Widest<SpreadGreys>(from, colours.flip, present, to);
  } else {
    LookUpColours(from, colours, present, to);
  }
  for (size_t x = present; x < width; ++x) std::memcpy(to + 3 * x, &colours.first[0], 3);
}

// The rows of a page that is to be widened. All of these have 16 bits. Kept: callers of Convert8to24
// compare its pages with stored ones.
struct NarrowRows {
  uint16_t width;
  uint16_t height;
  uint16_t stride;     // wraps; a row of less than 8 bits a pixel is shorter than its pixels
  uint64_t newStride;  // must not wrap
  uint64_t offset;

  explicit NarrowRows(const Header& header)
      : width(static_cast<uint16_t>(header.biWidth)),
        height(static_cast<uint16_t>(header.biHeight)),
        stride(static_cast<uint16_t>(DIBRowBytes(width, header.biBitCount))),
        newStride(DIBRowBytes(width, 24)),
        offset(kHeaderBytes +
               sizeof(RGBQUAD) * uint64_t{header.biClrUsed == 0 ? kColours : header.biClrUsed}) {}
};

// Returns 0 for a page that can be widened.
ErrorCode FirstRefusal(const LockedDib& page, const NarrowRows& rows) {
  const Header& header = page.header();
  if (header.biSize != sizeof(Header)) return ErrParameter;
  if (header.biCompression != BI_RGB) return ErrCompressed;
  if (header.biBitCount == 1 || header.biBitCount == 4) return ErrBitsPerPixel;
  if (header.biBitCount == 24) return ErrNothingToDo;
  if (rows.width == 0 || rows.height == 0 || rows.newStride > UINT16_MAX) return ErrDIBSize;
  if (!page.Holds(rows.offset, uint64_t{rows.stride} * rows.height)) return ErrDIBSize;
  return ErrSuccess;
}

Header WideHeader(const Header& header, const NarrowRows& rows) {
  Header narrow = header;
  narrow.biWidth = rows.width;
  narrow.biHeight = rows.height;
  return HeaderLike(narrow, 24, 0);
}

void WidenRows(const LockedDib& page, const NarrowRows& rows, uint8_t* to) {
  const Colours colours = ReadColours(page);
  const auto newStride = static_cast<size_t>(rows.newStride);
  const size_t pixelBytes = size_t{3} * rows.width;
  for (size_t y = 0; y < rows.height; ++y) {
    const size_t from = static_cast<size_t>(rows.offset) + y * rows.stride;
    const size_t present = std::min<size_t>(rows.width, page.size() - from);
    WidenRow(page.bytes() + from, present, colours, rows.width, to);
    std::memset(to + pixelBytes, 0, newStride - pixelBytes);
    to += newStride;
  }
}

}  // namespace
}  // namespace rastrel

HGLOBAL RASTREL_CALL ExpandCompressedDIB(HGLOBAL dib) {
  using namespace rastrel;
  ThreadState& state = GetThreadState();
  if (dib == nullptr) return state.Fail(ErrParameter);
  const LockedDib page(dib);
  if (!page || !IsRunLengthPage(page.header())) return state.Fail(ErrParameter);
  // The table is taken to be full, whatever biClrUsed says.
  const size_t headBytes = kHeaderBytes + (sizeof(RGBQUAD) << page.bits());
  if (!page.Holds(0, headBytes)) return state.Fail(ErrParameter);
  if (page.width() < 0 || page.height() < 0) return state.Fail(ErrDIBSize);

  const uint64_t imageBytes = DIBImageBytes(page.width(), page.height(), page.bits());
  GlobalCompact(static_cast<uint32_t>(std::min(headBytes + imageBytes, kMaxBlockBytes)));
  NewBlock result(headBytes + imageBytes, Content::kZeroed);
  if (!result) return state.Fail(ErrNoMemory);
  Header header = page.header();
  header.biCompression = BI_RGB;
  header.biSizeImage = static_cast<uint32_t>(imageBytes);
  std::memcpy(result.bytes(), page.bytes(), headBytes);
  std::memcpy(result.bytes(), &header, sizeof(header));

  const Rows rows = {result.bytes() + headBytes,
                     static_cast<size_t>(DIBRowBytes(static_cast<uint32_t>(page.width()), page.bits())),
                     page.width(), page.height()};
  const uint8_t* stream = page.bytes() + headBytes;
  const uint8_t* end = page.bytes() + page.size();  // whatever the header says of the size
  if (page.bits() == 8) {
    Decode<ByteRuns>(stream, end, rows);
  } else {
    Decode<NibbleRuns>(stream, end, rows);
  }
  state.lastError = ErrSuccess;
  return result.Release();
}

HGLOBAL RASTREL_CALL Convert8to24(HGLOBAL dib) {
  using namespace rastrel;
  ThreadState& state = GetThreadState();
  state.lastError = ErrSuccess;
  if (dib == nullptr) return state.Fail(ErrParameter);
  const LockedDib page(dib);
  if (!page) return state.Fail(ErrLockMemory);
  const NarrowRows rows(page.header());
  if (const ErrorCode refused = FirstRefusal(page, rows)) return state.Fail(refused);

  const uint64_t bytes = kHeaderBytes + rows.newStride * rows.height;
  NewBlock result(bytes, Content::kUnset, Retry::kWhenCompacted);
  if (const ErrorCode failure = result.Failure()) return state.Fail(failure);

  const Header header = WideHeader(page.header(), rows);
  std::memcpy(result.bytes(), &header, sizeof(header));
  WidenRows(page, rows, result.bytes() + kHeaderBytes);
  return result.Release();
}
