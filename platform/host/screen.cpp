// The screen, palettes, and colours between them.
#include "platform/host/screen.h"

#include <algorithm>
#include <climits>
#include <mutex>

namespace rastrel::host {
namespace {

struct Screen {
  unsigned bits;
  ColourTable palette;  // empty when the screen is no palette device

  bool isIndexed() const { return bits <= 8; }
  const ColourTable& colours() const { return palette.count != 0 ? palette : StandardColours(bits); }
};
std::mutex screenMutex;
constinit Screen screen = {32, {}};

Screen CurrentScreen() {
  const std::lock_guard lock(screenMutex);
  return screen;
}

constexpr Rgb RgbOf(const PALETTEENTRY& entry) {
  return rastrel::RgbOf(entry.peRed, entry.peGreen, entry.peBlue);
}

// Between red in the low byte and red in the high one.
constexpr uint32_t SwappedEnds(uint32_t colour) {
  return (colour & 0xFF) << 16 | (colour & 0xFF00) | (colour >> 16 & 0xFF);
}

ColourTable FirstColours(const PALETTEENTRY* entries, unsigned count) {
  ColourTable table;
  table.count = std::min(count, 256u);
  for (unsigned i = 0; i < table.count; ++i) table.colours[i] = RgbOf(entries[i]);
  return table;
}

// Null when none is selected or it has been deleted.
const Palette* SelectedPalette(const Context& context) {
  return context.palette == nullptr ? nullptr : FindPalette(context.palette);
}

// The colour that a PALETTEINDEX stands for. An index that there is no entry for stands for entry 0.
Rgb ColourOfIndex(const Context& context, const Screen& shown, unsigned index) {
  const Palette* palette = SelectedPalette(context);
  if (palette == nullptr && shown.isIndexed()) {
    return shown.colours().colours[index < shown.colours().count ? index : 0];
  }
  if (palette == nullptr) palette = FindPalette(StockPalette());
  return RgbOf(palette->entries[index < palette->count ? index : 0]);
}

Rgb NearestOnScreen(const Screen& shown, Rgb colour) {
  if (shown.isIndexed()) return shown.colours().colours[NearestIndex(shown.colours(), colour)];
  return shown.bits == 16 ? ExpandedFrom555(PackedTo555(colour)) : colour;
}

}  // namespace

unsigned ScreenBits() {
  const std::lock_guard lock(screenMutex);
  return screen.bits;
}

ColourTable ColoursFor(const Context& context, PixelFormat format) {
  if (!format.isIndexed()) return {};
  const unsigned depth = format.depth();
  if (depth == 1) return StandardColours(1);
  ColourTable table;
  if (const Palette* palette = SelectedPalette(context)) {
    table = FirstColours(palette->entries, palette->count);
  } else {
    const Screen shown = CurrentScreen();
    table = shown.bits == depth ? shown.colours() : StandardColours(depth);
  }
  table.count = std::min(table.count, 1u << format.valueBits());
  return table;
}

}  // namespace rastrel::host

using namespace rastrel;
using namespace rastrel::host;

int RastrelHostSetScreen(int bitsPerPixel, const PALETTEENTRY* palette, int entries) {
  if (bitsPerPixel < 0 || !IsKnownDepth(static_cast<unsigned>(bitsPerPixel))) return 0;
  const int mostEntries = bitsPerPixel <= 8 ? 1 << bitsPerPixel : 0;
  if (entries < 0 || entries > mostEntries || (entries != 0 && palette == nullptr)) return 0;
  const Screen set = {static_cast<unsigned>(bitsPerPixel),
                      FirstColours(palette, static_cast<unsigned>(entries))};
  const std::lock_guard lock(screenMutex);
  screen = set;
  return 1;
}

int GetDeviceCaps(HDC context, int index) {
  if (FindContext(context) == nullptr) return 0;
  const Screen shown = CurrentScreen();
  switch (index) {
    case BITSPIXEL:
      return static_cast<int>(shown.bits);
    case PLANES:
      return 1;
    case NUMCOLORS:
      return shown.isIndexed() ? 1 << shown.bits : -1;
    case SIZEPALETTE:
      return static_cast<int>(shown.palette.count);
    default:
      return 0;
  }
}

unsigned GetPaletteEntries(HPALETTE palette, unsigned first, unsigned count, PALETTEENTRY* entries) {
  const Palette* found = FindPalette(palette);
  if (found == nullptr) return 0;
  if (entries == nullptr) return found->count;
  if (first >= found->count) return 0;
  const unsigned copied = std::min(count, found->count - first);
  std::copy_n(found->entries + first, copied, entries);
  return copied;
}

HPALETTE SelectPalette(HDC context, HPALETTE palette, BOOL /*forceBackground*/) {
  Context* found = FindContext(context);
  if (found == nullptr || FindPalette(palette) == nullptr) return nullptr;
  HPALETTE before = found->palette == nullptr ? StockPalette() : found->palette;
  found->palette = palette == StockPalette() ? nullptr : palette;
  return before;
}

UINT RealizePalette(HDC context) {
  const Context* found = FindContext(context);
  const Palette* palette = found == nullptr ? nullptr : SelectedPalette(*found);
  return palette == nullptr ? 0 : palette->count;
}

UINT GetSystemPaletteEntries(HDC context, UINT first, UINT count, PALETTEENTRY* entries) {
  if (FindContext(context) == nullptr) return 0;
  const Screen shown = CurrentScreen();
  if (!shown.isIndexed()) return 0;
  const ColourTable& table = shown.colours();
  if (entries == nullptr) return table.count;
  if (first >= table.count) return 0;
  const UINT copied = std::min(count, table.count - first);
  for (UINT i = 0; i < copied; ++i) {
    const Rgb colour = table.colours[first + i];
    entries[i] = {static_cast<uint8_t>(RedOf(colour)), static_cast<uint8_t>(GreenOf(colour)),
                  static_cast<uint8_t>(BlueOf(colour)), 0};
  }
  return copied;
}

COLORREF GetNearestColor(HDC context, COLORREF colour) {
  const Context* found = FindContext(context);
  if (found == nullptr) return CLR_INVALID;
  const Screen shown = CurrentScreen();
  const Rgb wanted = colour >> 24 == 1 ? ColourOfIndex(*found, shown, colour & 0xFFFF) : SwappedEnds(colour);
  return SwappedEnds(NearestOnScreen(shown, wanted));
}

UINT GetNearestPaletteIndex(HPALETTE palette, COLORREF colour) {
  const Palette* found = FindPalette(palette);
  if (found == nullptr) return CLR_INVALID;
  const Rgb wanted = SwappedEnds(colour);
  UINT nearest = 0;
  int least = INT_MAX;
  for (UINT i = 0; i < found->count; ++i) {
    const int distance = SquaredDistance(RgbOf(found->entries[i]), wanted);
    if (distance < least) {
      least = distance;
      nearest = i;
    }
  }
  return nearest;
}
