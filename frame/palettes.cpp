// Colour tables turned into the platform's palettes, and the palette that the screen shows.
#include <cstring>

#include "frame/device_context.h"
#include "frame/dib.h"
#include "frame/rastrel.h"
#include "frame/thread_state.h"

namespace rastrel {
namespace {

constexpr uint16_t kPaletteVersion = 0x300;
constexpr uint64_t kMostEntries = 0xFFFF;
constexpr unsigned kFixedEntries = 256;

// The record that a palette is made from, its entries 0 at first.
class PaletteRecord {
 public:
  explicit PaletteRecord(uint64_t entries)
      : block_(entries > kMostEntries ? kMaxBlockBytes + 1 : 8 + entries * sizeof(PALETTEENTRY),
               Content::kZeroed) {
    if (!block_) return;
    const uint16_t head[] = {kPaletteVersion, static_cast<uint16_t>(entries)};
    std::memcpy(block_.bytes(), head, sizeof(head));
  }
  explicit operator bool() const { return static_cast<bool>(block_); }

  PALETTEENTRY* entries() const { return block_.As<LOGPALETTE>()->palPalEntry; }
  HPALETTE Create() const { return CreatePalette(block_.As<LOGPALETTE>()); }

 private:
  NewBlock block_;
};

// Makes a palette of the page's own `colours` entries, all of which the block holds. Null when it cannot be
// made.
HPALETTE PaletteOfTable(const LockedDib& page, uint32_t colours) {
  const PaletteRecord record(colours);
  if (!record) return nullptr;
  const uint8_t* entry = page.bytes() + kHeaderBytes;
  for (uint32_t i = 0; i < colours; ++i, entry += sizeof(RGBQUAD)) {
    record.entries()[i] = {entry[2], entry[1], entry[0], 0};
  }
  return record.Create();
}

// 8 reds and 8 greens in steps of 32, 4 blues in steps of 64, and white in place of the last.
void FillFixedEntries(PALETTEENTRY* entries) {
  for (unsigned i = 0; i < kFixedEntries; ++i) {
    entries[i] = {static_cast<uint8_t>(i % 8 * 32), static_cast<uint8_t>(i / 8 % 8 * 32),
                  static_cast<uint8_t>(i / 64 * 64), 0};
  }
  entries[kFixedEntries - 1] = {255, 255, 255, 0};
}

}  // namespace
}  // namespace rastrel

HPALETTE RASTREL_CALL CreateDIBPalette(HGLOBAL dib) {
  using namespace rastrel;
  ThreadState& state = GetThreadState();
  if (dib == nullptr) return nullptr;
  LockedDib page(dib);
  if (!page) return nullptr;
  if (!page.Holds(0, kHeaderBytes)) return state.Fail(ErrDIBSize);

  if (const uint32_t colours = DIBNumColors(&page.header()); colours != 0) {
    if (colours <= kMostEntries && !page.Holds(kHeaderBytes, PaletteBytes(&page.header())))
      return state.Fail(ErrDIBSize);
    HPALETTE palette = PaletteOfTable(page, colours);
    if (palette == nullptr) state.Fail(ErrCreatePalette);
    return palette;
  }
  const PaletteRecord record(kFixedEntries);
  if (!record) {
    page.KeepLocked();  // Kept: callers unlock the page once when they see this code.
    return nullptr;
  }
  FillFixedEntries(record.entries());
  return record.Create();
}

int RASTREL_CALL InvertDIBPalette(HGLOBAL dib) {
  using namespace rastrel;
  if (dib == nullptr) return 0;
  const LockedDib page(dib);
  if (!page || page.header().biSize != sizeof(Header)) return 0;
  const uint64_t bytes = PaletteBytes(&page.header());
  if (!page.Holds(kHeaderBytes, bytes)) return 0;

  uint8_t* table = page.bytes() + kHeaderBytes;
  for (size_t i = 0; i < bytes; i += sizeof(RGBQUAD)) {
    for (size_t channel = 0; channel < 3; ++channel) table[i + channel] ^= 0xFF;
  }
  return 1;
}

HPALETTE RASTREL_CALL GetCurrentPalette(void) {
  using namespace rastrel;
  ThreadState& state = GetThreadState();
  ScreenContext screen;
  if (!screen) return state.Fail(ErrCreateDC);
  int entries = GetDeviceCaps(screen.get(), SIZEPALETTE);
  if (entries == 0) entries = GetDeviceCaps(screen.get(), NUMCOLORS);
  if (entries < 0) return state.Fail(ErrCreatePalette);

  const PaletteRecord record(static_cast<unsigned>(entries));
  if (!record) {
    screen.KeepTaken();  // Kept: a host that counts its contexts sees one taken for good.
    return state.Fail(ErrCreatePalette);
  }
  GetSystemPaletteEntries(screen.get(), 0, static_cast<unsigned>(entries), record.entries());
  screen.Release();
  return record.Create();
}

int RASTREL_CALL GetSystemPalette(RGBQUAD* entries) {
  using namespace rastrel;
  const ScreenContext screen;
  if (!screen || entries == nullptr) return 0;
  const int count = GetDeviceCaps(screen.get(), SIZEPALETTE);
  if (count == 0) return 0;
  const PaletteOwner palette(GetCurrentPalette());
  if (!palette) return 0;

  const SelectedPalette selected(screen.get(), palette.get());
  for (int i = 0; i < count; ++i) {
    const COLORREF colour = GetNearestColor(screen.get(), PALETTEINDEX(static_cast<WORD>(i)));
    entries[i] = QuadOf(RgbOfReversed(colour));
  }
  return 1;
}
