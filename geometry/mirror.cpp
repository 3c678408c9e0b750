// Mirror images and half turns of pages and of device bitmaps.
#include <algorithm>
#include <cstring>

#include "frame/device_context.h"
#include "frame/dib.h"
#include "frame/rastrel.h"
#include "frame/thread_state.h"
#include "geometry/bitmap_bits.h"
#include "geometry/planar_rows.h"
#include "geometry/reversal.h"
#include "pixels/kernels.h"

namespace rastrel {
namespace {

using RowMove = void (*)(const ConstRows& from, unsigned bits, const Rows& to);

// Whole rows, their padding too.
void CopyRows(const ConstRows& from, unsigned /*bits*/, const Rows& to) {
  for (int y = 0; y < from.height; ++y) std::memcpy(to.StoredRow(y), from.StoredRow(y), from.stride);
}

using Words = uint64_t __attribute__((vector_size(32)));

// Copies `bytes` bytes each way: from `upper` to `newLower`, and from `lower` to `newUpper`.
void ExchangeRows(const uint8_t* upper, const uint8_t* lower, size_t bytes, uint8_t* __restrict newUpper,
                  uint8_t* __restrict newLower) {
  size_t at = 0;
  for (; at + sizeof(Words) <= bytes; at += sizeof(Words)) {
    Words fromUpper, fromLower;
    std::memcpy(&fromUpper, upper + at, sizeof(Words));
    std::memcpy(&fromLower, lower + at, sizeof(Words));
    std::memcpy(newUpper + at, &fromLower, sizeof(Words));
    std::memcpy(newLower + at, &fromUpper, sizeof(Words));
  }
  std::memcpy(newUpper + at, lower + at, bytes - at);
  std::memcpy(newLower + at, upper + at, bytes - at);
}

// From both ends to the middle: with two rows read and two written at a time, memory is waited for less than
// with one.
void TurnUpsideDown(const ConstRows& from, unsigned /*bits*/, const Rows& to) {
  for (int y = 0; y < from.height / 2; ++y) {
    const int other = from.height - 1 - y;
    Widest<ExchangeRows>(from.StoredRow(y), from.StoredRow(other), from.stride, to.StoredRow(y),
                         to.StoredRow(other));
  }
  const int middle = from.height / 2;
  if (from.height % 2 != 0) std::memcpy(to.StoredRow(middle), from.StoredRow(middle), from.stride);
}

void MirrorRows(const ConstRows& from, unsigned bits, const Rows& to) {
  ReverseRows(from, MovedDepth(bits), to);
}

// Returns the page with its rows moved and `spareBytes` behind them, which callers see in the block's size.
HGLOBAL MovePage(HGLOBAL dib, RowMove move, uint64_t (*spareBytes)(const Header& header)) {
  const LockedDib page(dib);
  ConstRows from;
  if (!page || !FindPlanarRows(page, &from)) return nullptr;
  const size_t head = page.OffsetOf(from.first);
  const uint64_t rowsEnd = head + from.bytes();
  const uint64_t spare = spareBytes(page.header());
  const bool isEmpty = from.bytes() == 0;
  NewBlock result(rowsEnd + spare, isEmpty ? Content::kZeroed : Content::kUnset);
  if (!result) return nullptr;

  const WaitCursor cursor;
  std::memcpy(result.bytes(), page.bytes(), head);
  if (!isEmpty) {
    move(from, page.bits(), {result.bytes() + head, from.stride, from.width, from.height});
    std::memset(result.bytes() + rowsEnd, 0, static_cast<size_t>(spare));
  }
  return result.Release();
}

enum class Order : bool { kKept, kUpsideDown };

// Moves each row of a plane, by way of a buffer for a few rows, to its own place or, upside down, to that of
// its counterpart.
void MoveInPlace(const Rows& plane, unsigned bits, RowMove move, Order order, int rowsInBuffer,
                 uint8_t* buffer) {
  const auto bufferOf = [&](int rows) { return Rows{buffer, plane.stride, plane.width, rows}; };
  int top = 0;
  int bottom = plane.height;
  if (order == Order::kUpsideDown) {
    while (bottom - top >= 2) {
      const int rows = std::min(rowsInBuffer, (bottom - top) / 2);
      const Rows upper = plane.Part(top, rows);
      const Rows lower = plane.Part(bottom - rows, rows);
      move(upper, bits, bufferOf(rows));
      move(lower, bits, upper.UpsideDown());
      CopyRows(bufferOf(rows), bits, lower.UpsideDown());
      top += rows;
      bottom -= rows;
    }
  }
  while (top < bottom) {
    const int rows = std::min(rowsInBuffer, bottom - top);
    move(plane.Part(top, rows), bits, bufferOf(rows));
    CopyRows(bufferOf(rows), bits, plane.Part(top, rows));
    top += rows;
  }
}

// Puts a bitmap's bits back with the rows of each plane moved.
int MoveBitmap(HBITMAP bitmap, RowMove move, Order order) {
  ThreadState& state = GetThreadState();
  const FetchedBitmap fetched(bitmap);
  if (const ErrorCode failure = fetched.failure()) return state.Fail(failure);
  constexpr int kBufferBytes = 1 << 15;
  const BITMAP& description = fetched.description();
  const int rows = std::clamp<int>(kBufferBytes / description.bmWidthBytes, 1, description.bmHeight);
  const NewBlock buffer(static_cast<uint64_t>(rows) * static_cast<uint64_t>(description.bmWidthBytes),
                        Content::kUnset);
  if (!buffer) return state.Fail(ErrNoMemory);
  const WaitCursor cursor;
  for (int i = 0; i < description.bmPlanes; ++i) {
    MoveInPlace(fetched.PlaneAt(i), description.bmBitsPixel, move, order, rows, buffer.bytes());
  }
  SetBitmapBits(bitmap, static_cast<uint32_t>(fetched.layout().bytes()), fetched.bits());
  return 1;
}

}  // namespace
}  // namespace rastrel

HGLOBAL RASTREL_CALL FlipDIBVertical(HGLOBAL dib) {
  return rastrel::MovePage(dib, rastrel::TurnUpsideDown, [](const rastrel::Header&) { return uint64_t{4}; });
}

HGLOBAL RASTREL_CALL FlipDIBHorizontal(HGLOBAL dib) {
  return rastrel::MovePage(dib, rastrel::MirrorRows, [](const rastrel::Header& header) {
    return static_cast<uint64_t>(header.biWidth) + 4;
  });
}

int RASTREL_CALL FlipBitmapVertical(HBITMAP bitmap) {
  return rastrel::MoveBitmap(bitmap, rastrel::CopyRows, rastrel::Order::kUpsideDown);
}
int RASTREL_CALL FlipBitmapHorizontal(HBITMAP bitmap) {
  return rastrel::MoveBitmap(bitmap, rastrel::MirrorRows, rastrel::Order::kKept);
}
int RASTREL_CALL RotateBitmap180(HBITMAP bitmap) {
  return rastrel::MoveBitmap(bitmap, rastrel::MirrorRows, rastrel::Order::kUpsideDown);
}

int RASTREL_CALL InvertBitmap(HBITMAP bitmap) {
  using namespace rastrel;
  const HWND window = GetActiveWindow();
  const HDC windowContext = GetDC(window);
  if (windowContext == nullptr) return 0;
  const MemoryContext memory(windowContext);
  ReleaseDC(window, windowContext);
  if (!memory) return 0;

  BITMAP description = {};
  if (!Describe(bitmap, &description)) return 0;
  const SelectedBitmap selected(memory.get(), bitmap);
  if (!selected) return 0;
  BitBlt(memory.get(), 0, 0, description.bmWidth, description.bmHeight, memory.get(), 0, 0, DSTINVERT);
  return 1;
}
