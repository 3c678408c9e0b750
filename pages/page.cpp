#include "pages/page.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "pages/text.h"
#include "pixels/kernels.h"
#include "pixels/weighted_greys.h"

namespace rastrel::pages {
namespace {

constexpr uint64_t kMaxBlockBytes = 0xFFFFFFFFu;

constexpr int ColoursOf(int bits) { return bits <= 8 ? 1 << bits : 0; }

uint64_t HeadBytes(int bits) {
  return sizeof(BITMAPINFOHEADER) + static_cast<uint64_t>(ColoursOf(bits)) * sizeof(RGBQUAD);
}

void PutIndex(uint8_t* row, int bits, int x, unsigned index) {
  if (bits == 8) {
    row[x] = static_cast<uint8_t>(index);
    return;
  }
  const int perByte = 8 / bits;
  const int shift = (perByte - 1 - x % perByte) * bits;
  const unsigned mask = ((1u << bits) - 1) << shift;
  uint8_t& byte = row[x / perByte];
  byte = static_cast<uint8_t>((byte & ~mask) | index << shift);
}

// Sets or clears the bits of columns `from` up to `to`.
void PutBits(uint8_t* row, int from, int to, bool isSet) {
  if (from >= to) return;
  const auto put = [&](int byte, int mask) {
    row[byte] = static_cast<uint8_t>(isSet ? row[byte] | mask : row[byte] & ~mask);
  };
  const int first = from / 8, last = (to - 1) / 8;
  const int firstMask = 0xFF >> from % 8, lastMask = 0xFF << (7 - (to - 1) % 8);
  if (first == last) return put(first, firstMask & lastMask);
  put(first, firstMask);
  std::memset(row + first + 1, isSet ? 0xFF : 0, static_cast<size_t>(last - first - 1));
  put(last, lastMask);
}

bool IsGrey(const RGBQUAD& entry) {
  return entry.rgbBlue == entry.rgbGreen && entry.rgbGreen == entry.rgbRed;
}

void ZeroPadding(const PageView& page) {
  if (page.stride() == 0) return;
  for (int y = 0; y < page.height(); ++y) std::memset(page.PageRow(y) + page.stride() - 4, 0, 4);
}

void CopyPalette(const PageView& from, const PageView& to) {
  std::copy_n(from.palette().begin(), std::min(from.palette().size(), to.palette().size()),
              to.palette().begin());
}

// Eight bytes of a row as a word, the leftmost highest. Compilers know it for one load.
uint64_t WordOfBytes(const uint8_t* bytes) {
  return uint64_t{bytes[0]} << 56 | uint64_t{bytes[1]} << 48 | uint64_t{bytes[2]} << 40 |
         uint64_t{bytes[3]} << 32 | uint64_t{bytes[4]} << 24 | uint64_t{bytes[5]} << 16 |
         uint64_t{bytes[6]} << 8 | uint64_t{bytes[7]};
}

struct LumaWeights {  // as Luma has them
  static constexpr uint16_t kRed = 77, kGreen = 150, kBlue = 29;
};

void WordsOfRow(const uint8_t* __restrict row, size_t words, uint64_t flip, uint64_t* __restrict out) {
  for (size_t i = 0; i < words; ++i) out[i] = WordOfBytes(row + 8 * i) ^ flip;
}

// Makes a page of the same size whose pixels are to be set.
Dib MakeLike(const PageView& page, int bits) {
  Dib result = MakePage(page.width(), page.height(), bits, page.resolution());
  ZeroPadding(PageView(result));
  return result;
}

}  // namespace

int32_t PixelsPerMetre(double dotsPerInch) {
  const double value = dotsPerInch / 0.0254;
  return value >= 1 && value < 1e9 ? static_cast<int32_t>(std::lround(value)) : 0;
}

double DotsPerInch(int32_t pixelsPerMetre) {
  // Whole pixels a metre are coarser than what the file said: 11811 stands for 300 dpi.
  return std::round(pixelsPerMetre * 0.0254 * 10) / 10;
}

bool CompleteResolution(BITMAPINFOHEADER* header, double dpi) {
  constexpr double kAssumedDpi = 300;
  constexpr double kLeastDpi = 20, kMostDpi = 20000;  // outside these a file's resolution means nothing
  const auto isSound = [](int32_t value) {
    const double dots = DotsPerInch(value);
    return dots >= kLeastDpi && dots <= kMostDpi;
  };
  auto& x = header->biXPelsPerMeter;
  auto& y = header->biYPelsPerMeter;
  const bool hasX = isSound(x), hasY = isSound(y);
  if (hasX && hasY) return false;
  const int32_t known = hasX ? x : hasY ? y : PixelsPerMetre(dpi > 0 ? dpi : kAssumedDpi);
  x = y = known;
  return !hasX && !hasY && dpi <= 0;
}

PageView::PageView(const Dib& dib)
    : block_(dib.handle()), header_(static_cast<BITMAPINFOHEADER*>(GlobalLock(dib.handle()))) {
  if (header_ == nullptr) throw PageError("out of memory", ErrNoMemory);
  stride_ = static_cast<size_t>(StrideOf(header_->biWidth, header_->biBitCount));
  rows_ = reinterpret_cast<uint8_t*>(header_) + header_->biSize + PaletteSize(header_);
}

std::span<RGBQUAD> PageView::palette() const {
  auto* table = reinterpret_cast<RGBQUAD*>(reinterpret_cast<uint8_t*>(header_) + header_->biSize);
  return {table, static_cast<size_t>(PaletteSize(header_)) / sizeof(RGBQUAD)};
}

uint64_t StrideOf(int64_t width, int bits) {
  return (static_cast<uint64_t>(width) * static_cast<uint64_t>(bits) + 31) / 32 * 4;
}

void CheckSize(int64_t width, int64_t height, int bits) {
  constexpr int64_t kMaxSide = 0x7FFFFFFF;
  if (width < 1 || height < 1 || width > kMaxSide || height > kMaxSide) {
    throw PageError(Text("has a size of ", width, " x ", height, " pixels"));
  }
  const uint64_t stride = StrideOf(width, bits);
  if (stride > kMaxBlockBytes || stride * static_cast<uint64_t>(height) + HeadBytes(bits) > kMaxBlockBytes) {
    throw PageError(Text(width, " x ", height, " pixels of ", bits, " bits are more than 4 GiB"),
                    ErrTooLarge);
  }
}

Dib MakePage(int64_t width, int64_t height, int bits, Resolution resolution) {
  CheckSize(width, height, bits);
  const int colours = ColoursOf(bits);
  const uint64_t head = HeadBytes(bits);
  const uint64_t bytes = StrideOf(width, bits) * static_cast<uint64_t>(height);
  Dib page(GlobalAlloc(GMEM_MOVEABLE, static_cast<size_t>(bytes + head)));
  void* block = page ? GlobalLock(page.handle()) : nullptr;
  if (block == nullptr) throw PageError(Text("no memory for ", width, " x ", height, " pixels"), ErrNoMemory);
  *static_cast<BITMAPINFOHEADER*>(block) = {.biSize = sizeof(BITMAPINFOHEADER),
                                            .biWidth = static_cast<int32_t>(width),
                                            .biHeight = static_cast<int32_t>(height),
                                            .biPlanes = 1,
                                            .biBitCount = static_cast<uint16_t>(bits),
                                            .biCompression = BI_RGB,
                                            .biSizeImage = static_cast<uint32_t>(bytes),
                                            .biXPelsPerMeter = resolution.x,
                                            .biYPelsPerMeter = resolution.y,
                                            .biClrUsed = static_cast<uint32_t>(colours),
                                            .biClrImportant = 0};
  // Blocks are rounded up. What is behind the rows would differ from run to run for those who keep whole
  // blocks.
  const size_t used = static_cast<size_t>(bytes + head);
  std::memset(static_cast<uint8_t*>(block) + used, 0, GlobalSize(page.handle()) - used);
  GlobalUnlock(page.handle());
  const PageView view(page);
  for (int i = 0; i < colours; ++i) {
    const auto grey = static_cast<uint8_t>(i * 255 / (colours - 1));
    view.palette()[static_cast<size_t>(i)] = {grey, grey, grey, 0};
  }
  return page;
}

Dib NormalisePage(Dib dib) {
  const uint64_t size = GlobalSize(dib.handle());
  Dib page;
  {
    const PageView from(dib);
    const BITMAPINFOHEADER& header = from.header();
    const int bits = header.biBitCount;
    if (bits != 1 && bits != 4 && bits != 8 && bits != 24) {
      throw PageError(Text("has ", bits, " bits a pixel; 1, 4, 8 and 24 are known"));
    }
    if (header.biWidth < 1 || header.biHeight < 1) {
      throw PageError(Text("has a size of ", header.biWidth, " x ", header.biHeight, " pixels"));
    }
    const auto colours = static_cast<uint64_t>(ColoursOf(bits));
    const uint64_t stored = header.biClrUsed != 0 ? header.biClrUsed : colours;
    const uint64_t rowsAt = header.biSize + stored * sizeof(RGBQUAD);
    const uint64_t rowBytes = from.stride() * static_cast<uint64_t>(header.biHeight);
    if (rowsAt + rowBytes > size) throw PageError("is damaged: its rows are cut short");
    if (stored != colours) {
      page = MakePage(header.biWidth, header.biHeight, bits, from.resolution());
      const PageView to(page);
      const auto* block = reinterpret_cast<const uint8_t*>(&header);
      const size_t entries = std::min<size_t>(to.palette().size(), static_cast<size_t>(stored));
      for (RGBQUAD& entry : to.palette()) entry = {255, 255, 255, 0};
      std::memcpy(to.palette().data(), block + header.biSize, entries * sizeof(RGBQUAD));
      std::memcpy(to.pixels().data(), block + rowsAt, static_cast<size_t>(rowBytes));
    }
  }
  if (!page) page = std::move(dib);
  UseGreyRamp(PageView(page));
  return page;
}

bool HasGreyRamp(const PageView& page) {
  const auto palette = page.palette();
  for (size_t i = 0; i < palette.size(); ++i) {
    if (!IsGrey(palette[i]) || palette[i].rgbRed != i * 255 / (palette.size() - 1)) return false;
  }
  return !palette.empty();
}

bool NeedsGreyRamp(const PageView& page) {
  const auto palette = page.palette();
  if (page.bits() == 1) {
    return IsGrey(palette[0]) && palette[0].rgbRed == 255 && IsGrey(palette[1]) && palette[1].rgbRed == 0;
  }
  return page.bits() == 8 && !HasGreyRamp(page) && std::all_of(palette.begin(), palette.end(), IsGrey);
}

void UseGreyRamp(const PageView& page) {
  if (!NeedsGreyRamp(page)) return;
  const auto palette = page.palette();
  if (page.bits() == 1) {
    std::swap(palette[0], palette[1]);
    for (uint8_t& byte : page.pixels()) byte = static_cast<uint8_t>(~byte);
    return;
  }
  const std::vector<uint8_t> greys = BrightnessTable(page);
  for (uint8_t& pixel : page.pixels()) pixel = greys[pixel];
  for (size_t i = 0; i < palette.size(); ++i) {
    const auto grey = static_cast<uint8_t>(i);
    palette[i] = {grey, grey, grey, 0};
  }
}

Dib Duplicate(const Dib& page) {
  Dib copy(DuplicateDIB(page.handle()));
  if (!copy) throw PageError("out of memory", ErrNoMemory);
  return copy;
}

Dib ToGrey(const Dib& page) { return Checked(ConvColorDIBtoGrayscale(page.handle(), 1, 0)); }

Dib WidenTo8(const Dib& page) {
  const PageView from(page);
  Dib result = MakeLike(from, 8);
  const PageView to(result);
  for (RGBQUAD& entry : to.palette()) entry = {255, 255, 255, 0};
  CopyPalette(from, to);
  for (int y = 0; y < from.height(); ++y) {
    for (int x = 0; x < from.width(); ++x) {
      to.PageRow(y)[x] = static_cast<uint8_t>(GetIndex(from.PageRow(y), from.bits(), x));
    }
  }
  return result;
}

Dib NarrowTo4(const Dib& page) {
  const PageView from(page);
  Dib result = MakeLike(from, 4);
  const PageView to(result);
  CopyPalette(from, to);
  for (int y = 0; y < from.height(); ++y) {
    for (int x = 0; x < from.width(); ++x) PutIndex(to.PageRow(y), 4, x, from.PageRow(y)[x] & 15u);
  }
  return result;
}

std::vector<uint8_t> BrightnessTable(const PageView& page) {
  std::vector<uint8_t> table;
  for (const RGBQUAD& entry : page.palette()) {
    table.push_back(static_cast<uint8_t>((entry.rgbBlue + entry.rgbGreen + entry.rgbRed) / 3));
  }
  return table;
}

uint8_t Brightness(const PageView& page, const std::vector<uint8_t>& table, const uint8_t* row, int x) {
  if (page.bits() != 24) return table[GetIndex(row, page.bits(), x)];
  row += 3 * static_cast<size_t>(x);
  return static_cast<uint8_t>((row[0] + row[1] + row[2]) / 3);
}

void RowBrightness(const PageView& page, const std::vector<uint8_t>& table, int y, int from, int to,
                   uint8_t* out) {
  const uint8_t* row = page.PageRow(y);
  switch (page.bits()) {
    case 8:
      for (int x = from; x < to; ++x) *out++ = table[row[x]];
      break;
    case 24:
      row += 3 * static_cast<size_t>(from);
      for (int x = from; x < to; ++x, row += 3) *out++ = static_cast<uint8_t>((row[0] + row[1] + row[2]) / 3);
      break;
    case 1: {
      const uint8_t brightness[2] = {table[0], table[1]};
      for (int x = from; x < to; ++x) *out++ = brightness[row[x >> 3] >> (~x & 7) & 1];
      break;
    }
    default:
      for (int x = from; x < to; ++x) *out++ = table[GetIndex(row, page.bits(), x)];
  }
}

PageInfo InfoOf(const PageView& page) {
  return {.size = sizeof(PageInfo),
          .width = page.width(),
          .height = page.height(),
          .bits = page.bits(),
          .isGrey = HasGreyRamp(page),
          .dpiX = DotsPerInch(page.resolution().x),
          .dpiY = DotsPerInch(page.resolution().y)};
}

GreyRows::GreyRows(const PageView& page) : page_(page) {
  isPlain_ = page.bits() == 8;
  size_t entries = 0;
  for (const RGBQUAD& entry : page.palette().first(std::min<size_t>(page.palette().size(), 256))) {
    table_[entries] = Luma(entry.rgbRed, entry.rgbGreen, entry.rgbBlue);
    isPlain_ = isPlain_ && table_[entries] == entries;
    ++entries;
  }
  isPlain_ = isPlain_ && entries == 256;
}

void GreyRows::Read(int y, uint8_t* out) const {
  const uint8_t* row = page_.PageRow(y);
  const auto width = static_cast<size_t>(page_.width());
  if (page_.bits() == 24) {
    kWeightedGreys<LumaWeights>(row, width, out);
  } else if (isPlain_) {
    std::memcpy(out, row, width);
  } else if (page_.bits() == 8) {
    for (size_t x = 0; x < width; ++x) out[x] = table_[row[x]];
  } else {
    for (int x = 0; x < page_.width(); ++x) out[x] = table_[GetIndex(row, page_.bits(), x)];
  }
}

BytePlane GreyOf(const PageView& page) {
  BytePlane grey(page.width(), page.height(), PlaneContent::kUnset);
  const GreyRows rows(page);
  for (int y = 0; y < page.height(); ++y) rows.Read(y, grey.Row(y));
  return grey;
}

BitPlane InkOf1Bit(const PageView& page) {
  if (page.bits() != 1) throw PageError("is no page of 1 bit");
  BitPlane ink(page.width(), page.height(), PlaneContent::kUnset);
  if (ink.isEmpty()) return ink;
  const bool isZeroInk = ExtremeInk(page, /*light=*/false).bytes[0] == 0;
  const uint64_t flip = isZeroInk ? ~uint64_t{0} : 0;
  const size_t whole = page.stride() / 8;  // words; a row may have half a word more
  const uint64_t lastMask = ~uint64_t{0} << (63 - static_cast<unsigned>(page.width() - 1) % 64);
  for (int y = 0; y < page.height(); ++y) {
    const uint8_t* row = page.PageRow(y);
    uint64_t* words = ink.Row(y);
    Widest<WordsOfRow>(row, whole, flip, words);
    if (whole < ink.wordsPerRow()) {
      uint8_t last[8] = {};
      std::memcpy(last, row + 8 * whole, page.stride() - 8 * whole);
      words[whole] = WordOfBytes(last) ^ flip;
    }
    words[ink.wordsPerRow() - 1] &= lastMask;
  }
  return ink;
}

void PutInk(const BitPlane& ink, const PageView& page) {
  if (page.bits() != 1 || ink.width() != page.width() || ink.height() != page.height()) {
    throw PageError("the map of ink has another size than the page");
  }
  const uint64_t flip = ExtremeInk(page, /*light=*/false).bytes[0] == 0 ? ~uint64_t{0} : 0;
  const size_t bytes = (static_cast<size_t>(page.width()) + 7) / 8;
  for (int y = 0; y < page.height(); ++y) {
    uint8_t* row = page.PageRow(y);
    const uint64_t* words = ink.Row(y);
    for (size_t i = 0; i < bytes; i += 8) {
      const uint64_t word = *words++ ^ flip;
      uint8_t eight[8];
      for (size_t k = 0; k < 8; ++k) eight[k] = static_cast<uint8_t>(word >> (56 - 8 * k));
      std::memcpy(row + i, eight, std::min<size_t>(8, bytes - i));
    }
    std::memset(row + bytes, 0, page.stride() - bytes);
  }
}

Ink ExtremeInk(const PageView& page, bool light) {
  if (page.bits() == 24) {
    const uint8_t value = light ? 255 : 0;
    return {{value, value, value}};
  }
  const std::vector<uint8_t> table = BrightnessTable(page);
  const auto extreme =
      light ? std::max_element(table.begin(), table.end()) : std::min_element(table.begin(), table.end());
  return {{static_cast<uint8_t>(extreme - table.begin()), 0, 0}};
}

Ink GroundInk(const PageView& page, bool light) {
  constexpr int kStep = 4;  // every fourth pixel both ways tells enough
  const auto isGround = [light](unsigned brightness) { return light ? brightness >= 128 : brightness < 128; };
  const Ink extreme = ExtremeInk(page, light);
  if (page.bits() <= 4) return extreme;

  // The bins are the indices, or the top 4 bits of each colour.
  struct Bin {
    uint32_t count = 0;
    uint64_t sums[3] = {0, 0, 0};
  };
  std::vector<Bin> bins(page.bits() == 8 ? 256 : 4096);
  const std::vector<uint8_t> table = BrightnessTable(page);
  for (int64_t y = 0; y < page.height(); y += kStep) {
    const uint8_t* row = page.PageRow(static_cast<int>(y));
    for (int64_t x = 0; x < page.width(); x += kStep) {
      if (page.bits() == 8) {
        ++bins[row[x]].count;
        continue;
      }
      const uint8_t* pixel = row + 3 * static_cast<size_t>(x);
      // A third of the sum is the brightness, and is 128 or more where the sum is 3 x 128 or more.
      if ((pixel[0] + pixel[1] + pixel[2] >= 3 * 128) != light) continue;
      Bin& bin = bins[static_cast<size_t>(pixel[0] >> 4 | (pixel[1] & 0xF0) | (pixel[2] >> 4) << 8)];
      ++bin.count;
      for (int i = 0; i < 3; ++i) bin.sums[i] += pixel[i];
    }
  }
  if (page.bits() == 8) {
    for (size_t i = 0; i < bins.size(); ++i) {
      if (!isGround(table[i])) bins[i].count = 0;
    }
  }
  const auto fullest = std::max_element(bins.begin(), bins.end(),
                                        [](const Bin& a, const Bin& b) { return a.count < b.count; });
  if (fullest->count == 0) return extreme;
  if (page.bits() == 8) return {{static_cast<uint8_t>(fullest - bins.begin()), 0, 0}};
  Ink ink;
  for (int i = 0; i < 3; ++i) ink.bytes[i] = static_cast<uint8_t>(fullest->sums[i] / fullest->count);
  return ink;
}

COLORREF ColourOf(const PageView& page, Ink ink) {
  const auto colour = [](unsigned red, unsigned green, unsigned blue) {
    return static_cast<COLORREF>(red | green << 8 | blue << 16);
  };
  if (page.bits() == 24) return colour(ink.bytes[2], ink.bytes[1], ink.bytes[0]);
  const RGBQUAD entry = page.palette()[ink.bytes[0]];
  return colour(entry.rgbRed, entry.rgbGreen, entry.rgbBlue);
}

void PaintRow(const PageView& page, int y, int from, int to, Ink ink) {
  uint8_t* row = page.PageRow(y);
  if (page.bits() == 24) {
    for (int x = from; x < to; ++x) std::memcpy(row + 3 * static_cast<size_t>(x), ink.bytes, 3);
  } else if (page.bits() == 8) {
    if (from < to) std::memset(row + from, ink.bytes[0], static_cast<size_t>(to - from));
  } else if (page.bits() == 1) {
    PutBits(row, from, to, (ink.bytes[0] & 1) != 0);
  } else {
    for (int x = from; x < to; ++x) PutIndex(row, page.bits(), x, ink.bytes[0]);
  }
}

bool IsZero(const PageView& page, Ink ink) {
  if (page.bits() != 24) return ink.bytes[0] == 0;
  return ink.bytes[0] == 0 && ink.bytes[1] == 0 && ink.bytes[2] == 0;
}

void ExchangeWithZero(const PageView& page, Ink ink) {
  if (page.bits() == 24 && (ink.bytes[0] != ink.bytes[1] || ink.bytes[1] != ink.bytes[2])) {
    for (int y = 0; y < page.height(); ++y) {
      uint8_t* pixel = page.PageRow(y);
      for (int x = 0; x < page.width(); ++x, pixel += 3) {
        for (int i = 0; i < 3; ++i) pixel[i] ^= ink.bytes[i];
      }
    }
    return;
  }
  const unsigned repeats = page.bits() == 1 ? 0xFF : page.bits() == 4 ? 0x11 : 1;
  const auto mask = static_cast<uint8_t>(ink.bytes[0] * repeats);
  if (mask == 0) return;
  for (uint8_t& byte : page.pixels()) byte ^= mask;
}

Dib Upright(Dib page, int orientation) {
  using Flip = HGLOBAL(RASTREL_CALL*)(HGLOBAL);
  constexpr Flip kNone = nullptr;
  const struct {
    Flip flip;
    int quarterTurns;
  } ways[] = {{FlipDIBHorizontal, 0},  {kNone, 2}, {FlipDIBVertical, 0}, {FlipDIBVertical, -1}, {kNone, -1},
              {FlipDIBHorizontal, -1}, {kNone, 1}};
  if (orientation < 2 || orientation > 8) return page;
  const auto [flip, quarterTurns] = ways[orientation - 2];
  if (flip != nullptr) page = Checked(flip(page.handle()), "out of memory");
  if (quarterTurns != 0) page = Checked(TurnDIB(page.handle(), quarterTurns));
  return page;
}

Dib Checked(HGLOBAL result) {
  if (result == nullptr) throw PageError(LibraryError(), RastrelError());
  return Dib(result);
}

Dib Checked(HGLOBAL result, std::string_view otherwise) {
  if (result == nullptr) throw PageError(std::string(otherwise));
  return Dib(result);
}

std::string LibraryError() {
  char text[60];
  return RastrelErrorString(text, RastrelError());
}

}  // namespace rastrel::pages
