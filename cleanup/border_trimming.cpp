// The black margins at a page's sides made white.
#include <algorithm>
#include <bit>
#include <cstring>

#include "frame/dib.h"
#include "frame/rastrel.h"

namespace rastrel {
namespace {

constexpr unsigned kLightFrom = 100;  // of the mean of blue, green and red
constexpr uint8_t kWhiteByte = 255;   // Kept: an index of 255 at 8 bits, whatever the table holds there.

// Sets the 0 bits from the left end of `bytes` up to the first 1.
void WhitenFromLeft(uint8_t* bytes, size_t count) {
  size_t k = 0;
  while (k < count && bytes[k] == 0) bytes[k++] = 0xFF;
  if (k < count) bytes[k] = static_cast<uint8_t>(bytes[k] | ~(0xFFu >> std::countl_zero(bytes[k])));
}

// Sets the 0 bits from the right end of `bytes` up to the last 1.
void WhitenFromRight(uint8_t* bytes, size_t count) {
  while (count > 0 && bytes[count - 1] == 0) bytes[--count] = 0xFF;
  if (count > 0) {
    uint8_t& last = bytes[count - 1];
    last = static_cast<uint8_t>(last | (last - 1));  // the 0 bits below the lowest 1
  }
}

void TrimBits(const LockedDib& page, const Rows& rows) {
  // Kept: dark pixels have their bit set, which makes them light only where entry 0 is black. Other pages
  // stay as they are.
  if (!page.FirstColourIsBlack()) return;
  for (int y = 0; y < rows.height; ++y) {
    uint8_t* row = rows.StoredRow(y);
    WhitenFromLeft(row, rows.stride);
    // Kept: the walk from the right starts in byte width / 8. Where the width fills the stride this is the
    // first byte of the next row, or the byte before it in the last row.
    const size_t lastByte = static_cast<size_t>(rows.width) / 8;
    const bool behindLastRow = lastByte == rows.stride && y == rows.height - 1;
    WhitenFromRight(row, behindLastRow ? lastByte : lastByte + 1);
  }
}

// What a margin walk does with a pixel.
enum class Margin { kPaint, kSkip, kStop };

// A dark pixel is painted. A light one ends the margin when the next one is light too and is painted when it
// is not; near the end of the walk, where nothing stands next to it, it is left alone.
template <class IsLight>
Margin Judge(const IsLight& isLight, int64_t pixel, int64_t next, bool hasNext) {
  if (!isLight(pixel)) return Margin::kPaint;
  if (!hasNext) return Margin::kSkip;
  return isLight(next) ? Margin::kStop : Margin::kPaint;
}

void TrimIndices(const LockedDib& page, const Rows& rows) {
  // An index beyond the stored table is looked up in what the block holds there now, painted pixels included.
  const auto isLightEntry = [&page](uint8_t index) {
    const size_t at = kHeaderBytes + index * sizeof(RGBQUAD);
    unsigned sum = 0;
    for (size_t i = at; i < at + 3 && i < page.size(); ++i) sum += page.bytes()[i];
    return sum / 3 >= kLightFrom;
  };
  bool light[256];
  for (unsigned i = 0; i < 256; ++i) light[i] = isLightEntry(static_cast<uint8_t>(i));
  const unsigned stored = page.header().biClrUsed == 0 ? 256 : page.header().biClrUsed;

  for (int y = 0; y < rows.height; ++y) {
    uint8_t* row = rows.StoredRow(y);
    const auto isLight = [&](int64_t x) { return row[x] < stored ? light[row[x]] : isLightEntry(row[x]); };
    const auto last = static_cast<int64_t>(rows.stride) - 1;
    for (int64_t x = 0; x <= last; ++x) {
      const Margin margin = Judge(isLight, x, x + 1, x < last);
      if (margin == Margin::kStop) break;
      if (margin == Margin::kPaint) row[x] = kWhiteByte;
    }
    for (int64_t x = rows.width - 1; x >= 0; --x) {
      const Margin margin = Judge(isLight, x, x - 1, x > 0);
      if (margin == Margin::kStop) break;
      if (margin == Margin::kPaint) row[x] = kWhiteByte;
    }
  }
}

void TrimTrueColour(const Rows& rows) {
  const auto stride = static_cast<int64_t>(rows.stride);
  for (int y = 0; y < rows.height; ++y) {
    uint8_t* row = rows.StoredRow(y);
    // Kept: a pixel that starts in the row's padding may reach into the next row and is read and painted
    // there. One that reaches behind the last row is dark, and only its bytes before the end are painted.
    const int64_t end = stride * (rows.height - y);
    const auto isLight = [row, end](int64_t at) {
      return at + 3 <= end && (row[at] + row[at + 1] + row[at + 2]) / 3u >= kLightFrom;
    };
    const auto paint = [row, end](int64_t at) {
      std::fill(row + at, row + std::min(at + 3, end), kWhiteByte);
    };
    for (int64_t at = 0; at < stride; at += 3) {
      const Margin margin = Judge(isLight, at, at + 3, at < stride - 5);
      if (margin == Margin::kStop) break;
      if (margin == Margin::kPaint) paint(at);
    }
    for (int64_t at = 3 * (int64_t{rows.width} - 1); at >= 0; at -= 3) {
      const Margin margin = Judge(isLight, at, at - 3, at + 2 >= 6);
      if (margin == Margin::kStop) break;
      if (margin == Margin::kPaint) paint(at);
    }
  }
}

// The rows of a page whose header size is not examined.
bool FindPageRows(const LockedDib& page, Rows* rows) {
  Header header = page.header();
  header.biSize = sizeof(Header);
  return page.FindRows(kHeaderBytes + PaletteBytes(&header), rows);
}

// Trims a page in place. Returns false when its depth or size does not allow it.
bool TrimMargins(const LockedDib& page) {
  Rows rows = {};
  if (!FindPageRows(page, &rows)) return false;
  switch (page.bits()) {
    case 1:
      TrimBits(page, rows);
      return true;
    case 8:
      TrimIndices(page, rows);
      return true;
    case 24:
      TrimTrueColour(rows);
      return true;
    default:
      return false;
  }
}

// Whether TrimMargins would do a page of this depth and size.
bool CanTrim(HGLOBAL dib) {
  const LockedDib page(dib);
  Rows rows = {};
  return page && (page.bits() == 1 || page.bits() == 8 || page.bits() == 24) && FindPageRows(page, &rows);
}

}  // namespace
}  // namespace rastrel

HGLOBAL RASTREL_CALL TrimBlackBorder(HGLOBAL dib) {
  using namespace rastrel;
  if (!CanTrim(dib)) return nullptr;
  HGLOBAL copy = DuplicateDIB(dib);
  if (copy == nullptr) return nullptr;
  if (TrimMargins(LockedDib(copy))) return copy;
  GlobalFree(copy);
  return nullptr;
}
