// Pages of any depth as grey ones.
#include <algorithm>
#include <cstring>

#include "frame/dib.h"
#include "frame/rastrel.h"
#include "frame/thread_state.h"
#include "pixels/kernels.h"
#include "tone/mono_to_grey.h"

namespace rastrel {
namespace {

// How much of a colour is its grey. Sums of 255 times the weights fit 16 bits.
struct Weighted {
  static constexpr uint16_t kRed = 8, kGreen = 15, kBlue = 3;
};
struct Averaged {
  static constexpr uint16_t kRed = 1, kGreen = 1, kBlue = 1;
};

template <class Weights>
constexpr uint8_t GreyOf(unsigned red, unsigned green, unsigned blue) {
  constexpr unsigned kTotal = Weights::kRed + Weights::kGreen + Weights::kBlue;
  return static_cast<uint8_t>((Weights::kRed * red + Weights::kGreen * green + Weights::kBlue * blue) /
                              kTotal);
}

// ---- true colour ------------------------------------------------------------------------------------------

// Writes the greys of `count` pixels of blue, green, red.
template <class Weights>
void TurnPixels(const uint8_t* pixels, size_t count, uint8_t* grey) {
  for (size_t i = 0; i < count; ++i) {
    grey[i] = GreyOf<Weights>(pixels[3 * i + 2], pixels[3 * i + 1], pixels[3 * i]);
  }
}

// The same, 32 pixels at a time. In half the time or less: compilers take the colours apart in more steps.
//
// 16 pixels are 48 bytes, three times 16, which lie in one half each of three wide vectors; the other halves
// have the next 16 pixels. Each colour is in every third place, and in other places of each vector, so that
// one vector can take in all of it. Then one shuffle brings it in order.
template <class Weights>
RASTREL_FOR_AVX2 void TurnPixelsAvx2(const uint8_t* pixels, size_t count, uint8_t* grey) {
  using Half = uint8_t __attribute__((vector_size(16)));
  using Bytes = uint8_t __attribute__((vector_size(32)));
  using Words = uint16_t __attribute__((vector_size(32)));
  constexpr size_t kHalf = 16;
  constexpr Bytes kFirst = {255, 0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 255,
                            255, 0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 255};
  constexpr Bytes kSecond = {0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0,
                             0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0};
  constexpr Bytes kThird = ~(kFirst | kSecond);
  constexpr Words kLow = {255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255};
  constexpr uint16_t kTotal = Weights::kRed + Weights::kGreen + Weights::kBlue;

  size_t x = 0;
  for (; x + 2 * kHalf <= count; x += 2 * kHalf) {
    Bytes parts[3];
    for (size_t i = 0; i < 3; ++i) {
      Half low;
      Half high;
      std::memcpy(&low, pixels + 3 * x + i * kHalf, kHalf);
      std::memcpy(&high, pixels + 3 * (x + kHalf) + i * kHalf, kHalf);
      parts[i] = __builtin_shufflevector(low, high, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16,
                                         17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31);
    }
    const Bytes blues = (parts[0] & kFirst) | (parts[1] & kThird) | (parts[2] & kSecond);
    const Bytes greens = (parts[0] & kSecond) | (parts[1] & kFirst) | (parts[2] & kThird);
    const Bytes reds = (parts[0] & kThird) | (parts[1] & kSecond) | (parts[2] & kFirst);
    const auto blue = reinterpret_cast<Words>(
        __builtin_shufflevector(blues, blues, 0, 3, 6, 9, 12, 15, 2, 5, 8, 11, 14, 1, 4, 7, 10, 13, 16, 19,
                                22, 25, 28, 31, 18, 21, 24, 27, 30, 17, 20, 23, 26, 29));
    const auto green = reinterpret_cast<Words>(
        __builtin_shufflevector(greens, greens, 1, 4, 7, 10, 13, 0, 3, 6, 9, 12, 15, 2, 5, 8, 11, 14, 17, 20,
                                23, 26, 29, 16, 19, 22, 25, 28, 31, 18, 21, 24, 27, 30));
    const auto red = reinterpret_cast<Words>(
        __builtin_shufflevector(reds, reds, 2, 5, 8, 11, 14, 1, 4, 7, 10, 13, 0, 3, 6, 9, 12, 15, 18, 21, 24,
                                27, 30, 17, 20, 23, 26, 29, 16, 19, 22, 25, 28, 31));
    const Words even =
        ((red & kLow) * Weights::kRed + (green & kLow) * Weights::kGreen + (blue & kLow) * Weights::kBlue) /
        kTotal;
    const Words odd =
        ((red >> 8) * Weights::kRed + (green >> 8) * Weights::kGreen + (blue >> 8) * Weights::kBlue) / kTotal;
    const Words both = even | odd << 8;
    std::memcpy(grey + x, &both, sizeof(both));
  }
  TurnPixels<Weights>(pixels + 3 * x, count - x, grey + x);
}

template <class Weights>
constexpr Kernel kTurn = Kernel(TurnPixels<Weights>).With(Processor::kAvx2, TurnPixelsAvx2<Weights>);

void TurnTrueColour(const ConstRows& page, bool weighted, const Rows& result) {
  const auto turn = (weighted ? kTurn<Weighted> : kTurn<Averaged>).Best();
  const auto width = static_cast<size_t>(page.width);
  for (int y = 0; y < page.height; ++y) {
    uint8_t* grey = result.StoredRow(y);
    turn(page.StoredRow(y), width, grey);
    std::memset(grey + width, 0, result.stride - width);
  }
}

// ---- the operation ----------------------------------------------------------------------------------------

// What all results have of the source. A palette of `colours` entries follows.
Header ResultHeader(const Header& source, unsigned bits, uint32_t colours) {
  Header header = HeaderLike(source, bits, colours);
  header.biPlanes = source.biPlanes;
  header.biClrImportant = source.biClrImportant;
  return header;
}

// 1 and 24 bits. At 1 bit a set bit is white whatever the colour table says, unlike in
// ConvertMonoDIBtoGrayscale. Kept: callers of ConvColorDIBtoGrayscale compare its pages with stored ones.
HGLOBAL TurnPixelsGrey(const LockedDib& page, const ConstRows& rows, bool weighted, uint32_t method,
                       ThreadState& state) {
  GreyPage result(ResultHeader(page.header(), 8, 256));
  if (const ErrorCode failure = result.Failure()) return state.Fail(failure);
  if (page.bits() == 24) {
    TurnTrueColour(rows, weighted, result.rows());
  } else if (const ErrorCode failure = TurnMonoGrey(rows, true, method, result.rows())) {
    return state.Fail(failure);
  }
  return result.Release();
}

// 4 and 8 bits. Entries that the source does not have are black.
HGLOBAL TurnPaletteGrey(const LockedDib& page, const ConstRows& rows, bool weighted, ThreadState& state) {
  const uint32_t colours = 1u << page.bits();
  const size_t paletteBytes = colours * sizeof(RGBQUAD);
  const uint64_t imageBytes = DIBImageBytes(page.width(), page.height(), page.bits());
  NewBlock result(kHeaderBytes + paletteBytes + imageBytes, Content::kUnset);
  if (const ErrorCode failure = result.Failure()) return state.Fail(failure);

  const Header header = ResultHeader(page.header(), page.bits(), colours);
  std::memcpy(result.bytes(), &header, sizeof(header));
  RGBQUAD palette[256] = {};
  page.ReadPalette(std::min(colours, DIBNumColors(&page.header())), kBlack, palette);
  for (RGBQUAD& entry : palette) {
    const uint8_t grey = weighted ? GreyOf<Weighted>(entry.rgbRed, entry.rgbGreen, entry.rgbBlue)
                                  : GreyOf<Averaged>(entry.rgbRed, entry.rgbGreen, entry.rgbBlue);
    entry = {grey, grey, grey, 0};
  }
  std::memcpy(result.bytes() + kHeaderBytes, palette, paletteBytes);
  std::memcpy(result.bytes() + kHeaderBytes + paletteBytes, rows.first, static_cast<size_t>(imageBytes));
  return result.Release();
}

// Other depths come out as a page of 8 bits that is all 0 and has no palette. Kept: callers go on
// with a page where they would stop at a failure.
// Whoever takes no colours for a full table still finds rows.
HGLOBAL MakeBlackPage(const LockedDib& page, ThreadState& state) {
  const Header header = ResultHeader(page.header(), 8, 0);
  NewBlock result(kHeaderBytes + DIBImageBytes(page.width(), page.height(), 8) + PaletteBytes(&header),
                  Content::kZeroed);
  if (const ErrorCode failure = result.Failure()) return state.Fail(failure);
  std::memcpy(result.bytes(), &header, sizeof(header));
  return result.Release();
}

HGLOBAL ColourToGrey(HGLOBAL dib, bool weighted, uint32_t method) {
  ThreadState& state = GetThreadState();
  state.lastError = ErrSuccess;

  if (dib == nullptr) return state.Fail(ErrParameter);
  LockedDib page(dib);
  if (!page) return state.Fail(ErrLockMemory);
  if (!page.Holds(0, kHeaderBytes)) return state.Fail(ErrDIBSize);
  const Header& header = page.header();
  if (header.biSize != kHeaderBytes) return state.Fail(ErrParameter);
  if (header.biCompression != BI_RGB) return state.Fail(ErrCompressed);
  if (header.biWidth == 0 || header.biHeight == 0) return state.Fail(ErrDIBSize);
  if (page.bits() == 1 && method >= kMonoMethods) return state.Fail(ErrParameter);
  ConstRows rows = {};
  if (!page.FindRows(kHeaderBytes + PaletteBytes(&header), &rows)) return state.Fail(ErrDIBSize);

  HGLOBAL result = nullptr;
  switch (page.bits()) {
    case 1:
    case 24:
      result = TurnPixelsGrey(page, rows, weighted, method, state);
      break;
    case 4:
    case 8:
      result = TurnPaletteGrey(page, rows, weighted, state);
      break;
    default:
      result = MakeBlackPage(page, state);
      break;
  }
  if (result != nullptr) page.KeepLocked();  // Kept: callers unlock the page once after a success.
  return result;
}

}  // namespace
}  // namespace rastrel

HGLOBAL RASTREL_CALL ConvColorDIBtoGrayscale(HGLOBAL dib, int weighted, uint32_t method) {
  return rastrel::ColourToGrey(dib, weighted != 0, method);
}
