// Pieces of pages: the sheet that a scan shows, a rectangle, and the two parts of a page cut across.
#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "frame/dib.h"
#include "frame/rastrel.h"
#include "frame/thread_state.h"
#include "pixels/bit_rows.h"
#include "pixels/kernels.h"

namespace rastrel {
namespace {

// Stored rows bottom .. top - 1, columns left .. right - 1.
struct Area {
  int64_t left, right;
  int64_t bottom, top;

  bool IsEmpty() const { return left >= right || bottom >= top; }
};

// Writes the page of an area behind a header that is there already.
void CopyArea(const ConstRows& rows, unsigned bits, const Area& area, uint64_t headBytes, uint8_t* block) {
  const auto width = static_cast<uint32_t>(area.right - area.left);
  const auto height = static_cast<uint32_t>(area.top - area.bottom);
  const auto stride = static_cast<size_t>(DIBRowBytes(width, bits));
  auto* header = reinterpret_cast<Header*>(block);
  header->biWidth = static_cast<int32_t>(width);
  header->biHeight = static_cast<int32_t>(height);
  header->biSizeImage = static_cast<uint32_t>(stride * height);
  uint8_t* to = block + headBytes;
  for (int64_t y = area.bottom; y < area.top; ++y, to += stride) {
    CopyBits(rows.StoredRow(static_cast<int>(y)), static_cast<uint64_t>(area.left) * bits,
             uint64_t{width} * bits, to, stride);
  }
}

// ---- the sheet of a scan ----

constexpr int kSkippedRows = 5;  // at the bottom, where the sheet's lower edge is looked for
constexpr uint64_t kSheetHeadBytes = kHeaderBytes + 2 * sizeof(RGBQUAD);

using Words = uint64_t __attribute__((vector_size(32)));
constexpr int kCountedBytes = sizeof(Words);
constexpr int kCountedColumns = 8 * kCountedBytes;
constexpr int kCounterMax = 255;

// Adds the 1 bits of `count` rows, up to kCounterMax, to the counts of the columns in `bytes` bytes. Eight
// bytes of counters take the bits of a byte, each by its place.
template <class Size>
[[gnu::always_inline]] inline void AddRows(const uint8_t* first, size_t stride, int count, Size bytes,
                                           uint32_t* counts) {
  constexpr uint64_t kOnes = 0x0101010101010101;
  Words sums[8] = {};
  for (int y = 0; y < count; ++y) {
    Words bits = {};
    std::memcpy(&bits, first + static_cast<size_t>(y) * stride, bytes);
    for (int i = 0; i < 8; ++i) sums[i] += bits >> (7 - i) & kOnes;
  }
  uint8_t counters[8][kCountedBytes];
  std::memcpy(counters, sums, sizeof(sums));
  for (int x = 0; x < kCountedColumns; ++x) counts[x] += counters[x % 8][x / 8];
}

void CountColumns(const uint8_t* first, size_t stride, int rows, size_t bytes,
                  uint32_t counts[kCountedColumns]) {
  std::fill_n(counts, kCountedColumns, 0u);
  for (int y = 0; y < rows; y += kCounterMax) {
    const uint8_t* row = first + static_cast<size_t>(y) * stride;
    const int count = std::min(kCounterMax, rows - y);
    if (bytes == kCountedBytes) {
      AddRows(row, stride, count, std::integral_constant<size_t, kCountedBytes>(), counts);
    } else {
      AddRows(row, stride, count, bytes, counts);
    }
  }
}

// Counts the 1 bits among bits begin .. end - 1 of a row. There is one.
int64_t CountBits(const uint8_t* row, int64_t begin, int64_t end) {
  const auto first = static_cast<size_t>(begin / 8);
  const auto last = static_cast<size_t>((end - 1) / 8);
  int64_t count =
      -std::popcount(row[first] & ~(0xFFu >> begin % 8)) - std::popcount(row[last] & 0x7Fu >> (end - 1) % 8);
  size_t at = first;
  for (; at + sizeof(uint64_t) <= last + 1; at += sizeof(uint64_t)) {
    uint64_t word;
    std::memcpy(&word, row + at, sizeof(word));
    count += std::popcount(word);
  }
  for (; at <= last; ++at) count += std::popcount(row[at]);
  return count;
}

// The pixels of a scan that have the sheet's colour.
class SheetPixels {
 public:
  // Columns count in `height` stored rows from `bottom` on.
  SheetPixels(const ConstRows& rows, int bottom, int height, bool isZero)
      : rows_(rows), bottom_(bottom), height_(height), isZero_(isZero) {}

  int64_t InColumn(int64_t column) {
    const auto byte = static_cast<size_t>(column / 8);
    if (byte < firstByte_ || byte - firstByte_ >= kCountedBytes) Count(byte);
    const int64_t ones = counts_[column - 8 * static_cast<int64_t>(firstByte_)];
    return isZero_ ? height_ - ones : ones;
  }
  int64_t InRow(int64_t row, int64_t left, int64_t right) const {
    const int64_t ones = Widest<CountBits>(rows_.StoredRow(static_cast<int>(row)), left, right);
    return isZero_ ? right - left - ones : ones;
  }

 private:
  void Count(size_t byte) {
    const size_t bytes = std::min<size_t>(kCountedBytes, rows_.stride);
    firstByte_ = std::min(byte / kCountedBytes * kCountedBytes, rows_.stride - bytes);
    Widest<CountColumns>(rows_.StoredRow(bottom_) + firstByte_, rows_.stride, height_, bytes, counts_);
  }

  ConstRows rows_;
  int bottom_, height_;
  bool isZero_;
  size_t firstByte_ = SIZE_MAX;  // of the columns that are counted
  uint32_t counts_[kCountedColumns];
};

int64_t Share(int64_t pixels, double fraction) {
  return static_cast<int64_t>(static_cast<double>(pixels) * fraction + 0.5);
}

struct SheetSearch {
  double fraction;
  int64_t margin;
  bool isDark;
  bool isStraightened;
  int width, height;  // of the page as it was scanned

  // Finds the sheet in the rows of the page or, where `isStraightened`, in those of the straightened one.
  // Moves *x to the right edge, also where no sheet is found later. Returns false when there is none.
  bool Find(const ConstRows& rows, uint32_t* x, Area* area) const {
    // The scanned page stands in the middle of the straightened one. What goes beyond it at the right and the
    // top is left out by half.
    const int beside = (rows.width - width + 1) >> 1;
    const int below = (rows.height - height + 1) >> 1;
    *x += static_cast<uint32_t>(beside);
    if (rows.width < width || rows.height < height) return false;
    const int64_t endColumn = rows.width - beside;
    const int64_t endRow = rows.height - below;
    SheetPixels pixels(rows, below, height, isDark);

    const int64_t needed = Share(height, fraction);
    const auto isSheet = [&](int64_t column) { return pixels.InColumn(column) >= needed; };
    int64_t column = *x;
    while (column < endColumn && !isSheet(column)) ++column;
    if (column >= endColumn) return false;
    area->left = std::max<int64_t>(column - margin, 0);
    if (isStraightened) {
      column = endColumn - 1;
      while (column >= area->left && !isSheet(column)) --column;
      if (column < area->left) return false;
    } else {
      while (column + 1 < endColumn && isSheet(column + 1)) ++column;
    }
    area->right = std::min(endColumn, column + 1 + margin);
    *x = static_cast<uint32_t>(area->right - beside);
    if (area->left >= area->right) return false;
    return FindRows(pixels, below + kSkippedRows, endRow, area);
  }

 private:
  bool FindRows(const SheetPixels& pixels, int64_t row, int64_t endRow, Area* area) const {
    const int64_t needed = Share(area->right - area->left, fraction);
    const auto isSheet = [&](int64_t y) { return pixels.InRow(y, area->left, area->right) >= needed; };
    while (row < endRow && !isSheet(row)) ++row;
    if (row >= endRow) return false;
    area->bottom = std::max<int64_t>(row - margin, 0);
    row = endRow - 1;
    while (row >= area->bottom && !isSheet(row)) --row;
    area->top = std::min(endRow, row + 1 + margin);
    return area->bottom < area->top;
  }
};

ErrorCode SheetRefusal(const Header& header, const uint32_t* x, int64_t margin) {
  if (header.biSize != sizeof(Header)) return ErrBitmapParams;
  if (header.biPlanes != 1 || header.biBitCount != 1) return ErrHeaderBitCount;
  if (header.biCompression != BI_RGB) return ErrCompressed;
  if (x == nullptr || static_cast<uint32_t>(header.biWidth) <= *x) return ErrParameter;
  margin = std::abs(margin);
  if (margin >= header.biWidth / 4 || margin >= header.biHeight / 4) return ErrParameter;
  return ErrSuccess;
}

HGLOBAL CropSheet(ThreadState& state, HGLOBAL dib, const SheetSearch& search, uint32_t* x) {
  const LockedDib page(dib);
  if (!page) return state.Fail(ErrLockMemory);
  ConstRows rows = {};
  if (!page.FindRows(kHeaderBytes + PaletteBytes(&page.header()), &rows)) return state.Fail(ErrDIBSize);
  Area area = {};
  if (!search.Find(rows, x, &area)) return state.Fail(ErrNoScannedPage);

  const uint64_t stride = DIBRowBytes(static_cast<uint64_t>(area.right - area.left), 1);
  NewBlock result(kSheetHeadBytes + stride * static_cast<uint64_t>(area.top - area.bottom), Content::kUnset);
  if (const ErrorCode failure = result.Failure()) return state.Fail(failure);
  // Kept: two colours come along, whatever biClrUsed says.
  std::memcpy(result.bytes(), page.bytes(), kSheetHeadBytes);
  CopyArea(rows, 1, area, kSheetHeadBytes, result.bytes());
  return result.Release();
}

// ---- rectangles and halves ----

bool IsInside(const Header& header, int left, int top, int right, int bottom) {
  return 0 <= left && left <= right && right < header.biWidth && 0 <= top && top <= bottom &&
         bottom < header.biHeight;
}

bool CanCrop(unsigned bits) { return bits == 24 || (std::has_single_bit(bits) && bits <= 32); }

bool CanCut(unsigned bits) { return bits == 1 || bits == 4 || bits == 8 || bits == 24; }

}  // namespace
}  // namespace rastrel

HGLOBAL RASTREL_CALL CropToEdges(HGLOBAL dib, double fraction, uint32_t* x, int margin, int darkForeground,
                                 int noDeskew) {
  using namespace rastrel;
  ThreadState& state = GetThreadState();
  if (!(fraction >= 0 && fraction <= 1) || dib == nullptr) return state.Fail(ErrParameter);
  SheetSearch search = {fraction, margin, darkForeground != 0, noDeskew == 0, 0, 0};
  {
    const LockedDib page(dib);
    if (!page) return state.Fail(ErrLockMemory);
    const ErrorCode refused = SheetRefusal(page.header(), x, margin);
    if (refused != ErrSuccess) return state.Fail(refused);
    search.width = page.width();
    search.height = page.height();
    ConstRows rows = {};
    if (!page.FindRows(kHeaderBytes + PaletteBytes(&page.header()), &rows)) return state.Fail(ErrDIBSize);
  }
  if (noDeskew != 0) return CropSheet(state, dib, search, x);
  HGLOBAL straight = DeskewDIB(dib, darkForeground, 0, nullptr, 0);
  if (straight == nullptr) {
    // Kept: a page that is straight already is refused like one that no memory is left for.
    if (state.lastError == ErrSuccess) state.lastError = ErrNoMemory;
    return nullptr;
  }
  HGLOBAL result = CropSheet(state, straight, search, x);
  GlobalFree(straight);
  return result;
}

HGLOBAL RASTREL_CALL CropDIB(HGLOBAL dib, int left, int top, int right, int bottom) {
  using namespace rastrel;
  ThreadState& state = GetThreadState();
  if (dib == nullptr) return state.Fail(ErrParameter);
  const LockedDib page(dib);
  if (!page) return state.Fail(ErrLockMemory);
  const Header& header = page.header();
  if (!IsInside(header, left, top, right, bottom)) return state.Fail(ErrParameter);
  if (header.biSize != sizeof(Header)) return state.Fail(ErrBitmapParams);
  const uint64_t headBytes = kHeaderBytes + PaletteBytes(&header);
  ConstRows rows = {};
  if (!page.FindRows(headBytes, &rows)) return state.Fail(ErrDIBSize);

  const uint64_t imageBytes = DIBImageBytes(right - left + 1, bottom - top + 1, page.bits());
  NewBlock result(headBytes + imageBytes, Content::kUnset);
  if (const ErrorCode failure = result.Failure()) return state.Fail(failure);
  if (!CanCrop(page.bits())) return state.Fail(ErrParameter);
  std::memcpy(result.bytes(), page.bytes(), static_cast<size_t>(headBytes));
  const Area area = {left, int64_t{right} + 1, int64_t{rows.height} - 1 - bottom, int64_t{rows.height} - top};
  CopyArea(rows, page.bits(), area, headBytes, result.bytes());
  HGLOBAL cropped = result.Release();
  // Kept: the page comes with one more lock, which callers undo.
  if (GlobalLock(cropped) != nullptr) return cropped;
  GlobalFree(cropped);
  return state.Fail(ErrLockMemory);
}

int RASTREL_CALL CutDIB(HGLOBAL dib, int rows, HGLOBAL* first, HGLOBAL* second) {
  using namespace rastrel;
  if (first == nullptr || second == nullptr) return 0;
  const LockedDib page(dib);
  if (!page || rows < 1 || rows >= page.height() || !CanCut(page.bits())) return 0;
  const auto headBytes =
      static_cast<size_t>(std::min(kHeaderBytes + PaletteBytes(&page.header()), kMaxBlockBytes));
  ConstRows source = {};
  if (!page.FindRows(headBytes, &source)) return 0;

  const size_t upperBytes = source.stride * static_cast<size_t>(rows);
  const size_t lowerBytes = source.stride * static_cast<size_t>(source.height - rows);
  // Kept: handles are handed over as soon as there are blocks, and stay where a block is freed after a
  // failure.
  NewBlock lower(headBytes + lowerBytes, Content::kUnset);
  *first = lower.handle();
  NewBlock upper(headBytes + upperBytes, Content::kUnset);
  *second = upper.handle();
  if (!lower || !upper) return 0;

  std::memcpy(lower.bytes(), page.bytes(), headBytes + lowerBytes);
  std::memcpy(upper.bytes(), page.bytes(), headBytes);
  std::memcpy(upper.bytes() + headBytes, page.bytes() + headBytes + lowerBytes, upperBytes);
  lower.As<Header>()->biHeight = source.height - rows;
  upper.As<Header>()->biHeight = rows;
  // Kept: both have the size of the lower part, as large as the platform made it.
  const auto imageBytes = static_cast<uint32_t>(GlobalSize(lower.handle()) - headBytes);
  lower.As<Header>()->biSizeImage = upper.As<Header>()->biSizeImage = imageBytes;
  lower.Release();
  upper.Release();
  return 1;
}
