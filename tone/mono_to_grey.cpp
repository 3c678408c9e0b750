// Black-and-white pages as grey ones. A pixel becomes black or white, or the share of white around it by a
// kernel whose weights add up to 255, so that sums are greys and fit bytes.
//
// Smoothed rows come out late: row y is centred on source row y - 1 (3 x 3) or y - 2 (5 x 5), and the last
// source rows are never centres. One would expect row y itself. Kept: callers of
// ConvertMonoDIBtoGrayscale compare its pages with stored ones.
#include "tone/mono_to_grey.h"

#include <algorithm>
#include <cstring>

#include "pixels/byte_shuffle.h"
#include "pixels/kernels.h"
#include "pixels/unpacked.h"
#include "pixels/words.h"

namespace rastrel {
namespace {

constexpr uint32_t kExpansion = 0;
constexpr uint32_t kSmoothing3x3 = 1;
constexpr uint32_t kSmoothing5x5 = 2;

constexpr unsigned kGreys = 256;
constexpr uint64_t kSpareRows = 5;

// ---- a byte for each pixel --------------------------------------------------------------------------------

// A byte of pixels as eight bytes, the leftmost pixel first in memory: `white` for each set bit, else 0.
uint64_t Expanded(uint8_t byte, uint8_t white) { return LoadWord(kUnpacked<1>[byte].data()) * white; }

// Writes a byte for each pixel of `bytes` bytes: `white`, or 0. `flip` is 0 where set bits are white, 255
// where others are.
using Expansion = void (*)(const uint8_t* bits, size_t bytes, uint8_t flip, uint8_t white, uint8_t* pixels);

void ExpandBytes(const uint8_t* bits, size_t bytes, uint8_t flip, uint8_t white, uint8_t* pixels) {
  for (size_t i = 0; i < bytes; ++i) StoreWord(pixels + 8 * i, Expanded(bits[i] ^ flip, white));
}

// The same for 32 pixels at a time: each byte of them has the byte of bits in which its pixel is.
RASTREL_FOR_AVX2 void ExpandWords(const uint8_t* bits, size_t bytes, uint8_t flip, uint8_t white,
                                  uint8_t* pixels) {
  using Words = uint32_t __attribute__((vector_size(32)));
  using Pixels = WideShuffleBytes;
  constexpr Pixels kByte = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1,
                            2, 2, 2, 2, 2, 2, 2, 2, 3, 3, 3, 3, 3, 3, 3, 3};
  constexpr Pixels kBit = {128, 64, 32, 16, 8, 4, 2, 1, 128, 64, 32, 16, 8, 4, 2, 1,
                           128, 64, 32, 16, 8, 4, 2, 1, 128, 64, 32, 16, 8, 4, 2, 1};
  const size_t words = bytes / sizeof(uint32_t);
  for (size_t i = 0; i < words; ++i) {
    uint32_t word;
    std::memcpy(&word, bits + 4 * i, sizeof(word));
    const auto bytesOfPixels = ShuffledInHalves(reinterpret_cast<Pixels>(word - Words{}), kByte);
    const auto isSet = reinterpret_cast<Pixels>((bytesOfPixels & kBit) == kBit);
    const Pixels result = (isSet ^ flip) & white;
    std::memcpy(pixels + 32 * i, &result, sizeof(result));
  }
  ExpandBytes(bits + 4 * words, bytes % 4, flip, white, pixels + 32 * words);
}

constexpr Kernel kExpand = Kernel(ExpandBytes).With(Processor::kAvx2, ExpandWords);

// Padding is expanded like pixels: a row of bits always has as much of it as the row of bytes.
void ExpandRow(Expansion expand, const uint8_t* bits, uint8_t flip, size_t stride, uint8_t* grey) {
  const size_t whole = stride / 8;
  expand(bits, whole, flip, 255, grey);
  if (stride % 8 != 0) {
    const uint64_t eight = Expanded(bits[whole] ^ flip, 255);
    std::memcpy(grey + 8 * whole, &eight, stride % 8);
  }
}

// ---- smoothing --------------------------------------------------------------------------------------------
//
// A pixel is a cell of one byte, 1 for white. Kernels are symmetrical, so the rows at equal distances from
// the centre are added up before they are weighted. The weighted sums of a column are kept for each distance
// in x at which pixels ask for them.

struct Weights3x3 {
  static constexpr int kReach = 1;
  static constexpr uint16_t kOf[2][2] = {{99, 31}, {31, 8}};  // [distance in x][distance in y]
};
struct Weights5x5 {
  static constexpr int kReach = 2;
  static constexpr uint16_t kOf[3][3] = {{39, 25, 7}, {25, 16, 3}, {7, 3, 0}};
};

// Beyond either end of a row come the four pixels at that end once more.
constexpr size_t kGroup = 4;
constexpr size_t kMargin = 8;

// The weighted sum of a column for each count of its cells: the centre's plus twice that of the pair next to
// it, and for the pair beyond by itself. Both are below 16, so that a shuffle looks them up.
struct ColumnTable {
  std::array<uint8_t, 32> inner, outer;  // twice the same 16
};
template <class Weights>
constexpr ColumnTable TableFor(int dx) {
  ColumnTable table{};
  for (size_t i = 0; i < 32; ++i) {
    const auto count = static_cast<unsigned>(i % 16);
    const auto& weights = Weights::kOf[dx];
    table.inner[i] = static_cast<uint8_t>(count % 2 * weights[0] + count / 2 * weights[1]);
    if constexpr (Weights::kReach > 1) table.outer[i] = static_cast<uint8_t>(count * weights[2]);
  }
  return table;
}

// Two cells a lane: their sums and products are below 256, so that nothing is carried from one to the other.
using CellPairs = uint16_t __attribute__((vector_size(32)));

constexpr uint64_t RoundedUp(uint64_t value, uint64_t unit) { return (value + unit - 1) / unit * unit; }

RASTREL_FOR_AVX2 inline WideShuffleBytes LoadPixels(const uint8_t* from) {
  WideShuffleBytes pixels;
  std::memcpy(&pixels, from, sizeof(pixels));
  return pixels;
}

// What a smoothing works on: the last rows of cells and the sums of columns.
template <class Weights>
class SmoothingRows {
 public:
  static constexpr int kReach = Weights::kReach;
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
        rowBytes_(static_cast<size_t>(RowBytes(width))),
        expand_(kExpand.Best()) {}

  // Writes the cells of a row in place of those of the oldest one. The copies at the ends are of whole
  // groups, with what pads the last one: the neighbour of pixel 0 is pixel 3. Kept as the late rows are.
  void Read(const uint8_t* bits, uint8_t flip, int row) {
    uint8_t* cells = Cells(row);
    expand_(bits, (width_ + 7) / 8, flip, 1, cells);
    uint8_t* end = cells + RoundedUp(width_, kGroup);
    std::memcpy(cells - kGroup, cells, kGroup);
    std::memcpy(end, end - kGroup, kGroup);
  }

  // Smooths the row in the middle of those that were read, up to `last`. Above the first one it comes again.
  // Sums are worked out, or looked up.
  static void Smooth(const SmoothingRows& rows, int last, uint8_t* grey) {
    rows.SumColumns(last - kReach);
    rows.SumRow(grey);
  }
  RASTREL_FOR_AVX2 static void SmoothByTables(const SmoothingRows& rows, int last, uint8_t* grey) {
    rows.LookUpColumns(last - kReach);
    rows.SumRow(grey);
  }

 private:
  [[gnu::always_inline]] void SumRow(uint8_t* __restrict grey) const {
    const uint8_t* sums[kSums];
    for (int dx = 0; dx < kSums; ++dx) sums[dx] = Sums(dx);
    for (size_t x = 0; x < width_; ++x) {
      uint8_t sum = sums[0][x];
      for (int dx = 1; dx <= kReach; ++dx)
        sum = static_cast<uint8_t>(sum + sums[dx][x - dx] + sums[dx][x + dx]);
      grey[x] = sum;
    }
  }

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
        CellPairs sum = counts[0] * Weights::kOf[dx][0];
        for (int dy = 1; dy <= kReach; ++dy) sum += counts[dy] * Weights::kOf[dx][dy];
        std::memcpy(sums[dx] + at, &sum, sizeof(sum));
      }
    }
  }

  RASTREL_FOR_AVX2 void LookUpColumns(int centre) const {
    using Pixels = WideShuffleBytes;
    const uint8_t* cells[kRows];
    for (int i = 0; i < kRows; ++i) cells[i] = Cells(centre - kReach + i) - kMargin;
    uint8_t* sums[kSums];
    Pixels inner[kSums], outer[kSums];
    for (int dx = 0; dx < kSums; ++dx) {
      sums[dx] = Sums(dx) - kMargin;
      inner[dx] = LoadPixels(TableFor<Weights>(dx).inner.data());
      outer[dx] = LoadPixels(TableFor<Weights>(dx).outer.data());
    }
    for (size_t at = 0; at < rowBytes_; at += sizeof(Pixels)) {
      const Pixels innerPair = LoadPixels(cells[kReach - 1] + at) + LoadPixels(cells[kReach + 1] + at);
      const Pixels innerCount = LoadPixels(cells[kReach] + at) + innerPair + innerPair;
      for (int dx = 0; dx < kSums; ++dx) {
        Pixels sum = ShuffledInHalves(inner[dx], innerCount);
        if constexpr (kReach > 1) {
          const Pixels outerPair = LoadPixels(cells[0] + at) + LoadPixels(cells[kRows - 1] + at);
          if (Weights::kOf[dx][kReach] != 0) sum += ShuffledInHalves(outer[dx], outerPair);
        }
        std::memcpy(sums[dx] + at, &sum, sizeof(sum));
      }
    }
  }

  uint8_t* buffer_;
  size_t width_;
  size_t rowBytes_;
  Expansion expand_;
};

template <class Weights>
ErrorCode SmoothPage(const ConstRows& page, uint8_t flip, const Rows& result) {
  const NewBlock buffer(SmoothingRows<Weights>::TotalBytes(page.width), Content::kZeroed);
  if (const ErrorCode failure = buffer.Failure()) return failure;

  SmoothingRows<Weights> rows(buffer.bytes(), page.width);
  const auto width = static_cast<size_t>(page.width);
  using Smoothing = SmoothingRows<Weights>;
  constexpr Kernel kSmooth = Kernel(Smoothing::Smooth).With(Processor::kAvx2, Smoothing::SmoothByTables);
  const auto smooth = kSmooth.Best();
  for (int y = 0; y < page.height; ++y) {
    uint8_t* grey = result.StoredRow(y);
    rows.Read(page.StoredRow(y), flip, y);
    smooth(rows, y, grey);
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
  const Expansion expand = kExpand.Best();
  switch (MethodFor(page.height, method)) {
    case kSmoothing3x3:
      return SmoothPage<Weights3x3>(page, flip, result);
    case kSmoothing5x5:
      return SmoothPage<Weights5x5>(page, flip, result);
    default:
      for (int y = 0; y < page.height; ++y) {
        ExpandRow(expand, page.StoredRow(y), flip, result.stride, result.StoredRow(y));
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
