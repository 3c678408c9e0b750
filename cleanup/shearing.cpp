// Pages sheared along their rows or columns.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "frame/dib.h"
#include "frame/rastrel.h"
#include "frame/thread_state.h"
#include "pixels/bit_runs.h"

namespace rastrel {
namespace {

SkewCorners ShearedCorners(int32_t width, int32_t height, bool horizontal, int32_t shift) {
  SkewCorners corners = {0, 0, width, 0, width, height, 0, height};
  // Wraps as 32-bit sums do where a corner leaves the range.
  const auto move = [](int32_t* a, int32_t* b, uint32_t by) {
    *a = static_cast<int32_t>(static_cast<uint32_t>(*a) + by);
    *b = static_cast<int32_t>(static_cast<uint32_t>(*b) + by);
  };
  const auto growth = shift >= 1 ? static_cast<uint32_t>(shift) : 0u - static_cast<uint32_t>(shift);
  // Kept: a vertical shear reports the whole top or bottom edge as moved, though the columns move one by one.
  if (shift >= 1) {
    horizontal ? move(&corners.x0, &corners.x1, growth) : move(&corners.y0, &corners.y1, growth);
  } else {
    horizontal ? move(&corners.x3, &corners.x2, growth) : move(&corners.y3, &corners.y2, growth);
  }
  return corners;
}

// How far the ramp of `reach` steps has come at `index` of `count`: it rises from 0 for a positive shift and
// falls from `reach` for the others, so the two differ by one row or column. Kept: callers of
// SkewDIB compare its pages with stored ones.
uint64_t Ramp(uint64_t reach, uint32_t index, uint32_t count, bool rising) {
  return reach * (rising ? index : count - index) / count;
}

// Where a row lands: bytes, and bits to the right of a byte's start.
struct RowOffset {
  uint64_t bytes;
  unsigned bits;
};

RowOffset RowOffsetOf(uint64_t offsetBits, unsigned bits) {
  if (bits == 8 || bits == 24) offsetBits = (offsetBits + 7) / 8 * 8;
  RowOffset offset = {offsetBits / 8, static_cast<unsigned>(offsetBits % 8)};
  if (bits == 24) offset.bytes -= offset.bytes % 3;
  if (bits == 4) offset.bits = offset.bits < 4 ? 0 : 4;
  return offset;
}

// Copies the bytes of a row, moved right by `offset`. What leaves the destination row is dropped.
void CopyRowShifted(const uint8_t* from, uint64_t count, RowOffset offset, uint8_t* to, uint64_t toStride) {
  const uint64_t offsetBits = 8 * offset.bytes + offset.bits;
  if (offsetBits >= 8 * toStride) return;
  CombineBits(to, offsetBits, from, 0, std::min(8 * count, 8 * toStride - offsetBits),
              [](uint8_t /*to*/, uint8_t source) { return source; });
}

void ShearRows(const ConstRows& source, unsigned bits, int32_t shift, const Rows& result) {
  if (source.stride == 0) return;  // a depth of 0
  const uint64_t reachBits = static_cast<uint64_t>(std::abs(int64_t{shift})) * bits;
  const uint64_t rowBytes = (static_cast<uint64_t>(source.width) * bits + 7) / 8;
  for (int y = 0; y < source.height; ++y) {
    const uint64_t offsetBits =
        Ramp(reachBits, static_cast<uint32_t>(y), static_cast<uint32_t>(source.height), shift >= 1);
    CopyRowShifted(source.StoredRow(y), rowBytes, RowOffsetOf(offsetBits, bits), result.StoredRow(y),
                   result.stride);
  }
}

// The bytes of a row that hold a stretch of columns; the first and the last one may hold others too.
struct ColumnBytes {
  size_t first, last;
  uint8_t firstMask, lastMask;

  ColumnBytes(uint32_t left, uint32_t right, unsigned bits) {
    const uint64_t firstBit = uint64_t{left} * bits;
    const uint64_t lastBit = uint64_t{right} * bits - 1;
    first = static_cast<size_t>(firstBit / 8);
    last = static_cast<size_t>(lastBit / 8);
    firstMask = static_cast<uint8_t>(0xFFu >> firstBit % 8);
    lastMask = static_cast<uint8_t>(0xFFu << (7 - lastBit % 8));
    if (first == last) firstMask = lastMask = firstMask & lastMask;
  }

  // The result is 0 where the columns go.
  void Copy(const uint8_t* from, uint8_t* to) const {
    to[first] = static_cast<uint8_t>(to[first] | (from[first] & firstMask));
    if (last > first + 1) std::memcpy(to + first + 1, from + first + 1, last - first - 1);
    to[last] = static_cast<uint8_t>(to[last] | (from[last] & lastMask));
  }
};

// The rise of the columns never turns back, so the columns of one rise stand together: a row is copied in
// such pieces.
void ShearColumns(const ConstRows& source, unsigned bits, int32_t shift, const Rows& result) {
  if (bits != 1 && bits != 4 && bits != 8 && bits != 24) return;  // Kept: other depths come out blank.
  const auto width = static_cast<uint32_t>(source.width);
  const auto reach = static_cast<uint64_t>(std::abs(int64_t{shift}));
  for (uint32_t left = 0; left < width;) {
    const uint64_t rise = Ramp(reach, left, width, shift >= 1);
    uint32_t right = left + 1;
    while (right < width && Ramp(reach, right, width, shift >= 1) == rise) ++right;
    const ColumnBytes columns(left, right, bits);
    for (int y = 0; y < source.height; ++y) {
      columns.Copy(source.StoredRow(y), result.StoredRow(y + static_cast<int>(rise)));
    }
    left = right;
  }
}

ErrorCode FirstRefusal(const Header& header) {
  if (header.biSize != sizeof(Header)) return ErrParameter;
  if (header.biCompression != BI_RGB) return ErrCompressed;
  if (header.biWidth <= 0 || header.biHeight <= 0) return ErrDIBSize;
  return ErrSuccess;
}

// The sheared copy of a locked page, or null and a code.
HGLOBAL Shear(const LockedDib& source, bool horizontal, int32_t shift, ErrorCode* error) {
  const uint64_t rowsOffset = kHeaderBytes + PaletteBytes(&source.header());
  ConstRows from = {};
  if (!source.FindRows(rowsOffset, &from)) {
    *error = ErrDIBSize;
    return nullptr;
  }
  const int64_t growth = std::abs(int64_t{shift});
  const int64_t width = from.width + (horizontal ? growth : 0);
  const int64_t height = from.height + (horizontal ? 0 : growth);
  *error = ErrNoMemory;
  if (width > INT32_MAX || height > INT32_MAX) return nullptr;
  const uint64_t imageBytes =
      DIBImageBytes(static_cast<int32_t>(width), static_cast<int32_t>(height), source.bits());
  NewBlock result(rowsOffset + imageBytes, Content::kZeroed);
  *error = result.Failure();
  if (*error != ErrSuccess) return nullptr;

  std::memcpy(result.bytes(), source.bytes(), static_cast<size_t>(rowsOffset));
  auto* header = result.As<Header>();
  header->biSize = sizeof(Header);
  header->biWidth = static_cast<int32_t>(width);
  header->biHeight = static_cast<int32_t>(height);
  header->biSizeImage = static_cast<uint32_t>(imageBytes);
  const Rows to = {result.bytes() + rowsOffset,
                   static_cast<size_t>(imageBytes / static_cast<uint64_t>(height)), header->biWidth,
                   header->biHeight};
  horizontal ? ShearRows(from, source.bits(), shift, to) : ShearColumns(from, source.bits(), shift, to);
  return result.Release();
}

}  // namespace
}  // namespace rastrel

HGLOBAL RASTREL_CALL SkewDIB(HGLOBAL dib, int horizontal, int shift, uint32_t* error, SkewCorners* corners) {
  using namespace rastrel;
  ThreadState& state = GetThreadState();
  state.lastError = ErrSuccess;
  const auto fail = [&](ErrorCode code) {
    if (error != nullptr) *error = code;
    return state.Fail(code);
  };
  if (dib == nullptr) return fail(ErrParameter);
  LockedDib source(dib);
  if (!source) return fail(ErrLockMemory);
  if (const ErrorCode refused = FirstRefusal(source.header()); refused != ErrSuccess) return fail(refused);
  if (corners != nullptr) *corners = ShearedCorners(source.width(), source.height(), horizontal != 0, shift);

  ErrorCode code = ErrSuccess;
  HGLOBAL result = Shear(source, horizontal != 0, shift, &code);
  if (result == nullptr) return fail(code);
  source.KeepLocked();  // Kept: callers unlock the page once after a success.
  return result;
}
