// Halftones: a page in black and white by a fixed threshold, by error diffusion, or by an ordered pattern.
#include <algorithm>
#include <cstring>

#include "frame/dib.h"
#include "frame/rastrel.h"
#include "tone/diffusion_kernels.h"
#include "tone/dither_frame.h"
#include "tone/wavefront.h"

namespace rastrel {
namespace {

enum Method : uint16_t { kThreshold = 0, kErrorDiffusion = 1, kOrdered = 2 };

constexpr int kPattern = 16;

// ---- greys ----------------------------------------------------------------------------------------------

// The greys of a page, a stored row at a time.
//
// A page of 24 bits is taken apart into rows of its width rounded up to 4, one behind the other, and then
// read in rows as long as its stored ones in bytes: about three rows a row, and after a third of the page 0.
// Columns beyond the width take their bytes from what follows the row's pixels, 0 beyond the block. Kept:
// callers of Halftone compare its pages with stored ones.
class GreyRows {
 public:
  GreyRows(const LockedDib& page, const ConstRows& rows)
      : planes_(page, rows),
        rows_(rows),
        blockEnd_(page.bytes() + page.size()),
        isTrueColour_(page.bits() == 24),
        planeWidth_(DIBRowBytes(static_cast<uint32_t>(rows.width), 8)) {}
  int width() const { return rows_.width; }
  int height() const { return rows_.height; }

  // Returns `buffer`, which holds one byte more than a row, or the stored pixels.
  const uint8_t* Row(int row, uint8_t* buffer) const {
    if (!isTrueColour_) return planes_.GreyRow(row, buffer);
    const uint64_t start = static_cast<uint64_t>(rows_.stride) * static_cast<uint32_t>(row);
    const uint64_t end = planeWidth_ * static_cast<uint32_t>(height());
    const auto count = static_cast<uint64_t>(width());
    for (uint64_t done = 0; done < count;) {
      const uint64_t place = start + done;
      const uint64_t column = place % planeWidth_;
      const uint64_t run = std::min(count - done, planeWidth_ - column);
      if (place < end) {
        ReadRun(rows_.StoredRow(static_cast<int>(place / planeWidth_)), column, run, buffer + done);
      } else {
        std::memset(buffer + done, 0, static_cast<size_t>(run));
      }
      done += run;
    }
    return buffer;
  }

 private:
  void ReadRun(const uint8_t* row, uint64_t column, uint64_t count, uint8_t* grey) const {
    const auto left = static_cast<uint64_t>(blockEnd_ - row);  // in the block, at least the row itself
    const uint64_t inBlock = left / 3 > column ? std::min(left / 3 - column, count) : 0;
    ReadTrueColourGrey(row + 3 * column, static_cast<size_t>(inBlock), grey);
    for (uint64_t i = inBlock; i < count; ++i) grey[i] = GreyAcrossEnd(row, 3 * (column + i), left);
  }

  // Of a pixel that the block does not hold whole.
  static uint8_t GreyAcrossEnd(const uint8_t* row, uint64_t offset, uint64_t left) {
    const auto byteAt = [=](uint64_t at) { return at < left ? row[at] : 0u; };
    return GreyOf(byteAt(offset + 2), byteAt(offset + 1), byteAt(offset));
  }

  PagePlanes planes_;
  ConstRows rows_;
  const uint8_t* blockEnd_;
  bool isTrueColour_;
  uint64_t planeWidth_;
};

// ---- threshold and ordered pattern ----------------------------------------------------------------------

// A pixel is white when its grey is at least `least` of its place (rows and columns modulo 16) and `mask`
// there is 255; where it is 0 no grey is white.
struct Limits {
  uint8_t least[kPattern][kPattern];
  uint8_t mask[kPattern][kPattern];
};

// The pattern's number at a place: a permutation of 0 .. 255. A 4 x 4 pattern is doubled twice; each time
// four times the smaller one is repeated in four quadrants, which add 0, 2, 3 and 1.
constexpr int PatternAt(int row, int column) {
  constexpr int kBase[4][4] = {{0, 8, 2, 10}, {12, 4, 14, 6}, {3, 11, 1, 9}, {15, 7, 13, 5}};
  constexpr int kQuadrant[2][2] = {{0, 2}, {3, 1}};
  const int eight = 4 * kBase[row % 4][column % 4] + kQuadrant[row / 4 % 2][column / 4 % 2];
  return 4 * eight + kQuadrant[row / 8][column / 8];
}

// White is what stands above the pattern, or above 128. The brightness is folded into the limits: only a
// number of 255 needs care, because a grey ends at 255 and no brightness lifts it above.
Limits LimitsOf(Method method, int brightness) {
  Limits limits = {};
  for (int row = 0; row < kPattern; ++row) {
    for (int column = 0; column < kPattern; ++column) {
      const int64_t number = method == kThreshold ? 128 : PatternAt(row, column);
      const int64_t least = number + 1 - brightness;
      limits.least[row][column] = static_cast<uint8_t>(std::clamp<int64_t>(least, 0, 255));
      limits.mask[row][column] = number == 255 || least > 255 ? 0 : 255;
    }
  }
  return limits;
}

// Makes `count` greys 255 where they are white, else 0. They are judged in a place of their own, so that the
// compiler need not care whether `white` is `grey` itself, as it may be.
void Judge(const uint8_t (&least)[kPattern], const uint8_t (&mask)[kPattern], const uint8_t* grey,
           size_t count, uint8_t* white) {
  uint8_t tones[kPattern] = {};
  std::memcpy(tones, grey, count);
  for (int k = 0; k < kPattern; ++k) {
    tones[k] = static_cast<uint8_t>((tones[k] >= least[k] ? 255 : 0) & mask[k]);
  }
  std::memcpy(white, tones, count);
}

void JudgeRow(const Limits& limits, int row, const uint8_t* grey, int width, uint8_t* white) {
  const auto& least = limits.least[row % kPattern];
  const auto& mask = limits.mask[row % kPattern];
  int x = 0;
  for (; x <= width - kPattern; x += kPattern) Judge(least, mask, grey + x, kPattern, white + x);
  if (x < width) Judge(least, mask, grey + x, static_cast<size_t>(width - x), white + x);
}

bool JudgePage(const GreyRows& page, const Limits& limits, const Rows& result) {
  const NewBlock buffer(uint64_t{static_cast<uint32_t>(page.width())} + 1, Content::kUnset);
  if (!buffer) return false;
  for (int y = 0; y < page.height(); ++y) {
    const uint8_t* grey = page.Row(y, buffer.bytes());
    JudgeRow(limits, y, grey, page.width(), buffer.bytes());
    PackBlackAndWhite(buffer.bytes(), result, y);
  }
  return true;
}

// ---- error diffusion ------------------------------------------------------------------------------------

void Brighten(int brightness, int width, uint8_t* greys) {
  const int offset = std::clamp(brightness, -255, 255);
  for (int x = 0; x < width; ++x) greys[x] = static_cast<uint8_t>(std::clamp(greys[x] + offset, 0, 255));
}

bool DiffusePage(const GreyRows& page, int brightness, const Rows& result) {
  using Kernel = Jarvis<BlackOrWhite, 3, 1>;
  const WavefrontMemory memory(page.width(), page.height(), 1, Kernel::kKept);
  if (!memory) return false;
  for (int first = 0; first < page.height(); first += kLanes) {
    const int count = std::min(kLanes, page.height() - first);
    for (int i = 0; i < count; ++i) {
      uint8_t* row = memory.Row(0, i);
      const uint8_t* grey = page.Row(first + i, row);
      if (grey != row) std::memcpy(row, grey, static_cast<size_t>(page.width()));
      Brighten(brightness, page.width(), row);
    }
    DiffuseStrip<Kernel>(memory, 0, count, page.width());
    for (int i = 0; i < count; ++i) PackBlackAndWhite(memory.Row(0, i), result, first + i);
  }
  return true;
}

}  // namespace
}  // namespace rastrel

HGLOBAL RASTREL_CALL Halftone(HGLOBAL dib, uint16_t method, int brightness, uint16_t* error) {
  using namespace rastrel;
  const auto fail = [error](ErrorCode code) {
    if (error != nullptr) *error = static_cast<uint16_t>(code);
    return nullptr;
  };
  if (dib == nullptr || method > kOrdered) return fail(ErrParameter);
  LockedDib source(dib);
  if (!source) return fail(ErrNoMemory);
  if (!source.Holds(0, kHeaderBytes)) return fail(ErrDIBSize);
  if (!PagePlanes::Takes(source.bits())) {
    source.KeepLocked();  // Kept: callers unlock the page once when they see this code.
    return fail(ErrParameter);
  }
  ConstRows rows = {};
  if (!source.FindRows(kHeaderBytes + PaletteBytes(&source.header()), &rows)) return fail(ErrDIBSize);

  DitherResult result(source.header(), 1);
  if (!result) return fail(ErrNoMemory);
  const GreyRows page(source, rows);
  const bool done = method == kErrorDiffusion
                        ? DiffusePage(page, brightness, result.rows())
                        : JudgePage(page, LimitsOf(static_cast<Method>(method), brightness), result.rows());
  if (!done) return fail(ErrNoMemory);
  return result.Release();
}
