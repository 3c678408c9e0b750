#include "tone/dither_frame.h"

#include <cstring>
#include <initializer_list>

#include "pixels/words.h"

namespace rastrel {
namespace {

// Bit 3 is red, bit 2 green, bit 1 blue; bit 0 shows in the reserved byte alone. Kept: callers of
// dithers compare their pages with stored ones, colour tables included.
constexpr RGBQUAD EightColoursEntry(unsigned index) {
  const auto full = [index](unsigned bit) { return static_cast<uint8_t>((index >> bit & 1) * 255); };
  return {full(1), full(2), full(3), full(0)};
}

RGBQUAD PaletteEntry(int bits, unsigned index) {
  return bits == 4 ? EightColoursEntry(index)
                   : QuadOf(StandardColours(static_cast<unsigned>(bits)).colours[index]);
}

uint32_t Colours(int bits) { return 1u << bits; }

uint64_t ResultBytes(const Header& source, int bits) {
  return kHeaderBytes + Colours(bits) * sizeof(RGBQUAD) +
         DIBImageBytes(source.biWidth, source.biHeight, static_cast<unsigned>(bits));
}

void ClearFrom(int written, const Rows& rows, uint8_t* row) {
  std::memset(row + written, 0, rows.stride - static_cast<size_t>(written));
}

}  // namespace

void ReadTrueColourGrey(const uint8_t* pixels, size_t count, uint8_t* grey) {
  for (size_t i = 0; i < count; ++i) grey[i] = GreyOf(pixels[3 * i + 2], pixels[3 * i + 1], pixels[3 * i]);
}

PagePlanes::PagePlanes(const LockedDib& page, const ConstRows& rows) : rows_(rows), bits_(page.bits()) {
  RGBQUAD palette[256];
  page.ReadPalette(256, kBlack, palette);
  indicesAreGreys_ = bits_ == 8;
  for (unsigned i = 0; i < 256; ++i) {
    red_.one[i] = palette[i].rgbRed;
    green_.one[i] = palette[i].rgbGreen;
    blue_.one[i] = palette[i].rgbBlue;
    grey_.one[i] = GreyOf(palette[i].rgbRed, palette[i].rgbGreen, palette[i].rgbBlue);
    indicesAreGreys_ = indicesAreGreys_ && grey_.one[i] == i;
  }
  for (Table* table : {&red_, &green_, &blue_, &grey_}) {
    for (unsigned i = 0; i < 256; ++i) {
      table->two[i][0] = table->one[i >> 4];
      table->two[i][1] = table->one[i & 15];
    }
  }
}

void PagePlanes::LookUp(int row, const Table& table, uint8_t* to) const {
  const uint8_t* indices = rows_.StoredRow(row);
  if (bits_ == 8) {
    for (int x = 0; x < width(); ++x) to[x] = table.one[indices[x]];
  } else {
    for (int i = 0; i <= (width() - 1) / 2; ++i) std::memcpy(to + 2 * i, table.two[indices[i]], 2);
  }
}

uint64_t PagePlanes::paddedWidth() const {
  const auto pixels = static_cast<uint64_t>(width());
  return bits_ == 4 ? 2 * DIBRowBytes(pixels, 4) : DIBRowBytes(pixels, 8);
}

const uint8_t* PagePlanes::GreyRow(int row, uint8_t* buffer) const {
  if (indicesAreGreys_) return rows_.StoredRow(row);
  if (bits_ == 24) {
    ReadTrueColourGrey(rows_.StoredRow(row), static_cast<size_t>(width()), buffer);
  } else {
    LookUp(row, grey_, buffer);
  }
  return buffer;
}

void PagePlanes::ReadGrey(int row, uint8_t* grey) const {
  const uint8_t* from = GreyRow(row, grey);
  if (from != grey) std::memcpy(grey, from, static_cast<size_t>(width()));
}

void PagePlanes::ReadRed(int row, uint8_t* red) const {
  if (bits_ != 24) return LookUp(row, red_, red);
  const uint8_t* pixels = rows_.StoredRow(row);
  for (int x = 0; x < width(); ++x) red[x] = pixels[3 * x + 2];
}

void PagePlanes::ReadColours(int row, uint8_t* red, uint8_t* green, uint8_t* blue) const {
  if (bits_ != 24) {
    LookUp(row, red_, red);
    LookUp(row, green_, green);
    LookUp(row, blue_, blue);
    return;
  }
  const uint8_t* pixels = rows_.StoredRow(row);
  for (int x = 0; x < width(); ++x, pixels += 3) {
    blue[x] = pixels[0];
    green[x] = pixels[1];
    red[x] = pixels[2];
  }
}

uint8_t PagePlanes::FirstRed(int row) const {
  const uint8_t* pixels = rows_.StoredRow(row);
  if (bits_ == 24) return pixels[2];
  return bits_ == 8 ? red_.one[pixels[0]] : red_.two[pixels[0]][0];
}

DitherResult::DitherResult(const Header& source, int bits)
    : NewBlock(ResultBytes(source, bits), Content::kUnset) {
  if (!*this) return;
  const Header header = HeaderLike(source, static_cast<unsigned>(bits), Colours(bits));
  std::memcpy(bytes(), &header, sizeof(header));
  auto* palette = reinterpret_cast<RGBQUAD*>(bytes() + kHeaderBytes);
  for (unsigned i = 0; i < Colours(bits); ++i) palette[i] = PaletteEntry(bits, i);
  rows_ = {
      bytes() + kHeaderBytes + Colours(bits) * sizeof(RGBQUAD),
      static_cast<size_t>(DIBRowBytes(static_cast<uint32_t>(source.biWidth), static_cast<unsigned>(bits))),
      source.biWidth, source.biHeight};
}

void PackBlackAndWhite(const uint8_t* white, const Rows& rows, int row) {
  uint8_t* to = rows.StoredRow(row);
  const int whole = rows.width / 8;
  for (int i = 0; i < whole; ++i) {
    to[i] = GatherFlags(LoadWord(white + 8 * i) & kLowestBits);
  }
  ClearFrom(whole, rows, to);
  for (int x = 8 * whole; x < rows.width; ++x) to[whole] |= static_cast<uint8_t>((white[x] & 0x80) >> x % 8);
}

void PackEightColours(const uint8_t* red, const uint8_t* green, const uint8_t* blue, const Rows& rows,
                      int row) {
  uint8_t* to = rows.StoredRow(row);
  const auto index = [=](int x) { return (red[x] & 8) | (green[x] & 4) | (blue[x] & 2); };
  const int whole = rows.width / 2;
  for (int i = 0; i < whole; ++i) to[i] = static_cast<uint8_t>(index(2 * i) << 4 | index(2 * i + 1));
  if (rows.width % 2 != 0) to[whole] = static_cast<uint8_t>(index(rows.width - 1) << 4);
  ClearFrom(whole + rows.width % 2, rows, to);
}

void PackCube(const uint8_t* red, const uint8_t* green, const uint8_t* blue, const Rows& rows, int row) {
  uint8_t* to = rows.StoredRow(row);
  for (int x = 0; x < rows.width; ++x) to[x] = static_cast<uint8_t>(red[x] << 5 | green[x] << 2 | blue[x]);
  ClearFrom(rows.width, rows, to);
}

HGLOBAL Dither(HGLOBAL dib, int bits, const DitherRules& rules, DitherPass pass) {
  ThreadState& state = GetThreadState();
  const bool isTarget = bits == 1 || bits == 4 || bits == 8;
  if (!isTarget || bits > rules.mostBits) return state.Fail(ErrParameter);
  if (dib == nullptr) return state.Fail(rules.nullHandle);
  LockedDib page(dib);
  if (!page) return state.Fail(rules.cannotLock);
  if (!page.Holds(0, kHeaderBytes)) return state.Fail(ErrDIBSize);
  if (static_cast<unsigned>(bits) >= page.bits() || !PagePlanes::Takes(page.bits())) {
    page.KeepLocked();  // Kept: callers unlock the page once when they see this code.
    return state.Fail(ErrDitherParameter);
  }
  ConstRows rows = {};
  if (!page.FindRows(kHeaderBytes + PaletteBytes(&page.header()), &rows)) return state.Fail(ErrDIBSize);

  GlobalCompact(0);  // large blocks are wanted next
  DitherResult result(page.header(), bits);
  if (!result || !pass(PagePlanes(page, rows), bits, result.rows())) return state.Fail(ErrNoMemory);
  state.lastError = ErrSuccess;
  return result.Release();
}

}  // namespace rastrel
