// Black-and-white pages as grey ones. A pixel becomes black or white, or the share of white around it by a
// kernel whose weights add up to 255, so that sums are greys and fit bytes.
//
// Smoothed rows come out late: row y is centred on source row y - 1 (3 x 3) or y - 2 (5 x 5), and the last
// source rows are never centres. One would expect row y itself. Kept: callers compare bytes.
#include "tone/mono_to_grey.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "platform/processor.h"

namespace rastrel {
namespace {

constexpr uint32_t kExpansion = 0;
constexpr uint32_t kSmoothing3x3 = 1;
constexpr uint32_t kSmoothing5x5 = 2;

constexpr unsigned kGreys = 256;
constexpr uint64_t kSpareRows = 5;

// ---- eight pixels at a time -------------------------------------------------------------------------------

// A byte of pixels as eight bytes, 255 for each set bit, the leftmost pixel first in memory.
constexpr std::array<uint64_t, 256> kExpanded = [] {
  std::array<uint64_t, 256> words{};
  for (unsigned byte = 0; byte < 256; ++byte) {
    for (unsigned x = 0; x < 8; ++x) {
      if ((byte >> (7 - x) & 1) != 0) words[byte] |= uint64_t{0xFF} << 8 * x;
    }
  }
  return words;
}();

constexpr uint64_t kOnes = 0x0101010101010101;

// `flip` is 0 where set bits are white, 255 where others are. Padding is expanded like pixels: a row of bits
// always has as much of it as the row of bytes.
void ExpandRow(const uint8_t* bits, uint8_t flip, size_t stride, uint8_t* grey) {
  const size_t whole = stride / 8;
  for (size_t i = 0; i < whole; ++i) std::memcpy(grey + 8 * i, &kExpanded[bits[i] ^ flip], 8);
  if (stride % 8 != 0) std::memcpy(grey + 8 * whole, &kExpanded[bits[whole] ^ flip], stride % 8);
}

// ---- smoothing --------------------------------------------------------------------------------------------
//
// A pixel is a cell of one byte, 1 for white. Kernels are symmetrical, so the rows at equal distances from
// the centre are added up before they are weighted. The weighted sums of a column are kept for each distance
// in x at which pixels ask for them.

struct Kernel3x3 {
  static constexpr int kReach = 1;
  static constexpr uint16_t kWeights[2][2] = {{99, 31}, {31, 8}};  // [distance in x][distance in y]
};
struct Kernel5x5 {
  static constexpr int kReach = 2;
  static constexpr uint16_t kWeights[3][3] = {{39, 25, 7}, {25, 16, 3}, {7, 3, 0}};
};

// Beyond either end of a row come the four pixels at that end once more.
constexpr size_t kGroup = 4;
constexpr size_t kMargin = 8;

// Two cells a lane: their sums and products are below 256, so that nothing is carried from one to the other.
using CellPairs = uint16_t __attribute__((vector_size(32)));

constexpr uint64_t RoundedUp(uint64_t value, uint64_t unit) { return (value + unit - 1) / unit * unit; }

// What a smoothing works on: the last rows of cells and the sums of columns.
template <class Kernel>
class SmoothingRows {
 public:
  static constexpr int kReach = Kernel::kReach;
  static constexpr int kRows = 2 * kReach + 1;
  static constexpr int kSums = kReach + 1;

  static uint64_t RowBytes(int width) {
    return RoundedUp(RoundedUp(static_cast<uint32_t>(width), 8) + 2 * kMargin, sizeof(CellPairs));
  }
  static uint64_t TotalBytes(int width) { return RowBytes(width) * (kRows + kSums); }

  // `buffer` holds zeros.
  SmoothingRows(uint8_t* buffer, int width)
      : buffer_(buffer),
        width_(static_cast<size_t>(width)),
        rowBytes_(static_cast<size_t>(RowBytes(width))) {}

  // Writes the cells of a row in place of those of the oldest one. The copies at the ends are of whole
  // groups, with what pads the last one: the neighbour of pixel 0 is pixel 3. Kept: callers compare bytes.
  void Read(const uint8_t* bits, uint8_t flip, int row) {
    uint8_t* cells = Cells(row);
    const size_t bytes = (width_ + 7) / 8;
    for (size_t i = 0; i < bytes; ++i) {
      const uint64_t eight = kExpanded[bits[i] ^ flip] & kOnes;
      std::memcpy(cells + 8 * i, &eight, sizeof(eight));
    }
    uint8_t* end = cells + RoundedUp(width_, kGroup);
    std::memcpy(cells - kGroup, cells, kGroup);
    std::memcpy(end, end - kGroup, kGroup);
  }

  // Smooths the row in the middle of those that were read, up to `last`. Above the first one it comes again.
  [[gnu::always_inline]] void Smooth(int last, uint8_t* __restrict grey) const {
    SumColumns(last - kReach);
    const uint8_t* sums[kSums];
    for (int dx = 0; dx < kSums; ++dx) sums[dx] = Sums(dx);
    for (size_t x = 0; x < width_; ++x) {
      uint8_t sum = sums[0][x];
      for (int dx = 1; dx <= kReach; ++dx)
        sum = static_cast<uint8_t>(sum + sums[dx][x - dx] + sums[dx][x + dx]);
      grey[x] = sum;
    }
  }

 private:
  uint8_t* At(int i) const { return buffer_ + static_cast<size_t>(i) * rowBytes_ + kMargin; }
  uint8_t* Cells(int row) const { return At(row < 0 ? 0 : row % kRows); }
  uint8_t* Sums(int dx) const { return At(kRows + dx); }

  [[gnu::always_inline]] void SumColumns(int centre) const {
    const uint8_t* cells[kRows];
    for (int i = 0; i < kRows; ++i) cells[i] = Cells(centre - kReach + i) - kMargin;
    uint8_t* sums[kSums];
    for (int dx = 0; dx < kSums; ++dx) sums[dx] = Sums(dx) - kMargin;
    for (size_t at = 0; at < rowBytes_; at += sizeof(CellPairs)) {
      CellPairs counts[kReach + 1];  // by distance in y
      std::memcpy(&counts[0], cells[kReach] + at, sizeof(CellPairs));
      for (int dy = 1; dy <= kReach; ++dy) {
        CellPairs below;
        std::memcpy(&counts[dy], cells[kReach - dy] + at, sizeof(CellPairs));
        std::memcpy(&below, cells[kReach + dy] + at, sizeof(CellPairs));
        counts[dy] += below;
      }
      for (int dx = 0; dx < kSums; ++dx) {
        CellPairs sum = counts[0] * Kernel::kWeights[dx][0];
        for (int dy = 1; dy <= kReach; ++dy) sum += counts[dy] * Kernel::kWeights[dx][dy];
        std::memcpy(sums[dx] + at, &sum, sizeof(sum));
      }
    }
  }

  uint8_t* buffer_;
  size_t width_;
  size_t rowBytes_;
};

RASTREL_ALSO_AVX2 void SmoothRow(const SmoothingRows<Kernel3x3>& rows, int last, uint8_t* grey) {
  rows.Smooth(last, grey);
}
RASTREL_ALSO_AVX2 void SmoothRow(const SmoothingRows<Kernel5x5>& rows, int last, uint8_t* grey) {
  rows.Smooth(last, grey);
}

template <class Kernel>
ErrorCode SmoothPage(const ConstRows& page, uint8_t flip, const Rows& result) {
  const NewBlock buffer(SmoothingRows<Kernel>::TotalBytes(page.width), Content::kZeroed);
  if (const ErrorCode failure = buffer.Failure()) return failure;

  SmoothingRows<Kernel> rows(buffer.bytes(), page.width);
  const auto width = static_cast<size_t>(page.width);
  for (int y = 0; y < page.height; ++y) {
    uint8_t* grey = result.StoredRow(y);
    rows.Read(page.StoredRow(y), flip, y);
    SmoothRow(rows, y, grey);
    std::memset(grey + width, 0, result.stride - width);
  }
  return ErrSuccess;
}

// ---- the result -------------------------------------------------------------------------------------------

constexpr uint64_t kGreyRowsOffset = kHeaderBytes + kGreys * sizeof(RGBQUAD);

uint64_t GreyStride(const Header& header) { return DIBRowBytes(static_cast<uint32_t>(header.biWidth), 8); }

uint64_t GreyPageBytes(const Header& header) {
  return kGreyRowsOffset + DIBImageBytes(header.biWidth, header.biHeight, 8) +
         kSpareRows * GreyStride(header);
}

// ---- the operation ----------------------------------------------------------------------------------------

uint32_t MethodFor(int height, uint32_t asked) {
  if (asked != kSmoothing5x5) return asked;
  return height < 4 ? kExpansion : height < 6 ? kSmoothing3x3 : kSmoothing5x5;
}

// Entry 0 is white when all its components are bright; entry 1 does not count.
bool FirstColourIsWhite(const LockedDib& page) {
  RGBQUAD first;
  page.ReadPalette(1, kBlack, &first);
  return std::min({first.rgbRed, first.rgbGreen, first.rgbBlue}) > 127;
}

HGLOBAL MonoToGrey(HGLOBAL dib, uint32_t method) {
  ThreadState& state = GetThreadState();
  state.lastError = ErrSuccess;

  if (dib == nullptr) return state.Fail(ErrParameter);
  const LockedDib page(dib);
  if (!page) return state.Fail(ErrLockMemory);
  if (!page.Holds(0, kHeaderBytes)) return state.Fail(ErrDIBSize);
  const Header& header = page.header();
  if (header.biSize != kHeaderBytes) return state.Fail(ErrParameter);
  if (header.biPlanes != 1 || header.biBitCount != 1 || header.biCompression != BI_RGB) {
    return state.Fail(ErrCompressed);
  }
  if (header.biWidth == 0 || header.biHeight == 0) return state.Fail(ErrDIBSize);
  if (method >= kMonoMethods) return state.Fail(ErrParameter);
  ConstRows rows = {};
  if (!page.FindRows(kHeaderBytes + PaletteBytes(&header), &rows)) return state.Fail(ErrDIBSize);

  GreyPage result(HeaderLike(header, 8, 0));
  if (const ErrorCode failure = result.Failure()) return state.Fail(failure);
  if (const ErrorCode failure = TurnMonoGrey(rows, !FirstColourIsWhite(page), method, result.rows())) {
    return state.Fail(failure);
  }
  return result.Release();
}

}  // namespace

GreyPage::GreyPage(const Header& header) : NewBlock(GreyPageBytes(header), Content::kUnset) {
  if (!*this) return;
  std::memcpy(bytes(), &header, sizeof(header));
  auto* palette = reinterpret_cast<RGBQUAD*>(bytes() + kHeaderBytes);
  for (unsigned i = 0; i < kGreys; ++i) {
    const auto grey = static_cast<uint8_t>(i);
    palette[i] = {grey, grey, grey, 0};
  }
  rows_ = {bytes() + kGreyRowsOffset, static_cast<size_t>(GreyStride(header)), header.biWidth,
           header.biHeight};
  std::memset(rows_.StoredRow(rows_.height), 0, kSpareRows * rows_.stride);
}

ErrorCode TurnMonoGrey(const ConstRows& page, bool setIsWhite, uint32_t method, const Rows& result) {
  const uint8_t flip = setIsWhite ? 0 : 0xFF;
  switch (MethodFor(page.height, method)) {
    case kSmoothing3x3:
      return SmoothPage<Kernel3x3>(page, flip, result);
    case kSmoothing5x5:
      return SmoothPage<Kernel5x5>(page, flip, result);
    default:
      for (int y = 0; y < page.height; ++y) {
        ExpandRow(page.StoredRow(y), flip, result.stride, result.StoredRow(y));
      }
      return ErrSuccess;
  }
}

}  // namespace rastrel

HGLOBAL RASTREL_CALL ConvertMonoDIBtoGrayscale(HGLOBAL dib, uint32_t method) {
  return rastrel::MonoToGrey(dib, method);
}

HGLOBAL RASTREL_CALL ConvMonoDIBtoGrayscale(HGLOBAL dib, uint32_t method) {
  return rastrel::MonoToGrey(dib, method);
}
