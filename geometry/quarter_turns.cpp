// Quarter turns of pages and of device bitmaps, without loss but for one kept column.
#include <cstring>
#include <utility>

#include "frame/dib.h"
#include "frame/rastrel.h"
#include "frame/thread_state.h"
#include "geometry/bitmap_bits.h"
#include "geometry/reversal.h"
#include "geometry/rows_to_turn.h"
#include "geometry/transposition.h"
#include "pixels/colours.h"

namespace rastrel {
namespace {

using TurnMove = void (*)(const ConstRows& from, unsigned bits, const Rows& to);

// As seen with row 0 at the top. Stored rows of a page go up, so there it is the other way round.
void TurnLeft(const ConstRows& from, unsigned bits, const Rows& to) {
  Transpose(from, bits, to.UpsideDown());
}

void TurnRight(const ConstRows& from, unsigned bits, const Rows& to) {
  Transpose(from.UpsideDown(), bits, to);
}

void TurnHalf(const ConstRows& from, unsigned bits, const Rows& to) {
  ReverseRows(from, bits, to.UpsideDown());
}

void CopyPixels(const ConstRows& from, unsigned bits, const Rows& to) {
  const uint64_t rowBits = static_cast<uint64_t>(from.width) * bits;
  const auto bytes = static_cast<size_t>(rowBits / 8);
  const auto lastPixels = static_cast<unsigned>(0xFF00 >> rowBits % 8);
  for (int y = 0; y < from.height; ++y) {
    std::memset(to.StoredRow(y) + bytes, 0, to.stride - bytes);
    std::memcpy(to.StoredRow(y), from.StoredRow(y), bytes);
    if (rowBits % 8 != 0)
      to.StoredRow(y)[bytes] = static_cast<uint8_t>(from.StoredRow(y)[bytes] & lastPixels);
  }
}

// ---- device bitmaps ---------------------------------------------------------------------------------------

void TurnBitmapLeft(const ConstRows& from, unsigned bits, const Rows& to) {
  TurnLeft(from, MovedDepth(bits), to);
}

// The last source row of a monochrome bitmap is not copied, so that its leftmost column stays 0; other depths
// are complete. Kept: callers of RotateBitmap270 compare its bits with stored ones.
void TurnBitmapRight(const ConstRows& from, unsigned bits, const Rows& to) {
  TurnRight(from, MovedDepth(bits), to);
  if (bits != 1) return;
  for (int y = 0; y < to.height; ++y) *to.StoredRow(y) &= 0x7F;
}

HBITMAP TurnBitmap(HBITMAP bitmap, TurnMove turn) {
  ThreadState& state = GetThreadState();
  const FetchedBitmap source(bitmap);
  if (const ErrorCode failure = source.failure()) return state.Fail(failure);
  BITMAP description = source.description();
  std::swap(description.bmWidth, description.bmHeight);
  const auto rowBits = static_cast<uint64_t>(description.bmWidth) * description.bmBitsPixel;
  description.bmWidthBytes = static_cast<int32_t>((rowBits + 15) / 16 * 2);
  const PlaneLayout layout(description, source.layout());
  if (layout.bytes() > INT32_MAX) return state.Fail(ErrCreateBitmap);  // more than the platform makes
  const NewBlock bits(layout.bytes(), Content::kUnset);
  if (!bits) return state.Fail(ErrNoMemory);

  {
    const WaitCursor cursor;
    for (int i = 0; i < layout.planes(); ++i) {
      turn(source.PlaneAt(i), description.bmBitsPixel, layout.PlaneAt(i, bits.bytes()));
    }
  }
  description.bmBits = bits.bytes();
  HBITMAP turned = CreateBitmapIndirect(&description);
  return turned != nullptr ? turned : state.Fail(ErrCreateBitmap);
}

// ---- pages ------------------------------------------------------------------------------------------------

bool IsTurnedByQuarters(unsigned bits) { return bits == 2 || IsKnownDepth(bits); }

HGLOBAL TurnPage(HGLOBAL dib, int quarterTurns) {
  constexpr TurnMove kMoves[] = {CopyPixels, TurnRight, TurnHalf, TurnLeft};  // of stored rows
  ThreadState& state = GetThreadState();
  const WaitCursor cursor;
  state.lastError = ErrSuccess;

  if (dib == nullptr) return state.Fail(ErrParameter);
  const LockedDib page(dib);
  if (!page) return state.Fail(ErrLockMemory);
  ConstRows from;
  const PageSize size = ShortSizeOf(page.header());
  if (const ErrorCode refused = FindRowsToTurn(page, size, IsTurnedByQuarters, &from))
    return state.Fail(refused);
  const size_t rowsOffset = page.OffsetOf(from.first);

  const unsigned turns = static_cast<unsigned>(quarterTurns) % 4;
  Header header = page.header();
  header.biWidth = from.width;
  header.biHeight = from.height;
  if (turns % 2 == 1) {
    std::swap(header.biWidth, header.biHeight);
    std::swap(header.biXPelsPerMeter, header.biYPelsPerMeter);
  }
  const uint64_t imageBytes = DIBImageBytes(header.biWidth, header.biHeight, header.biBitCount);
  header.biSizeImage = static_cast<uint32_t>(imageBytes);

  NewBlock result(rowsOffset + imageBytes, Content::kUnset, Retry::kWhenCompacted);
  if (const ErrorCode failure = result.Failure(ErrCreateBitmap)) return state.Fail(failure);

  std::memcpy(result.bytes(), page.bytes(), rowsOffset);
  std::memcpy(result.bytes(), &header, sizeof(header));
  const auto stride = static_cast<size_t>(DIBRowBytes(static_cast<uint32_t>(header.biWidth), page.bits()));
  const Rows to = {result.bytes() + rowsOffset, stride, header.biWidth, header.biHeight};
  kMoves[turns](from, page.bits(), to);
  return result.Release();
}

}  // namespace
}  // namespace rastrel

HGLOBAL RASTREL_CALL TurnDIB(HGLOBAL dib, int quarterTurns) { return rastrel::TurnPage(dib, quarterTurns); }

HBITMAP RASTREL_CALL RotateBitmap90(HBITMAP bitmap) {
  return rastrel::TurnBitmap(bitmap, rastrel::TurnBitmapLeft);
}
HBITMAP RASTREL_CALL RotateBitmap270(HBITMAP bitmap) {
  return rastrel::TurnBitmap(bitmap, rastrel::TurnBitmapRight);
}
