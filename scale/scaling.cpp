// Pages in a new size: 1 bit by the nearest pixels, 4, 8 and 24 bits by interpolation of their colours.
#include <algorithm>
#include <array>
#include <cstring>
#include <new>

#include "frame/dib.h"
#include "frame/rastrel.h"
#include "frame/thread_state.h"
#include "pixels/colours.h"
#include "scale/indexed_rows.h"
#include "scale/mono_scaling.h"
#include "scale/resampling.h"

namespace rastrel {
namespace {

using Size = Resampler::Size;

// The low 16 bits of each. Kept: callers of ScaleDIB compare its pages with stored ones.
Size SizeOf(int width, int height) { return {static_cast<uint16_t>(width), static_cast<uint16_t>(height)}; }

struct Task {
  const LockedDib& page;
  Interpolation interpolation;
  Size from;
  Size to;
  ConstRows source;
  Rows result;
};

// ---- what indices mean ------------------------------------------------------------------------------------

struct Palette {
  ColourTable table;             // in which indices are found
  std::array<Rgb, 256> colours;  // of indices; those beyond the table are what lies there in the block
  bool isGrey;                   // all colours that pixels have
};

// At least that of all pixels: the nibble that fills a row counts, too.
unsigned HighestIndex(const ConstRows& rows, unsigned bits) {
  uint8_t highest = 0;
  const size_t bytes = (static_cast<size_t>(rows.width) * bits + 7) / 8;
  const int shift = bits == 8 ? 0 : 4;
  const uint8_t mask = bits == 8 ? 0xFF : 0x0F;
  for (int y = 0; y < rows.height; ++y) {
    const uint8_t* row = rows.StoredRow(y);
    for (size_t i = 0; i < bytes; ++i) {
      highest =
          std::max({highest, static_cast<uint8_t>(row[i] >> shift), static_cast<uint8_t>(row[i] & mask)});
    }
  }
  return highest;
}

Palette ReadPalette(const Task& task) {
  const unsigned bits = task.page.bits();
  const unsigned indices = 1u << bits;
  RGBQUAD entries[256];
  task.page.ReadPalette(256, kBlack, entries);
  Palette palette;
  for (size_t i = 0; i < 256; ++i) {
    palette.colours[i] = RgbOf(entries[i].rgbRed, entries[i].rgbGreen, entries[i].rgbBlue);
  }
  palette.table.count = std::min(DIBNumColors(&task.page.header()), indices);
  std::copy_n(palette.colours.begin(), palette.table.count, palette.table.colours.begin());
  const unsigned used = palette.table.count == indices ? indices : HighestIndex(task.source, bits) + 1;
  palette.isGrey = std::all_of(palette.colours.begin(), palette.colours.begin() + used, IsGrey);
  return palette;
}

// ---- the three kinds of pages -----------------------------------------------------------------------------

bool ScaleTrueColour(const Task& task) {
  Resampler resampler(task.interpolation, 3, task.from, task.to);
  if (!resampler) return false;
  for (uint32_t y = 0; y < task.to.height; ++y) {
    uint8_t* row = task.result.StoredRow(static_cast<int>(y));
    resampler.MakeRow(
        y, [&](uint32_t r) { return task.source.StoredRow(static_cast<int>(r)); }, row);
    const size_t bytes = size_t{3} * task.to.width;
    std::memset(row + bytes, 0, task.result.stride - bytes);
  }
  return true;
}

// The length of the black that a row begins with. It gets index 0 even where another entry is nearer, unlike
// black after a colour. Kept: callers of ScaleDIB compare its pages with stored ones.
size_t LeadingBlack(const uint8_t* line, size_t channels, size_t width) {
  const uint8_t* end = line + channels * width;
  const auto isNotZero = [](uint8_t value) { return value != 0; };
  return static_cast<size_t>(std::find_if(line, end, isNotZero) - line) / channels;
}

void ClearPixels(uint8_t* row, size_t count, unsigned bits) {
  const size_t bytes = count * bits / 8;
  std::memset(row, 0, bytes);
  if (count * bits % 8 != 0) row[bytes] &= 0x0F;
}

// Greys have one channel, and each has its index.
bool ScaleGreys(const Task& task, const Palette& palette) {
  const unsigned bits = task.page.bits();
  ByteMap::Table blues;
  ByteMap::Table nearest;
  for (unsigned i = 0; i < 256; ++i) {
    blues[i] = static_cast<uint8_t>(BlueOf(palette.colours[i]));
    nearest[i] = static_cast<uint8_t>(NearestIndex(palette.table, RgbOf(i, i, i)));
  }
  const ByteMap levels(blues);
  const ByteMap indices(nearest);

  Resampler resampler(task.interpolation, 1, task.from, task.to);
  const NewBlock samples(task.from.width, Content::kUnset);
  const NewBlock lineBlock(task.to.width, Content::kUnset);
  if (!resampler || !samples || !lineBlock) return false;
  const auto levelsOf = [&](uint32_t r) -> const uint8_t* {
    const uint8_t* row = task.source.StoredRow(static_cast<int>(r));
    if (bits == 8 && levels.isIdentity()) return row;
    ReadLevels(row, bits, 0, task.from.width, levels, samples.bytes());
    return samples.bytes();
  };
  for (uint32_t y = 0; y < task.to.height; ++y) {
    uint8_t* row = task.result.StoredRow(static_cast<int>(y));
    uint8_t* line = bits == 8 ? row : lineBlock.bytes();
    resampler.MakeRow(y, levelsOf, line);
    const size_t black = indices[0] == 0 ? 0 : LeadingBlack(line, 1, task.to.width);
    WriteIndices(line, task.to.width, bits, indices, task.result.stride, row);
    ClearPixels(row, black, bits);
  }
  return true;
}

// Writes the colours of a row of indices. They are words, of which the next covers the highest byte, so that
// one byte more is written; at 4 bits one colour more where the width is odd.
void ReadColours(const uint8_t* row, unsigned bits, size_t width, const std::array<Rgb, 256>& colours,
                 uint8_t* to) {
  const auto put = [&](size_t x, size_t index) { std::memcpy(to + 3 * x, &colours[index], sizeof(Rgb)); };
  if (bits == 8) {
    for (size_t x = 0; x < width; ++x) put(x, row[x]);
  } else {
    for (size_t x = 0; x < width; x += 2) {
      put(x, row[x / 2] >> 4);
      put(x + 1, row[x / 2] & 15);
    }
  }
}

void FindIndices(const uint8_t* line, size_t width, NearestColours* nearest, uint8_t* indices) {
  constexpr size_t kAtOnce = 512;
  Rgb colours[kAtOnce];
  for (size_t x = 0; x < width; x += kAtOnce) {
    const size_t count = std::min(kAtOnce, width - x);
    for (size_t i = 0; i < count; ++i) {
      const uint8_t* pixel = line + 3 * (x + i);
      colours[i] = RgbOf(pixel[2], pixel[1], pixel[0]);
    }
    nearest->Map(colours, static_cast<unsigned>(count));
    for (size_t i = 0; i < count; ++i) indices[x + i] = static_cast<uint8_t>(colours[i]);
  }
}

bool ScaleColours(const Task& task, const Palette& palette) {
  const unsigned bits = task.page.bits();
  const size_t width = task.to.width;
  ByteMap::Table same;
  for (size_t i = 0; i < same.size(); ++i) same[i] = static_cast<uint8_t>(i);
  const ByteMap asTheyAre(same);
  const NewBlock memory(sizeof(NearestColours), Content::kUnset);
  if (!memory) return false;
  auto* const nearest = new (memory.bytes()) NearestColours(palette.table);
  Resampler resampler(task.interpolation, 3, task.from, task.to);
  const NewBlock samples(uint64_t{3} * (task.from.width + 1) + 1, Content::kUnset);
  const NewBlock line(uint64_t{3} * width, Content::kUnset);
  const NewBlock indices(width, Content::kUnset);
  if (!resampler || !samples || !line || !indices) return false;
  const auto coloursOf = [&](uint32_t r) {
    const uint8_t* row = task.source.StoredRow(static_cast<int>(r));
    ReadColours(row, bits, task.from.width, palette.colours, samples.bytes());
    return samples.bytes();
  };
  for (uint32_t y = 0; y < task.to.height; ++y) {
    uint8_t* row = task.result.StoredRow(static_cast<int>(y));
    resampler.MakeRow(y, coloursOf, line.bytes());
    FindIndices(line.bytes(), width, nearest, indices.bytes());
    WriteIndices(indices.bytes(), width, bits, asTheyAre, task.result.stride, row);
    ClearPixels(row, LeadingBlack(line.bytes(), 3, width), bits);
  }
  return true;
}

bool ScalePixels(const Task& task) {
  if (task.page.bits() == 24) return ScaleTrueColour(task);
  const Palette palette = ReadPalette(task);
  return palette.isGrey ? ScaleGreys(task, palette) : ScaleColours(task, palette);
}

// ---- the operation ----------------------------------------------------------------------------------------

HGLOBAL Interpolate(const LockedDib& page, Interpolation interpolation, int newWidth, int newHeight,
                    ThreadState& state) {
  const Header& header = page.header();
  if (page.bits() != 24 && header.biCompression != BI_RGB) return state.Fail(ErrCompressed);
  const Size from = SizeOf(page.width(), page.height());
  const Size to = SizeOf(newWidth, newHeight);
  if (from.width == 0 || from.height == 0 || to.width == 0 || to.height == 0) return state.Fail(ErrParameter);
  const uint64_t headBytes = kHeaderBytes + PaletteBytes(&header);
  ConstRows source = {};
  if (!page.FindRows(headBytes, &source)) return state.Fail(ErrDIBSize);
  // Of a page that is wider than 16 bits can say all rows have to be there, but rows are taken to be as long
  // as what they say.
  source = {source.first, static_cast<size_t>(DIBRowBytes(from.width, page.bits())),
            static_cast<int>(from.width), static_cast<int>(from.height)};

  const auto width = static_cast<int>(to.width);
  const auto height = static_cast<int>(to.height);
  const uint64_t imageBytes = DIBImageBytes(width, height, page.bits());
  NewBlock result(headBytes + imageBytes, Content::kUnset);
  if (!result) return state.Fail(ErrNoMemory);
  std::memcpy(result.bytes(), page.bytes(), static_cast<size_t>(headBytes));
  Header newHeader = header;
  newHeader.biWidth = width;
  newHeader.biHeight = height;
  newHeader.biSizeImage = static_cast<uint32_t>(imageBytes);
  std::memcpy(result.bytes(), &newHeader, sizeof(newHeader));

  const auto stride = static_cast<size_t>(DIBRowBytes(to.width, page.bits()));
  const Task task = {page, interpolation, from,
                     to,   source,        {result.bytes() + headBytes, stride, width, height}};
  return ScalePixels(task) ? result.Release() : state.Fail(ErrNoMemory);
}

}  // namespace
}  // namespace rastrel

HGLOBAL RASTREL_CALL ScaleDIB(HGLOBAL dib, int cubic, int newWidth, int newHeight) {
  using namespace rastrel;
  ThreadState& state = GetThreadState();
  if (dib == nullptr) return state.Fail(ErrParameter);
  const LockedDib page(dib);
  if (!page) return state.Fail(ErrNoMemory);
  if (!page.Holds(0, kHeaderBytes)) return state.Fail(ErrDIBSize);

  switch (page.bits()) {
    case 1:
      return ScaleMonoRect(page, 0, 0, page.width(), page.height(), newWidth, newHeight);
    case 4:
    case 8:
    case 24:
      return Interpolate(page, cubic != 0 ? Interpolation::kCubic : Interpolation::kBilinear, newWidth,
                         newHeight, state);
    default:
      return state.Fail(ErrHeaderBitCount);
  }
}
