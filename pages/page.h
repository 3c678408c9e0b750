// A page in memory: the owner of a DIB block, typed access to its rows, and the few changes of form that the
// command needs around the library's operations.
#ifndef RASTREL_PAGES_PAGE_H
#define RASTREL_PAGES_PAGE_H

#include <rastrel_pages.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "pages/planes.h"

namespace rastrel::pages {

// What went wrong with one page or file, in words for the person at the terminal.
class PageError : public std::runtime_error {
 public:
  explicit PageError(const std::string& text, int code = ErrPageRefused)
      : std::runtime_error(text), code_(code) {}
  int code() const { return code_; }  // as PagesError returns it

 private:
  int code_;
};

// Owns a DIB block.
class Dib {
 public:
  Dib() = default;
  explicit Dib(HGLOBAL block) : block_(block) {}
  ~Dib() { Reset(); }
  Dib(Dib&& other) noexcept : block_(std::exchange(other.block_, nullptr)) {}
  Dib& operator=(Dib&& other) noexcept {
    if (this != &other) {
      Reset();
      block_ = std::exchange(other.block_, nullptr);
    }
    return *this;
  }
  Dib(const Dib&) = delete;
  Dib& operator=(const Dib&) = delete;
  explicit operator bool() const { return block_ != nullptr; }
  HGLOBAL handle() const { return block_; }
  HGLOBAL Release() { return std::exchange(block_, nullptr); }
  void Reset() {
    if (block_ != nullptr) GlobalFree(Release());
  }

 private:
  HGLOBAL block_ = nullptr;
};

struct Resolution {  // pixels per metre; 0 where a file has none
  int32_t x = 0;
  int32_t y = 0;
};
int32_t PixelsPerMetre(double dotsPerInch);
double DotsPerInch(int32_t pixelsPerMetre);

// A page locked for the life of the view. Pages have a full colour table (2, 16 or 256 entries, none at 24
// bits), as MakePage and NormalisePage leave them.
class PageView {
 public:
  explicit PageView(const Dib& dib);
  ~PageView() { GlobalUnlock(block_); }
  PageView(const PageView&) = delete;
  PageView& operator=(const PageView&) = delete;

  BITMAPINFOHEADER& header() const { return *header_; }
  int width() const { return header_->biWidth; }
  int height() const { return header_->biHeight; }
  int bits() const { return header_->biBitCount; }
  size_t stride() const { return stride_; }
  Resolution resolution() const { return {header_->biXPelsPerMeter, header_->biYPelsPerMeter}; }

  std::span<RGBQUAD> palette() const;
  std::span<uint8_t> pixels() const { return {rows_, stride_ * static_cast<size_t>(height())}; }
  // Row 0 is the top of the page.
  uint8_t* PageRow(int y) const { return rows_ + static_cast<size_t>(height() - 1 - y) * stride_; }

 private:
  HGLOBAL block_;
  BITMAPINFOHEADER* header_;
  uint8_t* rows_ = nullptr;
  size_t stride_ = 0;
};

// Whether a pixel is the same in a row of `page` and of another page of its depth: 1, 8 or 24 bits.
inline bool SamePixel(const PageView& page, const uint8_t* rowA, const uint8_t* rowB, int x) {
  const auto i = static_cast<size_t>(x);
  switch (page.bits()) {
    case 1:
      return ((rowA[i / 8] ^ rowB[i / 8]) >> (7 - i % 8) & 1) == 0;
    case 8:
      return rowA[i] == rowB[i];
    default:
      return std::equal(rowA + 3 * i, rowA + 3 * i + 3, rowB + 3 * i);
  }
}

// One pixel's colour as it stands in a page: an index, or blue, green and red at 24 bits.
struct Ink {
  uint8_t bytes[3] = {0, 0, 0};
};

COLORREF ColourOf(const PageView& page, Ink ink);

inline unsigned GetIndex(const uint8_t* row, int bits, int x) {
  if (bits == 8) return row[x];
  const int perByte = 8 / bits;
  return row[x / perByte] >> ((perByte - 1 - x % perByte) * bits) & ((1u << bits) - 1);
}

// Bytes from row to row.
uint64_t StrideOf(int64_t width, int bits);

// Throws when no block can hold such a page.
void CheckSize(int64_t width, int64_t height, int bits);

// Makes a page of `bits` (1, 4, 8, 24) with a grey ramp from black to white as its table and its rows unset.
// Throws when it would not fit into a block or into memory.
Dib MakePage(int64_t width, int64_t height, int bits, Resolution resolution);

// Takes a block as the library loads it and returns a page: checks its depth and size, fills its table up
// (entries that the file lacks are white), and calls UseGreyRamp.
Dib NormalisePage(Dib dib);

// Whether the table is the ramp from black to white.
bool HasGreyRamp(const PageView& page);
// Makes the table of a white-and-black page, or of a page of 8 bits in any greys, the ramp, with the indices
// to match. Changes no other page.
void UseGreyRamp(const PageView& page);
bool NeedsGreyRamp(const PageView& page);

// Replaces a resolution that is missing or means nothing: by that of the other direction, else `dpi`, else
// 300. Returns whether the last was the case.
bool CompleteResolution(BITMAPINFOHEADER* header, double dpi);

Dib Duplicate(const Dib& page);
// A page of 24 bits in 8-bit grey.
Dib ToGrey(const Dib& page);
// 1 or 4 bits to 8 with the same indices, and 8 to 4.
Dib WidenTo8(const Dib& page);
Dib NarrowTo4(const Dib& page);

// Brightness of each index of a page of up to 8 bits, (B + G + R) / 3 as the cleanup operations take it.
std::vector<uint8_t> BrightnessTable(const PageView& page);
// The brightness of one pixel of a row of a page; `table` is from BrightnessTable.
uint8_t Brightness(const PageView& page, const std::vector<uint8_t>& table, const uint8_t* row, int x);
// Writes the brightness of columns `from` up to `to` of a page row.
void RowBrightness(const PageView& page, const std::vector<uint8_t>& table, int y, int from, int to,
                   uint8_t* out);

// Size, depth and resolution.
PageInfo InfoOf(const PageView& page);

// What the page model is worked out on. The brightness of a colour is its luma here, as the eye sees it; the
// operations of the core take the mean of red, green and blue (BrightnessTable).
constexpr uint8_t Luma(int red, int green, int blue) {
  return static_cast<uint8_t>((77 * red + 150 * green + 29 * blue) >> 8);  // BT.601 in 256ths
}
// Row by row, for what is looked at once. Out has room for the page's width.
class GreyRows {
 public:
  explicit GreyRows(const PageView& page);
  void Read(int y, uint8_t* out) const;

 private:
  const PageView& page_;
  uint8_t table_[256] = {};
  bool isPlain_ = false;  // the pixels are the greys
};
// A page of any depth.
BytePlane GreyOf(const PageView& page);
// The dark pixels of a page of 1 bit, and a page of 1 bit with those dark pixels.
BitPlane InkOf1Bit(const PageView& page);
void PutInk(const BitPlane& ink, const PageView& page);

// The lightest or darkest ink of a page of up to 8 bits; white or black at 24.
Ink ExtremeInk(const PageView& page, bool light);
// The paper's colour: the most frequent ink on the light (or dark) side of the middle.
Ink GroundInk(const PageView& page, bool light);
// Paints columns `from` up to `to` of a page row.
void PaintRow(const PageView& page, int y, int from, int to, Ink ink);
// Exchanges `ink` with 0 everywhere, padding included. Twice changes nothing.
void ExchangeWithZero(const PageView& page, Ink ink);
bool IsZero(const PageView& page, Ink ink);
// Runs an operation that leaves 0 where it uncovers something, so that `ground` stands there instead.
template <class Operation>
Dib OnGround(const Dib& page, Ink ground, Operation operation) {
  if (IsZero(PageView(page), ground)) return operation(page);
  const Dib exchanged = Duplicate(page);  // other threads may look at the page
  ExchangeWithZero(PageView(exchanged), ground);
  Dib result = operation(exchanged);
  ExchangeWithZero(PageView(result), ground);
  return result;
}
// Undoes a picture's orientation as TIFF and EXIF number it (1 to 8; 1 and others change nothing).
Dib Upright(Dib page, int orientation);

// The result of a library operation that sets the thread's error.
Dib Checked(HGLOBAL result);
// Of one that sets none; `otherwise` is what is wrong where there is no result.
Dib Checked(HGLOBAL result, std::string_view otherwise);

// The text of the calling thread's last library error.
std::string LibraryError();

}  // namespace rastrel::pages

#endif
