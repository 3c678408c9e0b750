// Shearing, the black margins at a page's sides, and straightening.
#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>

#include "frame/dib.h"
#include "frame/rastrel.h"
#include "frame/thread_state.h"
#include "pixels/bit_runs.h"

namespace rastrel {
namespace {

// ---- shearing ----

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
// falls from `reach` for the others, so the two differ by one row or column. Kept: callers compare bytes.
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

// ---- black margins ----

constexpr unsigned kLightFrom = 100;  // of the mean of blue, green and red
constexpr uint8_t kWhiteByte = 255;   // Kept: an index of 255 at 8 bits, whatever the table holds there.

// Sets the 0 bits from the left end of `bytes` up to the first 1.
void WhitenFromLeft(uint8_t* bytes, size_t count) {
  size_t k = 0;
  while (k < count && bytes[k] == 0) bytes[k++] = 0xFF;
  if (k < count) bytes[k] = static_cast<uint8_t>(bytes[k] | ~(0xFFu >> std::countl_zero(bytes[k])));
}

// Sets the 0 bits from the right end of `bytes` up to the last 1.
void WhitenFromRight(uint8_t* bytes, size_t count) {
  while (count > 0 && bytes[count - 1] == 0) bytes[--count] = 0xFF;
  if (count > 0) {
    uint8_t& last = bytes[count - 1];
    last = static_cast<uint8_t>(last | (last - 1));  // the 0 bits below the lowest 1
  }
}

void TrimBits(const LockedDib& page, const Rows& rows) {
  // Kept: dark pixels have their bit set, which makes them light only where entry 0 is black. Other pages
  // stay as they are.
  if (!page.FirstColourIsBlack()) return;
  for (int y = 0; y < rows.height; ++y) {
    uint8_t* row = rows.StoredRow(y);
    WhitenFromLeft(row, rows.stride);
    // Kept: the walk from the right starts in byte width / 8. Where the width fills the stride this is the
    // first byte of the next row, or the byte before it in the last row.
    const size_t lastByte = static_cast<size_t>(rows.width) / 8;
    const bool behindLastRow = lastByte == rows.stride && y == rows.height - 1;
    WhitenFromRight(row, behindLastRow ? lastByte : lastByte + 1);
  }
}

// What a margin walk does with a pixel.
enum class Margin { kPaint, kSkip, kStop };

// A dark pixel is painted. A light one ends the margin when the next one is light too and is painted when it
// is not; near the end of the walk, where nothing stands next to it, it is left alone.
template <class IsLight>
Margin Judge(const IsLight& isLight, int64_t pixel, int64_t next, bool hasNext) {
  if (!isLight(pixel)) return Margin::kPaint;
  if (!hasNext) return Margin::kSkip;
  return isLight(next) ? Margin::kStop : Margin::kPaint;
}

void TrimIndices(const LockedDib& page, const Rows& rows) {
  // An index beyond the stored table is looked up in what the block holds there now, painted pixels included.
  const auto isLightEntry = [&page](uint8_t index) {
    const size_t at = kHeaderBytes + index * sizeof(RGBQUAD);
    unsigned sum = 0;
    for (size_t i = at; i < at + 3 && i < page.size(); ++i) sum += page.bytes()[i];
    return sum / 3 >= kLightFrom;
  };
  bool light[256];
  for (unsigned i = 0; i < 256; ++i) light[i] = isLightEntry(static_cast<uint8_t>(i));
  const unsigned stored = page.header().biClrUsed == 0 ? 256 : page.header().biClrUsed;

  for (int y = 0; y < rows.height; ++y) {
    uint8_t* row = rows.StoredRow(y);
    const auto isLight = [&](int64_t x) { return row[x] < stored ? light[row[x]] : isLightEntry(row[x]); };
    const auto last = static_cast<int64_t>(rows.stride) - 1;
    for (int64_t x = 0; x <= last; ++x) {
      const Margin margin = Judge(isLight, x, x + 1, x < last);
      if (margin == Margin::kStop) break;
      if (margin == Margin::kPaint) row[x] = kWhiteByte;
    }
    for (int64_t x = rows.width - 1; x >= 0; --x) {
      const Margin margin = Judge(isLight, x, x - 1, x > 0);
      if (margin == Margin::kStop) break;
      if (margin == Margin::kPaint) row[x] = kWhiteByte;
    }
  }
}

void TrimTrueColour(const Rows& rows) {
  const auto stride = static_cast<int64_t>(rows.stride);
  for (int y = 0; y < rows.height; ++y) {
    uint8_t* row = rows.StoredRow(y);
    // Kept: a pixel that starts in the row's padding may reach into the next row and is read and painted
    // there. One that reaches behind the last row is dark, and only its bytes before the end are painted.
    const int64_t end = stride * (rows.height - y);
    const auto isLight = [row, end](int64_t at) {
      return at + 3 <= end && (row[at] + row[at + 1] + row[at + 2]) / 3u >= kLightFrom;
    };
    const auto paint = [row, end](int64_t at) {
      std::fill(row + at, row + std::min(at + 3, end), kWhiteByte);
    };
    for (int64_t at = 0; at < stride; at += 3) {
      const Margin margin = Judge(isLight, at, at + 3, at < stride - 5);
      if (margin == Margin::kStop) break;
      if (margin == Margin::kPaint) paint(at);
    }
    for (int64_t at = 3 * (int64_t{rows.width} - 1); at >= 0; at -= 3) {
      const Margin margin = Judge(isLight, at, at - 3, at + 2 >= 6);
      if (margin == Margin::kStop) break;
      if (margin == Margin::kPaint) paint(at);
    }
  }
}

// The rows of a page whose header size is not examined.
bool FindPageRows(const LockedDib& page, Rows* rows) {
  Header header = page.header();
  header.biSize = sizeof(Header);
  return page.FindRows(kHeaderBytes + PaletteBytes(&header), rows);
}

// Trims a page in place. Returns false when its depth or size does not allow it.
bool TrimMargins(const LockedDib& page) {
  Rows rows = {};
  if (!FindPageRows(page, &rows)) return false;
  switch (page.bits()) {
    case 1:
      TrimBits(page, rows);
      return true;
    case 8:
      TrimIndices(page, rows);
      return true;
    case 24:
      TrimTrueColour(rows);
      return true;
    default:
      return false;
  }
}

// Whether TrimMargins would do a page of this depth and size.
bool CanTrim(HGLOBAL dib) {
  const LockedDib page(dib);
  Rows rows = {};
  return page && (page.bits() == 1 || page.bits() == 8 || page.bits() == 24) && FindPageRows(page, &rows);
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
  source.KeepLocked();  // Kept: callers count on one more lock after a success.
  return result;
}

HGLOBAL RASTREL_CALL TrimBlackBorder(HGLOBAL dib) {
  using namespace rastrel;
  if (!CanTrim(dib)) return nullptr;
  HGLOBAL copy = DuplicateDIB(dib);
  if (copy == nullptr) return nullptr;
  if (TrimMargins(LockedDib(copy))) return copy;
  GlobalFree(copy);
  return nullptr;
}

HGLOBAL RASTREL_CALL DeskewDIB(HGLOBAL dib, int darkForeground, int showProgress, HWND parent,
                               int trimBorder) {
  if (dib == nullptr) return nullptr;
  const int angle = DetectSkewAngle(dib, darkForeground, showProgress, parent);
  if (angle == 0) return nullptr;
  HGLOBAL turned = RotateDIB(dib, static_cast<double>(-angle));
  if (turned == nullptr || trimBorder == 0 || darkForeground == 0) return turned;
  HGLOBAL trimmed = TrimBlackBorder(turned);
  GlobalFree(turned);
  return trimmed;
}
