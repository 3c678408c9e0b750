// Dithering by blocks: a block of 2 x 2 cells slides along each pair of rows, and at each place its whole
// tone is handed out anew, in steps of 255 to the brightest cells first. Rows are taken as stored, from the
// bottom of the picture up, always from left to right.
#include <cstring>

#include "frame/rastrel.h"
#include "tone/dither_frame.h"
#include "tone/wavefront.h"

namespace rastrel {
namespace {

Lanes Larger(Lanes a, Lanes b) { return {a.low > b.low ? a.low : b.low, a.high > b.high ? a.high : b.high}; }
Lanes Without(Lanes a, Lanes mask) { return {a.low & ~mask.low, a.high & ~mask.high}; }

// ---- a block --------------------------------------------------------------------------------------------

// The block at pixel x, for sixteen rows at once (see wavefront.h):
//
//     current row   a  b      x, x + 1
//     next row      c  d
//
// Its cells and the carry make a sum. Of the cells, ranked from the brightest down (equals in the order a, b,
// c, d), the one of rank k becomes what the sum has above 255 * k: at least 0, at most 255. What a sum has
// above 1020 is lost. A pixel is white when its a becomes 255; otherwise a is carried to the next block,
// whole or (kSharp) half, rounded down.
//
// 16 bits are enough: cells are 0 .. 255 and carries below 255, so sums are 0 .. 1274. They are never
// negative, so there is no deficit to hold back.
//
// What becomes of the next row is what the pair after starts from. One cell behind the last pixel takes part
// in the last block, and nothing else ever sets it: the next row's goes on to both rows of the pair after.
// Where the page's width needs no padding (kApart), current rows keep one such cell among themselves and next
// rows another. Kept: callers of DitherSmooth and DitherSharp compare their pages with stored ones.
template <bool kSharp, bool kApart>
class BlockKernel {
 public:
  static constexpr int kDelay = 1;
  static constexpr int kKept = 1;

  // A step does the block of the pixel before, where b and d are the cells that come in; a row's first step
  // only takes them in. `tone` is a cell of the next row, 0 behind the last pixel. kept[0] is the cell of the
  // current row; behind the last pixel that of the next row stands in its high byte.
  Lanes Step(Lanes tone, Lanes inside, Lanes (&kept)[kKept]) {
    const Lanes b = kept[0] & Lanes::Of(255);
    const Lanes d = tone + HighByte(kept[0]);
    // A sum of 0 makes all cells 0.
    const Lanes sum = (a_ + b + c_ + d + carry_) & begun_;

    const Lanes bOverA = b > a_;
    const Lanes cOverA = c_ > a_;
    const Lanes dOverA = d > a_;
    const Lanes cOverB = c_ > b;
    const Lanes dOverB = d > b;
    const Lanes dOverC = d > c_;
    const Lanes newA = Cell(sum, bOverA + cOverA + dOverA);
    const Lanes newB = Cell(sum, cOverB + dOverB - bOverA - Lanes::Of(1));
    const Lanes newC = Cell(sum, dOverC - cOverA - cOverB - Lanes::Of(2));
    const Lanes newD = Cell(sum, Lanes::Of(-3) - dOverA - dOverB - dOverC);

    const Lanes behindLast = (kApart ? a_ : c_) | ShiftedLeft<8>(c_);
    kept[0] = (newC & inside) | Without(behindLast, inside);
    const Lanes white = newA > Lanes::Of(254);
    carry_ = ShiftedRight<kHalvings>(Without(newA, white));
    a_ = Larger(newB, Without(b, begun_));
    c_ = Larger(newD, Without(d, begun_));
    begun_ = inside;
    return white;
  }

 private:
  static constexpr int kHalvings = kSharp ? 1 : 0;

  // Of the rank -minusRank.
  static Lanes Cell(Lanes sum, Lanes minusRank) {
    const Lanes rest = sum + ShiftedLeft<8>(minusRank) - minusRank;
    return Smaller(Larger(rest, Lanes{}), Lanes::Of(255));
  }

  static Lanes HighByte(Lanes a) {
    using Words = uint16_t __attribute__((vector_size(16)));
    return {reinterpret_cast<Lanes::Half>(reinterpret_cast<Words>(a.low) >> 8),
            reinterpret_cast<Lanes::Half>(reinterpret_cast<Words>(a.high) >> 8)};
  }

  Lanes a_ = {};
  Lanes c_ = {};
  Lanes carry_ = {};
  Lanes begun_ = {};
};

// ---- a page ---------------------------------------------------------------------------------------------

// One channel of the first row of a strip alone.
template <class Kernel>
void DoRow(const WavefrontMemory& memory, int channel, int width) {
  uint8_t* row = memory.Row(channel, 0);
  int16_t* cells = memory.Kept(channel, 0);
  Kernel kernel;
  for (ptrdiff_t x = 0; x < ptrdiff_t{width} + Kernel::kDelay; ++x) {
    Lanes kept[] = {Lanes::Of(cells[x])};
    const Lanes inside = Lanes::Of(x < width ? -1 : 0);
    row[x] = static_cast<uint8_t>(kernel.Step(Lanes::Of(row[x]), inside, kept).last());
    cells[x - Kernel::kDelay] = kept[0].last();
  }
}

// The rows of a strip are here the next rows of pairs: row 0 of a page is its own next row first, and what
// comes of that pair is not seen; then row 1 is next to row 0, and so on. The last row has no next one but
// what the pair before left, which is also what it starts from itself.
template <bool kSharp, bool kApart>
class BlockDither {
 public:
  BlockDither(const PagePlanes& page, int bits, const Rows& result)
      : page_(page),
        result_(result),
        channels_(bits == 1 ? 1 : 3),
        memory_(page.width(), page.height(), channels_, Kernel::kKept) {}

  // Returns false when there is no memory.
  bool Run() {
    if (!memory_) return false;
    const int height = page_.height();
    StartCells();
    int row = 0;
    for (; row <= height - kLanes; row += kLanes) {
      for (int i = 0; i < kLanes; ++i) Read(row + i, i);
      // The cells behind the last pixel are a column as well; the rows' margins have room for it.
      for (int c = 0; c < channels_; ++c) DiffuseStrip<Kernel>(memory_, c, kLanes, page_.width() + 1);
      for (int i = 0; i < kLanes; ++i) Write(row + i - 1, i);
    }
    for (; row <= height; ++row) {
      row < height ? Read(row, 0) : ReadCells();
      for (int c = 0; c < channels_; ++c) DoRow<Kernel>(memory_, c, page_.width() + 1);
      Write(row - 1, 0);
    }
    return true;
  }

 private:
  using Kernel = BlockKernel<kSharp, kApart>;

  void Read(int row, int i) const {
    if (channels_ == 1) {
      ReadGrey(row, memory_.Row(0, i));
    } else {
      page_.ReadColours(row, memory_.Row(0, i), memory_.Row(1, i), memory_.Row(2, i));
    }
    for (int c = 0; c < channels_; ++c) memory_.Row(c, i)[page_.width()] = 0;
  }

  // In grey, the second stored row of a page counts by its red alone, and so does (but for kSharp) the first
  // pixel of the first row. Kept: callers of DitherSmooth and DitherSharp compare their pages with stored
  // ones.
  void ReadGrey(int row, uint8_t* grey) const {
    if (row == 1) return page_.ReadRed(row, grey);
    page_.ReadGrey(row, grey);
    if (!kSharp && row == 0) *grey = page_.FirstRed(row);
  }

  void StartCells() const {
    Read(0, 0);
    for (int c = 0; c < channels_; ++c) {
      for (int x = 0; x < page_.width(); ++x) memory_.Kept(c, 0)[x] = memory_.Row(c, 0)[x];
    }
  }

  void ReadCells() const {
    for (int c = 0; c < channels_; ++c) {
      for (int x = 0; x < page_.width(); ++x) {
        memory_.Row(c, 0)[x] = static_cast<uint8_t>(memory_.Kept(c, 0)[x]);
      }
      memory_.Row(c, 0)[page_.width()] = 0;
    }
  }

  // A pixel's byte stands where the block's right cells came from.
  void Write(int row, int i) const {
    if (row < 0) return;
    if (channels_ == 1) {
      PackBlackAndWhite(memory_.Row(0, i) + 1, result_, row);
    } else {
      PackEightColours(memory_.Row(0, i) + 1, memory_.Row(1, i) + 1, memory_.Row(2, i) + 1, result_, row);
    }
  }

  const PagePlanes& page_;
  const Rows& result_;
  int channels_;
  WavefrontMemory memory_;
};

template <bool kSharp>
bool DitherByBlocks(const PagePlanes& page, int bits, const Rows& result) {
  const bool isApart = page.paddedWidth() == static_cast<uint64_t>(page.width());
  return isApart ? BlockDither<kSharp, true>(page, bits, result).Run()
                 : BlockDither<kSharp, false>(page, bits, result).Run();
}

constexpr DitherRules kRules = {.nullHandle = ErrLockMemory, .cannotLock = ErrNoMemory, .mostBits = 4};

}  // namespace
}  // namespace rastrel

HGLOBAL RASTREL_CALL DitherSmooth(HGLOBAL dib, int bits) {
  using namespace rastrel;
  return Dither(dib, bits, kRules, DitherByBlocks<false>);
}

HGLOBAL RASTREL_CALL DitherSharp(HGLOBAL dib, int bits) {
  using namespace rastrel;
  return Dither(dib, bits, kRules, DitherByBlocks<true>);
}
