// Device bitmaps: the platform turns pixels from one form into the other; headers, colour tables and the
// device contexts are chosen here.
#include "frame/device_bitmaps.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "frame/device_context.h"
#include "frame/dib.h"
#include "frame/thread_state.h"
#include "pixels/colours.h"

namespace rastrel {
namespace {

// Allocated behind the rows that are made from a bitmap. Kept: callers see the block's size.
constexpr uint64_t kSpareBytes = 50;

unsigned EntriesOf(HPALETTE palette) {
  WORD entries = 0;
  return palette != nullptr && GetObjectA(palette, sizeof(entries), &entries) == sizeof(entries) ? entries
                                                                                                 : 0;
}

Header HeaderFor(const BITMAP& bitmap) {
  const int deviceBits = bitmap.bmPlanes * bitmap.bmBitsPixel;
  const auto bits = static_cast<uint16_t>(deviceBits <= 1   ? 1
                                          : deviceBits <= 4 ? 4
                                          : deviceBits <= 8 ? 8
                                                            : 24);
  const uint32_t colours = bits < 24 ? 1u << bits : 0;
  Header header = {};
  header.biSize = sizeof(header);
  header.biWidth = bitmap.bmWidth;
  header.biHeight = bitmap.bmHeight;
  header.biPlanes = 1;
  header.biBitCount = bits;
  header.biSizeImage = static_cast<uint32_t>(DIBImageBytes(bitmap.bmWidth, bitmap.bmHeight, bits));
  header.biClrUsed = colours;
  header.biClrImportant = colours;
  return header;
}

// Makes a bitmap as `context` has them from a DIB that holds all its rows, from `rows` on.
HBITMAP MakeBitmap(HDC context, HGLOBAL dib, const LockedDib& source, const uint8_t* rows,
                   ThreadState& state) {
  if (context == nullptr) return nullptr;
  const PaletteOwner palette(CreateDIBPalette(dib));
  const SelectedPalette selected(context, palette.get());
  const auto* info = reinterpret_cast<const BITMAPINFO*>(source.bytes());
  HBITMAP bitmap = CreateDIBitmap(context, &info->bmiHeader, CBM_INIT, rows, info, DIB_RGB_COLORS);
  if (bitmap == nullptr) state.Fail(ErrCreateBitmap);
  return bitmap;
}

}  // namespace

void FillDIBColorTable(HPALETTE palette, BITMAPINFO* info) {
  const uint32_t colours = DIBNumColors(info);
  const unsigned bits = info->bmiHeader.biBitCount;
  auto* const table = reinterpret_cast<uint8_t*>(info) + sizeof(Header);
  const unsigned entries = EntriesOf(palette);
  if (entries == 0 || entries > colours) {
    const ColourTable& standard = StandardColours(bits);
    if (bits <= 8)
      std::memcpy(table, standard.colours.data(), std::min(colours, standard.count) * sizeof(Rgb));
    return;
  }
  GetPaletteEntries(palette, 0, entries, reinterpret_cast<PALETTEENTRY*>(table));
  for (uint8_t* entry = table; entry != table + entries * sizeof(RGBQUAD); entry += sizeof(RGBQUAD)) {
    std::swap(entry[0], entry[2]);
    entry[3] = 0;
  }
}

}  // namespace rastrel

HGLOBAL RASTREL_CALL ConvertBitmapToDIB(HBITMAP bitmap, HPALETTE palette) {
  using namespace rastrel;
  BITMAP description;
  if (bitmap == nullptr || !Describe(bitmap, &description)) return nullptr;
  const Header header = HeaderFor(description);
  const uint64_t rowsOffset = kHeaderBytes + PaletteBytes(&header);
  const uint64_t rowsBytes = DIBImageBytes(header.biWidth, header.biHeight, header.biBitCount);
  NewBlock dib(rowsOffset + rowsBytes + kSpareBytes, Content::kZeroed);
  if (!dib) return nullptr;
  std::memcpy(dib.bytes(), &header, sizeof(header));

  const PaletteOwner screenPalette(palette == nullptr && header.biBitCount != 1 ? GetCurrentPalette()
                                                                                : nullptr);
  const HPALETTE colours = palette != nullptr ? palette : screenPalette.get();
  const ScreenContext screen;
  if (!screen) return nullptr;
  const SelectedPalette selected(screen.get(), colours);
  auto* const info = dib.As<BITMAPINFO>();
  FillDIBColorTable(colours, info);
  // The platform may write to the table as well; that stands. What it writes to the header does not.
  if (GetDIBits(screen.get(), bitmap, 0, static_cast<UINT>(header.biHeight), dib.bytes() + rowsOffset, info,
                DIB_RGB_COLORS) == 0) {
    return nullptr;
  }
  std::memcpy(dib.bytes(), &header, sizeof(header));
  return dib.Release();
}

HBITMAP RASTREL_CALL ConvertDIBToBitmap(HGLOBAL dib) {
  using namespace rastrel;
  ThreadState& state = GetThreadState();
  if (dib == nullptr) return nullptr;
  const LockedDib source(dib);
  if (!source) return nullptr;
  const Header& header = source.header();
  if (header.biSize != kHeaderBytes || header.biCompression != BI_RGB) return state.Fail(ErrCreateBitmap);
  ConstRows rows;
  if (!source.FindRows(kHeaderBytes + PaletteBytes(&header), &rows)) return state.Fail(ErrDIBSize);

  // A new memory context is black and white, and so are the bitmaps made for it.
  if (header.biBitCount == 1 && header.biPlanes == 1) {
    const MemoryContext monochrome(nullptr);
    return MakeBitmap(monochrome.get(), dib, source, rows.first, state);
  }
  const ScreenContext screen;
  return MakeBitmap(screen.get(), dib, source, rows.first, state);
}

HBITMAP RASTREL_CALL DuplicateBitmap(HBITMAP bitmap) {
  using namespace rastrel;
  ThreadState& state = GetThreadState();
  BITMAP description;
  if (!Describe(bitmap, &description)) return state.Fail(ErrCopyBits);
  const uint64_t size = uint64_t{static_cast<uint32_t>(description.bmWidthBytes)} *
                        static_cast<uint32_t>(description.bmHeight) * description.bmPlanes;
  const NewBlock bits(size, Content::kUnset);
  if (!bits) return state.Fail(ErrNoMemory);
  if (size > INT32_MAX) return state.Fail(ErrCopyBits);  // more than the platform copies at once
  const auto bytes = static_cast<LONG>(size);
  if (GetBitmapBits(bitmap, bytes, bits.bytes()) != bytes) return state.Fail(ErrCopyBits);
  description.bmBits = bits.bytes();
  return CreateBitmapIndirect(&description);
}

HBITMAP RASTREL_CALL ConvertToMonochromeBitmap(HBITMAP bitmap) {
  using namespace rastrel;
  ThreadState& state = GetThreadState();
  if (bitmap == nullptr) return state.Fail(ErrParameter);
  const WaitCursor cursor;
  BITMAP description;
  if (!Describe(bitmap, &description)) return nullptr;
  description.bmPlanes = 1;
  description.bmBitsPixel = 1;
  struct {
    Header header;
    RGBQUAD colours[2];
  } format = {HeaderFor(description), {kBlack, kWhite}};
  format.header.biClrUsed = 0;
  format.header.biClrImportant = 0;
  auto* const info = reinterpret_cast<BITMAPINFO*>(&format);

  const NewBlock rows(DIBImageBytes(description.bmWidth, description.bmHeight, 1), Content::kUnset);
  if (!rows) return state.Fail(ErrNoMemory);
  const ScreenContext screen;
  if (!screen) return nullptr;
  const auto height = static_cast<UINT>(description.bmHeight);
  if (GetDIBits(screen.get(), bitmap, 0, height, rows.bytes(), info, DIB_RGB_COLORS) == 0) return nullptr;
  BitmapOwner result(CreateBitmap(description.bmWidth, description.bmHeight, 1, 1, nullptr));
  if (!result) return nullptr;
  SetDIBits(screen.get(), result.get(), 0, height, rows.bytes(), info, DIB_RGB_COLORS);
  return result.Release();
}

HBITMAP RASTREL_CALL LoadBitmapFromFile(const char* fileName) {
  HGLOBAL dib = LoadDIBFromFile(fileName);
  if (dib == nullptr) return nullptr;
  HBITMAP bitmap = ConvertDIBToBitmap(dib);
  GlobalFree(dib);
  return bitmap;
}

// The DIB made on the way is never freed, whether or not it could be saved; one would expect it to be. Kept:
// its life is part of the interface.
int RASTREL_CALL SaveBitmap(const char* fileName, HBITMAP bitmap, HPALETTE palette) {
  HGLOBAL dib = ConvertBitmapToDIB(bitmap, palette);
  return dib == nullptr ? 0 : SaveDIB(fileName, dib);
}
