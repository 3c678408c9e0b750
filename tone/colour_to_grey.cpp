// Pages of any depth as grey ones.
#include <algorithm>
#include <cstring>

#include "frame/dib.h"
#include "frame/rastrel.h"
#include "frame/thread_state.h"
#include "pixels/weighted_greys.h"
#include "tone/mono_to_grey.h"

namespace rastrel {
namespace {

// How much of a colour is its grey.
struct Weighted {
  static constexpr uint16_t kRed = 8, kGreen = 15, kBlue = 3;
};
struct Averaged {
  static constexpr uint16_t kRed = 1, kGreen = 1, kBlue = 1;
};

template <class Weights>
constexpr uint8_t GreyOf(unsigned red, unsigned green, unsigned blue) {
  return WeightedGrey<Weights>(red, green, blue);
}

// ---- true colour ------------------------------------------------------------------------------------------

void TurnTrueColour(const ConstRows& page, bool weighted, const Rows& result) {
  const auto turn = (weighted ? kWeightedGreys<Weighted> : kWeightedGreys<Averaged>).Best();
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
