// What the punch hole removers have in common: a page with a resolution to measure by, the cells of its map,
// discs, and the copy in which holes are white.
#ifndef RASTREL_CLEANUP_PUNCHED_PAGE_H
#define RASTREL_CLEANUP_PUNCHED_PAGE_H

#include <algorithm>
#include <cstdint>

#include "cleanup/darkness.h"
#include "cleanup/progress_window.h"
#include "frame/dib.h"
#include "frame/rastrel.h"

namespace rastrel {

constexpr double kMillimetresPerInch = 25.4;

// A length in inches, to be multiplied by a resolution.
constexpr double Inches(double millimetres) { return millimetres / kMillimetresPerInch; }

enum Cell : uint8_t { kLight = 0, kDark = 1, kErased = 2, kLine = 3 };

// How far from its middle, this far off in the other direction, a disc still has cells: their distance is
// less than the radius. Returns -1 when it has none there.
int64_t HalfChord(int64_t radius, int64_t across);

class PunchedPage {
 public:
  explicit PunchedPage(HGLOBAL dib);
  PunchedPage(const PunchedPage&) = delete;
  PunchedPage& operator=(const PunchedPage&) = delete;
  // Whether this is a page with the same resolution in both directions.
  explicit operator bool() const { return measurable_; }

  const ConstRows& rows() const { return rows_; }
  int dpi() const { return dpi_; }
  int band() const { return band_; }  // columns that may have holes, from the left edge

  // Opens the progress window if it is to be shown. Returns false when it does not open and when the page
  // has a depth without holes. Kept: then the window stays open and its parent disabled.
  bool Start(uint32_t work, int showProgress, HWND parent);
  ProgressWindow& window() { return window_; }
  ForegroundTest DarkPixels() const { return ForegroundTest(page_, Foreground::kDark, kWhite); }

  // Returns a copy in which the pixels are white that `forEachErased(paint)` hands to paint(x, y), and closes
  // the window. Kept: without a copy, or a lock on it, the window stays open and its parent disabled, and a
  // copy that cannot be locked is not freed. Callers clean up.
  template <class ForEachErased>
  HGLOBAL PaintedCopy(ForEachErased forEachErased) {
    HGLOBAL result = DuplicateDIB(dib_);
    if (result == nullptr) return nullptr;
    const LockedDib copy(result);
    if (!copy) return nullptr;
    Rows rows = {};
    if (copy.FindRows(PixelOffset(copy), &rows)) Paint(copy, rows, forEachErased);
    window_.Close();
    return result;
  }

 private:
  static uint64_t PixelOffset(const LockedDib& dib) { return kHeaderBytes + PaletteBytes(&dib.header()); }

  // Kept: white is index 255 at 8 bits, whatever the table holds there.
  template <class ForEachErased>
  static void Paint(const LockedDib& copy, const Rows& rows, ForEachErased forEachErased) {
    if (copy.bits() == 24) {
      forEachErased([&rows](int x, int y) { std::fill_n(rows.PageRow(y) + 3 * size_t(x), 3, uint8_t{255}); });
    } else if (copy.bits() == 8) {
      forEachErased([&rows](int x, int y) { rows.PageRow(y)[x] = 255; });
    } else {
      const bool lightIsOne = copy.FirstColourIsBlack();
      forEachErased([&rows, lightIsOne](int x, int y) {
        const unsigned bit = 0x80u >> x % 8;
        uint8_t& byte = rows.PageRow(y)[x / 8];
        byte = static_cast<uint8_t>(lightIsOne ? byte | bit : byte & ~bit);
      });
    }
  }

  HGLOBAL dib_;
  LockedDib page_;
  ConstRows rows_ = {};
  ProgressWindow window_;
  bool measurable_;
  int dpi_;
  int band_;
};

}  // namespace rastrel

#endif
