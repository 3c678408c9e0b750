// Pixels between device bitmaps and DIB rows, and from one device bitmap to another.
#include <algorithm>
#include <cstring>

#include "pixels/bit_runs.h"
#include "platform/host/device_objects.h"
#include "platform/host/pixel_formats.h"
#include "platform/host/screen.h"
#include "platform/host/system.h"

using namespace rastrel;
using namespace rastrel::host;

namespace {

constexpr size_t kRun = 512;                 // pixels drawn at a time where they go through a buffer
constexpr size_t kRunBytes = kRun * 32 / 8;  // in all planes

constexpr auto kCopySource = [](uint8_t /*to*/, uint8_t from) { return from; };
constexpr auto kAndSource = [](uint8_t to, uint8_t from) { return static_cast<uint8_t>(to & from); };
constexpr auto kInvertTarget = [](uint8_t to, uint8_t /*from*/) { return static_cast<uint8_t>(~to); };

PlanarRow<const uint8_t> ConstRow(const Bitmap& bitmap, int y) {
  const PlanarRow<uint8_t> row = bitmap.Row(y);
  return {row.first, row.planeStep};
}

// Combines `count` pixels of `from`, which are in the target's format, with those of the target.
template <class Combine>
void CombineRow(const Bitmap& target, int x, int y, PlanarRow<const uint8_t> from, uint64_t fromX,
                uint64_t count, Combine combine) {
  const PlanarRow<uint8_t> to = target.Row(y);
  const uint64_t bits = target.format.bits;
  for (unsigned plane = 0; plane < target.format.planes; ++plane) {
    rastrel::CombineBits(to.Plane(plane), static_cast<uint64_t>(x) * bits, from.Plane(plane), fromX * bits,
                         count * bits, combine);
  }
}

// Where the pixels that a row is drawn from may be among those that it is drawn on.
enum class Overlap : uint8_t { kNone, kAhead, kBehind };

// Draws `count` pixels of `from` through a converter.
template <class Combine>
void DrawRow(const Bitmap& target, int x, int y, RowConverter* converter, PlanarRow<const uint8_t> from,
             int fromX, int count, Overlap overlap, Combine combine) {
  const auto start = static_cast<uint64_t>(fromX);
  const auto whole = static_cast<uint64_t>(count);
  if (converter->copiesBits() && overlap == Overlap::kNone) {
    return CombineRow(target, x, y, from, start, whole, combine);
  }
  uint8_t buffer[kRunBytes];
  const size_t planeStep = kRun * target.format.bits / 8;
  for (uint64_t done = 0; done < whole; done += kRun) {
    const uint64_t run = std::min<uint64_t>(kRun, whole - done);
    const uint64_t at = overlap == Overlap::kBehind ? whole - done - run : done;
    converter->Convert(from, start + at, run, {buffer, planeStep});
    CombineRow(target, x + static_cast<int>(at), y, {buffer, planeStep}, 0, run, combine);
  }
}

// ---- DIB rows ----

struct DibShape {
  PixelFormat format;
  int width;
  int height;
  size_t stride;
};

// Returns false for what the host does not take.
bool ReadShape(const BITMAPINFOHEADER& header, DibShape* shape) {
  if (header.biSize != sizeof header || header.biWidth <= 0 || header.biHeight <= 0 || header.biPlanes != 1 ||
      header.biCompression != BI_RGB || !IsKnownDepth(header.biBitCount)) {
    return false;
  }
  const uint64_t stride = (static_cast<uint64_t>(header.biWidth) * header.biBitCount + 31) / 32 * 4;
  if (stride > kMaxBitmapBytes) return false;
  *shape = {{1, header.biBitCount}, header.biWidth, header.biHeight, static_cast<size_t>(stride)};
  return true;
}

ColourTable ColoursOf(const BITMAPINFO& info) {
  ColourTable table;
  const BITMAPINFOHEADER& header = info.bmiHeader;
  if (header.biBitCount > 8) return table;
  table.count = 1u << header.biBitCount;
  if (header.biClrUsed != 0) table.count = std::min<unsigned>(table.count, header.biClrUsed);
  const RGBQUAD* entries = info.bmiColors;
  for (unsigned i = 0; i < table.count; ++i) {
    table.colours[i] = RgbOf(entries[i].rgbRed, entries[i].rgbGreen, entries[i].rgbBlue);
  }
  return table;
}

// How many rows from the bottom row `start` up both have, of `lines` at most.
int RowsInBoth(const Bitmap& bitmap, const DibShape& dib, UINT start, UINT lines) {
  const auto rows = static_cast<UINT>(std::min(bitmap.height, dib.height));
  return start >= rows ? 0 : static_cast<int>(std::min(lines, rows - start));
}

// Fills the fields that say what GetDIBits gives of a bitmap.
int Describe(const Bitmap& bitmap, BITMAPINFOHEADER* header) {
  if (header->biSize != sizeof *header) return 0;
  header->biWidth = bitmap.width;
  header->biHeight = bitmap.height;
  header->biPlanes = 1;
  if (header->biBitCount == 0) header->biBitCount = static_cast<uint16_t>(bitmap.format.depth());
  const uint64_t stride = (static_cast<uint64_t>(bitmap.width) * header->biBitCount + 31) / 32 * 4;
  header->biSizeImage = static_cast<uint32_t>(stride * static_cast<uint64_t>(bitmap.height));
  return 1;
}

// ---- from one bitmap to another ----

// A range of columns or rows that is copied; may lie outside both bitmaps.
struct Range {
  int64_t to;
  int64_t from;
  int64_t length;

  void Clip(int64_t toEnd, int64_t fromEnd) {
    const int64_t cut = std::max({int64_t{0}, -to, -from});
    to += cut;
    from += cut;
    length = std::min({length - cut, toEnd - to, fromEnd - from});
  }
};

template <class Combine>
void Draw(const Context& target, const Context& source, Range columns, Range rows, Combine combine) {
  // The screen has no pixels.
  if (target.bitmap == nullptr || source.bitmap == nullptr || IsStockBitmap(target.bitmap)) return;
  const Bitmap& to = *target.bitmap;
  const Bitmap& from = *source.bitmap;
  columns.Clip(to.width, from.width);
  rows.Clip(to.height, from.height);
  if (columns.length <= 0 || rows.length <= 0) return;

  const auto x = static_cast<int>(columns.to);
  const auto fromX = static_cast<int>(columns.from);
  const auto width = static_cast<int>(columns.length);
  const bool isSamePlace = columns.to == columns.from && rows.to == rows.from;
  const Overlap overlap = &to != &from || isSamePlace ? Overlap::kNone
                          : columns.to > columns.from ? Overlap::kBehind
                                                      : Overlap::kAhead;
  RowConverter converter = to.format == from.format
                               ? RowConverter(to.format)
                               : RowConverter(from.format, ColoursFor(source, from.format), to.format,
                                              ColoursFor(target, to.format));
  for (int64_t i = 0; i < rows.length; ++i) {
    // A source above, in the same bitmap, is still to be read: its rows are drawn from the last one up.
    const int64_t row = rows.to > rows.from ? rows.length - 1 - i : i;
    DrawRow(to, x, static_cast<int>(rows.to + row), &converter,
            ConstRow(from, static_cast<int>(rows.from + row)), fromX, width, overlap, combine);
  }
}

}  // namespace

HBITMAP CreateDIBitmap(HDC context, const BITMAPINFOHEADER* header, DWORD init, const void* bits,
                       const BITMAPINFO* info, UINT usage) {
  const Context* device = FindContext(context);
  if (device == nullptr || header == nullptr || header->biSize != sizeof *header) return nullptr;
  const PixelFormat format =
      device->bitmap == nullptr ? PixelFormat{1, ScreenBits()} : device->bitmap->format;
  HBITMAP bitmap = CreateBitmap(header->biWidth, header->biHeight, format.planes, format.bits, nullptr);
  if (bitmap == nullptr || (init & CBM_INIT) == 0) return bitmap;
  const auto lines = static_cast<UINT>(header->biHeight);
  if (SetDIBits(context, bitmap, 0, lines, bits, info, usage) != 0) return bitmap;
  DeleteObject(bitmap);
  return nullptr;
}

int GetDIBits(HDC context, HBITMAP bitmap, UINT start, UINT lines, void* bits, BITMAPINFO* info, UINT usage) {
  const Context* device = FindContext(context);
  const Bitmap* source = FindBitmap(bitmap);
  if (device == nullptr || source == nullptr || source->isSelected) return 0;
  if (info == nullptr || usage != DIB_RGB_COLORS) return 0;
  if (bits == nullptr) return Describe(*source, &info->bmiHeader);
  DibShape dib;
  if (!ReadShape(info->bmiHeader, &dib)) return 0;

  const bool needsColours = !KeepsValues(source->format, dib.format);
  RowConverter converter(source->format, needsColours ? ColoursFor(*device, source->format) : ColourTable{},
                         dib.format, needsColours ? ColoursOf(*info) : ColourTable{});
  const int rows = RowsInBoth(*source, dib, start, lines);
  const auto width = static_cast<uint64_t>(std::min(source->width, dib.width));
  const auto rowBytes = static_cast<size_t>((width * dib.format.bits + 7) / 8);
  for (int i = 0; i < rows; ++i) {
    uint8_t* to = static_cast<uint8_t*>(bits) + static_cast<size_t>(i) * dib.stride;
    const int y = source->height - 1 - static_cast<int>(start) - i;
    converter.Convert(ConstRow(*source, y), 0, width, {to, 0});
    std::memset(to + rowBytes, 0, dib.stride - rowBytes);
  }
  return rows;
}

int SetDIBits(HDC context, HBITMAP bitmap, UINT start, UINT lines, const void* bits, const BITMAPINFO* info,
              UINT usage) {
  const Context* device = FindContext(context);
  const Bitmap* target = FindBitmap(bitmap);
  if (device == nullptr || target == nullptr || target->isSelected || IsStockBitmap(target)) return 0;
  if (bits == nullptr || info == nullptr || usage != DIB_RGB_COLORS) return 0;
  DibShape dib;
  if (!ReadShape(info->bmiHeader, &dib)) return 0;

  const bool needsColours = !KeepsValues(dib.format, target->format);
  RowConverter converter(dib.format, needsColours ? ColoursOf(*info) : ColourTable{}, target->format,
                         needsColours ? ColoursFor(*device, target->format) : ColourTable{});
  const int rows = RowsInBoth(*target, dib, start, lines);
  const int width = std::min(target->width, dib.width);
  for (int i = 0; i < rows; ++i) {
    const uint8_t* from = static_cast<const uint8_t*>(bits) + static_cast<size_t>(i) * dib.stride;
    const int y = target->height - 1 - static_cast<int>(start) - i;
    DrawRow(*target, 0, y, &converter, {from, 0}, 0, width, Overlap::kNone, kCopySource);
  }
  return rows;
}

BOOL BitBlt(HDC destination, int x, int y, int width, int height, HDC source, int sourceX, int sourceY,
            DWORD operation) {
  const Context* target = FindContext(destination);
  if (target == nullptr) return FALSE;
  if (operation == DSTINVERT) {
    Draw(*target, *target, {x, x, width}, {y, y, height}, kInvertTarget);
    return TRUE;
  }
  const Context* from = FindContext(source);
  if (from == nullptr) return FALSE;
  const Range columns = {x, sourceX, width};
  const Range rows = {y, sourceY, height};
  switch (operation) {
    case SRCCOPY:
      Draw(*target, *from, columns, rows, kCopySource);
      return TRUE;
    case SRCAND:
      Draw(*target, *from, columns, rows, kAndSource);
      return TRUE;
    default:
      return FALSE;
  }
}
