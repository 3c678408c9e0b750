#include "formats/tiff_raw.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace rastrel::formats {
namespace {

struct Shape {
  uint32_t width = 0, height = 0;
  uint16_t bits = 1, samples = 1, photometric = PHOTOMETRIC_MINISBLACK, planar = PLANARCONFIG_CONTIG;
  uint16_t compression = COMPRESSION_NONE, format = SAMPLEFORMAT_UINT;
};

Shape ShapeOf(TIFF* file) {
  Shape shape;
  TIFFGetField(file, TIFFTAG_IMAGEWIDTH, &shape.width);
  TIFFGetField(file, TIFFTAG_IMAGELENGTH, &shape.height);
  TIFFGetFieldDefaulted(file, TIFFTAG_BITSPERSAMPLE, &shape.bits);
  TIFFGetFieldDefaulted(file, TIFFTAG_SAMPLESPERPIXEL, &shape.samples);
  TIFFGetFieldDefaulted(file, TIFFTAG_PLANARCONFIG, &shape.planar);
  TIFFGetFieldDefaulted(file, TIFFTAG_COMPRESSION, &shape.compression);
  TIFFGetFieldDefaulted(file, TIFFTAG_SAMPLEFORMAT, &shape.format);
  if (TIFFGetField(file, TIFFTAG_PHOTOMETRIC, &shape.photometric) == 0 && shape.samples >= 3) {
    shape.photometric = PHOTOMETRIC_RGB;
  }
  return shape;
}

// Copies `count` samples out of packed bits, from sample `first` on, to every `step`th of a page row.
void Unpack(const uint8_t* packed, size_t first, size_t count, const Raw& page, size_t step, uint8_t* out) {
  const auto bits = static_cast<size_t>(page.bits);
  const size_t bytes = page.sampleBytes();
  if (bits == bytes * 8) {
    packed += first * bytes;
    if (step == 1) {
      std::memcpy(out, packed, count * bytes);
      return;
    }
    for (size_t i = 0; i < count; ++i) std::memcpy(out + i * step * bytes, packed + i * bytes, bytes);
    return;
  }
  size_t bit = first * bits;  // fewer than 16 a sample, the first highest in its byte
  for (size_t i = 0; i < count; ++i) {
    unsigned value = 0;
    for (size_t left = bits; left > 0;) {
      const size_t taken = std::min(left, 8 - bit % 8);
      value = value << taken | (packed[bit / 8] >> (8 - bit % 8 - taken) & ((1u << taken) - 1));
      bit += taken;
      left -= taken;
    }
    const auto word = static_cast<uint16_t>(value);
    const auto byte = static_cast<uint8_t>(value);
    std::memcpy(out + i * step * bytes, bytes == 1 ? static_cast<const void*>(&byte) : &word, bytes);
  }
}

// Not before some of the rows could be read: what a file of a few bytes claims may be anything.
void TakeMemory(Raw* page) {
  if (page->bytes.empty()) page->bytes.resize(page->rowBytes() * static_cast<size_t>(page->height));
}

// Zeros that take no memory until they are written over.
using Zeros = std::unique_ptr<uint8_t, void (*)(void*)>;
Zeros NewZeros(size_t bytes) {
  Zeros zeros(static_cast<uint8_t*>(std::calloc(bytes, 1)), std::free);
  if (!zeros) throw PageError("out of memory", ErrNoMemory);
  return zeros;
}

bool ReadRows(TIFF* file, const Reading& reading, const Shape& shape, Raw* page) {
  const bool isPlanar = shape.planar == PLANARCONFIG_SEPARATE;
  const size_t inRow = isPlanar ? 1 : shape.samples;
  const auto rowBytes = static_cast<size_t>(std::max<tmsize_t>(TIFFScanlineSize(file), 0));
  if (rowBytes < (uint64_t{shape.width} * inRow * shape.bits + 7) / 8) return false;
  std::vector<uint8_t> row(rowBytes);
  for (uint16_t sample = 0; sample < (isPlanar ? shape.samples : 1); ++sample) {
    for (uint32_t y = 0; y < shape.height; ++y) {
      reading.CheckTime();
      std::fill(row.begin(), row.end(), uint8_t{0});  // a decoder may stop early
      if (TIFFReadScanline(file, row.data(), y, sample) < 0) return false;
      TakeMemory(page);
      Unpack(row.data(), 0, shape.width * inRow, *page, isPlanar ? shape.samples : 1,
             page->Row(static_cast<int32_t>(y)) + sample * page->sampleBytes());
    }
  }
  return true;
}

bool ReadTiles(TIFF* file, const Reading& reading, const Shape& shape, Raw* page) {
  const bool isPlanar = shape.planar == PLANARCONFIG_SEPARATE;
  const size_t inRow = isPlanar ? 1 : shape.samples;
  uint32_t across = 0, down = 0;
  TIFFGetField(file, TIFFTAG_TILEWIDTH, &across);
  TIFFGetField(file, TIFFTAG_TILELENGTH, &down);
  const auto rowBytes = static_cast<size_t>(std::max<tmsize_t>(TIFFTileRowSize(file), 0));
  const auto tileBytes = static_cast<size_t>(std::max<tmsize_t>(TIFFTileSize(file), 0));
  if (across == 0 || down == 0 || rowBytes < (uint64_t{across} * inRow * shape.bits + 7) / 8 ||
      tileBytes / down < rowBytes) {
    return false;
  }
  reading.CheckBytes(page->rowBytes() * shape.height + tileBytes);
  const Zeros tile = NewZeros(tileBytes);
  for (uint16_t sample = 0; sample < (isPlanar ? shape.samples : 1); ++sample) {
    for (uint64_t top = 0; top < shape.height; top += down) {
      for (uint64_t left = 0; left < shape.width; left += across) {
        reading.CheckTime();
        if (!page->bytes.empty()) std::memset(tile.get(), 0, tileBytes);
        if (TIFFReadTile(file, tile.get(), static_cast<uint32_t>(left), static_cast<uint32_t>(top), 0,
                         sample) < 0) {
          return false;
        }
        TakeMemory(page);
        const auto columns = static_cast<size_t>(std::min<uint64_t>(across, shape.width - left));
        const auto rows = static_cast<size_t>(std::min<uint64_t>(down, shape.height - top));
        const size_t at = static_cast<size_t>(left) * shape.samples + sample;
        for (size_t y = 0; y < rows; ++y) {
          Unpack(tile.get() + y * rowBytes, 0, columns * inRow, *page, isPlanar ? shape.samples : 1,
                 page->Row(static_cast<int32_t>(top + y)) + at * page->sampleBytes());
        }
      }
    }
  }
  return true;
}

}  // namespace

bool HasRawSamples(TIFF* file) {
  const Shape shape = ShapeOf(file);
  const unsigned bits = shape.bits;
  const bool isFloat = shape.format == SAMPLEFORMAT_IEEEFP;
  const bool isKnownDepth =
      isFloat ? bits == 16 || bits == 32 || bits == 64 : (bits >= 1 && bits <= 16) || bits == 32;
  constexpr unsigned kMostSamples = 64;
  const bool isKnownSpace =
      shape.photometric <= PHOTOMETRIC_PALETTE || shape.photometric == PHOTOMETRIC_SEPARATED ||
      shape.photometric == PHOTOMETRIC_CIELAB || shape.photometric == PHOTOMETRIC_ICCLAB;
  return isKnownDepth && isKnownSpace && shape.samples >= 1 && shape.samples <= kMostSamples &&
         shape.format <= SAMPLEFORMAT_IEEEFP && shape.compression != COMPRESSION_OJPEG;
}

bool ReadRawSamples(TIFF* file, const Reading& reading, Raw* page) {
  const Shape shape = ShapeOf(file);
  CheckSize(shape.width, shape.height, 1);
  reading.CheckPixels(shape.width, shape.height);
  page->width = static_cast<int32_t>(shape.width);
  page->height = static_cast<int32_t>(shape.height);
  page->bits = shape.bits;
  page->samples = shape.samples;
  page->photometric = shape.photometric;
  page->sampleFormat = shape.format;
  constexpr uint64_t kMostPixelBytes = 64 * 8;
  reading.CheckBytes(uint64_t{shape.width} * shape.height / kMostPixelBytes);  // lest the next one wraps
  reading.CheckBytes(page->rowBytes() * uint64_t{shape.height});
  uint16_t extras = 0;
  const uint16_t* kinds = nullptr;
  TIFFGetFieldDefaulted(file, TIFFTAG_EXTRASAMPLES, &extras, &kinds);
  if (kinds != nullptr) page->extras.assign(kinds, kinds + extras);
  const uint16_t* maps[3] = {};
  if (shape.photometric == PHOTOMETRIC_PALETTE) {
    if (shape.bits > 8 || TIFFGetField(file, TIFFTAG_COLORMAP, &maps[0], &maps[1], &maps[2]) == 0)
      return false;
    for (const uint16_t* map : maps) page->colours.insert(page->colours.end(), map, map + (1 << shape.bits));
  }
  const float* white = nullptr;
  if (shape.photometric == PHOTOMETRIC_CIELAB && TIFFGetField(file, TIFFTAG_WHITEPOINT, &white) != 0)
    page->white = {white[0], white[1]};
  return TIFFIsTiled(file) != 0 ? ReadTiles(file, reading, shape, page)
                                : ReadRows(file, reading, shape, page);
}

void SetRawFields(TIFF* file, const Raw& page) {
  TIFFSetField(file, TIFFTAG_IMAGEWIDTH, page.width);
  TIFFSetField(file, TIFFTAG_IMAGELENGTH, page.height);
  TIFFSetField(file, TIFFTAG_BITSPERSAMPLE, page.bits);
  TIFFSetField(file, TIFFTAG_SAMPLESPERPIXEL, page.samples);
  TIFFSetField(file, TIFFTAG_PHOTOMETRIC, page.photometric);
  TIFFSetField(file, TIFFTAG_SAMPLEFORMAT, page.sampleFormat);
  if (!page.extras.empty()) {
    TIFFSetField(file, TIFFTAG_EXTRASAMPLES, static_cast<int>(page.extras.size()), page.extras.data());
  }
  if (page.white.isKnown()) {
    const float white[2] = {page.white.x, page.white.y};
    TIFFSetField(file, TIFFTAG_WHITEPOINT, white);
  }
  if (page.photometric == PHOTOMETRIC_PALETTE) {
    const size_t colours = page.colours.size() / 3;
    const uint16_t* reds = page.colours.data();
    TIFFSetField(file, TIFFTAG_COLORMAP, reds, reds + colours, reds + 2 * colours);
  }
}

std::vector<uint8_t> PackedRow(const Raw& page, int32_t y) {
  const uint8_t* in = page.Row(y);
  const auto bits = static_cast<size_t>(page.bits);
  const size_t bytes = page.sampleBytes(), samples = page.rowSamples();
  std::vector<uint8_t> packed((samples * bits + 7) / 8);
  if (bits == bytes * 8) {
    std::memcpy(packed.data(), in, packed.size());
    return packed;
  }
  size_t bit = 0;
  for (size_t i = 0; i < samples; ++i) {
    uint16_t word = in[i];
    if (bytes == 2) std::memcpy(&word, in + 2 * i, 2);
    for (size_t left = bits; left > 0;) {
      const size_t taken = std::min(left, 8 - bit % 8);
      const unsigned part = word >> (left - taken) & ((1u << taken) - 1);
      packed[bit / 8] = static_cast<uint8_t>(packed[bit / 8] | part << (8 - bit % 8 - taken));
      bit += taken;
      left -= taken;
    }
  }
  return packed;
}

}  // namespace rastrel::formats
